// The walls that somebody looks at, by a name that nobody else can guess.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "serve/thumbnailer.h"

namespace plendix {

/// Any thread. A wall is gone when its last owner lets go.
class Walls {
public:
    std::pair<std::string, std::shared_ptr<Wall>> open();
    /// Null where there is none of this name any more.
    std::shared_ptr<Wall> find(const std::string& name) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::weak_ptr<Wall>> walls_;  // guarded by mutex_
};

}  // namespace plendix
