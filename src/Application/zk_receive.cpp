#include "Application/zk_receive.h"

#include <cstring>
#include <thread>

zk_event_listener_t event_listener;

void zk_get_arm_event_call_back(zk_event_callback_ptr event_callback)
{
    if (event_callback != nullptr) event_listener.event_callback = event_callback;
}

namespace {
constexpr auto kFifoScanPeriod = std::chrono::milliseconds(2);
}

int get_str_from_fifo(zk_socket_fifo_handle* handle, const char* command, char* str, int str_len)
{
    if (handle == nullptr || command == nullptr) return -1;
    for (auto& slot : handle->fifo) {
        if (slot.is_used != 1) continue;
        if (std::strncmp(slot.command, command, sizeof slot.command) != 0) continue;
        const int length = slot.recevie_len;
        const size_t text = strnlen(reinterpret_cast<const char*>(slot.str_json), sizeof slot.str_json);
        if (str != nullptr && str_len > 0) {
            const size_t copied = std::min(text, static_cast<size_t>(str_len - 1));
            std::memcpy(str, slot.str_json, copied);
        }
        std::memset(&slot, 0, sizeof slot);
        return length;
    }
    return -1;
}

int zk_fifo_wait(zk_handle_t* handle, const char* command, uint8_t* buf, int buf_len,
                 std::chrono::steady_clock::time_point deadline)
{
    while (std::chrono::steady_clock::now() < deadline) {
        int length = get_str_from_fifo(handle->fifo_handle, command, reinterpret_cast<char*>(buf), buf_len);
        if (length >= 0) return length;
        std::this_thread::sleep_for(kFifoScanPeriod);
    }
    return -1;
}
