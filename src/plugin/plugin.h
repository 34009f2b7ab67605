// The plug-in object: the host's calls, the queue that carries its documents, and the worker
// thread that owns every camera.
#pragma once

#include <tinyxml.h>

#include <cstddef>

#include "platform/queue.h"
#include "platform/thread.h"
#include "platform/xml_guard.h"
#include "plugin/device_table.h"
#include "plugin/host_records.h"
#include "plugin/settings.h"

class CPlugin;

// The plug-in object; null before Load and after Unload.
extern CPlugin* g_Plugin;

constexpr int MaxDevices = 255;

enum MessageId {
    MsgConfig = 1,  // a configuration document
    MsgWrite = 2,   // a write document
};

// A host document on its way to the worker. The poster parses into it before it posts it.
class docmsg : public pt::message {
public:
    explicit docmsg(int messageid) : pt::message(messageid, 0) {}

    TiXmlDocument document;
    XmlVerdict verdict = {};  // reported by the worker: the poster's thread sends no events
};

class CPlugin : public pt::thread, protected pt::msgqueue {
public:
    CPlugin();
    // Stops a worker that still runs. Cameras are destroyed by Close, or here at the latest.
    ~CPlugin() override;

    // The exports of the same names, on the host's thread. Each returns 0.
    int Load(_LoadParmsIn* in, _LoadParmsOut* out);
    int Unload(_UnloadParmsIn* in, _UnloadParmsOut* out);
    int Open(_OpenParmsIn* in, _OpenParmsOut* out);
    int Close(_CloseParmsIn* in, _CloseParmsOut* out);
    int Read(_ReadParmsIn* in, _ReadParmsOut* out);
    int Write(_WriteParmsIn* in, _WriteParmsOut* out);
    int Seek(_SeekParmsIn* in, _SeekParmsOut* out);
    int IOCTL(_IOCTLParmsIn* in, _IOCTLParmsOut* out);

    // Calls the host on the calling thread and returns its result. Load has every event come here.
    int Event(_EventParmsIn* in, _EventParmsOut* out);

    // Host's thread while the worker does not run, worker thread while it does.
    void BroadcastVersion();
    void PostConfig();
    void UpdateConfig(TiXmlDocument& document);
    void ProcessWrite(TiXmlDocument& document);
    void WriteDevices(TiXmlElement* element);
    void CheckDevices();

    std::uint32_t HostContext = 0;
    EventCallbackFunction EventCallback = nullptr;
    CDeviceTable m_Devices;

protected:
    void execute() override;
    void cleanup() override;
    void msghandler(pt::message& msg) override;

private:
    void LoadSettings();
    void PostDocument(int id, const void* data, std::uint32_t length);
    bool UpdateDevices(TiXmlElement& devices);
    bool UpdateDevice(TiXmlElement& element, int number);
    void ServeDocument(docmsg& doc);
    bool ServeSockets();

    CSettings m_Settings;
};
