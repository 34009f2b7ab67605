#include "camera/camera.h"

#include <algorithm>
#include <array>

namespace plendix::camera {

namespace {

constexpr std::uint16_t tftp_port = 69;
constexpr std::size_t default_block_size = 512;  // RFC 1350, without the option
constexpr std::size_t longest_request = 4096;    // RFC 2347 says 512; a longer name costs nothing
constexpr std::size_t most_sessions = 32;        // a client that goes away leaves one behind
constexpr int most_per_turn = 64;                // datagrams, so that no camera holds up the others

}  // namespace

Camera::Camera(const Config& config, Fleet::Log log, bool verbose)
    : address_(config.address),
      log_(std::move(log)),
      verbose_(verbose),
      state_(config),
      pictures_(config.number),
      requests_(config.address, tftp_port),
      transfers_(config.address, 0) {}

void Camera::serve_requests() {
    // A client acknowledges its last block before it asks again: that acknowledgement comes first.
    serve_transfers();
    std::array<std::uint8_t, longest_request> data;
    Endpoint client;
    for (int i = 0; i < most_per_turn; ++i) {
        const std::ptrdiff_t size = requests_.receive(data.data(), data.size(), client);
        if (size < 0) return;
        request(client, data.data(), static_cast<std::size_t>(size));
    }
}

void Camera::serve_transfers() {
    std::array<std::uint8_t, longest_request> data;
    Endpoint client;
    for (int i = 0; i < most_per_turn; ++i) {
        const std::ptrdiff_t size = transfers_.receive(data.data(), data.size(), client);
        if (size < 0) return;
        if (state_.silent()) continue;
        const auto length = static_cast<std::size_t>(size);
        if (const auto block = parse_acknowledgement(data.data(), length)) acknowledged(client, *block);
        if (is_error(data.data(), length)) sessions_.erase(client);
    }
}

void Camera::request(const Endpoint& client, const std::uint8_t* data, std::size_t size) {
    const bool silent = state_.silent();
    std::string name;
    try {
        const ReadRequest request = parse_request(data, size);
        name = request.name;
        state_.note_request(name);
        if (verbose_) say(name);
        if (!silent) begin(client, request);
    } catch (const Refused& refused) {
        if (name.empty()) state_.note_request(name);
        if (!silent) refuse(client, refused.code(), refused.what());
    } catch (const std::exception& failure) {
        pictures_.end_group();
        refuse(client, ErrorCode::other, failure.what());
    }
}

void Camera::begin(const Endpoint& client, const ReadRequest& request) {
    const NamedRequest named = parse_name(request.name, state_.conditions().sensor);
    const auto* picture = std::get_if<PictureRequest>(&named);
    auto answered = picture ? answer(*picture, client) : answer(std::get<RegisterRequest>(named));
    const std::size_t block_size = request.block_size.value_or(default_block_size);
    sessions_.erase(client);
    make_room();
    try {
        const Session session{Transfer(std::move(answered), block_size, request.block_size.has_value()),
                              begun_++};
        sessions_.emplace(client, session);
        send_due(client, session.transfer);
    } catch (const Refused&) {
        if (picture) pictures_.end_group();
        throw;
    }
}

std::shared_ptr<const Answer> Camera::answer(const RegisterRequest& request) {
    const int relay_before = state_.relay();
    const std::uint16_t value =
        request.value ? state_.write(request.number, *request.value) : state_.read(request.number);
    state_.note_register(request.value.has_value());
    if (request.value) log_write(request.number, value, relay_before);
    auto answer = std::make_shared<Answer>();
    answer->payload = {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
    return answer;
}

std::shared_ptr<const Answer> Camera::answer(const PictureRequest& request, const Endpoint& client) {
    Served served = pictures_.next(request, client, state_.conditions());
    state_.note_original(std::move(served.original));
    return served.answer;
}

void Camera::acknowledged(const Endpoint& client, std::uint16_t block) {
    const auto found = sessions_.find(client);
    if (found == sessions_.end() || !found->second.transfer.accept(block)) return;
    state_.note_acknowledgement();
    send_due(client, found->second.transfer);
}

/// Sends what is due, and forgets the transfer when nothing is.
void Camera::send_due(const Endpoint& client, const Transfer& transfer) {
    const auto packet = transfer.due();
    if (!packet) {
        sessions_.erase(client);
        return;
    }
    if (!transfer.awaits_options()) {  // counted before the client can see it
        state_.note_block(packet->size() - 4);
        if (transfer.at_last() && transfer.answer().picture()) state_.note_frame(transfer.answer().key);
    }
    transfers_.send(packet->data(), packet->size(), client);
}

void Camera::make_room() {
    if (sessions_.size() < most_sessions) return;
    sessions_.erase(std::min_element(sessions_.begin(), sessions_.end(), [](const auto& a, const auto& b) {
        return a.second.begun < b.second.begun;
    }));
}

void Camera::refuse(const Endpoint& client, ErrorCode code, const std::string& text) {
    sessions_.erase(client);
    const Bytes packet = error_packet(code, text);
    state_.note_error();  // before the client can see it
    transfers_.send(packet.data(), packet.size(), client);
    if (verbose_) say("refused: " + text);
}

/// Register 25 is written twice a second whatever happens: only changes of the relay are told.
void Camera::log_write(int number, std::uint16_t value, int relay_before) {
    const int relay = state_.relay();
    if (number != reg_io) say("register " + std::to_string(number) + " = " + std::to_string(value));
    if (relay != relay_before) say(relay == 1 ? "relay high" : "relay low");
}

void Camera::say(const std::string& text) const {
    if (log_) log_(address_ + " " + text);
}

}  // namespace plendix::camera
