#include "probe/report.h"

#include <algorithm>
#include <array>
#include <map>

#include "host/plain_text.h"
#include "link/words.h"
#include "probe/addresses.h"
#include "probe/finding_words.h"

namespace plendix {
namespace {

constexpr std::size_t widest_line = 110;
constexpr const char* unknown = "-";

struct Column {
    const char* name;
    bool right;  // aligned
};

constexpr std::array<Column, 12> columns{{{"address", false},
                                          {"model", true},
                                          {"firmware", true},
                                          {"mac", false},
                                          {"sensor", false},
                                          {"largest", false},
                                          {"fps", true},
                                          {"codecs", false},
                                          {"zones", false},
                                          {"trigger", false},
                                          {"ms", true},
                                          {"loss", true}}};
using Line = std::array<std::string, columns.size()>;

std::string number(std::optional<std::uint16_t> value) {
    return value ? std::to_string(*value) : unknown;
}

std::string size_text(PictureSize size) {
    return size.empty() ? unknown : std::to_string(size.width) + 'x' + std::to_string(size.height);
}

std::string milliseconds_text(std::optional<double> value) {
    if (!value) return unknown;
    char text[32];
    std::snprintf(text, sizeof text, *value < 10 ? "%.2f" : "%.0f", *value);
    return text;
}

std::string codecs_text(const Finding& finding) {
    std::string text = finding.jpeg.value_or(false) ? "jpeg" : "";
    if (finding.h264.value_or(false)) text += text.empty() ? "h264" : " h264";
    return text.empty() ? unknown : text;
}

std::string loss_text(const ReadCount& reads) {
    if (reads.made == 0) return unknown;
    const int tenths = (1000 * reads.lost + reads.made / 2) / reads.made;
    const std::string whole = std::to_string(tenths / 10);
    return (tenths % 10 == 0 ? whole : whole + '.' + std::to_string(tenths % 10)) + " %";
}

std::string trigger_text(std::optional<bool> level) {
    return !level ? "unknown" : *level ? "high" : "low";
}

Line camera_line(const std::string& address, const Finding& finding) {
    const auto sensor = finding.sensor();
    const ZoneGrid zones = motion_zones(sensor.value_or(PictureSize{}));
    return {address,
            number(finding.value(register_model)),
            number(finding.value(register_firmware)),
            finding.mac ? mac_text(*finding.mac) : unknown,
            size_text(sensor.value_or(PictureSize{})),
            size_text(largest_picture(sensor.value_or(PictureSize{}))),
            sensor ? std::to_string(highest_rate(*sensor)) : unknown,
            codecs_text(finding),
            sensor ? std::to_string(zones.columns) + 'x' + std::to_string(zones.rows) : unknown,
            trigger_text(finding.trigger),
            milliseconds_text(finding.round_trip_ms),
            loss_text(finding.reads)};
}

void print_cameras(std::ostream& out, std::vector<Line> lines) {
    Line head;
    std::transform(columns.begin(), columns.end(), head.begin(),
                   [](const Column& column) { return column.name; });
    lines.insert(lines.begin(), head);
    for (const Line& line : lines) {
        std::string text;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            std::size_t width = 0;
            for (const Line& other : lines)
                width = std::max(width, other[i].size());
            const std::string space(width - line[i].size(), ' ');
            text += (i == 0 ? "" : "  ") + (columns[i].right ? space + line[i] : line[i] + space);
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out << text << '\n';
    }
}

class Table {
public:
    explicit Table(const ProbeResult& result) : result_(result) {
        for (std::size_t i = 0; i < result.findings.size(); ++i)
            add(result.addresses[i], result.findings[i]);
    }

    void print(std::ostream& out) const {
        if (!cameras_.empty()) print_cameras(out, cameras_);
        print_others(out);
        print_counts(out);
    }

private:
    void add(std::uint32_t address, const Finding& finding) {
        const std::string name = address_text(address);
        if (finding.what == What::camera) {
            cameras_.push_back(camera_line(name, finding));
        } else if (result_.named.count(address) > 0 ||
                   !(is_nobody(finding.what) || finding.what == What::unasked)) {
            others_.emplace_back(name, finding_words(finding));
        } else {
            ++counts_[finding_words(finding)];
        }
        for (const std::string& remark : finding.remarks)
            others_.emplace_back(name, remark);
    }

    void print_others(std::ostream& out) const {
        std::size_t width = 0;
        for (const auto& [address, words] : others_)
            width = std::max(width, address.size() + 2);
        for (auto [line, words] : others_) {
            line.resize(width, ' ');
            line += words;
            for (const std::string& part : wrapped(line, widest_line, width))
                out << part << '\n';
        }
    }

    void print_counts(std::ostream& out) const {
        for (const auto& [words, count] : counts_)
            out << count << (count == 1 ? " address: " : " addresses: ") << words << '\n';
    }

    const ProbeResult& result_;
    std::vector<Line> cameras_;
    std::vector<std::pair<std::string, std::string>> others_;
    std::map<std::string, int> counts_;
};

}  // namespace

void print_findings(std::ostream& out, const ProbeResult& result) {
    Table(result).print(out);
}

}  // namespace plendix
