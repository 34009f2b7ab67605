// A small host: loads the driver, has it stream JPEG of one camera and H.264 of another, and keeps
// every frame, so that what two builds of the driver deliver can be compared byte by byte.
// Usage: frame_files LIBRARY FOLDER FRAMES JPEG_ADDRESS H264_ADDRESS
// Writes FOLDER/NUMBER-INDEX: what the record says of the frame in one line, then its bytes. Of
// H.264 the frames up to the next key frame, which comes by the clock.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "plugin/host_records.h"

namespace {

struct Stream {
    std::atomic<int> frames{0};  // kept
    std::atomic<bool> ended{false};
};

// Written by the driver's worker, read by the main thread.
Stream streams[2];
std::string folder;
int wanted = 0;
std::atomic<bool> failed{false};

bool write_frame(const _EventParmsIn& event, std::uint32_t camera, int index) {
    const std::string name = folder + "/" + std::to_string(camera) + "-" + std::to_string(index);
    std::FILE* const file = std::fopen(name.c_str(), "wb");
    if (file == nullptr) return false;
    std::fprintf(file, "type %d flags %d format %x source %x map ", event.FrameType, event.FrameFlags,
                 event.DataType, event.SourceId);
    for (std::uint32_t i = 0; i < event.MotionLength; ++i)
        std::fprintf(file, "%02x", event.MotionMap[i]);
    std::fputc('\n', file);
    const bool written = std::fwrite(event.Data, 1, event.DataLength, file) == event.DataLength;
    return std::fclose(file) == 0 && written;
}

int on_event(_EventParmsIn* event, _EventParmsOut* answer) {
    answer->Error = 0;
    if (event->Kind != EventKindVideo) return 0;
    const std::uint32_t camera = event->SourceId >> 8 & 0xFF;
    if (camera < 1 || camera > 2) return 0;
    Stream& stream = streams[camera - 1];
    const bool next_group =
        event->DataType == DataTypeH264 && event->FrameType == FrameTypeKey && stream.frames > 0;
    if (next_group || stream.frames == wanted) stream.ended = true;
    if (stream.ended) return 0;
    if (!write_frame(*event, camera, stream.frames)) failed = true;
    ++stream.frames;
    return 0;
}

void configure(IOCTLFunction control, const char* number, const char* address, const char* standard) {
    const std::string text =
        std::string("<Velm Delta='1'><Devices ID='2162688'><Device Number='") + number +
        "' Enabled='1' ipAddress='" + address +
        "'><Codec><Encoder><Channel Number='0' Width='640' Height='480' Framerate='25' Standard='" +
        standard + "'/></Encoder></Codec></Device></Devices></Velm>";
    _IOCTLParmsIn in = {sizeof(in), 1, 2, {}, static_cast<std::uint32_t>(text.size()), text.c_str()};
    _IOCTLParmsOut out = {};
    control(&in, &out);
}

bool wait_for_frames() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(streams[0].ended && streams[1].ended) && !failed) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return !failed;
}

bool stream(void* library, char** addresses) {
    const auto load = reinterpret_cast<LoadFunction>(dlsym(library, "Load"));
    const auto open = reinterpret_cast<OpenFunction>(dlsym(library, "Open"));
    const auto control = reinterpret_cast<IOCTLFunction>(dlsym(library, "IOCTL"));
    const auto close = reinterpret_cast<CloseFunction>(dlsym(library, "Close"));
    const auto unload = reinterpret_cast<UnloadFunction>(dlsym(library, "Unload"));
    if (load == nullptr || open == nullptr || control == nullptr || close == nullptr || unload == nullptr)
        return false;
    _LoadParmsIn load_in = {sizeof(load_in), 1, 0, on_event};
    _LoadParmsOut load_out = {};
    _OpenParmsIn open_in = {sizeof(open_in), 1};
    _OpenParmsOut open_out = {};
    _CloseParmsIn close_in = {sizeof(close_in), 1};
    _CloseParmsOut close_out = {};
    _UnloadParmsIn unload_in = {sizeof(unload_in), 1};
    _UnloadParmsOut unload_out = {};
    load(&load_in, &load_out);
    configure(control, "1", addresses[0], "0");
    configure(control, "2", addresses[1], "5");
    open(&open_in, &open_out);
    const bool done = wait_for_frames();
    close(&close_in, &close_out);
    unload(&unload_in, &unload_out);
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: frame_files LIBRARY FOLDER FRAMES JPEG_ADDRESS H264_ADDRESS\n");
        return 2;
    }
    folder = argv[2];
    wanted = std::atoi(argv[3]);
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) std::fprintf(stderr, "%s\n", dlerror());
    if (library == nullptr || chdir(argv[2]) != 0) return 1;  // for the settings file
    const bool done = stream(library, argv + 4);
    std::fprintf(stderr, "%d JPEG and %d H.264 frames\n", streams[0].frames.load(), streams[1].frames.load());
    return done ? 0 : 1;
}
