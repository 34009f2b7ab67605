// A disk that refuses.
#pragma once

#include <filesystem>

#include "usage.h"

namespace plendix {

/// Full, gone, read-only, broken. `error` is an errno value.
class WriteFailure : public Failure {
public:
    WriteFailure(const std::filesystem::path& file, int error)
        : Failure("cannot write '" + file.string() + "': " + error_text(error)), error_(error) {}
    int error() const { return error_; }

private:
    int error_;
};

}  // namespace plendix
