// Where captured packets go: one growing file, or the last minutes of them. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "field/capture_file.h"

namespace plendix {

class CaptureOutput {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// What can be read of it now.
    struct Kept {
        std::uint64_t packets = 0, bytes = 0;
        std::int64_t first_ns = 0, last_ns = 0;  // UTC since 1970
        bool short_of_room = false;              // less time than asked for, because of the bound in bytes
    };

    virtual ~CaptureOutput() = default;
    /// Throws Failure; what was written before can be read.
    virtual void write(const CapturedPacket& packet, Time now) = 0;
    /// About once a second, and for a reader at the other end.
    virtual void flush(Time now) = 0;
    /// The file is whole then, under its name.
    virtual void finish(const CaptureCounts& counts) = 0;
    virtual Kept kept() const = 0;
    /// There is no reader any more, and what is written goes nowhere.
    virtual bool reader_gone() const { return false; }
    /// Where to look for what was captured when it ends without `finish`.
    virtual std::filesystem::path place() const = 0;
};

/// Under its own name from the beginning: what is there can be read whatever happens.
class WholeOutput : public CaptureOutput {
public:
    WholeOutput(const std::filesystem::path& file, const CaptureDescription& description,
                const CaptureWriter::Patience& patience)
        : file_(file), writer_(file, description, patience) {}
    void write(const CapturedPacket& packet, Time now) override;
    void flush(Time) override { writer_.flush(); }
    void finish(const CaptureCounts& counts) override { writer_.finish(counts); }
    Kept kept() const override;
    bool reader_gone() const override { return writer_.reader_gone(); }
    std::filesystem::path place() const override { return file_; }

private:
    const std::filesystem::path file_;
    CaptureWriter writer_;
    Kept kept_;
};

}  // namespace plendix
