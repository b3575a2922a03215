// Robot model: the store `robot`, the per-model defaults, and the libalgo_*
// functions that read and write it. Lengths in metres, angles in radians, times seconds.
#include "Algorithm/model/libalgo_interface.h"

#include <cmath>
#include <cstring>

#include "Algorithm/math/tarn_mathfuncs.h"

static_assert(sizeof(JointCfg) == 17 * sizeof(float), "a joint record is 17 floats");
static_assert(sizeof(LinkDynamicsParams) == 608, "the link dynamics block is 608 bytes");

namespace {

constexpr int kMaxJoints = LIBALGO_MAX_JOINTS;
constexpr float kDefaultControlPeriod = 0.002f;  // s
constexpr float kGravity = 9.81f;                // m/s^2
constexpr double kDhDefaultTol = 1e-10;          // libalgo_check_dh_params_is_default
constexpr float kDragFactorMin = 0.001f;         // smaller drag factors become 1.0
constexpr double kDegToRad = 0.017453292519943295;

constexpr Matrix identity4()
{
    Matrix m{};
    m.irow = 4;
    m.iline = 4;
    for (int i = 0; i < 4; ++i) m.data[i][i] = 1.0f;
    return m;
}

// The cleared store: all zero but the control period, gravity and identity frames.
constexpr RobotModel cleared_model()
{
    RobotModel m{};
    m.control_period = kDefaultControlPeriod;
    m.gravity[2] = -kGravity;
    m.install_matrix = identity4();
    m.tool_matrix = identity4();
    m.work_matrix = identity4();
    m.work_to_base_matrix = identity4();
    return m;
}

// Joints counted by the per-dof rules, clamped to the arrays.
int dof_count() { return tarn::clamp_dim(robot.rbt_dof, kMaxJoints); }

Matrix frame_matrix(float x, float y, float z, float rx, float ry, float rz)
{
    Pose p{};
    p.position = Pos{x, y, z};
    p.euler = Euler{rx, ry, rz};
    return pose_euler_to_transformation_matrix(p);
}

void copy8(float* dst, const float* src)
{
    if (dst && src) std::memcpy(dst, src, kMaxJoints * sizeof(float));
}

/* -----------------------------------------------------------------------------
 * Kinematic defaults per model. h = pi/2; F is the last joint's d by sensor.
 * -------------------------------------------------------------------------- */

constexpr float h = static_cast<float>(tarn::kHalfPi);
constexpr float h2 = static_cast<float>(tarn::kPi);
constexpr float kNone = -1.0f;  // a dash of the F table: the pair has no defaults

struct ModelDefaults {
    int16_t dof;
    float d[7];  // the last joint's entry is replaced by F
    float a[7];
    float alpha[7];
    float offset[7];
    float flange_d[4];   // F by SensorType _B, _QF, _XF, IXF; kNone: no defaults
    float max_deg[7];    // position limits, degrees
    float min_deg[7];
    float vel_deg[7];    // degrees per second
    float direction[7];  // over seven entries for every model
};

constexpr float kAccDeg = 1000.0f;  // maximum acceleration of every joint, deg/s^2

constexpr ModelDefaults kAX61 = {
    6,
    {0.2405f, 0, 0, 0.21f, 0, 0},
    {0, 0, 0.256f, 0, 0, 0},
    {0, h, 0, h, -h, h},
    {0, h, h, 0, 0, 0},
    {0.144f, 0.152f, 0.1725f, 0.1612f},
    {178, 130, 135, 178, 128, 360},
    {-178, -130, -135, -178, -128, -360},
    {180, 180, 225, 225, 225, 225},
    {1, 1, 1, 1, 1, 1, 1},
};

constexpr ModelDefaults kAX71 = {
    7,
    {0.2405f, 0, 0.256f, 0, 0.21f, 0, 0},
    {0, 0, 0, 0, 0, 0, 0},
    {-h, h, -h, h, -h, h, 0},
    {0, 0, 0, 0, 0, 0, 0},
    {0.144f, 0.152f, 0.1725f, 0.1612f},
    {178, 130, 178, 135, 178, 128, 360},
    {-178, -130, -178, -135, -178, -128, -360},
    {180, 180, 225, 225, 225, 225, 225},
    {1, 1, 1, 1, 1, 1, 1},
};

constexpr ModelDefaults kAL64II = {
    6,
    {0.172f, 0, 0, 0.405f, 0, 0},
    {0, -0.086f, 0.38f, 0.069f, 0, 0},
    {0, -h, 0, h, -h, -h},
    {0, -h, h, 0, h2, h2},
    {0.115f, 0.123f, 0.1435f, 0.1322f},
    {178, 178, 145, 178, 178, 360},
    {-178, -178, -178, -178, -178, -360},
    {180, 180, 225, 225, 225, 225},
    {1, -1, 1, 1, 1, 1, 1},
};

// With _QF or _XF the first d is 0.172 (kAL64IIIFirstDWithSensor).
constexpr ModelDefaults kAL64III = {
    6,
    {0.162f, -0.0084f, 0, 0.405f, 0, 0},
    {0, -0.086f, 0.38f, 0.069f, 0, 0},
    {0, -h, 0, h, -h, -h},
    {0, -h, h, 0, 0, 0},
    {0.115f, 0.123f, 0.1435f, kNone},
    {178, 178, 145, 178, 178, 360},
    {-178, -178, -178, -178, -178, -360},
    {180, 180, 225, 225, 225, 225},
    {1, -1, 1, 1, 1, 1, 1},
};
constexpr float kAL64IIIFirstDWithSensor = 0.172f;

constexpr ModelDefaults kAL64IV = {
    6,
    {0.1625f, 0, 0, 0.405f, 0, 0},
    {0, -0.086f, 0.38f, 0.069f, 0, 0},
    {0, -h, 0, h, -h, -h},
    {0, -h, h, 0, h2, h2},
    {0.1151f, 0.1231f, 0.1436f, 0.1323f},
    {178, 178, 145, 178, 178, 360},
    {-178, -178, -178, -178, -178, -360},
    {180, 180, 225, 225, 225, 225},
    {1, -1, 1, 1, 1, 1, 1},
};

constexpr ModelDefaults kLUM61 = {
    6,
    {0.1625f, 0, 0, -0.05888f, 0.11f, 0},
    {0, -0.086f, 0.26f, 0.24f, 0, 0},
    {0, -h, 0, 0, h, -h},
    {0, -h, 0, h, 0, 0},
    {0.0795f, 0.0875f, 0.108f, 0.0967f},
    {180, 180, 145, 140, 180, 180},
    {-180, -180, -160, -140, -180, -180},
    {180, 180, 225, 225, 225, 225},
    {1, -1, 1, -1, 1, 1, 1},
};

constexpr ModelDefaults kLUM66 = {
    6,
    {0.136f, 0, 0, -0.0585f, 0.071f, 0},
    {0, -0.07f, 0.148f, 0.136f, 0, 0},
    {0, -h, 0, 0, h, -h},
    {0, -h, 0, h, 0, 0},
    {0.0707f, kNone, kNone, kNone},
    {178, 110, 155, 178, 178, 360},
    {-178, -170, -155, -178, -178, -360},
    {225, 225, 225, 180, 180, 180},
    {1, -1, 1, -1, 1, 1, 1},
};

constexpr ModelDefaults kLUM67 = {
    6,
    {0.1625f, 0, 0, -0.0589f, 0.11f, 0},
    {0, -0.086f, 0.41f, 0.38f, 0, 0},
    {0, -h, 0, 0, h, -h},
    {0, -h, 0, h, 0, 0},
    {0.0795f, 0.0875f, 0.108f, 0.0967f},
    {178, 135, 158, 178, 178, 360},
    {-178, -178, -168, -178, -178, -360},
    {180, 180, 225, 225, 225, 225},
    {1, -1, 1, -1, 1, 1, 1},
};

constexpr ModelDefaults kTOR77 = {
    7,
    {0.218f, 0, 0.28f, 0, 0.2525f, 0, 0},
    {0, 0, 0, 0.04f, -0.019f, 0, 0.067f},
    {0, -h, h, h, -h, h, h},
    {0, 0, 0, 0, 0, h, 0},
    {0.0905f, kNone, kNone, kNone},
    {172, 105, 172, 55, 172, 120, 172},
    {-172, -105, -172, -170, -172, -90, -172},
    {180, 180, 180, 180, 225, 225, 225},
    {-1, 1, -1, 1, -1, 1, -1},
};

constexpr ModelDefaults kTOR77II = {
    7,
    {0.2052f, 0, 0.28f, 0, 0.2525f, 0, 0},
    {0, 0, 0, 0.04f, -0.019f, 0, 0.067f},
    {0, -h, h, h, -h, h, h},
    {0, 0, 0, 0, 0, h, 0},
    {0.0787f, kNone, kNone, kNone},
    {172, 105, 172, 55, 172, 120, 172},
    {-172, -105, -172, -170, -172, -90, -172},
    {180, 180, 180, 180, 225, 225, 225},
    {-1, 1, -1, 1, -1, 1, -1},
};

constexpr ModelDefaults kUNIVERSAL = {
    7,
    {0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0},
    {360, 360, 360, 360, 360, 360, 360},
    {-360, -360, -360, -360, -360, -360, -360},
    {300, 300, 300, 300, 300, 300, 300},
    {1, 1, 1, 1, 1, 1, 1},
};

// Indexed by RobotType; null: no defaults for any sensor (AL64I).
constexpr const ModelDefaults* kModelDefaults[] = {
    &kAX61,  &kAX71,  nullptr, &kAL64II,   &kAL64III, &kLUM61,
    &kLUM66, &kTOR77, &kLUM67, &kUNIVERSAL, &kAL64IV,  &kTOR77II,
};
constexpr int kModelCount = sizeof(kModelDefaults) / sizeof(kModelDefaults[0]);
constexpr int kSensorCount = 4;

/* -----------------------------------------------------------------------------
 * Link dynamics defaults. These tuning numbers are ours to choose;
 * they are plausible estimates, not identified values:
 *  - each link is a solid cylinder of the given mass, length and radius along one axis
 *    of its DH frame, centred at the given centre of mass; its inertia about the centre
 *    is m r^2 / 2 about the long axis and m (3 r^2 + L^2) / 12 about the other two;
 *  - a sensor adds its mass to the last link at half its height along z, the height
 *    being F(sensor) - F(_B), and moves that link's centre of mass accordingly;
 *  - the drive terms come from three classes by joint: base and shoulder (joints 1 and
 *    2), elbow (3 and 4), wrist (5 to 7), with armature = motor inertia x gear ratio^2.
 *  UNIVERSAL has no geometry and no link dynamics: they stay zero until set.
 * -------------------------------------------------------------------------- */

struct LinkShape {
    float mass;    // kg
    float com[3];  // m, in the link's DH frame
    float length;  // m
    float radius;  // m
    int axis;      // long axis: 0 x, 1 y, 2 z
};

struct DriveClass {
    float friction_coulomb, friction_viscous, friction_static, stribeck_vel;
    float gear_ratio, motor_inertia, torque_constant;
};

constexpr DriveClass kDriveBase = {3.5f, 2.0f, 4.2f, 0.04f, 101.0f, 3.3e-5f, 0.12f};
constexpr DriveClass kDriveElbow = {1.8f, 1.1f, 2.2f, 0.04f, 101.0f, 1.4e-5f, 0.09f};
constexpr DriveClass kDriveWrist = {0.8f, 0.5f, 1.0f, 0.05f, 51.0f, 6.0e-6f, 0.06f};

// Sensor masses by SensorType (_B bare, _QF, _XF, IXF), kg.
constexpr float kSensorMass[kSensorCount] = {0.0f, 0.23f, 0.42f, 0.31f};

using LinkTable = LinkShape[7];

constexpr LinkTable kLinksAX61 = {
    {3.2f, {0, -0.02f, -0.03f}, 0.24f, 0.060f, 2},
    {6.5f, {0.128f, 0, 0.11f}, 0.30f, 0.055f, 0},
    {2.6f, {0, -0.09f, 0.01f}, 0.21f, 0.045f, 1},
    {1.6f, {0, 0.005f, -0.02f}, 0.12f, 0.040f, 2},
    {1.4f, {0, -0.02f, 0.005f}, 0.11f, 0.038f, 1},
    {0.35f, {0, 0, -0.015f}, 0.04f, 0.035f, 2},
    {0, {0, 0, 0}, 0, 0, 2},
};
constexpr LinkTable kLinksAX71 = {
    {3.2f, {0, -0.02f, -0.03f}, 0.24f, 0.060f, 2},
    {2.8f, {0, 0.03f, 0.02f}, 0.14f, 0.055f, 1},
    {3.0f, {0, 0, -0.12f}, 0.26f, 0.050f, 2},
    {1.9f, {0, 0.03f, 0.01f}, 0.12f, 0.045f, 1},
    {1.6f, {0, 0, -0.10f}, 0.21f, 0.040f, 2},
    {1.3f, {0, 0.02f, 0.005f}, 0.10f, 0.038f, 1},
    {0.35f, {0, 0, -0.015f}, 0.04f, 0.035f, 2},
};
constexpr LinkTable kLinksAL64 = {
    {4.5f, {0, -0.02f, -0.04f}, 0.17f, 0.070f, 2},
    {8.8f, {0.19f, 0, 0.09f}, 0.38f, 0.060f, 0},
    {3.4f, {0.03f, -0.02f, 0.0f}, 0.14f, 0.050f, 0},
    {2.1f, {0, 0, -0.18f}, 0.40f, 0.042f, 2},
    {1.2f, {0, -0.01f, 0.0f}, 0.09f, 0.036f, 1},
    {0.40f, {0, 0, -0.02f}, 0.05f, 0.035f, 2},
    {0, {0, 0, 0}, 0, 0, 2},
};
constexpr LinkTable kLinksLUM61 = {
    {3.6f, {0, -0.02f, -0.04f}, 0.16f, 0.060f, 2},
    {7.2f, {0.13f, 0, 0.12f}, 0.26f, 0.055f, 0},
    {2.4f, {0.12f, 0, 0.02f}, 0.24f, 0.045f, 0},
    {1.3f, {0, -0.01f, -0.02f}, 0.09f, 0.038f, 2},
    {1.3f, {0, 0.01f, -0.02f}, 0.09f, 0.038f, 2},
    {0.35f, {0, 0, -0.015f}, 0.04f, 0.035f, 2},
    {0, {0, 0, 0}, 0, 0, 2},
};
constexpr LinkTable kLinksLUM66 = {
    {1.6f, {0, -0.01f, -0.03f}, 0.13f, 0.045f, 2},
    {3.0f, {0.074f, 0, 0.08f}, 0.15f, 0.040f, 0},
    {1.2f, {0.068f, 0, 0.01f}, 0.14f, 0.032f, 0},
    {0.7f, {0, -0.01f, -0.01f}, 0.07f, 0.028f, 2},
    {0.7f, {0, 0.01f, -0.01f}, 0.07f, 0.028f, 2},
    {0.20f, {0, 0, -0.01f}, 0.03f, 0.025f, 2},
    {0, {0, 0, 0}, 0, 0, 2},
};
constexpr LinkTable kLinksLUM67 = {
    {4.0f, {0, -0.02f, -0.04f}, 0.16f, 0.065f, 2},
    {10.5f, {0.205f, 0, 0.12f}, 0.41f, 0.060f, 0},
    {3.8f, {0.19f, 0, 0.02f}, 0.38f, 0.050f, 0},
    {1.4f, {0, -0.01f, -0.02f}, 0.09f, 0.040f, 2},
    {1.4f, {0, 0.01f, -0.02f}, 0.09f, 0.040f, 2},
    {0.40f, {0, 0, -0.015f}, 0.04f, 0.035f, 2},
    {0, {0, 0, 0}, 0, 0, 2},
};
constexpr LinkTable kLinksTOR77 = {
    {3.0f, {0, 0.02f, -0.05f}, 0.22f, 0.060f, 2},
    {3.2f, {0, -0.03f, 0.02f}, 0.14f, 0.055f, 1},
    {2.6f, {0, 0, -0.13f}, 0.28f, 0.048f, 2},
    {2.2f, {0.02f, 0.03f, 0}, 0.12f, 0.045f, 1},
    {1.5f, {0, 0, -0.12f}, 0.25f, 0.040f, 2},
    {1.2f, {0, 0.02f, 0}, 0.09f, 0.036f, 1},
    {0.40f, {0.03f, 0, -0.01f}, 0.07f, 0.033f, 0},
};

// Indexed by RobotType; null: zero link dynamics.
constexpr const LinkShape* kLinkTables[kModelCount] = {
    kLinksAX61,  kLinksAX71,  nullptr,     kLinksAL64, kLinksAL64, kLinksLUM61,
    kLinksLUM66, kLinksTOR77, kLinksLUM67, nullptr,    kLinksAL64, kLinksTOR77,
};

LinkDynamics link_from_shape(const LinkShape& s, const DriveClass& drive)
{
    LinkDynamics l{};
    l.mass = s.mass;
    for (int i = 0; i < 3; ++i) l.com[i] = s.com[i];
    const float along = 0.5f * s.mass * s.radius * s.radius;
    const float across = s.mass * (3.0f * s.radius * s.radius + s.length * s.length) / 12.0f;
    for (int i = 0; i < 3; ++i) l.inertia[i] = i == s.axis ? along : across;  // Ixx, Iyy, Izz
    l.friction_coulomb = drive.friction_coulomb;
    l.friction_viscous = drive.friction_viscous;
    l.friction_offset = 0.0f;
    l.friction_static = drive.friction_static;
    l.stribeck_vel = drive.stribeck_vel;
    l.gear_ratio = drive.gear_ratio;
    l.motor_inertia = drive.motor_inertia;
    l.torque_constant = drive.torque_constant;
    l.armature = drive.motor_inertia * drive.gear_ratio * drive.gear_ratio;
    return l;
}

LinkDynamicsParams default_link_dynamics(int type, int sensor, const ModelDefaults& model)
{
    LinkDynamicsParams p{};
    const LinkShape* table = kLinkTables[type];
    if (!table) return p;
    for (int i = 0; i < model.dof; ++i) {
        const DriveClass& drive = i < 2 ? kDriveBase : (i < 4 ? kDriveElbow : kDriveWrist);
        p.link[i] = link_from_shape(table[i], drive);
    }
    // The sensor on the last link: a point mass at half the sensor's height along z.
    LinkDynamics& last = p.link[model.dof - 1];
    const float ms = kSensorMass[sensor];
    if (ms > 0.0f) {
        const float zs = 0.5f * (model.flange_d[sensor] - model.flange_d[_B]);
        const float m = last.mass + ms;
        const float cz = (last.mass * last.com[2] + ms * zs) / m;
        // Parallel-axis terms of both bodies about the new centre, about x and y.
        const float dz_link = last.com[2] - cz;
        const float dz_sensor = zs - cz;
        const float shift = last.mass * dz_link * dz_link + ms * dz_sensor * dz_sensor;
        last.inertia[0] += shift;
        last.inertia[1] += shift;
        last.com[0] = last.mass * last.com[0] / m;
        last.com[1] = last.mass * last.com[1] / m;
        last.com[2] = cz;
        last.mass = m;
    }
    return p;
}

}  // namespace

constinit RobotModel robot = cleared_model();

/* -----------------------------------------------------------------------------
 * Model choice and lifecycle
 * -------------------------------------------------------------------------- */

int16_t lib_internal_set_robot_default_config(RobotType robot_type, SensorType sensor_type)
{
    const int type = static_cast<int>(robot_type);
    const int sensor = static_cast<int>(sensor_type);
    if (type < 0 || type >= kModelCount || sensor < 0 || sensor >= kSensorCount) return -1;
    const ModelDefaults* model = kModelDefaults[type];
    if (!model || model->flange_d[sensor] == kNone) return -1;

    const int dof = model->dof;
    robot.rbt_dof = model->dof;
    DH& dh = robot.dh;
    for (int i = 0; i < dof; ++i) {
        dh.d[i] = model->d[i];
        dh.a[i] = model->a[i];
        dh.alpha[i] = model->alpha[i];
        dh.offset[i] = model->offset[i];
        JointCfg& j = robot.joint[i];
        j.pos_max = static_cast<float>(model->max_deg[i] * kDegToRad);
        j.pos_min = static_cast<float>(model->min_deg[i] * kDegToRad);
        j.vel_max = static_cast<float>(model->vel_deg[i] * kDegToRad);
        j.acc_max = static_cast<float>(kAccDeg * kDegToRad);
    }
    dh.d[dof - 1] = model->flange_d[sensor];
    if (type == AL64III && (sensor == _QF || sensor == _XF)) dh.d[0] = kAL64IIIFirstDWithSensor;
    for (int i = 0; i < 7; ++i) robot.joint_direction[i] = model->direction[i];
    robot.dynamics.links = default_link_dynamics(type, sensor, *model);

    robot.dh_default = robot.dh;
    robot.link_dynamics_default = robot.dynamics.links;
    return 0;
}

// Resets the model store. Subsystems that keep state of their own (planner queue, fences,
// capsules) reset it here as they are added, so that one call starts the library afresh.
void libalgo_init(void) { robot = cleared_model(); }

void libalgo_clear(void) { robot = RobotModel{}; }

int16_t libalgo_set_robot_and_sensor_type(RobotType robot_type, SensorType sensor_type)
{
    robot = cleared_model();
    robot.robot_type = robot_type;
    robot.sensor_type = sensor_type;
    return lib_internal_set_robot_default_config(robot_type, sensor_type);
}

RobotType libalgo_get_robot_type(void) { return robot.robot_type; }
SensorType libalgo_get_sensor_type(void) { return robot.sensor_type; }
int16_t libalgo_get_rbt_dof(void) { return robot.rbt_dof; }

/* -----------------------------------------------------------------------------
 * Installation, payload, tool and work frames
 * -------------------------------------------------------------------------- */

void libalgo_set_robot_install_angle(const Euler* angle)
{
    if (!angle) return;
    robot.install_angle = *angle;
    robot.install_matrix = frame_matrix(0.0f, 0.0f, 0.0f, angle->rx, angle->ry, angle->rz);
    robot.gravity[0] = kGravity * std::sin(angle->ry);
    robot.gravity[1] = -kGravity * std::cos(angle->ry) * std::sin(angle->rx);
    robot.gravity[2] = -kGravity * std::cos(angle->rx) * std::cos(angle->ry);
}

Euler libalgo_get_robot_install_angle(void) { return robot.install_angle; }
Matrix libalgo_get_robot_install_angle_matrix(void) { return robot.install_matrix; }

void libalgo_get_robot_gravity_acc(float gravity[3])
{
    if (gravity) std::memcpy(gravity, robot.gravity, sizeof(robot.gravity));
}

void libalgo_set_payload_params(const PayloadCfg* payload)
{
    if (payload) robot.payload = *payload;
}

PayloadCfg libalgo_get_payload_params(void) { return robot.payload; }

void libalgo_set_tool_cs_params(const Coord* tool)
{
    if (!tool) return;
    robot.tool = *tool;
    robot.tool_matrix = frame_matrix(tool->x, tool->y, tool->z, tool->rx, tool->ry, tool->rz);
}

Coord libalgo_get_tool_cs_params(void) { return robot.tool; }
Matrix libalgo_get_tool_cs_matrix(void) { return robot.tool_matrix; }

void libalgo_set_work_cs_params(const Coord* work)
{
    if (!work) return;
    robot.work = *work;
    robot.work_matrix = frame_matrix(work->x, work->y, work->z, work->rx, work->ry, work->rz);
    robot.work_to_base_matrix = matrix_inv_coordinate_system(robot.work_matrix);
}

Coord libalgo_get_work_cs_params(void) { return robot.work; }
Matrix libalgo_get_work_cs_matrix(void) { return robot.work_matrix; }
Matrix libalgo_get_work_cs_to_base_matrix(void) { return robot.work_to_base_matrix; }

/* -----------------------------------------------------------------------------
 * Link parameters
 * -------------------------------------------------------------------------- */

namespace {

void copy_main_dh(DH& dst, const DH& src)
{
    std::memcpy(dst.d, src.d, sizeof(dst.d));
    std::memcpy(dst.a, src.a, sizeof(dst.a));
    std::memcpy(dst.alpha, src.alpha, sizeof(dst.alpha));
    std::memcpy(dst.offset, src.offset, sizeof(dst.offset));
}

bool within_default(const float* value, const float* def, int n)
{
    for (int i = 0; i < n; ++i)
        if (!(std::fabs(static_cast<double>(value[i]) - def[i]) <= kDhDefaultTol)) return false;
    return true;
}

}  // namespace

void libalgo_set_dh_params(const DH* dh)
{
    if (dh) copy_main_dh(robot.dh, *dh);
}

DH libalgo_get_dh_value(void) { return robot.dh; }
void libalgo_set_dh_params_default(void) { copy_main_dh(robot.dh, robot.dh_default); }
DH libalgo_get_dh_params_default(void) { return robot.dh_default; }

int libalgo_check_dh_params_is_default(void)
{
    const int n = dof_count();
    if (n < 1) return 1;
    const DH& v = robot.dh;
    const DH& d = robot.dh_default;
    const bool same = within_default(v.d, d.d, n) && within_default(v.a, d.a, n) &&
                      within_default(v.alpha, d.alpha, n) && within_default(v.offset, d.offset, n);
    return same ? 1 : 0;
}

void libalgo_set_dh_compensation_value(const DH* dh)
{
    if (!dh) return;
    std::memcpy(robot.dh.err_d, dh->err_d, sizeof(dh->err_d));
    std::memcpy(robot.dh.err_a, dh->err_a, sizeof(dh->err_a));
    std::memcpy(robot.dh.err_alpha, dh->err_alpha, sizeof(dh->err_alpha));
    std::memcpy(robot.dh.err_theta, dh->err_theta, sizeof(dh->err_theta));
}

DH libalgo_get_dh_compensation_value(void)
{
    DH r{};
    std::memcpy(r.err_d, robot.dh.err_d, sizeof(r.err_d));
    std::memcpy(r.err_a, robot.dh.err_a, sizeof(r.err_a));
    std::memcpy(r.err_alpha, robot.dh.err_alpha, sizeof(r.err_alpha));
    std::memcpy(r.err_theta, robot.dh.err_theta, sizeof(r.err_theta));
    return r;
}

/* -----------------------------------------------------------------------------
 * Joints
 * -------------------------------------------------------------------------- */

namespace {

// Spread a float[8] over one field of the eight joint records, and back.
void spread(float JointCfg::*field, const float* values)
{
    if (!values) return;
    for (int i = 0; i < kMaxJoints; ++i) robot.joint[i].*field = values[i];
}

void gather(float JointCfg::*field, float* values)
{
    if (!values) return;
    for (int i = 0; i < kMaxJoints; ++i) values[i] = robot.joint[i].*field;
}

}  // namespace

void libalgo_set_jointlim_max(const float q[8]) { spread(&JointCfg::pos_max, q); }
void libalgo_set_jointlim_min(const float q[8]) { spread(&JointCfg::pos_min, q); }
void libalgo_set_joint_vel_maxlim(const float v[8]) { spread(&JointCfg::vel_max, v); }
void libalgo_set_joint_acc_maxlim(const float a[8]) { spread(&JointCfg::acc_max, a); }
void libalgo_get_jointlim_max(float q[8]) { gather(&JointCfg::pos_max, q); }
void libalgo_get_jointlim_min(float q[8]) { gather(&JointCfg::pos_min, q); }
void libalgo_get_joint_vel_maxlim(float v[8]) { gather(&JointCfg::vel_max, v); }
void libalgo_get_joint_acc_maxlim(float a[8]) { gather(&JointCfg::acc_max, a); }

void libalgo_get_modeling_jointlim_max(float q[8])
{
    if (!q) return;
    for (int i = 0; i < kMaxJoints; ++i) q[i] = robot.joint[i].pos_max + robot.dh.offset[i];
}

void libalgo_get_modeling_jointlim_min(float q[8])
{
    if (!q) return;
    for (int i = 0; i < kMaxJoints; ++i) q[i] = robot.joint[i].pos_min + robot.dh.offset[i];
}

void libalgo_set_joint_config(int index, const JointCfg* joint)
{
    if (joint && index >= 0 && index < kMaxJoints) robot.joint[index] = *joint;
}

JointCfg libalgo_get_joint_config(int index)
{
    if (index < 0 || index >= kMaxJoints) return JointCfg{};
    return robot.joint[index];
}

void libalgo_set_joint_direction(const float direction[8]) { copy8(robot.joint_direction, direction); }
void libalgo_get_joint_direction(float direction[8]) { copy8(direction, robot.joint_direction); }

/* -----------------------------------------------------------------------------
 * Dynamics
 * -------------------------------------------------------------------------- */

void libalgo_set_link_dynamics_params(const LinkDynamicsParams* params)
{
    if (params) robot.dynamics.links = *params;
}

LinkDynamicsParams libalgo_get_link_dynamics_params(void) { return robot.dynamics.links; }
void libalgo_set_link_dynamics_params_default(void) { robot.dynamics.links = robot.link_dynamics_default; }
LinkDynamicsParams libalgo_get_link_dynamics_params_default(void) { return robot.link_dynamics_default; }
DynamicsParams libalgo_get_dynamics_params(void) { return robot.dynamics; }

void libalgo_set_dynamics_identification_params(const DynamicsIdentParams* params)
{
    if (params) robot.dynamics.ident = *params;
}

void libalgo_set_dynamics_model_type(int model_type) { robot.dynamics.model_type = model_type; }
int libalgo_get_dynamics_model_type(void) { return robot.dynamics.model_type; }

void libalgo_set_drag_regulation_factor(const float factors[8])
{
    if (!factors) return;
    copy8(robot.dynamics.drag_factor, factors);
    for (int i = 0; i < dof_count(); ++i)
        if (std::fabs(robot.dynamics.drag_factor[i]) < kDragFactorMin) robot.dynamics.drag_factor[i] = 1.0f;
}

void libalgo_get_drag_regulation_factor(float factors[8]) { copy8(factors, robot.dynamics.drag_factor); }

/* -----------------------------------------------------------------------------
 * Plain values
 * -------------------------------------------------------------------------- */

void libalgo_set_control_loop_period(float period) { robot.control_period = period; }
float libalgo_get_control_loop_period(void) { return robot.control_period; }
void libalgo_set_safety_level(int level) { robot.safety_level = level; }
int libalgo_get_safety_level(void) { return robot.safety_level; }

void libalgo_set_tcp_config(const TcpConfig* config)
{
    if (config) robot.tcp = *config;
}

TcpConfig libalgo_get_tcp_config(void) { return robot.tcp; }
void libalgo_set_system_all_dof(int dof) { robot.system_all_dof = dof; }
int libalgo_get_system_all_dof(void) { return robot.system_all_dof; }
void libalgo_set_is_avoid_Singularity(int enable) { robot.avoid_singularity = enable; }
int libalgo_get_is_avoid_Singularity(void) { return robot.avoid_singularity; }
void libalgo_set_user_collision_threshold(const float threshold[8]) { copy8(robot.user_collision_threshold, threshold); }
void libalgo_get_user_collision_threshold(float threshold[8]) { copy8(threshold, robot.user_collision_threshold); }

/* -----------------------------------------------------------------------------
 * Measured and commanded joint state
 * -------------------------------------------------------------------------- */

void libalgo_update_feedback_data(const RobotFeedback* feedback)
{
    if (!feedback) return;
    robot.feedback = *feedback;
    for (int i = 0; i < dof_count(); ++i) {
        const float measured = feedback->joint[LIBALGO_FEEDBACK_MEASURED_POS + i];
        robot.feedback_raw_q[i] = measured;
        const float model_angle = measured + robot.dh.offset[i];
        robot.feedback.joint[LIBALGO_FEEDBACK_MEASURED_POS + i] = model_angle;
        robot.feedback.joint[LIBALGO_FEEDBACK_POS + i] = model_angle;
    }
}

RobotFeedback libalgo_get_robot_feedback_data(void) { return robot.feedback; }
void libalgo_get_trajectory_planning_joint_cur(float q[8]) { copy8(q, robot.feedback_raw_q); }
void libalgo_set_trajectory_planning_joint_cmd(const float q[8]) { copy8(robot.joint_cmd, q); }
void libalgo_get_trajectory_planning_joint_cmd(float q[8]) { copy8(q, robot.joint_cmd); }
