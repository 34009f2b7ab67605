#include "field/replay_report.h"

#include <array>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

namespace plendix {
namespace {

struct Column {
    const char* name;
    std::size_t ReplayCounts::*value;
};

constexpr std::array<Column, 9> columns{{{"played", &ReplayCounts::played},
                                         {"left out", &ReplayCounts::skipped},
                                         {"rounds", &ReplayCounts::rounds},
                                         {"registers", &ReplayCounts::registers},
                                         {"repeated", &ReplayCounts::repeated},
                                         {"made up", &ReplayCounts::made_up},
                                         {"moved", &ReplayCounts::failures},
                                         {"unknown", &ReplayCounts::unknown},
                                         {"after end", &ReplayCounts::after_end}}};
constexpr int address_width = 15;

void print_line(std::ostream& out, const std::string& camera, const std::string& address,
                std::size_t pictures, const ReplayCounts& counts) {
    out << std::left << std::setw(address_width) << camera << "  " << std::setw(address_width) << address
        << std::right << "  " << std::setw(8) << pictures;
    for (const Column& column : columns)
        out << "  " << std::setw(static_cast<int>(std::string(column.name).size())) << counts.*column.value;
    out << '\n';
}

}  // namespace

std::string replay_line(const CapturedCamera& camera, std::uint32_t address) {
    std::ostringstream line;
    line << address_text(address) << " is camera " << address_text(camera.address) << ": " << camera.pictures
         << " pictures";
    if (camera.keys > 0) line << ", " << camera.keys << " of them key frames";
    line << ", in " << std::fixed << std::setprecision(1) << static_cast<double>(camera.duration_ns) / 1e9
         << " s, and " << camera.transfers.size() - camera.pictures << " other requests of client "
         << address_text(camera.client);
    if (camera.failed > 0) line << "; " << camera.failed << " failed";
    for (const auto& [client, count] : camera.others)
        line << "; left out: " << count << " of " << address_text(client);
    return line.str();
}

void print_replay(std::ostream& out, const std::vector<ReplayedCamera>& cameras) {
    out << std::left << std::setw(address_width) << "camera"
        << "  " << std::setw(address_width) << "played on" << std::right << "  pictures";
    for (const Column& column : columns)
        out << "  " << column.name;
    out << '\n';
    for (const ReplayedCamera& camera : cameras)
        print_line(out, address_text(camera.captured->address), address_text(camera.address),
                   camera.captured->pictures, camera.counts);
}

void print_replay_json(std::ostream& out, const std::vector<ReplayedCamera>& cameras) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ReplayedCamera& camera : cameras) {
        nlohmann::ordered_json object{{"camera", address_text(camera.captured->address)},
                                      {"played_on", address_text(camera.address)},
                                      {"client", address_text(camera.captured->client)},
                                      {"pictures", camera.captured->pictures}};
        for (const Column& column : columns) {
            std::string name = column.name;
            for (char& c : name)
                if (c == ' ') c = '_';
            object[name] = camera.counts.*column.value;
        }
        list.push_back(std::move(object));
    }
    out << nlohmann::ordered_json{{"cameras", list}}.dump(2) << '\n';
}

}  // namespace plendix
