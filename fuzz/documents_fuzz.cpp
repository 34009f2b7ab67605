// Configuration and write documents through the exports and the worker's handlers.
#include "camera.h"
#include "fuzz.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"
#include "support/folder.h"

namespace {

// Serves the queue on this thread, and lets the cameras take a turn.
class Plugin : public CPlugin {
public:
    Plugin() { g_Plugin = this; }
    void Serve() {
        processmsgs();
        fd_set sets[3] = {};
        for (const auto& device : m_Devices) {
            Identify(*device, 0);
            device->Set(sets[0], sets[1], sets[2]);
        }
    }
    void Forget() { m_Devices.Clear(); }

private:
    const plendix::TemporaryFolder folder;
};

void Post(CPlugin& plugin, const std::string& text, bool write) {
    _IOCTLParmsIn config = {};
    config.Code = 2;
    config.Data = text.data();
    config.DataLength = static_cast<std::uint32_t>(text.size());
    _IOCTLParmsOut configOut = {};
    _WriteParmsIn command = {};
    command.Data = text.data();
    command.DataLength = config.DataLength;
    _WriteParmsOut commandOut = {};
    write ? plugin.Write(&command, &commandOut) : plugin.IOCTL(&config, &configOut);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Plugin plugin;
    Input input(data, size);
    while (!input.empty()) {
        const bool write = (input.byte() & 1) != 0;
        Post(plugin, input.bytes(input.word()), write);
        plugin.Serve();
        fake_now += 600;
    }
    plugin.Forget();
    return 0;
}
