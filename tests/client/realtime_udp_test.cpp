#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Application/zk_handle.h"
#include "Middleware/udp.h"
#include "support/scripted_controller.h"
#include "support/test_log.h"
#include "zk_api.h"

namespace {

using namespace std::chrono_literals;

// --- Local UDP ports seen from outside ---------------------------------------------------

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

// A socket bound to the port without address reuse: binding fails while the library holds it.
int bind_exclusively(int port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
    ::close(fd);
    return -1;
}

bool port_is_free(int port)
{
    const int fd = bind_exclusively(port);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

// Ports the system hands out as free right now.
std::vector<int> free_ports(int count)
{
    std::vector<int> fds;
    std::vector<int> ports;
    for (int i = 0; i < count; ++i) {
        const int fd = bind_exclusively(0);
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        fds.push_back(fd);
        ports.push_back(ntohs(address.sin_port));
    }
    for (int fd : fds) ::close(fd);
    return ports;
}

void send_datagram(int port, const std::string& text)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = loopback(port);
    ::sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    ::close(fd);
}

// --- The port table ----------------------------------------------------------------------

class PortTable : public ::testing::Test {
protected:
    void SetUp() override { table_ = zk_udp_init(); }
    void TearDown() override
    {
        zk_udp_close_all(table_);
        delete table_;
    }
    zk_udp_handle* table_ = nullptr;
};

TEST_F(PortTable, RegistrationsOfOnePortShareOneSocket)
{
    const int port = free_ports(1)[0];
    EXPECT_EQ(table_->udp_add_port(table_, port), 0);
    EXPECT_EQ(table_->udp_add_port(table_, port), 1);
    const zk_udp_info entry = table_->udp_list[0];
    EXPECT_GT(entry.udp_id, 0);
    EXPECT_EQ(entry.port, port);
    EXPECT_EQ(entry.user_num, 2);
    EXPECT_EQ(table_->udp_list[1].user_num, 0);

    EXPECT_EQ(table_->udp_delete_port(table_, port), 0);
    EXPECT_EQ(table_->udp_list[0].user_num, 1);
    EXPECT_FALSE(port_is_free(port)) << "still bound while a registration remains";
    EXPECT_EQ(table_->udp_delete_port(table_, port), 0);
    EXPECT_EQ(table_->udp_list[0].udp_id, 0);
    EXPECT_EQ(table_->udp_list[0].port, 0);
    EXPECT_EQ(table_->udp_list[0].user_num, 0);
    EXPECT_TRUE(port_is_free(port));
}

TEST_F(PortTable, SixthDistinctPortFindsNoEntry)
{
    const std::vector<int> ports = free_ports(6);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(table_->udp_add_port(table_, ports[i]), 0);
    EXPECT_EQ(table_->udp_add_port(table_, ports[5]), -2);
    EXPECT_TRUE(port_is_free(ports[5]));
    EXPECT_EQ(table_->udp_add_port(table_, ports[2]), 1) << "a known port still counts";
    // Freeing one entry makes room again, in that entry.
    table_->udp_delete_port(table_, ports[0]);
    EXPECT_EQ(table_->udp_add_port(table_, ports[5]), 0);
    EXPECT_EQ(table_->udp_list[0].port, ports[5]);
}

TEST_F(PortTable, PortThatCannotBeBoundTakesNoEntry)
{
    const int port = free_ports(1)[0];
    const int holder = bind_exclusively(port);
    ASSERT_GE(holder, 0);
    EXPECT_EQ(zk_udp_create_connect(port), -2);
    EXPECT_EQ(table_->udp_add_port(table_, port), -1);
    EXPECT_EQ(table_->udp_list[0].user_num, 0);
    EXPECT_EQ(table_->udp_list[0].udp_id, 0);
    ::close(holder);
    for (int bad : {0, -5, 70000}) EXPECT_EQ(table_->udp_add_port(table_, bad), -1) << bad;
    EXPECT_EQ(table_->udp_add_port(table_, port), 0);
}

TEST_F(PortTable, DeletingAnUnknownPortLeavesOthersAndNeverClosesSocketZero)
{
    const int port = free_ports(1)[0];
    table_->udp_add_port(table_, port);
    const int stdin_flags = ::fcntl(0, F_GETFD);
    EXPECT_EQ(table_->udp_delete_port(table_, port + 1), 0);
    EXPECT_EQ(table_->udp_delete_port(table_, 0), 0);
    EXPECT_EQ(table_->udp_list[0].user_num, 1);
    EXPECT_FALSE(port_is_free(port));
    EXPECT_EQ(::fcntl(0, F_GETFD), stdin_flags);
}

// --- The listener thread -----------------------------------------------------------------

std::mutex g_mutex;
std::condition_variable g_arrived;
std::vector<zk_realtime_arm_joint_state_t> g_states;

void on_state(zk_realtime_arm_joint_state_t state)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_states.push_back(state);
    g_arrived.notify_all();
}

bool wait_for_states(size_t count)
{
    std::unique_lock<std::mutex> lock(g_mutex);
    return g_arrived.wait_for(lock, 2s, [&] { return g_states.size() >= count; });
}

const char* kState =
    R"({"joint_status":{"joint_position":[1000,2000]},"arm_current_status":"move_J",)"
    R"("waypoint":{"quat":[1000000,0,0,0],"euler":[0,0,0],"position":[500000,0,0]},"err":[0]})";

class Listener : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_states.clear();
        zk_realtime_arm_state_call_back(on_state);
        zk_realtime_arm_state_call_back(nullptr);  // ignored: on_state stays
        ASSERT_EQ(zk_init(ZK_TRIPLE_MODE_E), 0);
        ASSERT_NE(gUdpHandle, nullptr);
    }
    void TearDown() override { zk_destory(); }
};

TEST_F(Listener, DatagramOfARegisteredPortReachesTheCallback)
{
    const int port = free_ports(1)[0];
    ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    send_datagram(port, kState);
    ASSERT_TRUE(wait_for_states(1));
    std::lock_guard<std::mutex> lock(g_mutex);
    const zk_realtime_arm_joint_state_t& state = g_states[0];
    EXPECT_EQ(state.errCode, 0);
    EXPECT_STREQ(state.arm_ip, "127.0.0.1");
    EXPECT_FLOAT_EQ(state.joint_status.joint_position[1], 2.0f);
    EXPECT_EQ(state.arm_current_status, ZK_MOVE_J_E);
    EXPECT_FLOAT_EQ(state.waypoint.position.x, 0.5f);
}

TEST_F(Listener, FailedDatagramsReachTheCallbackWithTheirCode)
{
    const int port = free_ports(1)[0];
    ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    send_datagram(port, R"({"joint_status":{"joint_position":[3000]}})");
    ASSERT_TRUE(wait_for_states(1));
    // A datagram over 2048 bytes is cut to them, and the cut text is no longer JSON.
    std::string padded = kState;
    padded.insert(1, R"("pad":")" + std::string(2100, 'x') + R"(",)");
    send_datagram(port, padded);
    ASSERT_TRUE(wait_for_states(2));
    std::lock_guard<std::mutex> lock(g_mutex);
    EXPECT_EQ(g_states[0].errCode, -3);
    EXPECT_STREQ(g_states[0].arm_ip, "127.0.0.1");
    EXPECT_FLOAT_EQ(g_states[0].joint_status.joint_position[0], 3.0f) << "what was read stays";
    EXPECT_EQ(g_states[1].errCode, -3);
}

TEST_F(Listener, AllRegisteredPortsAreServed)
{
    const std::vector<int> ports = free_ports(3);
    for (int port : ports) ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    // The last port first: a silent port must not hold up the others.
    for (auto it = ports.rbegin(); it != ports.rend(); ++it) send_datagram(*it, kState);
    EXPECT_TRUE(wait_for_states(3));
}

TEST_F(Listener, ShutdownIsPromptAndReleasesThePorts)
{
    const std::vector<int> ports = free_ports(2);
    for (int port : ports) ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    gUdpHandle->udp_add_port(gUdpHandle, ports[0]);
    send_datagram(ports[0], kState);
    ASSERT_TRUE(wait_for_states(1));
    const auto start = std::chrono::steady_clock::now();
    zk_destory();
    // A liveness bound, far above the listener's own poll bound.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    for (int port : ports) EXPECT_TRUE(port_is_free(port)) << port;
    for (int i = 0; i < kUdpMaxPorts; ++i) EXPECT_EQ(zk_udp_entry(gUdpHandle, i).user_num, 0);
    // Nothing listens any more: a late datagram reaches no callback.
    send_datagram(ports[1], kState);
    std::this_thread::sleep_for(50ms);
    std::lock_guard<std::mutex> lock(g_mutex);
    EXPECT_EQ(g_states.size(), 1u);
}

TEST_F(Listener, RestartReusesTheTable)
{
    zk_udp_handle* table = gUdpHandle;
    zk_destory();
    ASSERT_EQ(zk_init(ZK_TRIPLE_MODE_E), 0);
    EXPECT_EQ(gUdpHandle, table);
    const int port = free_ports(1)[0];
    ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    send_datagram(port, kState);
    EXPECT_TRUE(wait_for_states(1));
}

void destroy_from_the_callback(zk_realtime_arm_joint_state_t state)
{
    zk_destory();
    on_state(state);
}

// Stopping from the callback cannot wait for the listener running it: the call is refused,
// the listener still ends on its own, releases its ports, and a later stop joins it.
TEST_F(Listener, CallbackThatStopsTheLibraryDoesNotHang)
{
    zk_realtime_arm_state_call_back(destroy_from_the_callback);
    const int port = free_ports(1)[0];
    ASSERT_EQ(gUdpHandle->udp_add_port(gUdpHandle, port), 0);
    zk_test::LogCapture log(LOG_LEVEL_ERROR);
    send_datagram(port, kState);
    ASSERT_TRUE(wait_for_states(1));
    EXPECT_TRUE(log.contains("[zk_destory] not allowed from a library callback\n"));
    for (int i = 0; i < 100 && !port_is_free(port); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(port_is_free(port));
}

// --- With a connected arm ----------------------------------------------------------------

std::string push_reply(int port, bool enable)
{
    return R"({"command":"get_realtime_push","cycle":1,"enable":)" + std::string(enable ? "true" : "false") +
           R"(,"port":)" + std::to_string(port) + R"(,"ip":"127.0.0.1","custom":{}})";
}

TEST_F(Listener, ConnectingWithThePushEnabledRegistersItsPortOncePerRead)
{
    const int port = free_ports(1)[0];
    zk_test::ScriptedController controller;
    controller.answer_sync();
    controller.on("get_realtime_push").reply(push_reply(port, true));
    zk_robot_handle* arm = zk_create_robot_arm(zk_test::ScriptedController::ip(), controller.port());
    ASSERT_NE(arm, nullptr);
    ASSERT_EQ(arm->id, 1);
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 0).port, port);
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 0).user_num, 1);

    send_datagram(port, kState);
    ASSERT_TRUE(wait_for_states(1));
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        EXPECT_EQ(g_states[0].errCode, 0);
        EXPECT_STREQ(g_states[0].arm_ip, "127.0.0.1");
    }

    // Each successful read-back of an enabled push counts once more.
    controller.on("set_realtime_push").reply(R"({"command":"set_realtime_push","state":true})");
    controller.on("get_realtime_push").reply(push_reply(port, true));
    zk_realtime_push_config_t config{};
    config.cycle = 1;
    config.enable = true;
    config.port = port;
    config.force_coordinate = -1;
    std::memcpy(config.ip, "127.0.0.1", 9);
    config.custom_config = {-1, -1, -1, -1, -1, -1, -1, -1};
    EXPECT_EQ(zk_set_realtime_push(arm, config), 0);
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 0).user_num, 2);
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 1).user_num, 0);

    // Deleting the handle keeps the port; stopping the library releases it.
    EXPECT_EQ(zk_delete_robot_arm(arm), 0);
    EXPECT_FALSE(port_is_free(port));
    zk_destory();
    EXPECT_TRUE(port_is_free(port));
}

TEST_F(Listener, PushDisabledRegistersNothing)
{
    zk_test::ScriptedController controller;
    controller.answer_sync();
    zk_robot_handle* arm = zk_create_robot_arm(zk_test::ScriptedController::ip(), controller.port());
    ASSERT_EQ(arm->id, 1);
    for (int i = 0; i < kUdpMaxPorts; ++i) EXPECT_EQ(zk_udp_entry(gUdpHandle, i).user_num, 0);
    EXPECT_EQ(gHandleList[0]->udp_port, 8089);
}

// Two controllers pushing to one port share a socket; the callback tells them apart by address.
TEST_F(Listener, SharedPortDeliversEveryControllersDatagrams)
{
    const int port = free_ports(1)[0];
    zk_test::ScriptedController first;
    zk_test::ScriptedController second;
    for (zk_test::ScriptedController* controller : {&first, &second}) {
        controller->answer_sync();
        controller->on("get_realtime_push").reply(push_reply(port, true));
        ASSERT_GT(zk_create_robot_arm(zk_test::ScriptedController::ip(), controller->port())->id, 0);
    }
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 0).user_num, 2);
    EXPECT_EQ(zk_udp_entry(gUdpHandle, 1).user_num, 0);
    send_datagram(port, kState);
    send_datagram(port, kState);
    EXPECT_TRUE(wait_for_states(2));
}

}  // namespace
