// Datagrams, clock steps and settings against one camera link in any state.
#include <vector>

#include "camera.h"
#include "device/device.h"
#include "fuzz.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"

namespace {

unsigned int frames = 0;

int TouchFrame(_EventParmsIn* in, _EventParmsOut* out) {  // every byte handed out can be read
    const auto* bytes = static_cast<const unsigned char*>(in->Data);
    const std::vector<unsigned char> copy(bytes, bytes + in->DataLength);
    out->Error = copy.size() == 1 ? 1 : 0;
    frames += in->Kind == EventKindVideo ? 1 : 0;
    return 0;
}

std::vector<char> Datagram(Input& input, std::uint8_t kind) {
    std::string bytes = kind < 200 ? std::string("\0\3", 2) + input.bytes(2) : input.bytes(4);
    if (kind >= 230) bytes = std::string("\0\6blksize\0", 10) + input.bytes(6);
    if (kind < 100) bytes += std::string(input.word() % 3000, static_cast<char>(input.byte()));
    bytes += input.bytes(kind % 128) + 'x';  // the room behind a datagram
    return {bytes.begin(), bytes.end()};
}

void Step(CDevice& device, Input& input) {
    const std::uint8_t kind = input.byte();
    fd_set sets[3] = {};
    fake_now += input.byte() < 250 ? kind : 11000;
    if (kind % 8 == 1) device.Set(sets[0], sets[1], sets[2]);
    if (kind % 8 == 2) device.IsSet(sets[1], sets[1], sets[2]);
    if (kind == 3) device.m_Input.m_nStandard = input.byte() % 2 * 5;
    if (device.m_Socket == -1 || kind % 8 < 4) return;
    fake_datagram = Datagram(input, input.byte());
    const unsigned int before = fake_sends;
    if (kind % 8 < 6)
        device.Dispatch(fake_datagram.data(), static_cast<int>(fake_datagram.size()) - 1, {});
    else
        device.Recv();
    require(fake_sends - before <= 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ConnectHost(TouchFrame);
    CDevice device(1);
    device.m_sAddress = "127.0.0.1";
    device.m_bEnabled = true;
    device.m_Input.m_nFramerate = 25;
    fake_now = 1000;
    Input input(data, size);
    require(device.Open());
    Deliver(device);  // from now on blocks are received where that picture's were
    for (Identify(device, input.word()); !input.empty();) {
        Step(device, input);
        require(device.m_dwSendTime != 0 || device.m_wBlockSize == 512);
    }
    device.Close();
    const unsigned int before = frames;
    require(device.Open());
    Deliver(device);
    require(frames == before + 1);
    return 0;
}
