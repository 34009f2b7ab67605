#include "http/private_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/descriptor.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t largest_file = 1U << 20U;

/// Of the file that is open: another cannot take its place in between.
void require_private(int descriptor, const std::string& path) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) throw UsageError(path + ": " + error_text(errno));
    if ((status.st_mode & (S_IROTH | S_IWOTH)) != 0)
        throw UsageError(path + " can be read or changed by everybody: 'chmod o= " + path + "' mends it");
}

}  // namespace

std::string private_text(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) throw UsageError("cannot read " + path + ": " + error_text(errno));
    require_private(file.get(), path);
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(file.get(), buffer, sizeof buffer)) > 0 && text.size() <= largest_file)
        text.append(buffer, static_cast<std::size_t>(count));
    if (count < 0) throw UsageError("cannot read " + path + ": " + error_text(errno));
    if (text.size() > largest_file) throw UsageError(path + " is larger than 1 MiB");
    return text;
}

}  // namespace plendix
