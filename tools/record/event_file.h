// events.jsonl: one JSON object a line, for programs.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>

#include "host/descriptor.h"
#include "host/event.h"

namespace plendix {

/// Lines are added to the file and are on their way to the disk when `write` returns. When the disk
/// refuses they wait, up to 1 MiB, and the file keeps whole lines only. When a day (UTC) is over its
/// file becomes events-YYYY-MM-DD.jsonl. Only `check` makes files: the folder may be the bare place of
/// a disk that is gone. One thread.
class EventFile {
public:
    explicit EventFile(std::filesystem::path folder);
    ~EventFile();
    EventFile(const EventFile&) = delete;
    EventFile& operator=(const EventFile&) = delete;

    void write(const Event& event);
    /// First of all, and once in a while when the folder is there: tries again to write what waits, and
    /// begins a new day or a file that is gone.
    void check(std::int64_t now_ms);
    /// The wall clock was set: its file goes on, however far that was.
    void follow_clock(std::int64_t now_ms);

    /// Why lines wait; empty when they do not. One line.
    std::string refusal() const;
    static const char* name() { return "events.jsonl"; }

private:
    void add(const std::string& line);
    void open();
    void begin_day(const std::string& day);
    void drain();

    std::filesystem::path folder_;
    Descriptor file_;
    std::string day_;  // of the open file
    std::deque<std::string> waiting_;
    std::size_t waiting_bytes_ = 0;
    std::uint64_t lost_ = 0;  // lines that are not told yet
    int error_ = 0;           // errno value of the last failure
};

}  // namespace plendix
