// A plug-in that sends prepared events for each camera it was given. From the environment:
// FAKE_FRAMES, the pictures a camera sends; FAKE_BROKEN, the one of them that is cut short;
// FAKE_PACE_MS, the time between pictures.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "pictures.h"
#include "plugin/host_records.h"

namespace {

EventCallbackFunction callback;
std::string configuration;
std::thread worker;
std::atomic<bool> stopping;

int setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value == nullptr ? fallback : std::atoi(value);
}

void send(_EventParmsIn event, const void* data, std::size_t length) {
    _EventParmsOut answer{sizeof answer, 1, 0};
    event.Size = sizeof event;
    event.Version = 1;
    event.Data = data;
    event.DataLength = static_cast<std::uint32_t>(length);
    callback(&event, &answer);
}

void send_document(std::uint32_t kind, const std::string& text) {
    _EventParmsIn event{};
    event.SourceId = PluginId;
    event.Kind = kind;
    event.DataType = DataTypeXml;
    send(event, text.data(), text.size());
}

void send_frame(unsigned camera, bool h264, int index, const std::vector<std::uint8_t>& picture) {
    _EventParmsIn event{};
    event.SourceId = PluginId | camera << 8U;
    event.Kind = EventKindVideo;
    event.DataType = h264 ? DataTypeH264 : DataTypeJpeg;
    event.FrameSeconds = 1700000000U + static_cast<std::uint32_t>(index / 25);
    event.FrameMilliseconds = static_cast<std::uint16_t>(index % 25 * 40);
    event.FrameType = h264 && index % 10 != 0 ? FrameTypeDelta : FrameTypeKey;
    event.FrameFlags = index >= 5 ? FrameFlagRecording : 0;
    const bool broken = index == setting("FAKE_BROKEN", -1);
    send(event, picture.data(), broken ? picture.size() / 2 : picture.size());
}

void work(std::vector<unsigned> cameras, bool h264) {
    const auto pictures = encode_pictures(h264, 20, 96, 64);
    const int frames = setting("FAKE_FRAMES", 30);
    for (int index = 0; index < frames && !stopping; ++index) {
        for (const unsigned camera : cameras)
            send_frame(camera, h264, index, pictures[size_t(index) % 20]);
        std::this_thread::sleep_for(std::chrono::milliseconds(setting("FAKE_PACE_MS", 1)));
    }
    for (const unsigned camera : cameras) {
        const std::string name = "Camera " + std::to_string(camera);
        send_document(EventKindLog,
                      "<?xml ?><log_msg level=\"50\">" + name + " - did not receive block 3 of 9</log_msg>");
    }
}

std::vector<unsigned> configured_cameras() {
    std::vector<unsigned> cameras;
    const char* const head = "<Device Number=\"";
    for (const char* at = std::strstr(configuration.c_str(), head); at != nullptr;
         at = std::strstr(at + 1, head)) {
        unsigned number = 0;
        char rest[12] = "";
        if (std::sscanf(at + std::strlen(head), "%u\" %11s", &number, rest) == 2 && rest[0] == 'E')
            cameras.push_back(number);
    }
    return cameras;
}

}  // namespace

extern "C" {
int Load(_LoadParmsIn* in, _LoadParmsOut*) {
    callback = in->EventCallback;
    return 0;
}
int Unload(_UnloadParmsIn*, _UnloadParmsOut*) {
    return 0;
}
int Open(_OpenParmsIn*, _OpenParmsOut*) {
    stopping = false;
    std::puts("opened");
    // The host's own document, as a report, is what a plug-in answers with.
    std::string report = configuration;
    report.replace(report.find("Delta=\"1\""), 9, "Delta=\"0\"");
    send_document(EventKindConfig, report);
    worker =
        std::thread(work, configured_cameras(), configuration.find("Standard=\"5\"") != std::string::npos);
    return 0;
}
int Close(_CloseParmsIn*, _CloseParmsOut*) {
    stopping = true;
    worker.join();
    return 0;
}
int Read(_ReadParmsIn*, _ReadParmsOut*) {
    return 0;
}
int Write(_WriteParmsIn*, _WriteParmsOut*) {
    return 0;
}
int Seek(_SeekParmsIn*, _SeekParmsOut*) {
    return 0;
}
int IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut*) {
    configuration.assign(static_cast<const char*>(in->Data), in->DataLength);
    return 0;
}
}
