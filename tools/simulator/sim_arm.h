// The simulated arm: joints that move. Planned moves run one after another at the control
// period, each along a smooth joint-space profile whose speed follows the move's "v"; teach
// commands jog until stopped; pass-through frames are followed at the joints' top speed.
// Not thread-safe: the simulator's loop owns it.
#pragma once

#include <deque>
#include <vector>

#include "simulator/sim_kinematics.h"
#include "simulator/sim_model.h"

namespace zk_sim {

// Planning kinds, in the order of their wire numbers.
enum class MotionKind { none = 0, joint = 1, linear = 2, arc = 3, spline = 4, replay = 5 };
// Wire text of a kind: "none", "movej", "movel", "movec", "moves", "re_trajectory".
const char* sim_motion_kind_text(MotionKind kind);

enum class ArmStatus { idle, move_l, move_j, move_c, move_s, through_joint, through_pose, stop, slow_stop, pause };
// Wire text of a status: "idle", "move_L", "move_J" ...
const char* sim_arm_status_text(ArmStatus status);

struct MoveRequest {
    MotionKind kind = MotionKind::joint;
    Joints target{};  // degrees
    int v = 100;      // percent of top speed
    int trajectory_connect = 0;
    int owner = 0;  // who is told when it ends
};

// A trajectory came to its end: arrived, or cut short by a stop.
struct TrajectoryEnd {
    int owner;
    bool arrived;
    int trajectory_connect;
};

// How long a slow stop brakes, seconds.
constexpr double kSlowStopSeconds = 0.3;
// Top Cartesian speeds of a teach at v = 100: metres per second and radians per second.
constexpr double kMaxLineSpeed = 0.25;
constexpr double kMaxAngularSpeed = 0.6;
// Moves the arm accepts behind the one it runs.
constexpr size_t kMaxQueuedMoves = 100;

class SimArm {
public:
    SimArm(const SimModel& model, const Joints& initial, double speed_scale);

    // Queues a planned move behind any other. False when the target is outside the joint
    // limits, the queue is full, or the arm is being taught.
    bool plan(const MoveRequest& move);
    // Where the arm stands once every queued move has run: the seed of a Cartesian target.
    Joints planned_end() const;

    // Halts at once and drops every planned move; owners of dropped moves are told.
    void stop(std::vector<TrajectoryEnd>* ended);
    // Brakes over kSlowStopSeconds, then tells the owners, as stop does.
    void slow_stop(std::vector<TrajectoryEnd>* ended);
    void pause();
    void resume();
    // Drops the running move only; the next planned one starts.
    void delete_current(std::vector<TrajectoryEnd>* ended);

    // Jogs a joint (0-based), or the flange along or about a base axis (0 x, 1 y, 2 z), in
    // a direction (+1 or -1), until stop_teach. False while a planned move runs.
    bool teach_joint(int joint, int direction, int v);
    bool teach_cartesian(bool rotation, int axis, int direction, int v);
    void stop_teach();

    // Pass-through set point: approached at top speed from the next tick on. Ignored while
    // a planned move runs or when outside the limits.
    bool follow(const Joints& target, bool pose_form);

    // Advances the arm by one control period.
    void tick(double seconds, std::vector<TrajectoryEnd>* ended);

    const SimModel& model() const { return model_; }
    const Joints& joints() const { return joints_; }
    const Joints& speeds() const { return speeds_; }  // degrees per second
    const Joints& odometer() const { return odometer_; }  // degrees travelled per joint
    SimPose pose() const { return sim_pose_of(model_, joints_); }
    MotionKind current_kind() const;
    ArmStatus status() const;
    bool paused() const { return paused_; }

private:
    struct Segment {
        MoveRequest move;
        Joints start{};
        double duration = 0;
        double elapsed = 0;
        bool started = false;
    };
    enum class Jog { none, joint, position, orientation };

    bool within_limits(const Joints& joints) const;
    double speed_fraction(int v) const;
    void begin(Segment& segment);
    void advance_segment(double seconds, std::vector<TrajectoryEnd>* ended);
    void advance_brake(double seconds, std::vector<TrajectoryEnd>* ended);
    void advance_jog(double seconds);
    void advance_follow(double seconds);
    void drop_all(std::vector<TrajectoryEnd>* ended);
    void move_to(const Joints& next, double seconds);

    SimModel model_;
    double speed_scale_;
    Joints joints_{};
    Joints speeds_{};
    Joints odometer_{};
    std::deque<Segment> queue_;  // front is running
    bool paused_ = false;
    ArmStatus rest_status_ = ArmStatus::idle;  // what an arm at rest reports

    // Braking after a slow stop.
    bool braking_ = false;
    double brake_left_ = 0;
    Joints brake_speeds_{};
    std::vector<int> brake_owners_;

    Jog jog_ = Jog::none;
    int jog_axis_ = 0;
    double jog_rate_ = 0;  // degrees, metres or radians per second, signed

    bool following_ = false;
    bool follow_pose_form_ = false;
    Joints follow_target_{};
};

}  // namespace zk_sim
