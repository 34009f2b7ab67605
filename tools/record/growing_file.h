// A file that grows by whole pieces, or not at all.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "record/descriptor.h"

namespace plendix {

/// Writes at a position, as muxers want it. What is written is kept once `keep` is called; until
/// then `undo` takes it back. One thread.
class GrowingFile {
public:
    /// Makes the file and the folders above it. Throws WriteFailure, also when the file exists.
    explicit GrowingFile(std::filesystem::path file);
    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    /// Returns 0 or the errno value.
    int write(const std::uint8_t* data, std::size_t size);
    void seek(std::int64_t position) { position_ = position; }
    std::int64_t position() const { return position_; }
    std::int64_t size() const { return size_; }

    void keep() { whole_ = size_; }
    void undo();

    /// From now on writes wait in memory. `apply` carries them out, those behind the end first:
    /// when they find no room nothing has changed. Returns 0 or the errno value.
    void hold_back() { holding_ = true; }
    int apply();

    const std::filesystem::path& path() const { return path_; }
    std::uint64_t whole_bytes() const { return static_cast<std::uint64_t>(whole_); }
    bool in_place() const { return leads_to(path_, file_.get()); }

private:
    struct Piece {
        std::int64_t position;
        std::vector<std::uint8_t> bytes;
    };
    int write_out(const std::uint8_t* data, std::size_t size, std::int64_t position);

    std::filesystem::path path_;
    Descriptor file_;
    std::int64_t position_ = 0;
    std::int64_t size_ = 0;
    std::int64_t whole_ = 0;
    bool holding_ = false;
    std::vector<Piece> held_;
};

}  // namespace plendix
