// The eight exported functions: look-up, call, result. No exception leaves them.
#include <cstdio>

#include "plugin/Plendix.h"
#include "plugin/plugin.h"

#define PLENDIX_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

template <class Call>
int Guarded(const char* name, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        // Not to the host: the worker may be inside its callback.
        std::fprintf(stderr, "%s: %s failed\n", PluginName, name);
        return 0;
    }
}

}  // namespace

PLENDIX_EXPORT int Load(_LoadParmsIn* in, _LoadParmsOut* out) {
    return Guarded("Load", [=] {
        g_Plugin = new CPlugin;
        return g_Plugin->Load(in, out);
    });
}

PLENDIX_EXPORT int Unload(_UnloadParmsIn* in, _UnloadParmsOut* out) {
    return Guarded("Unload", [=] {
        const int result = g_Plugin != nullptr ? g_Plugin->Unload(in, out) : 0;
        delete g_Plugin;
        g_Plugin = nullptr;
        return result;
    });
}

PLENDIX_EXPORT int Open(_OpenParmsIn* in, _OpenParmsOut* out) {
    return Guarded("Open", [=] { return g_Plugin->Open(in, out); });
}

PLENDIX_EXPORT int Close(_CloseParmsIn* in, _CloseParmsOut* out) {
    return Guarded("Close", [=] { return g_Plugin->Close(in, out); });
}

PLENDIX_EXPORT int Read(_ReadParmsIn* in, _ReadParmsOut* out) {
    return Guarded("Read", [=] { return g_Plugin->Read(in, out); });
}

PLENDIX_EXPORT int Write(_WriteParmsIn* in, _WriteParmsOut* out) {
    return Guarded("Write", [=] { return g_Plugin->Write(in, out); });
}

PLENDIX_EXPORT int Seek(_SeekParmsIn* in, _SeekParmsOut* out) {
    return Guarded("Seek", [=] { return g_Plugin->Seek(in, out); });
}

PLENDIX_EXPORT int IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut* out) {
    return Guarded("IOCTL", [=] { return g_Plugin->IOCTL(in, out); });
}
