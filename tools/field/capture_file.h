// Files of captured packets: pcapng and the older pcap. What is read may come from anywhere, so memory
// is bounded whatever a file says. Each object belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/descriptor.h"
#include "host/frame.h"

namespace plendix {

/// LINKTYPE_ numbers: what a packet begins with.
enum LinkType {
    link_bsd_loopback = 0,  // four bytes of protocol family in the capturing machine's order
    link_ethernet = 1,
    link_raw_ip = 101,
    link_open_loopback = 108,  // as 0, big-endian
    link_cooked = 113,         // Linux, version 1
    link_ipv4 = 228,
    link_cooked2 = 276
};

/// One packet of a capture file.
struct CapturedPacket {
    std::int64_t time_ns = 0;       // UTC since 1970; 0 where the file does not tell
    int link_type = link_ethernet;  // or any other number that the file has
    std::size_t original_size = 0;  // on the wire; `data` may be less
    Bytes data;
    std::uint64_t position = 0;  // of `data` in the file
    std::string comment;         // several are lines of it
};

constexpr std::size_t largest_captured_packet = 256U << 10U;
constexpr std::size_t largest_capture_block = 16U << 20U;

class CaptureParser;

/// Reads pcapng (sections of either byte order, several interfaces, enhanced, simple and obsolete packet
/// blocks; other blocks are passed over) and pcap (micro- and nanoseconds, either byte order).
class CaptureReader {
public:
    /// Fills up to so many bytes and returns how many; 0 at the end.
    using Source = std::function<std::size_t(std::uint8_t* to, std::size_t size)>;

    /// "-" is standard input. Throws Failure when the file cannot be opened or is no capture.
    explicit CaptureReader(const std::filesystem::path& file);
    /// Throws Failure when what comes is no capture; `name` is for that message.
    CaptureReader(Source source, const std::string& name);
    ~CaptureReader();
    CaptureReader(CaptureReader&&) noexcept;
    CaptureReader& operator=(CaptureReader&&) noexcept;

    /// False at the end, which the three below explain.
    bool next(CapturedPacket& packet);

    /// The file ended within a packet: a capture that was killed, or is still running.
    bool cut_short() const;
    /// Why reading ended early otherwise: what was wrong and at which byte; empty when nothing was.
    const std::string& damage() const;
    /// Packets that the capture itself missed, as its statistics tell at the end of each section; nothing
    /// where there are none.
    std::optional<std::uint64_t> missed() const;

private:
    std::unique_ptr<CaptureParser> parser_;
};

/// What a file says of itself; all of it may be empty.
struct CaptureDescription {
    std::string interface, filter;
    std::string comment;  // what it contains, for people
};

/// The system's counts at the end of a capture.
struct CaptureCounts {
    std::uint64_t received = 0, missed = 0;
};

/// Throws Failure when there is something of this name: nothing is written over.
void require_new(const std::filesystem::path& file);

/// Writes pcapng: little-endian, nanoseconds, one section. Only whole blocks reach the file, so that it can
/// be read however the writer ended; each link type is an interface of its own.
class CaptureWriter {
public:
    /// Whether to go on waiting for a reader of standard output that takes nothing; asked ten times a second.
    using Patience = std::function<bool()>;

    /// "-" is standard output. Throws Failure, also when the file exists.
    explicit CaptureWriter(const std::filesystem::path& file, CaptureDescription description = {},
                           Patience patience = {});
    /// Hands over what is kept back, if it can.
    ~CaptureWriter();
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;

    /// Keeps some hundred kilobytes back until `flush`. Both throw Failure; the file then ends with the
    /// last block that was taken whole.
    void write(const CapturedPacket& packet);
    void flush();
    /// Adds the counts, and flushes. Nothing comes behind.
    void finish(const CaptureCounts& counts);

    /// Nobody reads the pipe any more: nothing is written from then on.
    bool reader_gone() const { return reader_gone_; }

    /// Including what is kept back.
    std::uint64_t size() const { return size_ + pending_.size(); }

private:
    void begin_interface(int link_type);
    std::size_t write_some(std::size_t done);
    void wait_for_reader(std::size_t done);
    [[noreturn]] void give_up(std::size_t done, const std::string& why);

    std::filesystem::path file_;
    CaptureDescription description_;
    Descriptor descriptor_;
    const Patience patience_;
    const bool waits_;  // for a reader at the other end
    bool reader_gone_ = false;
    Bytes pending_;           // whole blocks
    std::uint64_t size_ = 0;  // in the file
    std::vector<int> link_types_;
    std::int64_t last_time_ns_ = 0;
};

}  // namespace plendix
