// One camera connection: its socket, the mirror of its registers, and the state machine that
// identifies the camera, settles its registers, polls its trigger input, drives its relay output
// and requests pictures, one transfer at a time.
//
// Worker thread only (host's thread while the worker does not run). Holds the 2 MiB frame buffer
// of its input. All times are readings of timeGetTime unless they are datetimes.
#pragma once

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "device/registers.h"
#include "input/input.h"
#include "platform/clock.h"

class TiXmlElement;

class CDevice : public CRegisterRecords {
public:
    explicit CDevice(unsigned long number);
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;
    ~CDevice();

    // Before select: opens a closed link or issues the next request. Returns the descriptor that
    // was added to the read set, -1 when there is none.
    int Set(fd_set& readset, CPassClock& clock);

    // After select, with a clock that was not read before: receives one datagram, or ends a stalled
    // transfer. True when the host sees a change.
    bool IsSet(const fd_set& readset, CPassClock& clock);

    // The same for a camera by itself. The other sets are not used.
    int Set(fd_set& readset, fd_set& writeset, fd_set& exceptset);
    bool IsSet(const fd_set& readset, const fd_set& writeset, const fd_set& exceptset);

    // Applies a Device element of a configuration document; true when the host sees a change.
    bool ParseDevice(TiXmlElement* element);
    // Fills an empty Device element.
    void FillDevice(TiXmlElement& element);
    // Applies a Device element of a write document.
    void WriteDevice(TiXmlElement* element);

    // The link. Failures are logged and close it; the next pass opens it again.
    bool Open();
    void Close();
    void Send(const char* data, int length);
    void Request(const char* name);
    void Acknowledge(unsigned short block);
    int Recv();

    // Takes one received datagram; buffer must have room for a byte behind length. Nonzero when the
    // host sees a change. Recv does the same with what it receives.
    int Dispatch(char* buffer, int length, const sockaddr_in& sender);

    // The registers.
    void Read(char reg);
    void Write(char reg, unsigned short value);
    bool Parameter(char reg, unsigned short value);

    // Issues the next request of an idle link, if one is due.
    void ReadWrite(std::uint32_t now = timeGetTime());

    void FireTrigger(const char* name, int state, const long long& time);

    const std::uint32_t m_nNumber;  // 1 to 255
    bool m_bEnabled = false;
    std::string m_sAddress;  // host name or dotted IPv4
    CInput m_Input;

    // The link. m_dwSendTime 0 means idle, and then the block size is 512, which stands for a
    // transfer without option acknowledgement.
    sockaddr_in m_Peer = {};
    int m_Socket = -1;
    std::uint32_t m_dwSendTime = 0;
    std::uint16_t m_wBlockSize = 512;
    char m_cRegister = 0;  // register of the outstanding transfer; 0 for video

    // Trigger input and relay output. A link reset keeps their states, so that a reconnection reports
    // only what has changed meanwhile.
    std::uint16_t m_wIO = 0;  // the last answer
    std::uint32_t m_dwPollTime = 0;
    std::uint32_t m_dwOutputTime = 0;
    std::string m_sInputName = "Trigger";
    std::string m_sOutputName = "Alarm";
    bool m_bNormallyClosed = false;  // a low input level is active
    bool m_bNormallyLow = false;     // the inactive output is low
    int m_nInputState = -1;          // last reported: 0 inactive, 1 active, -1 unknown
    int m_nOutputState = -1;
    ActionMap m_Actions;  // alarm actions that hold the output active

private:
    void LinkReset();
    void DisableReset();
    bool InitInput();  // true when the input was due and has its active rectangle now

    int RecvNext(char* place, char* buffer);
    int Received(char* buffer, ssize_t received);
    int Take(char* datagram, int length);
    int TakeData(const char* datagram, int length);
    void TakeOptions(char* datagram, int length);

    bool Identify();
    bool SettlePicture();
    bool ReadSensor();
    bool SettleMotion();
    bool ServeInputOutput(std::uint32_t now);
    void RequestVideo(std::uint32_t now);
    void SwitchOff(const char* format, unsigned int value);

    bool StoreRegister(char reg, unsigned short value);
    void StoreQuietRegister(char reg, unsigned short value);
    int ZoneScale() const;
    std::uint16_t HalfZoneCount() const;
    bool WriteThreshold();

    void DecodeInput(unsigned short value);
    void UpdateOutput();
    void WriteOutput(const TiXmlElement& element);

    bool ParseVideo(TiXmlElement& element);
    bool ParseCodec(TiXmlElement& element);
    bool ParseTrigger(TiXmlElement& element);
    void FillCodec(TiXmlElement& codec);
    void FillTrigger(TiXmlElement& trigger) const;
};
