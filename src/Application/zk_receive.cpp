#include "Application/zk_receive.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <cstring>
#include <string>

#include "Application/zk_drag_stream.h"
#include "Application/zk_exchange.h"
#include "Application/zk_threads.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"

zk_event_listener_t event_listener;
std::atomic<int> min_time{100000};
std::atomic<int> min_index{-1};

void zk_get_arm_event_call_back(zk_event_callback_ptr event_callback)
{
    if (event_callback != nullptr) event_listener.event_callback = event_callback;
}

namespace {

// A slot whose frame has seen this many later frames arrive is stale and may be reused.
constexpr uint64_t kStaleAfterFrames = 50;

constexpr const char* kTrajectoryEnd = "current_trajectory_state";
constexpr const char* kProgramFinish = "program_run_finish";
constexpr const char* kConductProject = "conduct_project";

void clear_slot(zk_socket_fifo& slot) { std::memset(&slot, 0, sizeof slot); }

bool slot_named(const zk_socket_fifo& slot, const char* name)
{
    return std::strncmp(slot.command, name, sizeof slot.command) == 0;
}

void fire_event(const zk_event_push_data_t& data)
{
    zk_event_callback_ptr callback = event_listener.event_callback.load();
    if (callback != nullptr) callback(data);
}

// Drops the next event frame of a kind when the listener's flag asks for it: the flag is
// spent by the first scan that meets such a frame, whoever is scanning.
bool consume_flag(int wanted) { return event_listener.flag.compare_exchange_strong(wanted, kEventFlagNone); }

enum class ScanResult { kFound, kDropped, kNone };

// Scans a store once, in slot order; the caller holds the store's lock.
ScanResult scan_store(zk_socket_fifo_handle* store, const char* command, char* str, int str_len, int* length)
{
    for (zk_socket_fifo& slot : store->fifo) {
        if (slot.is_used != 1) continue;
        if (slot_named(slot, kTrajectoryEnd) && consume_flag(kEventFlagDropTrajectoryEnd)) {
            clear_slot(slot);
            return ScanResult::kDropped;
        }
        if (slot_named(slot, kProgramFinish) && consume_flag(kEventFlagDropProgramFinish)) {
            clear_slot(slot);
            return ScanResult::kDropped;
        }
        if (!slot_named(slot, command)) continue;
        *length = slot.recevie_len;
        if (str != nullptr && str_len > 0) {
            const size_t text = strnlen(reinterpret_cast<const char*>(slot.str_json), sizeof slot.str_json);
            const size_t copied = std::min(text, static_cast<size_t>(str_len - 1));
            std::memcpy(str, slot.str_json, copied);
            str[copied] = '\0';
        }
        clear_slot(slot);
        return ScanResult::kFound;
    }
    return ScanResult::kNone;
}

// Picks the slot a new frame goes to, or -1 when the store is full of fresh frames; the
// caller holds the store's lock and has advanced its clock.
//
// The eviction search keeps the lowest slot time ever seen, process-wide. Every store starts
// with all times 0, so after the first frame the record is 0 at slot 0 and stays there:
// a full store gives up slot 0 to the frame after next. That is the intended behaviour.
int pick_slot(zk_socket_fifo_handle* store)
{
    for (int i = 0; i < kFifoSlots; ++i) {
        if (store->fifo[i].time < static_cast<uint64_t>(std::max(min_time.load(), 0))) {
            min_time = static_cast<int>(store->fifo[i].time);
            min_index = i;
        }
    }
    for (int i = 0; i < kFifoSlots; ++i) {
        if (i == kFifoSlots - 1 && min_index >= 0 && min_index < kFifoSlots) clear_slot(store->fifo[min_index]);
        const zk_socket_fifo& slot = store->fifo[i];
        if (slot.is_used != 1 || slot.time + kStaleAfterFrames < store->current_time) return i;
    }
    return -1;
}

// A frame with neither name: the drag-teach point stream, or something unknown. Returns the
// slot the frame is then kept in, or -1 when it isn't kept.
int handle_unnamed_frame(const zk_handle_t* handle, const cJSON* root, const char* str)
{
    const cJSON* point = MIO_JSON_GetObjectItem(root, "point");
    if (!cJSON_IsArray(point)) {
        drag_teach_save_state = 1;
        zk_log_error("Error: 'point' is not an array. %s\n", str);
        return -1;
    }
    drag_teach_save_start = 1;
    if (drag_teach_file_write("%s\r\n", str)) {
        const int count = ++drag_teach_count;
        zk_log_debug("drag_teach_count:  %d  drag_teach_total_num: %d\n", count, drag_teach_total_num.load());
        if (count != 0 && count == drag_teach_total_num) drag_teach_save_complete = 1;
    } else {
        // Points with no save file open have nowhere to go: flag the stream as failed.
        drag_teach_save_state = 1;
    }
    // A point frame is kept in the slot whose number is the arm's degrees of freedom (the
    // point reader counts its joints with the slot index), under that slot's previous name.
    // The arm's count, not the array's: a short or long point array lands in the same slot.
    const int slot = handle->arm_dof;
    return slot >= 0 && slot < kFifoSlots ? slot : -1;
}

zk_event_push_data_t trajectory_event(const zk_handle_t* handle, const cJSON* root)
{
    zk_event_push_data_t data{};
    data.handle_id = handle->id;
    data.event_type = ZK_CURRENT_TRAJECTORY_STATE_E;
    data.device = MIO_JSON_GetObjectItemInt(root, "device");
    data.trajectory_state = MIO_JSON_GetObjectItemBool(root, "trajectory_state") != 0;
    data.trajectory_connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
    data.program_id = 0;
    return data;
}

zk_event_push_data_t program_event(const zk_handle_t* handle, const cJSON* root)
{
    zk_event_push_data_t data{};
    data.handle_id = handle->id;
    data.event_type = ZK_PROGRAM_RUN_FINISH_E;
    data.device = 0;
    data.trajectory_state = false;
    data.trajectory_connect = 0;
    data.program_id = MIO_JSON_GetObjectItemInt(root, "finish_id");
    return data;
}

}  // namespace

// -----------------------------------------------------------------------------------------
// Filing frames
// -----------------------------------------------------------------------------------------

void add_str_to_fifo(zk_handle_t* handle, const char* str, int str_len)
{
    if (handle == nullptr || handle->fifo_handle == nullptr || str == nullptr || str_len < 0) return;
    zk_socket_fifo_handle* store = handle->fifo_handle;

    int slot_index;
    uint64_t now;
    char slot_name[kFifoNameCapacity];
    {
        std::lock_guard<std::mutex> lock(store->lock);
        now = ++store->current_time;
        slot_index = pick_slot(store);
        if (slot_index < 0) return;  // a full store drops the frame, and its event with it
        std::memcpy(slot_name, store->fifo[slot_index].command, sizeof slot_name);
    }
    if (str_len >= kFifoFrameCapacity) {
        zk_log_error("[thread_socket_receive] frame of %d bytes dropped: over %d\n", str_len, kFifoFrameCapacity - 1);
        return;
    }

    cJSON* root = cJSON_ParseWithLength(str, static_cast<size_t>(str_len));
    if (root == nullptr) return;
    const char* name = zk_frame_name(root);
    if (name != nullptr) {
        if (std::strlen(name) >= sizeof slot_name) {
            zk_log_error("[thread_socket_receive] frame name of %zu bytes dropped: over %d\n", std::strlen(name),
                         kFifoNameCapacity - 1);
            MIO_JSON_Delete(root);
            return;
        }
        std::memset(slot_name, 0, sizeof slot_name);
        std::strcpy(slot_name, name);
    } else {
        slot_index = handle_unnamed_frame(handle, root, str);
        if (slot_index < 0) {
            MIO_JSON_Delete(root);
            return;
        }
        std::lock_guard<std::mutex> lock(store->lock);
        std::memcpy(slot_name, store->fifo[slot_index].command, sizeof slot_name);
    }

    // Events reach the host before the frame is stored, so a blocking move never returns
    // ahead of the callback for its own end.
    if (std::strcmp(slot_name, kTrajectoryEnd) == 0) fire_event(trajectory_event(handle, root));
    if (std::strcmp(slot_name, kProgramFinish) == 0) fire_event(program_event(handle, root));
    MIO_JSON_Delete(root);
    if (std::strcmp(slot_name, kConductProject) == 0) return;

    {
        std::lock_guard<std::mutex> lock(store->lock);
        zk_socket_fifo& slot = store->fifo[slot_index];
        std::memcpy(slot.command, slot_name, sizeof slot.command);
        // A reused slot is cleared first, so a frame never carries an older, longer one's tail.
        std::memset(slot.str_json, 0, sizeof slot.str_json);
        std::memcpy(slot.str_json, str, static_cast<size_t>(str_len));
        slot.time = now;
        slot.recevie_len = str_len;
        slot.is_used = 1;
        zk_log_debug("fifo str_json %s----handle->fifo_handle->fifo->id %d\n", reinterpret_cast<char*>(slot.str_json),
                     static_cast<int>(store->fifo[0].id));
    }
    store->filed.notify_all();
}

// -----------------------------------------------------------------------------------------
// Taking frames
// -----------------------------------------------------------------------------------------

int get_str_from_fifo(zk_socket_fifo_handle* handle, const char* command, char* str, int str_len)
{
    if (handle == nullptr || command == nullptr) return -1;
    std::lock_guard<std::mutex> lock(handle->lock);
    int length = -1;
    return scan_store(handle, command, str, str_len, &length) == ScanResult::kFound ? length : -1;
}

int zk_fifo_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len,
                 std::chrono::steady_clock::time_point deadline)
{
    zk_socket_fifo_handle* store = handle->fifo_handle;
    char* text = reinterpret_cast<char*>(buf);
    std::unique_lock<std::mutex> lock(store->lock);
    for (;;) {
        int length = -1;
        switch (scan_store(store, command, text, buf_len, &length)) {
        case ScanResult::kFound: return length;
        case ScanResult::kDropped: continue;  // the awaited frame may lie in a later slot
        case ScanResult::kNone: break;
        }
        if (store->filed.wait_until(lock, deadline) == std::cv_status::timeout) {
            return scan_store(store, command, text, buf_len, &length) == ScanResult::kFound ? length : -1;
        }
    }
}

// -----------------------------------------------------------------------------------------
// The receive thread
// -----------------------------------------------------------------------------------------

namespace {

// One read takes at most this much from a socket.
constexpr size_t kReadCapacity = 20480;
// Bytes of an unterminated frame kept across reads; beyond this the frame is dropped.
constexpr size_t kPendingCapacity = 4 * kReadCapacity;
// The thread re-reads the table at least this often even when nothing wakes it, so a
// stopped library is noticed promptly in every case.
constexpr int kPollBoundMs = 50;
// A terminator in the first bytes of a read is not looked for: a read that starts with the
// tail of a terminator split off the previous frame leaves it to the JSON parser as blanks.
constexpr size_t kSplitStart = 5;

std::atomic<int> g_wake_write_fd{-1};

struct ConnectionState {
    uint64_t generation = 0;
    bool closed = false;  // the peer closed: not polled again until the slot is reused
    std::string pending;  // bytes after the last terminator, awaiting the rest of a frame
};

bool parses_and_ends_in_brace(const std::string& text)
{
    if (text.empty() || text.back() != '}') return false;
    cJSON* root = cJSON_Parse(text.c_str());
    const bool parsed = root != nullptr;
    MIO_JSON_Delete(root);
    return parsed;
}

// Files every complete frame of the pending bytes. A read is complete when it ends in a line
// end, or when what has come parses and ends in "}" (a terminator is added then); the bytes
// after the last terminator of a complete read are not part of any frame and are dropped,
// while an incomplete read keeps its unterminated tail for the next one.
void file_frames(zk_handle_t* handle, ConnectionState& state, size_t read_length)
{
    std::string& data = state.pending;
    bool complete = !data.empty() && data.back() == '\n';
    if (!complete && parses_and_ends_in_brace(data)) {
        data += "\r\n";
        complete = true;
    }
    size_t start = 0;
    for (size_t i = kSplitStart; i + 1 < data.size(); ++i) {
        if (data[i] != '\r' || data[i + 1] != '\n') continue;
        data[i] = '\0';
        data[i + 1] = '\0';
        const char* frame = data.c_str() + start;
        zk_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", static_cast<int>(read_length),
                     handle->id, frame);
        add_str_to_fifo(handle, frame, static_cast<int>(i - start));
        start = i + 2;
    }
    if (complete)
        data.clear();
    else
        data.erase(0, start);
    if (data.size() > kPendingCapacity) {
        zk_log_error("[thread_socket_receive] unterminated frame of %zu bytes dropped\n", data.size());
        data.clear();
    }
}

// Reads what one connection has and files its frames; the caller holds the table's read lock.
void receive_from(zk_handle_t* handle, ConnectionState& state, char* buffer)
{
    const ssize_t count = ::recv(handle->socket_handle->socket_id, buffer, kReadCapacity, 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        // The library never marks a connection as closed; it just stops listening to it, so
        // commands on it end by their time-outs.
        state.closed = true;
        return;
    }
    if (count < 0) return;
    state.pending.append(buffer, static_cast<size_t>(count));
    file_frames(handle, state, static_cast<size_t>(count));
}

}  // namespace

void zk_receive_thread_wake()
{
    const int fd = g_wake_write_fd.load();
    if (fd < 0) return;
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(fd, &byte, 1);
}

int thread_socket_receive(void* arg)
{
    const int wake_read_fd = static_cast<int>(reinterpret_cast<intptr_t>(arg));
    zk_mark_library_thread();
    ConnectionState connections[kMaxRobotHandles];
    std::unique_ptr<char[]> buffer(new char[kReadCapacity]);

    while (!should_exit) {
        pollfd fds[kMaxRobotHandles + 1];
        int slot_of[kMaxRobotHandles + 1];
        uint64_t generation_of[kMaxRobotHandles + 1];
        nfds_t count = 0;
        fds[count++] = {wake_read_fd, POLLIN, 0};
        zk_rdlock_lock();
        for (int i = 0; i < kMaxRobotHandles; ++i) {
            const zk_handle_t* handle = gHandleList[i];
            if (connections[i].generation != g_slot_generation[i]) connections[i] = {g_slot_generation[i], false, {}};
            if (handle == nullptr || handle->socket_handle == nullptr || handle->socket_handle->socket_id <= 0 ||
                connections[i].closed)
                continue;
            slot_of[count] = i;
            generation_of[count] = g_slot_generation[i];
            fds[count++] = {handle->socket_handle->socket_id, POLLIN, 0};
        }
        zk_rdlock_unlock();

        if (::poll(fds, count, kPollBoundMs) <= 0) continue;
        if (fds[0].revents & POLLIN) {
            char drain[64];
            while (::read(wake_read_fd, drain, sizeof drain) > 0) {
            }
        }
        for (nfds_t k = 1; k < count && !should_exit; ++k) {
            if (!(fds[k].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            const int slot = slot_of[k];
            zk_rdlock_lock();
            zk_handle_t* handle = gHandleList[slot];
            // The slot may have been emptied or reused since the table was read.
            if (handle != nullptr && g_slot_generation[slot] == generation_of[k])
                receive_from(handle, connections[slot], buffer.get());
            zk_rdlock_unlock();
        }
    }
    return 0;
}

int zk_receive_wake_pipe(int fds[2])
{
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
    g_wake_write_fd = fds[1];
    return 0;
}

void zk_receive_wake_pipe_close(int fds[2])
{
    g_wake_write_fd = -1;
    ::close(fds[0]);
    ::close(fds[1]);
}
