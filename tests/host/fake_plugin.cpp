// A plug-in that sends prepared events of cameras 1 and 2. From the environment: FAKE_FRAMES, the
// pictures of a camera; FAKE_BROKEN, the one of them that is cut short.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "pictures.h"
#include "plugin/host_records.h"

namespace {

EventCallbackFunction callback;
std::string configuration;
std::thread worker;
std::atomic<bool> stopping;

std::size_t setting(const char* name, std::size_t fallback) {
    const char* value = std::getenv(name);
    return value == nullptr ? fallback : std::stoul(value);
}

void send(_EventParmsIn event, const void* data, std::size_t length) {
    _EventParmsOut answer{};
    event.Data = data;
    event.DataLength = static_cast<std::uint32_t>(length);
    callback(&event, &answer);
}

void send_document(std::uint32_t kind, const std::string& text) {
    _EventParmsIn event{};
    event.Kind = kind;
    send(event, text.data(), text.size());
}

void send_frame(unsigned camera, bool h264, std::size_t index, const plendix::camera::Bytes& picture) {
    _EventParmsIn event{};
    event.SourceId = PluginId | camera << 8U;
    event.Kind = EventKindVideo;
    event.DataType = h264 ? DataTypeH264 : DataTypeJpeg;
    event.FrameSeconds = static_cast<std::uint32_t>(1700000000 + index / 25);
    event.FrameMilliseconds = static_cast<std::uint16_t>(index % 25 * 40);
    event.FrameType = h264 && index % plendix::key_distance != 0 ? FrameTypeDelta : FrameTypeKey;
    event.FrameFlags = index >= 5 ? FrameFlagRecording : 0;
    const bool broken = index == setting("FAKE_BROKEN", SIZE_MAX);
    send(event, picture.data(), broken ? picture.size() / 2 : picture.size());
}

void work(bool h264, const std::vector<plendix::camera::Bytes>& pictures) {
    const std::size_t frames = setting("FAKE_FRAMES", 40);
    for (std::size_t index = 0; index < frames && !stopping; ++index) {
        for (const unsigned camera : {1U, 2U})
            send_frame(camera, h264, index, pictures[index % pictures.size()]);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (const char* name : {"Camera 1", "Camera 2"})
        send_document(EventKindLog, "<?xml ?><log_msg level=\"50\">" + std::string(name) +
                                        " - did not receive block 3 of 9</log_msg>");
}

}  // namespace

extern "C" {
int Load(_LoadParmsIn* in, _LoadParmsOut*) {
    callback = in->EventCallback;
    return 0;
}
int Open(_OpenParmsIn*, _OpenParmsOut*) {
    stopping = false;
    std::puts("opened");
    // The host's own document, as a report, is what a plug-in answers with.
    std::string report = configuration;
    report.replace(report.find("Delta=\"1\""), 9, "Delta=\"0\"");
    send_document(EventKindConfig, report);
    const bool h264 = configuration.find("Standard=\"5\"") != std::string::npos;
    worker = std::thread(work, h264, plendix::encode_pictures(h264, plendix::key_distance));
    return 0;
}
int Close(_CloseParmsIn*, _CloseParmsOut*) {
    stopping = true;
    worker.join();
    return 0;
}
int IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut*) {
    configuration.assign(static_cast<const char*>(in->Data), in->DataLength);
    return 0;
}
int Unload(void*, void*) {
    return 0;
}
[[gnu::alias("Unload")]] int Read(void*, void*), Write(void*, void*), Seek(void*, void*);
}
