// --replace: an earlier recording makes room for a new one, as a whole or not at all.
#pragma once

#include <filesystem>

namespace plendix {

/// Settles what a replacement left behind that was ended in between, by a power cut or kill -9: the
/// earlier recording is removed where the new one has a segment, else it comes back. The folder must
/// be locked. Throws Failure.
void settle_replacement(const std::filesystem::path& folder);

/// Moves the earlier recording aside: segments, events and the driver's log, by their names; foreign
/// files stay. It comes back when the object ends without `commit`. The folder must be locked.
class Replacement {
public:
    /// Throws Failure; the earlier recording is then where it was.
    explicit Replacement(std::filesystem::path folder);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Removes the earlier recording for good. Throws Failure when a part of it could not be removed;
    /// the rest goes at the next start.
    void commit();

private:
    std::filesystem::path folder_;
    bool pending_ = false;
};

}  // namespace plendix
