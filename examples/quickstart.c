/* quickstart: the library's main job in one short program.
 *
 *   1. start the library with its receive threads (ZK_TRIPLE_MODE_E)
 *   2. install the event and realtime callbacks
 *   3. connect to an arm controller and learn what arm it is
 *   4. a blocking joint move: the call returns when the arm has arrived
 *   5. a non-blocking joint move: the call returns at once, the event callback tells the end
 *   6. a few realtime state messages, pushed by the controller over UDP
 *   7. disconnect and stop the library
 *
 * usage: quickstart [ip] [port] [udp-port]     (default 127.0.0.1 8080 8089)
 *
 * Run it against the simulator with tools/run-quickstart.sh. */
/* clock_gettime and pthread_cond_timedwait under -std=c99 */
#define _POSIX_C_SOURCE 200809L

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "zk_api.h"

/* How long the program waits for the controller's pushes before it gives up. */
#define WAIT_SECONDS 15
/* Realtime states to show. */
#define STATES_WANTED 5

/* The callbacks run on the library's threads: they copy what they get under a mutex and
 * wake the main thread, which does all the printing. */
static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER;
static int g_events = 0;
static zk_event_push_data_t g_last_event;
static int g_states = 0;
static zk_realtime_arm_joint_state_t g_first_states[STATES_WANTED];

static void on_event(zk_event_push_data_t event)
{
    pthread_mutex_lock(&g_lock);
    g_last_event = event;
    g_events++;
    pthread_cond_broadcast(&g_changed);
    pthread_mutex_unlock(&g_lock);
}

static void on_state(zk_realtime_arm_joint_state_t state)
{
    pthread_mutex_lock(&g_lock);
    if (g_states < STATES_WANTED) g_first_states[g_states] = state;
    g_states++;
    pthread_cond_broadcast(&g_changed);
    pthread_mutex_unlock(&g_lock);
}

/* Waits until *counter reaches at least `wanted`, or WAIT_SECONDS pass; 1 when it did. */
static int wait_for(const int* counter, int wanted)
{
    struct timespec deadline;
    int reached;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += WAIT_SECONDS;
    pthread_mutex_lock(&g_lock);
    while (*counter < wanted && pthread_cond_timedwait(&g_changed, &g_lock, &deadline) == 0) {
    }
    reached = *counter >= wanted;
    pthread_mutex_unlock(&g_lock);
    return reached;
}

static int count_of(const int* counter)
{
    int value;
    pthread_mutex_lock(&g_lock);
    value = *counter;
    pthread_mutex_unlock(&g_lock);
    return value;
}

static const char* model_name(zk_robot_arm_model_e model)
{
    static const char* const names[] = {"AX61", "AX71", "AL64-I", "AL64-II", "AL64-III",
                                        "LUM61", "LUM66", "TOR77", "LUM67"};
    return (unsigned)model < sizeof names / sizeof names[0] ? names[model] : "unknown";
}

static void print_joints(const char* label, const float* joint, int dof)
{
    int i;
    printf("%s", label);
    for (i = 0; i < dof; i++) printf(" %7.2f", joint[i]);
    printf("\n");
}

int main(int argc, char** argv)
{
    const char* ip = argc > 1 ? argv[1] : "127.0.0.1";
    const int port = argc > 2 ? atoi(argv[2]) : 8080;
    const int udp_port = argc > 3 ? atoi(argv[3]) : 8089;
    /* Degrees; the seventh joint is used on a seven-axis arm only. */
    const float work_pose[7] = {0.0f, 20.0f, 70.0f, 0.0f, 90.0f, 0.0f, 0.0f};
    const float home[7] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    zk_robot_handle* arm;
    zk_robot_info_t info;
    zk_realtime_push_config_t push;
    int result, events_before, i;

    printf("libapi_c %s quickstart\n\n", zk_api_version());

    /* 1, 2 */
    if (zk_init(ZK_TRIPLE_MODE_E) != 0) {
        fprintf(stderr, "could not start the library\n");
        return 1;
    }
    zk_get_arm_event_call_back(on_event);
    zk_realtime_arm_state_call_back(on_state);

    /* 3 */
    printf("[1] connecting to the controller at %s:%d\n", ip, port);
    arm = zk_create_robot_arm(ip, port);
    if (arm == NULL || arm->id < 0) {
        fprintf(stderr, "    no arm at %s:%d (is the controller or simulator running?)\n", ip, port);
        if (arm != NULL) zk_delete_robot_arm(arm);
        zk_destory();
        return 1;
    }
    if (zk_get_robot_info(arm, &info) != 0) {
        fprintf(stderr, "    the arm did not say what it is\n");
        zk_delete_robot_arm(arm);
        zk_destory();
        return 1;
    }
    printf("    connected: handle %d, arm %s with %d degrees of freedom\n\n", arm->id, model_name(info.arm_model),
           info.arm_dof);

    /* 4 */
    print_joints("[2] blocking move to (deg):", work_pose, info.arm_dof);
    result = zk_movej(arm, work_pose, 50, 0, 0, 1);
    printf("    zk_movej returned %d%s\n\n", result, result == 0 ? ": the arm has arrived" : " (see zk_client.h)");

    /* 5 */
    print_joints("[3] non-blocking move to (deg):", home, info.arm_dof);
    events_before = count_of(&g_events);
    result = zk_movej(arm, home, 50, 0, 0, 0);
    printf("    zk_movej returned %d at once; the arm is moving\n", result);
    if (result == 0 && wait_for(&g_events, events_before + 1)) {
        pthread_mutex_lock(&g_lock);
        printf("    event callback: trajectory %s on device %d (trajectory_connect %d)\n\n",
               g_last_event.trajectory_state ? "completed" : "ended short", g_last_event.device,
               g_last_event.trajectory_connect);
        pthread_mutex_unlock(&g_lock);
    } else {
        printf("    no end-of-trajectory event came\n\n");
    }

    /* 6 */
    memset(&push, 0, sizeof push);
    push.cycle = 10;
    push.enable = true;
    push.port = udp_port;
    push.force_coordinate = -1;
    strcpy(push.ip, "127.0.0.1");
    push.custom_config.joint_speed = -1;
    push.custom_config.lift_state = -1;
    push.custom_config.expand_state = -1;
    push.custom_config.hand_state = -1;
    push.custom_config.arm_current_status = 1;
    push.custom_config.aloha_state = -1;
    push.custom_config.plus_base = -1;
    push.custom_config.plus_state = -1;
    printf("[4] realtime state every %d ms to %s:%d\n", push.cycle, push.ip, push.port);
    result = zk_set_realtime_push(arm, push);
    printf("    zk_set_realtime_push returned %d\n", result);
    if (result == 0 && wait_for(&g_states, STATES_WANTED)) {
        pthread_mutex_lock(&g_lock);
        for (i = 0; i < STATES_WANTED; i++) {
            char label[32];
            sprintf(label, "    state %d joints (deg):", i + 1);
            print_joints(label, g_first_states[i].joint_status.joint_position, info.arm_dof);
        }
        printf("    flange at x %.3f y %.3f z %.3f m\n\n", g_first_states[0].waypoint.position.x,
               g_first_states[0].waypoint.position.y, g_first_states[0].waypoint.position.z);
        pthread_mutex_unlock(&g_lock);
    } else {
        printf("    fewer than %d realtime states came\n\n", STATES_WANTED);
    }
    push.enable = false;
    zk_set_realtime_push(arm, push);

    /* 7 */
    printf("[5] disconnecting\n");
    zk_delete_robot_arm(arm);
    zk_destory();
    printf("done\n");
    return 0;
}
