// The millisecond clock of all intervals, and the error number of the last system call.
#pragma once

#include <cstdint>

// Milliseconds of the monotonic clock, cut to 32 bits: it wraps after 49.7 days, so an interval
// is always the unsigned difference of two readings. Any thread.
std::uint32_t timeGetTime();

// One reading for all who ask until somebody does what takes time: where the clock is a system call,
// cameras that only wait share one in each pass. Worker thread.
class CPassClock {
public:
    std::uint32_t Now() {
        if (!m_bRead) m_dwNow = timeGetTime();
        m_bRead = true;
        return m_dwNow;
    }
    void Forget() { m_bRead = false; }

private:
    bool m_bRead = false;
    std::uint32_t m_dwNow = 0;
};

// errno of the calling thread.
int WSAGetLastError();
