#include "Middleware/udp.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <new>

zk_udp_handle* gUdpHandle = nullptr;

namespace {

// One lock for every table: there is one table in a process, and a test's own tables are
// rare enough that sharing the lock costs nothing.
std::mutex g_table_lock;

// The socket's own receive time-out. The listener never blocks in a read (it polls all ports
// together and reads only what is waiting), so this only bounds a read that would otherwise
// block: short enough that no port could hold up the others or a shutdown.
constexpr timeval kReceiveTimeout{0, 10000};

constexpr int kLowestPort = 1;
constexpr int kHighestPort = 65535;

void free_entry(zk_udp_info& entry)
{
    // A free entry holds socket 0, which is never ours to close.
    if (entry.udp_id > 0) zk_udp_close(entry.udp_id);
    entry = zk_udp_info{};
}

bool bind_any_address(int fd, int port)
{
    // Port 0 would bind a port of the system's choosing, which no controller sends to.
    if (port < kLowestPort || port > kHighestPort) {
        errno = EINVAL;
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool owns_socket(const zk_udp_handle* handle, int fd)
{
    for (const zk_udp_info& entry : handle->udp_list)
        if (entry.user_num != 0 && entry.udp_id == fd) return true;
    return false;
}

}  // namespace

zk_udp_handle* zk_udp_init(void)
{
    auto* handle = new (std::nothrow) zk_udp_handle{};
    if (handle == nullptr) return nullptr;
    handle->udp_add_port = zk_udp_add_port;
    handle->udp_delete_port = zk_udp_delete_port;
    return handle;
}

int zk_udp_add_port(zk_udp_handle* handle, int port)
{
    if (handle == nullptr) return -1;
    int result = -2;
    {
        std::lock_guard<std::mutex> lock(g_table_lock);
        // Only entries in use match, so a port 0 never counts as a registration of a free entry.
        for (zk_udp_info& entry : handle->udp_list) {
            if (entry.user_num > 0 && entry.port == port) {
                ++entry.user_num;
                return 1;
            }
        }
        for (zk_udp_info& entry : handle->udp_list) {
            if (entry.user_num != 0) continue;
            const int fd = zk_udp_create_connect(port);
            if (fd > 0) {
                entry = zk_udp_info{fd, port, 1};
                result = 0;
            } else {
                entry.udp_id = 0;
                result = -1;
            }
            break;
        }
    }
    if (result == 0) zk_udp_wake();  // the listener starts polling the new socket at once
    return result;
}

int zk_udp_delete_port(zk_udp_handle* handle, int port)
{
    if (handle == nullptr) return 0;
    {
        std::lock_guard<std::mutex> lock(g_table_lock);
        for (zk_udp_info& entry : handle->udp_list) {
            if (entry.port == port) --entry.user_num;
            if (entry.user_num < 1) free_entry(entry);
        }
    }
    zk_udp_wake();  // the listener drops closed sockets from its poll at once
    return 0;
}

int zk_udp_create_connect(int port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        std::perror("socket creation failed");
        return -2;
    }
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kReceiveTimeout, sizeof kReceiveTimeout) != 0) {
        std::perror("setsockopt error");
        ::close(fd);
        return -2;
    }
    const int reuse = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0) {
        std::perror("setsockopt fail");
        ::close(fd);
        return -2;
    }
    if (!bind_any_address(fd, port)) {
        std::perror("bind failed");
        ::close(fd);
        return -2;
    }
    return fd;
}

int zk_udp_close(int fd)
{
    if (fd > 0) ::close(fd);
    return 0;
}

// -----------------------------------------------------------------------------------------
// For the listener thread
// -----------------------------------------------------------------------------------------

zk_udp_info zk_udp_entry(const zk_udp_handle* handle, int index)
{
    if (handle == nullptr || index < 0 || index >= kUdpMaxPorts) return zk_udp_info{};
    std::lock_guard<std::mutex> lock(g_table_lock);
    return handle->udp_list[index];
}

int zk_udp_listening(const zk_udp_handle* handle, int (&fds)[kUdpMaxPorts])
{
    int count = 0;
    if (handle == nullptr) return 0;
    std::lock_guard<std::mutex> lock(g_table_lock);
    for (const zk_udp_info& entry : handle->udp_list)
        if (entry.user_num != 0 && entry.udp_id > 0) fds[count++] = entry.udp_id;
    return count;
}

int zk_udp_receive(const zk_udp_handle* handle, int fd, char* buf, int len, sockaddr_in* from)
{
    std::lock_guard<std::mutex> lock(g_table_lock);
    // The socket may have been closed (and its number reused) since the listener polled it.
    if (handle == nullptr || !owns_socket(handle, fd)) return -1;
    socklen_t from_length = sizeof *from;
    const ssize_t count = ::recvfrom(fd, buf, static_cast<size_t>(len), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(from), &from_length);
    return count < 0 ? -1 : static_cast<int>(count);
}

void zk_udp_close_all(zk_udp_handle* handle)
{
    if (handle == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(g_table_lock);
        for (zk_udp_info& entry : handle->udp_list) free_entry(entry);
    }
    zk_udp_wake();
}

int zk_udp_wake_fd(void)
{
    // Created once and kept for the process, like the table itself.
    static const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return fd;
}

void zk_udp_wake(void)
{
    const uint64_t one = 1;
    const int fd = zk_udp_wake_fd();
    if (fd < 0) return;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

void zk_udp_wake_drain(void)
{
    uint64_t count = 0;
    const int fd = zk_udp_wake_fd();
    if (fd < 0) return;
    [[maybe_unused]] const ssize_t drained = ::read(fd, &count, sizeof count);
}
