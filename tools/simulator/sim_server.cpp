#include "simulator/sim_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <system_error>
#include <vector>

#include "simulator/sim_commands.h"
#include "simulator/sim_faults.h"
#include "simulator/sim_realtime.h"
#include "simulator/sim_wire.h"

namespace zk_sim {

namespace {

using Clock = std::chrono::steady_clock;

enum class Level { debug, info, error };

// Log lines quote at most this much of a frame.
constexpr size_t kQuoteLimit = 160;
// A control loop that fell this many periods behind skips them instead of catching up.
constexpr int kMaxCatchUpPeriods = 10;
constexpr int kListenBacklog = 128;
constexpr size_t kReadChunk = 64 * 1024;

std::string quote(std::string_view text)
{
    if (text.size() <= kQuoteLimit) return std::string(text);
    return std::string(text.substr(0, kQuoteLimit)) + "...";
}

bool whole_json(const std::string& text)
{
    cJSON* parsed = cJSON_ParseWithOpts(text.c_str(), nullptr, true);
    cJSON_Delete(parsed);
    return parsed != nullptr;
}

bool blank(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
}

std::string print(const cJSON* frame)
{
    char* text = cJSON_PrintUnformatted(frame);
    if (text == nullptr) return {};
    std::string line(text);
    cJSON_free(text);
    return line;
}

timespec to_timespec(Clock::duration wait)
{
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(std::max(wait, Clock::duration::zero()));
    return {static_cast<time_t>(ns.count() / 1000000000), static_cast<long>(ns.count() % 1000000000)};
}

}  // namespace

// -----------------------------------------------------------------------------------------
// The loop: everything the simulator's thread owns
// -----------------------------------------------------------------------------------------

class Simulator::Loop {
    const SimOptions& options_;  // first: the members below are built from it

public:
    Loop(const SimOptions& options, const SimModel& model, const Joints& initial, std::atomic<uint64_t>& sent)
        : options_(options), controller(model, initial, options.speed_scale), faults(options.faults),
          period_(std::chrono::milliseconds(options.period_ms)), datagrams_sent_(sent)
    {
    }
    ~Loop() { close_all(); }

    bool open(std::string* error);
    // One round: wait for sockets or the next deadline (with the lock released), then act.
    void iterate(std::unique_lock<std::mutex>& lock);
    void wake() const;
    void log(Level level, const std::string& line) const;

    SimController controller;
    FaultPlan faults;
    bool stopping = false;
    int port = 0;
    size_t connection_count() const { return connections_.size(); }

private:
    struct Later {
        Clock::time_point due;
        std::string bytes;
        bool close;
    };
    struct Connection {
        int id = 0;
        int fd = -1;
        std::string input;
        size_t scanned = 0;       // input before this holds no frame end
        bool discarding = false;  // inside an over-long line, dropped up to its end
        std::string output;       // due now, not yet taken by the socket
        std::deque<Later> later;  // due later, in order
        long long frames = 0;
        bool closing = false;      // takes no more input; closes once its output is out
        bool close_when_sent = false;
        bool dead = false;
    };

    void close_all();
    void accept_clients();
    void read_client(Connection& connection);
    void take_lines(Connection& connection);
    void handle_line(Connection& connection, const std::string& line);
    void answer(Connection& connection, const std::string& command, cJSON* reply);
    void refuse(Connection& connection, const std::string& request, const std::string& reason);
    void deliver(const std::vector<TrajectoryEnd>& ended);
    void schedule(Connection& connection, std::string bytes, Clock::time_point due, bool close = false);
    void run_control(Clock::time_point now);
    void run_push(Clock::time_point now);
    void flush(Connection& connection, Clock::time_point now);
    Clock::time_point next_deadline() const;

    Clock::duration period_;
    std::atomic<uint64_t>& datagrams_sent_;
    int listen_fd_ = -1;
    int wake_pipe_[2] = {-1, -1};
    int udp_fd_ = -1;
    std::vector<std::unique_ptr<Connection>> connections_;
    int next_id_ = 1;
    Clock::time_point now_ = Clock::now();
    Clock::time_point next_tick_ = Clock::now();
    Clock::time_point next_push_ = Clock::now();
    bool pushing_ = false;
    int push_cycle_ms_ = 0;
    std::string push_ip_;
    int push_port_ = 0;
    sockaddr_in push_target_{};
};

void Simulator::Loop::log(Level level, const std::string& line) const
{
    if (level == Level::debug && !options_.verbose) return;
    if (level != Level::error && options_.quiet) return;
    if (options_.log) {
        options_.log(line);
        return;
    }
    std::fprintf(stderr, "zk_simulator: %s\n", line.c_str());
}

bool Simulator::Loop::open(std::string* error)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(options_.port));
    if (inet_pton(AF_INET, options_.address.c_str(), &address.sin_addr) != 1) {
        *error = "not an IPv4 address: " + options_.address;
        return false;
    }
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int one = 1;
    if (listen_fd_ < 0 || ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listen_fd_, kListenBacklog) != 0) {
        *error = "cannot listen on " + options_.address + ":" + std::to_string(options_.port) + ": " +
                 std::strerror(errno);
        return false;
    }
    socklen_t length = sizeof address;
    ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    udp_fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (::pipe2(wake_pipe_, O_NONBLOCK | O_CLOEXEC) != 0 || udp_fd_ < 0) {
        *error = std::string("cannot create the simulator's sockets: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void Simulator::Loop::close_all()
{
    for (auto& connection : connections_) ::close(connection->fd);
    connections_.clear();
    for (int* fd : {&listen_fd_, &udp_fd_, &wake_pipe_[0], &wake_pipe_[1]}) {
        if (*fd >= 0) ::close(*fd);
        *fd = -1;
    }
}

void Simulator::Loop::wake() const
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(wake_pipe_[1], &byte, 1);
}

Clock::time_point Simulator::Loop::next_deadline() const
{
    Clock::time_point deadline = next_tick_;
    if (controller.push.enable) deadline = std::min(deadline, next_push_);
    for (const auto& connection : connections_)
        if (!connection->later.empty()) deadline = std::min(deadline, connection->later.front().due);
    return deadline;
}

void Simulator::Loop::iterate(std::unique_lock<std::mutex>& lock)
{
    std::vector<pollfd> fds;
    fds.push_back({wake_pipe_[0], POLLIN, 0});
    fds.push_back({listen_fd_, POLLIN, 0});
    for (const auto& connection : connections_) {
        const short events = static_cast<short>((connection->closing ? 0 : POLLIN) |
                                                (connection->output.empty() ? 0 : POLLOUT));
        fds.push_back({connection->fd, events, 0});
    }
    const timespec wait = to_timespec(next_deadline() - Clock::now());
    lock.unlock();
    ::ppoll(fds.data(), fds.size(), &wait, nullptr);
    lock.lock();
    if (stopping) return;
    now_ = Clock::now();

    if (fds[0].revents & POLLIN) {
        char drain[64];
        while (::read(wake_pipe_[0], drain, sizeof drain) > 0) {
        }
    }
    if (fds[1].revents & POLLIN) accept_clients();
    // Connections accepted just now have no entry in fds; they are polled from the next round.
    for (size_t i = 2; i < fds.size(); ++i) {
        Connection& connection = *connections_[i - 2];
        if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) read_client(connection);
    }
    run_control(now_);
    run_push(now_);
    for (auto& connection : connections_) flush(*connection, now_);
    for (auto& connection : connections_)
        if (connection->dead) ::close(connection->fd);
    std::erase_if(connections_, [](const auto& connection) { return connection->dead; });
}

// -----------------------------------------------------------------------------------------
// Connections and lines
// -----------------------------------------------------------------------------------------

void Simulator::Loop::accept_clients()
{
    for (;;) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        const int fd = ::accept4(listen_fd_, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        if (connections_.size() >= kMaxConnections) {
            log(Level::error, "more than " + std::to_string(kMaxConnections) + " clients; a new one turned away");
            ::close(fd);
            continue;
        }
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        auto connection = std::make_unique<Connection>();
        connection->id = next_id_++;
        connection->fd = fd;
        char peer_text[INET_ADDRSTRLEN] = "?";
        inet_ntop(AF_INET, &peer.sin_addr, peer_text, sizeof peer_text);
        log(Level::info, "connection " + std::to_string(connection->id) + " from " + peer_text + ":" +
                             std::to_string(ntohs(peer.sin_port)));
        connections_.push_back(std::move(connection));
    }
}

void Simulator::Loop::read_client(Connection& connection)
{
    char chunk[kReadChunk];
    for (;;) {
        const ssize_t n = ::recv(connection.fd, chunk, sizeof chunk, 0);
        if (n > 0) {
            connection.input.append(chunk, static_cast<size_t>(n));
            take_lines(connection);
            if (connection.closing) return;
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (n < 0 && errno == EINTR) continue;
        log(Level::info, "connection " + std::to_string(connection.id) + " closed by the client");
        connection.dead = true;
        return;
    }
}

// Cuts frames off the input. A frame ends at CR LF; a bare LF ends one only when the text
// before it is a whole JSON object, since a formatted frame has bare LFs inside.
void Simulator::Loop::take_lines(Connection& connection)
{
    std::string& input = connection.input;
    while (!connection.closing) {
        const size_t end = input.find('\n', connection.scanned);
        if (end == std::string::npos) {
            if (input.size() > kMaxLineBytes) {
                if (!connection.discarding) {
                    log(Level::info, "connection " + std::to_string(connection.id) + ": line longer than " +
                                         std::to_string(kMaxLineBytes) + " bytes dropped");
                    refuse(connection, "", "line too long");
                }
                connection.discarding = true;
                input.clear();
                connection.scanned = 0;
            } else {
                connection.scanned = input.size();
            }
            return;
        }
        if (connection.discarding) {
            input.erase(0, end + 1);
            connection.scanned = 0;
            connection.discarding = false;
            continue;
        }
        const bool crlf = end > 0 && input[end - 1] == '\r';
        std::string line = input.substr(0, crlf ? end - 1 : end);
        if (!crlf && !blank(line) && !whole_json(line) && line.size() <= kMaxLineBytes) {
            connection.scanned = end + 1;
            continue;
        }
        input.erase(0, end + 1);
        connection.scanned = 0;
        if (blank(line)) continue;
        if (line.size() > kMaxLineBytes) {
            log(Level::info, "connection " + std::to_string(connection.id) + ": line longer than " +
                                 std::to_string(kMaxLineBytes) + " bytes dropped");
            refuse(connection, "", "line too long");
            continue;
        }
        handle_line(connection, line);
    }
}

void Simulator::Loop::handle_line(Connection& connection, const std::string& line)
{
    const std::string who = "connection " + std::to_string(connection.id);
    ++connection.frames;
    log(Level::debug, who + " received: " + quote(line));
    JsonPtr frame(cJSON_ParseWithOpts(line.c_str(), nullptr, true));
    const cJSON* name_item = cJSON_IsObject(frame.get()) ? cJSON_GetObjectItemCaseSensitive(frame.get(), "command")
                                                         : nullptr;
    if (!cJSON_IsObject(frame.get())) {
        log(Level::info, who + ": not a JSON object, refused: " + quote(line));
        refuse(connection, "", "not a JSON object");
    } else if (!cJSON_IsString(name_item)) {
        log(Level::info, who + ": no \"command\" text, refused: " + quote(line));
        refuse(connection, "", "no \"command\" text");
    } else if (const SimCommand* command = sim_find_command(name_item->valuestring); command == nullptr) {
        log(Level::info, who + ": unknown command \"" + quote(name_item->valuestring) + "\", refused");
        refuse(connection, name_item->valuestring, "unknown command");
    } else {
        std::vector<TrajectoryEnd> ended;
        JsonPtr reply(cJSON_CreateObject());
        cJSON_AddStringToObject(reply.get(), "command", command->reply_name ? command->reply_name : command->name);
        SimRequest request{controller, frame.get(), connection.id, &ended};
        command->handler(request, reply.get());
        if (command->reply_name != nullptr) answer(connection, command->name, reply.get());
        deliver(ended);
    }
    const int close_after = faults.config().close_after;
    if (close_after > 0 && connection.frames >= close_after) {
        log(Level::info, who + ": closing after " + std::to_string(connection.frames) + " frames");
        connection.closing = true;
        schedule(connection, "", now_, true);
    }
}

void Simulator::Loop::answer(Connection& connection, const std::string& command, cJSON* reply)
{
    const bool touched = faults.touches(command);
    const FaultAction action = touched ? faults.next() : FaultAction::answer;
    const auto due = now_ + std::chrono::milliseconds(touched ? faults.config().delay_ms : 0);
    const std::string who = "connection " + std::to_string(connection.id);
    switch (action) {
    case FaultAction::drop: log(Level::info, who + ": fault: reply to \"" + command + "\" dropped"); return;
    case FaultAction::malform:
        log(Level::info, who + ": fault: reply to \"" + command + "\" malformed");
        sim_malform_reply(reply);
        break;
    case FaultAction::garbage:
        log(Level::info, who + ": fault: reply to \"" + command + "\" replaced by text that isn't JSON");
        schedule(connection, std::string(kGarbageLine) + "\r\n", due);
        return;
    case FaultAction::answer: break;
    }
    schedule(connection, print(reply) + "\r\n", due);
}

void Simulator::Loop::refuse(Connection& connection, const std::string& request, const std::string& reason)
{
    schedule(connection, print(sim_refusal(request, reason).get()) + "\r\n", now_);
}

void Simulator::Loop::deliver(const std::vector<TrajectoryEnd>& ended)
{
    for (const TrajectoryEnd& end : ended) {
        auto owner = std::find_if(connections_.begin(), connections_.end(),
                                  [&](const auto& c) { return c->id == end.owner && !c->dead; });
        if (owner == connections_.end()) {
            log(Level::debug, "end of a trajectory of closed connection " + std::to_string(end.owner) + " not sent");
            continue;
        }
        schedule(**owner, print(sim_trajectory_end_frame(end).get()) + "\r\n", now_);
    }
}

// Output keeps its order: nothing goes out before what was scheduled earlier.
void Simulator::Loop::schedule(Connection& connection, std::string bytes, Clock::time_point due, bool close)
{
    if (!bytes.empty())
        log(Level::debug, "connection " + std::to_string(connection.id) + " sends: " +
                              quote(std::string_view(bytes).substr(0, bytes.find_last_not_of("\r\n") + 1)));
    if (!connection.later.empty()) due = std::max(due, connection.later.back().due);
    if (due <= now_ && connection.later.empty()) {
        connection.output += bytes;
        connection.close_when_sent = connection.close_when_sent || close;
        return;
    }
    connection.later.push_back({due, std::move(bytes), close});
}

void Simulator::Loop::flush(Connection& connection, Clock::time_point now)
{
    while (!connection.later.empty() && connection.later.front().due <= now) {
        connection.output += connection.later.front().bytes;
        connection.close_when_sent = connection.close_when_sent || connection.later.front().close;
        connection.later.pop_front();
    }
    while (!connection.output.empty() && !connection.dead) {
        const ssize_t n = ::send(connection.fd, connection.output.data(), connection.output.size(),
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            connection.output.erase(0, static_cast<size_t>(n));
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        } else if (!(n < 0 && errno == EINTR)) {
            log(Level::info, "connection " + std::to_string(connection.id) + ": send failed, closed");
            connection.dead = true;
        }
    }
    if (connection.output.size() > kMaxPendingOutput || connection.later.size() > kMaxHeldReplies) {
        log(Level::error, "connection " + std::to_string(connection.id) + " reads nothing; closed");
        connection.dead = true;
    }
    if (connection.output.empty() && connection.close_when_sent) connection.dead = true;
}

// -----------------------------------------------------------------------------------------
// The arm's control period and the realtime push
// -----------------------------------------------------------------------------------------

void Simulator::Loop::run_control(Clock::time_point now)
{
    if (now - next_tick_ > kMaxCatchUpPeriods * period_) next_tick_ = now;
    const double seconds = std::chrono::duration<double>(period_).count();
    std::vector<TrajectoryEnd> ended;
    while (next_tick_ <= now) {
        controller.arm.tick(seconds, &ended);
        next_tick_ += period_;
    }
    deliver(ended);
}

void Simulator::Loop::run_push(Clock::time_point now)
{
    const PushConfig& push = controller.push;
    if (!push.enable) {
        pushing_ = false;
        return;
    }
    if (!pushing_ || push.cycle_ms != push_cycle_ms_) next_push_ = now;
    pushing_ = true;
    push_cycle_ms_ = push.cycle_ms;
    if (push.ip != push_ip_ || push.port != push_port_) {
        push_ip_ = push.ip;
        push_port_ = push.port;
        push_target_ = {};
        push_target_.sin_family = AF_INET;
        push_target_.sin_port = htons(static_cast<uint16_t>(push.port));
        inet_pton(AF_INET, push.ip.c_str(), &push_target_.sin_addr);
        log(Level::info, "realtime state to " + push.ip + ":" + std::to_string(push.port) + " every " +
                             std::to_string(push.cycle_ms) + " ms");
    }
    if (now < next_push_) return;
    const std::string datagram = sim_state_datagram(controller);
    const ssize_t sent = ::sendto(udp_fd_, datagram.data(), datagram.size(), MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr*>(&push_target_), sizeof push_target_);
    if (sent == static_cast<ssize_t>(datagram.size())) datagrams_sent_.fetch_add(1);
    const auto cycle = std::chrono::milliseconds(push.cycle_ms);
    next_push_ += cycle;
    // A late loop sends one datagram, not a burst of the missed ones.
    if (next_push_ <= now) next_push_ = now + cycle;
}

// -----------------------------------------------------------------------------------------
// Simulator
// -----------------------------------------------------------------------------------------

Simulator::Simulator(SimOptions options) : options_(std::move(options)) {}

Simulator::~Simulator() { stop(); }

bool Simulator::start(std::string* error)
{
    if (thread_.joinable()) {
        *error = "already running";
        return false;
    }
    SimModel model;
    if (!sim_model_from_product(options_.product, &model, error)) return false;
    Joints initial{};
    if (!options_.joints.empty()) {
        if (static_cast<int>(options_.joints.size()) != model.dof) {
            *error = std::to_string(options_.joints.size()) + " initial joints given; the " + model.product + " has " +
                     std::to_string(model.dof);
            return false;
        }
        for (int i = 0; i < model.dof; ++i) {
            initial[i] = options_.joints[i];
            if (initial[i] < model.min_pos[i] || initial[i] > model.max_pos[i]) {
                *error = "initial joint " + std::to_string(i + 1) + " is outside its limits";
                return false;
            }
        }
    }
    auto loop = std::make_unique<Loop>(options_, model, initial, datagrams_sent_);
    if (!loop->open(error)) return false;
    port_ = loop->port;
    loop->log(Level::info, "listening on " + options_.address + ":" + std::to_string(port_) + " as an arm " +
                               model.product);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        loop_ = std::move(loop);
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error& e) {
        *error = std::string("cannot start the simulator's thread: ") + e.what();
        std::lock_guard<std::mutex> lock(mutex_);
        loop_.reset();
        return false;
    }
    return true;
}

void Simulator::stop()
{
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        loop_->stopping = true;
        loop_->wake();
    }
    thread_.join();
    std::lock_guard<std::mutex> lock(mutex_);
    loop_.reset();
}

void Simulator::run()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!loop_->stopping) {
        // Nothing a client sends may end the simulator: a fault is logged and the loop goes on.
        try {
            loop_->iterate(lock);
        } catch (const std::exception& e) {
            loop_->log(Level::error, std::string("internal error: ") + e.what());
        } catch (...) {
            loop_->log(Level::error, "internal error");
        }
        changed_.notify_all();
    }
}

Joints Simulator::joints() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_ ? loop_->controller.arm.joints() : Joints{};
}

MotionKind Simulator::current_kind() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_ ? loop_->controller.arm.current_kind() : MotionKind::none;
}

ArmStatus Simulator::status() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_ ? loop_->controller.arm.status() : ArmStatus::idle;
}

PushConfig Simulator::push_config() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_ ? loop_->controller.push : PushConfig{};
}

size_t Simulator::connection_count() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_ ? loop_->connection_count() : 0;
}

bool Simulator::wait_for_connections(size_t count, std::chrono::milliseconds limit) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return loop_ && loop_->connection_count() == count; });
}

void Simulator::set_faults(const FaultConfig& faults)
{
    std::lock_guard<std::mutex> lock(mutex_);
    options_.faults = faults;
    if (loop_) loop_->faults = FaultPlan(faults);
}

}  // namespace zk_sim
