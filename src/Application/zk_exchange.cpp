#include "Application/zk_exchange.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "Application/zk_drag_stream.h"
#include "Application/zk_receive.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"

namespace {

using Clock = std::chrono::steady_clock;

// A wait is counted in rounds of this length: a time-out of t ms allows t / 2 rounds.
constexpr auto kWaitRound = std::chrono::milliseconds(2);

// Each thread assembles its own frames, so single-mode waits on different threads cannot
// corrupt each other's bytes.
thread_local RECV_FRAME recv_data;

void clear_recv_data()
{
    recv_data.length = 0;
    std::memset(recv_data.data, 0, sizeof recv_data.data);
}

// Trees handed over in JSON_OBJECT members belong to the exchange; free those that never
// reached a printed object.
void free_unsent_trees(const JsonValue* json_values, size_t num_values)
{
    if (json_values == nullptr) return;
    for (size_t i = 0; i < num_values; ++i)
        if (json_values[i].type == JSON_OBJECT) MIO_JSON_Delete(json_values[i].value.sub_json);
}

const char* first_text(const JsonValue* json_values, size_t num_values)
{
    if (json_values == nullptr || num_values == 0 || json_values[0].type != JSON_STRING ||
        json_values[0].value.str_value == nullptr)
        return "";
    return json_values[0].value.str_value;
}

// Copies a frame into a caller's reply buffer: zeroed first, and at most buf_len - 1 bytes,
// so a reply that outgrows its buffer stays terminated and simply fails to parse.
void copy_reply(uint8_t* buf, int buf_len, const uint8_t* frame, int length)
{
    std::memset(buf, 0, static_cast<size_t>(buf_len));
    const int copied = std::min(length, buf_len - 1);
    if (copied > 0) std::memcpy(buf, frame, static_cast<size_t>(copied));
}

// Feeds bytes into the assembler; returns the frame length when a whole frame named
// command is complete (copied into buf), else 0.
int assemble(zk_handle_t* handle, const char* command, const uint8_t* bytes, int count, uint8_t* buf, int buf_len)
{
    for (int i = 0; i < count; ++i) {
        recv_data.data[recv_data.length++] = bytes[i];
        if (recv_data.length > kRecvFrameCapacity - 1) {  // larger than any frame: drop it
            clear_recv_data();
            continue;
        }
        const int n = recv_data.length;
        if (!(n > 5 && recv_data.data[n - 1] == '\n' && recv_data.data[n - 2] == '\r')) continue;

        cJSON* frame = cJSON_ParseWithLength(reinterpret_cast<const char*>(recv_data.data), static_cast<size_t>(n));
        if (frame == nullptr) {
            clear_recv_data();
            continue;
        }
        const char* name = zk_frame_name(frame);
        if (name == nullptr) {
            if (MIO_JSON_GetObjectItem(frame, "point") != nullptr)
                drag_teach_single_mode_point(handle, reinterpret_cast<const char*>(recv_data.data), n);
            MIO_JSON_Delete(frame);
            clear_recv_data();
            continue;
        }
        const bool wanted = std::strcmp(name, command) == 0;
        MIO_JSON_Delete(frame);
        if (!wanted) {
            clear_recv_data();
            continue;
        }
        copy_reply(buf, buf_len, recv_data.data, n);
        zk_log_debug("thread_socket_receive len %d robot_handle: %d message:%s\n", n, handle->id,
                     reinterpret_cast<const char*>(recv_data.data));
        return n;
    }
    return 0;
}

// Single-thread wait: this thread reads the socket itself. Each round waits at most one
// round's time for data, and returns as soon as the awaited frame is complete.
int single_mode_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len, Clock::time_point deadline)
{
    zk_socket_handle* socket = handle->socket_handle;
    std::unique_ptr<uint8_t[]> chunk(new uint8_t[static_cast<size_t>(buf_len)]);
    for (Clock::time_point now = Clock::now(); now < deadline; now = Clock::now()) {
        const auto round_end = std::min(deadline, now + kWaitRound);
        const auto wait_ms = std::chrono::ceil<std::chrono::milliseconds>(round_end - now).count();
        pollfd pfd{socket->socket_id, POLLIN, 0};
        if (::poll(&pfd, 1, static_cast<int>(wait_ms)) <= 0) {
            drag_teach_single_mode_idle_round();
            continue;
        }
        const int count = socket->block_receive(socket, chunk.get(), buf_len);
        if (count <= 0) {
            // A closed peer stays readable: sleep out the round rather than spin.
            drag_teach_single_mode_idle_round();
            std::this_thread::sleep_until(round_end);
            continue;
        }
        const int length = assemble(handle, command, chunk.get(), count, buf, buf_len);
        if (length > 0) return length;
    }
    return -1;
}

}  // namespace

const char* zk_frame_name(const cJSON* frame)
{
    const char* name = MIO_JSON_GetObjectItemStr(frame, "command");
    return name ? name : MIO_JSON_GetObjectItemStr(frame, "state");
}

int zk_check_arm_dof(const char* caller, zk_robot_handle* handle, int* dof)
{
    if (zk_get_arm_dof(handle, dof) != 0) {
        zk_log_error("[%s] The robotic arm has been disconnected\n", caller);
        return -1;
    }
    return 0;
}

int zk_null_argument(const char* caller, const char* name)
{
    zk_log_error("[%s] %s is NULL!\n", caller, name);
    return -6;
}

// -----------------------------------------------------------------------------------------
// Sending
// -----------------------------------------------------------------------------------------

int common_json_pack_set(const char* caller_function_name, zk_handle_t* handle, const JsonValue* json_values,
                         size_t num_values)
{
    if (json_values == nullptr || num_values == 0) return -1;
    cJSON* object = MIO_JSON_CreateObject();
    for (size_t i = 0; i < num_values; ++i) {
        const JsonValue& v = json_values[i];
        if (v.key == nullptr) {
            if (v.type == JSON_OBJECT) MIO_JSON_Delete(v.value.sub_json);
            continue;
        }
        switch (v.type) {
        case JSON_STRING:
            if (v.value.str_value != nullptr)
                MIO_JSON_AddItemToObject(object, v.key, MIO_JSON_CreateString(v.value.str_value));
            break;
        case JSON_INT: MIO_JSON_AddItemToObject(object, v.key, MIO_JSON_CreateNumber(v.value.int_value)); break;
        case JSON_ARRAY: {
            cJSON* array = MIO_JSON_CreateArray();
            for (int k = 0; k < v.array_size && v.value.array_value != nullptr; ++k)
                MIO_JSON_AddItemToArray(array, MIO_JSON_CreateNumber(v.value.array_value[k]));
            MIO_JSON_AddItemToObject(object, v.key, array);
            break;
        }
        case JSON_BOOL:
            MIO_JSON_AddItemToObject(object, v.key, v.value.bool_value ? MIO_JSON_CreateTrue() : MIO_JSON_CreateFalse());
            break;
        case JSON_OBJECT: MIO_JSON_AddItemToObject(object, v.key, v.value.sub_json); break;
        }
    }
    char* text = MIO_JSON_PrintUnformatted(object);
    MIO_JSON_Delete(object);
    if (text == nullptr) return -1;

    const size_t length = std::strlen(text);
    char* line = static_cast<char*>(std::malloc(length + 3));
    if (line == nullptr) {
        cJSON_free(text);
        return -1;
    }
    std::memcpy(line, text, length);
    line[length] = '\r';
    line[length + 1] = '\n';
    line[length + 2] = '\0';
    zk_log_debug("send is: %s\n", line);
    zk_socket_handle* socket = handle->socket_handle;
    const int sent = socket->block_send(socket, reinterpret_cast<uint8_t*>(line), static_cast<int>(length + 2));
    std::free(line);
    cJSON_free(text);
    return sent;
}

// -----------------------------------------------------------------------------------------
// The exchange
// -----------------------------------------------------------------------------------------

int handle_revice_data(const char* caller_function_name, zk_handle_t* handle, const char* command, uint8_t* buf,
                       int buf_len, int timeout)
{
    clear_recv_data();
    const int rounds = timeout / 2;
    const auto deadline = Clock::now() + rounds * kWaitRound;
    if (rounds <= 0 || handle == nullptr || command == nullptr || buf == nullptr || buf_len < 1) return -1;

    switch (g_mode.load()) {
    case ZK_DUAL_MODE_E:
    case ZK_TRIPLE_MODE_E: return zk_fifo_wait(handle, command, buf, buf_len, deadline);
    case ZK_SINGLE_MODE_E: return single_mode_wait(handle, command, buf, buf_len, deadline);
    default:
        // No reader exists in an unknown mode: the wait simply runs out.
        std::this_thread::sleep_until(deadline);
        return -1;
    }
}

int zk_pack_lock_set(const char* caller_function_name, zk_robot_handle* handle, const JsonValue* json_values,
                     size_t num_values, const char* command, uint8_t* buf, int buf_len, int timeout)
{
    ZkTableReadGuard table(handle);
    zk_handle_t* zk_handle = table.get();
    if (zk_handle == nullptr) {
        free_unsent_trees(json_values, num_values);
        return -1;
    }
    if (json_values != nullptr && common_json_pack_set(caller_function_name, zk_handle, json_values, num_values) != 0) {
        zk_log_error("[%s] %s send error\n", caller_function_name, first_text(json_values, num_values));
        return -1;
    }
    if (command == nullptr) {
        if (timeout > 0) std::this_thread::sleep_for(std::chrono::milliseconds(timeout));
        return 0;
    }
    const int length = handle_revice_data(caller_function_name, zk_handle, command, buf, buf_len, timeout);
    if (length > 0) return length;
    if (json_values != nullptr)
        zk_log_error("[%s] %s revice error\n", caller_function_name, first_text(json_values, num_values));
    else if (std::strcmp(command, "point") == 0)
        zk_log_info("[%s] %s save_trajectory complete\n", caller_function_name, command);
    return -2;
}

// -----------------------------------------------------------------------------------------
// Reply parsers
// -----------------------------------------------------------------------------------------

int parse_zk_set_command(const char* caller_function_name, const char* json_str, const char* key)
{
    const bool probe = key != nullptr && std::strcmp(key, "given_state") == 0;
    cJSON* root = MIO_JSON_Parse(json_str);
    if (root == nullptr) {
        if (json_str == nullptr || std::strcmp(json_str, "given_state") != 0)
            zk_log_error("[%s] %s parse err\n", caller_function_name, json_str ? json_str : "");
        return -3;
    }
    const int state = MIO_JSON_GetObjectItemBool(root, key);
    MIO_JSON_Delete(root);
    if (state == 0) {
        zk_log_error("[%s] %s: false\n", caller_function_name, key);
        return 1;
    }
    if (state == 1) {
        zk_log_debug("[%s] %s: true\n", caller_function_name, key);
        return 0;
    }
    if (!probe) zk_log_error("[%s] %s command parse err\n", caller_function_name, key ? key : "");
    return -3;
}

int parse_zk_move_command(const char* json_str, int* device, int* trajectory_connect)
{
    cJSON* root = MIO_JSON_Parse(json_str);
    if (root == nullptr) {
        zk_log_error("Set command parse err\n");
        return -3;
    }
    const int state = MIO_JSON_GetObjectItemBool(root, "trajectory_state");
    const int dev = MIO_JSON_GetObjectItemInt(root, "device");
    const int connect = MIO_JSON_GetObjectItemInt(root, "trajectory_connect");
    MIO_JSON_Delete(root);
    if (device) *device = dev;
    if (trajectory_connect) *trajectory_connect = connect;
    if (dev < 0 || connect < 0) {
        zk_log_error("Move command parse err\n");
        return -3;
    }
    if (state == 0) {
        zk_log_error("Move command result is: false, current Device: %d, trajectory_connect: %d\n", dev, connect);
        return 0;
    }
    // An absent or non-boolean state reads as -1, takes this branch and is handed back as is.
    zk_log_debug("Move command result is: true, current Device: %d, trajectory_connect: %d\n", dev, connect);
    return state;
}

namespace {

int parse_array(const char* caller, const cJSON* item, KeyValue& kv, bool nested)
{
    if (!cJSON_IsArray(item)) {
        zk_log_error("[%s] %s is not an array\n", caller, kv.key);
        return -3;
    }
    const int size = MIO_JSON_GetArraySize(item);
    // Inside "arm_state"/"all_state" an expected size of 0 takes any non-empty array; in the
    // root it takes only an empty one.
    const bool size_ok = (nested && kv.array_size == 0) ? size > 0 : size == kv.array_size;
    if (!size_ok) {
        zk_log_error("[%s] Array size mismatch for key %s\n", caller, kv.key);
        return -3;
    }
    const int stored = std::min(size, kKeyValueArrayCapacity);
    kv.array_size = stored;
    zk_log_info("[%s] %s parse result:\n", caller, kv.key);
    for (int i = 0; i < stored; ++i) {
        const cJSON* element = MIO_JSON_GetArrayItem(item, i);
        kv.value.array_value[i] = element ? MIO_JSON_NumberToInt(element->valuedouble) : 0;
        zk_log_info(" %d\n", kv.value.array_value[i]);
    }
    return 0;
}

int parse_member(const char* caller, const cJSON* item, KeyValue& kv, bool nested)
{
    switch (kv.type) {
    case JSON_STRING: {
        if (!cJSON_IsString(item)) {
            zk_log_error("[%s] %s is not a string\n", caller, kv.key);
            return -3;
        }
        std::memset(kv.value.str_value, 0, sizeof kv.value.str_value);
        std::strncpy(kv.value.str_value, item->valuestring, sizeof kv.value.str_value - 1);
        zk_log_info("[%s] %s parse result: %s\n", caller, kv.key, kv.value.str_value);
        return 0;
    }
    case JSON_INT:
        kv.value.int_value = cJSON_IsNumber(item) ? MIO_JSON_NumberToInt(item->valuedouble) : item->valueint;
        zk_log_info("[%s] %s parse result: %d\n", caller, kv.key, kv.value.int_value);
        return 0;
    case JSON_BOOL:
        if (cJSON_IsBool(item)) kv.value.bool_value = cJSON_IsTrue(item);
        return 0;
    case JSON_ARRAY: return parse_array(caller, item, kv, nested);
    case JSON_OBJECT:
        if (!nested) {
            kv.value.sub_json = cJSON_Duplicate(item, true);
            return 0;
        }
        break;
    }
    zk_log_error("[%s] Unsupported JSON value type for key %s\n", caller, kv.key);
    return -3;
}

}  // namespace

int common_json_parse(const char* caller_function_name, const char* json_str, KeyValue* key_values, size_t num_keys)
{
    cJSON* root = MIO_JSON_Parse(json_str);
    if (root == nullptr) {
        zk_log_error("Error parsing JSON\n");
        return -3;
    }
    const cJSON* scope = MIO_JSON_GetObjectItem(root, "arm_state");
    if (!cJSON_IsObject(scope)) scope = MIO_JSON_GetObjectItem(root, "all_state");
    const bool nested = cJSON_IsObject(scope);
    if (!nested) scope = root;

    int result = 0;
    for (size_t i = 0; i < num_keys && result == 0; ++i) {
        KeyValue& kv = key_values[i];
        const cJSON* item = MIO_JSON_GetObjectItem(scope, kv.key);
        if (item == nullptr) {
            zk_log_error("[%s] %s parsing error\n", caller_function_name, kv.key ? kv.key : "");
            result = -3;
            break;
        }
        result = parse_member(caller_function_name, item, kv, nested);
    }
    MIO_JSON_Delete(root);
    return result;
}

// -----------------------------------------------------------------------------------------
// Pattern helpers
// -----------------------------------------------------------------------------------------

int zk_exchange_set(const char* caller, zk_robot_handle* handle, const JsonValue* values, size_t count,
                    const char* reply_name, const char* result_key, int timeout)
{
    char reply[kReplyBufferSize] = {};
    const int length = zk_pack_lock_set(caller, handle, values, count, reply_name, reinterpret_cast<uint8_t*>(reply),
                                        sizeof reply, timeout);
    if (length < 1) return length;
    return parse_zk_set_command(caller, reply, result_key);
}

int zk_exchange_get(const char* caller, zk_robot_handle* handle, const JsonValue* values, size_t count,
                    const char* reply_name, char* buf, int buf_len, int timeout)
{
    std::memset(buf, 0, static_cast<size_t>(buf_len));
    return zk_pack_lock_set(caller, handle, values, count, reply_name, reinterpret_cast<uint8_t*>(buf), buf_len,
                            timeout);
}

// -----------------------------------------------------------------------------------------
// Generic one-integer commands
// -----------------------------------------------------------------------------------------

int zk_get_data_common(zk_robot_handle* handle, int* data, const char* cmd_str, const char* valua_str)
{
    static const char* const kCaller = "zk_get_data_common";
    ZK_REQUIRE_ARG(kCaller, data);
    ZK_REQUIRE_ARG(kCaller, cmd_str);
    ZK_REQUIRE_ARG(kCaller, valua_str);
    const JsonValue request[] = {zk_json_command(cmd_str)};
    char reply[kReplyBufferSize];
    const int length = zk_exchange_get(kCaller, handle, request, 1, cmd_str, reply, sizeof reply, m_nOutTime);
    if (length < 1) return length;
    KeyValue value = zk_expect(JSON_INT, valua_str);
    const int parsed = common_json_parse(kCaller, reply, &value, 1);
    if (parsed == 0) *data = value.value.int_value;
    return parsed;
}

int zk_set_data_common(zk_robot_handle* handle, int data, const char* cmd_str, const char* valua_str)
{
    static const char* const kCaller = "zk_set_data_common";
    ZK_REQUIRE_ARG(kCaller, cmd_str);
    ZK_REQUIRE_ARG(kCaller, valua_str);
    const JsonValue request[] = {zk_json_command(cmd_str), zk_json_int(valua_str, data)};
    return zk_exchange_set(cmd_str, handle, request, cmd_str, "set_state", m_nOutTime_max);
}
