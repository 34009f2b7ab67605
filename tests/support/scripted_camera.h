// A camera played by hand, datagram by datagram, and a connection that a test drives against it, on
// clocks that stand still. The program's own clock_gettime takes the place of the C library's, under
// the name in the headers: include it in one source.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <ctime>
#include <map>

#include "device/device.h"
#include "platform/clock.h"
#include "support/host.h"

namespace plendix {

using namespace std::string_literals;

inline std::string word(unsigned value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

inline std::int64_t calendar = 0, uptime = 0;  // milliseconds since 1970, and of the monotonic clock

/// A loopback address that no other test process uses.
inline std::string own_address() {
    return "127.30." + std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
}

/// One enabled connection, number 7, to a camera on port 69 of own_address, which answers from a
/// transfer port. While the camera waits, the worker works; what it waits for in vain reads as empty.
class Bench : public testing::Test {
protected:
    using Registers = std::map<int, unsigned>;

    Bench() {
        setenv("TZ", "XYZ-5:30", 1);                 // no time is local
        calendar = 1'700'000'000'123, uptime = 400;  // no poll is due, and no output update
        renew();
    }
    ~Bench() override { uptime = 0, close(server), close(transfer); }
    void renew() {  // a connection that knows nothing of its camera yet
        device = std::make_unique<CDevice>(7);
        device->m_bEnabled = true;
        device->m_sAddress = own_address();
        host.clear();
    }
    void pass() {  // what the worker does with one camera
        if (quiet) device->m_dwPollTime = device->m_dwOutputTime = timeGetTime();
        fd_set read = {}, unused = {};
        timeval limit = {0, 1000};
        const int highest = device->Set(read, unused, unused);
        if (highest >= 0) select(highest + 1, &read, nullptr, nullptr, &limit);
        changed |= device->IsSet(read, unused, unused);
    }

    /// The next datagram on port 69; its sender gets the answers from now on.
    std::string request() { return receive(server, 20, &client); }
    /// The name in the next read request.
    std::string asked() { return request().append(3, '\0').c_str() + 2; }
    void expect(const std::string& wanted) { EXPECT_EQ(asked(), wanted); }
    void begin() { expect("getreg?page=3;reg=122;"); }
    void expect_log(const std::string& text) {
        EXPECT_THAT(host.log_lines(), testing::ElementsAre(testing::StartsWith(text)));
        host.clear();
    }
    void send(const std::string& datagram, const std::string& acknowledgement) {
        const auto* const peer = reinterpret_cast<const sockaddr*>(&client);
        sendto(transfer, datagram.data(), datagram.size(), 0, peer, sizeof(client));
        EXPECT_EQ(receive(transfer, 5, nullptr), acknowledgement) << datagram;
    }
    void options(const std::string& list) { send("\0\6"s + list, "\0\4\0\0"s); }
    void grant() { options("blksize\0001450\0"s); }
    void data(unsigned block, const std::string& bytes) {
        send("\0\3"s + word(block) + bytes, "\0\4"s + word(block));
    }
    void answer(unsigned value) { grant(), data(1, word(value)); }
    /// Plays a camera with these registers until something else is asked for, or nothing: the name.
    std::string serve(Registers registers) {
        for (int count = 0, number = 0; count < 60; answer(registers[number]), ++count) {
            const std::string name = asked();
            unsigned value = 0;
            if (std::sscanf(name.c_str(), "setreg?page=3;reg=%d;val=%u;", &number, &value) == 2)
                written[number] = registers[number] = value;
            else if (std::sscanf(name.c_str(), "getreg?page=3;reg=%d;", &number) == 1)
                reads.push_back(number);
            else
                return name;
        }
        return "not settled";
    }

    RecordingHost host;
    std::unique_ptr<CDevice> device;
    bool quiet = false;      // no trigger polls and no output updates
    bool changed = false;    // by a pass
    std::vector<int> reads;  // while served
    Registers written;
    // A 1600 x 1200 camera that agrees with what the driver wants of it.
    const Registers agreeing{{122, 105}, {123, 61750}, {2, 99},  {15, 3},       {16, 2},
                             {72, 1600}, {73, 1200},   {109, 1}, {110, 0x0700}, {111, 0x1110}};

private:
    static int open_socket(std::uint16_t port) {
        const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
        const sockaddr_in local = {AF_INET, htons(port), {inet_addr(own_address().c_str())}, {}};
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof(local)), 0)
            << "port 69 is not available: run as root, or under 'unshare -rn'";
        return descriptor;
    }
    std::string receive(int descriptor, int passes, sockaddr_in* from) {
        pollfd waiting = {descriptor, POLLIN, 0};
        for (; poll(&waiting, 1, 0) == 0; pass())
            if (passes-- == 0) return {};
        char buffer[4096];
        socklen_t size = sizeof(*from);
        const ssize_t length =
            recvfrom(descriptor, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr*>(from), &size);
        return {buffer, static_cast<std::size_t>(length)};
    }
    const int server = open_socket(69), transfer = open_socket(0);
    sockaddr_in client = {};
};

}  // namespace plendix

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const std::int64_t now = clock == CLOCK_MONOTONIC ? plendix::uptime : plendix::calendar;
    time->tv_sec = static_cast<std::time_t>(now / 1000);
    time->tv_nsec = static_cast<long>(now % 1000 * 1000000 + 999999);
    return 0;
}
