#include "camera/camera_state.h"

#include <algorithm>
#include <cstring>

#include "usage.h"

namespace plendix::camera {

namespace {

// Register 25: the two bits tell a poll of the input and the levels of the relay apart.
constexpr unsigned io_mask = 0x30, io_low = 0x10, io_high = 0x20;  // both: a poll

constexpr unsigned least_sensor = 16, greatest_sensor = 8192;  // pixels; above, a picture gets too large

std::array<std::uint8_t, 6> mac_of(const Config& config) {
    if (config.mac != std::array<std::uint8_t, 6>{}) return config.mac;
    std::uint8_t address[4];
    const std::uint32_t parsed = parse_address(config.address);
    std::memcpy(address, &parsed, sizeof address);
    return {0x02, 0x50, 0x4C, address[1], address[2], address[3]};
}

std::map<int, std::uint16_t> start_values(const Config& config) {
    for (const unsigned side : {config.sensor_width, config.sensor_height})
        if (side < least_sensor || side > greatest_sensor)
            throw Failure(config.address + ": a sensor side of " + std::to_string(side) +
                          " pixels is not between 16 and 8192");
    std::map<int, std::uint16_t> values{{reg_brightness, 99},
                                        {reg_saturation, 3},
                                        {reg_sharpness, 2},
                                        {reg_sensor_x1, static_cast<std::uint16_t>(config.sensor_width)},
                                        {reg_sensor_y1, static_cast<std::uint16_t>(config.sensor_height)},
                                        {reg_zones, 0x0404},
                                        {reg_threshold, 16},
                                        {reg_model, config.model},
                                        {reg_firmware, config.firmware}};
    for (const auto& [number, value] : config.registers)
        values[number] = value;
    return values;
}

bool fixed(int number) {
    return (number >= reg_sensor_x0 && number <= reg_sensor_y1) || number == reg_model ||
           number == reg_firmware;
}

}  // namespace

CameraState::CameraState(const Config& config, std::size_t most_requested)
    : start_values_(start_values(config)),
      most_requested_(most_requested),
      mac_(mac_of(config)),
      registers_(start_values_) {}

std::uint16_t CameraState::held(int number) const {
    const auto found = registers_.find(number);
    return found == registers_.end() ? std::uint16_t{0} : found->second;
}

std::uint16_t CameraState::read(int number) const {
    const std::lock_guard lock(mutex_);
    const std::uint16_t value = held(number);
    if (number != reg_io) return value;
    const unsigned bits = value & io_mask;
    if (bits == io_low || bits == io_high) return value;
    return trigger_ ? 1 : 0;
}

std::uint16_t CameraState::write(int number, std::uint16_t value) {
    const std::lock_guard lock(mutex_);
    if (fixed(number)) return held(number);
    registers_[number] = value;
    const unsigned bits = value & io_mask;
    if (number == reg_io && bits == io_low) relay_ = 0;
    if (number == reg_io && bits == io_high) relay_ = 1;
    return value;
}

void CameraState::set_trigger(bool level) {
    const std::lock_guard lock(mutex_);
    trigger_ = level;
}

int CameraState::relay() const {
    const std::lock_guard lock(mutex_);
    return relay_;
}

void CameraState::set_silent(bool silent) {
    const std::lock_guard lock(mutex_);
    silent_ = silent;
}

bool CameraState::silent() const {
    const std::lock_guard lock(mutex_);
    return silent_;
}

void CameraState::reboot() {
    const std::lock_guard lock(mutex_);
    registers_ = start_values_;
    relay_ = -1;
}

void CameraState::set_mac_tail(const std::array<std::uint8_t, 3>& tail) {
    const std::lock_guard lock(mutex_);
    std::copy(tail.begin(), tail.end(), mac_.begin() + 3);
}

Conditions CameraState::conditions() const {
    const std::lock_guard lock(mutex_);
    const auto side = [this](int low, int high) {  // the start values may make the sensor any size
        return held(low) + std::min(std::max(held(high) - held(low), 0), static_cast<int>(greatest_sensor));
    };
    Conditions now;
    now.mac = mac_;
    now.sensor = {held(reg_sensor_x0), held(reg_sensor_y0), side(reg_sensor_x0, reg_sensor_x1),
                  side(reg_sensor_y0, reg_sensor_y1)};
    now.motion.enabled = (held(reg_motion) & 1) != 0;
    now.motion.zone_edge = (held(reg_zones) >> 8 & 15) * 32;
    now.motion.threshold = held(reg_threshold) & 255;
    return now;
}

Counters CameraState::counters() const {
    const std::lock_guard lock(mutex_);
    return counters_;
}

void CameraState::note_request(const std::string& name) {
    const std::lock_guard lock(mutex_);
    ++counters_.requests;
    if (name.empty()) return;
    requested_.push_back(name);
    if (requested_.size() > most_requested_) requested_.pop_front();
}

void CameraState::note_error() {
    const std::lock_guard lock(mutex_);
    ++counters_.errors;
}

void CameraState::note_register(bool written) {
    const std::lock_guard lock(mutex_);
    ++(written ? counters_.register_writes : counters_.register_reads);
}

void CameraState::note_acknowledgement() {
    const std::lock_guard lock(mutex_);
    ++counters_.acknowledgements;
}

void CameraState::note_block(std::size_t payload_bytes) {
    const std::lock_guard lock(mutex_);
    ++counters_.blocks;
    counters_.bytes += payload_bytes;
}

void CameraState::note_picture() {
    const std::lock_guard lock(mutex_);
    ++counters_.pictures;
}

void CameraState::note_lost_frame() {
    const std::lock_guard lock(mutex_);
    ++counters_.frames_lost;
}

void CameraState::note_fault(FaultKind kind) {
    const std::lock_guard lock(mutex_);
    ++counters_.faults.at(static_cast<std::size_t>(kind));
}

void CameraState::note_frame(bool key) {
    const std::lock_guard lock(mutex_);
    ++counters_.frames;
    if (key) ++counters_.key_frames;
}

std::vector<std::string> CameraState::requested() const {
    const std::lock_guard lock(mutex_);
    return {requested_.begin(), requested_.end()};
}

void CameraState::keep_originals() {
    const std::lock_guard lock(mutex_);
    keep_originals_ = true;
}

void CameraState::note_original(const std::vector<std::uint8_t>& original) {
    const std::lock_guard lock(mutex_);
    if (keep_originals_) originals_.push_back(original);
}

std::vector<std::vector<std::uint8_t>> CameraState::originals() const {
    const std::lock_guard lock(mutex_);
    return originals_;
}

}  // namespace plendix::camera
