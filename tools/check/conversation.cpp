#include "check/conversation.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "check/packet_text.h"
#include "host/plain_text.h"
#include "usage.h"

namespace plendix::check {
namespace {

constexpr std::size_t longest_datagram = 65536;
constexpr milliseconds look{100};  // how often a signal is looked for

link::View view_of(const link::Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

std::string place(const sockaddr_in& sender) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &sender.sin_addr, text.data(), text.size());
    return std::string(text.data()) + " port " + std::to_string(ntohs(sender.sin_port));
}

bool from_a_server(const link::Bytes& bytes) {
    const auto packet = link::parse_packet(view_of(bytes));
    return packet && (packet->opcode == link::Opcode::data || packet->opcode == link::Opcode::error ||
                      packet->opcode == link::Opcode::options);
}

int open_socket() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) throw Failure("cannot open a socket: " + error_text(errno));
    return descriptor;
}

}  // namespace

Datagram::Datagram(Clock::time_point arrival, link::Bytes content)
    : at(arrival),
      bytes(std::move(content)),
      packet(link::parse_packet(view_of(bytes)).value_or(link::Packet{})) {}

Conversation::Conversation(Examination& examination) : examination_(examination), socket_(open_socket()) {
    inet_pton(AF_INET, examination.options.address.c_str(), &camera_);
}

Conversation::~Conversation() {
    close(socket_);
}

void Conversation::request(const link::Bytes& packet, const std::string& words) {
    port_ = 0;
    settled_ = false;
    words_ = cut(printable(words), 90);
    sent_ = "RRQ " + words_;
    send(packet, link::camera_port);
}

void Conversation::acknowledge(std::uint16_t block) {
    sent_ = "ACK " + std::to_string(block) + " in " + words_;
    send(link::acknowledgement(block), port_ == 0 ? link::camera_port : port_);
}

void Conversation::send(const link::Bytes& packet, std::uint16_t port) {
    const sockaddr_in to{AF_INET, htons(port), camera_, {}};
    sent_at_ = Clock::now();
    // What the network does not take is as lost as what it loses: the silence that follows tells.
    sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

std::optional<Datagram> Conversation::next(Clock::time_point until) {
    for (;;) {
        if (auto datagram = receive()) return datagram;
        const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd waiting{socket_, POLLIN, 0};
        poll(&waiting, 1, static_cast<int>(std::min(left, look).count()));
        if (examination_.stopped()) return std::nullopt;
    }
}

/// The first of what is there; a bounded number of others is passed over, for they may come faster than
/// they can be read.
std::optional<Datagram> Conversation::receive() {
    constexpr int most = 64;
    for (int i = 0; i < most; ++i) {
        link::Bytes bytes(longest_datagram);
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        const ssize_t length =
            recvfrom(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
        if (length < 0) return std::nullopt;
        bytes.resize(static_cast<std::size_t>(length));
        if (from_camera(sender, bytes)) return Datagram(Clock::now(), std::move(bytes));
    }
    return std::nullopt;
}

bool Conversation::from_camera(const sockaddr_in& sender, const link::Bytes& bytes) {
    Findings& findings = examination_.findings;
    const std::string came = packet_text(view_of(bytes)) + " from " + place(sender);
    if (sender.sin_addr.s_addr != camera_.s_addr) {
        findings.fail(Rule::answers_sender, {sent_, came, "datagrams from " + examination_.options.address});
        return false;
    }
    examination_.heard = true;
    if (!from_a_server(bytes)) {
        findings.fail(Rule::answers_packets, {sent_, came, "OACK, DATA or ERROR"});
        return false;
    }
    const std::uint16_t port = ntohs(sender.sin_port);
    const bool options = bytes[1] == static_cast<std::uint8_t>(link::Opcode::options);
    if (port_ == 0 || (options && !settled_)) port_ = port;
    settled_ = settled_ || options;
    if (port == link::camera_port || (settled_ && port != port_))
        findings.fail(Rule::answers_port,
                      {sent_, came, port == port_ ? "a port of its own" : "port " + std::to_string(port_)});
    return true;
}

void Conversation::finished(std::uint16_t last, const link::Bytes& content) {
    finished_ = true;
    last_ = last;
    last_block_ = content;
}

bool Conversation::belongs_behind(const Datagram& datagram) {
    if (!finished_ || datagram.packet.opcode != link::Opcode::data) return false;
    const link::View rest = datagram.packet.rest;
    const bool again = datagram.packet.number == last_ && rest.size == last_block_.size() &&
                       std::equal(last_block_.begin(), last_block_.end(), rest.data);
    if (!again && datagram.packet.number <= last_) return false;
    const Evidence evidence{sent_, packet_text(view_of(datagram.bytes)),
                            "nothing behind DATA " + std::to_string(last_)};
    examination_.findings.fail(again ? Rule::answers_once : Rule::blocks_end, evidence);
    return true;
}

void Conversation::look_behind() {
    constexpr int most = 256;
    for (int i = 0; finished_ && i < most; ++i) {
        const auto datagram = receive();
        if (!datagram) return;
        belongs_behind(*datagram);
    }
}

}  // namespace plendix::check
