// The per-connection store of received frames, filed by name. In the threaded modes the
// receive thread fills it and waiting commands take their replies from it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

constexpr int kFifoSlots = 40;
constexpr int kFifoNameCapacity = 50;
constexpr int kFifoFrameCapacity = 10240;

#pragma pack(push, 1)
struct zk_socket_fifo {
    uint8_t is_used;  // 1 when the slot holds a frame
    int recevie_len;  // frame text length, terminator excluded
    char command[kFifoNameCapacity];
    uint32_t id;  // never written
    uint8_t str_json[kFifoFrameCapacity];
    uint64_t time;  // the connection's frame count when stored
};
#pragma pack(pop)

struct zk_socket_fifo_handle {
    zk_socket_fifo fifo[kFifoSlots];
    uint8_t head;  // unused: the store is not a ring
    uint8_t tail;  // unused
    uint64_t current_time;  // frames received on this connection

    // The receive thread writes slots while application threads take and clear them: every
    // access to the slots and the clock holds `lock`, and waiters sleep on `filed` until a
    // frame arrives rather than polling.
    std::mutex lock;
    std::condition_variable filed;
};
