// The eight exported functions: look-up, call, result. No exception leaves them.
#include <cstdio>

#include "plugin/Plendix.h"
#include "plugin/plugin.h"

#define PLENDIX_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Not to the host: the worker may be inside its callback.
int ReportFailure(const char* name) {
    std::fprintf(stderr, "%s: %s failed\n", PluginName, name);
    return 0;
}

// Calls a member of the plug-in object, if there is one: Load may have failed.
template <class In, class Out>
int Call(const char* name, int (CPlugin::*member)(In*, Out*), In* in, Out* out) noexcept {
    try {
        return g_Plugin != nullptr ? (g_Plugin->*member)(in, out) : 0;
    } catch (...) {
        return ReportFailure(name);
    }
}

// Stops a worker that still runs, and destroys the cameras that are left.
void DestroyPlugin() noexcept {
    delete g_Plugin;
    g_Plugin = nullptr;
}

}  // namespace

PLENDIX_EXPORT int Load(_LoadParmsIn* in, _LoadParmsOut* out) {
    DestroyPlugin();  // of a host that loads twice
    try {
        g_Plugin = new CPlugin;
    } catch (...) {
        return ReportFailure("Load");
    }
    return Call("Load", &CPlugin::Load, in, out);
}

PLENDIX_EXPORT int Unload(_UnloadParmsIn* in, _UnloadParmsOut* out) {
    const int result = Call("Unload", &CPlugin::Unload, in, out);
    DestroyPlugin();
    return result;
}

PLENDIX_EXPORT int Open(_OpenParmsIn* in, _OpenParmsOut* out) {
    return Call("Open", &CPlugin::Open, in, out);
}

PLENDIX_EXPORT int Close(_CloseParmsIn* in, _CloseParmsOut* out) {
    return Call("Close", &CPlugin::Close, in, out);
}

PLENDIX_EXPORT int Read(_ReadParmsIn* in, _ReadParmsOut* out) {
    return Call("Read", &CPlugin::Read, in, out);
}

PLENDIX_EXPORT int Write(_WriteParmsIn* in, _WriteParmsOut* out) {
    return Call("Write", &CPlugin::Write, in, out);
}

PLENDIX_EXPORT int Seek(_SeekParmsIn* in, _SeekParmsOut* out) {
    return Call("Seek", &CPlugin::Seek, in, out);
}

PLENDIX_EXPORT int IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut* out) {
    return Call("IOCTL", &CPlugin::IOCTL, in, out);
}
