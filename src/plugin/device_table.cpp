#include "plugin/device_table.h"

#include <algorithm>

#include "device/device.h"

CDeviceTable::CDeviceTable() = default;

CDeviceTable::~CDeviceTable() = default;

CDevice* CDeviceTable::Find(int number) const {
    const auto place = Place(number);
    return place != end() && (*place)->m_nNumber == static_cast<std::uint32_t>(number) ? place->get()
                                                                                       : nullptr;
}

CDevice& CDeviceTable::Make(int number) {
    if (CDevice* const device = Find(number)) return *device;
    auto device = std::make_unique<CDevice>(static_cast<unsigned long>(number));
    return **m_Devices.insert(Place(number), std::move(device));
}

bool CDeviceTable::Remove(int number) {
    if (Find(number) == nullptr) return false;
    m_Devices.erase(Place(number));
    return true;
}

void CDeviceTable::Clear() {
    m_Devices.clear();
}

// Where the camera is, or would be put.
CDeviceTable::Devices::const_iterator CDeviceTable::Place(int number) const {
    return std::lower_bound(
        begin(), end(), static_cast<std::uint32_t>(number),
        [](const auto& device, std::uint32_t wanted) { return device->m_nNumber < wanted; });
}
