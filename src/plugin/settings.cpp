#include "plugin/settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>

#include "platform/reserve.h"
#include "plugin/Plendix.h"
#include "plugin/xml_guard.h"

const char szFileName[] = "Plendix.xml";

namespace {

constexpr off_t SettingsLimit = 16 << 20;  // bytes; 255 cameras need under 1 MB
constexpr int CopiesLimit = 1000;          // of unreadable files, so that the search for a name ends

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File OpenNew(const std::string& name, mode_t mode) {
    const int descriptor = open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode);
    File file(descriptor == -1 ? nullptr : fdopen(descriptor, "w"), std::fclose);
    if (!file && descriptor != -1) {
        close(descriptor);
        unlink(name.c_str());
        errno = ENOMEM;
    }
    return file;
}

// The file behind a symbolic link, so that the link stays.
std::string TargetName() {
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(szFileName, nullptr), std::free);
    return resolved ? resolved.get() : szFileName;
}

std::string FolderOf(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? "." : name.substr(0, slash + 1);
}

// Makes a rename in the folder last through a power cut.
void SyncFolder(const std::string& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) return;
    fsync(descriptor);
    close(descriptor);
}

// Every step is tested: a full disk may show only when the stream is flushed or closed.
bool SaveToNew(const TiXmlDocument& document, File file) {
    bool saved = document.SaveFile(file.get());
    saved = std::fflush(file.get()) == 0 && saved;
    saved = std::ferror(file.get()) == 0 && saved;
    saved = fsync(fileno(file.get())) == 0 && saved;
    return std::fclose(file.release()) == 0 && saved;
}

// True when the error says that no file can be put in this place, but this one may be writable.
bool OnlyInPlace(int error) {
    constexpr int errors[] = {EACCES, EPERM, EROFS, EEXIST, EBUSY, EXDEV, ENAMETOOLONG};
    return std::find(std::begin(errors), std::end(errors), error) != std::end(errors);
}

enum class Replacement { Done, Failed, Impossible };

Replacement NotReplaced(int error) {
    return OnlyInPlace(error) ? Replacement::Impossible : Replacement::Failed;
}

// Removes the file, also when memory runs out, unless it has been moved to its place.
struct Temporary {
    ~Temporary() {
        if (!moved) unlink(name.c_str());
    }
    const std::string name;
    bool moved = false;
};

// Writes beside the file and renames over it.
Replacement ReplaceFile(const TiXmlDocument& document, const std::string& target) {
    struct stat old = {};
    const bool existed = stat(target.c_str(), &old) == 0;
    if (!existed && lstat(target.c_str(), &old) == 0) return Replacement::Impossible;  // a link to nowhere
    Temporary temporary{target + ".new"};
    unlink(temporary.name.c_str());  // of a run that was killed
    File file = OpenNew(temporary.name, existed ? old.st_mode & 0777 : 0666);
    if (!file) return NotReplaced(errno);
    if (!SaveToNew(document, std::move(file))) return Replacement::Failed;
    if (std::rename(temporary.name.c_str(), target.c_str()) != 0) return NotReplaced(errno);
    temporary.moved = true;
    SyncFolder(FolderOf(target));
    return Replacement::Done;
}

bool CopyToNew(const std::string& from, const std::string& to) {
    const File source(std::fopen(from.c_str(), "re"), std::fclose);
    File copy = source ? OpenNew(to, 0666) : File(nullptr, std::fclose);
    if (!copy) return false;
    char buffer[4096];
    std::size_t count = 0;
    bool copied = true;
    while ((count = std::fread(buffer, 1, sizeof(buffer), source.get())) > 0)
        copied = std::fwrite(buffer, 1, count, copy.get()) == count && copied;
    return std::fclose(copy.release()) == 0 && std::ferror(source.get()) == 0 && copied;
}

bool MoveAside(const std::string& from, const std::string& to) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0 ||
           CopyToNew(from, to);
}

void KeepUnreadable(const char* reason) {
    const std::string target = TargetName();
    for (int copy = 0; copy < CopiesLimit; ++copy) {
        const std::string suffix = copy == 0 ? ".bad" : ".bad." + std::to_string(copy);
        if (access((target + suffix).c_str(), F_OK) == 0) continue;
        if (MoveAside(target, target + suffix)) {
            Trace(LogWarning, "%s is not readable (%s), kept as %s%s", szFileName, reason, szFileName,
                  suffix.c_str());
            return;
        }
        break;
    }
    Trace(LogWarning, "%s is not readable (%s) and could not be kept", szFileName, reason);
}

// Why LoadFile must not have the file of the given size; null when it may.
const char* ExamineSettings(off_t size) {
    if (size > SettingsLimit) return "too large";
    const File file(std::fopen(szFileName, "re"), std::fclose);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!file || std::fread(&text[0], 1, text.size(), file.get()) != text.size()) return "read error";
    return RefuseFile(text.data(), text.size());
}

}  // namespace

bool LoadFileProtected(TiXmlDocument& document, const char* filename) {
    return document.LoadFile(filename, TIXML_ENCODING_UNKNOWN);
}

bool SaveFileProtected(const TiXmlDocument& document, const char* filename) {
    return document.SaveFile(filename);
}

bool ReadSettings(TiXmlDocument& document, CDescriptorReserve& reserve) {
    const CDescriptorReserve::Use use(reserve);
    struct stat status = {};
    if (stat(szFileName, &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) {
        Trace(LogWarning, "%s is not a file", szFileName);
        return false;
    }
    const char* problem = ExamineSettings(status.st_size);
    if (problem == nullptr && LoadFileProtected(document, szFileName)) {
        MakePrintable(document);
        return true;
    }
    KeepUnreadable(problem != nullptr ? problem : document.ErrorDesc());
    return false;
}

bool WriteSettings(const TiXmlDocument& document, CDescriptorReserve& reserve) {
    const CDescriptorReserve::Use use(reserve);
    const Replacement result = ReplaceFile(document, TargetName());
    if (result == Replacement::Impossible) return SaveFileProtected(document, szFileName);
    return result == Replacement::Done;
}
