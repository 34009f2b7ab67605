#include "device/device.h"

CDevice::CDevice(unsigned long number) : m_nNumber(static_cast<std::uint32_t>(number)), m_Input(number, 0) {}

CDevice::~CDevice() {
    Close();
}

void CDevice::LinkReset() {
    static_cast<CRegisterRecords&>(*this) = CRegisterRecords();
    m_Input.Reset();
}

void CDevice::DisableReset() {
    LinkReset();
    m_wIO = 0;
    m_nInputState = -1;
    m_nOutputState = -1;
    m_Actions.clear();
}

bool CDevice::InitInput() {
    if (!m_Sensor.IsValid() || m_Input.m_Active.IsValid()) return false;
    m_Input.Init(m_Sensor, m_wModel % 10);
    return m_Input.m_Active.IsValid();
}
