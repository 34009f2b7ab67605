// A small host: loads the driver, has it stream JPEG of one camera and H.264 of another, and keeps
// every frame, so that what two builds of the driver deliver can be compared byte by byte. In C, so that
// it runs where there is no C++ library.
// Usage: frame_files LIBRARY FOLDER FRAMES JPEG_ADDRESS H264_ADDRESS
// Writes FOLDER/NUMBER-INDEX: what the record says of the frame in one line, then its bytes. Of
// H.264 the frames up to the next key frame, which comes by the clock.
#include <dlfcn.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "plugin/host_records.h"

struct Stream {
    atomic_int frames;  // kept
    atomic_bool ended;
};

// Written by the driver's worker, read by the main thread.
static struct Stream streams[2];
static const char* folder;
static int wanted;
static atomic_bool failed;

static bool write_frame(const _EventParmsIn* event, uint32_t camera, int index) {
    char name[4096];
    snprintf(name, sizeof(name), "%s/%u-%d", folder, (unsigned)camera, index);
    FILE* const file = fopen(name, "wb");
    if (file == NULL) return false;
    fprintf(file, "type %d flags %d format %x source %x map ", (int)event->FrameType, (int)event->FrameFlags,
            (unsigned)event->DataType, (unsigned)event->SourceId);
    for (uint32_t i = 0; i < event->MotionLength; ++i)
        fprintf(file, "%02x", event->MotionMap[i]);
    fputc('\n', file);
    const bool written = fwrite(event->Data, 1, event->DataLength, file) == event->DataLength;
    return fclose(file) == 0 && written;
}

static int on_event(_EventParmsIn* event, _EventParmsOut* answer) {
    answer->Error = 0;
    if (event->Kind != EventKindVideo) return 0;
    const uint32_t camera = event->SourceId >> 8 & 0xFF;
    if (camera < 1 || camera > 2) return 0;
    struct Stream* const stream = &streams[camera - 1];
    const bool next_group =
        event->DataType == DataTypeH264 && event->FrameType == FrameTypeKey && stream->frames > 0;
    if (next_group || stream->frames == wanted) stream->ended = true;
    if (stream->ended) return 0;
    if (!write_frame(event, camera, stream->frames)) failed = true;
    ++stream->frames;
    return 0;
}

static void configure(IOCTLFunction control, const char* number, const char* address, const char* standard) {
    char text[1024];
    const int length = snprintf(text, sizeof(text),
                                "<Velm Delta='1'><Devices ID='2162688'><Device Number='%s' Enabled='1' "
                                "ipAddress='%s'><Codec><Encoder>"
                                "<Channel Number='0' Width='640' Height='480' Framerate='25' Standard='%s'/>"
                                "</Encoder></Codec></Device></Devices></Velm>",
                                number, address, standard);
    _IOCTLParmsIn in = {sizeof(in), 1, 2, {0}, (uint32_t)length, text};
    _IOCTLParmsOut out = {0};
    control(&in, &out);
}

static bool wait_for_frames(void) {
    for (int tenths = 0; !(streams[0].ended && streams[1].ended) && !failed; ++tenths) {
        if (tenths == 600) return false;
        usleep(100000);
    }
    return !failed;
}

static bool stream(void* library, char** addresses) {
    const LoadFunction load = (LoadFunction)dlsym(library, "Load");
    const OpenFunction open = (OpenFunction)dlsym(library, "Open");
    const IOCTLFunction control = (IOCTLFunction)dlsym(library, "IOCTL");
    const CloseFunction close = (CloseFunction)dlsym(library, "Close");
    const UnloadFunction unload = (UnloadFunction)dlsym(library, "Unload");
    if (load == NULL || open == NULL || control == NULL || close == NULL || unload == NULL) return false;
    _LoadParmsIn load_in = {sizeof(load_in), 1, 0, on_event};
    _LoadParmsOut load_out = {0};
    _OpenParmsIn open_in = {sizeof(open_in), 1};
    _OpenParmsOut open_out = {0};
    _CloseParmsIn close_in = {sizeof(close_in), 1};
    _CloseParmsOut close_out = {0};
    _UnloadParmsIn unload_in = {sizeof(unload_in), 1};
    _UnloadParmsOut unload_out = {0};
    load(&load_in, &load_out);
    configure(control, "1", addresses[0], "0");
    configure(control, "2", addresses[1], "5");
    open(&open_in, &open_out);
    const bool done = wait_for_frames();
    close(&close_in, &close_out);
    unload(&unload_in, &unload_out);
    return done;
}

int main(int argc, char** argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: frame_files LIBRARY FOLDER FRAMES JPEG_ADDRESS H264_ADDRESS\n");
        return 2;
    }
    folder = argv[2];
    wanted = atoi(argv[3]);
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) fprintf(stderr, "%s\n", dlerror());
    if (library == NULL || chdir(argv[2]) != 0) return 1;  // for the settings file
    const bool done = stream(library, argv + 4);
    fprintf(stderr, "%d JPEG and %d H.264 frames\n", streams[0].frames, streams[1].frames);
    return done ? 0 : 1;
}
