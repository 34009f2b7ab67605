// The cameras by number. Owns them.
//
// Host's thread while the worker does not run, worker thread while it does.
#pragma once

#include <memory>
#include <vector>

class CDevice;

// Kept in the order of their numbers and without gaps: a pass costs what the cameras cost that are
// there. Removing one and clearing destroy the cameras; pointers to the others stay valid.
class CDeviceTable {
public:
    using Devices = std::vector<std::unique_ptr<CDevice>>;

    CDeviceTable();
    CDeviceTable(const CDeviceTable&) = delete;
    CDeviceTable& operator=(const CDeviceTable&) = delete;
    ~CDeviceTable();

    CDevice* Find(int number) const;  // null when there is none
    CDevice& Make(int number);        // the one that is there, or a new one
    bool Remove(int number);          // true when there was one
    void Clear();

    Devices::const_iterator begin() const { return m_Devices.begin(); }
    Devices::const_iterator end() const { return m_Devices.end(); }

private:
    Devices::const_iterator Place(int number) const;

    Devices m_Devices;
};
