#include "camera/camera_options.h"

#include <arpa/inet.h>

#include <regex>

#include "usage.h"

namespace plendix {

namespace {

constexpr int most_cameras = 255;  // as many as a driver serves
constexpr int most_burst = 256;    // blocks; more do not fit a client's socket

std::string text_of(std::uint32_t address) {
    const in_addr network{htonl(address)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &network, text, sizeof text);
}

/// The first address of the fleet, in the host's order.
std::uint32_t parse_first(const CameraOptions& options) {
    in_addr parsed{};
    if (inet_pton(AF_INET, options.address.c_str(), &parsed) != 1)
        throw UsageError("--address " + options.address + ": expected an IPv4 address such as 127.0.1.1");
    if (options.count < 1 || options.count > most_cameras)
        throw UsageError("--count " + std::to_string(options.count) + ": expected 1 to " +
                         std::to_string(most_cameras));
    const std::uint32_t first = ntohl(parsed.s_addr);
    const bool loopback = first >> 24 == 127;
    const std::uint32_t last = loopback ? 0x7FFFFFFE : 0xDFFFFFFE;  // below broadcast and multicast
    if (first > last)
        throw UsageError("--address " + options.address + ": expected an address of one machine");
    if (last - first < static_cast<std::uint32_t>(options.count - 1))
        throw UsageError("--count " + std::to_string(options.count) + ": from " + options.address +
                         " there are only " + std::to_string(last - first + 1) + " addresses to " +
                         text_of(last));
    return first;
}

void parse_sensor(const std::string& text, camera::Config& config) {
    std::smatch sides;
    if (std::regex_match(text, sides, std::regex("([0-9]{2,4})x([0-9]{2,4})"))) {
        config.sensor_width = static_cast<unsigned>(std::stoul(sides[1]));
        config.sensor_height = static_cast<unsigned>(std::stoul(sides[2]));
        const auto fits = [](unsigned side) { return side >= 16 && side <= 8192; };
        if (fits(config.sensor_width) && fits(config.sensor_height)) return;
    }
    throw UsageError("--sensor " + text +
                     ": expected WIDTHxHEIGHT with 16 to 8192 pixels, such as 1600x1200");
}

std::uint16_t parse_word(const char* option, int value) {
    if (value >= 0 && value <= 65535) return static_cast<std::uint16_t>(value);
    throw UsageError(std::string(option) + ' ' + std::to_string(value) + ": expected 0 to 65535");
}

std::map<int, std::uint16_t> parse_registers(const std::vector<std::string>& texts) {
    std::map<int, std::uint16_t> registers;
    static const std::regex form("([0-9]{1,5})=([0-9]{1,5})");
    for (const std::string& text : texts) {
        std::smatch parts;
        const bool fits = std::regex_match(text, parts, form) && std::stoi(parts[1]) <= 65535 &&
                          std::stoi(parts[2]) <= 65535;
        if (!fits)
            throw UsageError("--registers " + text +
                             ": expected NUMBER=VALUE with 0 to 65535 each, such as 2=99");
        registers[std::stoi(parts[1])] = static_cast<std::uint16_t>(std::stoi(parts[2]));
    }
    return registers;
}

/// The MAC address `index` places behind the one typed; the last three bytes count.
std::array<std::uint8_t, 6> parse_mac(const std::string& text, std::size_t index) {
    static const std::regex form("([0-9A-Fa-f]{2}[-:]){5}[0-9A-Fa-f]{2}");
    if (!std::regex_match(text, form))
        throw UsageError("--mac " + text + ": expected six pairs of digits, such as 02-50-4C-00-01-01");
    std::array<std::uint8_t, 6> mac{};
    for (std::size_t i = 0; i < mac.size(); ++i)
        mac[i] = static_cast<std::uint8_t>(std::stoul(text.substr(3 * i, 2), nullptr, 16));
    const std::size_t tail = (std::size_t{mac[3]} << 16 | std::size_t{mac[4]} << 8 | mac[5]) + index;
    for (std::size_t i = 0; i < 3; ++i)
        mac[3 + i] = static_cast<std::uint8_t>(tail >> (8 * (2 - i)));
    return mac;
}

template <class Value>
const Value& dealt(const std::vector<Value>& values, std::size_t index) {
    return values[index % values.size()];
}

std::chrono::milliseconds parse_period(const std::string& text) {
    std::chrono::milliseconds period{0};
    if (text.empty()) return period;
    if (camera::parse_time(text, period) && period.count() > 0) return period;
    throw UsageError("--trigger " + text + ": expected a time with ms, s or m, such as 5s");
}

void require_positive(const char* option, double value) {
    if (value >= 0) return;
    throw UsageError(std::string(option) + ' ' + std::to_string(value) + ": expected 0 (no limit) or more");
}

}  // namespace

std::vector<camera::Config> make_configs(const CameraOptions& options) {
    const std::uint32_t first = parse_first(options);
    const auto registers = parse_registers(options.registers);
    std::vector<camera::Config> configs(static_cast<std::size_t>(options.count));
    for (std::size_t i = 0; i < configs.size(); ++i) {
        configs[i].address = text_of(first + static_cast<std::uint32_t>(i));
        configs[i].number = static_cast<unsigned>(i) + 1;
        configs[i].model = parse_word("--model", dealt(options.models, i));
        configs[i].firmware = parse_word("--firmware", dealt(options.firmwares, i));
        parse_sensor(dealt(options.sensors, i), configs[i]);
        if (!options.mac.empty()) configs[i].mac = parse_mac(options.mac, i);
        configs[i].registers = registers;
    }
    return configs;
}

camera::Behaviour make_behaviour(const CameraOptions& options) {
    camera::Behaviour behaviour;
    require_positive("--rate", options.rate_mbit);
    require_positive("--max-fps", options.max_fps);
    if (options.burst < 1 || options.burst > most_burst)
        throw UsageError("--burst " + std::to_string(options.burst) + ": expected 1 to " +
                         std::to_string(most_burst));
    behaviour.scene = options.scene;
    behaviour.rate_mbit = options.rate_mbit;
    behaviour.burst = static_cast<unsigned>(options.burst);
    behaviour.max_fps = options.max_fps;
    behaviour.trigger_period = parse_period(options.trigger);
    behaviour.seed = options.seed;
    try {
        behaviour.faults = camera::parse_faults(options.faults);
    } catch (const UsageError& error) {
        throw UsageError(std::string("--faults: ") + error.what());
    }
    if (!options.scenario.empty())
        behaviour.scenario = camera::read_scenario(options.scenario, static_cast<std::size_t>(options.count));
    return behaviour;
}

}  // namespace plendix
