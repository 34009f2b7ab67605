#include "serve/page_message.h"

namespace plendix {
namespace {

void put_length(Bytes& head, std::size_t length) {
    for (const unsigned shift : {24U, 16U, 8U, 0U})
        head.push_back(static_cast<std::uint8_t>(length >> shift & 0xFFU));
}

}  // namespace

std::string json_text(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

Bytes message_head(const nlohmann::ordered_json& json, std::size_t data_bytes) {
    const std::string text = json_text(json);
    Bytes head;
    head.reserve(text.size() + 8);
    put_length(head, text.size());
    put_length(head, data_bytes);
    head.insert(head.end(), text.begin(), text.end());
    return head;
}

nlohmann::ordered_json zones_json(const MotionZones& zones) {
    auto rows = nlohmann::ordered_json::array();
    for (const std::uint8_t row : zones)
        rows.push_back(static_cast<int>(row));
    return rows;
}

}  // namespace plendix
