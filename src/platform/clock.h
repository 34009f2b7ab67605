// The millisecond clock of all intervals, and the error number of the last system call.
#pragma once

#include <cstdint>

// Milliseconds of the monotonic clock, cut to 32 bits: it wraps after 49.7 days, so an interval
// is always the unsigned difference of two readings. Any thread.
std::uint32_t timeGetTime();

// errno of the calling thread.
int WSAGetLastError();
