#include "simulator/sim_arm.h"

#include <algorithm>
#include <cmath>

namespace zk_sim {

namespace {

// A smooth start and stop: s(u) = 3u^2 - 2u^3 peaks at 1.5 times the mean speed, so a move
// lasts 1.5 times what its farthest joint needs at top speed.
constexpr double kProfilePeakRatio = 1.5;
double profile(double u) { return u * u * (3 - 2 * u); }

// Joints closer than this to a pass-through set point count as there, degrees.
constexpr double kFollowTolerance = 1e-6;

}  // namespace

const char* sim_motion_kind_text(MotionKind kind)
{
    switch (kind) {
    case MotionKind::none: return "none";
    case MotionKind::joint: return "movej";
    case MotionKind::linear: return "movel";
    case MotionKind::arc: return "movec";
    case MotionKind::spline: return "moves";
    case MotionKind::replay: return "re_trajectory";
    }
    return "none";
}

const char* sim_arm_status_text(ArmStatus status)
{
    switch (status) {
    case ArmStatus::idle: return "idle";
    case ArmStatus::move_l: return "move_L";
    case ArmStatus::move_j: return "move_J";
    case ArmStatus::move_c: return "move_C";
    case ArmStatus::move_s: return "move_S";
    case ArmStatus::through_joint: return "move_through_joint";
    case ArmStatus::through_pose: return "move_through_pose";
    case ArmStatus::stop: return "stop";
    case ArmStatus::slow_stop: return "slow_stop";
    case ArmStatus::pause: return "pause";
    }
    return "idle";
}

SimArm::SimArm(const SimModel& model, const Joints& initial, double speed_scale)
    : model_(model), speed_scale_(speed_scale)
{
    for (int i = 0; i < model_.dof; ++i) joints_[i] = std::clamp(initial[i], model_.min_pos[i], model_.max_pos[i]);
}

bool SimArm::within_limits(const Joints& joints) const
{
    for (int i = 0; i < model_.dof; ++i)
        if (!std::isfinite(joints[i]) || joints[i] > model_.max_pos[i] || joints[i] < model_.min_pos[i]) return false;
    return true;
}

double SimArm::speed_fraction(int v) const { return std::clamp(v, 1, 100) / 100.0 * speed_scale_; }

// -----------------------------------------------------------------------------------------
// Planned moves
// -----------------------------------------------------------------------------------------

bool SimArm::plan(const MoveRequest& move)
{
    if (!within_limits(move.target) || jog_ != Jog::none || braking_) return false;
    if (queue_.size() > kMaxQueuedMoves) return false;
    following_ = false;
    Segment segment;
    segment.move = move;
    queue_.push_back(segment);
    return true;
}

Joints SimArm::planned_end() const { return queue_.empty() ? joints_ : queue_.back().move.target; }

MotionKind SimArm::current_kind() const { return queue_.empty() ? MotionKind::none : queue_.front().move.kind; }

ArmStatus SimArm::status() const
{
    if (paused_ && !queue_.empty()) return ArmStatus::pause;
    if (braking_) return ArmStatus::slow_stop;
    switch (current_kind()) {
    case MotionKind::joint: return ArmStatus::move_j;
    case MotionKind::linear: return ArmStatus::move_l;
    case MotionKind::arc: return ArmStatus::move_c;
    case MotionKind::spline: return ArmStatus::move_s;
    case MotionKind::replay: return ArmStatus::move_j;
    case MotionKind::none: break;
    }
    if (jog_ == Jog::joint) return ArmStatus::move_j;
    if (jog_ != Jog::none) return ArmStatus::move_l;
    if (following_) return follow_pose_form_ ? ArmStatus::through_pose : ArmStatus::through_joint;
    return rest_status_;
}

void SimArm::begin(Segment& segment)
{
    segment.start = joints_;
    const double fraction = speed_fraction(segment.move.v);
    double longest = 0;
    for (int i = 0; i < model_.dof; ++i) {
        const double travel = std::fabs(segment.move.target[i] - joints_[i]);
        longest = std::max(longest, kProfilePeakRatio * travel / (model_.max_speed[i] * fraction));
    }
    segment.duration = longest;
    segment.elapsed = 0;
    segment.started = true;
}

void SimArm::advance_segment(double seconds, std::vector<TrajectoryEnd>* ended)
{
    Segment& segment = queue_.front();
    if (!segment.started) begin(segment);
    segment.elapsed += seconds;
    Joints next = segment.move.target;
    if (segment.elapsed < segment.duration) {
        const double s = profile(segment.elapsed / segment.duration);
        for (int i = 0; i < model_.dof; ++i) next[i] = segment.start[i] + (segment.move.target[i] - segment.start[i]) * s;
    }
    move_to(next, seconds);
    if (segment.elapsed >= segment.duration) {
        ended->push_back({segment.move.owner, true, segment.move.trajectory_connect});
        queue_.pop_front();
        rest_status_ = ArmStatus::idle;
    }
}

// -----------------------------------------------------------------------------------------
// Stops
// -----------------------------------------------------------------------------------------

// Tells each owner of a dropped move once that its trajectory ended short.
void SimArm::drop_all(std::vector<TrajectoryEnd>* ended)
{
    std::vector<int> owners;
    for (const Segment& segment : queue_)
        if (std::find(owners.begin(), owners.end(), segment.move.owner) == owners.end())
            owners.push_back(segment.move.owner);
    for (int owner : brake_owners_)
        if (std::find(owners.begin(), owners.end(), owner) == owners.end()) owners.push_back(owner);
    for (int owner : owners) ended->push_back({owner, false, 0});
    queue_.clear();
    brake_owners_.clear();
    braking_ = false;
    paused_ = false;
}

void SimArm::stop(std::vector<TrajectoryEnd>* ended)
{
    drop_all(ended);
    jog_ = Jog::none;
    following_ = false;
    speeds_.fill(0);
    rest_status_ = ArmStatus::stop;
}

void SimArm::slow_stop(std::vector<TrajectoryEnd>* ended)
{
    const bool moving = std::any_of(speeds_.begin(), speeds_.end(), [](double s) { return s != 0; });
    if (paused_ || !moving) {
        stop(ended);
        rest_status_ = ArmStatus::slow_stop;
        return;
    }
    for (const Segment& segment : queue_) brake_owners_.push_back(segment.move.owner);
    queue_.clear();
    jog_ = Jog::none;
    following_ = false;
    braking_ = true;
    brake_left_ = kSlowStopSeconds;
    brake_speeds_ = speeds_;
}

void SimArm::advance_brake(double seconds, std::vector<TrajectoryEnd>* ended)
{
    const double step = std::min(seconds, brake_left_);
    // Speeds fall linearly to zero; the mean speed over this step moves the joints.
    const double before = brake_left_ / kSlowStopSeconds;
    const double after = (brake_left_ - step) / kSlowStopSeconds;
    Joints next = joints_;
    for (int i = 0; i < model_.dof; ++i) {
        next[i] += brake_speeds_[i] * (before + after) / 2 * step;
        next[i] = std::clamp(next[i], model_.min_pos[i], model_.max_pos[i]);
    }
    move_to(next, seconds);
    brake_left_ -= step;
    if (brake_left_ <= 0) {
        drop_all(ended);
        speeds_.fill(0);
        rest_status_ = ArmStatus::slow_stop;
    }
}

void SimArm::pause()
{
    if (!queue_.empty()) paused_ = true;
}

void SimArm::resume() { paused_ = false; }

void SimArm::delete_current(std::vector<TrajectoryEnd>* ended)
{
    if (queue_.empty()) return;
    ended->push_back({queue_.front().move.owner, false, queue_.front().move.trajectory_connect});
    queue_.pop_front();
    if (queue_.empty()) paused_ = false;
    speeds_.fill(0);
}

// -----------------------------------------------------------------------------------------
// Teach and pass-through
// -----------------------------------------------------------------------------------------

bool SimArm::teach_joint(int joint, int direction, int v)
{
    if (!queue_.empty() || braking_ || joint < 0 || joint >= model_.dof) return false;
    jog_ = Jog::joint;
    jog_axis_ = joint;
    jog_rate_ = (direction < 0 ? -1 : 1) * model_.max_speed[joint] * speed_fraction(v);
    following_ = false;
    return true;
}

bool SimArm::teach_cartesian(bool rotation, int axis, int direction, int v)
{
    if (!queue_.empty() || braking_ || axis < 0 || axis > 2) return false;
    jog_ = rotation ? Jog::orientation : Jog::position;
    jog_axis_ = axis;
    jog_rate_ = (direction < 0 ? -1 : 1) * (rotation ? kMaxAngularSpeed : kMaxLineSpeed) * speed_fraction(v);
    following_ = false;
    return true;
}

void SimArm::stop_teach()
{
    jog_ = Jog::none;
    speeds_.fill(0);
}

void SimArm::advance_jog(double seconds)
{
    Joints next = joints_;
    if (jog_ == Jog::joint) {
        next[jog_axis_] = std::clamp(next[jog_axis_] + jog_rate_ * seconds, model_.min_pos[jog_axis_],
                                     model_.max_pos[jog_axis_]);
    } else {
        SimPose pose = sim_pose_of(model_, joints_);
        if (jog_ == Jog::position)
            pose.position[jog_axis_] += jog_rate_ * seconds;
        else
            sim_rotate_about_base(&pose, jog_axis_, jog_rate_ * seconds);
        // Out of reach: the arm holds where it is until the teach ends.
        if (!sim_joints_near(model_, pose, joints_, &next)) next = joints_;
    }
    move_to(next, seconds);
}

bool SimArm::follow(const Joints& target, bool pose_form)
{
    if (!queue_.empty() || braking_ || !within_limits(target)) return false;
    jog_ = Jog::none;
    following_ = true;
    follow_pose_form_ = pose_form;
    follow_target_ = target;
    rest_status_ = ArmStatus::idle;
    return true;
}

void SimArm::advance_follow(double seconds)
{
    Joints next = joints_;
    bool there = true;
    for (int i = 0; i < model_.dof; ++i) {
        const double reach = model_.max_speed[i] * speed_scale_ * seconds;
        const double gap = follow_target_[i] - joints_[i];
        next[i] += std::clamp(gap, -reach, reach);
        if (std::fabs(follow_target_[i] - next[i]) > kFollowTolerance) there = false;
    }
    move_to(next, seconds);
    if (there) following_ = false;
}

// -----------------------------------------------------------------------------------------
// The control period
// -----------------------------------------------------------------------------------------

void SimArm::move_to(const Joints& next, double seconds)
{
    for (int i = 0; i < model_.dof; ++i) {
        speeds_[i] = seconds > 0 ? (next[i] - joints_[i]) / seconds : 0;
        odometer_[i] += std::fabs(next[i] - joints_[i]);
    }
    joints_ = next;
}

void SimArm::tick(double seconds, std::vector<TrajectoryEnd>* ended)
{
    if (braking_)
        advance_brake(seconds, ended);
    else if (!queue_.empty() && !paused_)
        advance_segment(seconds, ended);
    else if (jog_ != Jog::none)
        advance_jog(seconds);
    else if (following_)
        advance_follow(seconds);
    else
        speeds_.fill(0);
}

}  // namespace zk_sim
