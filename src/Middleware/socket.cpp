#include "Middleware/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "Middleware/log.h"

namespace {

constexpr int kInvalidSocketLimit = 100000;  // socket values above this are treated as invalid
constexpr int kSendTimeoutSeconds = 3;
// A full send buffer is retried every millisecond; the retries stop after the same three
// seconds a blocking send would have waited, so a stalled peer cannot hang the caller.
constexpr auto kSendRetryPause = std::chrono::milliseconds(1);
constexpr auto kSendRetryLimit = std::chrono::seconds(kSendTimeoutSeconds);
constexpr int kErrnoWouldBlock = 11;
constexpr int kErrnoWouldBlockAlt = 140;

}  // namespace

zk_socket_handle* zk_socket_handle_init(const char* ip, int port)
{
    if (ip == nullptr || port < 1 || std::strlen(ip) > static_cast<size_t>(kSocketIpCapacity))
        return nullptr;
    auto* handle = static_cast<zk_socket_handle*>(std::calloc(1, sizeof(zk_socket_handle)));
    if (handle == nullptr) return nullptr;
    handle->socket_id = -1;
    // Exactly 20 characters fill the field with no terminator; readers bound themselves.
    std::memcpy(handle->ip, ip, std::strlen(ip));
    handle->port = port;
    handle->init = socket_connect;
    handle->send = socket_send;
    handle->block_send = socket_block_send;
    handle->receive = socket_receive;
    handle->block_receive = socket_blocking_recive;
    handle->close = socket_close;
    return handle;
}

int zk_socket_handle_destroy(zk_socket_handle* pHandle)
{
    if (pHandle == nullptr) return 0;
    if (pHandle->socket_id > 0) pHandle->close(pHandle);
    std::free(pHandle);
    return 0;
}

int socket_connect(zk_socket_handle* handle)
{
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd == 0 || fd < 0 || fd > kInvalidSocketLimit) {
        if (fd >= 0) ::close(fd);
        handle->socket_id = -1;
        return -1;
    }

    sockaddr_in address{};
    address.sin_family = AF_INET;
    const std::string ip(handle->ip, strnlen(handle->ip, sizeof handle->ip));
    address.sin_addr.s_addr = inet_addr(ip.c_str());
    address.sin_port = htons(static_cast<uint16_t>(static_cast<unsigned>(handle->port) % 65536u));

    timeval send_timeout{kSendTimeoutSeconds, 0};
    if (::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout) != 0) {
        std::perror("setsockopt error");
        ::close(fd);
        return -2;
    }
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) {
        handle->socket_id = -1;
        ::close(fd);
        return -3;
    }
    // Commands are single short lines: send each at once rather than coalescing.
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);

    int flags = ::fcntl(fd, F_GETFL, 0);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        std::perror("Error setting non-blocking");
        ::close(fd);
        handle->socket_id = -1;
        return -4;
    }
    handle->socket_id = fd;
    return fd;
}

int socket_send(zk_socket_handle* handle, uint8_t* data, int len)
{
    if (data == nullptr || len < 1) return -1;
    if (::send(handle->socket_id, data, static_cast<size_t>(len), MSG_NOSIGNAL) < 0) return -2;
    return 0;
}

int socket_block_send(zk_socket_handle* handle, uint8_t* data, int len)
{
    if (data == nullptr || len < 1) return -1;
    const auto give_up = std::chrono::steady_clock::now() + kSendRetryLimit;
    size_t sent = 0;
    while (sent < static_cast<size_t>(len)) {
        ssize_t n = ::send(handle->socket_id, data + sent, static_cast<size_t>(len) - sent, MSG_NOSIGNAL);
        if (n >= 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != kErrnoWouldBlock && errno != kErrnoWouldBlockAlt) return -2;
        if (std::chrono::steady_clock::now() >= give_up) return -2;
        std::printf("Send would block, retrying later...\n");
        std::this_thread::sleep_for(kSendRetryPause);
    }
    return 0;
}

int socket_receive(zk_socket_handle* handle, uint8_t* buf, int len)
{
    if (buf == nullptr || len < 1) return -1;
    ssize_t n = ::recv(handle->socket_id, buf, static_cast<size_t>(len), 0);
    if (n < 0) return -2;
    if (zk_log_enabled(LOG_LEVEL_DEBUG)) {
        const std::string text(reinterpret_cast<const char*>(buf), static_cast<size_t>(n));
        zk_log_debug("buf:is %s\n", text.c_str());
    }
    return static_cast<int>(n);
}

int socket_blocking_recive(zk_socket_handle* handle, uint8_t* buf, int len)
{
    if (buf == nullptr || len < 1) return -2;
    ssize_t n = ::recv(handle->socket_id, buf, static_cast<size_t>(len), 0);
    if (n > 0) return static_cast<int>(n);
    if (n == 0) return -1;
    return -2;
}

int socket_close(zk_socket_handle* handle)
{
    ::close(handle->socket_id);
    return 0;
}
