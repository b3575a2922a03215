/* libapi_c algorithm library: the robot model store and its defaults.
 *
 * The algorithm library works on one arm at a time, described by a single process-wide
 * record. This header is that record's interface: the model and sensor choice with the
 * per-model defaults, the frames, limits, link parameters, dynamics block and the
 * measured and commanded joint state. Lengths are metres, angles radians, times seconds.
 *
 * Conventions. Setters take records by pointer and copy them; a null pointer does
 * nothing. Getters return records by value. Per-joint arrays are float[8]
 * (LIBALGO_MAX_JOINTS) in and out, the first rbt_dof entries counted. The store has no
 * lock: a caller must not change the model while another thread solves. */
#ifndef LIBALGO_MODEL_H
#define LIBALGO_MODEL_H

#include <stdint.h>

#include "libalgo_math.h"
#include "zk_export.h"

ZK_EXTERN_C_BEGIN

#define LIBALGO_MAX_JOINTS 8 /* every per-joint array: seven axes and a spare */

typedef enum {
    AX61 = 0,
    AX71 = 1,
    AL64I = 2,
    AL64II = 3,
    AL64III = 4,
    LUM61 = 5,
    LUM66 = 6,
    TOR77 = 7,
    LUM67 = 8,
    UNIVERSAL = 9,
    AL64IV = 10,
    TOR77II = 11,
    /* Not models: they make every int a valid RobotType, so that an unknown number can be
     * passed, stored and refused without leaving the enumeration's range. */
    LIBALGO_ROBOT_TYPE_INT_MIN_ = -2147483647 - 1,
    LIBALGO_ROBOT_TYPE_INT_MAX_ = 2147483647
} RobotType;

typedef enum {
    _B = 0,  /* bare flange */
    _QF = 1,
    _XF = 2,
    IXF = 3,
    LIBALGO_SENSOR_TYPE_INT_MIN_ = -2147483647 - 1, /* not sensors: see RobotType */
    LIBALGO_SENSOR_TYPE_INT_MAX_ = 2147483647
} SensorType;

/* A frame as position and Euler angles (R = Rz Ry Rx). */
typedef struct {
    float x, y, z, rx, ry, rz;
} Coord;

typedef struct {
    float mass;       /* kg */
    float com[3];     /* centre of mass in the flange frame, m */
    float inertia[6]; /* Ixx, Iyy, Izz, Ixy, Ixz, Iyz about the centre of mass, kg m^2 */
    float radius;     /* envelope radius, m */
} PayloadCfg;

/* One joint record: 17 floats, the four limits and then the dynamics configuration. */
#define LIBALGO_JOINT_DYN_FIELDS 13
typedef struct {
    float pos_max; /* rad */
    float pos_min; /* rad */
    float vel_max; /* rad/s */
    float acc_max; /* rad/s^2 */
    float dynamics[LIBALGO_JOINT_DYN_FIELDS]; /* drive configuration, not read by the store */
} JointCfg;

/* Nominal dynamics of one link (link i moves with joint i). */
typedef struct {
    float mass;             /* kg */
    float com[3];           /* centre of mass in the link's DH frame, m */
    float inertia[6];       /* Ixx, Iyy, Izz, Ixy, Ixz, Iyz about the centre of mass, kg m^2 */
    float friction_coulomb; /* N m */
    float friction_viscous; /* N m s/rad */
    float friction_offset;  /* N m */
    float friction_static;  /* N m, breakaway */
    float stribeck_vel;     /* rad/s */
    float armature;         /* reflected rotor inertia, kg m^2 */
    float gear_ratio;
    float motor_inertia;    /* kg m^2, motor side */
    float torque_constant;  /* N m/A, motor side */
} LinkDynamics;

/* The link dynamics of the whole arm: 8 x 19 floats, the 608 bytes that the defaults
 * copy keeps. */
typedef struct {
    LinkDynamics link[LIBALGO_MAX_JOINTS];
} LinkDynamicsParams;

/* Identified (base) parameters per link: m, m cx, m cy, m cz, Ixx, Ixy, Ixz, Iyy, Iyz,
 * Izz, friction Coulomb, viscous, offset. */
#define LIBALGO_IDENT_PARAMS_PER_LINK 13
typedef struct {
    float link[LIBALGO_MAX_JOINTS][LIBALGO_IDENT_PARAMS_PER_LINK];
} DynamicsIdentParams;

/* Dynamics model types for libalgo_set_dynamics_model_type. */
#define LIBALGO_DYN_MODEL_NOMINAL 0    /* the link dynamics */
#define LIBALGO_DYN_MODEL_IDENTIFIED 1 /* the identification parameters */

/* The dynamics block of the store. */
typedef struct {
    LinkDynamicsParams links;
    DynamicsIdentParams ident;
    int model_type;
    float drag_factor[LIBALGO_MAX_JOINTS]; /* drag regulation, 1.0 neutral */
} DynamicsParams;

/* Cartesian limits of the tool centre point. */
typedef struct {
    float line_vel;    /* m/s */
    float line_acc;    /* m/s^2 */
    float angular_vel; /* rad/s */
    float angular_acc; /* rad/s^2 */
} TcpConfig;

/* Measured joint state for the planner. The joint array holds four blocks of eight:
 *   [ 0,  8) joint positions, model angles (measured + DH offset) once in the store
 *   [ 8, 16) joint velocities, rad/s
 *   [16, 24) joint positions: as measured on input, model angles once in the store
 *   [24, 32) joint torques, N m
 * libalgo_update_feedback_data keeps the measured positions in a raw copy, read back by
 * libalgo_get_trajectory_planning_joint_cur. */
#define LIBALGO_FEEDBACK_POS 0
#define LIBALGO_FEEDBACK_VEL 8
#define LIBALGO_FEEDBACK_MEASURED_POS 16
#define LIBALGO_FEEDBACK_TORQUE 24
typedef struct {
    float joint[32];
    float force[6]; /* wrench at the sensor: Fx, Fy, Fz (N), Mx, My, Mz (N m) */
} RobotFeedback;

/* ----------------------------------------------------------------------------------
 * Model choice and lifecycle
 * ---------------------------------------------------------------------------------- */

/* Resets the store to its cleared state: every field zero, control period 0.002 s,
 * gravity (0, 0, -9.81), identity install, tool and work matrices, rbt_dof 0. */
ZK_API void libalgo_init(void);
/* Ends the library's state: the store is zeroed whole, matrices included. */
ZK_API void libalgo_clear(void);
/* Clears the store as libalgo_init, stores the two types, and writes the model's
 * defaults: DH, joint limits, directions, rbt_dof and link dynamics, then copies DH and
 * link dynamics to the default copies. 0, or -1 for a model above 11 (or negative), a
 * sensor outside 0..3, or a pair with no defaults (the store then stays cleared). */
ZK_API int16_t libalgo_set_robot_and_sensor_type(RobotType robot_type, SensorType sensor_type);
ZK_API RobotType libalgo_get_robot_type(void);
ZK_API SensorType libalgo_get_sensor_type(void);
ZK_API int16_t libalgo_get_rbt_dof(void);

/* ----------------------------------------------------------------------------------
 * Installation, payload, tool and work frames
 * ---------------------------------------------------------------------------------- */

/* Stores the base's Euler angles, rebuilds the install matrix (rotation only) and sets
 * gravity to (9.81 sin ry, -9.81 cos ry sin rx, -9.81 cos rx cos ry). */
ZK_API void libalgo_set_robot_install_angle(const Euler* angle);
ZK_API Euler libalgo_get_robot_install_angle(void);
ZK_API Matrix libalgo_get_robot_install_angle_matrix(void); /* Ti: arm base in the world */
ZK_API void libalgo_get_robot_gravity_acc(float gravity[3]); /* in the arm's base frame */
ZK_API void libalgo_set_payload_params(const PayloadCfg* payload);
ZK_API PayloadCfg libalgo_get_payload_params(void);
/* The tool relative to the flange; set rebuilds the tool matrix. */
ZK_API void libalgo_set_tool_cs_params(const Coord* tool);
ZK_API Coord libalgo_get_tool_cs_params(void);
ZK_API Matrix libalgo_get_tool_cs_matrix(void); /* Tt */
/* The work frame W relative to the base; set rebuilds W and its inverse. */
ZK_API void libalgo_set_work_cs_params(const Coord* work);
ZK_API Coord libalgo_get_work_cs_params(void);
ZK_API Matrix libalgo_get_work_cs_matrix(void);         /* W */
ZK_API Matrix libalgo_get_work_cs_to_base_matrix(void); /* Tw = W^-1: base coordinates to work */

/* ----------------------------------------------------------------------------------
 * Link parameters
 * ---------------------------------------------------------------------------------- */

/* Copies d, a, alpha and offset; the err_ arrays stay. */
ZK_API void libalgo_set_dh_params(const DH* dh);
ZK_API DH libalgo_get_dh_value(void); /* the whole record, compensation included */
/* Restores d, a, alpha and offset from the default copy. */
ZK_API void libalgo_set_dh_params_default(void);
ZK_API DH libalgo_get_dh_params_default(void);
/* 1 when each of the rbt_dof entries of the four arrays is within 1e-10 of the default
 * (or rbt_dof is below 1), else 0. */
ZK_API int libalgo_check_dh_params_is_default(void);
/* Copies err_d, err_a, err_alpha and err_theta; the main arrays stay. */
ZK_API void libalgo_set_dh_compensation_value(const DH* dh);
ZK_API DH libalgo_get_dh_compensation_value(void); /* the err_ arrays, the rest zero */

/* ----------------------------------------------------------------------------------
 * Joints
 * ---------------------------------------------------------------------------------- */

ZK_API void libalgo_set_jointlim_max(const float q[8]);
ZK_API void libalgo_set_jointlim_min(const float q[8]);
ZK_API void libalgo_set_joint_vel_maxlim(const float v[8]);
ZK_API void libalgo_set_joint_acc_maxlim(const float a[8]);
ZK_API void libalgo_get_jointlim_max(float q[8]);
ZK_API void libalgo_get_jointlim_min(float q[8]);
ZK_API void libalgo_get_joint_vel_maxlim(float v[8]);
ZK_API void libalgo_get_joint_acc_maxlim(float a[8]);
/* Position limits plus the joint's DH offset: the limits in model angles. */
ZK_API void libalgo_get_modeling_jointlim_max(float q[8]);
ZK_API void libalgo_get_modeling_jointlim_min(float q[8]);
/* One joint record, index 0..7; another index does nothing (get: a zero record). */
ZK_API void libalgo_set_joint_config(int index, const JointCfg* joint);
ZK_API JointCfg libalgo_get_joint_config(int index);
ZK_API void libalgo_set_joint_direction(const float direction[8]); /* each 1 or -1 */
ZK_API void libalgo_get_joint_direction(float direction[8]);

/* ----------------------------------------------------------------------------------
 * Dynamics
 * ---------------------------------------------------------------------------------- */

ZK_API void libalgo_set_link_dynamics_params(const LinkDynamicsParams* params);
ZK_API LinkDynamicsParams libalgo_get_link_dynamics_params(void);
ZK_API void libalgo_set_link_dynamics_params_default(void); /* restore from the copy */
ZK_API LinkDynamicsParams libalgo_get_link_dynamics_params_default(void);
ZK_API DynamicsParams libalgo_get_dynamics_params(void);   /* the whole block */
ZK_API void libalgo_set_dynamics_identification_params(const DynamicsIdentParams* params);
ZK_API void libalgo_set_dynamics_model_type(int model_type);
ZK_API int libalgo_get_dynamics_model_type(void);
/* Copies eight factors; each of the rbt_dof first whose magnitude is below 0.001
 * becomes 1.0. */
ZK_API void libalgo_set_drag_regulation_factor(const float factors[8]);
ZK_API void libalgo_get_drag_regulation_factor(float factors[8]);

/* ----------------------------------------------------------------------------------
 * Plain values
 * ---------------------------------------------------------------------------------- */

ZK_API void libalgo_set_control_loop_period(float period); /* s */
ZK_API float libalgo_get_control_loop_period(void);
ZK_API void libalgo_set_safety_level(int level);
ZK_API int libalgo_get_safety_level(void);
ZK_API void libalgo_set_tcp_config(const TcpConfig* config);
ZK_API TcpConfig libalgo_get_tcp_config(void);
ZK_API void libalgo_set_system_all_dof(int dof); /* arm joints plus external axes */
ZK_API int libalgo_get_system_all_dof(void);
ZK_API void libalgo_set_is_avoid_Singularity(int enable); /* 1: wrist re-solve near q5 = 0 */
ZK_API int libalgo_get_is_avoid_Singularity(void);
ZK_API void libalgo_set_user_collision_threshold(const float threshold[8]);
ZK_API void libalgo_get_user_collision_threshold(float threshold[8]);

/* ----------------------------------------------------------------------------------
 * Measured and commanded joint state
 * ---------------------------------------------------------------------------------- */

/* Copies the record whole; then, for each of rbt_dof joints, keeps the measured position
 * (joint[16 + i]) in the raw copy and stores measured + offset[i] at joint[16 + i] and
 * joint[i]. */
ZK_API void libalgo_update_feedback_data(const RobotFeedback* feedback);
ZK_API RobotFeedback libalgo_get_robot_feedback_data(void);
ZK_API void libalgo_get_trajectory_planning_joint_cur(float q[8]); /* the raw measured copy */
ZK_API void libalgo_set_trajectory_planning_joint_cmd(const float q[8]);
ZK_API void libalgo_get_trajectory_planning_joint_cmd(float q[8]);

ZK_EXTERN_C_END

#endif /* LIBALGO_MODEL_H */
