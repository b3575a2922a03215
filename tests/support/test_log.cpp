#include "support/test_log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "zk_log.h"

namespace zk_test {
namespace {

std::mutex g_mutex;
std::vector<std::string> g_lines;

void capture(const char* format, va_list args)
{
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.emplace_back(text);
}

}  // namespace

LogCapture::LogCapture(int level)
{
    clear();
    zk_set_log_call_back(capture, level);
}

LogCapture::~LogCapture() { zk_set_log_call_back(nullptr, LOG_LEVEL_ERROR); }

std::vector<std::string> LogCapture::lines() const
{
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_lines;
}

bool LogCapture::contains(const std::string& text) const
{
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const auto& line : g_lines)
        if (line == text) return true;
    return false;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
}

}  // namespace zk_test
