// The simulator: a TCP listener for any number of clients, the simulated controller behind
// it, and the realtime sender, all driven by one thread. A host program runs it in-process
// (tests, benchmarks) or through the zk_simulator program.
//
//   zk_sim::SimOptions options;
//   options.port = 0;
//   zk_sim::Simulator simulator(options);
//   std::string error;
//   if (!simulator.start(&error)) ...;
//   connect to 127.0.0.1:simulator.port()
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "simulator/sim_arm.h"
#include "simulator/sim_controller.h"
#include "simulator/sim_options.h"

namespace zk_sim {

// Longest line taken; a longer one is dropped whole.
constexpr size_t kMaxLineBytes = 64 * 1024;
// Unsent output a client may leave unread before it is dropped.
constexpr size_t kMaxPendingOutput = 4 * 1024 * 1024;
// Replies a delay may hold back on one connection before it is dropped.
constexpr size_t kMaxHeldReplies = 10000;
// Clients served at once; more are turned away.
constexpr size_t kMaxConnections = 64;

class Simulator {
public:
    explicit Simulator(SimOptions options);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Builds the arm, listens and starts the thread. False, with a reason, when the options
    // name no arm or the address can't be bound.
    bool start(std::string* error);
    // Ends the thread and closes every connection; also done by the destructor.
    void stop();

    int port() const { return port_; }

    // Views of the running simulator, safe from any thread.
    Joints joints() const;
    MotionKind current_kind() const;
    ArmStatus status() const;
    PushConfig push_config() const;
    size_t connection_count() const;
    bool wait_for_connections(size_t count, std::chrono::milliseconds limit) const;
    uint64_t datagrams_sent() const { return datagrams_sent_.load(); }

    // Replaces the fault injection from now on; counts start afresh.
    void set_faults(const FaultConfig& faults);

private:
    class Loop;

    void run();

    SimOptions options_;
    int port_ = 0;
    std::unique_ptr<Loop> loop_;  // everything the thread owns; guarded by mutex_
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::atomic<uint64_t> datagrams_sent_{0};
    std::thread thread_;
};

}  // namespace zk_sim
