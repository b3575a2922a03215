// Plays an arm in motion on a scripted controller: every "get_arm_current_trajectory" query
// is answered from a script of planning kinds, and end frames are pushed on cue, so that a
// test can lead a blocking move's wait down any of its branches.
//
//   MovingArmScript arm_motion(arm.controller());
//   arm_motion.accept("movej");
//   arm_motion.kinds({"movej", "movej", "none"}).push_after_query(3, MovingArmScript::end_frame(true, 0, 0));
//   EXPECT_EQ(zk_movej(handle, joints, 10, 0, 0, 1), 0);
//   EXPECT_EQ(arm_motion.queries(), 3);
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/scripted_controller.h"

namespace zk_test {

class MovingArmScript {
public:
    explicit MovingArmScript(ScriptedController& controller);

    // The "type" answered to successive queries; the last one repeats. "none", "movej",
    // "movel", "moves", "movec", "re_trajectory", or any other text (which the library
    // refuses); an empty text answers nothing at all.
    MovingArmScript& kinds(std::vector<std::string> kinds);
    // Sends this frame right behind the answer to query number `query` (1 for the first).
    MovingArmScript& push_after_query(int query, const std::string& frame);
    // Answers the next frame named `command` with "receive_state"; chain .then(frame) on the
    // result to push an end frame right behind the answer.
    Reply& accept(const std::string& command, bool accepted = true);

    int queries() const;

    // A "current_trajectory_state" frame.
    static std::string end_frame(bool trajectory_state, int device, int trajectory_connect);

private:
    struct Script {
        mutable std::mutex mutex;
        std::vector<std::string> kinds{"none"};
        std::multimap<int, std::string> cues;
        int queries = 0;
    };

    static std::string answer_query(Script& script);

    ScriptedController& controller_;
    std::shared_ptr<Script> script_;  // shared with the controller's thread, which may outlive this object
};

}  // namespace zk_test
