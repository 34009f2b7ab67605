#include <map>
#include <nlohmann/json.hpp>

#include "host/answer_words.h"
#include "link/words.h"
#include "probe/addresses.h"
#include "probe/finding_words.h"
#include "probe/report.h"
#include "usage.h"

namespace plendix {
namespace {

using Json = nlohmann::ordered_json;

template <class Value>
Json known(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json size_json(PictureSize size) {
    if (size.empty()) return {};
    return {{"width", size.width}, {"height", size.height}};
}

/// What a codec gives at most; null where the camera has not got it, or the sensor is not known.
Json codec_json(const std::optional<bool>& has, std::optional<PictureSize> sensor) {
    if (!has.value_or(false) || !sensor) return {};
    Json most = size_json(largest_picture(*sensor));
    if (!most.is_null()) most["frames_per_second"] = highest_rate(*sensor);
    return most;
}

Json answer_json(const Finding& finding) {
    if (finding.what != What::foreign) return {};
    return {{"words", answer_words(finding.answer)},
            {"size_bytes", finding.answer.size},
            {"first_bytes_hex", hex_text({finding.answer.first.data(), finding.answer.first.size()}, "")}};
}

Json zones_json(std::optional<PictureSize> sensor) {
    if (!sensor) return {};
    const ZoneGrid zones = motion_zones(*sensor);
    return {{"columns", zones.columns}, {"rows", zones.rows}, {"edge_pixels", zones.edge}};
}

Json registers_json(const Finding& finding) {
    Json registers = Json::object();
    for (const auto& [number, value] : finding.registers)
        registers[std::to_string(number)] = value;
    return registers;
}

Json reads_json(const ReadCount& reads) {
    if (reads.made == 0) return {};
    return {{"made", reads.made},
            {"lost", reads.lost},
            {"loss_percent", 100.0 * reads.lost / static_cast<double>(reads.made)}};
}

Json finding_json(std::uint32_t address, const Finding& finding) {
    const auto sensor = finding.sensor();
    const auto model = finding.value(register_model);
    const bool knows_codec = finding.what == What::camera && model.has_value();
    Json object{{"address", address_text(address)},
                {"found", what_name(finding.what)},
                {"words", finding_words(finding)},
                {"system_error", finding.error == 0 ? Json() : Json(error_text(finding.error))},
                {"answer", answer_json(finding)},
                {"model", known(model)},
                {"firmware", known(finding.value(register_firmware))},
                {"mac", finding.mac ? Json(mac_text(*finding.mac)) : Json()}};
    object["sensor_pixels"] = size_json(sensor.value_or(PictureSize{}));
    object["has_jpeg"] = known(finding.jpeg);
    object["has_h264"] = known(finding.h264);
    object["own_codec"] = knows_codec ? Json(own_codec_is_h264(*model) ? "h264" : "jpeg") : Json();
    object["jpeg_most"] = codec_json(finding.jpeg, sensor);
    object["h264_most"] = codec_json(finding.h264, sensor);
    object["motion_zones"] = zones_json(sensor);
    object["trigger_level"] = finding.trigger ? Json(*finding.trigger ? 1 : 0) : Json();
    object["round_trip_ms"] = known(finding.round_trip_ms);
    object["register_read_ms"] = known(finding.read_ms);
    object["register_reads"] = reads_json(finding.reads);
    object["registers"] = registers_json(finding);
    object["remarks"] = finding.remarks;
    return object;
}

}  // namespace

void print_findings_json(std::ostream& out, const ProbeResult& result) {
    std::map<std::string, int> counts;
    Json listed = Json::array();
    for (std::size_t i = 0; i < result.findings.size(); ++i) {
        const Finding& finding = result.findings[i];
        ++counts[what_name(finding.what)];
        const bool nobody = is_nobody(finding.what) || finding.what == What::unasked;
        if (!nobody || result.named.count(result.addresses[i]) > 0)
            listed.push_back(finding_json(result.addresses[i], finding));
    }
    const Json document{{"asked", result.addresses.size()},
                        {"duration_ms", result.duration.count()},
                        {"counts", counts},
                        {"addresses", listed}};
    out << document.dump(2) << std::endl;
}

}  // namespace plendix
