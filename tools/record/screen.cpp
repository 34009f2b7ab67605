#include "record/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "host/clocks.h"
#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

constexpr std::chrono::milliseconds drawing_period{500};
constexpr std::chrono::seconds first_line{10};
constexpr std::chrono::minutes line_period{1};
constexpr std::chrono::seconds rate_window{10};
constexpr std::size_t most_block_lines = 12;
constexpr std::size_t longest_log_line = 400;
constexpr std::size_t time_columns = 10;  // of a line, before its words

std::size_t clamped(int value, std::size_t least) {
    return std::max(static_cast<std::size_t>(std::max(value, 0)), least);
}

}  // namespace

ScreenOptions screen_options(int descriptor) {
    ScreenOptions options;
    options.terminal = isatty(descriptor) == 1;
    winsize size{};
    if (!options.terminal || ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return options;
    options.width = size.ws_col;
    options.height = size.ws_row;
    return options;
}

Screen::Screen(std::ostream& out, const ScreenOptions& options)
    : out_(out),
      options_(options),
      hold_(options.all_events ? std::chrono::milliseconds(0) : options.motion_hold) {}

void Screen::event(const Event& event, Time now) {
    last_ = now;
    for (const Event& held : hold_.take(event, now))
        take(held, now);
}

void Screen::take(const Event& event, Time now) {
    if (options_.all_events) return show_event(event, now);
    for (const Event& told : digest_.take(event, now))
        show_event(told, now);
}

void Screen::show_event(Event event, Time now) {
    const Weight weight = weight_here(event);
    if (weight == Weight::detail && !options_.verbose && !options_.all_events) return;
    if (weight < Weight::trouble && options_.quiet) return;
    if (options_.all_events) return add_lines({{weight, human_line(event), event.time_ms}});
    without_subject(event);
    lines_.add(event, weight, now);
}

/// What matters depends on what was told before: the end of a trouble matters as much as the trouble,
/// and the driver repeats configurations for changes that do not show in their lines.
Weight Screen::weight_here(const Event& event) {
    const Weight weight = weight_of(event);
    if (event.kind == EventKind::state) {
        if (weight == Weight::trouble) troubled_.insert(event.camera);
        if (weight != Weight::trouble && troubled_.erase(event.camera) > 0) return Weight::trouble;
    }
    if (event.kind == EventKind::config) {
        const std::string words = event_words(event);
        if (std::string& told = settings_[event.camera]; told != words) {
            told = words;
        } else {
            return Weight::detail;
        }
    }
    return weight;
}

/// The driver's lines begin with the camera's name or address; ours with its number.
void Screen::without_subject(Event& event) const {
    const auto known = names_.find(event.camera);
    if (event.kind != EventKind::log || known == names_.end()) return;
    std::string text = event.values.value("text", "");
    for (const std::string& subject : {known->second.first, known->second.second}) {
        if (subject.empty() || text.rfind(subject + ' ', 0) != 0) continue;
        text.erase(0, subject.size() + 1);
        if (text.rfind("- ", 0) == 0) text.erase(0, 2);
        break;
    }
    event.values["text"] = text;
}

void Screen::add_lines(const std::vector<EventLine>& lines) {
    for (const auto& [weight, text, time_ms] : lines) {
        if (!options_.terminal) {
            waiting_ += cut(text, longest_log_line) + '\n';
            continue;
        }
        const std::size_t columns = clamped(options_.width - 1, 20);
        // Nobody can do what a cut line says.
        const auto rows = weight == Weight::trouble ? wrapped(text, columns, time_columns)
                                                    : std::vector<std::string>{cut(text, columns)};
        for (const std::string& row : rows)
            waiting_ += row + '\n';
    }
}

void Screen::update(const std::vector<CameraState>& cameras, const RecorderNumbers& numbers, Time now) {
    last_ = now;
    look(cameras, numbers, now);
    for (const Event& held : hold_.due(now))
        take(held, now);
    for (const Event& told : digest_.due(now))
        show_event(told, now);
    if (now < next_drawing_) return;
    next_drawing_ = now + drawing_period;
    add_lines(lines_.due(now));
    write_line_of_minute(now);
    draw();
}

void Screen::look(const std::vector<CameraState>& cameras, const RecorderNumbers& numbers, Time now) {
    if (!began_) {
        status_.began = now;
        next_line_ = now + first_line;
        began_ = true;
    }
    names_.clear();
    status_.moving = hold_.moving();
    status_.live = status_.wanted = 0;
    for (const CameraState& state : cameras) {
        names_[state.number] = {state.name, state.address};
        if (state.condition == CameraCondition::live) {
            ++status_.live;
        } else {
            status_.moving.erase(state.number);  // nobody knows
        }
        if (state.condition != CameraCondition::off) ++status_.wanted;
    }
    meter_.add(cameras, numbers.written, now);
    status_.troubles = watch_.look(cameras, now);
    status_.numbers = numbers;
    status_.now = now;
}

void Screen::write_line_of_minute(Time now) {
    if (options_.terminal || now < next_line_) return;
    next_line_ = now + line_period;
    status_.rates = meter_.over(line_period);
    std::string wrong = status_.numbers.paused;
    for (const Trouble& trouble : status_.troubles)
        wrong += ' ' + std::to_string(static_cast<int>(trouble.kind)) + '/' + std::to_string(trouble.camera);
    const bool told = wrong == line_told_;
    line_told_ = wrong;
    if (options_.quiet && told) return;
    waiting_ += cut(status_line(status_), longest_log_line) + '\n';
}

void Screen::draw() {
    std::vector<std::string> next;
    if (options_.terminal) {
        status_.rates = meter_.over(rate_window);
        status_.rates.written = meter_.over(line_period).written;  // what is left by it would jump
        const bool calm = status_.troubles.empty() && status_.numbers.paused.empty();
        if (!options_.quiet || !calm) next = block();
    }
    if (waiting_.empty() && next == drawn_) return;
    std::string text = erased() + waiting_;
    waiting_.clear();
    for (const std::string& line : next)
        text += line + '\n';
    drawn_ = std::move(next);
    print(text);
}

std::vector<std::string> Screen::block() const {
    // The last column stays free: some terminals go to the next line behind it.
    const std::size_t columns = clamped(options_.width - 1, 20);
    return status_block(status_, columns, std::min(most_block_lines, clamped(options_.height - 2, 2)));
}

/// The cursor stands below the block; a terminal that became narrower has broken its lines. Row by row,
/// because some terminals keep a screen that is cleared as a whole in what one can scroll back to.
std::string Screen::erased() {
    if (drawn_.empty()) return {};
    const std::size_t width = clamped(options_.width, 1);
    std::size_t rows = 0;
    for (const std::string& line : drawn_)
        rows += std::max<std::size_t>((columns_of(line) + width - 1) / width, 1);
    drawn_.clear();
    std::string text = "\r\x1B[2K";
    for (; rows > 0; --rows)
        text += "\x1B[1A\x1B[2K";
    return text;
}

void Screen::say(const std::string& line) {
    const std::vector<std::string> block = drawn_;
    std::string text = erased() + waiting_;
    waiting_.clear();
    add_lines({{Weight::trouble, clock_words(utc_ms()) + "  " + printable(line), 0}});
    text += waiting_;
    waiting_.clear();
    for (const std::string& row : block)
        text += row + '\n';
    drawn_ = block;
    print(text);
}

void Screen::resize(int width, int height) {
    options_.width = width;
    options_.height = height;
}

void Screen::finish() {
    for (const Event& held : hold_.flush())
        take(held, last_);
    for (const Event& told : digest_.flush())
        show_event(told, last_);
    add_lines(lines_.flush(last_));
    print(erased() + waiting_);
    waiting_.clear();
}

void Screen::print(const std::string& text) {
    if (!text.empty()) out_ << text << std::flush;
}

}  // namespace plendix
