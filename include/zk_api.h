/* libapi_c: the whole public interface. */
#ifndef ZK_API_H
#define ZK_API_H

#include "zk_types.h"
#include "zk_log.h"
#include "zk_client.h"
#include "zk_events.h"
#include "zk_realtime.h"
#include "zk_motion.h"
#include "zk_algo.h"

#endif /* ZK_API_H */
