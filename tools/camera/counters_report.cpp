#include "camera/counters_report.h"

#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

namespace plendix {

namespace {

using camera::Counters;

struct Column {
    const char* name;
    std::uint64_t Counters::*value;
};

constexpr std::array<Column, 11> columns{{{"requests", &Counters::requests},
                                          {"register reads", &Counters::register_reads},
                                          {"register writes", &Counters::register_writes},
                                          {"pictures asked", &Counters::pictures},
                                          {"frames", &Counters::frames},
                                          {"key frames", &Counters::key_frames},
                                          {"lost by fault", &Counters::frames_lost},
                                          {"blocks", &Counters::blocks},
                                          {"bytes", &Counters::bytes},
                                          {"acknowledgements", &Counters::acknowledgements},
                                          {"errors", &Counters::errors}}};

Counters total(const std::vector<CameraCounters>& cameras) {
    Counters sum;
    for (const auto& camera : cameras) {
        for (const Column& column : columns)
            sum.*column.value += camera.counters.*column.value;
        for (std::size_t i = 0; i < sum.faults.size(); ++i)
            sum.faults[i] += camera.counters.faults[i];
    }
    return sum;
}

void print_line(std::ostream& out, const std::string& name, const Counters& counters) {
    out << std::left << std::setw(15) << name << std::right;
    for (const Column& column : columns) {
        const int width =
            column.value == &Counters::bytes ? 14 : static_cast<int>(std::string(column.name).size());
        out << "  " << std::setw(width) << counters.*column.value;
    }
    out << '\n';
}

nlohmann::ordered_json json_of(const Counters& counters) {
    nlohmann::ordered_json object;
    for (const Column& column : columns) {
        std::string name = column.name;
        for (char& c : name)
            if (c == ' ') c = '_';
        object[name] = counters.*column.value;
    }
    object["faults"] = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < counters.faults.size(); ++i)
        object["faults"][fault_name(static_cast<camera::FaultKind>(i))] = counters.faults[i];
    return object;
}

}  // namespace

void print_counters(std::ostream& out, const std::vector<CameraCounters>& cameras) {
    out << std::left << std::setw(15) << "camera" << std::right;
    for (const Column& column : columns)
        out << "  " << std::setw(column.value == &Counters::bytes ? 14 : 0) << column.name;
    out << '\n';
    for (const auto& camera : cameras)
        print_line(out, camera.address, camera.counters);
    const Counters sum = total(cameras);
    if (cameras.size() > 1) print_line(out, "all", sum);
    for (std::size_t i = 0; i < sum.faults.size(); ++i)
        if (sum.faults[i] > 0)
            out << "fault " << std::left << std::setw(12) << fault_name(static_cast<camera::FaultKind>(i))
                << std::right << std::setw(10) << sum.faults[i] << '\n';
    out << std::flush;
}

void print_counters_json(std::ostream& out, const std::vector<CameraCounters>& cameras) {
    nlohmann::ordered_json document;
    document["cameras"] = nlohmann::ordered_json::array();
    for (const auto& camera : cameras) {
        nlohmann::ordered_json object{{"address", camera.address}};
        object.update(json_of(camera.counters));
        document["cameras"].push_back(object);
    }
    document["total"] = json_of(total(cameras));
    out << document.dump(2) << std::endl;
}

}  // namespace plendix
