// Loads the plug-in and drives it through its eight exported functions, nothing else.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

struct _EventParmsIn;

namespace plendix {

struct PluginExports;

/// Takes one event: valid during the call only. False refuses it. Runs on the thread that
/// opens or closes the plug-in while that runs, and on the plug-in's worker in between.
using EventSink = std::function<bool(const _EventParmsIn&)>;

/// One loaded plug-in. There is one at a time in a process, because the plug-in tells its
/// callback nothing about whom it serves. One thread owns it; `configure` and `write` are safe from any, also
/// from within the sink.
class PluginLibrary {
public:
    /// Loads the library and calls Load. Throws Failure: no such file, not a plug-in.
    PluginLibrary(const std::filesystem::path& file, EventSink sink);
    /// Close if open, Unload, unloads the library.
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    /// Starts the plug-in; it reads and writes its settings in the current directory.
    void open();
    /// Stops it: no event arrives after this. May be repeated.
    void close();
    /// Hands over a configuration document. Throws Failure when it is refused.
    void configure(const std::string& document);
    /// Hands over a write document (relays, recording marks). Throws Failure when it is refused.
    void write(const std::string& document);

private:
    std::shared_ptr<void> handle_;
    std::unique_ptr<PluginExports> exports_;
    EventSink sink_;
    bool open_ = false;
};

/// Where the plug-in is when no --plugin says so, seen from the folder of the running command:
/// beside it, in ../src (build tree), or installed: in a folder of ../lib or in its folder
/// plendix. Throws Failure when it is in none of these.
std::filesystem::path default_plugin();

}  // namespace plendix
