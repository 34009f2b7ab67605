// A host with a C++ library of its own, for a driver that has another one inside: both throw, on the
// same stack and on two threads, and each catches what is its own. Memory that is refused has the driver
// throw in its worker and in a call of the host's.
// Usage: throwing_host LIBRARY
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "plugin/host_records.h"

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

namespace {

constexpr std::size_t Little = 1000;  // bytes that one allocation may have
thread_local bool may_take_much = false;
std::atomic<bool> told{false};
std::atomic<int> caught{0};

void throw_and_catch() {
    try {
        throw std::runtime_error("the host's");
    } catch (const std::exception& error) {
        if (std::strcmp(error.what(), "the host's") == 0) ++caught;
    }
}

int on_event(_EventParmsIn* event, _EventParmsOut* answer) {
    answer->Error = 0;
    throw_and_catch();
    if (event->Kind != EventKindLog) return 0;
    if (std::string(static_cast<const char*>(event->Data)).find("failed: std::bad_alloc") !=
        std::string::npos)
        told = true;
    return 0;
}

template <class Function>
Function find(void* library, const char* name) {
    const auto function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) std::exit(1);
    return function;
}

void send(IOCTLFunction control, const std::string& text) {
    _IOCTLParmsIn in = {sizeof(in), 1, 2, {}, static_cast<std::uint32_t>(text.size()), text.c_str()};
    _IOCTLParmsOut out = {};
    control(&in, &out);
}

bool told_of_failure(IOCTLFunction control) {
    const std::string text =
        "<Velm Delta='1'><Devices ID='2162688'><Device Number='1' Enabled='1' "
        "ipAddress='127.0.0.1'></Device></Devices></Velm>";
    const std::string long_text = text + std::string(10 * Little, ' ');
    may_take_much = false;
    send(control, long_text);  // there is no memory for it: the call returns
    may_take_much = true;
    if (told) return false;
    send(control, text);  // the worker has none for the camera, and goes on
    for (int tenths = 0; !told && tenths < 300; ++tenths)
        usleep(100000);
    return told;
}

}  // namespace

// In the C library's place, for the driver's C++ library as well as for the host's.
extern "C" void* malloc(std::size_t size) {
    if (size < Little || may_take_much) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

int main(int argc, char** argv) {
    may_take_much = true;
    if (argc != 2) return 2;
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) std::fprintf(stderr, "%s\n", dlerror());
    char folder[] = "/tmp/plendix-throw-XXXXXX";  // of the settings file
    if (library == nullptr || mkdtemp(folder) == nullptr || chdir(folder) != 0) return 1;
    _LoadParmsIn load_in = {sizeof(load_in), 1, 0, on_event};
    _LoadParmsOut load_out = {};
    _OpenParmsIn open_in = {sizeof(open_in), 1};
    _OpenParmsOut open_out = {};
    _CloseParmsIn close_in = {sizeof(close_in), 1};
    _CloseParmsOut close_out = {};
    _UnloadParmsIn unload_in = {sizeof(unload_in), 1};
    _UnloadParmsOut unload_out = {};
    find<LoadFunction>(library, "Load")(&load_in, &load_out);
    find<OpenFunction>(library, "Open")(&open_in, &open_out);
    const bool passed = told_of_failure(find<IOCTLFunction>(library, "IOCTL"));
    find<CloseFunction>(library, "Close")(&close_in, &close_out);
    find<UnloadFunction>(library, "Unload")(&unload_in, &unload_out);
    dlclose(library);
    const int before = caught;
    throw_and_catch();
    if (chdir("/") != 0 || std::system((std::string("rm -r ") + folder).c_str()) != 0) return 1;
    std::printf("caught %d of the host's; the driver's bad_alloc %s\n", caught.load(),
                passed ? "told" : "lost");
    return passed && before > 0 && caught == before + 1 ? 0 : 1;
}
