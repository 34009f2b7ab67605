// What lockstep.cpp, in the counted program, tells count_instructions.cpp, in the emulator.
#pragma once

#include <cstdint>

// The C library's names where times have 64 bits on 32-bit machines.
#if defined(_TIME_BITS) && _TIME_BITS == 64
#define LOCKSTEP_SELECT "__select64"
#define LOCKSTEP_RECVMSG "__recvmsg64"
#define LOCKSTEP_CLOCK "__clock_gettime64"
#else
#define LOCKSTEP_SELECT "select"
#define LOCKSTEP_RECVMSG "recvmsg"
#define LOCKSTEP_CLOCK "clock_gettime"
#endif

namespace lockstep {

// Descriptors that nobody has.
enum Mark { counting_begins = 0x6C6F0001, counting_ends, frame_end_begins, frame_end_ends };

}  // namespace lockstep
