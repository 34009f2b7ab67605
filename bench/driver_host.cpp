// A host that does nothing with its pictures: loads Plendix.so, configures a row of cameras in one
// document, and says on standard output when they stream. Ends with its standard input.
// Usage: driver_host PLUGIN FIRST-ADDRESS COUNT CHANNEL [FOLDER]
// With COUNT 0 there are the cameras of the settings file in the current folder, if any. CHANNEL holds
// the attributes of every Channel element. With FOLDER it has the least of a recorder's jobs: the
// callback writes each picture into its camera's file there.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <bitset>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "latency_probe.h"
#include "plugin/host_records.h"

extern "C" void lockstep_delivered() __attribute__((weak));  // of lockstep.cpp, if that is preloaded

namespace {

using namespace std::string_literals;

// What the cameras were seen to do; by the callback.
struct Progress {
    std::bitset<256> settled;    // reported the trigger input, which is read last
    std::bitset<256> streaming;  // delivered a frame
    std::atomic<long> frames{0}, configurations{0};
    std::atomic<std::size_t> settled_count{0}, streaming_count{0};
} progress;

std::vector<int> files;  // by camera; none: pictures are dropped

void open_files(const std::string& folder, int count) {
    for (int camera = 0; camera <= count; ++camera) {
        const std::string name = folder + '/' + std::to_string(camera);
        files.push_back(open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    }
}

void keep(const _EventParmsIn& event) {
    const std::size_t camera = event.SourceId >> 8 & 255;
    if (camera >= files.size()) return;
    if (write(files[camera], event.Data, event.DataLength) == static_cast<ssize_t>(event.DataLength)) return;
    std::perror("driver_host: write");
    std::exit(1);
}

int on_event(_EventParmsIn* event, _EventParmsOut*) {
    if (event->Kind == EventKindVideo) {
        probe_frame();
        if (lockstep_delivered != nullptr) lockstep_delivered();
        keep(*event);
        ++progress.frames;
        progress.streaming.set(event->SourceId >> 8 & 255);
        progress.streaming_count = progress.streaming.count();
    } else if (event->Kind == EventKindConfig) {
        ++progress.configurations;
    } else if (event->Kind == EventKindAlarm) {
        const std::string text(static_cast<const char*>(event->Data), event->DataLength);
        const std::size_t number = text.find("Device Number=\"");
        if (number == std::string::npos || text.find("<Trigger><Input") == std::string::npos) return 0;
        progress.settled.set(std::strtoul(text.c_str() + number + 15, nullptr, 10) & 255);
        progress.settled_count = progress.settled.count();
    }
    return 0;
}

template <class Function, class In, class Out>
void call(void* library, const char* name, In in, Out out) {
    const auto function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) std::exit((std::fprintf(stderr, "driver_host: no %s\n", name), 1));
    in.Size = sizeof(in);
    in.Version = 1;
    function(&in, &out);
}

std::string configuration(std::uint32_t first, int count, const std::string& channel) {
    std::string text = "<Velm Delta='1'><Devices ID='2162688'>";
    for (int i = 0; i < count; ++i) {
        const in_addr address = {htonl(first + static_cast<std::uint32_t>(i))};
        text += "<Device Number='" + std::to_string(i + 1) + "' Enabled='1' ipAddress='" +
                inet_ntoa(address) + "'><Codec><Encoder><Channel Number='0' " + channel +
                "/></Encoder></Codec></Device>";
    }
    return text + "</Devices></Velm>";
}

// The plug-in prints its log there.
int take_output() {
    const int output = dup(STDOUT_FILENO);
    const int nothing = open("/dev/null", O_WRONLY);
    dup2(nothing, STDOUT_FILENO);
    return output;
}

// Each line of standard input asks for a line of standard output.
void answer_questions(int output) {
    char line[16];
    while (std::fgets(line, sizeof(line), stdin) != nullptr)
        dprintf(output,
                "{\"settled\": %zu, \"streaming\": %zu, \"frames\": %ld, \"configurations\": %ld%s}\n",
                progress.settled_count.load(), progress.streaming_count.load(), progress.frames.load(),
                progress.configurations.load(), probe_report().c_str());
}

}  // namespace

int main(int count, char** values) {
    const int cameras = count == 5 || count == 6 ? std::atoi(values[3]) : -1;
    in_addr first{};
    if (cameras < 0 || cameras > 255 || inet_aton(values[2], &first) == 0) {
        std::fprintf(stderr,
                     "usage: driver_host PLUGIN FIRST-ADDRESS COUNT CHANNEL [FOLDER], COUNT from 0 to 255\n");
        return 2;
    }
    void* const library = dlopen(values[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "driver_host: %s\n", dlerror());
        return 1;
    }
    if (count == 6) open_files(values[5], cameras);
    const int output = take_output();
    call<LoadFunction>(library, "Load", _LoadParmsIn{0, 0, 0, on_event}, _LoadParmsOut{});
    call<OpenFunction>(library, "Open", _OpenParmsIn{}, _OpenParmsOut{});
    while (std::getchar() > '\n') {
    }  // the first line of standard input starts the cameras
    const std::string text = configuration(ntohl(first.s_addr), cameras, values[4]);
    const auto length = static_cast<std::uint32_t>(text.size());
    call<IOCTLFunction>(library, "IOCTL", _IOCTLParmsIn{0, 0, 2, {}, length, text.data()}, _IOCTLParmsOut{});
    answer_questions(output);
    call<CloseFunction>(library, "Close", _CloseParmsIn{}, _CloseParmsOut{});
    call<UnloadFunction>(library, "Unload", _UnloadParmsIn{}, _UnloadParmsOut{});
}
