#include "host/plugin_library.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include "plugin/host_records.h"
#include "usage.h"

namespace plendix {

namespace fs = std::filesystem;

struct PluginExports {
    LoadFunction load;
    UnloadFunction unload;
    OpenFunction open;
    CloseFunction close;
    ReadFunction read;
    WriteFunction write;
    SeekFunction seek;
    IOCTLFunction ioctl;
};

namespace {

constexpr std::uint32_t host_source_id = 0x10000;  // any identifier but the plug-in's own
constexpr std::int32_t untouched = 1;              // no result code of the plug-in

std::atomic<const EventSink*> active_sink{nullptr};

int on_event(_EventParmsIn* event, _EventParmsOut* answer) {
    bool taken = false;
    try {
        const EventSink* sink = active_sink.load();
        taken = sink != nullptr && (*sink)(*event);
    } catch (const std::exception& error) {  // nothing may be thrown through the plug-in
        std::cerr << "plendix: event lost: " << error.what() << '\n';
    }
    answer->Error = taken ? 0 : 1;
    return 0;
}

template <class Record>
Record record() {
    Record filled{};
    filled.Size = sizeof(Record);
    filled.Version = 1;
    return filled;
}

template <class Function>
Function find(void* handle, const char* name, const fs::path& file) {
    void* symbol = dlsym(handle, name);
    if (symbol == nullptr) {
        throw Failure("'" + file.string() + "' is not a plug-in: it does not export '" + name + "'");
    }
    return reinterpret_cast<Function>(symbol);
}

PluginExports find_exports(void* handle, const fs::path& file) {
    return {find<LoadFunction>(handle, "Load", file), find<UnloadFunction>(handle, "Unload", file),
            find<OpenFunction>(handle, "Open", file), find<CloseFunction>(handle, "Close", file),
            find<ReadFunction>(handle, "Read", file), find<WriteFunction>(handle, "Write", file),
            find<SeekFunction>(handle, "Seek", file), find<IOCTLFunction>(handle, "IOCTL", file)};
}

std::shared_ptr<void> open_library(const fs::path& file) {
    std::error_code ignored;
    if (!fs::exists(file, ignored)) {
        throw Failure("no plug-in at '" + file.string() + "': give the path of a Plendix.so");
    }
    void* handle = dlopen(fs::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): its text is the calling thread's own
    if (handle == nullptr) throw Failure(std::string("cannot load the plug-in: ") + dlerror());
    return {handle, dlclose};
}

void require_queued(std::int32_t result, const char* what) {
    if (result == untouched) return;
    throw Failure(std::string("the plug-in refused a ") + what + " document (result " +
                  std::to_string(result) + ")");
}

}  // namespace

PluginLibrary::PluginLibrary(const fs::path& file, EventSink sink)
    : handle_(open_library(file)),
      exports_(std::make_unique<PluginExports>(find_exports(handle_.get(), file))),
      sink_(std::move(sink)) {
    const EventSink* nobody = nullptr;
    if (!active_sink.compare_exchange_strong(nobody, &sink_)) {
        throw Failure("a plug-in is loaded already: one process hosts one");
    }
    auto in = record<_LoadParmsIn>();
    auto out = record<_LoadParmsOut>();
    in.EventCallback = on_event;
    exports_->load(&in, &out);
}

PluginLibrary::~PluginLibrary() {
    close();
    auto in = record<_UnloadParmsIn>();
    auto out = record<_UnloadParmsOut>();
    exports_->unload(&in, &out);
    active_sink = nullptr;
}

void PluginLibrary::open() {
    auto in = record<_OpenParmsIn>();
    auto out = record<_OpenParmsOut>();
    exports_->open(&in, &out);
    open_ = true;
    if (out.Result != ResultDone) {
        throw Failure("the plug-in did not open (result " + std::to_string(out.Result) + ")");
    }
}

void PluginLibrary::close() {
    if (!std::exchange(open_, false)) return;
    auto in = record<_CloseParmsIn>();
    auto out = record<_CloseParmsOut>();
    exports_->close(&in, &out);
}

void PluginLibrary::configure(const std::string& document) {
    auto in = record<_IOCTLParmsIn>();
    auto out = record<_IOCTLParmsOut>();
    in.Code = 2;
    in.DataLength = static_cast<std::uint32_t>(document.size());
    in.Data = document.data();
    out.Result = untouched;
    exports_->ioctl(&in, &out);
    require_queued(out.Result, "configuration");
}

void PluginLibrary::write(const std::string& document) {
    auto in = record<_WriteParmsIn>();
    auto out = record<_WriteParmsOut>();
    in.DataLength = static_cast<std::uint32_t>(document.size());
    in.Data = document.data();
    in.SourceId = host_source_id;
    out.Result = untouched;
    exports_->write(&in, &out);
    require_queued(out.Result, "write");
}

fs::path default_plugin() {
    const char* const name = "Plendix.so";
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path libraries = here.parent_path() / "lib";
    std::vector<fs::path> places{here, here.parent_path() / "src"};
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(libraries, ignored)) {
        places.push_back(entry.path());
        places.push_back(entry.path() / "plendix");  // lib/x86_64-linux-gnu/plendix
    }
    for (const auto& place : places) {
        if (fs::is_regular_file(place / name, ignored)) return place / name;
    }
    throw Failure("no Plendix.so in '" + here.string() + "', ../src or below ../lib: name one with --plugin");
}

}  // namespace plendix
