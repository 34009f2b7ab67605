// The least that a client of this protocol can do: select, and for each block recvfrom, sendto and
// one memcpy into a picture's buffer. Fetches one file over and over from a row of cameras.
// Usage: floor_client FIRST-ADDRESS COUNT NAME [timed | connected | timed-connected]
// What others do besides: "timed" gives select a limit of 20 ms; "connected" connects the socket to where the
// first answer of a transfer came from and asks for no sender any more, so the kernel need not look for the
// way.
#include <arpa/inet.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::size_t block_size = 1450;
constexpr std::size_t picture_size = 2 << 20;
constexpr std::size_t header_size = 4;

struct Camera {
    int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in peer{};
    bool connected = false;
    std::unique_ptr<char, void (*)(void*)> picture{static_cast<char*>(std::malloc(picture_size)), std::free};
};

[[noreturn]] void give_up(const char* call) {
    std::fprintf(stderr, "floor_client: ");
    std::perror(call);
    std::exit(1);
}

sockaddr* address_of(Camera& camera) {
    return reinterpret_cast<sockaddr*>(&camera.peer);
}

template <bool connected = false>
void send(Camera& camera, const char* data, std::size_t size) {
    sockaddr* const to = connected ? nullptr : address_of(camera);
    if (sendto(camera.descriptor, data, size, 0, to, connected ? 0 : sizeof(camera.peer)) < 0)
        give_up("sendto");
}

void set_connected(Camera& camera, bool connected) {
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    const sockaddr* const to = connected ? address_of(camera) : &nowhere;
    if (connect(camera.descriptor, to, sizeof(camera.peer)) != 0) give_up("connect");
    camera.connected = connected;
}

void request(Camera& camera, const std::string& packet) {
    camera.peer.sin_port = htons(69);
    send(camera, packet.data(), packet.size());
}

template <bool connected>
void serve(Camera& camera, const std::string& packet) {
    char data[65536];
    socklen_t length = sizeof(camera.peer);
    const bool known = connected && camera.connected;
    const ssize_t received = recvfrom(camera.descriptor, data, sizeof(data), 0,
                                      known ? nullptr : address_of(camera), known ? nullptr : &length);
    if (received < static_cast<ssize_t>(header_size)) return;
    const bool block = data[1] == 3;
    if (connected && !block) set_connected(camera, true);
    const std::size_t size = static_cast<std::size_t>(received) - header_size;
    const char acknowledgement[] = {0, 4, block ? data[2] : '\0', block ? data[3] : '\0'};
    send<connected>(camera, acknowledgement, sizeof(acknowledgement));
    if (!block) return;
    std::uint16_t number = 0;
    std::memcpy(&number, data + 2, sizeof(number));
    const std::size_t place = ntohs(number) * block_size;
    if (place + size <= picture_size) std::memcpy(camera.picture.get() + place, data + header_size, size);
    if (size >= block_size) return;
    if (connected) set_connected(camera, false);
    request(camera, packet);
}

template <bool timed, bool connected>
void run(std::vector<Camera>& all, const std::string& packet) {
    int highest = 0;
    for (Camera& camera : all) {
        highest = std::max(highest, camera.descriptor);
        request(camera, packet);
    }
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        for (const Camera& camera : all)
            FD_SET(camera.descriptor, &ready);
        timeval limit = {0, 20'000};
        if (select(highest + 1, &ready, nullptr, nullptr, timed ? &limit : nullptr) < 0) continue;
        for (Camera& camera : all)
            if (FD_ISSET(camera.descriptor, &ready)) serve<connected>(camera, packet);
    }
}

}  // namespace

int main(int count, char** values) {
    const int cameras = count == 4 || count == 5 ? std::atoi(values[2]) : 0;
    in_addr first{};
    if (cameras < 1 || cameras > 255 || inet_aton(values[1], &first) == 0) {
        std::fprintf(stderr, "usage: floor_client FIRST-ADDRESS COUNT NAME [MANNER], COUNT from 1 to 255\n");
        return 2;
    }
    using namespace std::string_literals;
    const std::string packet = "\0\1"s + values[3] + "\0netascii\0blksize\0"s + "1450\0"s;
    std::vector<Camera> all(static_cast<std::size_t>(cameras));
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i].peer.sin_family = AF_INET;
        all[i].peer.sin_addr.s_addr = htonl(ntohl(first.s_addr) + static_cast<std::uint32_t>(i));
    }
    const std::string manner = count == 5 ? values[4] : "";
    if (manner.empty()) run<false, false>(all, packet);
    if (manner == "timed") run<true, false>(all, packet);
    if (manner == "connected") run<false, true>(all, packet);
    if (manner == "timed-connected") run<true, true>(all, packet);
    std::fprintf(stderr, "floor_client: '%s' is not timed, connected or timed-connected\n", manner.c_str());
    return 2;
}
