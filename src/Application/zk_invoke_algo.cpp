// The invoke_ layer: the host's degrees and public records in, the algorithm library's
// radians and records out, and back.
#include "Application/zk_invoke_algo.h"

#include <chrono>
#include <cmath>
#include <mutex>

#include "Application/zk_algo_convert.h"

#include "libalgo_ikine7.h"
#include "libalgo_safety.h"

using namespace zk_algo;

Matrix Tool_Matrix = {};
Matrix Frame_Matrix = {};
float angleU = 0.0f;
float angleV = 0.0f;
float angleH = 0.0f;
bool defaut_traversal_mode = true;
double invoke_inverse_time_total_min = 10000.0;
double invoke_inverse_time_total_max = 0.0;

namespace {

std::recursive_mutex& facade_mutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

}  // namespace

ZkAlgoLock::ZkAlgoLock() { facade_mutex().lock(); }
ZkAlgoLock::~ZkAlgoLock() { facade_mutex().unlock(); }

void zk_algo_store_tool_matrix(const Matrix& m)
{
    ZkAlgoLock lock;
    Tool_Matrix = m;
}

void zk_algo_store_frame_matrix(const Matrix& m)
{
    ZkAlgoLock lock;
    Frame_Matrix = m;
}

int get_time_of_day(struct timeval* tv)
{
    if (tv == nullptr) return -1;
    constexpr uint64_t kTicksPerMicrosecond = 10;  // file time counts 100 ns
    constexpr uint64_t kMicrosecondsPerSecond = 1000000;
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    const uint64_t file_time =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(since_1970).count() / 100) +
        EPOCH_DIFFERENCE;
    const uint64_t micros = (file_time - EPOCH_DIFFERENCE) / kTicksPerMicrosecond;
    tv->tv_sec = static_cast<time_t>(micros / kMicrosecondsPerSecond);
    tv->tv_usec = static_cast<suseconds_t>(micros % kMicrosecondsPerSecond);
    return 0;
}

/* -----------------------------------------------------------------------------
 * Model and parameters
 * -------------------------------------------------------------------------- */

RobotType invoke_robot_type_of(int model)
{
    // Indexed by zk_robot_arm_model_e. The third AL64 form of the client is the arm that the
    // library knows as its fourth form; AL64III of the library is an older arm.
    static constexpr RobotType kRobotTypeOfModel[] = {
        AX61,    // ZK_MODEL_AX_61_E
        AX71,    // ZK_MODEL_AX_71_E
        AL64I,   // ZK_MODEL_AL_64_I_E
        AL64II,  // ZK_MODEL_AL_64_II_E
        AL64IV,  // ZK_MODEL_AL_64_III_E
        LUM61,   // ZK_MODEL_LUM_61_E
        LUM66,   // ZK_MODEL_LUM_66_E
        TOR77,   // ZK_MODEL_TOR_77_E
        LUM67,   // ZK_MODEL_LUM_67_E
    };
    if (model < 0 || model >= static_cast<int>(std::size(kRobotTypeOfModel))) return AX61;
    return kRobotTypeOfModel[model];
}

SensorType invoke_sensor_type_of(int force)
{
    // Indexed by zk_force_type_e: the editions are numbered alike.
    static constexpr SensorType kSensorTypeOfForce[] = {
        _B,   // ZK_MODEL_ZK_B_E
        _QF,  // ZK_MODEL_ZK_QF_E
        _XF,  // ZK_MODEL_ZK_XF_E
        IXF,  // ZK_MODEL_ZK_IXF_E
    };
    if (force < 0 || force >= static_cast<int>(std::size(kSensorTypeOfForce))) return _B;
    return kSensorTypeOfForce[force];
}

int invoke_libalgo_init_sys_data(int model, int force)
{
    libalgo_init();
    return libalgo_set_robot_and_sensor_type(invoke_robot_type_of(model), invoke_sensor_type_of(force));
}

void invoke_libalgo_set_robot_install_angle(float x_deg, float y_deg, float z_deg)
{
    const auto to_rad = [](float deg) { return static_cast<float>(static_cast<double>(deg) * kPi / kHalfTurnDeg); };
    angleU = to_rad(x_deg);
    angleV = to_rad(y_deg);
    angleH = to_rad(z_deg);
    const Euler angle{angleU, angleV, angleH};
    libalgo_set_robot_install_angle(&angle);
}

void invoke_libalgo_get_robot_install_angle(float* x_deg, float* y_deg, float* z_deg)
{
    const Euler angle = libalgo_get_robot_install_angle();
    *x_deg = rad_to_deg(angle.rx);
    *y_deg = rad_to_deg(angle.ry);
    *z_deg = rad_to_deg(angle.rz);
}

// Frames carry metres and radians like the library: only the records differ.
namespace {

Coord coord_of(const zk_frame_t& frame)
{
    const zk_pose_t& p = frame.pose;
    return Coord{p.position.x, p.position.y, p.position.z, p.euler.rx, p.euler.ry, p.euler.rz};
}

void pose_of(const Coord& c, zk_frame_t* frame)
{
    zk_pose_t& p = frame->pose;
    p.position = zk_position_t{c.x, c.y, c.z};
    p.euler = zk_euler_t{c.rx, c.ry, c.rz};
    p.quaternion = to_zk_quat(euler_to_quat(Euler{c.rx, c.ry, c.rz}));
}

}  // namespace

void invoke_libalgo_set_work_cs_params(const zk_frame_t& frame)
{
    const Coord work = coord_of(frame);
    libalgo_set_work_cs_params(&work);
}

void invoke_libalgo_get_work_cs_params(zk_frame_t* frame) { pose_of(libalgo_get_work_cs_params(), frame); }

void invoke_libalgo_set_tool_cs_params(const zk_frame_t& frame)
{
    const Coord tool = coord_of(frame);
    libalgo_set_tool_cs_params(&tool);
    PayloadCfg payload{};
    payload.mass = frame.payload;
    payload.com[0] = frame.x;
    payload.com[1] = frame.y;
    payload.com[2] = frame.z;
    libalgo_set_payload_params(&payload);
}

void invoke_libalgo_get_tool_cs_params(zk_frame_t* frame)
{
    pose_of(libalgo_get_tool_cs_params(), frame);
    const PayloadCfg payload = libalgo_get_payload_params();
    frame->payload = payload.mass;
    frame->x = payload.com[0];
    frame->y = payload.com[1];
    frame->z = payload.com[2];
}

// The four joint limit arrays differ only in their store and their factors.
namespace {

struct JointQuantity {
    void (*store)(const float*);
    void (*load)(float*);
    float scale;     // applied in single precision before the degree conversion, removed after
    double to_rad;   // degree factor of the set direction
};

constexpr JointQuantity kJointMaxPos{libalgo_set_jointlim_max, libalgo_get_jointlim_max, 1.0f, kDegToRad};
constexpr JointQuantity kJointMinPos{libalgo_set_jointlim_min, libalgo_get_jointlim_min, 1.0f, kDegToRad};
constexpr JointQuantity kJointMaxVel{libalgo_set_joint_vel_maxlim, libalgo_get_joint_vel_maxlim, 1.0f, kDegToRadSpeed};
// The controller's joint acceleration unit is six times finer than degrees per second squared.
constexpr JointQuantity kJointMaxAcc{libalgo_set_joint_acc_maxlim, libalgo_get_joint_acc_maxlim, 6.0f, kDegToRad};

void set_joints(const JointQuantity& quantity, const float* values)
{
    float q[LIBALGO_MAX_JOINTS];
    quantity.load(q);  // the joints beyond the model keep what they hold
    for (int i = 0; i < model_joints(); ++i) q[i] = deg_to_rad(values[i] * quantity.scale, quantity.to_rad);
    quantity.store(q);
}

void get_joints(const JointQuantity& quantity, float* values)
{
    float q[LIBALGO_MAX_JOINTS];
    quantity.load(q);
    for (int i = 0; i < model_joints(); ++i) values[i] = rad_to_deg(q[i]) / quantity.scale;
}

}  // namespace

void invoke_libalgo_set_jointlim_max(const float* q_deg) { set_joints(kJointMaxPos, q_deg); }
void invoke_libalgo_get_jointlim_max(float* q_deg) { get_joints(kJointMaxPos, q_deg); }
void invoke_libalgo_set_jointlim_min(const float* q_deg) { set_joints(kJointMinPos, q_deg); }
void invoke_libalgo_get_jointlim_min(float* q_deg) { get_joints(kJointMinPos, q_deg); }
void invoke_libalgo_set_joint_vel_maxlim(const float* v_deg) { set_joints(kJointMaxVel, v_deg); }
void invoke_libalgo_get_joint_vel_maxlim(float* v_deg) { get_joints(kJointMaxVel, v_deg); }
void invoke_libalgo_set_joint_acc_maxlim(const float* a) { set_joints(kJointMaxAcc, a); }
void invoke_libalgo_get_joint_acc_maxlim(float* a) { get_joints(kJointMaxAcc, a); }

void invoke_libalgo_set_dh_params(const DH& dh_deg)
{
    DH dh = dh_deg;
    for (int i = 0; i < LIBALGO_MAX_JOINTS; ++i) {
        dh.alpha[i] = deg_to_rad(dh_deg.alpha[i]);
        dh.offset[i] = deg_to_rad(dh_deg.offset[i]);
    }
    libalgo_set_dh_params(&dh);
}

zk_dh_t invoke_libalgo_get_dh_value()
{
    const DH dh = libalgo_get_dh_value();
    zk_dh_t r{};
    for (int i = 0; i < LIBALGO_MAX_JOINTS; ++i) {
        r.d[i] = dh.d[i];
        r.a[i] = dh.a[i];
        r.alpha[i] = rad_to_deg(dh.alpha[i]);
        r.offset[i] = rad_to_deg(dh.offset[i]);
    }
    return r;
}

int invoke_libalgo_set_tool_envelope(int index, const zk_tool_sphere_t& sphere)
{
    const ToolSphere s{sphere.radius, sphere.centrePoint[0], sphere.centrePoint[1], sphere.centrePoint[2]};
    return libalgo_set_tool_envelope(index, s);
}

int invoke_libalgo_get_tool_envelope(int index, zk_tool_sphere_t* sphere)
{
    ToolSphere s{};
    const int result = libalgo_get_tool_envelope(index, &s);
    if (result != 0) return result;
    *sphere = zk_tool_sphere_t{s.r, {s.x, s.y, s.z}};
    return 0;
}

void invoke_kin_set_singularity_thresholds(float q_elbow_deg, float q_wrist_deg, float d_shoulder)
{
    kin_set_singularity_thresholds(deg_to_rad(q_elbow_deg), deg_to_rad(q_wrist_deg), d_shoulder);
}

void invoke_kin_get_singularity_thresholds(float* q_elbow_deg, float* q_wrist_deg, float* d_shoulder)
{
    float q_elbow = 0.0f;
    float q_wrist = 0.0f;
    kin_get_singularity_thresholds(&q_elbow, &q_wrist, d_shoulder);
    if (q_elbow_deg != nullptr) *q_elbow_deg = rad_to_deg(q_elbow);
    if (q_wrist_deg != nullptr) *q_wrist_deg = rad_to_deg(q_wrist);
}

/* -----------------------------------------------------------------------------
 * Kinematics
 * -------------------------------------------------------------------------- */

zk_pose_t invoke_forward_kinematics(const float* q_deg)
{
    const JointsRad q = joints_to_rad(q_deg);
    return to_zk_pose(forward_kinematics(q.q));
}

Matrix invoke_forward_kinematics_e(const float* q_deg)
{
    const JointsRad q = joints_to_rad(q_deg);
    return forward_kinematics_e(q.q);
}

namespace {

// The library reads the target's Euler angles for flag 1 and its quaternion for any other;
// the interface's 0 is passed on as the library's own quaternion flag.
constexpr uint8_t kTargetByQuaternion = 2;

uint8_t library_flag(uint8_t flag) { return flag == 0 ? kTargetByQuaternion : flag; }

}  // namespace

int invoke_inverse_kinematics(const float* q_in, zk_pose_t q_pose, float* q_out, uint8_t flag)
{
    const JointsRad q_ref = joints_to_rad(q_in);
    float q_solved[LIBALGO_MAX_JOINTS] = {};
    const int result = inverse_kinematics(q_ref.q, to_pose(q_pose), q_solved, library_flag(flag));
    if (result == 0) joints_to_deg(q_solved, q_out, model_joints(), kRadToDegSolve);
    return result;
}

zk_inverse_kinematics_all_solve_t invoke_inverse_kinematics_all(const float* q_in, zk_pose_t q_pose, uint8_t flag)
{
    const int n = model_joints();
    const JointsRad q_ref = joints_to_rad(q_in);
    zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q_ref.q, to_pose(q_pose), library_flag(flag));
    for (int j = 0; j < n; ++j) all.q_ref[j] = q_in[j];
    const int rows = all.num < 0 ? 0 : (all.num > LIBALGO_IK_MAX_SOLUTIONS ? LIBALGO_IK_MAX_SOLUTIONS : all.num);
    for (int i = 0; i < rows; ++i) joints_to_deg(all.q_solve[i], all.q_solve[i], n, kRadToDegSolve);
    return all;
}

int invoke_inverse_kinematics_with_judgment_overspeed(const float* q_in, zk_pose_t q_pose, float* q_out,
                                                      uint8_t flag)
{
    ZkAlgoLock lock;
    const JointsRad q_ref = joints_to_rad(q_in);
    // The sweep of the seven-axis arm is far too slow for a timed, per-cycle solve.
    constexpr float kTrackingRange = 0.013f;
    if (libalgo_get_robot_type() == AX71) ikine_set_solution_range_ax71(kTrackingRange);

    float q_solved[LIBALGO_MAX_JOINTS] = {};
    timeval start{};
    timeval end{};
    get_time_of_day(&start);
    int result = inverse_kinematics(q_ref.q, to_pose(q_pose), q_solved, flag);
    get_time_of_day(&end);

    constexpr double kMsPerSecond = 1000.0;
    constexpr double kMsPerMicrosecond = 0.001;
    const double elapsed_ms = static_cast<double>(end.tv_sec - start.tv_sec) * kMsPerSecond +
                              static_cast<double>(end.tv_usec - start.tv_usec) * kMsPerMicrosecond;
    if (elapsed_ms < invoke_inverse_time_total_min)
        invoke_inverse_time_total_min = elapsed_ms;
    else if (elapsed_ms > invoke_inverse_time_total_max)
        invoke_inverse_time_total_max = elapsed_ms;

    if (result == 0) {
        joints_to_deg(q_solved, q_out, model_joints(), kRadToDegSolve);
        result = invoke_joint_overspeed_judgment(q_in, q_out, 1.0f);
    }
    return result;
}

int invoke_joint_overspeed_judgment(const float* q_current_deg, const float* q_solve_deg, float vel_factor)
{
    const JointsRad from = joints_to_rad(q_current_deg);
    const JointsRad to = joints_to_rad(q_solve_deg);
    return joint_overspeed_judgment(from.q, to.q, vel_factor);
}

int invoke_ikine_select_ik_solve(const float* weight, const zk_inverse_kinematics_all_solve_t& solutions_deg)
{
    const int n = model_joints();
    zk_inverse_kinematics_all_solve_t solutions = solutions_deg;
    const JointsRad q_ref = joints_to_rad(solutions_deg.q_ref, n);
    for (int j = 0; j < LIBALGO_MAX_JOINTS; ++j) solutions.q_ref[j] = q_ref.q[j];
    const int rows = solutions.num < 0 ? 0 : (solutions.num > LIBALGO_IK_MAX_SOLUTIONS ? LIBALGO_IK_MAX_SOLUTIONS
                                                                                        : solutions.num);
    for (int i = 0; i < rows; ++i) {
        const JointsRad row = joints_to_rad(solutions_deg.q_solve[i], n);
        for (int j = 0; j < LIBALGO_MAX_JOINTS; ++j) solutions.q_solve[i][j] = row.q[j];
    }
    return ikine_select_ik_solve(weight, solutions);
}

int invoke_ikine_check_joint_position_limit(const float* q_deg)
{
    const JointsRad q = joints_to_rad(q_deg);
    return ikine_check_joint_position_limit(q.q);
}

int invoke_ikine_check_joint_velocity_limit(float dt, const float* q_from_deg, const float* q_to_deg)
{
    const JointsRad from = joints_to_rad(q_from_deg);
    const JointsRad to = joints_to_rad(q_to_deg);
    return ikine_check_joint_velocity_limit(dt, from.q, to.q);
}

int invoke_kin_robot_singularity_analyse(const float* q_deg, float* distance)
{
    const JointsRad q = joints_to_rad(q_deg);
    return kin_robot_singularity_analyse(q.q, "machine", distance);
}

int invoke_kine_robot_universal_singularity_analyse(const float* q_deg, float* threshold)
{
    const JointsRad q = joints_to_rad(q_deg);
    return kine_robot_universal_singularity_analyse(q.q, threshold);
}

int invoke_safety_robot_self_collision_detection(const float* q_deg)
{
    const JointsRad q = joints_to_rad(q_deg);
    return safety_robot_self_collision_detection(q.q);
}

/* -----------------------------------------------------------------------------
 * Arm angle of the seven-axis SRS arm
 * -------------------------------------------------------------------------- */

int invoke_calculate_arm_angle_from_config_ax71(const float* q_ref_deg, float* arm_angle_deg)
{
    JointsRad q = joints_to_rad(q_ref_deg);  // the solver adds the offsets in place
    float arm_angle = 0.0f;
    const int result = calculate_arm_angle_from_config_ax71(q.q, &arm_angle);
    if (result == 0) *arm_angle_deg = rad_to_deg(arm_angle);
    return result;
}

int invoke_inverse_kinematics_ax71_for_arm_angle(const zk_inverse_kinematics_params_t& params_deg,
                                                 float arm_angle_deg, float* q_solve_deg)
{
    zk_inverse_kinematics_params_t params = params_deg;
    const JointsRad q_ref = joints_to_rad(params_deg.q_in, kMaxArmJoints);
    for (int j = 0; j < kMaxArmJoints; ++j) params.q_in[j] = q_ref.q[j];
    float q_solved[LIBALGO_MAX_JOINTS] = {};
    const int result = inverse_kinematics_ax71_for_arm_angle(params, deg_to_rad(arm_angle_deg), q_solved);
    // Outside the limits the solution is written all the same.
    if (result == 0 || result == -1) joints_to_deg(q_solved, q_solve_deg, model_joints());
    return result;
}
