// Stands between a counted client (driver_host or floor_client, in LD_PRELOAD) and the C library, so that
// its instructions are the same in every run. The client runs in an emulator, many times slower than
// the machine, which must not show:
// - A pass finds everything that is watched ready, or with LOCKSTEP_READY=one only one socket, in turn.
// - The monotonic clock counts datagrams, not the emulator's time: register polls have the share of
//   the blocks that they have with a client at full speed.
// Says where counting begins and ends, and what was received meanwhile. LOCKSTEP_FIRST and _LAST are
// numbers of frames; with LOCKSTEP_READY=none, of passes in a row in which nothing comes. Its own
// instructions and those of syscall() are told from the client's by name: while counting it calls nothing
// else. Only one thread of the client may receive.
#include "lockstep.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

namespace {

constexpr ssize_t full_block = 1454;  // with its header
constexpr ssize_t least_trailer = 94;
constexpr int answer_milliseconds = 1000;
constexpr int opening_milliseconds = 5;  // until the first frame: a camera is asked a pass after its opening
constexpr std::int32_t datagram_nanoseconds = 7000;  // a client's at full speed
constexpr std::int32_t timeout_nanoseconds = 20000000;

struct Counts {
    long passes, idle_passes, blocks, frames, registers, sent, clock;
} counts;

const long long first_frame = std::atoll(std::getenv("LOCKSTEP_FIRST"));  // counted from this one on
const long long last_frame = std::atoll(std::getenv("LOCKSTEP_LAST"));
const std::string ready_sockets = std::getenv("LOCKSTEP_READY");
const bool idle = ready_sockets == "none", one_ready = ready_sockets == "one";
Counts begun{};
bool counting = false, frame_ends = false, trailer_came = false, delivered = false;

// Of the monotonic clock, since the program's start. Moved by one thread; no 64-bit division, which is a
// function of its own on ARM.
std::atomic<std::int32_t> clock_seconds{0}, clock_nanoseconds{0};

void advance(std::int32_t nanoseconds) {
    const std::int32_t sum = clock_nanoseconds.load(std::memory_order_relaxed) + nanoseconds;
    const bool carry = sum >= 1000000000;
    clock_nanoseconds.store(carry ? sum - 1000000000 : sum, std::memory_order_relaxed);
    if (carry)
        clock_seconds.store(clock_seconds.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

template <class Function>
Function next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

const auto real_select = next(&::select, LOCKSTEP_SELECT);
const auto real_recvfrom = next(&::recvfrom, "recvfrom");
const auto real_recvmsg = next(&::recvmsg, LOCKSTEP_RECVMSG);
const auto real_sendto = next(&::sendto, "sendto");
const auto real_clock_gettime = next(&::clock_gettime, LOCKSTEP_CLOCK);
const time_t start_time = std::time(nullptr);

// A close of a descriptor that nobody has; the counting plug-in of the emulator sees it.
void tell(int mark) {
    syscall(SYS_close, mark);
}

void write_results() {
    const char* const folder = std::getenv("LOCKSTEP_FOLDER");
    std::ofstream maps(folder + std::string("/maps"));
    maps << std::ifstream("/proc/self/maps").rdbuf();
    std::ofstream(folder + std::string("/counts"))
        << "{\"passes\": " << counts.passes - begun.passes
        << ", \"idle_passes\": " << counts.idle_passes - begun.idle_passes
        << ", \"blocks\": " << counts.blocks - begun.blocks
        << ", \"frames\": " << counts.frames - begun.frames
        << ", \"registers\": " << counts.registers - begun.registers
        << ", \"sent\": " << counts.sent - begun.sent << ", \"clock\": " << counts.clock - begun.clock
        << "}\n";
}

void end() {
    tell(lockstep::counting_ends);
    write_results();
    syscall(SYS_exit_group, 0);
}

void begin_or_end() {
    const long position = idle ? counts.idle_passes : counts.frames;
    if (!counting && position >= first_frame) {
        counting = true;
        begun = counts;
        tell(lockstep::counting_begins);
    } else if (counting && position >= last_frame) {
        end();
    }
}

// Something was sent among the passes that should have had nothing to do.
void begin_again() {
    counting = false;
    counts.idle_passes = 0;
}

// What follows the acknowledgement of a frame's last block, up to the first call behind the delivery.
void begin_frame_end() {
    tell(lockstep::frame_end_begins);
    frame_ends = true;
    delivered = false;
}

void end_frame_end() {
    if (frame_ends) tell(lockstep::frame_end_ends);
    frame_ends = false;
}

bool wait_for(int descriptor) {
    pollfd wanted = {descriptor, POLLIN, 0};
    return syscall(SYS_poll, &wanted, 1, counts.frames == 0 ? opening_milliseconds : answer_milliseconds) > 0;
}

// Instead of FD_ISSET and FD_ZERO, which call the C library.
bool watched(const fd_set& set, int descriptor) {
    const int bits = static_cast<int>(8 * sizeof(set.fds_bits[0]));
    return (set.fds_bits[descriptor / bits] >> (descriptor % bits) & 1) != 0;
}

void remove_others(fd_set& set, int width, int descriptor) {
    const int bits = static_cast<int>(8 * sizeof(set.fds_bits[0]));
    for (int i = 0; i < width; ++i)
        if (i != descriptor) set.fds_bits[i / bits] &= ~(1L << (i % bits));
}

void wait_for_all(const fd_set& set, int width) {
    for (int descriptor = 0; descriptor < width; ++descriptor)
        if (watched(set, descriptor)) wait_for(descriptor);
}

// Leaves only the next one that has something, behind the one that was left before.
void wait_for_one(fd_set& set, int width) {
    static int last = 0;
    for (int i = 0; i < width; ++i) {
        last = last + 1 < width ? last + 1 : 0;
        if (!watched(set, last) || !wait_for(last)) continue;
        remove_others(set, width, last);
        return;
    }
}

bool asks_for_register(const char* packet, std::size_t size) {
    return size > 8 && (packet[2] == 'g' || packet[2] == 's') && packet[3] == 'e' && packet[4] == 't';
}

void received(ssize_t length) {
    advance(datagram_nanoseconds);
    trailer_came = length >= least_trailer && length < full_block;
    if (length >= least_trailer) ++counts.blocks;
    if (trailer_came) ++counts.frames;
}

}  // namespace

extern "C" {

void lockstep_delivered() {
    delivered = true;
}

int select(int width, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit) {
    end_frame_end();
    begin_or_end();
    if (one_ready && counting)
        wait_for_one(*readable, width);
    else if (!idle)
        wait_for_all(*readable, width);
    const int ready = real_select(width, readable, writable, exceptional, limit);
    ++(ready == 0 ? counts.idle_passes : counts.passes);
    if (ready == 0 && !idle) advance(timeout_nanoseconds);
    if (ready > 0 && idle) begin_again();
    return ready;
}

ssize_t recvfrom(int descriptor, void* data, std::size_t size, int flags, sockaddr* from, socklen_t* length) {
    end_frame_end();
    const ssize_t result = real_recvfrom(descriptor, data, size, flags, from, length);
    received(result);
    return result;
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    end_frame_end();
    const ssize_t result = real_recvmsg(descriptor, message, flags);
    received(result);
    return result;
}

ssize_t sendto(int descriptor, const void* data, std::size_t size, int flags, const sockaddr* to,
               socklen_t length) {
    if (delivered) end_frame_end();
    ++counts.sent;
    if (asks_for_register(static_cast<const char*>(data), size)) ++counts.registers;
    const ssize_t result = real_sendto(descriptor, data, size, flags, to, length);
    if (trailer_came) begin_frame_end();
    trailer_came = false;
    return result;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (delivered) end_frame_end();
    ++counts.clock;
    const int result = real_clock_gettime(clock, time);  // is counted
    if (clock != CLOCK_MONOTONIC) return result;
    time->tv_sec = start_time + clock_seconds.load(std::memory_order_relaxed);
    time->tv_nsec = clock_nanoseconds.load(std::memory_order_relaxed);
    return result;
}
}
