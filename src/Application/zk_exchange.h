// The command exchange: one JSON line out, one named frame back, and the parsers every
// command family shares. Runs on the calling application thread.
#pragma once

#include <cJSON.h>

#include <cstddef>
#include <cstdint>

#include "Application/zk_handle.h"

enum JsonValueType { JSON_STRING = 0, JSON_INT = 1, JSON_ARRAY = 2, JSON_BOOL = 3, JSON_OBJECT = 4 };

// One member of a command to send. Entries with a null key are skipped; by convention the
// first entry is the "command" text, which error lines quote.
struct JsonValue {
    JsonValueType type;
    const char* key;
    int array_size;
    union {
        const char* str_value;
        int int_value;
        const int* array_value;
        bool bool_value;
        cJSON* sub_json;  // owned by the exchange once handed over
    } value;
};

constexpr int kKeyValueTextCapacity = 28;
constexpr int kKeyValueArrayCapacity = 24;

// One expected member of a reply, zeroed by the caller and filled by common_json_parse.
struct KeyValue {
    JsonValueType type;
    const char* key;
    int array_size;  // expected element count; 0 takes what comes (see common_json_parse)
    union {
        char str_value[kKeyValueTextCapacity];
        int int_value;
        int array_value[kKeyValueArrayCapacity];
        bool bool_value;
        cJSON* sub_json;  // deep copy owned by the caller
    } value;
};

constexpr int kRecvFrameCapacity = 20480;

// Frame assembler of the single-thread wait.
struct RECV_FRAME {
    int length;
    uint8_t data[kRecvFrameCapacity + 1];  // one spare byte keeps the text terminated
};

// Reply buffers of ordinary commands.
constexpr int kReplyBufferSize = 1024;

// --- Building members --------------------------------------------------------------------
inline JsonValue zk_json_str(const char* key, const char* text)
{
    JsonValue v{};
    v.type = JSON_STRING;
    v.key = key;
    v.value.str_value = text;
    return v;
}
inline JsonValue zk_json_command(const char* command) { return zk_json_str("command", command); }
inline JsonValue zk_json_int(const char* key, int number)
{
    JsonValue v{};
    v.type = JSON_INT;
    v.key = key;
    v.value.int_value = number;
    return v;
}
inline JsonValue zk_json_array(const char* key, const int* values, int count)
{
    JsonValue v{};
    v.type = JSON_ARRAY;
    v.key = key;
    v.array_size = count;
    v.value.array_value = values;
    return v;
}
inline JsonValue zk_json_bool(const char* key, bool flag)
{
    JsonValue v{};
    v.type = JSON_BOOL;
    v.key = key;
    v.value.bool_value = flag;
    return v;
}
inline JsonValue zk_json_object(const char* key, cJSON* tree)
{
    JsonValue v{};
    v.type = JSON_OBJECT;
    v.key = key;
    v.value.sub_json = tree;
    return v;
}

inline KeyValue zk_expect(JsonValueType type, const char* key, int array_size = 0)
{
    KeyValue k{};
    k.type = type;
    k.key = key;
    k.array_size = array_size;
    return k;
}

// --- The exchange ------------------------------------------------------------------------
int zk_pack_lock_set(const char* caller_function_name, zk_robot_handle* handle, const JsonValue* json_values,
                     size_t num_values, const char* command, uint8_t* buf, int buf_len, int timeout);
int common_json_pack_set(const char* caller_function_name, zk_handle_t* handle, const JsonValue* json_values,
                         size_t num_values);
int handle_revice_data(const char* caller_function_name, zk_handle_t* handle, const char* command, uint8_t* buf,
                       int buf_len, int timeout);

// --- Shared reply parsers ----------------------------------------------------------------
int common_json_parse(const char* caller_function_name, const char* json_str, KeyValue* key_values, size_t num_keys);
int parse_zk_set_command(const char* caller_function_name, const char* json_str, const char* key);
int parse_zk_move_command(const char* json_str, int* device, int* trajectory_connect);

// The frame name a reply is filed under: its "command" text, else its "state" text.
const char* zk_frame_name(const cJSON* frame);

// --- Pattern helpers for the command families --------------------------------------------

// Set pattern: send, await reply_name, read the boolean result_key. Returns the exchange's
// result when below 1, else parse_zk_set_command's.
int zk_exchange_set(const char* caller, zk_robot_handle* handle, const JsonValue* values, size_t count,
                    const char* reply_name, const char* result_key, int timeout);

// Get pattern, first half: send {"command": command} (or the given members), await
// reply_name into buf. Returns the reply length, or the exchange's result below 1.
int zk_exchange_get(const char* caller, zk_robot_handle* handle, const JsonValue* values, size_t count,
                    const char* reply_name, char* buf, int buf_len, int timeout);

// Logs "[caller] name is NULL!" and yields -6 for a null argument a command reads or writes.
int zk_null_argument(const char* caller, const char* name);
#define ZK_REQUIRE_ARG(caller, pointer)                                      \
    do {                                                                     \
        if ((pointer) == nullptr) return zk_null_argument(caller, #pointer); \
    } while (0)

// Reads the arm's degrees of freedom for a command that needs them; logs "[caller] The
// robotic arm has been disconnected" and gives -1 when they are not 6 or 7.
int zk_check_arm_dof(const char* caller, zk_robot_handle* handle, int* dof);

template <size_t N>
inline int zk_exchange_set(const char* caller, zk_robot_handle* handle, const JsonValue (&values)[N],
                           const char* reply_name, const char* result_key, int timeout)
{
    return zk_exchange_set(caller, handle, values, N, reply_name, result_key, timeout);
}
