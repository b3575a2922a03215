#include "Middleware/log.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// The sink and filter may be replaced by one host thread while library threads log, so
// both are atomics rather than a plain record.
struct Logger {
    std::atomic<LogCallback> callback{default_log};
    std::atomic<int> log_level{LOG_LEVEL_ERROR};
};

Logger gLogger;
std::atomic<FILE*> g_log_file{nullptr};

constexpr size_t kLogLineCapacity = 1024;

void emit(const char* format, va_list args)
{
    LogCallback sink = gLogger.callback.load(std::memory_order_acquire);
    sink(format, args);
}

}  // namespace

#define ZK_EMIT_IF(condition, format)          \
    do {                                       \
        if (condition) {                       \
            va_list args;                      \
            va_start(args, format);            \
            emit(format, args);                \
            va_end(args);                      \
        }                                      \
    } while (0)

bool zk_log_enabled(LogLevel level)
{
    return gLogger.log_level.load(std::memory_order_relaxed) <= static_cast<int>(level);
}

void zk_log_debug(const char* format, ...) { ZK_EMIT_IF(zk_log_enabled(LOG_LEVEL_DEBUG), format); }
void zk_log_info(const char* format, ...) { ZK_EMIT_IF(zk_log_enabled(LOG_LEVEL_INFO), format); }
void zk_log_warn(const char* format, ...) { ZK_EMIT_IF(zk_log_enabled(LOG_LEVEL_WARN), format); }
void zk_log_error(const char* format, ...) { ZK_EMIT_IF(zk_log_enabled(LOG_LEVEL_ERROR), format); }

// Deliberately the opposite sense to the four functions above: a line passes when its
// level is below the filter. Kept so for hosts that rely on it.
void zk_log(LogLevel level, const char* format, ...)
{
    ZK_EMIT_IF(static_cast<int>(level) < gLogger.log_level.load(std::memory_order_relaxed), format);
}

void zk_set_log_callback(LogCallback callback, LogLevel level)
{
    gLogger.callback.store(callback ? callback : default_log, std::memory_order_release);
    gLogger.log_level.store(static_cast<int>(level), std::memory_order_relaxed);
}

void zk_set_log_call_back(LogCallback callback, int level)
{
    zk_set_log_callback(callback, static_cast<LogLevel>(level));
}

void default_log(const char* message, va_list args)
{
    std::vfprintf(stderr, message, args);
}

const char* zk_get_cur_time(void)
{
    // One buffer per thread, so that concurrent log lines never read a half-written time.
    thread_local char text[64];
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d_%02d_%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

void custom_api_log(const char* message, va_list args)
{
    if (message == nullptr) {
        std::fprintf(stderr, "Error: message is a null pointer\n");
        return;
    }
    char line[kLogLineCapacity];
    std::vsnprintf(line, sizeof line, message, args);
    FILE* file = g_log_file.load(std::memory_order_acquire);
    if (file != nullptr) {
        std::fprintf(file, "[%s]: %s\n", zk_get_cur_time(), line);
        std::fflush(file);
    }
}

void zk_set_log_save(const char* path)
{
    FILE* file = path ? std::fopen(path, "a") : nullptr;
    if (file == nullptr) {
        std::perror("Failed to open log file");
        std::exit(1);
    }
    // An earlier log file stays open: a library thread may be writing to it right now.
    std::fprintf(file, "[%s] Begin API Testing.\n", zk_get_cur_time());
    std::fflush(file);
    g_log_file.store(file, std::memory_order_release);
    zk_set_log_callback(custom_api_log, LOG_LEVEL_DEBUG);
}
