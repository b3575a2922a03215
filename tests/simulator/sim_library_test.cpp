// The library against the simulator: a host's view. Every thread mode connects and learns
// the arm, and each injected fault reaches the host as the result code it stands for.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "Application/zk_handle.h"
#include "sim_fixture.h"
#include "simulator/sim_kinematics.h"
#include "zk_api.h"

namespace zk_sim_test {
namespace {

// The library started in a mode with one arm connected to an in-process simulator.
class LibraryArm {
public:
    LibraryArm(zk_thread_mode_e mode, zk_sim::SimOptions options) : simulator_(std::move(options))
    {
        // Earlier tests in the same process may have shortened the time-outs.
        m_nOutTime = 500;
        m_nOutTime_max = 1000;
        EXPECT_EQ(zk_init(mode), 0);
        handle_ = zk_create_robot_arm("127.0.0.1", simulator_.port());
    }
    ~LibraryArm()
    {
        if (handle_ != nullptr) zk_delete_robot_arm(handle_);
        zk_destory();
    }
    LibraryArm(const LibraryArm&) = delete;
    LibraryArm& operator=(const LibraryArm&) = delete;

    zk_robot_handle* handle() const { return handle_; }
    RunningSimulator& simulator() { return simulator_; }

private:
    RunningSimulator simulator_;
    zk_robot_handle* handle_ = nullptr;
};

const zk_thread_mode_e kModes[] = {ZK_SINGLE_MODE_E, ZK_DUAL_MODE_E, ZK_TRIPLE_MODE_E};

std::string mode_name(zk_thread_mode_e mode)
{
    return mode == ZK_SINGLE_MODE_E ? "single" : mode == ZK_DUAL_MODE_E ? "dual" : "triple";
}

// -----------------------------------------------------------------------------------------
// Connecting
// -----------------------------------------------------------------------------------------

struct ProductCase {
    const char* product;
    zk_robot_arm_model_e model;
    zk_force_type_e force;
    int dof;
};

const ProductCase kProducts[] = {
    {"AX61-B", ZK_MODEL_AX_61_E, ZK_MODEL_ZK_B_E, 6},          {"AX71-QF", ZK_MODEL_AX_71_E, ZK_MODEL_ZK_QF_E, 7},
    {"AL64III-XF", ZK_MODEL_AL_64_III_E, ZK_MODEL_ZK_XF_E, 6}, {"AL64-XFB", ZK_MODEL_AL_64_II_E, ZK_MODEL_ZK_IXF_E, 6},
    {"LUM61-B", ZK_MODEL_LUM_61_E, ZK_MODEL_ZK_B_E, 6},        {"LUM66-QF", ZK_MODEL_LUM_66_E, ZK_MODEL_ZK_QF_E, 6},
    {"TOR77-XF", ZK_MODEL_TOR_77_E, ZK_MODEL_ZK_XF_E, 7},      {"LUM67-XFB", ZK_MODEL_LUM_67_E, ZK_MODEL_ZK_IXF_E, 6},
};

class Connecting : public ::testing::TestWithParam<zk_thread_mode_e> {};

TEST_P(Connecting, EveryModelIsRecognisedInEveryMode)
{
    for (const ProductCase& product : kProducts) {
        SCOPED_TRACE(product.product);
        LibraryArm arm(GetParam(), options_for(product.product));
        ASSERT_NE(arm.handle(), nullptr);
        ASSERT_GT(arm.handle()->id, 0);
        zk_robot_info_t info{};
        ASSERT_EQ(zk_get_robot_info(arm.handle(), &info), 0);
        EXPECT_EQ(info.arm_model, product.model);
        EXPECT_EQ(info.force_type, product.force);
        EXPECT_EQ(info.arm_dof, product.dof);
        zk_arm_software_version_t software{};
        EXPECT_EQ(zk_get_arm_software_info(arm.handle(), &software), 0);
        EXPECT_STREQ(software.product_version, product.product);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, Connecting, ::testing::ValuesIn(kModes),
                         [](const auto& info) { return mode_name(info.param); });

// -----------------------------------------------------------------------------------------
// Faults as a host sees them
// -----------------------------------------------------------------------------------------

enum class Fault { none, drop, malformed, garbage, delay };

struct FaultCase {
    const char* name;
    Fault fault;
    int result;
};

struct FaultInMode {
    zk_thread_mode_e mode;
    FaultCase fault;
};

class FaultCodes : public ::testing::TestWithParam<FaultInMode> {};

constexpr int kTimeoutMs = 200;

TEST_P(FaultCodes, ReachTheHostAsTheirResultCode)
{
    const FaultCase& c = GetParam().fault;
    LibraryArm arm(GetParam().mode, options_for("AX61-B"));
    ASSERT_GT(arm.handle()->id, 0);
    zk_set_timeout(kTimeoutMs);
    zk_sim::FaultConfig faults;
    faults.commands = {"get_arm_run_mode"};
    faults.drop_share = c.fault == Fault::drop ? 1 : 0;
    faults.malformed_share = c.fault == Fault::malformed ? 1 : 0;
    faults.garbage_share = c.fault == Fault::garbage ? 1 : 0;
    faults.delay_ms = c.fault == Fault::delay ? 3 * kTimeoutMs : 0;
    arm.simulator()->set_faults(faults);
    int mode = -1;
    EXPECT_EQ(zk_get_data_common(arm.handle(), &mode, "get_arm_run_mode", "mode"), c.result);
    if (c.result == 0) {
        EXPECT_EQ(mode, 0);
    }
    // Other commands are untouched, once a late reply, which holds back those behind it,
    // is out.
    std::this_thread::sleep_for(Millis(faults.delay_ms));
    zk_arm_software_version_t software{};
    EXPECT_EQ(zk_get_arm_software_info(arm.handle(), &software), 0);
}

std::vector<FaultInMode> fault_cases()
{
    const FaultCase faults[] = {{"none", Fault::none, 0},
                                {"dropped", Fault::drop, -2},
                                {"malformed", Fault::malformed, -3},
                                {"garbage", Fault::garbage, -2},
                                {"late", Fault::delay, -2}};
    std::vector<FaultInMode> cases;
    for (zk_thread_mode_e mode : kModes)
        for (const FaultCase& fault : faults) cases.push_back({mode, fault});
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultCodes, ::testing::ValuesIn(fault_cases()), [](const auto& info) {
    return mode_name(info.param.mode) + "_" + info.param.fault.name;
});

TEST(FaultCodes, ConnectionClosedByTheControllerTimesOut)
{
    LibraryArm arm(ZK_DUAL_MODE_E, options_for("AX61-B"));
    ASSERT_GT(arm.handle()->id, 0);
    zk_set_timeout(kTimeoutMs);
    zk_sim::FaultConfig faults;
    faults.close_after = 1;
    arm.simulator()->set_faults(faults);
    int mode = -1;
    EXPECT_EQ(zk_get_data_common(arm.handle(), &mode, "get_arm_run_mode", "mode"), 0);
    ASSERT_TRUE(arm.simulator()->wait_for_connections(0, 2000ms));
    const int after = zk_get_data_common(arm.handle(), &mode, "get_arm_run_mode", "mode");
    EXPECT_TRUE(after == -2 || after == -1) << after;
}

TEST(FaultCodes, SyncThatIsNeverAnsweredFailsTheHandle)
{
    auto options = options_for("AX61-B");
    options.faults.drop_share = 1;
    options.faults.commands = {"get_arm_software_info"};
    LibraryArm arm(ZK_DUAL_MODE_E, options);
    ASSERT_NE(arm.handle(), nullptr);
    EXPECT_EQ(arm.handle()->id, -1);
}

// -----------------------------------------------------------------------------------------
// Realtime state through the library's listener
// -----------------------------------------------------------------------------------------

struct StateCount {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<zk_realtime_arm_joint_state_t> states;
};
// The library keeps the callback once installed: it counts only while a test watches.
std::mutex g_state_count_mutex;
StateCount* g_state_count = nullptr;

void watch_states(StateCount* count)
{
    std::lock_guard<std::mutex> lock(g_state_count_mutex);
    g_state_count = count;
}

struct WatchingStates {
    explicit WatchingStates(StateCount* count) { watch_states(count); }
    ~WatchingStates() { watch_states(nullptr); }
};

void count_state(zk_realtime_arm_joint_state_t state)
{
    std::lock_guard<std::mutex> watching(g_state_count_mutex);
    if (g_state_count == nullptr) return;
    std::lock_guard<std::mutex> lock(g_state_count->mutex);
    g_state_count->states.push_back(state);
    g_state_count->changed.notify_all();
}

TEST(RealtimeCallback, ReceivesTheStateAtTheConfiguredCycle)
{
    StateCount seen;
    WatchingStates watching(&seen);
    auto options = options_for("AX71-XF");
    options.joints = {10, 20, 30, 40, 50, 60, 70};
    LibraryArm arm(ZK_TRIPLE_MODE_E, options);
    ASSERT_GT(arm.handle()->id, 0);
    zk_realtime_arm_state_call_back(count_state);
    constexpr int kCycleMs = 10;
    zk_realtime_push_config_t push{};
    push.cycle = kCycleMs;
    push.enable = true;
    push.port = free_udp_port();
    push.force_coordinate = 0;
    std::strcpy(push.ip, "127.0.0.1");
    push.custom_config = {1, -1, -1, -1, 1, -1, -1, -1};
    ASSERT_EQ(zk_set_realtime_push(arm.handle(), push), 0);
    {
        std::unique_lock<std::mutex> lock(seen.mutex);
        ASSERT_TRUE(seen.changed.wait_for(lock, 2000ms, [&] { return !seen.states.empty(); }));
        seen.states.clear();
    }
    const uint64_t sent_before = arm.simulator()->datagrams_sent();
    std::this_thread::sleep_for(500ms);
    const uint64_t sent = arm.simulator()->datagrams_sent() - sent_before;
    std::lock_guard<std::mutex> lock(seen.mutex);
    // About 50 at a 10 ms cycle; a loaded or sanitized run may miss some, never gain.
    EXPECT_GE(seen.states.size(), 10u);
    EXPECT_LE(seen.states.size(), sent + 1);
    const zk_realtime_arm_joint_state_t& state = seen.states.back();
    EXPECT_EQ(state.errCode, 0);
    EXPECT_STREQ(state.arm_ip, "127.0.0.1");
    for (int i = 0; i < 7; ++i) EXPECT_FLOAT_EQ(state.joint_status.joint_position[i], 10.0f * (i + 1)) << i;
    EXPECT_EQ(state.arm_current_status, ZK_IDLE_E);
    EXPECT_EQ(state.err.err_len, 1);
    const zk_sim::SimPose pose = zk_sim::sim_pose_of(model_of("AX71-XF"), arm.simulator()->joints());
    EXPECT_NEAR(state.waypoint.position.x, pose.position[0], 1e-6);
    EXPECT_NEAR(state.waypoint.position.z, pose.position[2], 1e-6);
}

TEST(RealtimeCallback, PushConfigurationReadsBackThroughTheLibrary)
{
    LibraryArm arm(ZK_DUAL_MODE_E, options_for("AX61-QF"));
    ASSERT_GT(arm.handle()->id, 0);
    zk_realtime_push_config_t push{};
    push.cycle = 20;
    push.enable = false;
    push.port = 9321;
    push.force_coordinate = 1;
    std::strcpy(push.ip, "127.0.0.1");
    push.custom_config = {1, 0, -1, 1, -1, -1, -1, -1};
    ASSERT_EQ(zk_set_realtime_push(arm.handle(), push), 0);
    zk_realtime_push_config_t read{};
    ASSERT_EQ(zk_get_realtime_push(arm.handle(), &read), 0);
    EXPECT_EQ(read.cycle, 20);
    EXPECT_FALSE(read.enable);
    EXPECT_EQ(read.port, 9321);
    EXPECT_STREQ(read.ip, "127.0.0.1");
    EXPECT_EQ(read.force_coordinate, 1);
    EXPECT_EQ(read.custom_config.joint_speed, 1);
    EXPECT_EQ(read.custom_config.lift_state, 0);
    EXPECT_EQ(read.custom_config.hand_state, 1);
    EXPECT_EQ(read.custom_config.aloha_state, 0);
}

}  // namespace
}  // namespace zk_sim_test
