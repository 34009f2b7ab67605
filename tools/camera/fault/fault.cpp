#include "camera/fault/fault.h"

#include <cmath>
#include <sstream>

#include "usage.h"

namespace plendix::camera {

namespace {

using std::chrono::milliseconds;

struct Kind {
    const char* name;
    milliseconds time;  // when none is given; 0: the kind takes none
    bool bare_rate;     // a time alone means every datagram rather than once
};

constexpr std::array<Kind, fault_kinds> kinds{{{"loss", milliseconds(0), false},
                                               {"ack-loss", milliseconds(0), false},
                                               {"duplicate", milliseconds(0), false},
                                               {"reorder", milliseconds(0), false},
                                               {"delay", milliseconds(200), true},
                                               {"corrupt", milliseconds(0), false},
                                               {"truncate", milliseconds(0), false},
                                               {"garbage", milliseconds(0), false},
                                               {"foreign", milliseconds(0), false},
                                               {"wrong-block", milliseconds(0), false},
                                               {"no-oack", milliseconds(0), false},
                                               {"oack-512", milliseconds(0), false},
                                               {"error", milliseconds(0), false},
                                               {"silent", milliseconds(15000), false},
                                               {"reboot", milliseconds(2000), false},
                                               {"mac-change", milliseconds(0), false}}};

std::string all_names() {
    std::string names;
    for (const Kind& kind : kinds)
        names += (names.empty() ? "" : ", ") + std::string(kind.name);
    return names;
}

/// Reads a number without sign and moves `text` behind it.
bool take_number(std::string& text, double& number) {
    std::size_t length = text.find_first_not_of("0123456789.");
    if (length == std::string::npos) length = text.size();
    std::istringstream stream(text.substr(0, length));
    stream.imbue(std::locale::classic());
    if (!(stream >> number) || stream.peek() != std::char_traits<char>::eof()) return false;
    text.erase(0, length);
    return true;
}

bool parse_rate(std::string text, double& rate) {
    double percent = 0;
    if (!take_number(text, percent) || text != "%" || percent > 100) return false;
    rate = percent / 100;
    return true;
}

[[noreturn]] void refuse(const Kind& kind, const std::string& value) {
    std::string right = "a rate from 0% to 100%";
    if (kind.time.count() > 0) right += ", a time such as 200ms, 15s or 2m, or both as in 1%/15s";
    throw UsageError(std::string(kind.name) + " '" + value + "': expected " + right +
                     ", or nothing for once");
}

}  // namespace

const char* fault_name(FaultKind kind) {
    return kinds.at(static_cast<std::size_t>(kind)).name;
}

bool parse_time(const std::string& text, milliseconds& time) {
    constexpr double day = 24 * 3600 * 1000.0;
    std::string rest = text;
    double number = 0;
    if (!take_number(rest, number)) return false;
    const double unit = rest == "ms" ? 1 : rest == "s" ? 1000 : rest == "m" ? 60'000 : 0;
    if (unit == 0 || number * unit > day) return false;
    time = milliseconds(std::llround(number * unit));
    return true;
}

Fault parse_fault(const std::string& name, const std::string& value) {
    std::size_t index = 0;
    while (index < fault_kinds && kinds.at(index).name != name)
        ++index;
    if (index == fault_kinds) throw UsageError("'" + name + "' is no fault: expected one of " + all_names());
    const Kind& kind = kinds.at(index);
    Fault fault{static_cast<FaultKind>(index), false, 0, kind.time};
    const bool takes_time = kind.time.count() > 0;
    const std::size_t slash = value.find('/');
    if (value.empty()) {
        fault.once = true;
    } else if (takes_time && slash != std::string::npos) {
        if (!parse_rate(value.substr(0, slash), fault.rate) ||
            !parse_time(value.substr(slash + 1), fault.time))
            refuse(kind, value);
    } else if (takes_time && parse_time(value, fault.time)) {
        fault.once = !kind.bare_rate;
        fault.rate = 1;
    } else if (!parse_rate(value, fault.rate)) {
        refuse(kind, value);
    }
    return fault;
}

std::vector<Fault> parse_faults(const std::string& list) {
    std::vector<Fault> faults;
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');) {
        const std::size_t equals = item.find('=');
        const bool bare = equals == std::string::npos;
        if (!bare && equals + 1 == item.size())
            throw UsageError("'" + item + "': expected FAULT=VALUE, as in loss=1%");
        faults.push_back(parse_fault(item.substr(0, equals), bare ? "" : item.substr(equals + 1)));
    }
    return faults;
}

}  // namespace plendix::camera
