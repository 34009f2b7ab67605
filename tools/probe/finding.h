// What was found at one address.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "link/driver_rules.h"
#include "link/exchange.h"

namespace plendix {

enum class What {
    unasked,      // the probe ended before
    silent,       // nobody
    closed,       // a machine with nothing on UDP port 69
    unreachable,  // a router, or this machine, says so
    no_route,
    failed,    // the system does not let us ask, see `error`
    foreign,   // no camera, see `answer`
    stops,     // acknowledges options and sends nothing
    starting,  // a camera that does not know its model or its firmware yet
    refused,   // a camera whose model or firmware the driver refuses
    camera
};

/// Reads of one register behind each other; what was not answered in time is lost.
struct ReadCount {
    int made = 0, lost = 0;
};

struct Finding {
    What what = What::unasked;
    int error = 0;                                   // the system's number
    link::OddAnswer answer;                          // of what is no camera
    bool sends_file = false;                         // of any size, in place of a register's two bytes
    std::map<int, std::uint16_t> registers;          // that were answered
    std::optional<std::array<std::uint8_t, 6>> mac;  // from a picture
    std::optional<bool> jpeg, h264;                  // whether it sends them; unknown where it did not say
    std::optional<bool> trigger;                     // level of the input
    std::optional<double> round_trip_ms;             // median, from a request to the first packet back
    std::optional<double> read_ms;                   // median of a whole register read
    ReadCount reads;
    std::vector<std::string> remarks;  // fit for a terminal

    std::optional<std::uint16_t> value(int number) const {
        const auto found = registers.find(number);
        return found == registers.end() ? std::nullopt : std::optional(found->second);
    }
    /// Nothing where it is not known, or no rectangle.
    std::optional<PictureSize> sensor() const;
};

}  // namespace plendix
