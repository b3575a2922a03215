// One TCP connection to a controller, reached through a small table of operations so that
// callers never depend on the platform's socket calls.
#pragma once

#include <cstdint>

struct zk_socket_handle;

using zk_socket_op = int (*)(zk_socket_handle* handle);
using zk_socket_io_op = int (*)(zk_socket_handle* handle, uint8_t* data, int len);

// Longest accepted address text: the field holds 20 characters and no terminator is needed.
constexpr int kSocketIpCapacity = 20;

struct zk_socket_handle {
    int socket_id;  // the socket, or -1; above 0 means connected
    char ip[kSocketIpCapacity];
    int port;
    char udp_ip[kSocketIpCapacity];  // unused
    int udp_port;                    // unused
    zk_socket_op init;
    zk_socket_io_op send;
    zk_socket_io_op block_send;
    zk_socket_io_op receive;
    zk_socket_io_op block_receive;
    zk_socket_op close;
};

zk_socket_handle* zk_socket_handle_init(const char* ip, int port);
int zk_socket_handle_destroy(zk_socket_handle* pHandle);

int socket_connect(zk_socket_handle* handle);
int socket_send(zk_socket_handle* handle, uint8_t* data, int len);
int socket_block_send(zk_socket_handle* handle, uint8_t* data, int len);
int socket_receive(zk_socket_handle* handle, uint8_t* buf, int len);
int socket_blocking_recive(zk_socket_handle* handle, uint8_t* buf, int len);
int socket_close(zk_socket_handle* handle);
