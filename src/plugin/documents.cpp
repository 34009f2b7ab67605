// The documents that pass between host and plug-in: version, configuration, write.
#include <cerrno>

#include "device/device.h"
#include "platform/xml.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"

namespace {

// Begins a document of the plug-in's own, which reports a state: Delta is 0. Returns its root.
TiXmlElement& BeginReport(TiXmlDocument& document) {
    AddDeclaration(document);
    TiXmlElement& root = AddElement(document, "Velm");
    root.SetAttribute("Delta", 0);
    return root;
}

bool IsOurs(const TiXmlElement& element) {
    return HasInt(element, "ID", static_cast<int>(PluginId));
}

bool IsRemoval(const TiXmlElement& device) {
    const char* address = device.Attribute("ipAddress");
    return address != nullptr && *address == '\0';
}

// A camera that was saved without an address is no removal.
void KeepAddressless(TiXmlElement& root) {
    ForEach(&root, "Devices", [](TiXmlElement& devices) {
        ForEach(&devices, "Device", [](TiXmlElement& device) {
            if (IsRemoval(device)) device.RemoveAttribute("ipAddress");
        });
    });
}

}  // namespace

int CPlugin::Open(_OpenParmsIn*, _OpenParmsOut* out) {
    // The worker of a host that opens twice owns what follows: the host keeps what it has.
    const bool again = running();
    if (!again) BroadcastVersion();
    out->Result = ResultDone;
    out->OpenExtra = 0;
    if (again) return 0;
    LoadSettings();
    PostConfig();
    if (!start()) Trace(LogError, "create thread error %d", EAGAIN);
    return 0;
}

void CPlugin::BroadcastVersion() {
    TiXmlDocument document;
    TiXmlElement& module = AddElement(AddElement(BeginReport(document), "Modules"), "Module");
    module.SetAttribute("Name", PluginName);
    module.SetAttribute("ID", static_cast<int>(PluginId));
    module.SetAttribute("Version", GetVersion());
    FireDocument(document, static_cast<int>(EventKindConfig));
}

void CPlugin::LoadSettings() {
    TiXmlDocument document;
    if (!m_Settings.Read(document)) return;
    if (TiXmlElement* root = document.FirstChildElement()) {
        root->SetAttribute("Delta", 1);  // saved as a report, applied as a change
        KeepAddressless(*root);
        UpdateConfig(document);
    }
}

void CPlugin::PostConfig() {
    TiXmlDocument document;
    TiXmlElement& devices = AddElement(BeginReport(document), "Devices");
    devices.SetAttribute("ID", static_cast<int>(PluginId));
    devices.SetAttribute("Description", PluginName);
    devices.SetAttribute("MaxDevices", MaxDevices);
    for (const auto& device : m_Devices)
        device->FillDevice(AddElement(devices, "Device"));
    m_Settings.Write(document);
    FireDocument(document, static_cast<int>(EventKindConfig));
}

void CPlugin::UpdateConfig(TiXmlDocument& document) {
    TiXmlElement* const root = document.FirstChildElement();
    int delta = 0;
    if (root == nullptr || !QueryInt(*root, "Delta", delta) || delta == 0) return;
    ForEach(root, "Devices", [this](TiXmlElement& devices) {
        if (IsOurs(devices) && UpdateDevices(devices)) PostConfig();
    });
}

bool CPlugin::UpdateDevices(TiXmlElement& devices) {
    bool changed = false;
    ForEach(&devices, "Device", [&](TiXmlElement& element) {
        int number = 0;
        if (QueryInt(element, "Number", number) && number >= 1 && number <= MaxDevices)
            changed |= UpdateDevice(element, number);
    });
    return changed;
}

bool CPlugin::UpdateDevice(TiXmlElement& element, int number) {
    if (IsRemoval(element)) return m_Devices.Remove(number);
    return m_Devices.Make(number).ParseDevice(&element);
}

void CPlugin::ProcessWrite(TiXmlDocument& document) {
    TiXmlElement* const root = document.FirstChildElement();
    if (root == nullptr) return;
    ForEach(root, "PTZ", [this](TiXmlElement& wrapper) {
        if (IsOurs(wrapper)) WriteDevices(&wrapper);
    });
    WriteDevices(root);
}

void CPlugin::WriteDevices(TiXmlElement* element) {
    ForEach(element, "Devices", [this](TiXmlElement& devices) {
        if (!IsOurs(devices)) return;
        ForEach(&devices, "Device", [this](TiXmlElement& device) {
            int number = 0;
            CDevice* const camera = QueryInt(device, "Number", number) ? m_Devices.Find(number) : nullptr;
            if (camera != nullptr) camera->WriteDevice(&device);
        });
    });
}
