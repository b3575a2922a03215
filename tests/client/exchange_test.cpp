#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "Application/zk_exchange.h"
#include "Middleware/MIO_JSON.h"
#include "support/connected_arm.h"
#include "support/test_log.h"

namespace {

using namespace std::chrono_literals;
using zk_test::ConnectedArm;
using zk_test::LogCapture;

const char* kSetReply = R"({"command":"set_x","set_state":true})";

// --- The set pattern over the wire -----------------------------------------------------

struct SetCase {
    const char* name;
    std::string reply;  // raw bytes the controller answers with
    int result;
};

class SetPattern : public ::testing::TestWithParam<SetCase> {};

TEST_P(SetPattern, ResultCodeOfTheReply)
{
    ConnectedArm arm;
    zk_set_timeout(100);
    arm.controller().on("set_x").reply_raw(GetParam().reply);
    EXPECT_EQ(zk_set_data_common(arm.handle(), 5, "set_x", "x"), GetParam().result);
    EXPECT_EQ(arm.sent(), std::vector<std::string>{R"({"command":"set_x","x":5})"});
}

INSTANTIATE_TEST_SUITE_P(
    Replies, SetPattern,
    ::testing::Values(
        SetCase{"accepted", std::string(kSetReply) + "\r\n", 0},
        SetCase{"refused", "{\"command\":\"set_x\",\"set_state\":false}\r\n", 1},
        SetCase{"keyMissing", "{\"command\":\"set_x\"}\r\n", -3},
        SetCase{"keyNotBool", "{\"command\":\"set_x\",\"set_state\":1}\r\n", -3},
        SetCase{"otherNameFirst", "{\"command\":\"set_y\",\"set_state\":false}\r\n" + std::string(kSetReply) + "\r\n", 0},
        SetCase{"garbageFirst", "not json at all\r\n" + std::string(kSetReply) + "\r\n", 0},
        SetCase{"stateNamedReply", "{\"state\":\"set_x\",\"set_state\":true}\r\n", 0},
        SetCase{"noName", "{\"set_state\":true}\r\n", -2},
        SetCase{"unterminated", kSetReply, -2},
        SetCase{"silence", "", -2}),
    [](const auto& info) { return info.param.name; });

TEST(Exchange, ReplySplitAcrossReadsIsReassembled)
{
    ConnectedArm arm;
    arm.controller().on("set_x").reply(kSetReply).split({3, 17, 30});
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 0);
}

TEST(Exchange, LateReplyTimesOutAndClosedPeerTimesOut)
{
    ConnectedArm arm;
    zk_set_timeout(60);
    LogCapture log(LOG_LEVEL_ERROR);
    arm.controller().on("set_x").reply(kSetReply).after(150ms);
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), -2);
    EXPECT_TRUE(log.contains("[set_x] set_x revice error\n"));
    arm.controller().on("set_x").close_connection();
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), -2);
}

TEST(Exchange, TimeoutBelowOneRoundFailsAtOnceAfterSending)
{
    ConnectedArm arm;
    arm.controller().always("set_x").reply(kSetReply);
    for (int timeout : {0, 1}) {
        zk_set_timeout(timeout);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), -2);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    }
    EXPECT_TRUE(arm.wait_sent(2));
}

TEST(Exchange, FrameLargerThanTheAssemblerIsDropped)
{
    ConnectedArm arm;
    zk_set_timeout(300);
    const std::string huge = "{\"command\":\"set_x\",\"pad\":\"" + std::string(25000, 'a') + "\",\"set_state\":false}\r\n";
    arm.controller().on("set_x").reply_raw(huge + kSetReply + "\r\n");
    EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), 0);  // only the second frame is seen
}

TEST(Exchange, AssemblerHoldsFramesOfAtMost20479Bytes)
{
    const std::string head = R"({"command":"set_x","set_state":true,"pad":")";
    const std::string tail = "\"}\r\n";
    // A frame that fits is matched (and, outgrowing the 1024-byte reply buffer, fails to
    // parse); one byte more and it is dropped unseen, so the wait runs out.
    for (const auto& [length, result] : {std::pair{20479, -3}, std::pair{20480, -2}}) {
        ConnectedArm arm;
        zk_set_timeout(300);
        const std::string frame = head + std::string(length - head.size() - tail.size(), 'a') + tail;
        arm.controller().on("set_x").reply_raw(frame);
        EXPECT_EQ(zk_set_data_common(arm.handle(), 1, "set_x", "x"), result) << length;
    }
}

TEST(Exchange, ReplyLargerThanTheCallersBufferFailsToParse)
{
    ConnectedArm arm;
    const std::string big = R"({"command":"get_x","pad":")" + std::string(2000, 'a') + R"(","x":7})";
    arm.controller().on("get_x").reply(big);
    int value = 0;
    EXPECT_EQ(zk_get_data_common(arm.handle(), &value, "get_x", "x"), -3);
    EXPECT_EQ(value, 0);
}

TEST(Exchange, GetDataCommonReadsOneInteger)
{
    ConnectedArm arm;
    arm.controller().on("get_x").reply(R"({"command":"get_x","x":-42})");
    int value = 0;
    EXPECT_EQ(zk_get_data_common(arm.handle(), &value, "get_x", "x"), 0);
    EXPECT_EQ(value, -42);
    EXPECT_EQ(arm.last_sent(), R"({"command":"get_x"})");
    EXPECT_EQ(zk_get_data_common(arm.handle(), nullptr, "get_x", "x"), -6);
    arm.controller().on("get_x").reply(R"({"command":"get_x","y":1})");
    EXPECT_EQ(zk_get_data_common(arm.handle(), &value, "get_x", "x"), -3);
}

TEST(Exchange, DeletedOrNullHandleFailsWithoutALogLine)
{
    ConnectedArm arm;
    zk_robot_handle* handle = arm.handle();
    LogCapture log(LOG_LEVEL_DEBUG);
    uint8_t buf[64] = {};
    const JsonValue request[] = {zk_json_command("set_x")};
    EXPECT_EQ(zk_pack_lock_set("t", nullptr, request, 1, "set_x", buf, sizeof buf, 100), -1);
    zk_robot_handle stranger{1};
    EXPECT_EQ(zk_pack_lock_set("t", &stranger, request, 1, "set_x", buf, sizeof buf, 100), -1);
    EXPECT_TRUE(log.lines().empty());
    (void)handle;
}

TEST(Exchange, OneWayPatternSleepsAndReadsNothing)
{
    ConnectedArm arm;
    arm.controller().always("go").reply(R"({"command":"go"})");
    const JsonValue request[] = {zk_json_command("go"), zk_json_int("v", 3)};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(zk_pack_lock_set("t", arm.handle(), request, 2, nullptr, nullptr, 0, 30), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_TRUE(arm.wait_sent(1));
    EXPECT_EQ(arm.last_sent(), R"({"command":"go","v":3})");
}

TEST(Exchange, EventWaitSendsNothingAndLogsTheEndOfAPointStream)
{
    ConnectedArm arm;
    LogCapture log(LOG_LEVEL_INFO);
    uint8_t buf[256] = {};
    EXPECT_EQ(zk_pack_lock_set("zk_save", arm.handle(), nullptr, 0, "point", buf, sizeof buf, 20), -2);
    EXPECT_TRUE(log.contains("[zk_save] point save_trajectory complete\n"));
    EXPECT_TRUE(arm.sent().empty());

    arm.controller().push(R"({"state":"current_trajectory_state","trajectory_state":true,"device":0})");
    EXPECT_GT(zk_pack_lock_set("zk_move", arm.handle(), nullptr, 0, "current_trajectory_state", buf, sizeof buf, 500), 0);
    EXPECT_NE(std::strstr(reinterpret_cast<char*>(buf), "\"trajectory_state\":true"), nullptr);
}

TEST(Exchange, MembersGoOnTheWireInOrderAndNullsAreSkipped)
{
    ConnectedArm arm;
    const int joints[] = {1, -2, 300000};
    cJSON* nested = MIO_JSON_CreateObject();
    MIO_JSON_AddItemToObject(nested, "a", MIO_JSON_CreateTrue());
    const JsonValue request[] = {zk_json_command("mix"),  zk_json_int("i", -7),           zk_json_str("skip", nullptr),
                                 zk_json_str(nullptr, "x"), zk_json_array("j", joints, 3), zk_json_bool("b", false),
                                 zk_json_object("o", nested), zk_json_array("e", nullptr, 0)};
    EXPECT_EQ(zk_pack_lock_set("t", arm.handle(), request, std::size(request), nullptr, nullptr, 0, 0), 0);
    ASSERT_TRUE(arm.wait_sent(1));
    EXPECT_EQ(arm.last_sent(), R"({"command":"mix","i":-7,"j":[1,-2,300000],"b":false,"o":{"a":true},"e":[]})");
}

// --- Parsers ------------------------------------------------------------------------------

TEST(ParseSetCommand, ResultsAndTheSilentProbe)
{
    LogCapture log(LOG_LEVEL_DEBUG);
    EXPECT_EQ(parse_zk_set_command("c", R"({"k":true})", "k"), 0);
    EXPECT_TRUE(log.contains("[c] k: true\n"));
    EXPECT_EQ(parse_zk_set_command("c", R"({"k":false})", "k"), 1);
    EXPECT_TRUE(log.contains("[c] k: false\n"));
    EXPECT_EQ(parse_zk_set_command("c", "not json", "k"), -3);
    EXPECT_TRUE(log.contains("[c] not json parse err\n"));
    EXPECT_EQ(parse_zk_set_command("c", R"({"k":"yes"})", "k"), -3);
    EXPECT_TRUE(log.contains("[c] k command parse err\n"));
    log.clear();
    EXPECT_EQ(parse_zk_set_command("c", R"({"data":1})", "given_state"), -3);
    EXPECT_EQ(parse_zk_set_command("c", "given_state", "k"), -3);
    EXPECT_TRUE(log.lines().empty());
}

struct MoveCase {
    const char* frame;
    int result, device, connect;
};

class ParseMoveCommand : public ::testing::TestWithParam<MoveCase> {};

TEST_P(ParseMoveCommand, StateDeviceAndConnect)
{
    const MoveCase c = GetParam();
    int device = 99, connect = 99;
    EXPECT_EQ(parse_zk_move_command(c.frame, &device, &connect), c.result);
    if (c.result != -3 || c.device != 99) {
        EXPECT_EQ(device, c.device);
        EXPECT_EQ(connect, c.connect);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, ParseMoveCommand,
    ::testing::Values(MoveCase{R"({"trajectory_state":true,"device":0,"trajectory_connect":1})", 1, 0, 1},
                      MoveCase{R"({"trajectory_state":false,"device":2,"trajectory_connect":0})", 0, 2, 0},
                      MoveCase{R"({"device":1,"trajectory_connect":0})", -1, 1, 0},
                      MoveCase{R"({"trajectory_state":true,"trajectory_connect":0})", -3, -1, 0},
                      MoveCase{R"({"trajectory_state":true,"device":-2,"trajectory_connect":0})", -3, -2, 0},
                      MoveCase{"{", -3, 99, 99}));

TEST(CommonJsonParse, RootMembersOfEveryKind)
{
    KeyValue keys[] = {zk_expect(JSON_STRING, "s"), zk_expect(JSON_INT, "i"),      zk_expect(JSON_BOOL, "b"),
                       zk_expect(JSON_BOOL, "nb"), zk_expect(JSON_ARRAY, "a", 3), zk_expect(JSON_ARRAY, "e", 0),
                       zk_expect(JSON_OBJECT, "o")};
    keys[3].value.bool_value = true;
    const char* reply = R"({"s":"text","i":12,"b":true,"nb":5,"a":[1,2,3],"e":[],"o":{"k":[1]}})";
    ASSERT_EQ(common_json_parse("c", reply, keys, std::size(keys)), 0);
    EXPECT_STREQ(keys[0].value.str_value, "text");
    EXPECT_EQ(keys[1].value.int_value, 12);
    EXPECT_TRUE(keys[2].value.bool_value);
    EXPECT_TRUE(keys[3].value.bool_value);  // not a boolean: left as it was
    EXPECT_EQ(keys[4].value.array_value[2], 3);
    ASSERT_NE(keys[6].value.sub_json, nullptr);
    EXPECT_NE(MIO_JSON_GetObjectItem(keys[6].value.sub_json, "k"), nullptr);
    MIO_JSON_Delete(keys[6].value.sub_json);
}

TEST(CommonJsonParse, NestedStateTakesAnyNonEmptyArrayForSizeZero)
{
    KeyValue keys[] = {zk_expect(JSON_ARRAY, "joint", 0), zk_expect(JSON_INT, "err")};
    const char* reply = R"({"arm_state":{"joint":[1,2,3,4,5,6,7],"err":3},"err":9})";
    ASSERT_EQ(common_json_parse("c", reply, keys, 2), 0);
    EXPECT_EQ(keys[0].array_size, 7);
    EXPECT_EQ(keys[0].value.array_value[6], 7);
    EXPECT_EQ(keys[1].value.int_value, 3);  // looked up inside the nested object only

    KeyValue all[] = {zk_expect(JSON_ARRAY, "joint", 0)};
    EXPECT_EQ(common_json_parse("c", R"({"all_state":{"joint":[]}})", all, 1), -3);
    KeyValue huge[] = {zk_expect(JSON_ARRAY, "joint", 0)};
    std::string long_array = R"({"arm_state":{"joint":[)";
    for (int i = 0; i < 40; ++i) long_array += std::to_string(i) + (i < 39 ? "," : "]}}");
    ASSERT_EQ(common_json_parse("c", long_array.c_str(), huge, 1), 0);
    EXPECT_EQ(huge[0].array_size, 24);  // never more than the record holds
}

struct ParseFailure {
    const char* name;
    const char* reply;
    KeyValue key;
    const char* log_line;
};

class CommonJsonParseFailure : public ::testing::TestWithParam<ParseFailure> {};

TEST_P(CommonJsonParseFailure, MinusThreeWithItsLine)
{
    LogCapture log(LOG_LEVEL_ERROR);
    KeyValue key = GetParam().key;
    EXPECT_EQ(common_json_parse("c", GetParam().reply, &key, 1), -3);
    EXPECT_TRUE(log.contains(GetParam().log_line)) << ::testing::PrintToString(log.lines());
}

INSTANTIATE_TEST_SUITE_P(
    Table, CommonJsonParseFailure,
    ::testing::Values(
        ParseFailure{"notJson", "{", zk_expect(JSON_INT, "x"), "Error parsing JSON\n"},
        ParseFailure{"missing", R"({"y":1})", zk_expect(JSON_INT, "x"), "[c] x parsing error\n"},
        ParseFailure{"notString", R"({"x":1})", zk_expect(JSON_STRING, "x"), "[c] x is not a string\n"},
        ParseFailure{"notArray", R"({"x":1})", zk_expect(JSON_ARRAY, "x", 1), "[c] x is not an array\n"},
        ParseFailure{"tooLong", R"({"x":[1,2]})", zk_expect(JSON_ARRAY, "x", 1), "[c] Array size mismatch for key x\n"},
        ParseFailure{"tooShort", R"({"x":[1]})", zk_expect(JSON_ARRAY, "x", 2), "[c] Array size mismatch for key x\n"},
        ParseFailure{"rootSizeZero", R"({"x":[1]})", zk_expect(JSON_ARRAY, "x", 0), "[c] Array size mismatch for key x\n"},
        ParseFailure{"nestedObject", R"({"arm_state":{"x":{}}})", zk_expect(JSON_OBJECT, "x"),
                     "[c] Unsupported JSON value type for key x\n"},
        ParseFailure{"unknownType", R"({"x":1})", zk_expect(static_cast<JsonValueType>(5), "x"),
                     "[c] Unsupported JSON value type for key x\n"}),
    [](const auto& info) { return info.param.name; });

// --- The JSON layer's in-band results -----------------------------------------------------

TEST(MioJson, InBandResultsForBadInput)
{
    cJSON* root = MIO_JSON_Parse(R"({"n":4,"s":"t","b":false,"a":[5,"x"]})");
    EXPECT_EQ(MIO_JSON_Parse(nullptr), nullptr);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(nullptr, "n"), -2);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(root, "none"), -1);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(root, "s"), -3);
    EXPECT_EQ(MIO_JSON_GetObjectItemInt(root, "n"), 4);
    EXPECT_EQ(MIO_JSON_GetObjectItemStr(root, "n"), nullptr);
    EXPECT_STREQ(MIO_JSON_GetObjectItemStr(root, "s"), "t");
    EXPECT_EQ(MIO_JSON_GetObjectItemBool(root, "b"), 0);
    EXPECT_EQ(MIO_JSON_GetObjectItemBool(root, "n"), -1);
    const cJSON* array = MIO_JSON_GetObjectItem(root, "a");
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 0), 5);
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 1), -1);
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(array, 2), -1);
    EXPECT_EQ(MIO_JSON_GetArrayItemInt(root, 0), -1);
    EXPECT_EQ(MIO_JSON_GetArraySize(nullptr), 0);
    EXPECT_EQ(MIO_JSON_GetTypeFormItem(nullptr), 0);
    EXPECT_EQ(MIO_JSON_PrintUnformatted(nullptr), nullptr);
    MIO_JSON_AddItemToObject(nullptr, "x", nullptr);
    MIO_JSON_Delete(nullptr);
    MIO_JSON_Delete(root);
}

}  // namespace
