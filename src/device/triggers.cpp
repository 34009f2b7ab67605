// The trigger input and the relay output, both behind one register.
#include <tinyxml.h>

#include "device/device.h"
#include "device/registers.h"
#include "platform/xml.h"
#include "plugin/Plendix.h"

void CDevice::DecodeInput(unsigned short value) {
    if ((value & IOPoll) != 0) return;  // the answer to a write
    const bool high = (value & IOInputLevel) != 0;
    const int state = high != m_bNormallyClosed ? 1 : 0;
    if (state == m_nInputState) return;
    m_nInputState = state;
    FireTrigger("Input", state, pt::now(true));
}

// The camera is told the level in every cycle: it may have been restarted.
void CDevice::UpdateOutput() {
    const pt::datetime now = pt::now(true);
    const int state = ExpireActions(m_Actions, now) ? 1 : 0;
    if (state != m_nOutputState) {
        m_nOutputState = state;
        FireTrigger("Output", state, now);
    }
    const bool high = (state != 0) == m_bNormallyLow;
    Write(RegIO, high ? IOOutputHigh : IOOutputLow);
}

void CDevice::WriteOutput(const TiXmlElement& element) {
    int seconds = 0;
    int milliseconds = 0;
    int action = 0;
    int alarm = 0;
    if (HasInt(element, "Number", 0) && QueryInt(element, "Time", seconds) &&
        QueryInt(element, "Milliseconds", milliseconds) && QueryInt(element, "Action", action) &&
        QueryInt(element, "Alarm", alarm))
        SetAction(m_Actions, action, alarm, seconds, milliseconds);
}

void CDevice::FireTrigger(const char* name, int state, const long long& time) {
    TiXmlElement trigger("Trigger");
    TiXmlElement& event = AddElement(trigger, name);
    event.SetAttribute("Number", 0);
    event.SetAttribute("Alarm", state);
    SetTime(event, time);
    FireDeviceEvent(m_nNumber, trigger);
}
