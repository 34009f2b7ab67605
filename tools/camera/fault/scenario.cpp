#include "camera/fault/scenario.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "usage.h"

namespace plendix::camera {

namespace {

/// A camera's number, 1 and up; 0 when the text is none.
std::size_t camera_number(const std::string& text) {
    const bool digits =
        !text.empty() && text.size() <= 4 && text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? std::stoul(text) : 0;
}

struct Range {
    std::size_t first, last;
};

Range parse_range(const std::string& text, std::size_t cameras) {
    if (text == "*") return {1, cameras};
    const std::size_t dash = text.find('-');
    Range range{camera_number(text.substr(0, dash)), 0};
    range.last = dash == std::string::npos ? range.first : camera_number(text.substr(dash + 1));
    if (range.first == 0 || range.last < range.first)
        throw UsageError("cameras '" + text + "': expected a number, a range such as 7-9, or * for all");
    if (range.last > cameras)
        throw UsageError("camera " + std::to_string(range.last) + ": expected 1 to " +
                         std::to_string(cameras));
    return range;
}

void parse_line(const std::string& line, std::size_t cameras, std::vector<ScenarioStep>& steps) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string time, who, kind, value, more;
    if (!(words >> time)) return;
    words >> who >> kind >> value >> more;
    if (kind.empty() || !more.empty())
        throw UsageError("expected TIME CAMERAS FAULT [VALUE], as in '10s 7-9 loss 2%'");
    ScenarioStep step;
    if (!parse_time(time, step.at))
        throw UsageError("time '" + time + "': expected a number with ms, s or m, at most a day");
    step.fault = parse_fault(kind, value);
    std::istringstream list(who);
    for (std::string part; std::getline(list, part, ',');) {
        const Range range = parse_range(part, cameras);
        for (std::size_t number = range.first; number <= range.last; ++number) {
            step.camera = number - 1;
            steps.push_back(step);
        }
    }
}

}  // namespace

std::vector<ScenarioStep> parse_scenario(std::istream& text, const std::string& name, std::size_t cameras) {
    std::vector<ScenarioStep> steps;
    std::size_t number = 1;
    for (std::string line; std::getline(text, line); ++number) {
        try {
            parse_line(line, cameras, steps);
        } catch (const UsageError& error) {
            throw UsageError(name + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    std::stable_sort(steps.begin(), steps.end(),
                     [](const ScenarioStep& a, const ScenarioStep& b) { return a.at < b.at; });
    return steps;
}

std::vector<ScenarioStep> read_scenario(const std::string& file, std::size_t cameras) {
    std::ifstream text(file);
    text.peek();  // a folder opens, but does not read
    if (!text.is_open() || text.bad() || (text.fail() && !text.eof()))
        throw UsageError("scenario '" + file +
                         "' cannot be read: expected a text file of lines such as "
                         "'10s 7-9 loss 2%'");
    text.clear();
    return parse_scenario(text, file, cameras);
}

}  // namespace plendix::camera
