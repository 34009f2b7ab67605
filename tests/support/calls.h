// The calls of a host, through the exports, and the documents that it passes.
#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "plugin/host_records.h"

extern "C" {
std::remove_pointer_t<LoadFunction> Load;
std::remove_pointer_t<UnloadFunction> Unload;
std::remove_pointer_t<OpenFunction> Open;
std::remove_pointer_t<CloseFunction> Close;
std::remove_pointer_t<ReadFunction> Read;
std::remove_pointer_t<WriteFunction> Write;
std::remove_pointer_t<SeekFunction> Seek;
std::remove_pointer_t<IOCTLFunction> IOCTL;
}

namespace plendix {

inline void load(EventCallbackFunction callback) {
    _LoadParmsIn in = {0, 0, 0, callback};
    _LoadParmsOut out = {};
    ::Load(&in, &out);
}

inline void unload() {
    ::Unload(nullptr, nullptr);
}

inline void post(const std::string& text) {
    _IOCTLParmsIn in = {0, 0, 2, {}, static_cast<std::uint32_t>(text.size()), text.data()};
    _IOCTLParmsOut out = {};
    ::IOCTL(&in, &out);
}

inline void open() {
    _OpenParmsOut out = {};
    ::Open(nullptr, &out);
}

/// How long it took.
inline std::chrono::milliseconds close() {
    const auto start = std::chrono::steady_clock::now();
    _CloseParmsOut out = {};
    ::Close(nullptr, &out);
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
