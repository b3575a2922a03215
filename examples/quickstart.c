/* quickstart: connect to an arm controller, learn what it is, and disconnect.
 *
 * usage: quickstart [ip] [port]      (default 127.0.0.1 8080) */
#include <stdio.h>
#include <stdlib.h>

#include "zk_api.h"

static const char* model_name(zk_robot_arm_model_e model)
{
    static const char* const names[] = {"AX61", "AX71", "AL64-I", "AL64-II", "AL64-III",
                                        "LUM61", "LUM66", "TOR77", "LUM67"};
    return (unsigned)model < sizeof names / sizeof names[0] ? names[model] : "unknown";
}

int main(int argc, char** argv)
{
    const char* ip = argc > 1 ? argv[1] : "127.0.0.1";
    const int port = argc > 2 ? atoi(argv[2]) : 8080;
    zk_robot_handle* arm;
    zk_robot_info_t info;
    zk_arm_software_version_t software = {0};
    int result;

    printf("libapi_c %s\n", zk_api_version());
    if (zk_init(ZK_SINGLE_MODE_E) != 0) {
        fprintf(stderr, "could not start the library\n");
        return 1;
    }

    printf("connecting to %s:%d ...\n", ip, port);
    arm = zk_create_robot_arm(ip, port);
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "no arm at %s:%d\n", ip, port);
        if (arm != NULL) zk_delete_robot_arm(arm);
        zk_destory();
        return 1;
    }
    printf("connected: handle %d\n", arm->id);

    if (zk_get_robot_info(arm, &info) == 0)
        printf("arm model %s, %d degrees of freedom\n", model_name(info.arm_model), info.arm_dof);

    result = zk_get_arm_software_info(arm, &software);
    printf("software info (result %d): product %s, controller %s built %s\n", result,
           software.product_version, software.ctrl_info.version, software.ctrl_info.build_time);

    zk_delete_robot_arm(arm);
    zk_destory();
    printf("done\n");
    return 0;
}
