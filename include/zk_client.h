/* Library lifecycle, robot handles and the generic one-integer commands.
 *
 * Result codes of every command:
 *    0  success; for a blocking move, the arm arrived
 *    1  the controller answered and refused
 *   -1  nothing could be sent (unknown handle, arm not connected, send failed),
 *       or the command's own reply parse failed
 *   -2  sent, but no reply of the expected name arrived in time
 *   -3  a reply arrived but could not be understood
 *   -4  a blocking move ended on another device; in some families a value refused
 *   -5  a single-mode blocking wait ran out; in some families a local file fault
 *   -6  an argument check failed before anything was sent
 */
#ifndef ZK_CLIENT_H
#define ZK_CLIENT_H

#include "zk_types.h"

ZK_EXTERN_C_BEGIN

typedef struct {
    char version[20];
} zk_algorithm_version_t;

typedef struct {
    char build_time[20];
    char version[10];
} zk_ctrl_version_t;

typedef struct {
    char model_version[5];
} zk_dynamic_version_t;

typedef struct {
    char build_time[20];
    char version[10];
} zk_planinfo_t;

typedef struct {
    char product_version[15];
    zk_algorithm_version_t algorithm_info;
    zk_ctrl_version_t ctrl_info;
    zk_dynamic_version_t dynamic_info;
    zk_planinfo_t plan_info;
} zk_arm_software_version_t;

/* Starts the library in a thread mode; 0, or -1 when a receive thread cannot start. */
ZK_API int zk_init(zk_thread_mode_e mode);
/* Closes every connection and stops the library's threads; always 0. */
ZK_API int zk_destory(void);

/* Connects to a controller and learns the arm. Null only when five handles exist already;
 * any other failure gives a handle whose id is -1 (delete it to free its slot). */
ZK_API zk_robot_handle* zk_create_robot_arm(const char* ip, int port);
ZK_API int zk_delete_robot_arm(zk_robot_handle* handle);

/* Sets the reply time-out of ordinary commands, in milliseconds. */
ZK_API void zk_set_timeout(int timeout);
ZK_API const char* zk_api_version(void);

ZK_API int zk_get_arm_dof(zk_robot_handle* handle, int* dof);
ZK_API int zk_get_robot_info(zk_robot_handle* handle, zk_robot_info_t* robot_info);
ZK_API int zk_get_arm_software_info(zk_robot_handle* handle, zk_arm_software_version_t* software_info);

/* Generic commands carrying one integer: the reply's frame name equals the command. */
ZK_API int zk_get_data_common(zk_robot_handle* handle, int* data, const char* cmd_str, const char* valua_str);
ZK_API int zk_set_data_common(zk_robot_handle* handle, int data, const char* cmd_str, const char* valua_str);

ZK_EXTERN_C_END

#endif /* ZK_CLIENT_H */
