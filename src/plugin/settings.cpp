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

#include "platform/xml_text.h"
#include "plugin/Plendix.h"

const char szFileName[] = "Plendix.xml";

namespace {

constexpr off_t SizeLimit = INT_MAX;  // bytes that LoadFile can count on a 32-bit machine
constexpr int CopiesLimit = 1000;     // of unreadable files, so that the search for a name ends

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

// What SaveFile writes; empty when there is no memory for it.
std::string Print(const TiXmlDocument& document) {
    char* buffer = nullptr;
    std::size_t size = 0;
    File memory(open_memstream(&buffer, &size), std::fclose);
    const bool printed = memory && document.SaveFile(memory.get());
    const bool whole = memory && std::fclose(memory.release()) == 0 && printed;
    const std::unique_ptr<char, void (*)(void*)> owned(buffer, std::free);
    return whole ? std::string(buffer, size) : std::string();
}

// Every step is tested: a full disk may show only when the stream is flushed or closed.
bool SaveToNew(const std::string& text, File file) {
    bool saved = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
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
Replacement ReplaceFile(const std::string& text, const std::string& target) {
    struct stat old = {};
    const bool existed = stat(target.c_str(), &old) == 0;
    if (!existed && lstat(target.c_str(), &old) == 0) return Replacement::Impossible;  // a link to nowhere
    Temporary temporary{target + ".new"};
    unlink(temporary.name.c_str());  // of a run that was killed
    File file = OpenNew(temporary.name, existed ? old.st_mode & 0777 : 0666);
    if (!file) return NotReplaced(errno);
    if (!SaveToNew(text, std::move(file))) return Replacement::Failed;
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

// Null, or what is wrong.
const char* ReadText(off_t size, std::string& text) {
    if (size > SizeLimit) return "too large";
    const File file(std::fopen(szFileName, "re"), std::fclose);
    text.resize(static_cast<std::size_t>(size));
    const bool whole = file && std::fread(&text[0], 1, text.size(), file.get()) == text.size();
    return whole ? nullptr : "read error";
}

// Null, with the document loaded and its text as it stands in the file, or what is wrong.
const char* Load(off_t size, TiXmlDocument& document, std::string& text) {
    if (const char* problem = ReadText(size, text)) return problem;
    const XmlVerdict verdict = ExamineXml(WithLineFeeds(text), TIXML_ENCODING_UNKNOWN);
    if (verdict.problem != nullptr) return verdict.problem;
    if (!LoadFileProtected(document, szFileName)) return document.ErrorDesc();
    MakePrintable(document, verdict.encoding);
    return nullptr;
}

bool SameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           SameTime(a.st_mtim, b.st_mtim) && SameTime(a.st_ctim, b.st_ctim);
}

}  // namespace

bool LoadFileProtected(TiXmlDocument& document, const char* filename) {
    return document.LoadFile(filename, TIXML_ENCODING_UNKNOWN);
}

bool SaveFileProtected(const TiXmlDocument& document, const char* filename) {
    return document.SaveFile(filename);
}

bool CSettings::Read(TiXmlDocument& document) {
    const CDescriptorReserve::Use use(m_Reserve);
    struct stat status = {};
    if (stat(szFileName, &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) {
        Trace(LogWarning, "%s is not a file", szFileName);
        return false;
    }
    std::string text;
    if (const char* problem = Load(status.st_size, document, text)) {
        KeepUnreadable(problem);
        return false;
    }
    Remember(text, status);
    return true;
}

bool CSettings::Write(const TiXmlDocument& document) {
    const std::string text = Print(document);
    if (text.empty()) return false;
    if (Holds(text)) return true;
    const CDescriptorReserve::Use use(m_Reserve);
    m_sText.clear();
    const Replacement result = ReplaceFile(text, TargetName());
    const bool saved = result == Replacement::Impossible ? SaveFileProtected(document, szFileName)
                                                         : result == Replacement::Done;
    struct stat status = {};
    if (saved && stat(szFileName, &status) == 0) Remember(text, status);
    return saved;
}

bool CSettings::Holds(const std::string& text) const {
    struct stat status = {};
    return m_sText == text && stat(szFileName, &status) == 0 && SameFile(status, m_Status);
}

// A file that was written in place may have been cut short by a full disk without a word.
void CSettings::Remember(const std::string& text, const struct stat& status) {
    m_Status = status;
    m_sText = status.st_size == static_cast<off_t>(text.size()) ? text : std::string();
}
