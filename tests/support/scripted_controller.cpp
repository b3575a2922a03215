#include "support/scripted_controller.h"

#include <arpa/inet.h>
#include <cJSON.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace zk_test {

namespace {

using Clock = std::chrono::steady_clock;
// Pieces of a split reply go out this far apart, so the client sees them in separate reads.
constexpr Millis kSplitGap(15);

}  // namespace

struct ScriptedController::Connection {
    int fd = -1;
    std::string pending;  // bytes of a frame not yet terminated
};

struct ScriptedController::Write {
    Clock::time_point due;
    int fd;
    std::string bytes;
    bool close = false;
};

// -----------------------------------------------------------------------------------------
// Reply
// -----------------------------------------------------------------------------------------

Reply& Reply::reply(const std::string& frame)
{
    bytes_ = frame + "\r\n";
    return *this;
}

Reply& Reply::then(const std::string& frame)
{
    bytes_ += frame + "\r\n";
    return *this;
}

Reply& Reply::reply_raw(const std::string& bytes)
{
    bytes_ = bytes;
    return *this;
}

Reply& Reply::compute(std::function<std::string(const std::string&)> make_reply)
{
    make_reply_ = std::move(make_reply);
    return *this;
}

Reply& Reply::split(std::vector<size_t> cut_points)
{
    cuts_ = std::move(cut_points);
    return *this;
}

Reply& Reply::after(Millis delay)
{
    delay_ = delay;
    return *this;
}

Reply& Reply::silence()
{
    bytes_.clear();
    make_reply_ = nullptr;
    return *this;
}

Reply& Reply::close_connection()
{
    close_ = true;
    return *this;
}

// -----------------------------------------------------------------------------------------
// Controller
// -----------------------------------------------------------------------------------------

std::string frame_name(const std::string& frame)
{
    cJSON* root = cJSON_Parse(frame.c_str());
    if (root == nullptr) return "";
    std::string name;
    const cJSON* command = cJSON_GetObjectItem(root, "command");
    const cJSON* state = cJSON_GetObjectItem(root, "state");
    if (cJSON_IsString(command))
        name = command->valuestring;
    else if (cJSON_IsString(state))
        name = state->valuestring;
    cJSON_Delete(root);
    return name;
}

ScriptedController::ScriptedController()
{
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listen_fd_, 8) != 0)
        throw std::runtime_error("scripted controller: cannot listen");
    socklen_t length = sizeof address;
    ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    if (::pipe2(wake_pipe_, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("scripted controller: pipe");
    thread_ = std::thread([this] { run(); });
}

ScriptedController::~ScriptedController()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake();
    thread_.join();
    for (auto& connection : connections_) ::close(connection->fd);
    ::close(listen_fd_);
    ::close(wake_pipe_[0]);
    ::close(wake_pipe_[1]);
}

Reply& ScriptedController::on(const std::string& command)
{
    std::lock_guard<std::mutex> lock(mutex_);
    one_shot_.emplace_back(command, std::make_unique<Reply>());
    return *one_shot_.back().second;
}

Reply& ScriptedController::always(const std::string& command)
{
    std::lock_guard<std::mutex> lock(mutex_);
    standing_.emplace_back(command, std::make_unique<Reply>());
    return *standing_.back().second;
}

void ScriptedController::answer_sync(const std::string& product_version)
{
    always("get_arm_software_info")
        .reply(R"({"command":"arm_software_info","Product_version":")" + product_version +
               R"(","algorithm_info":{"version":"1.4.2"},"ctrl_info":{"version":"2.0.1","build_time":"2026-10-01 12:00"},)"
               R"("dynamic_info":{"model_version":"3"}})");
    // Push configured but off, so that connecting registers no local port.
    always("get_realtime_push")
        .reply(R"({"command":"get_realtime_push","cycle":5,"enable":false,"port":8089,"force_coordinate":0,)"
               R"("ip":"192.168.1.104","custom":{"joint_speed":true,"lift_state":false,"expand_state":false,)"
               R"("arm_current_status":true,"aloha_state":false,"hand":false}})");
}

void ScriptedController::push(const std::string& frame) { push_raw(frame + "\r\n"); }

void ScriptedController::push_raw(const std::string& bytes)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& connection : connections_) enqueue({Clock::now(), connection->fd, bytes});
    }
    wake();
}

std::vector<std::string> ScriptedController::frames() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

std::vector<std::string> ScriptedController::frames_named(const std::string& command) const
{
    std::vector<std::string> named;
    for (const auto& frame : frames())
        if (frame_name(frame) == command) named.push_back(frame);
    return named;
}

std::string ScriptedController::last_frame() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_.empty() ? std::string() : frames_.back();
}

bool ScriptedController::wait_for_frames(size_t count, Millis limit) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return frames_.size() >= count; });
}

void ScriptedController::clear_frames()
{
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.clear();
}

size_t ScriptedController::connection_count() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return connections_.size();
}

bool ScriptedController::wait_for_connections(size_t count, Millis limit) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return connections_.size() >= count; });
}

void ScriptedController::close_clients()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& connection : connections_) enqueue({Clock::now(), connection->fd, "", true});
    }
    wake();
}

void ScriptedController::wake()
{
    const char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(wake_pipe_[1], &byte, 1);
}

void ScriptedController::run()
{
    for (;;) {
        std::vector<pollfd> fds;
        int timeout_ms = -1;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) return;
            fds.push_back({wake_pipe_[0], POLLIN, 0});
            fds.push_back({listen_fd_, POLLIN, 0});
            for (auto& connection : connections_) fds.push_back({connection->fd, POLLIN, 0});
            for (const auto& write : pending_) {
                auto wait = std::chrono::ceil<Millis>(write.due - Clock::now()).count();
                wait = std::max<decltype(wait)>(wait, 0);
                if (timeout_ms < 0 || wait < timeout_ms) timeout_ms = static_cast<int>(wait);
            }
        }
        ::poll(fds.data(), fds.size(), timeout_ms);
        if (fds[0].revents & POLLIN) {
            char drain[64];
            while (::read(wake_pipe_[0], drain, sizeof drain) > 0) {
            }
        }
        if (fds[1].revents & POLLIN) accept_client();
        for (size_t i = 2; i < fds.size(); ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            Connection* connection = nullptr;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                for (auto& c : connections_)
                    if (c->fd == fds[i].fd) connection = c.get();
            }
            if (connection) read_client(*connection);
        }
        flush_due_writes();
    }
}

void ScriptedController::accept_client()
{
    int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    std::lock_guard<std::mutex> lock(mutex_);
    connections_.push_back(std::move(connection));
    changed_.notify_all();
}

void ScriptedController::read_client(Connection& connection)
{
    char chunk[65536];
    ssize_t n = ::recv(connection.fd, chunk, sizeof chunk, 0);
    if (n <= 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        ::close(connection.fd);
        connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                          [&](const auto& c) { return c.get() == &connection; }),
                           connections_.end());
        changed_.notify_all();
        return;
    }
    connection.pending.append(chunk, static_cast<size_t>(n));
    for (size_t end; (end = connection.pending.find("\r\n")) != std::string::npos;) {
        std::string frame = connection.pending.substr(0, end);
        connection.pending.erase(0, end + 2);
        handle_frame(connection, frame);
    }
}

void ScriptedController::handle_frame(Connection& connection, const std::string& frame)
{
    const std::string name = frame_name(frame);
    std::unique_ptr<Reply> one_shot;
    const Reply* how = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        frames_.push_back(frame);
        changed_.notify_all();
        auto match = std::find_if(one_shot_.begin(), one_shot_.end(), [&](const auto& r) { return r.first == name; });
        if (match != one_shot_.end()) {
            one_shot = std::move(match->second);
            one_shot_.erase(match);
            how = one_shot.get();
        } else {
            for (const auto& rule : standing_)
                if (rule.first == name) how = rule.second.get();
        }
    }
    if (how == nullptr) return;
    std::string bytes = how->make_reply_ ? how->make_reply_(frame) : how->bytes_;
    schedule(connection.fd, bytes, *how);
}

void ScriptedController::schedule(int fd, const std::string& bytes, const Reply& how)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto due = Clock::now() + how.delay_;
    if (how.close_) {
        enqueue({due, fd, bytes, true});
        return;
    }
    if (bytes.empty()) return;
    size_t start = 0;
    for (size_t cut : how.cuts_) {
        if (cut <= start || cut >= bytes.size()) continue;
        enqueue({due, fd, bytes.substr(start, cut - start)});
        start = cut;
        due += kSplitGap;
    }
    enqueue({due, fd, bytes.substr(start)});
}

void ScriptedController::enqueue(Write write)
{
    // Kept ordered by due time; writes due together keep the order they were made in.
    auto position = std::upper_bound(pending_.begin(), pending_.end(), write.due,
                                     [](Clock::time_point due, const Write& w) { return due < w.due; });
    pending_.insert(position, std::move(write));
}

void ScriptedController::flush_due_writes()
{
    std::vector<Write> due;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto now = Clock::now();
        // pending_ is ordered by due time: the due writes are a prefix.
        auto first_not_due = std::find_if(pending_.begin(), pending_.end(), [&](const Write& w) { return w.due > now; });
        due.assign(std::make_move_iterator(pending_.begin()), std::make_move_iterator(first_not_due));
        pending_.erase(pending_.begin(), first_not_due);
    }
    for (const Write& write : due) {
        if (!write.bytes.empty()) {
            [[maybe_unused]] ssize_t n = ::send(write.fd, write.bytes.data(), write.bytes.size(), MSG_NOSIGNAL);
        }
        if (write.close) ::shutdown(write.fd, SHUT_RDWR);
    }
}

}  // namespace zk_test
