#include "host/diagnosis.h"

#include <cerrno>
#include <exception>
#include <map>

#include "host/plain_text.h"

namespace plendix {
namespace {

struct Advice {
    const char* words;  // of the driver
    int error;          // the number at their end; 0: any
    const char* text;
};

const Advice advices[] = {
    {"Model ", 0, "the driver takes models that end in 00 to 05; put one of these there, or take it out"},
    {"Version ", 0, "the driver needs firmware 61705 or later; update the camera"},
    {"create socket error ", EMFILE,
     "no descriptor is left below 1024, all that the driver can use; raise 'ulimit -n' to 1024 or deal the "
     "cameras to several processes"},
    {"create socket error ", ENFILE,
     "the machine has no descriptor left; end something, or raise fs.file-max"},
    {"create socket error ", 0, "the system gives no socket"},
    {"get host by name error ", 0, "this name is not known here; give the IPv4 address"},
    {"send error ", ENETUNREACH, "no route to this address; check the address and this machine's network"},
    {"send error ", EHOSTUNREACH, "no way to this address; check the address and this machine's network"},
    {"send error ", EPERM, "a firewall of this machine refuses it; allow UDP to port 69 and from any port"},
    {"send error ", 0, "the system does not send; check the address and this machine's network"},
    {"received invalid packet length ", 0, "what answers there is no camera; check the address"},
    {"invalid picture size ", 0,
     "the camera pictures nothing of this size; set another size or crop, or none"},
};

bool applies(const Advice& advice, const std::string& words) {
    const std::size_t at = words.find(advice.words);
    if (at == std::string::npos) return false;
    const std::string end = advice.words + std::to_string(advice.error);
    return advice.error == 0 || (words.size() == at + end.size() && words.compare(at, end.size(), end) == 0);
}

bool begins(const std::string& text, const char* begin) {
    return text.rfind(begin, 0) == 0;
}

std::string diagnose_if_possible(const std::string& address, std::chrono::milliseconds patience) {
    try {
        return diagnose(address, patience);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace

std::future<std::string> diagnose_aside(const std::string& address, std::chrono::milliseconds patience) {
    try {
        return std::async(std::launch::async, diagnose_if_possible, address, patience);
    } catch (const std::exception&) {
        std::promise<std::string> nothing;
        nothing.set_value({});
        return nothing.get_future();
    }
}

bool is_refusal(const std::string& driver_words) {
    return (begins(driver_words, "Model ") || begins(driver_words, "Version ")) &&
           driver_words.find(" is not supported") != std::string::npos;
}

std::string with_advice(const std::string& driver_words) {
    for (const Advice& advice : advices) {
        const bool about_refusal = begins(advice.words, "Model ") || begins(advice.words, "Version ");
        if (about_refusal && !(is_refusal(driver_words) && begins(driver_words, advice.words))) continue;
        if (applies(advice, driver_words)) return driver_words + ": " + advice.text;
    }
    return driver_words;
}

std::string title_of(const CameraState& state) {
    const std::string number = std::to_string(state.number);
    std::string title = "camera " + number;
    if (!state.name.empty() && state.name != "Camera " + number)
        title += " '" + cut(printable(state.name), 24) + '\'';
    return title + " (" + printable(state.address) + ')';
}

std::string trouble_line(const CameraState& state, const std::string& diagnosis) {
    switch (state.condition) {
        case CameraCondition::refused:
            return title_of(state) + ": " +
                   (state.refusal.empty() ? "the driver refuses it" : printable(with_advice(state.refusal)));
        case CameraCondition::silent:
            return title_of(state) + ": sends no more pictures: " +
                   (diagnosis.empty() ? "check its power and its network" : diagnosis);
        case CameraCondition::connecting:
            return title_of(state) + ": no picture came: " +
                   (diagnosis.empty() ? "is it switched on, is the address right? try 'ping " +
                                            printable(state.address) + '\''
                                      : diagnosis);
        case CameraCondition::off:
        case CameraCondition::live:
            break;
    }
    return {};
}

std::vector<std::string> shared_addresses(const std::vector<CameraSettings>& cameras) {
    std::map<std::string, std::vector<int>> numbers;
    for (const CameraSettings& camera : cameras)
        if (camera.enabled) numbers[camera.address].push_back(camera.number);
    std::vector<std::string> lines;
    for (const auto& [address, sharing] : numbers) {
        if (sharing.size() < 2) continue;
        std::string line = "cameras " + std::to_string(sharing.front());
        for (std::size_t i = 1; i < sharing.size(); ++i)
            line += (i + 1 == sharing.size() ? " and " : ", ") + std::to_string(sharing[i]);
        lines.push_back(line + " have the same address " + printable(address) +
                        ": a camera serves one at a time; correct the address, or switch all but one off");
    }
    return lines;
}

}  // namespace plendix
