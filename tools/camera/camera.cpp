#include "camera/camera.h"

#include <algorithm>
#include <array>

#include "camera/picture/live_pictures.h"
#include "camera/picture/shared_pictures.h"

namespace plendix::camera {

namespace {

constexpr std::uint16_t tftp_port = 69;
constexpr std::size_t default_block_size = 512;  // RFC 1350, without the option
constexpr std::size_t longest_request = 4096;    // RFC 2347 says 512; a longer name costs nothing
constexpr std::size_t most_sessions = 32;        // a client that goes away leaves one behind
constexpr std::size_t most_requested = 10000;    // names kept, of all cameras of a fleet
constexpr int most_per_turn = 64;                // datagrams, so that no camera holds up the others

std::unique_ptr<PictureSource> make_source(const Config& config, Gallery* gallery) {
    if (gallery == nullptr) return std::make_unique<LivePictures>(config.number);
    return std::make_unique<SharedPictures>(*gallery);
}

Clock::duration seconds(double count) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(count));
}

}  // namespace

Camera::Camera(const Config& config, std::size_t index, const Surroundings& surroundings)
    : address_(config.address),
      surroundings_(surroundings),
      state_(config, most_requested / surroundings.cameras),
      faults_(surroundings.behaviour.seed, index),
      pictures_(make_source(config, surroundings.gallery)),
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
        surroundings_.catch_up();
        request(client, data.data(), static_cast<std::size_t>(size));
    }
}

void Camera::serve_transfers() {
    std::array<std::uint8_t, longest_request> data;
    Endpoint client;
    for (int i = 0; i < most_per_turn; ++i) {
        const std::ptrdiff_t size = transfers_.receive(data.data(), data.size(), client);
        if (size < 0) return;
        surroundings_.catch_up();
        if (state_.silent()) continue;
        const auto length = static_cast<std::size_t>(size);
        if (const auto block = parse_acknowledgement(data.data(), length)) acknowledged(client, *block);
        if (is_error(data.data(), length)) sessions_.erase(client);
    }
}

void Camera::request(const Endpoint& client, const std::uint8_t* data, std::size_t size) {
    std::string name;
    try {
        const ReadRequest request = parse_request(data, size);
        name = request.name;
        state_.note_request(name);
        if (surroundings_.verbose) say(name);
        serve(client, request, parse_name(name, state_.conditions().sensor));
    } catch (const Refused& refused) {
        if (name.empty()) state_.note_request(name);
        if (!state_.silent()) refuse(client, refused.code(), refused.what());
    } catch (const std::exception& failure) {
        pictures_->end_group();
        refuse(client, ErrorCode::other, failure.what());
    }
}

/// A request that an answer, or a fault, comes of.
void Camera::serve(const Endpoint& client, const ReadRequest& request, const NamedRequest& named) {
    if (hits(FaultKind::reboot)) reboot(faults_.time(FaultKind::reboot));
    if (hits(FaultKind::silent)) fall_silent(faults_.time(FaultKind::silent));
    if (hits(FaultKind::mac_change)) change_mac();
    const auto* picture = std::get_if<PictureRequest>(&named);
    const bool error = !state_.silent() && hits(FaultKind::error);
    if (state_.silent() || error) {
        if (picture != nullptr) state_.note_picture();
        if (picture != nullptr) state_.note_lost_frame();
        if (error) refuse(client, ErrorCode::other, "simulated fault");
        return;
    }
    begin(client, picture ? answer(*picture, client) : answer(std::get<RegisterRequest>(named)), request);
}

void Camera::begin(const Endpoint& client, Answer answer, const ReadRequest& request) {
    const bool options = request.block_size.has_value(), picture = answer.picture();
    const bool silent_options = options && hits(FaultKind::no_oack);
    const bool other_size = options && !silent_options && hits(FaultKind::oack_512);
    std::size_t block_size = request.block_size.value_or(default_block_size);
    if (other_size) block_size = default_block_size;
    sessions_.erase(client);
    make_room();
    try {
        Session session{Transfer(std::move(answer), block_size, options && !silent_options,
                                 surroundings_.behaviour.burst),
                        begun_++};
        if (picture) state_.note_picture();
        if (silent_options || other_size) lose(session);
        if (picture && surroundings_.behaviour.max_fps > 0) {
            session.not_before = std::max(next_frame_, Clock::now());
            next_frame_ = session.not_before + seconds(1 / surroundings_.behaviour.max_fps);
        }
        sessions_.emplace(client, std::move(session));
    } catch (const Refused&) {
        if (picture) pictures_->end_group();
        throw;
    }
    pump(client);
}

Answer Camera::answer(const RegisterRequest& request) {
    const int relay_before = state_.relay();
    const std::uint16_t value =
        request.value ? state_.write(request.number, *request.value) : state_.read(request.number);
    state_.note_register(request.value.has_value());
    if (request.value) log_write(request.number, value, relay_before);
    Answer answer;
    answer.data = std::make_shared<const Bytes>(
        Bytes{static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)});
    return answer;
}

Answer Camera::answer(const PictureRequest& request, const Endpoint& client) {
    Answer answer = pictures_->next(request, client, state_.conditions());
    state_.note_original(*answer.data);
    return answer;
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
    if (surroundings_.verbose) say("refused: " + text);
}

/// Register 25 is written twice a second whatever happens: only changes of the relay are told.
void Camera::log_write(int number, std::uint16_t value, int relay_before) {
    const int relay = state_.relay();
    if (number != reg_io) say("register " + std::to_string(number) + " = " + std::to_string(value));
    if (relay != relay_before) say(relay == 1 ? "relay high" : "relay low");
}

void Camera::set_trigger(bool level) {
    state_.set_trigger(level);
    if (surroundings_.verbose) say(level ? "trigger high" : "trigger low");
}

void Camera::say(const std::string& text) const {
    if (surroundings_.log) surroundings_.log(address_ + " " + text);
}

}  // namespace plendix::camera
