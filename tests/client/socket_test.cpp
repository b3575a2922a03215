#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "Middleware/socket.h"
#include "support/scripted_controller.h"

namespace {

using zk_test::ScriptedController;

struct InitCase {
    const char* name;
    std::string ip;
    int port;
    bool accepted;
};

class SocketInit : public ::testing::TestWithParam<InitCase> {};

TEST_P(SocketInit, BoundsOfAddressAndPort)
{
    const InitCase c = GetParam();
    zk_socket_handle* handle = zk_socket_handle_init(c.ip.c_str(), c.port);
    EXPECT_EQ(handle != nullptr, c.accepted);
    if (handle) {
        EXPECT_EQ(handle->socket_id, -1);
        EXPECT_EQ(std::string(handle->ip, strnlen(handle->ip, sizeof handle->ip)), c.ip);
        zk_socket_handle_destroy(handle);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, SocketInit,
                         ::testing::Values(InitCase{"plain", "127.0.0.1", 8080, true},
                                           InitCase{"ip20", std::string(20, '1'), 8080, true},
                                           InitCase{"ip21", std::string(21, '1'), 8080, false},
                                           InitCase{"port0", "127.0.0.1", 0, false},
                                           InitCase{"portNegative", "127.0.0.1", -5, false},
                                           InitCase{"port1", "127.0.0.1", 1, true}),
                         [](const auto& info) { return info.param.name; });

TEST(Socket, NullAddressIsRefused) { EXPECT_EQ(zk_socket_handle_init(nullptr, 8080), nullptr); }

TEST(Socket, ConnectToAClosedPortFailsWithMinusThree)
{
    int port;
    {
        ScriptedController gone;  // take a free port, then release it
        port = gone.port();
    }
    zk_socket_handle* handle = zk_socket_handle_init("127.0.0.1", port);
    EXPECT_EQ(handle->init(handle), -3);
    EXPECT_EQ(handle->socket_id, -1);
    zk_socket_handle_destroy(handle);
}

TEST(Socket, PortAbove65535IsCutTo16Bits)
{
    ScriptedController controller;
    zk_socket_handle* handle = zk_socket_handle_init("127.0.0.1", controller.port() + 65536);
    EXPECT_GT(handle->init(handle), 0);
    EXPECT_TRUE(controller.wait_for_connections(1));
    zk_socket_handle_destroy(handle);
}

TEST(Socket, SendAndReceiveCodes)
{
    ScriptedController controller;
    controller.on("ping").reply(R"({"command":"pong"})");
    zk_socket_handle* handle = zk_socket_handle_init("127.0.0.1", controller.port());
    ASSERT_GT(handle->init(handle), 0);

    uint8_t buf[64] = {};
    EXPECT_EQ(handle->send(handle, nullptr, 4), -1);
    EXPECT_EQ(handle->block_send(handle, buf, 0), -1);
    EXPECT_EQ(handle->receive(handle, nullptr, 4), -1);
    EXPECT_EQ(handle->receive(handle, buf, sizeof buf), -2);  // non-blocking, nothing there yet

    std::string line = "{\"command\":\"ping\"}\r\n";
    EXPECT_EQ(handle->block_send(handle, reinterpret_cast<uint8_t*>(line.data()), static_cast<int>(line.size())), 0);
    ASSERT_TRUE(controller.wait_for_frames(1));
    int count = -2;
    for (int i = 0; i < 200 && count < 0; ++i) {
        count = handle->block_receive(handle, buf, sizeof buf);
        if (count < 0) usleep(1000);
    }
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buf), static_cast<size_t>(count)), "{\"command\":\"pong\"}\r\n");
    zk_socket_handle_destroy(handle);
}

TEST(Socket, ClosedPeerReadsAsMinusOneBlockingAndZeroPlain)
{
    ScriptedController controller;
    zk_socket_handle* handle = zk_socket_handle_init("127.0.0.1", controller.port());
    ASSERT_GT(handle->init(handle), 0);
    ASSERT_TRUE(controller.wait_for_connections(1));
    controller.close_clients();
    uint8_t buf[16];
    int blocking = -2;
    for (int i = 0; i < 500 && blocking == -2; ++i) {
        blocking = handle->block_receive(handle, buf, sizeof buf);
        if (blocking == -2) usleep(1000);
    }
    EXPECT_EQ(blocking, -1);
    EXPECT_EQ(handle->receive(handle, buf, sizeof buf), 0);
    zk_socket_handle_destroy(handle);
}

}  // namespace
