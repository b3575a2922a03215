/* Events the controller pushes on its own: the end of a trajectory and the end of a program.
 * In the threaded modes the library's receive thread calls the host's event callback for
 * each; the callback must return quickly and must not wait for a reply, since replies pass
 * through the same thread. */
#ifndef ZK_EVENTS_H
#define ZK_EVENTS_H

#include "zk_types.h"

ZK_EXTERN_C_BEGIN

typedef enum {
    ZK_NONE_EVENT_E = 0,
    ZK_CURRENT_TRAJECTORY_STATE_E = 1,
    ZK_PROGRAM_RUN_FINISH_E = 2
} zk_event_type_e;

typedef struct {
    int handle_id; /* the id of the robot handle the event came from */
    zk_event_type_e event_type;
    bool trajectory_state;
    int device; /* 0 is the arm */
    int trajectory_connect;
    int program_id;
} zk_event_push_data_t;

typedef void (*zk_event_callback_ptr)(zk_event_push_data_t data);

/* Installs the event callback; a null argument is ignored. */
ZK_API void zk_get_arm_event_call_back(zk_event_callback_ptr event_callback);

ZK_EXTERN_C_END

#endif /* ZK_EVENTS_H */
