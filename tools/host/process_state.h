// What a recording changes in its process, put back at the end of a scope: the current
// directory, standard output and the handlers of the ending signals.
#pragma once

#include <filesystem>

namespace plendix {

/// Works inside a folder, because the plug-in keeps its settings in the current directory.
class WorkingDirectory {
public:
    /// Makes the folder. Throws Failure.
    explicit WorkingDirectory(const std::filesystem::path& folder);
    ~WorkingDirectory();
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::filesystem::path before_;
};

/// Sends standard output into a file: the plug-in prints its log there, while the command's
/// own standard output is data.
class OutputToFile {
public:
    /// Replaces the file. Throws Failure.
    explicit OutputToFile(const std::filesystem::path& file);
    ~OutputToFile();
    OutputToFile(const OutputToFile&) = delete;
    OutputToFile& operator=(const OutputToFile&) = delete;

private:
    int before_;
};

/// Turns the first SIGINT or SIGTERM into a request to stop; the next one ends the process.
/// One at a time.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    bool requested() const;
};

}  // namespace plendix
