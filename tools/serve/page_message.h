// Messages of the binary streams that the page reads: two lengths of four bytes, big-endian, then JSON
// text, then data.
#pragma once

#include <nlohmann/json.hpp>

#include "host/frame.h"

namespace plendix {

/// All but the data, of which there are so many bytes.
Bytes message_head(const nlohmann::ordered_json& json, std::size_t data_bytes);

/// Rows of zones from the top; bit 7 - c of a row is column c.
nlohmann::ordered_json zones_json(const MotionZones& zones);

/// Text for anybody: bytes that are no UTF-8 become U+FFFD.
std::string json_text(const nlohmann::ordered_json& json);

}  // namespace plendix
