// The link to one camera: a reduced TFTP client on UDP (RFC 1350, RFC 2347, RFC 2348). Unlike
// RFC 1350 asks, nothing is retransmitted and the sender's transfer identifier is not checked:
// the camera is asked again for the next picture instead.
#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "device/device.h"
#include "platform/clock.h"
#include "plugin/Plendix.h"

namespace {

constexpr std::uint16_t ServerPort = 69;
constexpr std::uint16_t NoBlockSize = 512;  // RFC 1350's own: no option acknowledgement came
constexpr std::size_t OpcodeSize = 2;
constexpr std::size_t LongestName = 4074;
constexpr int DatagramSize = 65536;
constexpr int HeaderSize = 4;  // opcode and block number

// Behind the name: the mode and, as the block size, the largest that an Ethernet frame carries whole.
constexpr char RequestTail[] =
    "\0netascii\0blksize\0"
    "1450";

enum Opcode { OpcodeRead = 1, OpcodeData = 3, OpcodeAck = 4, OpcodeOptionAck = 6 };

unsigned int Byte(char byte) {
    return static_cast<unsigned char>(byte);
}
unsigned int Word(const char* bytes) {
    return Byte(bytes[0]) << 8 | Byte(bytes[1]);
}

// What strtoul makes of the text where long has 32 bits: a number beyond them is the largest.
std::uint32_t ParseUnsigned(const char* text) {
    const long long number = std::strtoll(text, nullptr, 10);
    const bool fits = number >= -static_cast<long long>(UINT32_MAX) && number <= UINT32_MAX;
    return fits ? static_cast<std::uint32_t>(number) : UINT32_MAX;
}

// Reentrant, unlike gethostbyname: the host's own threads may resolve names too.
bool Resolve(const char* name, in_addr& address) {
    hostent entry = {};
    char buffer[8192];
    hostent* host = nullptr;
    int error = 0;
    gethostbyname_r(name, &entry, buffer, sizeof(buffer), &host, &error);
    if (host == nullptr || host->h_addr_list[0] == nullptr) return false;
    const auto length = static_cast<std::size_t>(host->h_length);
    std::memcpy(&address, host->h_addr_list[0], std::min(length, sizeof(address)));
    return true;
}

int NewSocket() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (descriptor < FD_SETSIZE) return descriptor;
    close(descriptor);  // select cannot watch it
    errno = EMFILE;
    return -1;
}

// Of DatagramSize bytes at most. Without a datagram the sender is left as it was.
inline ssize_t ReceiveFrom(int descriptor, char* datagram, sockaddr_in& sender) {
    socklen_t length = sizeof(sender);
    return recvfrom(descriptor, datagram, DatagramSize, 0, reinterpret_cast<sockaddr*>(&sender), &length);
}

}  // namespace

bool CDevice::Open() {
    m_Peer.sin_family = AF_INET;
    m_Peer.sin_addr.s_addr = inet_addr(m_sAddress.c_str());
    if (m_Peer.sin_addr.s_addr == INADDR_NONE && !Resolve(m_sAddress.c_str(), m_Peer.sin_addr)) {
        Trace(LogError, "%s get host by name error %d", m_sAddress.c_str(), WSAGetLastError());
        return false;
    }
    m_Socket = NewSocket();
    if (m_Socket == -1) Trace(LogError, "%s create socket error %d", m_sAddress.c_str(), WSAGetLastError());
    return m_Socket != -1;
}

void CDevice::Close() {
    m_Peer = {};
    m_wBlockSize = NoBlockSize;
    m_dwSendTime = 0;
    m_cRegister = 0;
    if (m_Socket != -1 && close(m_Socket) != 0)
        Trace(LogError, "%s close socket error %d", m_sAddress.c_str(), WSAGetLastError());
    m_Socket = -1;
}

void CDevice::Send(const char* data, int length) {
    const ssize_t sent = sendto(m_Socket, data, static_cast<std::size_t>(length), 0,
                                reinterpret_cast<const sockaddr*>(&m_Peer), sizeof(m_Peer));
    if (sent < 0) {
        if (WSAGetLastError() == EAGAIN) return;
        Trace(LogError, "%s send error %d", m_sAddress.c_str(), WSAGetLastError());
        Close();
    } else if (sent < length) {
        Trace(LogWarning, "%s sent %d out of %d", m_sAddress.c_str(), static_cast<int>(sent), length);
        Close();
    } else {
        const std::uint32_t now = timeGetTime();
        m_dwSendTime = now != 0 ? now : now - 1;  // 0 would read as idle
    }
}

void CDevice::Request(const char* name) {
    const std::size_t length = std::strlen(name);
    if (length > LongestName) {
        Trace(LogError, "%s request name too long: %zu bytes", m_sAddress.c_str(), length);
        return;
    }
    char packet[OpcodeSize + LongestName + sizeof(RequestTail)];
    packet[0] = 0;
    packet[1] = OpcodeRead;
    std::memcpy(packet + OpcodeSize, name, length);
    std::memcpy(packet + OpcodeSize + length, RequestTail, sizeof(RequestTail));
    m_Peer.sin_port = htons(ServerPort);
    Send(packet, static_cast<int>(OpcodeSize + length + sizeof(RequestTail)));
}

void CDevice::Acknowledge(unsigned short block) {
    const char packet[HeaderSize] = {0, OpcodeAck, static_cast<char>(block >> 8),
                                     static_cast<char>(block & 0xFF)};
    Send(packet, sizeof(packet));
}

// The peer is the camera's transfer port from here on.
int CDevice::Recv() {
    char buffer[DatagramSize + 1];  // and the terminator behind an option list
    const bool video = m_wBlockSize != NoBlockSize && m_cRegister == 0;
    char* const place = video ? m_Input.NextPlace(m_wBlockSize, DatagramSize) : nullptr;
    return place != nullptr ? RecvNext(place, buffer)
                            : Received(buffer, ReceiveFrom(m_Socket, buffer, m_Peer));
}

// Receives to where the block belongs that comes next, its header over the end of the block before,
// which is put back. Whatever else came goes the way of all datagrams: what it has overwritten there
// are remains of an earlier picture, as no block of this one is filed at place or behind it.
int CDevice::RecvNext(char* place, char* buffer) {
    char* const datagram = place - HeaderSize;
    char before[HeaderSize];
    std::memcpy(before, datagram, HeaderSize);
    const ssize_t received = ReceiveFrom(m_Socket, datagram, m_Peer);
    const std::uint16_t block = m_Input.m_wNextBlock;
    const bool next =
        received == HeaderSize + m_wBlockSize && Word(datagram) == OpcodeData && Word(datagram + 2) == block;
    if (!next && received > 0) std::memcpy(buffer, datagram, static_cast<std::size_t>(received));
    std::memcpy(datagram, before, HeaderSize);
    if (!next) return Received(buffer, received);
    Acknowledge(block);
    if (m_Socket != -1) m_Input.FileNext();
    return 0;
}

int CDevice::Received(char* buffer, ssize_t received) {
    if (received >= 0) return Take(buffer, static_cast<int>(received));
    if (WSAGetLastError() == EAGAIN) return 0;
    Trace(LogError, "%s recv error %d", m_sAddress.c_str(), WSAGetLastError());
    Close();
    return 0;
}

int CDevice::Dispatch(char* buffer, int length, const sockaddr_in& sender) {
    m_Peer = sender;
    return Take(buffer, length);
}

int CDevice::Take(char* datagram, int length) {
    if (length < HeaderSize) {
        Trace(LogWarning, "%s received invalid packet length %d", m_sAddress.c_str(), length);
        Close();
        return 0;
    }
    switch (Word(datagram)) {
        case OpcodeData:
            return TakeData(datagram, length);
        case OpcodeOptionAck:
            TakeOptions(datagram, length);
            return 0;
        default:
            return 0;
    }
}

// Requires a datagram of at least 4 bytes. Blocks are neither put in sequence nor deduplicated
// here: the input files them by number.
int CDevice::TakeData(const char* datagram, int length) {
    if (m_wBlockSize == NoBlockSize) return 0;
    const auto block = static_cast<unsigned short>(Word(datagram + 2));
    Acknowledge(block);
    if (m_Socket == -1) return 0;
    const char* const payload = datagram + HeaderSize;
    const int payloadLength = length - HeaderSize;
    int changed = 0;
    if (m_cRegister != 0) {
        const unsigned int high = payloadLength > 0 ? Byte(payload[0]) : 0;
        const unsigned int low = payloadLength > 1 ? Byte(payload[1]) : 0;
        changed = Parameter(m_cRegister, static_cast<unsigned short>(high << 8 | low)) ? 1 : 0;
        m_cRegister = 0;
    } else {
        changed = m_Input.Response(payload, payloadLength, m_wBlockSize, block);
    }
    if (payloadLength < m_wBlockSize) {
        m_wBlockSize = NoBlockSize;
        m_dwSendTime = 0;
    }
    return changed;
}

// Walks name and value pairs, each ended by a 0. The byte behind the datagram is made 0 first, so
// that whatever was received is a list of terminated strings.
void CDevice::TakeOptions(char* datagram, int length) {
    Acknowledge(0);
    if (m_Socket == -1) return;
    m_Input.EndOrder();  // blocks that have come lie at places of the size before
    datagram[length] = '\0';
    const char* const end = datagram + length;
    const char* name = datagram + 2;
    while (name < end && *name != '\0') {
        const char* const value = name + std::strlen(name) + 1;
        if (value >= end) return;
        if (std::strcmp(name, "blksize") == 0)
            m_wBlockSize = static_cast<std::uint16_t>(ParseUnsigned(value));
        name = value + std::strlen(value) + 1;
    }
}
