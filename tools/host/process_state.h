// What a recording changes in its process, put back at the end of a scope: the current directory
// and standard output. And what it has to find there from the start.
#pragma once

#include <filesystem>

namespace plendix {

/// Opens descriptors 0 to 2 on /dev/null where they are closed: otherwise the next file that is
/// opened would get such a number, and with it what is printed. First of all in main().
void keep_standard_descriptors();

/// Works inside a folder, because the plug-in keeps its settings in the current directory.
class WorkingDirectory {
public:
    /// Makes the folder. Throws Failure.
    explicit WorkingDirectory(const std::filesystem::path& folder);
    ~WorkingDirectory();
    /// Into the folder that has the name by now, if there is one.
    void enter() const;
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::filesystem::path before_;
    std::filesystem::path folder_;  // absolute
};

/// Sends standard output to the end of a file: the plug-in prints its log there, while the
/// command's own standard output is data. The thread that made it calls the methods; others may
/// print meanwhile.
class OutputToFile {
public:
    /// Throws Failure when the file cannot be opened.
    explicit OutputToFile(const std::filesystem::path& file);
    ~OutputToFile();
    OutputToFile(const OutputToFile&) = delete;
    OutputToFile& operator=(const OutputToFile&) = delete;

    /// Puts what was printed into the file. One that has grown beyond so many bytes is kept with
    /// ".1" at its name, in place of the one before, and begun anew; so is one that was taken away.
    /// What cannot be done now is left for the next call, some seconds later.
    void rotate_if_large(std::uintmax_t largest = 10U << 20U);

private:
    std::filesystem::path file_;  // absolute: the current directory may change
    int before_;
};

}  // namespace plendix
