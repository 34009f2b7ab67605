// The documents that pass between host and plug-in: version, configuration, write.
#include <cerrno>

#include "device/device.h"
#include "platform/xml.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"
#include "plugin/settings.h"

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
    for (TiXmlElement* devices = root.FirstChildElement("Devices"); devices != nullptr;
         devices = devices->NextSiblingElement("Devices")) {
        for (TiXmlElement* device = devices->FirstChildElement("Device"); device != nullptr;
             device = device->NextSiblingElement("Device")) {
            if (IsRemoval(*device)) device->RemoveAttribute("ipAddress");
        }
    }
}

}  // namespace

int CPlugin::Open(_OpenParmsIn*, _OpenParmsOut* out) {
    out->Result = ResultDone;
    out->OpenExtra = 0;
    if (running()) return 0;  // the worker owns what follows; a host that opens twice keeps what it has
    BroadcastVersion();
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
    if (!ReadSettings(document, m_Reserve)) return;
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
    for (const auto& device : m_Devices) {
        if (device) device->FillDevice(AddElement(devices, "Device"));
    }
    WriteSettings(document, m_Reserve);
    FireDocument(document, static_cast<int>(EventKindConfig));
}

void CPlugin::UpdateConfig(TiXmlDocument& document) {
    TiXmlElement* const root = document.FirstChildElement();
    int delta = 0;
    if (root == nullptr || !QueryInt(*root, "Delta", delta) || delta == 0) return;
    for (TiXmlElement* devices = root->FirstChildElement("Devices"); devices != nullptr;
         devices = devices->NextSiblingElement("Devices")) {
        if (IsOurs(*devices) && UpdateDevices(*devices)) PostConfig();
    }
}

bool CPlugin::UpdateDevices(TiXmlElement& devices) {
    bool changed = false;
    for (TiXmlElement* element = devices.FirstChildElement("Device"); element != nullptr;
         element = element->NextSiblingElement("Device")) {
        int number = 0;
        if (QueryInt(*element, "Number", number) && number >= 1 && number <= MaxDevices)
            changed |= UpdateDevice(*element, number);
    }
    return changed;
}

bool CPlugin::UpdateDevice(TiXmlElement& element, int number) {
    std::unique_ptr<CDevice>& slot = m_Devices[number - 1];
    if (IsRemoval(element)) {
        const bool held = slot != nullptr;
        slot.reset();
        return held;
    }
    if (!slot) slot = std::make_unique<CDevice>(static_cast<unsigned long>(number));
    return slot->ParseDevice(&element);
}

void CPlugin::ProcessWrite(TiXmlDocument& document) {
    TiXmlElement* const root = document.FirstChildElement();
    if (root == nullptr) return;
    for (TiXmlElement* wrapper = root->FirstChildElement("PTZ"); wrapper != nullptr;
         wrapper = wrapper->NextSiblingElement("PTZ")) {
        if (IsOurs(*wrapper)) WriteDevices(wrapper);
    }
    WriteDevices(root);
}

void CPlugin::WriteDevices(TiXmlElement* element) {
    for (TiXmlElement* devices = element->FirstChildElement("Devices"); devices != nullptr;
         devices = devices->NextSiblingElement("Devices")) {
        if (!IsOurs(*devices)) continue;
        for (TiXmlElement* device = devices->FirstChildElement("Device"); device != nullptr;
             device = device->NextSiblingElement("Device")) {
            int number = 0;
            CDevice* const camera = QueryInt(*device, "Number", number) ? Device(number) : nullptr;
            if (camera != nullptr) camera->WriteDevice(device);
        }
    }
}

CDevice* CPlugin::Device(int number) {
    return number >= 1 && number <= MaxDevices ? m_Devices[number - 1].get() : nullptr;
}
