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

/* Installs a sink and a filter level; a null callback restores the default sink, which
 * prints the bare message to standard error. */
ZK_API void zk_set_log_call_back(LogCallback callback, int level);

/* Appends every log line, all levels, to the file at path, stamped with the local time.
 * A file that cannot be opened ends the process with exit code 1. */
ZK_API void zk_set_log_save(const char* path);

ZK_EXTERN_C_END

#endif /* ZK_LOG_H */
