// Library start and stop, the handle table, and what a new connection learns first.
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "Application/zk_exchange.h"
#include "Application/zk_handle.h"
#include "Application/zk_receive.h"
#include "Application/zk_threads.h"
#include "Middleware/MIO_JSON.h"
#include "Middleware/log.h"
#include "zk_algo.h"
#include "zk_realtime.h"

zk_handle_t* gHandleList[kMaxRobotHandles] = {};
uint64_t g_slot_generation[kMaxRobotHandles] = {};
std::atomic<int> g_mode{ZK_TRIPLE_MODE_E};
std::atomic<int> m_nOutTime{500};
std::atomic<int> m_nOutTime_max{1000};
std::atomic<int> m_nOutTime_modbus{1000};
std::atomic<bool> should_exit{false};

namespace {

std::shared_mutex rwlock;

constexpr const char* kApiVersion = "1.0.7";

// Host callbacks run on the library's threads; creating, deleting or destroying from there
// would wait for the very thread that runs the callback.
bool refused_on_library_thread(const char* caller)
{
    if (!zk_on_library_thread()) return false;
    zk_log_error("[%s] not allowed from a library callback\n", caller);
    return true;
}

void empty_slot(int index)
{
    gHandleList[index] = nullptr;
    ++g_slot_generation[index];
}

// Returned when a handle could not even be set up (null or over-long ip, port below 1):
// it carries id -1 like any failed handle, but occupies no slot, so the table never holds a
// half-filled entry and deleting it is harmless.
zk_robot_handle g_unusable_handle = {-1};

}  // namespace

void zk_rwlock_init(void) {}
void zk_rdlock_lock(void) { rwlock.lock_shared(); }
void zk_rdlock_unlock(void) { rwlock.unlock_shared(); }
void zk_wrlock_lock(void) { rwlock.lock(); }
void zk_wrlock_unlock(void) { rwlock.unlock(); }

zk_handle_t* zk_get_zk_handle_by_robot_handle(const zk_robot_handle* handle)
{
    if (handle == nullptr) return nullptr;
    for (zk_handle_t* slot : gHandleList)
        if (slot != nullptr && &slot->robot_handle == handle) return slot;
    return nullptr;
}

zk_handle_t* zk_get_zk_handle_by_fifo_handle(const zk_socket_fifo_handle* fifo)
{
    if (fifo == nullptr) return nullptr;
    for (zk_handle_t* slot : gHandleList)
        if (slot != nullptr && slot->fifo_handle == fifo) return slot;
    return nullptr;
}

// -----------------------------------------------------------------------------------------
// Start and stop
// -----------------------------------------------------------------------------------------

int zk_init(zk_thread_mode_e mode)
{
    zk_rwlock_init();
    zk_wrlock_lock();
    g_mode = mode;
    should_exit = false;
    for (int i = 0; i < kMaxRobotHandles; ++i) empty_slot(i);
    zk_wrlock_unlock();
    return zk_threads_start(mode);
}

int zk_destory(void)
{
    should_exit = true;
    if (refused_on_library_thread("zk_destory")) return 0;
    // The threads end first, so that none of them touches a connection freed below.
    zk_threads_stop();
    zk_wrlock_lock();
    for (int i = 0; i < kMaxRobotHandles; ++i) {
        zk_handle_t* slot = gHandleList[i];
        if (slot == nullptr) continue;
        slot->socket_handle->close(slot->socket_handle);
        zk_handle_free(slot);
        empty_slot(i);
    }
    zk_wrlock_unlock();
    return 0;
}

void zk_set_timeout(int timeout)
{
    m_nOutTime = timeout;
    m_nOutTime_max = timeout;
}

const char* zk_api_version(void) { return kApiVersion; }

// -----------------------------------------------------------------------------------------
// Handles
// -----------------------------------------------------------------------------------------

zk_handle_t* zk_handle_init(const char* ip, int port)
{
    auto* handle = new (std::nothrow) zk_handle_t{};
    if (handle == nullptr) return nullptr;
    handle->fifo_handle = new (std::nothrow) zk_socket_fifo_handle{};
    handle->socket_handle = zk_socket_handle_init(ip, port);
    if (handle->fifo_handle == nullptr || handle->socket_handle == nullptr) {
        zk_handle_free(handle);
        return nullptr;
    }
    handle->socket_handle->init(handle->socket_handle);  // success shows in socket_id
    return handle;
}

void zk_handle_free(zk_handle_t* handle)
{
    if (handle == nullptr) return;
    std::free(handle->socket_handle);
    delete handle->fifo_handle;
    delete handle;
}

zk_robot_handle* zk_create_robot_arm(const char* ip, int port)
{
    if (refused_on_library_thread("zk_create_robot_arm")) return nullptr;
    zk_wrlock_lock();
    int index = 0;
    while (index < kMaxRobotHandles && gHandleList[index] != nullptr) ++index;
    if (index == kMaxRobotHandles) {
        zk_wrlock_unlock();
        zk_log_error("[zk_create_robot_arm] robot num is max");
        return nullptr;
    }

    zk_handle_t* handle = zk_handle_init(ip, port);
    if (handle == nullptr) {
        zk_wrlock_unlock();
        zk_log_error("[zk_create_robot_arm] socket connect err!\n");
        g_unusable_handle.id = -1;
        return &g_unusable_handle;
    }
    gHandleList[index] = handle;
    const uint64_t generation = ++g_slot_generation[index];
    zk_receive_thread_wake();

    if (handle->socket_handle->socket_id > 0) {
        handle->id = static_cast<uint8_t>(index + 1);
        handle->robot_handle.id = index + 1;
        zk_wrlock_unlock();
        // The sync runs as ordinary commands, so the table lock must be free meanwhile.
        const int synced = zk_sync_robot_info(&handle->robot_handle);
        zk_sync_hand_over(&handle->robot_handle);
        zk_wrlock_lock();
        // Another host thread may have deleted the handle while the lock was free; its
        // record is gone then, and the caller gets the failed handle instead.
        if (g_slot_generation[index] != generation) {
            zk_wrlock_unlock();
            g_unusable_handle.id = -1;
            return &g_unusable_handle;
        }
        if (synced == 0) {
            zk_wrlock_unlock();
            return &handle->robot_handle;
        }
        zk_log_error("[zk_create_robot_arm] get robot info err!\n");
    } else {
        zk_log_error("[zk_create_robot_arm] socket connect err!\n");
    }
    handle->robot_handle.id = -1;
    zk_wrlock_unlock();
    return &handle->robot_handle;
}

int zk_delete_robot_arm(zk_robot_handle* handle)
{
    if (refused_on_library_thread("zk_delete_robot_arm")) return -1;
    zk_wrlock_lock();
    for (int i = 0; i < kMaxRobotHandles; ++i) {
        zk_handle_t* slot = gHandleList[i];
        if (slot == nullptr || &slot->robot_handle != handle) continue;
        slot->socket_handle->close(slot->socket_handle);
        zk_handle_free(slot);
        empty_slot(i);
        zk_wrlock_unlock();
        return 0;
    }
    zk_wrlock_unlock();
    zk_log_error("not find handle\n");
    return -1;
}

// -----------------------------------------------------------------------------------------
// What the table knows of an arm
// -----------------------------------------------------------------------------------------

int zk_get_arm_dof(zk_robot_handle* handle, int* dof)
{
    ZK_REQUIRE_ARG("zk_get_arm_dof", dof);
    ZkTableReadGuard table(handle);
    const zk_handle_t* found = table.get();
    if (found == nullptr || (found->arm_dof != 6 && found->arm_dof != 7)) return -1;
    *dof = found->arm_dof;
    return 0;
}

int zk_get_robot_info(zk_robot_handle* handle, zk_robot_info_t* robot_info)
{
    static const char* const kCaller = "zk_get_robot_info";
    ZK_REQUIRE_ARG(kCaller, robot_info);
    ZkTableReadGuard table(handle);
    const zk_handle_t* found = table.get();
    if (found == nullptr) {
        zk_log_error("[%s] handle is NULL!\n", kCaller);
        return -1;
    }
    if (found->arm_dof == 0) return -2;
    robot_info->arm_dof = found->arm_dof;
    robot_info->arm_model = found->arm_model;
    robot_info->force_type = found->force_type;
    return 0;
}

// -----------------------------------------------------------------------------------------
// Software info: the reply that decides the arm's model
// -----------------------------------------------------------------------------------------

namespace {

constexpr const char* kSoftwareInfoCaller = "zk_get_arm_software_info";

struct ModelRule {
    const char* text;
    zk_robot_arm_model_e model;
    int dof;
};

// First hit wins: the longer names come before their prefixes.
constexpr ModelRule kModelRules[] = {
    {"AX61", ZK_MODEL_AX_61_E, 6},     {"AX71", ZK_MODEL_AX_71_E, 7},   {"AL64III", ZK_MODEL_AL_64_III_E, 6},
    {"AL64", ZK_MODEL_AL_64_II_E, 6},  {"LUM61", ZK_MODEL_LUM_61_E, 6}, {"LUM66", ZK_MODEL_LUM_66_E, 6},
    {"TOR77", ZK_MODEL_TOR_77_E, 7},   {"LUM67", ZK_MODEL_LUM_67_E, 6},
};

struct ForceRule {
    const char* text;
    zk_force_type_e force;
};

constexpr ForceRule kForceRules[] = {
    {"-B", ZK_MODEL_ZK_B_E}, {"-QF", ZK_MODEL_ZK_QF_E}, {"-XFB", ZK_MODEL_ZK_IXF_E}, {"-XF", ZK_MODEL_ZK_XF_E}};

// One text member of the reply: read from an object, copied with at most `cap` characters,
// then cut by a zero at `cut`, logged when found.
struct TextField {
    const char* member;
    size_t cap;
    size_t cut;
    const char* found_format;
    const char* error_text;
};

// Copies a text field safely: the destination is zeroed, then at most cap characters are
// copied and byte `cut` is forced to zero, both bounded by the destination's size.
void copy_capped(char* destination, size_t size, const char* text, size_t cap, size_t cut)
{
    std::memset(destination, 0, size);
    std::strncpy(destination, text, std::min(cap, size - 1));
    destination[std::min(cut, size - 1)] = '\0';
}

bool read_text(const cJSON* object, const TextField& field, char* destination, size_t size)
{
    const char* text = MIO_JSON_GetObjectItemStr(object, field.member);
    if (text == nullptr) {
        zk_log_error("%s", field.error_text);
        return false;
    }
    copy_capped(destination, size, text, field.cap, field.cut);
    zk_log_info(field.found_format, destination);
    return true;
}

int parse_software_info(const char* reply, zk_arm_software_version_t* info)
{
    cJSON* root = MIO_JSON_Parse(reply);
    if (root == nullptr) {
        zk_log_error("[zk_get_arm_software_info] Arm software info parse err\n");
        return -1;
    }
    static const TextField kProduct = {"Product_version", 15, 14, "[zk_get_arm_software_info] Product version: %s\n",
                                       "[zk_get_arm_software_info] Product version parse err\n"};
    static const TextField kAlgorithm = {"version", 20, 19, "[zk_get_arm_software_info] Algorithm version: %s\n",
                                         "[zk_get_arm_software_info] Algorithm version parse err\n"};
    static const TextField kCtrlVersion = {"version", 8, 9, "[zk_get_arm_software_info] Ctrl version: %s\n",
                                           "[zk_get_arm_software_info] Ctrl version parse err\n"};
    static const TextField kCtrlBuild = {"build_time", 20, 19, "[zk_get_arm_software_info] Ctrl build Time: %s\n",
                                         "[zk_get_arm_software_info] Ctrl build Time parse err\n"};
    static const TextField kDynamic = {"model_version", 5, 4, "[zk_get_arm_software_info] Dynamic model version: %s\n",
                                       "[zk_get_arm_software_info] Dynamic model version parse err\n"};
    static const TextField kPlanVersion = {"version", 8, 9, "[zk_get_arm_software_info] Plan version: %s\n",
                                           "[zk_get_arm_software_info] Plan version parse err\n"};
    static const TextField kPlanBuild = {"build_time", 18, 19, "[zk_get_arm_software_info] Plan build Time: %s\n",
                                         "[zk_get_arm_software_info] Plan build Time parse err\n"};

    const cJSON* algorithm = MIO_JSON_GetObjectItem(root, "algorithm_info");
    const cJSON* ctrl = MIO_JSON_GetObjectItem(root, "ctrl_info");
    const cJSON* dynamic = MIO_JSON_GetObjectItem(root, "dynamic_info");
    const cJSON* plan = MIO_JSON_GetObjectItem(root, "plan_info");

    bool ok = read_text(root, kProduct, info->product_version, sizeof info->product_version);
    if (ok && algorithm)
        ok = read_text(algorithm, kAlgorithm, info->algorithm_info.version, sizeof info->algorithm_info.version);
    if (ok && ctrl) {
        ok = read_text(ctrl, kCtrlVersion, info->ctrl_info.version, sizeof info->ctrl_info.version) &&
             read_text(ctrl, kCtrlBuild, info->ctrl_info.build_time, sizeof info->ctrl_info.build_time);
    }
    if (ok && dynamic)
        ok = read_text(dynamic, kDynamic, info->dynamic_info.model_version, sizeof info->dynamic_info.model_version);
    // The controller reports the planner's version and build time inside "ctrl_info"; a
    // "plan_info" member only announces that they are there.
    if (ok && plan) {
        ok = read_text(ctrl, kPlanVersion, info->plan_info.version, sizeof info->plan_info.version) &&
             read_text(ctrl, kPlanBuild, info->plan_info.build_time, sizeof info->plan_info.build_time);
    }
    MIO_JSON_Delete(root);
    return ok ? 0 : -1;
}

int derive_model(zk_robot_handle* handle, const char* product)
{
    ZkTableReadGuard table(handle);
    zk_handle_t* found = table.get();
    if (found == nullptr) return -1;
    const ModelRule* model = nullptr;
    for (const ModelRule& rule : kModelRules)
        if (std::strstr(product, rule.text) != nullptr) {
            model = &rule;
            break;
        }
    if (model == nullptr) {
        zk_log_error("Unknown arm model: %s\n", product);
        return -1;
    }
    found->arm_model = model->model;
    found->arm_dof = model->dof;
    for (const ForceRule& rule : kForceRules)
        if (std::strstr(product, rule.text) != nullptr) {
            found->force_type = rule.force;
            return 0;
        }
    zk_log_error("Unknown force type: %s\n", product);
    return -1;
}

}  // namespace

int zk_get_arm_software_info(zk_robot_handle* handle, zk_arm_software_version_t* software_info)
{
    ZK_REQUIRE_ARG(kSoftwareInfoCaller, software_info);
    const JsonValue request[] = {zk_json_command("get_arm_software_info")};
    char reply[kReplyBufferSize];
    const int length = zk_exchange_get(kSoftwareInfoCaller, handle, request, 1, "arm_software_info", reply,
                                       sizeof reply, m_nOutTime);
    if (length < 1) return length;
    const int parsed = parse_software_info(reply, software_info);
    if (parsed != 0) return parsed;
    return derive_model(handle, software_info->product_version);
}

// -----------------------------------------------------------------------------------------
// Synchronisation of a new connection
// -----------------------------------------------------------------------------------------

namespace {

int sync_software_info(zk_robot_handle* handle)
{
    zk_arm_software_version_t info{};
    return zk_get_arm_software_info(handle, &info);
}

int sync_realtime_push(zk_robot_handle* handle)
{
    zk_realtime_push_config_t config{};
    return zk_get_realtime_push(handle, &config);
}

// The queries a new connection runs, in order; the first failure ends the list.
using SyncStep = int (*)(zk_robot_handle*);
constexpr SyncStep kSyncSteps[] = {
    sync_software_info,
    sync_realtime_push,
};

}  // namespace

int zk_sync_robot_info(zk_robot_handle* handle)
{
    for (SyncStep step : kSyncSteps) {
        const int result = step(handle);
        if (result != 0) return result;
    }
    return 0;
}

void zk_sync_hand_over(zk_robot_handle* handle)
{
    // Whatever the sync returned: what was learnt so far is what the arm is taken to be.
    zk_algo_arm_state_set(handle);
}
