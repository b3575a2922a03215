// A library started in one thread mode with one arm connected to a scripted controller:
// the starting point of every wire test of a command family.
#pragma once

#include <string>

#include "support/scripted_controller.h"
#include "zk_api.h"

namespace zk_test {

class ConnectedArm {
public:
    explicit ConnectedArm(zk_thread_mode_e mode = ZK_SINGLE_MODE_E, const std::string& product = "ZK-AX61-B");
    ~ConnectedArm();
    ConnectedArm(const ConnectedArm&) = delete;
    ConnectedArm& operator=(const ConnectedArm&) = delete;

    ScriptedController& controller() { return controller_; }
    zk_robot_handle* handle() const { return handle_; }
    // The frames the arm sent after it was connected (the sync queries left out).
    std::vector<std::string> sent() const;
    std::string last_sent() const { return controller_.last_frame(); }
    // Waits until the arm has sent `count` frames after connecting.
    bool wait_sent(size_t count) const { return controller_.wait_for_frames(frames_at_connect_ + count); }

private:
    ScriptedController controller_;
    zk_robot_handle* handle_ = nullptr;
    size_t frames_at_connect_ = 0;
};

}  // namespace zk_test
