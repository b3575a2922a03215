// Captures the library's log lines in a test, formatted, so a test can assert on exact texts.
#pragma once

#include <string>
#include <vector>

namespace zk_test {

// Installs a capturing sink at the given filter level for the lifetime of the object and
// restores the default sink afterwards.
class LogCapture {
public:
    explicit LogCapture(int level = 0);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    bool contains(const std::string& text) const;
    void clear();
};

}  // namespace zk_test
