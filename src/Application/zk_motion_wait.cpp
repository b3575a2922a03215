#include "Application/zk_motion_wait.h"

#include <chrono>
#include <thread>

#include "Application/zk_exchange.h"
#include "Middleware/log.h"

namespace {

constexpr const char* kEndFrameName = "current_trajectory_state";

// Between two trajectory queries while the arm moves.
constexpr auto kPlanningPollPause = std::chrono::milliseconds(100);
// More idle readings than this, with the move never seen planned, count as a move that
// ended before the first query.
constexpr int kIdleReadingsBeforeArrival = 9;
// More failed queries than this, counted over the whole wait, end it.
constexpr int kFailedQueryLimit = 5;
// The query-first loop's last look for the end frame, once nothing is planned.
constexpr int kQueryFirstEndFrameTimeout = 1000;

// Kept large enough for the largest arm, whatever the move planned.
constexpr int kTrajectoryValues = 7;

struct EndFrame {
    bool came;
    int result;  // parse_zk_move_command's: 1 ended, 0 failed, else unreadable
    int device;
    int trajectory_connect;
};

EndFrame await_end_frame(const char* caller, zk_robot_handle* handle, int timeout)
{
    // A fresh, zeroed buffer for every wait: the frame copy is not terminated.
    char frame[kMoveReplyBufferSize] = {};
    const int length = zk_pack_lock_set(caller, handle, nullptr, 0, kEndFrameName, reinterpret_cast<uint8_t*>(frame),
                                        sizeof frame, timeout);
    if (length < 1) return {false, 0, 0, 0};
    EndFrame end{true, 0, 0, 0};
    end.result = parse_zk_move_command(frame, &end.device, &end.trajectory_connect);
    return end;
}

// A failed motion reads as 1 (refused), an unreadable frame as the parser's own result.
constexpr int failed_frame_result(int parse_result) { return parse_result == 0 ? 1 : parse_result; }

void pause_between_queries() { std::this_thread::sleep_for(kPlanningPollPause); }

}  // namespace

int zk_motion_wait_loop(zk_robot_handle* handle, const ZkMotionWait& wait)
{
    const bool watch_first = wait.loop == ZkWaitLoop::kWatchFirst;
    bool seen = false;
    int idle = 0;
    int failed = 0;
    for (;;) {
        // A move's round begins by looking for its end frame; the wait goes on while the
        // frame belongs to a connected trajectory or to another device.
        if (watch_first) {
            const EndFrame end = await_end_frame(wait.caller, handle, m_nOutTime);
            if (end.came) {
                if (end.result != 1) return failed_frame_result(end.result);
                if (end.device == 0 && end.trajectory_connect == 0) return 0;
                continue;
            }
        }

        zk_arm_current_trajectory_e kind = ZK_NO_PLANNING_E;
        float values[kTrajectoryValues] = {};
        const int queried = zk_get_arm_current_trajectory(handle, &kind, values);
        if (queried != 0) {
            if (++failed > kFailedQueryLimit) return queried;
            continue;
        }
        if (kind == wait.wanted) {
            seen = true;
            if (wait.pause_while_wanted) pause_between_queries();
            continue;
        }
        if (kind != ZK_NO_PLANNING_E) {
            pause_between_queries();
            continue;
        }
        if (!seen && idle <= kIdleReadingsBeforeArrival) {
            ++idle;  // stops counting once past the limit: from then on it stays past it
            if (idle <= kIdleReadingsBeforeArrival) {
                pause_between_queries();
                continue;
            }
        }

        // Nothing is planned any more: the end frame should be here or on its way.
        const EndFrame end =
            await_end_frame(wait.caller, handle, watch_first ? m_nOutTime.load() : kQueryFirstEndFrameTimeout);
        if (!end.came) {
            pause_between_queries();
            continue;
        }
        if (end.result != 1) return failed_frame_result(end.result);
        if (end.trajectory_connect == 1) continue;
        if (end.device == 0 && end.trajectory_connect == 0) return 0;
        zk_log_error("[%s] current device is: %d \n", wait.caller, end.device);
        return -4;
    }
}

int zk_movecmd_singlemode_parse(zk_robot_handle* handle, int timeout, int device)
{
    // A negative count never reaches 0: it is not decremented, which also keeps it from
    // wrapping.
    for (int rounds = timeout; rounds != 0; rounds = rounds > 0 ? rounds - 1 : rounds) {
        char frame[kMoveReplyBufferSize] = {};
        int frame_device = 0;
        int trajectory_connect = 0;
        const int result = parse_zk_move_command(frame, &frame_device, &trajectory_connect);
        if (result != 1) return failed_frame_result(result);
        if (frame_device == device && trajectory_connect == 0) return 0;
    }
    return -5;
}

int zk_motion_await_arrival(zk_robot_handle* handle, const ZkMotionWait& wait, int block, int exchange_length)
{
    switch (g_mode.load()) {
    case ZK_DUAL_MODE_E:
    case ZK_TRIPLE_MODE_E: return zk_motion_wait_loop(handle, wait);
    case ZK_SINGLE_MODE_E: return zk_movecmd_singlemode_parse(handle, block, 0);
    default: return exchange_length;
    }
}
