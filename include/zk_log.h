/* Logging: a level filter with a replaceable sink, and an optional log file. */
#ifndef ZK_LOG_H
#define ZK_LOG_H

#include <stdarg.h>

#include "zk_export.h"

ZK_EXTERN_C_BEGIN

typedef enum {
    LOG_LEVEL_DEBUG = 0,
    LOG_LEVEL_INFO = 1,
    LOG_LEVEL_WARN = 2,
    LOG_LEVEL_ERROR = 3
} LogLevel;

/* Receives the raw printf format and its arguments; formatting is the sink's business. */
typedef void (*LogCallback)(const char* format, va_list args);

#if defined(__GNUC__)
#define ZK_LOG_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define ZK_LOG_PRINTF(fmt, first)
#endif

/* The four level functions: debug passes a DEBUG filter only, info an INFO filter or lower,
 * warn a WARN filter or lower, error every filter. */
ZK_API void zk_log_debug(const char* format, ...) ZK_LOG_PRINTF(1, 2);
ZK_API void zk_log_info(const char* format, ...) ZK_LOG_PRINTF(1, 2);
ZK_API void zk_log_warn(const char* format, ...) ZK_LOG_PRINTF(1, 2);
ZK_API void zk_log_error(const char* format, ...) ZK_LOG_PRINTF(1, 2);
/* Passes a line whose level is below the filter: the opposite sense to the four above. */
ZK_API void zk_log(LogLevel level, const char* format, ...) ZK_LOG_PRINTF(2, 3);
ZK_API void zk_set_log_callback(LogCallback callback, LogLevel level);
/* The local time as "YYYY-MM-DD hh_mm_ss", in a buffer the calling thread's next call reuses. */
ZK_API const char* zk_get_cur_time(void);

/* Installs a sink and a filter level; a null callback restores the default sink, which
 * prints the bare message to standard error. */
ZK_API void zk_set_log_call_back(LogCallback callback, int level);

/* Appends every log line, all levels, to the file at path, stamped with the local time.
 * A file that cannot be opened ends the process with exit code 1. */
ZK_API void zk_set_log_save(const char* path);

ZK_EXTERN_C_END

#endif /* ZK_LOG_H */
