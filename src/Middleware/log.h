// Logging module: a level filter in front of a replaceable sink. Every other module of the
// client logs through the four level functions; nothing in the library prints elsewhere
// except where a message is defined to go to a standard stream.
#pragma once

#include <cstdarg>

#include "zk_log.h"

#define ZK_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))

extern "C" {
ZK_API void zk_log_debug(const char* format, ...) ZK_PRINTF_LIKE(1, 2);
ZK_API void zk_log_info(const char* format, ...) ZK_PRINTF_LIKE(1, 2);
ZK_API void zk_log_warn(const char* format, ...) ZK_PRINTF_LIKE(1, 2);
ZK_API void zk_log_error(const char* format, ...) ZK_PRINTF_LIKE(1, 2);
ZK_API void zk_log(LogLevel level, const char* format, ...) ZK_PRINTF_LIKE(2, 3);
ZK_API void zk_set_log_callback(LogCallback callback, LogLevel level);
ZK_API const char* zk_get_cur_time(void);
}

void default_log(const char* message, va_list args);
void custom_api_log(const char* message, va_list args);

// True when a line of this level would pass the filter; lets callers skip building
// expensive arguments for debug lines nobody will see.
bool zk_log_enabled(LogLevel level);
