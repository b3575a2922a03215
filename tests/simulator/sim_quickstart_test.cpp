// The quickstart's flow through the library against the simulator, in every thread mode:
// connect, a blocking move, a non-blocking move and its event, the realtime state.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <cmath>

#include "Application/zk_handle.h"
#include "Application/zk_receive.h"
#include "sim_fixture.h"
#include "zk_api.h"

namespace zk_sim_test {
namespace {

// What the library's callbacks saw; they run on its threads.
struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<zk_event_push_data_t> events;
    std::vector<zk_realtime_arm_joint_state_t> states;

    template <typename Predicate>
    bool wait(Predicate done, Millis limit)
    {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return done(*this); });
    }
};

// The library keeps a callback once installed, so the callbacks outlive the test that
// installed them: they note nothing when no test is watching.
std::mutex g_seen_mutex;
Seen* g_seen = nullptr;

void watch(Seen* seen)
{
    std::lock_guard<std::mutex> lock(g_seen_mutex);
    g_seen = seen;
}

// Watches for the length of a scope, whatever way the test leaves it.
struct Watching {
    explicit Watching(Seen* seen) { watch(seen); }
    ~Watching() { watch(nullptr); }
};

void on_event(zk_event_push_data_t event)
{
    std::lock_guard<std::mutex> watching(g_seen_mutex);
    if (g_seen == nullptr) return;
    std::lock_guard<std::mutex> lock(g_seen->mutex);
    g_seen->events.push_back(event);
    g_seen->changed.notify_all();
}

void on_state(zk_realtime_arm_joint_state_t state)
{
    std::lock_guard<std::mutex> watching(g_seen_mutex);
    if (g_seen == nullptr) return;
    std::lock_guard<std::mutex> lock(g_seen->mutex);
    g_seen->states.push_back(state);
    g_seen->changed.notify_all();
}

bool arm_at(RunningSimulator& simulator, const float* joint, Millis limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        const zk_sim::Joints now = simulator->joints();
        bool there = true;
        for (int i = 0; i < 6; ++i) there = there && std::fabs(now[i] - joint[i]) < 1e-3;
        if (there) return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

class QuickstartFlow : public ::testing::TestWithParam<zk_thread_mode_e> {};

TEST_P(QuickstartFlow, RunsAgainstTheSimulator)
{
    const zk_thread_mode_e mode = GetParam();
    const bool threaded = mode != ZK_SINGLE_MODE_E;
    Seen seen;
    Watching watching(&seen);
    RunningSimulator simulator(options_for("AX61-B", 5));
    // Earlier tests in the same process may have shortened the time-outs or left a
    // non-blocking move's marker, which would swallow this test's end frame.
    m_nOutTime = 500;
    m_nOutTime_max = 1000;
    event_listener.flag = kEventFlagNone;
    ASSERT_EQ(zk_init(mode), 0);
    zk_get_arm_event_call_back(on_event);
    zk_realtime_arm_state_call_back(on_state);
    zk_robot_handle* arm = zk_create_robot_arm("127.0.0.1", simulator.port());
    ASSERT_NE(arm, nullptr);
    ASSERT_GT(arm->id, 0);
    zk_robot_info_t info{};
    ASSERT_EQ(zk_get_robot_info(arm, &info), 0);
    EXPECT_EQ(info.arm_dof, 6);

    // A blocking move returns once the arm has arrived. Single mode has no receive thread
    // to see the end frame: its blocking form gives -3 right after the controller's answer.
    const float work_pose[7] = {0, 20, 70, 0, 90, 0, 0};
    EXPECT_EQ(zk_movej(arm, work_pose, 50, 0, 0, 1), threaded ? 0 : -3);
    if (threaded) {
        EXPECT_TRUE(arm_at(simulator, work_pose, 1ms)) << "the blocking move returned early";
    }
    ASSERT_TRUE(arm_at(simulator, work_pose, 5000ms));

    // A non-blocking move returns at once; its end reaches the event callback.
    size_t events_before = 0;
    {
        std::lock_guard<std::mutex> lock(seen.mutex);
        events_before = seen.events.size();
    }
    const float home[7] = {};
    EXPECT_EQ(zk_movej(arm, home, 50, 0, 0, 0), 0);
    ASSERT_TRUE(arm_at(simulator, home, 5000ms));
    if (threaded) {
        ASSERT_TRUE(seen.wait([&](Seen& s) { return s.events.size() > events_before; }, 2000ms));
        std::lock_guard<std::mutex> lock(seen.mutex);
        const zk_event_push_data_t event = seen.events.back();
        EXPECT_EQ(event.handle_id, arm->id);
        EXPECT_EQ(event.event_type, ZK_CURRENT_TRAJECTORY_STATE_E);
        EXPECT_TRUE(event.trajectory_state);
        EXPECT_EQ(event.device, 0);
        EXPECT_EQ(event.trajectory_connect, 0);
    } else {
        std::lock_guard<std::mutex> lock(seen.mutex);
        EXPECT_TRUE(seen.events.empty()) << "single mode has no event callback";
    }

    // The realtime state: in triple mode the library binds the port and its callback gets
    // the state at the cycle; in the other modes the host listens itself.
    std::optional<DatagramSink> host_port;
    if (mode != ZK_TRIPLE_MODE_E) host_port.emplace();
    zk_realtime_push_config_t push{};
    push.cycle = 5;
    push.enable = true;
    push.port = host_port ? host_port->port() : free_udp_port();
    push.force_coordinate = -1;
    std::strcpy(push.ip, "127.0.0.1");
    push.custom_config = {-1, -1, -1, -1, 1, -1, -1, -1};
    EXPECT_EQ(zk_set_realtime_push(arm, push), 0);
    if (mode == ZK_TRIPLE_MODE_E) {
        ASSERT_TRUE(seen.wait([](Seen& s) { return s.states.size() >= 20; }, 2000ms));
        std::lock_guard<std::mutex> lock(seen.mutex);
        const zk_realtime_arm_joint_state_t state = seen.states.back();
        EXPECT_EQ(state.errCode, 0);
        EXPECT_STREQ(state.arm_ip, "127.0.0.1");
        for (int i = 0; i < 6; ++i) EXPECT_FLOAT_EQ(state.joint_status.joint_position[i], 0);
        EXPECT_EQ(state.arm_current_status, ZK_IDLE_E);
        EXPECT_NEAR(state.waypoint.position.z, 0.8505, 1e-6);
    } else {
        EXPECT_NE(host_port->next(), "");
        std::lock_guard<std::mutex> lock(seen.mutex);
        EXPECT_TRUE(seen.states.empty());
    }

    EXPECT_EQ(zk_delete_robot_arm(arm), 0);
    zk_destory();
}

INSTANTIATE_TEST_SUITE_P(Modes, QuickstartFlow, ::testing::Values(ZK_SINGLE_MODE_E, ZK_DUAL_MODE_E, ZK_TRIPLE_MODE_E),
                         [](const auto& info) {
                             return info.param == ZK_SINGLE_MODE_E ? "single"
                                    : info.param == ZK_DUAL_MODE_E ? "dual"
                                                                    : "triple";
                         });

// -----------------------------------------------------------------------------------------
// A host stopping and pausing a blocking move from another thread
// -----------------------------------------------------------------------------------------

class HostThreads : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_nOutTime = 500;
        m_nOutTime_max = 1000;
        event_listener.flag = kEventFlagNone;
        ASSERT_EQ(zk_init(ZK_DUAL_MODE_E), 0);
        arm_ = zk_create_robot_arm("127.0.0.1", simulator_.port());
        ASSERT_NE(arm_, nullptr);
        ASSERT_GT(arm_->id, 0);
    }
    void TearDown() override
    {
        if (arm_ != nullptr) zk_delete_robot_arm(arm_);
        zk_destory();
    }

    RunningSimulator simulator_{options_for("AX61-B", 1)};
    zk_robot_handle* arm_ = nullptr;
    const float target_[7] = {60, 0, 0, 0, 0, 0, 0};
};

TEST_F(HostThreads, StopEndsABlockingMoveWithTheRefusalCode)
{
    int result = 99;
    std::thread mover([&] { result = zk_movej(arm_, target_, 20, 0, 0, 1); });
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(zk_set_arm_stop(arm_), 0);
    mover.join();
    EXPECT_EQ(result, 1) << "a stopped trajectory didn't arrive";
    EXPECT_LT(simulator_->joints()[0], 60);
}

TEST_F(HostThreads, PausedBlockingMoveWaitsAndArrivesAfterContinue)
{
    int result = 99;
    std::thread mover([&] { result = zk_movej(arm_, target_, 50, 0, 0, 1); });
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(zk_set_arm_pause(arm_), 0);
    zk_arm_current_trajectory_e kind = ZK_NO_PLANNING_E;
    float data[7] = {};
    EXPECT_EQ(zk_get_arm_current_trajectory(arm_, &kind, data), 0);
    EXPECT_EQ(kind, ZK_JOINT_SPACE_PLANNING_E);
    EXPECT_GT(data[0], 0);
    EXPECT_LT(data[0], 60);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(simulator_->status(), zk_sim::ArmStatus::pause);
    EXPECT_EQ(zk_set_arm_continue(arm_), 0);
    mover.join();
    EXPECT_EQ(result, 0);
    EXPECT_DOUBLE_EQ(simulator_->joints()[0], 60);
}

}  // namespace
}  // namespace zk_sim_test
