// The process-wide table of connections and the per-connection record behind a host's
// zk_robot_handle. Every command reaches its connection through this table, under the
// table's reader-writer lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <shared_mutex>

#include "Application/zk_fifo.h"
#include "Middleware/socket.h"
#include "zk_client.h"

constexpr int kMaxRobotHandles = 5;

struct zk_handle_t {
    uint8_t id;  // slot number plus 1
    zk_socket_handle* socket_handle;
    zk_socket_fifo_handle* fifo_handle;
    zk_robot_handle robot_handle;  // handed to the host by address
    int arm_dof;                   // 6 or 7; 0 until known
    zk_robot_arm_model_e arm_model;
    zk_force_type_e force_type;
    // Mirrors of the controller's values, rewritten by each successful query.
    zk_frame_t tool_frame;
    zk_frame_t work_frame;
    float install_angle[3];
    float joint_max_limit[7];
    float joint_min_limit[7];
    float joint_max_acc[7];
    float joint_max_speed[7];
    zk_dh_t dh;
    int udp_port;
};

extern zk_handle_t* gHandleList[kMaxRobotHandles];
// Counts the lives of each slot, so a reader that let go of the table lock can tell that a
// slot it saw has since been emptied or refilled. Written under the write lock.
extern uint64_t g_slot_generation[kMaxRobotHandles];
extern std::atomic<int> g_mode;
extern std::atomic<int> m_nOutTime;
extern std::atomic<int> m_nOutTime_max;
extern std::atomic<int> m_nOutTime_modbus;
extern std::atomic<bool> should_exit;

void zk_rwlock_init(void);
void zk_rdlock_lock(void);
void zk_rdlock_unlock(void);
void zk_wrlock_lock(void);
void zk_wrlock_unlock(void);

// Table lookups; the caller holds the lock.
zk_handle_t* zk_get_zk_handle_by_robot_handle(const zk_robot_handle* handle);
zk_handle_t* zk_get_zk_handle_by_fifo_handle(const zk_socket_fifo_handle* fifo);

zk_handle_t* zk_handle_init(const char* ip, int port);
// Frees a record and what it owns: socket record and FIFO block. The socket must be closed.
void zk_handle_free(zk_handle_t* handle);
int zk_sync_robot_info(zk_robot_handle* handle);
// Hands a new connection's mirrored values to the algorithm library.
void zk_sync_hand_over(zk_robot_handle* handle);

// Holds the table's read lock for a scope and finds the handle under it.
class ZkTableReadGuard {
public:
    explicit ZkTableReadGuard(const zk_robot_handle* handle)
    {
        zk_rdlock_lock();
        found_ = zk_get_zk_handle_by_robot_handle(handle);
    }
    ~ZkTableReadGuard() { zk_rdlock_unlock(); }
    ZkTableReadGuard(const ZkTableReadGuard&) = delete;
    ZkTableReadGuard& operator=(const ZkTableReadGuard&) = delete;
    zk_handle_t* get() const { return found_; }

private:
    zk_handle_t* found_;
};
