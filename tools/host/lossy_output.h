// Words for people that wait for nobody: a recorder goes on when its standard error is a pipe that
// is not read any more, or a terminal that somebody stopped with Ctrl-S.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string_view>

namespace plendix {

/// While it lives, what goes into the stream goes to the descriptor, as far as that has room within a
/// tenth of a second; the rest is dropped, and how much of it is told when there is room again. Files
/// always have room. One thread prints.
class LossyOutput : private std::streambuf {
public:
    LossyOutput(std::ostream& stream, int descriptor);
    ~LossyOutput() override;
    LossyOutput(const LossyOutput&) = delete;
    LossyOutput& operator=(const LossyOutput&) = delete;

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;

    void print(std::string_view text);
    void drop(std::string_view text);
    bool tell_of_loss();
    std::size_t write(std::string_view text);
    bool has_room(std::chrono::milliseconds patience) const;

    std::ostream& stream_;
    std::streambuf* before_;
    int descriptor_;
    int own_ = -1;  // the same terminal or pipe, opened anew: writing there never waits
    std::uint64_t dropped_lines_ = 0;
    std::uint64_t dropped_bytes_ = 0;
    bool line_begun_ = false;  // what was written last is no whole line
};

}  // namespace plendix
