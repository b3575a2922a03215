#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Application/zk_drag_stream.h"
#include "Application/zk_exchange.h"
#include "Application/zk_receive.h"
#include "support/connected_arm.h"
#include "support/test_log.h"

namespace {

using namespace std::chrono_literals;
using zk_test::ConnectedArm;
using zk_test::LogCapture;

// A connection record that is not in the table, for filing frames by hand.
struct LooseHandle {
    zk_handle_t handle{};
    zk_socket_fifo_handle store{};
    LooseHandle()
    {
        handle.id = 3;
        handle.fifo_handle = &store;
    }
    void file(const std::string& frame) { add_str_to_fifo(&handle, frame.c_str(), static_cast<int>(frame.size())); }
    std::string name(int slot) const { return store.fifo[slot].command; }
    bool used(int slot) const { return store.fifo[slot].is_used == 1; }
};

std::string named(const std::string& name) { return R"({"command":")" + name + R"("})"; }

std::string take(zk_socket_fifo_handle* store, const char* name)
{
    char text[kFifoFrameCapacity] = {};
    return get_str_from_fifo(store, name, text, sizeof text) >= 0 ? std::string(text) : std::string("<none>");
}

// --- The store -------------------------------------------------------------------------------

TEST(FrameStore, FramesGoToTheLowestFreeSlotsAndAreTakenByName)
{
    LooseHandle loose;
    loose.file(named("a"));
    loose.file(R"({"state":"b","v":1})");
    loose.file(named("a"));
    EXPECT_EQ(loose.name(0), "a");
    EXPECT_EQ(loose.name(1), "b");
    EXPECT_EQ(loose.store.fifo[1].recevie_len, 19);
    EXPECT_EQ(loose.store.current_time, 3u);
    EXPECT_EQ(take(&loose.store, "a"), named("a"));
    EXPECT_FALSE(loose.used(0));  // taken frames leave their slot free
    EXPECT_TRUE(loose.used(2));
    EXPECT_EQ(take(&loose.store, "b"), R"({"state":"b","v":1})");
    EXPECT_EQ(take(&loose.store, "b"), "<none>");
}

TEST(FrameStore, FullStoreDropsTheNextFrameAndGivesUpSlotZero)
{
    LooseHandle loose;
    // Reaching the last slot always gives up slot 0 first, so the 40th frame leaves slot 0
    // empty and the 41st fills it: only then are all 40 slots fresh.
    for (int i = 0; i < 40; ++i) loose.file(named(std::string("f") + std::to_string(i)));
    EXPECT_FALSE(loose.used(0));
    EXPECT_EQ(loose.name(39), "f39");
    loose.file(named("f40"));
    EXPECT_EQ(loose.name(0), "f40");

    loose.file(named("dropped"));
    EXPECT_FALSE(loose.used(0));
    for (int i = 1; i < 40; ++i) EXPECT_NE(loose.name(i), "dropped");
    loose.file(named("next"));
    EXPECT_EQ(loose.name(0), "next");
}

TEST(FrameStore, FramesOlderThanFiftyLaterFramesAreReused)
{
    LooseHandle loose;
    loose.file(named("old"));  // slot 0, time 1
    for (int i = 0; i < 50; ++i) {
        loose.file(named("x"));
        take(&loose.store, "x");
    }
    EXPECT_EQ(loose.name(0), "old");  // time 1 + 50 is not yet below 51
    loose.file(named("x"));           // time 52: slot 0 is stale now
    EXPECT_EQ(loose.name(0), "x");
}

TEST(FrameStore, ProjectFramesAndUnparsableFramesAreNotKept)
{
    LooseHandle loose;
    static int events = 0;
    zk_get_arm_event_call_back([](zk_event_push_data_t) { ++events; });
    loose.file(named("conduct_project"));
    loose.file("{not json");
    for (int i = 0; i < kFifoSlots; ++i) EXPECT_FALSE(loose.used(i));
    EXPECT_EQ(events, 0);
}

TEST(FrameStore, OversizedFramesAndNamesAreRefused)
{
    LooseHandle loose;
    LogCapture log(LOG_LEVEL_ERROR);
    loose.file(R"({"command":"big","pad":")" + std::string(kFifoFrameCapacity, 'p') + "\"}");
    loose.file(named(std::string(kFifoNameCapacity, 'n')));
    loose.file(named(std::string(kFifoNameCapacity - 1, 'n')));
    EXPECT_FALSE(loose.used(0) && loose.name(0) == "big");
    EXPECT_EQ(loose.name(0), std::string(kFifoNameCapacity - 1, 'n'));
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST(FrameStore, TheFlagDropsOneTrajectoryEndAtTheNextScanOfAnyWaiter)
{
    LooseHandle loose;
    loose.file(R"({"state":"current_trajectory_state","trajectory_state":true,"device":0})");
    loose.file(named("reply"));
    event_listener.flag = kEventFlagDropTrajectoryEnd;
    EXPECT_EQ(take(&loose.store, "reply"), "<none>");  // this scan only dropped the end frame
    EXPECT_EQ(event_listener.flag.load(), kEventFlagNone);
    EXPECT_FALSE(loose.used(0));
    EXPECT_EQ(take(&loose.store, "reply"), named("reply"));

    loose.file(R"({"state":"program_run_finish","finish_id":4})");
    event_listener.flag = kEventFlagDropProgramFinish;
    EXPECT_EQ(take(&loose.store, "program_run_finish"), "<none>");
    EXPECT_FALSE(loose.used(0));
}

// --- Events ------------------------------------------------------------------------------------

std::vector<zk_event_push_data_t> g_events;
void record_event(zk_event_push_data_t data) { g_events.push_back(data); }

TEST(Events, TrajectoryAndProgramEndsReachTheCallbackAndStayInTheStore)
{
    LooseHandle loose;
    g_events.clear();
    zk_get_arm_event_call_back(record_event);
    zk_get_arm_event_call_back(nullptr);  // ignored: the callback stays
    loose.file(R"({"state":"current_trajectory_state","trajectory_state":false,"device":2,"trajectory_connect":1})");
    loose.file(R"({"state":"current_trajectory_state","device":0,"trajectory_connect":0})");
    loose.file(R"({"state":"program_run_finish","finish_id":17})");
    ASSERT_EQ(g_events.size(), 3u);
    EXPECT_EQ(g_events[0].handle_id, 3);
    EXPECT_EQ(g_events[0].event_type, ZK_CURRENT_TRAJECTORY_STATE_E);
    EXPECT_FALSE(g_events[0].trajectory_state);
    EXPECT_EQ(g_events[0].device, 2);
    EXPECT_EQ(g_events[0].trajectory_connect, 1);
    EXPECT_TRUE(g_events[1].trajectory_state);  // absent reads as true
    EXPECT_EQ(g_events[2].event_type, ZK_PROGRAM_RUN_FINISH_E);
    EXPECT_EQ(g_events[2].program_id, 17);
    EXPECT_FALSE(g_events[2].trajectory_state);
    EXPECT_TRUE(loose.used(0) && loose.used(1) && loose.used(2));
}

// --- The drag-teach point stream ---------------------------------------------------------------

std::string read_file(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(PointStream, PointsAreWrittenCountedAndKeptInTheSlotOfTheirJointCount)
{
    LooseHandle loose;
    loose.handle.arm_dof = 6;
    loose.file(named("earlier_name"));  // slot 0
    for (int i = 1; i <= 7; ++i) loose.file(named(std::string("n") + std::to_string(i)));
    const std::string path = ::testing::TempDir() + "points.txt";
    ASSERT_TRUE(drag_teach_file_open(path.c_str()));
    drag_teach_total_num = 2;
    const std::string p1 = R"({"point":[1,2,3,4,5,6]})";
    // The slot follows the arm's joint count, not the length of the point array.
    const std::string p2 = R"({"point":[7,8,9,10,11,12,13]})";
    loose.file(p1);
    EXPECT_EQ(drag_teach_count.load(), 1);
    EXPECT_EQ(drag_teach_save_complete.load(), 0);
    loose.file(p2);
    EXPECT_EQ(drag_teach_save_start.load(), 1);
    EXPECT_EQ(drag_teach_save_complete.load(), 1);
    drag_teach_file_close();
    EXPECT_EQ(read_file(path), p1 + "\r\n" + p2 + "\r\n");
    EXPECT_EQ(loose.name(6), "n6");  // the old name stays with the point frame
    EXPECT_EQ(std::string(reinterpret_cast<char*>(loose.store.fifo[6].str_json)), p2);
}

TEST(PointStream, PointWithoutAnOpenFileIsGuarded)
{
    LooseHandle loose;
    loose.file(R"({"point":[1,2,3,4,5,6]})");
    EXPECT_EQ(drag_teach_save_state.load(), 1);
    EXPECT_EQ(drag_teach_count.load(), 0);
}

TEST(PointStream, FrameWithNoKnownKindRaisesTheErrorFlag)
{
    LooseHandle loose;
    LogCapture log(LOG_LEVEL_ERROR);
    loose.file(R"({"other":1})");
    loose.file(R"({"point":5})");
    EXPECT_EQ(drag_teach_save_state.load(), 1);
    EXPECT_TRUE(log.contains("Error: 'point' is not an array. {\"other\":1}\n"));
    for (int i = 0; i < kFifoSlots; ++i) EXPECT_FALSE(loose.used(i));
}

TEST(PointStream, SingleModeWritesPointsAndCountsIdleRounds)
{
    ConnectedArm arm(ZK_SINGLE_MODE_E);
    const std::string path = ::testing::TempDir() + "single_points.txt";
    ASSERT_TRUE(drag_teach_file_open(path.c_str()));
    arm.controller().push(R"({"point":[1,2,3,4,5,6]})");
    uint8_t buf[2048] = {};
    EXPECT_EQ(zk_pack_lock_set("zk_save", arm.handle(), nullptr, 0, "point", buf, sizeof buf, 100), -2);
    drag_teach_file_close();
    EXPECT_EQ(read_file(path), "{\"point\":[1,2,3,4,5,6]}\r\n");
    EXPECT_EQ(drag_teach_save_start.load(), 1);
    EXPECT_EQ(drag_teach_save_state.load(), 0);
    EXPECT_GT(drag_teach_count.load(), 10);  // idle rounds after the point, not points
}

// --- The receive thread on the wire -----------------------------------------------------------

class ThreadedModes : public ::testing::TestWithParam<zk_thread_mode_e> {};

TEST_P(ThreadedModes, RepliesAreFiledAndTakenByName)
{
    ConnectedArm arm(GetParam());
    arm.controller().on("set_x").reply(R"({"command":"set_y","set_state":false})").then(R"({"command":"set_x","set_state":true})");
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 0);
    // The other frame stays filed for a later waiter of its name.
    zk_handle_t* handle = zk_get_zk_handle_by_robot_handle(arm.handle());
    EXPECT_EQ(take(handle->fifo_handle, "set_y"), R"({"command":"set_y","set_state":false})");
}

TEST_P(ThreadedModes, PartialFramesAreCompletedByLaterReads)
{
    ConnectedArm arm(GetParam());
    arm.controller().on("set_x").reply(R"({"command":"set_x","set_state":true})").split({2, 9, 20, 37});
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 0);
    // A whole frame and the start of the next in one read.
    const std::string first = "{\"command\":\"set_z\"}\r\n{\"command\":\"set_x\",";
    arm.controller().on("set_x").reply_raw(first + "\"set_state\":false}\r\n").split({first.size()});
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 1);
}

TEST_P(ThreadedModes, UnterminatedFrameThatParsesIsAccepted)
{
    ConnectedArm arm(GetParam());
    arm.controller().on("set_x").reply_raw(R"({"command":"set_x","set_state":true})");
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 0);
}

TEST_P(ThreadedModes, LateReplyStaysForTheNextWaiterOfItsName)
{
    ConnectedArm arm(GetParam());
    zk_set_timeout(40);
    arm.controller().on("get_x").reply(R"({"command":"get_x","x":1})").after(120ms);
    arm.controller().on("get_x").silence();
    int value = 0;
    EXPECT_EQ(zk_get_data_common(arm.handle(), &value, "get_x", "x"), -2);
    std::this_thread::sleep_for(150ms);
    zk_set_timeout(500);
    EXPECT_EQ(zk_get_data_common(arm.handle(), &value, "get_x", "x"), 0);
    EXPECT_EQ(value, 1);
}

TEST_P(ThreadedModes, EventsArriveOnTheReceiveThread)
{
    ConnectedArm arm(GetParam());
    static std::atomic<int> device{-9};
    zk_get_arm_event_call_back([](zk_event_push_data_t data) { device = data.device; });
    arm.controller().push(R"({"state":"current_trajectory_state","trajectory_state":true,"device":4})");
    uint8_t buf[256] = {};
    EXPECT_GT(zk_pack_lock_set("t", arm.handle(), nullptr, 0, "current_trajectory_state", buf, sizeof buf, 1000), 0);
    EXPECT_EQ(device.load(), 4);
}

TEST_P(ThreadedModes, ClosedPeerMakesCommandsTimeOut)
{
    ConnectedArm arm(GetParam());
    zk_set_timeout(50);
    arm.controller().close_clients();
    std::this_thread::sleep_for(50ms);
    int value = 0;
    const int result = zk_get_data_common(arm.handle(), &value, "get_x", "x");
    EXPECT_TRUE(result == -2 || result == -1) << result;
    EXPECT_NE(zk_get_zk_handle_by_robot_handle(arm.handle()), nullptr);
}

TEST_P(ThreadedModes, DestroyReturnsPromptlyWithAFrameWhoseEndNeverComes)
{
    zk_test::ScriptedController controller;
    controller.answer_sync();
    zk_init(GetParam());
    zk_robot_handle* handle = zk_create_robot_arm(zk_test::ScriptedController::ip(), controller.port());
    ASSERT_EQ(handle->id, 1);
    controller.push_raw("{\"command\":\"never_ends\",\"pad\":\"");
    std::this_thread::sleep_for(30ms);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(zk_destory(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
}

TEST_P(ThreadedModes, CallbacksCannotDestroyTheLibraryUnderThemselves)
{
    ConnectedArm arm(GetParam());
    static std::atomic<int> create_result{0};
    zk_get_arm_event_call_back([](zk_event_push_data_t) {
        create_result = zk_create_robot_arm("127.0.0.1", 1) == nullptr ? 1 : 2;
        zk_destory();
    });
    arm.controller().push(R"({"state":"current_trajectory_state","device":0})");
    uint8_t buf[256] = {};
    EXPECT_GT(zk_pack_lock_set("t", arm.handle(), nullptr, 0, "current_trajectory_state", buf, sizeof buf, 1000), 0);
    EXPECT_EQ(create_result.load(), 1);
}

INSTANTIATE_TEST_SUITE_P(Modes, ThreadedModes, ::testing::Values(ZK_DUAL_MODE_E, ZK_TRIPLE_MODE_E),
                         [](const auto& info) { return info.param == ZK_DUAL_MODE_E ? "dual" : "triple"; });

TEST(ThreadedWait, TwoConnectionsAreServedIndependently)
{
    zk_test::ScriptedController first, second;
    first.answer_sync("ZK-AX61-B");
    second.answer_sync("ZK-TOR77-B");
    zk_init(ZK_DUAL_MODE_E);
    zk_robot_handle* a = zk_create_robot_arm(zk_test::ScriptedController::ip(), first.port());
    zk_robot_handle* b = zk_create_robot_arm(zk_test::ScriptedController::ip(), second.port());
    ASSERT_EQ(a->id, 1);
    ASSERT_EQ(b->id, 2);
    second.on("get_x").reply(R"({"command":"get_x","x":2})");
    first.on("get_x").reply(R"({"command":"get_x","x":1})").after(30ms);
    int va = 0, vb = 0;
    std::thread t([&] { EXPECT_EQ(zk_get_data_common(a, &va, "get_x", "x"), 0); });
    EXPECT_EQ(zk_get_data_common(b, &vb, "get_x", "x"), 0);
    t.join();
    EXPECT_EQ(va, 1);
    EXPECT_EQ(vb, 2);
    zk_robot_info_t info{};
    zk_get_robot_info(b, &info);
    EXPECT_EQ(info.arm_model, ZK_MODEL_TOR_77_E);
    zk_destory();
}

}  // namespace
