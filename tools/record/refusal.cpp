#include "record/refusal.h"

#include "usage.h"

namespace plendix {
namespace {

std::string room_words(const char* what, const std::string& folder, bool keeps) {
    return what + folder +
           (keeps ? " beside what is open: delete other files"
                  : ": delete files, or start with --keep or --keep-size");
}

}  // namespace

std::string refusal_words(const Refusal& refusal, const std::filesystem::path& folder, bool keeps) {
    const std::string name = "'" + folder.string() + "'";
    switch (refusal.code) {
        case ENOSPC:
            return room_words("no room on the disk of ", name, keeps);
        case EDQUOT:
            return room_words("the quota is used up in ", name, keeps);
        case EROFS:
            return name + " is read-only: 'dmesg' tells of errors of its disk, 'mount -o remount,rw' ends it";
        case EIO:
            return "the disk of " + name + " fails (" + error_text(EIO) + "): look at it with 'dmesg'";
        case EACCES:
        case EPERM:
            return "no permission to write in " + name + ": give its folders to this user";
        default:
            return refusal.text;
    }
}

}  // namespace plendix
