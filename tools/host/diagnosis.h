// Why a camera does not deliver, and what to do next: one line each, fit for a terminal.
#pragma once

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "host/camera_settings.h"
#include "host/camera_state.h"

namespace plendix {

/// Asks the address for its model as the driver would, from a socket of its own, and tells what came
/// of it. Blocks, but never longer than `patience`; any thread. A camera gives up the transfer that it
/// has under way for this one: only for cameras that deliver nothing.
std::string diagnose(const std::string& address, std::chrono::milliseconds patience);

/// The same on a thread of its own. No word where the machine has none, or no memory, left for it: nothing
/// is thrown, here or by the answer.
std::future<std::string> diagnose_aside(const std::string& address, std::chrono::milliseconds patience);

/// "camera 3 'Gate' (10.0.0.9)"
std::string title_of(const CameraState& state);

/// What is wrong with a camera and what to do, after its title; empty for one that is live or switched
/// off. `diagnosis` is what `diagnose` said of its address, if it was asked.
std::string trouble_line(const CameraState& state, const std::string& diagnosis = {});

/// The driver's words, and behind them what to do where that is known.
std::string with_advice(const std::string& driver_words);

/// "Model 150 is not supported", "Version 61704 is not supported"
bool is_refusal(const std::string& driver_words);

/// Tells which cameras have one address, a line each: no camera serves two positions.
std::vector<std::string> shared_addresses(const std::vector<CameraSettings>& cameras);

}  // namespace plendix
