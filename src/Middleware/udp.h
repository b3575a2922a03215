// The local UDP ports the realtime listener owns. Up to five ports, shared by all robot
// handles: a port registered twice is bound once and counted twice, and its socket is
// closed when the last registration goes.
//
// The table is written by application threads (registration) while the UDP thread reads
// it, so every access goes through the functions below, which hold the table's own lock
// for the few instructions each takes. The lock is never held across a wait.
#pragma once

#include <netinet/in.h>

constexpr int kUdpMaxPorts = 5;

struct zk_udp_info {
    int udp_id;    // the bound socket, or 0
    int port;
    int user_num;  // registrations; 0 marks a free entry
};

struct zk_udp_handle;
using zk_udp_port_op = int (*)(zk_udp_handle* handle, int port);

struct zk_udp_handle {
    zk_udp_info udp_list[kUdpMaxPorts];
    zk_udp_port_op udp_add_port;
    zk_udp_port_op udp_delete_port;
};

// The listener's table: created for ZK_TRIPLE_MODE_E, then kept (and reused) for the life
// of the process; null before.
extern zk_udp_handle* gUdpHandle;

// A zeroed table with its operations set, or null when memory runs out.
zk_udp_handle* zk_udp_init(void);
// 1 when the port was registered already (counted once more), 0 when newly bound, -1 when
// it cannot be bound, -2 when all five entries are taken.
int zk_udp_add_port(zk_udp_handle* handle, int port);
// Drops one registration of the port, then frees every entry left without one. Always 0.
int zk_udp_delete_port(zk_udp_handle* handle, int port);
// A UDP socket bound to the port on every local address, or -2.
int zk_udp_create_connect(int port);
int zk_udp_close(int fd);

// --- For the listener thread -------------------------------------------------------------

// A copy of one entry, taken under the table's lock.
zk_udp_info zk_udp_entry(const zk_udp_handle* handle, int index);
// Fills fds with the sockets of the entries in use; returns their count.
int zk_udp_listening(const zk_udp_handle* handle, int (&fds)[kUdpMaxPorts]);
// Reads one waiting datagram, at most len bytes (the rest of a longer one is discarded), from
// fd if it still belongs to an entry in use. The byte count, or -1 when nothing was read.
int zk_udp_receive(const zk_udp_handle* handle, int fd, char* buf, int len, sockaddr_in* from);
// Closes every socket of the table and frees all entries.
void zk_udp_close_all(zk_udp_handle* handle);

// A descriptor that turns readable when the table changes or the listener must look at its
// stop request; the listener polls it together with the ports.
int zk_udp_wake_fd(void);
void zk_udp_wake(void);
void zk_udp_wake_drain(void);
