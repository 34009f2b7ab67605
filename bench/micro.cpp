// The parts of the driver by themselves. Run by scripts/bench; --benchmark_filter chooses.
#include <benchmark/benchmark.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>

#include "device/device.h"
#include "device/registers.h"
#include "media/jpeg_header.h"
#include "media/parameter_sets.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"

namespace {

constexpr unsigned short block_size = 1450;

// A host that looks at nothing; the settings file goes to a folder in memory where there is one.
struct Host {
    Host() {
        g_Plugin = &plugin;
        ConnectHost([](_EventParmsIn*, _EventParmsOut*) { return 0; });
        std::filesystem::current_path(mkdtemp(folder));
    }
    ~Host() {
        g_Plugin = nullptr;
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder);
    }
    char folder[32] = "/dev/shm/plendix-bench-XXXXXX";
    CPlugin plugin;
};

void add_cameras(CPlugin& plugin, std::int64_t count) {
    for (int number = 1; number <= count; ++number) {
        CDevice* const device = &plugin.m_Devices.Make(number);
        device->m_bEnabled = true;
        device->m_sAddress = "127.0.1.1";
        device->m_wModel = 105;
        device->m_Sensor = {0, 0, 1600, 1200};
        device->m_Input.Init(device->m_Sensor, 5);
    }
}

void jpeg_header(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<unsigned char> header;
        CalculateHeader(header, 1600, 1200, 8);
        benchmark::DoNotOptimize(header.data());
    }
}
BENCHMARK(jpeg_header);

void parameter_sets(benchmark::State& state) {
    unsigned char sets[32];
    for (auto _ : state)
        benchmark::DoNotOptimize(create_sps_pps(1600, 1200, 0, sets, sizeof(sets)));
}
BENCHMARK(parameter_sets);

void block_filing(benchmark::State& state) {
    const Host host;
    CInput input(1, 0);
    const std::vector<char> block(block_size, 'x');
    unsigned short number = 0;
    for (auto _ : state)
        input.Response(block.data(), block_size, block_size,
                       number = static_cast<unsigned short>(number % 200 + 1));
}
BENCHMARK(block_filing);

// From the trailer to the record in the host's callback; the range is the blocks of the picture.
void frame_completion(benchmark::State& state, bool h264) {
    const Host host;
    CInput input(1, 0);
    const std::vector<char> block(block_size, 'x');
    char trailer[93] = {};
    trailer[80] = 4;
    trailer[81] = 8;
    trailer[86] = trailer[88] = 4;  // 1024 x 1024
    const auto blocks = static_cast<unsigned short>(state.range(0));
    for (unsigned short number = 1; number <= blocks; ++number)
        input.Response(block.data(), block_size, block_size, number);
    for (auto _ : state)
        input.Response(trailer, h264 ? 93 : 90, block_size, static_cast<unsigned short>(blocks + 1));
}
BENCHMARK_CAPTURE(frame_completion, jpeg, false)->Arg(14)->Arg(1310);
BENCHMARK_CAPTURE(frame_completion, h264, true)->Arg(14)->Arg(1310);

// Built, printed, saved and sent, after a change of one camera.
void configuration_document(benchmark::State& state) {
    Host host;
    add_cameras(host.plugin, state.range(0));
    int sharpness = 0;
    for (auto _ : state) {
        sharpness = (sharpness + 1) % 100;
        host.plugin.m_Devices.Find(1)->Parameter(RegSharpness, static_cast<unsigned short>(sharpness));
        host.plugin.PostConfig();
    }
}
BENCHMARK(configuration_document)->Arg(1)->Arg(64)->Arg(128)->Arg(255)->Unit(benchmark::kMicrosecond);

// What a camera's answer to a register request costs behind recvfrom, without the system calls.
void register_step(benchmark::State& state) {
    const Host host;
    CDevice device(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(device.Parameter(RegSensorLeft, 8));
}
BENCHMARK(register_step);

}  // namespace

BENCHMARK_MAIN();
