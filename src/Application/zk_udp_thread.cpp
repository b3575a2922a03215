#include "Application/zk_udp_thread.h"

#include <arpa/inet.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <system_error>

#include "Application/zk_handle.h"
#include "Application/zk_threads.h"
#include "Middleware/log.h"
#include "Middleware/udp.h"

std::atomic<zk_realtime_arm_state_callback_ptr> zk_arm_state_callback{nullptr};

namespace {

// A longer datagram is cut to this; the controller keeps its state within it.
constexpr int kDatagramCapacity = 2048;
// Longest single wait. Registrations and stop requests wake the poll at once, so this bound
// only guards against a wake-up that never comes.
constexpr int kPollBoundMs = 50;
// How long zk_destory waits for the listener; only a host callback blocking that long makes
// it give up waiting.
constexpr auto kStopBound = std::chrono::seconds(2);

struct ListenerControl {
    uint64_t generation = 0;
    std::atomic<bool> stop_requested{false};
    std::mutex mutex;
    std::condition_variable stopped_changed;
    bool stopped = false;
};

// Touched only by zk_init and zk_destory, which a host calls in turn, not concurrently.
std::shared_ptr<ListenerControl> g_control;
std::thread g_listener;
// Counts listeners started. One left behind in a slow callback must not release the ports of
// a listener started after it.
std::atomic<uint64_t> g_listener_generation{0};

bool keep_running(const ListenerControl& control) { return !should_exit && !control.stop_requested; }

void deliver(const zk_udp_handle* table, int fd, char (&datagram)[kDatagramCapacity + 1],
             zk_realtime_arm_joint_state_t& state)
{
    sockaddr_in from{};
    const int length = zk_udp_receive(table, fd, datagram, kDatagramCapacity, &from);
    if (length < 1) return;
    datagram[length] = '\0';
    const int result = parse_zk_realtime_arm_joint_state(datagram, &state);
    state.errCode = result;
    if (inet_ntop(AF_INET, &from.sin_addr, state.arm_ip, sizeof state.arm_ip) == nullptr) state.arm_ip[0] = '\0';

    const zk_realtime_arm_state_callback_ptr callback = zk_arm_state_callback.load();
    if (callback == nullptr) return;
    zk_log_debug("zk_arm_state_callback zk_arm_state_callback zk_arm_state_callback\n");
    try {
        callback(state);
    } catch (...) {
        // A C++ host's exception must not end the listener, nor the process.
        zk_log_error("[thread_udp_receive] realtime callback threw\n");
    }
}

// Each handle's port loses one registration per entry still in use; whatever remains is
// closed after that, since no one listens on it once this thread has gone.
void release_ports(zk_udp_handle* table)
{
    if (table == nullptr) return;
    zk_rdlock_lock();
    for (int index = 0; index < kUdpMaxPorts; ++index) {
        if (zk_udp_entry(table, index).user_num == 0) continue;
        for (zk_handle_t* slot : gHandleList)
            if (slot != nullptr) table->udp_delete_port(table, std::atomic_ref<int>(slot->udp_port).load());
    }
    zk_rdlock_unlock();
    zk_udp_close_all(table);
}

}  // namespace

unsigned thread_udp_receive(void* arg)
{
    const auto& control = *static_cast<const ListenerControl*>(arg);
    zk_mark_library_thread();
    zk_realtime_arm_joint_state_t state{};
    char datagram[kDatagramCapacity + 1];
    while (keep_running(control)) {
        const zk_udp_handle* table = gUdpHandle;
        int sockets[kUdpMaxPorts];
        const int count = zk_udp_listening(table, sockets);
        pollfd fds[kUdpMaxPorts + 1];
        fds[0] = {zk_udp_wake_fd(), POLLIN, 0};
        for (int i = 0; i < count; ++i) fds[i + 1] = {sockets[i], POLLIN, 0};
        if (::poll(fds, static_cast<nfds_t>(count + 1), kPollBoundMs) <= 0) continue;
        if (fds[0].revents != 0) zk_udp_wake_drain();
        // An error condition is read too: the failed read clears it, so poll cannot spin on it.
        for (int i = 0; i < count && keep_running(control); ++i)
            if (fds[i + 1].revents != 0) deliver(table, sockets[i], datagram, state);
    }
    if (control.generation == g_listener_generation) release_ports(gUdpHandle);
    return 0;
}

int zk_udp_thread_start()
{
    zk_udp_thread_stop();
    if (gUdpHandle == nullptr) gUdpHandle = zk_udp_init();
    if (gUdpHandle == nullptr) {
        zk_log_error("Error creating udp recv thread: %d\n", ENOMEM);
        return -1;
    }
    try {
        auto control = std::make_shared<ListenerControl>();
        control->generation = ++g_listener_generation;
        g_listener = std::thread([control] {
            thread_udp_receive(control.get());
            std::lock_guard<std::mutex> lock(control->mutex);
            control->stopped = true;
            control->stopped_changed.notify_all();
        });
        g_control = std::move(control);
    } catch (const std::system_error& error) {
        zk_log_error("Error creating udp recv thread: %d\n", error.code().value());
        return -1;
    } catch (const std::exception&) {
        zk_log_error("Error creating udp recv thread: %d\n", ENOMEM);
        return -1;
    }
    return 0;
}

void zk_udp_thread_stop()
{
    if (!g_listener.joinable()) return;
    g_control->stop_requested = true;
    zk_udp_wake();
    if (g_listener.get_id() == std::this_thread::get_id()) {
        // Called from the realtime callback: the listener ends as soon as the callback returns.
        g_listener.detach();
    } else {
        std::unique_lock<std::mutex> lock(g_control->mutex);
        const bool stopped = g_control->stopped_changed.wait_for(lock, kStopBound, [] { return g_control->stopped; });
        lock.unlock();
        if (stopped) {
            g_listener.join();
        } else {
            zk_log_warn("[zk_destory] udp recv thread busy in the realtime callback, left to end by itself\n");
            g_listener.detach();
        }
    }
    g_control.reset();
}
