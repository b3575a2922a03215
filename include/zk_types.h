/* Records and enumerations shared by every command family of libapi_c.
 *
 * Units: lengths in metres, angles in radians unless a field says degrees,
 * quaternions scalar first. Joint arrays hold one entry per joint, the first
 * degrees-of-freedom entries counted. */
#ifndef ZK_TYPES_H
#define ZK_TYPES_H

#include <stdbool.h>
#include <stdint.h>

#include "zk_export.h"

ZK_EXTERN_C_BEGIN

typedef enum {
    ZK_SINGLE_MODE_E = 0, /* no library threads: every wait reads its own socket */
    ZK_DUAL_MODE_E = 1,   /* a TCP receive thread files replies and events */
    ZK_TRIPLE_MODE_E = 2  /* TCP receive thread plus the UDP realtime thread */
} zk_thread_mode_e;

typedef enum {
    ZK_MODEL_AX_61_E = 0,
    ZK_MODEL_AX_71_E = 1,
    ZK_MODEL_AL_64_I_E = 2,
    ZK_MODEL_AL_64_II_E = 3,
    ZK_MODEL_AL_64_III_E = 4,
    ZK_MODEL_LUM_61_E = 5,
    ZK_MODEL_LUM_66_E = 6,
    ZK_MODEL_TOR_77_E = 7,
    ZK_MODEL_LUM_67_E = 8
} zk_robot_arm_model_e;

typedef enum {
    ZK_MODEL_ZK_B_E = 0,
    ZK_MODEL_ZK_QF_E = 1,
    ZK_MODEL_ZK_XF_E = 2,
    ZK_MODEL_ZK_IXF_E = 3
} zk_force_type_e;

/* What a host holds for one connected arm. The address, not the id, is the key of
 * every lookup; id is 1..5 for a connected arm and -1 when creation failed. */
typedef struct {
    int id;
} zk_robot_handle;

typedef struct {
    float x, y, z;
} zk_position_t;

typedef struct {
    float rx, ry, rz;
} zk_euler_t;

typedef struct {
    float w, x, y, z;
} zk_quat_t;

typedef struct {
    zk_position_t position;
    zk_quat_t quaternion;
    zk_euler_t euler;
} zk_pose_t;

typedef struct {
    char name[12];
} zk_frame_name_t;

typedef struct {
    char frame_name[12];
    zk_pose_t pose;
    float payload;
    float x, y, z; /* centre of mass */
} zk_frame_t;

typedef struct {
    float d[8];
    float a[8];
    float alpha[8];
    float offset[8];
} zk_dh_t;

typedef struct {
    short irow;
    short iline;
    float data[4][4];
} zk_matrix_t;

typedef struct {
    uint8_t err_len; /* number of entries of err in use */
    int err[24];
} zk_err_t;

typedef struct {
    int arm_dof;
    zk_robot_arm_model_e arm_model;
    zk_force_type_e force_type;
} zk_robot_info_t;

ZK_EXTERN_C_END

#endif /* ZK_TYPES_H */
