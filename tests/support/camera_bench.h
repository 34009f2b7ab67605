// A plain TFTP client, and a fleet of simulated cameras for it.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "camera/fleet.h"
#include "camera/wire/udp.h"

namespace plendix::camera::test {

using Bytes = std::vector<std::uint8_t>;

struct Reply {
    std::optional<int> error, granted;  // code of an ERROR packet, block size of the OACK
    std::size_t blocks = 0;
    Bytes whole;            // all of them
    Bytes payload;          // of a picture: without the zeros that pad its blocks, and the last one
    Bytes trailer;          // the last block
    bool complete = false;  // false without error: nothing came within 10 s
};

inline Bytes read_request(const std::string& name, std::optional<int> block_size,
                          const std::string& mode = "netascii") {
    std::string text = std::string("\0\1", 2) + name + '\0' + mode + '\0';
    if (block_size) text += std::string("blksize") + '\0' + std::to_string(*block_size) + '\0';
    return Bytes(text.begin(), text.end());
}

class TftpClient {
public:
    explicit TftpClient(const std::string& camera) : peer_{parse_address(camera)} {}

    void request(const Bytes& datagram) {
        peer_.port = htons(69);
        socket_.send(datagram.data(), datagram.size(), peer_);
    }
    /// To where the last datagram came from.
    void acknowledge(int block, std::uint8_t opcode = 4) {
        const std::uint8_t packet[] = {0, opcode, static_cast<std::uint8_t>(block >> 8),
                                       static_cast<std::uint8_t>(block)};
        socket_.send(packet, sizeof packet, peer_);
    }
    bool waits(int milliseconds) {
        pollfd waiting{socket_.descriptor(), POLLIN, 0};
        return poll(&waiting, 1, milliseconds) == 1;
    }
    /// Opcode and number of the next datagram, whose rest goes to `data`; opcode 0 after 10 s.
    std::pair<int, int> receive(Bytes& data) {
        data.assign(65536, 0);
        if (!waits(10'000)) return {0, 0};
        const auto size = socket_.receive(data.data(), data.size(), peer_);
        EXPECT_GE(size, 4);
        data.resize(static_cast<std::size_t>(size));
        const std::pair<int, int> head{data[1], data[2] << 8 | data[3]};
        data.erase(data.begin(), data.begin() + 4);
        return head;
    }

    Reply fetch(const Bytes& datagram, int block_size) {
        Reply reply;
        Bytes data;
        request(datagram);
        while (!reply.complete) {
            const auto [opcode, number] = receive(data);
            if (opcode == 5) reply.error = number;
            if (opcode == 6) reply.granted = std::stoi(std::string(data.begin() + 6, data.end()));
            if (opcode == 6) acknowledge(0);
            if (opcode == 6) continue;
            if (opcode != 3 || number != static_cast<int>(reply.blocks) + 1) return reply;
            acknowledge(number);
            reply.complete = data.size() < static_cast<std::size_t>(block_size);
            Bytes& part = reply.complete ? reply.trailer : reply.payload;
            part.insert(part.end(), data.begin(), data.end());
            reply.whole.insert(reply.whole.end(), data.begin(), data.end());
            ++reply.blocks;
        }
        while (!reply.payload.empty() && reply.payload.back() == 0)
            reply.payload.pop_back();
        return reply;
    }
    Reply fetch(const std::string& name, std::optional<int> block_size = 1450) {
        return fetch(read_request(name, block_size), block_size.value_or(512));
    }
    int value(const std::string& name) {
        const Reply reply = fetch(name);
        return reply.trailer.size() == 2 ? reply.trailer[0] << 8 | reply.trailer[1] : -1;
    }
    int read(int number) { return value("getreg?page=3;reg=" + std::to_string(number) + ";"); }
    int write(int number, int to) {
        return value("setreg?page=3;reg=" + std::to_string(number) + ";val=" + std::to_string(to) + ";");
    }

private:
    UdpSocket socket_{"0.0.0.0", 0};
    Endpoint peer_;
};

/// Loopback addresses that no other test process uses: one for each number, 1 to 254.
inline std::string own_address(std::size_t number) {
    const int process = getpid();
    return "127." + std::to_string(128 + (process >> 8 & 63)) + "." + std::to_string(process & 255) + "." +
           std::to_string(number);
}

/// A camera with a sensor of so many pixels.
inline Config sensor(unsigned width, unsigned height) {
    return {"", 1, Config{}.model, Config{}.firmware, width, height};
}

class CameraBench : public testing::Test {
protected:
    /// Cameras like this one on own_address(1) and up, instead of those before.
    void start(Config camera = {}, std::size_t count = 1, const Behaviour& behaviour = {}) {
        std::vector<Config> cameras;
        for (std::size_t i = 1; i <= count; ++i) {
            camera.address = own_address(i);
            cameras.push_back(camera);
        }
        fleet.reset();  // its addresses are wanted again
        fleet = std::make_unique<Fleet>(cameras, behaviour);
        fleet->keep_originals(0);
        fleet->start();
    }

    std::unique_ptr<Fleet> fleet;
    TftpClient client{own_address(1)};
};

}  // namespace plendix::camera::test
