// What a camera holds between requests: registers, the trigger input, the relay and the counters.
// Every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "camera/config.h"
#include "camera/picture/picture_source.h"

namespace plendix::camera {

enum Register : int {
    reg_brightness = 2,
    reg_saturation = 15,
    reg_sharpness = 16,
    reg_io = 25,
    reg_sensor_x0 = 70,
    reg_sensor_y0 = 71,
    reg_sensor_x1 = 72,
    reg_sensor_y1 = 73,
    reg_setup = 79,
    reg_motion = 109,     // bit 0: detection enabled
    reg_zones = 110,      // bits 8 to 11: zone edge in units of 32 sensor pixels
    reg_threshold = 111,  // bits 0 to 7: motion threshold
    reg_model = 122,
    reg_firmware = 123,
};

class CameraState {
public:
    /// Keeps the last `most_requested` names of files asked for.
    CameraState(const Config& config, std::size_t most_requested);

    /// As a client's request. A write returns what the register then holds: identification and
    /// sensor area do not change. Registers that mean nothing here keep what is written to them.
    std::uint16_t read(int number) const;
    std::uint16_t write(int number, std::uint16_t value);

    void set_trigger(bool level);
    int relay() const;
    void set_silent(bool silent);
    bool silent() const;
    /// Back to the start values, as after a power failure; the relay's level is unknown again.
    void reboot();
    void set_mac_tail(const std::array<std::uint8_t, 3>& tail);

    /// The sensor area and motion settings as the registers have them now.
    Conditions conditions() const;

    Counters counters() const;
    void note_request(const std::string& name);
    void note_error();
    void note_register(bool written);
    void note_acknowledgement();
    void note_block(std::size_t payload_bytes);
    void note_picture();
    void note_frame(bool key);
    void note_lost_frame();
    void note_fault(FaultKind kind);
    std::vector<std::string> requested() const;

    void keep_originals();
    void note_original(const std::vector<std::uint8_t>& original);
    std::vector<std::vector<std::uint8_t>> originals() const;

private:
    std::uint16_t held(int number) const;  // requires the lock

    const std::map<int, std::uint16_t> start_values_;
    const std::size_t most_requested_;
    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::array<std::uint8_t, 6> mac_;
    std::map<int, std::uint16_t> registers_;
    bool trigger_ = false, silent_ = false, keep_originals_ = false;
    int relay_ = -1;
    Counters counters_;
    std::deque<std::string> requested_;
    std::vector<std::vector<std::uint8_t>> originals_;
};

}  // namespace plendix::camera
