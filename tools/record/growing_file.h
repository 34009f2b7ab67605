// A file that grows by whole pieces, or not at all.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/descriptor.h"
#include "host/picture_format.h"

namespace plendix {

/// One thread.
class GrowingFile {
public:
    /// Makes the file and the folders above it. Throws WriteFailure, also when the file exists.
    explicit GrowingFile(std::filesystem::path file);

    /// Adds all of the pieces, in one call of the system where it can, or nothing. Throws WriteFailure.
    void append(const Pieces& pieces);
    /// In place of as many bytes from the beginning on. Throws WriteFailure.
    void overwrite(const Bytes& beginning);
    /// Takes back what is behind that.
    void cut(std::uint64_t size);

    const std::filesystem::path& path() const { return path_; }
    std::uint64_t size() const { return size_; }
    bool in_place() const { return leads_to(path_, file_.get()); }

private:
    std::filesystem::path path_;
    Descriptor file_;
    std::uint64_t size_ = 0;
};

}  // namespace plendix
