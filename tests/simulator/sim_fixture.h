// Tests talk to an in-process simulator as a controller's client would: over loopback TCP,
// a line at a time, and read its realtime datagrams on a local UDP port.
#pragma once

#include <cJSON.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/sim_server.h"

namespace zk_sim_test {

using namespace std::chrono_literals;
using Millis = std::chrono::milliseconds;

// A parsed frame, owned.
struct Json {
    struct Delete {
        void operator()(cJSON* json) const { cJSON_Delete(json); }
    };
    std::unique_ptr<cJSON, Delete> tree;
    std::string text;

    explicit operator bool() const { return tree != nullptr; }
    const cJSON* operator[](const char* key) const { return cJSON_GetObjectItemCaseSensitive(tree.get(), key); }
    std::string name() const;         // "command", else "state"
    int integer(const char* key) const;  // the member as an int; fails the test when missing
    std::vector<int> ints(const char* key) const;  // an array member; empty when missing
    Json member(const char* key) const;            // a nested object, as a frame of its own
};

Json parse(const std::string& text);

// A simulator on an ephemeral loopback port whose log is kept for inspection.
class RunningSimulator {
public:
    explicit RunningSimulator(zk_sim::SimOptions options = {});
    zk_sim::Simulator& operator*() { return *simulator_; }
    zk_sim::Simulator* operator->() { return simulator_.get(); }
    int port() const { return simulator_->port(); }
    bool logged(const std::string& part) const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::unique_ptr<zk_sim::Simulator> simulator_;
};

// Quick options for a test: a model, and motion this many times faster than a real arm.
zk_sim::SimOptions options_for(const std::string& product = "AX61-B", double speed_scale = 20);

// The model a product text names; fails the test for an unknown one.
zk_sim::SimModel model_of(const std::string& product);

// A raw client connection.
class WireClient {
public:
    explicit WireClient(int port);
    ~WireClient();
    WireClient(const WireClient&) = delete;
    WireClient& operator=(const WireClient&) = delete;

    // Sends the text and CR LF.
    void send_line(const std::string& line);
    void send_raw(const std::string& bytes);
    // The next frame, or an empty Json (text "") when none comes in time.
    Json next(Millis limit = 2000ms);
    // The next frame of this name; frames of other names before it are skipped.
    Json next_named(const std::string& name, Millis limit = 2000ms);
    // The next raw line, without CR LF; "" when none comes in time.
    std::string next_line(Millis limit = 2000ms);
    // Sends a command and returns the next frame that isn't a trajectory's end; end frames
    // that come first are kept for next() and next_named(), since a short move may end
    // before a later command is answered.
    Json ask(const std::string& line, Millis limit = 2000ms);
    // True when the peer closed the connection within the limit.
    bool closed_within(Millis limit);
    void close();

private:
    int fd_ = -1;
    std::string pending_;
    std::vector<std::string> kept_;  // end frames ask() stepped over, oldest first
};

// A loopback UDP port free at the moment of the call, for a listener that binds its own.
int free_udp_port();

// A UDP port the simulator's realtime state can be sent to.
class DatagramSink {
public:
    DatagramSink();
    ~DatagramSink();
    int port() const { return port_; }
    // The next datagram, or "" when none comes in time.
    std::string next(Millis limit = 1000ms);
    // Every datagram that arrives within the span.
    std::vector<std::string> collect(Millis span);

private:
    int fd_ = -1;
    int port_ = 0;
};

}  // namespace zk_sim_test
