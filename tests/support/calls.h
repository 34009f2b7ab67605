// The calls of a host, on a plug-in object, and the documents that it passes.
#pragma once

#include <chrono>
#include <cstdlib>
#include <string>

#include "plugin/plugin.h"

namespace plendix {

inline void post(CPlugin& plugin, const std::string& text) {
    _IOCTLParmsIn in = {0, 0, 2, {}, static_cast<std::uint32_t>(text.size()), text.data()};
    _IOCTLParmsOut out = {};
    plugin.IOCTL(&in, &out);
}

inline void open(CPlugin& plugin) {
    _OpenParmsOut out = {};
    plugin.Open(nullptr, &out);
}

/// How long it took.
inline std::chrono::milliseconds close(CPlugin& plugin) {
    const auto start = std::chrono::steady_clock::now();
    _CloseParmsOut out = {};
    plugin.Close(nullptr, &out);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

/// Whether PLENDIX_TORTURE asks for all cases of the long tests.
inline bool full_torture() {
    const char* const wish = std::getenv("PLENDIX_TORTURE");
    return wish != nullptr && wish == std::string("full");
}

/// A configuration document with these Device elements.
inline std::string change(const std::string& devices) {
    return "<Velm Delta='1'><Devices ID='2162688'>" + devices + "</Devices></Velm>";
}

/// An enabled camera whose Channel element has these attributes.
inline std::string device(int number, const std::string& address, const std::string& channel) {
    return "<Device Number='" + std::to_string(number) + "' Enabled='1' ipAddress='" + address +
           "'><Codec><Encoder><Channel Number='0' " + channel + "/></Encoder></Codec></Device>";
}

}  // namespace plendix
