#include "sim_fixture.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace zk_sim_test {

namespace {

int remaining_ms(std::chrono::steady_clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<Millis>(deadline - std::chrono::steady_clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

Json parse(const std::string& text)
{
    Json json;
    json.text = text;
    json.tree.reset(cJSON_Parse(text.c_str()));
    return json;
}

std::string Json::name() const
{
    const cJSON* command = (*this)["command"];
    if (cJSON_IsString(command)) return command->valuestring;
    const cJSON* state = (*this)["state"];
    return cJSON_IsString(state) ? state->valuestring : "";
}

int Json::integer(const char* key) const
{
    const cJSON* item = (*this)[key];
    EXPECT_TRUE(cJSON_IsNumber(item)) << key << " in " << text;
    return cJSON_IsNumber(item) ? item->valueint : 0;
}

std::vector<int> Json::ints(const char* key) const
{
    std::vector<int> values;
    const cJSON* array = (*this)[key];
    if (!cJSON_IsArray(array)) return values;
    for (const cJSON* item = array->child; item != nullptr; item = item->next) values.push_back(item->valueint);
    return values;
}

Json Json::member(const char* key) const
{
    char* text = cJSON_PrintUnformatted((*this)[key]);
    Json nested = parse(text != nullptr ? text : "");
    cJSON_free(text);
    return nested;
}

// -----------------------------------------------------------------------------------------

zk_sim::SimOptions options_for(const std::string& product, double speed_scale)
{
    zk_sim::SimOptions options;
    options.port = 0;
    options.product = product;
    options.speed_scale = speed_scale;
    return options;
}

zk_sim::SimModel model_of(const std::string& product)
{
    zk_sim::SimModel model;
    std::string reason;
    EXPECT_TRUE(zk_sim::sim_model_from_product(product, &model, &reason)) << reason;
    return model;
}

RunningSimulator::RunningSimulator(zk_sim::SimOptions options)
{
    options.port = 0;
    options.log = [this](const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    };
    simulator_ = std::make_unique<zk_sim::Simulator>(options);
    std::string error;
    if (!simulator_->start(&error)) throw std::runtime_error("simulator: " + error);
}

bool RunningSimulator::logged(const std::string& part) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& line : lines_)
        if (line.find(part) != std::string::npos) return true;
    return false;
}

// -----------------------------------------------------------------------------------------

WireClient::WireClient(int port)
{
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot connect to the simulator");
    const int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

WireClient::~WireClient() { close(); }

void WireClient::close()
{
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void WireClient::send_raw(const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<size_t>(n);
    }
}

void WireClient::send_line(const std::string& line) { send_raw(line + "\r\n"); }

std::string WireClient::next_line(Millis limit)
{
    if (!kept_.empty()) {
        std::string line = kept_.front();
        kept_.erase(kept_.begin());
        return line;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const size_t end = pending_.find("\r\n");
        if (end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 2);
            return line;
        }
        pollfd fd{fd_, POLLIN, 0};
        if (::poll(&fd, 1, remaining_ms(deadline)) <= 0) return "";
        char chunk[65536];
        const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
        if (n <= 0) return "";
        pending_.append(chunk, static_cast<size_t>(n));
    }
}

Json WireClient::next(Millis limit) { return parse(next_line(limit)); }

Json WireClient::next_named(const std::string& name, Millis limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const std::string line = next_line(Millis(remaining_ms(deadline)));
        if (line.empty()) return Json{};
        Json frame = parse(line);
        if (frame.name() == name) return frame;
    }
}

Json WireClient::ask(const std::string& line, Millis limit)
{
    send_line(line);
    std::vector<std::string> ends;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        std::string text = next_line(Millis(remaining_ms(deadline)));
        Json frame = parse(text);
        if (frame.name() != "current_trajectory_state") {
            kept_.insert(kept_.begin(), ends.begin(), ends.end());
            return frame;
        }
        ends.push_back(std::move(text));
    }
}

bool WireClient::closed_within(Millis limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        pollfd fd{fd_, POLLIN, 0};
        if (::poll(&fd, 1, remaining_ms(deadline)) <= 0) return false;
        char chunk[4096];
        const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
        if (n <= 0) return true;
        pending_.append(chunk, static_cast<size_t>(n));
    }
}

// -----------------------------------------------------------------------------------------

int free_udp_port()
{
    DatagramSink probe;
    return probe.port();
}

DatagramSink::DatagramSink()
{
    fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot bind a UDP port");
    socklen_t length = sizeof address;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
}

DatagramSink::~DatagramSink() { ::close(fd_); }

std::string DatagramSink::next(Millis limit)
{
    pollfd fd{fd_, POLLIN, 0};
    if (::poll(&fd, 1, static_cast<int>(limit.count())) <= 0) return "";
    char datagram[4096];
    const ssize_t n = ::recv(fd_, datagram, sizeof datagram, 0);
    return n > 0 ? std::string(datagram, static_cast<size_t>(n)) : "";
}

std::vector<std::string> DatagramSink::collect(Millis span)
{
    std::vector<std::string> datagrams;
    const auto deadline = std::chrono::steady_clock::now() + span;
    while (std::chrono::steady_clock::now() < deadline) {
        std::string datagram = next(Millis(remaining_ms(deadline)));
        if (!datagram.empty()) datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

}  // namespace zk_sim_test
