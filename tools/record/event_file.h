// events.jsonl: one JSON object a line, for programs.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>

#include "host/event.h"
#include "record/descriptor.h"

namespace plendix {

/// Lines are added to the file and are on their way to the disk when `write` returns. When the disk
/// refuses they wait, up to 1 MiB, and the file keeps whole lines only. When a day (UTC) is over its
/// file becomes events-YYYY-MM-DD.jsonl. One thread.
class EventFile {
public:
    explicit EventFile(std::filesystem::path folder);
    ~EventFile();
    EventFile(const EventFile&) = delete;
    EventFile& operator=(const EventFile&) = delete;

    void write(const Event& event, std::int64_t now_ms);
    /// Once in a while: tries again to write what waits, and begins a new day or a file that is gone.
    void check(std::int64_t now_ms);

    std::uint64_t lost() const { return lost_; }  // lines
    static const char* name() { return "events.jsonl"; }

private:
    void open();
    void begin_day(const std::string& day);
    void drain();

    std::filesystem::path folder_;
    Descriptor file_;
    std::string day_;  // of the open file
    std::deque<std::string> waiting_;
    std::size_t waiting_bytes_ = 0;
    std::uint64_t lost_ = 0;
};

}  // namespace plendix
