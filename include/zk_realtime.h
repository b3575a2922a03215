/* The realtime channel: the controller pushes the arm's state as one JSON datagram per
 * cycle to a UDP port. zk_set_realtime_push tells the controller where and how often to
 * send; in ZK_TRIPLE_MODE_E the library listens on the configured port itself and hands
 * every datagram, parsed, to the host's realtime callback on its UDP thread. In the other
 * modes a host listens by itself and may decode datagrams with
 * parse_zk_realtime_arm_joint_state.
 *
 * Units of the state record: joint angles in degrees, positions in metres, Euler angles in
 * radians; the wire's thousandths are divided out of every float. */
#ifndef ZK_REALTIME_H
#define ZK_REALTIME_H

#include "zk_types.h"

ZK_EXTERN_C_BEGIN

/* ---- State of one datagram --------------------------------------------------------- */

/* Seven entries, one per joint; a six-axis arm leaves the last at 0. */
typedef struct {
    float joint_current[7];
    bool joint_en_flag[7];
    uint16_t joint_err_code[7];
    float joint_position[7];
    float joint_temperature[7];
    float joint_voltage[7];
    float joint_speed[7];
} zk_joint_status_t;

typedef struct {
    float force[6];
    float zero_force[6];
    int coordinate;
} zk_force_sensor_t;

typedef struct {
    int height;
    float pos;
    int current;
    int err_flag;
    int en_flag;
} zk_udp_lift_state_t;

typedef struct {
    float pos;
    int current;
    int err_flag;
    int en_flag;
    int joint_id;
    int mode;
} zk_udp_expand_state_t;

/* One entry per finger. */
typedef struct {
    int hand_pos[6];
    int hand_angle[6];
    int hand_force[6];
    int hand_state[6];
    int hand_err;
} zk_udp_hand_state_t;

typedef struct {
    int io1_state;
    int io2_state;
} zk_udp_aloha_state_t;

/* What the arm is doing; a status text the library does not know reads as ZK_IDLE_E. */
typedef enum {
    ZK_IDLE_E = 0,
    ZK_MOVE_L_E = 1,
    ZK_MOVE_J_E = 2,
    ZK_MOVE_C_E = 3,
    ZK_MOVE_S_E = 4,
    ZK_MOVE_THROUGH_JOINT_E = 5,
    ZK_MOVE_THROUGH_POSE_E = 6,
    ZK_MOVE_THROUGH_FORCE_POSE_E = 7,
    ZK_MOVE_THROUGH_CURRENT_E = 8,
    ZK_STOP_E = 9,
    ZK_SLOW_STOP_E = 10,
    ZK_PAUSE_E = 11,
    ZK_CURRENT_DRAG_E = 12,
    ZK_SENSOR_DRAG_E = 13,
    ZK_TECH_DEMONSTRATION_E = 14
} zk_udp_arm_current_status_e;

/* Description of the end-effector mounted on the arm's ecosystem port. Texts are
 * zero-terminated; a longer text from the controller is cut to fit. Arrays hold up to 12
 * degrees of freedom of the device. */
typedef struct {
    char manu[10];
    int type;
    char hv[10];
    char sv[10];
    char bv[10];
    int id;
    int dof;
    int check;
    int bee;
    bool force;
    bool touch;
    int touch_num;
    int touch_sw;
    int hand;
    int pos_up[12];
    int pos_low[12];
    int angle_up[12];
    int angle_low[12];
    int speed_up[12];
    int speed_low[12];
    int force_up[12];
    int force_low[12];
} zk_plus_base_info_t;

/* State of the end-effector: 12 entries per degree of freedom, 18 per touch sensor. */
typedef struct {
    int sys_state;
    int dof_state[12];
    int dof_err[12];
    int pos[12];
    int speed[12];
    int angle[12];
    int current[12];
    int normal_force[18];
    int tangential_force[18];
    int tangential_force_dir[18];
    uint32_t tsa[12];
    uint32_t tma[12];
    int touch_data[18];
    int force[12];
} zk_plus_state_info_t;

/* One datagram, as the realtime callback receives it. Test errCode first: the record of a
 * datagram that failed to parse (-3) holds what was read before the failure, the rest 0. */
typedef struct {
    int errCode;     /* 0, or -3 when the datagram could not be understood */
    char arm_ip[16]; /* the sending controller's address, dotted */
    zk_joint_status_t joint_status;
    zk_force_sensor_t force_sensor;
    zk_err_t err;
    zk_pose_t waypoint;
    zk_udp_lift_state_t liftState;
    zk_udp_expand_state_t expandState;
    zk_udp_hand_state_t handState;
    zk_udp_arm_current_status_e arm_current_status;
    zk_udp_aloha_state_t aloha_state;
    int zk_plus_state; /* 0 normal, 1 the end-effector reported "disable", 2 "offline" */
    zk_plus_base_info_t plus_base_info;
    zk_plus_state_info_t plus_state_info;
} zk_realtime_arm_joint_state_t;

/* ---- Push configuration ------------------------------------------------------------ */

/* Optional members of each datagram. Setting: a negative value leaves the member out of the
 * request, 0 asks for it off, any other value on. Reading: 1 on, 0 off, -1 not reported. */
typedef struct {
    int joint_speed;
    int lift_state;
    int expand_state;
    int hand_state;
    int arm_current_status;
    int aloha_state;
    int plus_base;  /* also decides whether plus_state is sent at all */
    int plus_state;
} zk_udp_custom_config_t;

typedef struct {
    int cycle; /* push period, in controller cycles; at least 1 */
    bool enable;
    int port;             /* host UDP port, 1 to 65535 */
    int force_coordinate; /* frame of the force data: 0 or more on an arm with a force sensor; -1 none */
    char ip[28];          /* host address, dotted, 7 to 15 characters */
    zk_udp_custom_config_t custom_config;
} zk_realtime_push_config_t;

/* Runs on the library's UDP thread for every datagram, whatever its errCode. It delays
 * every port while it runs, so it must return quickly. */
typedef void (*zk_realtime_arm_state_callback_ptr)(zk_realtime_arm_joint_state_t data);

/* Installs the realtime callback; a null argument is ignored. */
ZK_API void zk_realtime_arm_state_call_back(zk_realtime_arm_state_callback_ptr realtime_callback);

/* Configures the controller's push. -4 for a cycle or port below 1 or an ip not of 7 to 15
 * characters, before anything is sent; otherwise a command result code. On success the
 * configuration is read back, which in ZK_TRIPLE_MODE_E with the push enabled registers
 * the port with the library's listener (once more per call: registrations are counted). */
ZK_API int zk_set_realtime_push(zk_robot_handle* handle, zk_realtime_push_config_t config);

/* Reads the controller's push configuration; in ZK_TRIPLE_MODE_E with the push enabled it
 * also registers the port with the library's listener. */
ZK_API int zk_get_realtime_push(zk_robot_handle* handle, zk_realtime_push_config_t* config);

/* Decodes one datagram into a record, zeroed first. 0, or -3 when the text is not JSON, a
 * required member ("joint_status", "waypoint", "err") is missing or malformed, or an
 * optional block is incomplete; what was read before the failure stays in the record. */
ZK_API int parse_zk_realtime_arm_joint_state(const char* json_str,
                                             zk_realtime_arm_joint_state_t* realtime_arm_joint_state);

/* Maps a status text of the datagram to its value; an unknown or null text gives ZK_IDLE_E. */
ZK_API zk_udp_arm_current_status_e get_arm_status_from_string(const char* status);

ZK_EXTERN_C_END

#endif /* ZK_REALTIME_H */
