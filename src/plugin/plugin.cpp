#include "plugin/plugin.h"

#include "device/device.h"
#include "platform/xml_text.h"
#include "plugin/Plendix.h"

namespace {

constexpr int QueueLimit = 5000;         // documents; a full queue makes the host wait
constexpr std::uint32_t CodeConfig = 2;  // the one IOCTL code that is served

int CallHost(_EventParmsIn* in, _EventParmsOut* out) {
    return g_Plugin != nullptr ? g_Plugin->Event(in, out) : 0;
}

}  // namespace

CPlugin* g_Plugin = nullptr;

CPlugin::CPlugin() : pt::thread(false), pt::msgqueue(QueueLimit) {}

CPlugin::~CPlugin() {
    signal();
    waitfor();
}

int CPlugin::Load(_LoadParmsIn* in, _LoadParmsOut* out) {
    HostContext = in->HostContext;
    EventCallback = in->EventCallback;
    ConnectHost(CallHost);
    out->PluginId = ::PluginId;
    out->Format0 = DataTypeJpeg | DataTypeH264;
    out->Format1 = 0;
    out->Format2 = 0x3000010;
    out->Format3 = 0x2000010;
    for (std::uint32_t& zero : out->Zero)
        zero = 0;
    out->Flag0 = 0;
    out->Flag1 = 0;
    out->Flag2 = 0;
    out->Flag3 = 1;
    out->Flag4 = 0;
    out->Flag5 = 0;
    return 0;
}

int CPlugin::Unload(_UnloadParmsIn*, _UnloadParmsOut*) {
    return 0;
}

int CPlugin::Close(_CloseParmsIn*, _CloseParmsOut* out) {
    signal();
    waitfor();
    m_Devices.Clear();
    out->Result = ResultDone;
    return 0;
}

int CPlugin::Read(_ReadParmsIn*, _ReadParmsOut* out) {
    out->Result = ResultNotServed;
    return 0;
}

int CPlugin::Write(_WriteParmsIn* in, _WriteParmsOut* out) {
    if (in->Selector != 0)
        out->Result = ResultNotServed;
    else if (in->SourceId == ::PluginId)
        out->Result = ResultDone;
    else if (in->Data == nullptr || in->DataLength == 0)
        out->Result = ResultNoData;
    else
        PostDocument(MsgWrite, in->Data, in->DataLength);
    return 0;
}

int CPlugin::Seek(_SeekParmsIn*, _SeekParmsOut* out) {
    out->Result = ResultNotServed;
    return 0;
}

int CPlugin::IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut* out) {
    if (in->Code != CodeConfig)
        out->Result = ResultNotServed;
    else if (in->Data == nullptr || in->DataLength == 0)
        out->Result = ResultNoData;
    else
        PostDocument(MsgConfig, in->Data, in->DataLength);
    return 0;
}

int CPlugin::Event(_EventParmsIn* in, _EventParmsOut* out) {
    return EventCallback != nullptr ? EventCallback(in, out) : 0;
}

// Whatever could be parsed is queued: what stands before an error in the text is served.
void CPlugin::PostDocument(int id, const void* data, std::uint32_t length) {
    auto msg = std::make_unique<docmsg>(id);
    msg->verdict = ParseGuarded(msg->document, static_cast<const char*>(data), length);
    post(msg.release(), -1);
}
