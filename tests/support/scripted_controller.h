// A scripted stand-in for an arm controller: a loopback TCP server that records every frame
// it receives and answers by script. Tests set the script up front, fluently:
//
//   ScriptedController ctl;
//   ctl.on("get_arm_software_info").reply(R"({"command":"arm_software_info",...})");
//   ctl.on("set_x").reply(R"({"command":"set_x","set_state":true})").split({5, 12}).after(30ms);
//   ctl.on("get_y").silence();
//   ctl.push(R"({"state":"current_trajectory_state","trajectory_state":true})");
//
// Replies are written on the controller's own thread, so a library call blocked on the
// test's thread (single mode) is answered all the same.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zk_test {

using Millis = std::chrono::milliseconds;

// What the controller does with one received frame.
class Reply {
public:
    // The frame text, sent with its "\r\n" terminator.
    Reply& reply(const std::string& frame);
    // Further frames sent right after (several frames in one write when not split).
    Reply& then(const std::string& frame);
    // Exact bytes, terminator and all (garbage, partial frames, several frames).
    Reply& reply_raw(const std::string& bytes);
    // Computes the reply from the request text; an empty result sends nothing.
    Reply& compute(std::function<std::string(const std::string& request)> make_reply);
    // Sends the bytes in several writes, cut at these byte offsets, a little apart.
    Reply& split(std::vector<size_t> cut_points);
    // Waits this long before the first write.
    Reply& after(Millis delay);
    // Answers nothing.
    Reply& silence();
    // Closes the connection instead of answering.
    Reply& close_connection();

private:
    friend class ScriptedController;
    std::string bytes_;
    std::function<std::string(const std::string&)> make_reply_;
    std::vector<size_t> cuts_;
    Millis delay_{0};
    bool close_ = false;
};

class ScriptedController {
public:
    ScriptedController();
    ~ScriptedController();
    ScriptedController(const ScriptedController&) = delete;
    ScriptedController& operator=(const ScriptedController&) = delete;

    int port() const { return port_; }
    static const char* ip() { return "127.0.0.1"; }

    // The next frame named `command` (its "command" member, else "state") gets this reply;
    // several on() for one name are used in order.
    Reply& on(const std::string& command);
    // Every frame named `command` gets this reply once the one-shot replies are used up.
    Reply& always(const std::string& command);
    // Answers every query a new connection runs, as an arm of this product text does.
    void answer_sync(const std::string& product_version = "ZK-AX61-B");

    // Unsolicited frames to every connected client, now.
    void push(const std::string& frame);
    void push_raw(const std::string& bytes);

    // Frames received, without terminator, in arrival order.
    std::vector<std::string> frames() const;
    // Frames received whose name is `command`.
    std::vector<std::string> frames_named(const std::string& command) const;
    std::string last_frame() const;
    bool wait_for_frames(size_t count, Millis limit = Millis(2000)) const;
    void clear_frames();

    size_t connection_count() const;
    bool wait_for_connections(size_t count, Millis limit = Millis(2000)) const;
    void close_clients();

private:
    struct Connection;
    struct Write;

    void run();
    void accept_client();
    void read_client(Connection& connection);
    void handle_frame(Connection& connection, const std::string& frame);
    void schedule(int fd, const std::string& bytes, const Reply& how);
    void flush_due_writes();
    void enqueue(Write write);  // caller holds mutex_
    void wake();

    int listen_fd_ = -1;
    int wake_pipe_[2] = {-1, -1};
    int port_ = 0;
    bool stopping_ = false;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::deque<std::pair<std::string, std::unique_ptr<Reply>>> one_shot_;
    std::vector<std::pair<std::string, std::unique_ptr<Reply>>> standing_;
    std::vector<Write> pending_;
    std::vector<std::string> frames_;
    std::thread thread_;
};

// The frame name a controller files a frame under: "command", else "state", else "".
std::string frame_name(const std::string& frame);

}  // namespace zk_test
