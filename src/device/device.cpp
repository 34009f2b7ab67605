#include "device/device.h"

CDevice::CDevice(unsigned long number) : m_nNumber(static_cast<std::uint32_t>(number)), m_Input(number, 0) {}

CDevice::~CDevice() {
    Close();
}

// Back to "not read yet": the camera is identified again. Trigger and relay states are kept, so
// that a reconnection reports only what has changed meanwhile.
void CDevice::LinkReset() {
    m_wBrightness = 0;
    m_wModel = 0;
    m_wFirmware = 0;
    m_wMotion = 65535;
    m_wZones = 0;
    m_wThreshold = 0;
    m_wReg79 = 0;
    m_wSaturation = 65535;
    m_wSharpness = 65535;
    m_Sensor = CRectangle();
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
