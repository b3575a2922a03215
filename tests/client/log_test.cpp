#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

#include "Middleware/log.h"
#include "support/test_log.h"

namespace {

using zk_test::LogCapture;

struct FilterCase {
    int filter;
    bool debug, info, warn, error;
};

class LogFilter : public ::testing::TestWithParam<FilterCase> {};

TEST_P(LogFilter, LevelFunctionsPassAtOrAboveTheFilter)
{
    const FilterCase c = GetParam();
    LogCapture log(c.filter);
    zk_log_debug("d\n");
    zk_log_info("i\n");
    zk_log_warn("w\n");
    zk_log_error("e\n");
    EXPECT_EQ(log.contains("d\n"), c.debug);
    EXPECT_EQ(log.contains("i\n"), c.info);
    EXPECT_EQ(log.contains("w\n"), c.warn);
    EXPECT_EQ(log.contains("e\n"), c.error);
}

INSTANTIATE_TEST_SUITE_P(AllLevels, LogFilter,
                         ::testing::Values(FilterCase{LOG_LEVEL_DEBUG, true, true, true, true},
                                           FilterCase{LOG_LEVEL_INFO, false, true, true, true},
                                           FilterCase{LOG_LEVEL_WARN, false, false, true, true},
                                           FilterCase{LOG_LEVEL_ERROR, false, false, false, true}));

TEST(Log, GenericLevelFunctionPassesOnlyBelowTheFilter)
{
    LogCapture log(LOG_LEVEL_WARN);
    zk_log(LOG_LEVEL_DEBUG, "debug\n");
    zk_log(LOG_LEVEL_INFO, "info\n");
    zk_log(LOG_LEVEL_WARN, "warn\n");
    zk_log(LOG_LEVEL_ERROR, "error\n");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"debug\n", "info\n"}));
}

TEST(Log, DefaultSinkPrintsTheBareErrorToStandardError)
{
    zk_set_log_call_back(nullptr, LOG_LEVEL_ERROR);
    ::testing::internal::CaptureStderr();
    zk_log_warn("a warning %d\n", 1);
    zk_log_error("an error %d\n", 2);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "an error 2\n");
}

TEST(Log, HostCallbackReceivesTheRawFormatAndArguments)
{
    static std::string format_seen, text_seen;
    static int value_seen = 0;
    zk_set_log_call_back(
        [](const char* format, va_list args) {
            format_seen = format;
            text_seen = va_arg(args, const char*);
            value_seen = va_arg(args, int);
        },
        LOG_LEVEL_INFO);
    zk_log_info("[%s] value %d\n", "caller", 7);
    zk_set_log_call_back(nullptr, LOG_LEVEL_ERROR);
    EXPECT_EQ(format_seen, "[%s] value %d\n");
    EXPECT_EQ(text_seen, "caller");
    EXPECT_EQ(value_seen, 7);
}

TEST(Log, SaveFileStampsEveryLineWithTheLocalTime)
{
    const std::string path = ::testing::TempDir() + "zk_log_save_test.txt";
    std::remove(path.c_str());
    zk_set_log_save(path.c_str());
    ::testing::internal::CaptureStderr();
    zk_log_debug("first %d\n", 1);
    zk_log_error("second\n");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");  // nothing goes to standard error any more

    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    const std::string stamp = R"(\d{4}-\d{2}-\d{2} \d{2}_\d{2}_\d{2})";
    const std::regex expected("\\[" + stamp + "\\] Begin API Testing\\.\n" +  //
                              "\\[" + stamp + "\\]: first 1\n\n" +            //
                              "\\[" + stamp + "\\]: second\n\n");
    EXPECT_TRUE(std::regex_match(text.str(), expected)) << text.str();
}

TEST(Log, SaveFileLinesAreCutAt1024Bytes)
{
    const std::string path = ::testing::TempDir() + "zk_log_long_test.txt";
    std::remove(path.c_str());
    zk_set_log_save(path.c_str());
    const std::string long_text(3000, 'x');
    zk_log_error("%s", long_text.c_str());
    std::ifstream file(path);
    std::string begin, line;
    std::getline(file, begin);
    std::getline(file, line);
    const auto payload = line.substr(line.find("]: ") + 3);
    EXPECT_EQ(payload, std::string(1023, 'x'));
}

TEST(LogDeathTest, UnopenableSaveFileEndsTheProcess)
{
    EXPECT_EXIT(zk_set_log_save("/nonexistent-dir/x/log.txt"), ::testing::ExitedWithCode(1), "Failed to open log file");
}

void call_file_sink(const char* message, ...)
{
    va_list args;
    va_start(args, message);
    custom_api_log(message, args);
    va_end(args);
}

TEST(Log, NullMessageToTheFileSinkIsReported)
{
    ::testing::internal::CaptureStderr();
    call_file_sink(nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Error: message is a null pointer\n");
}

TEST(Log, CurrentTimeHasTheFileFormat)
{
    EXPECT_TRUE(std::regex_match(zk_get_cur_time(), std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}_\d{2}_\d{2})")));
}

}  // namespace
