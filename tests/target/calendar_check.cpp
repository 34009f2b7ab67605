// The calendar of the driver that stands alone, above a kernel that knows 64-bit times and one that does
// not: the system calls end here.
#include <sys/syscall.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "platform/clock.h"
#include "platform/datetime.h"

namespace {

struct Case {
    bool wide;  // the kernel has the call with 64 bits
    std::int64_t seconds;
};
constexpr Case cases[] = {
    {true, 1700000000}, {true, 2147483648}, {true, 4102444800}, {false, 1700000000}, {false, 2147483647}};
const Case* kernel = nullptr;

}  // namespace

extern "C" long syscall(long number, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, number);
    va_arg(arguments, int);
    void* const time = va_arg(arguments, void*);
    va_end(arguments);
    if (number == SYS_clock_gettime64 && kernel->wide) {
        auto* const wide = static_cast<std::int64_t*>(time);
        wide[0] = kernel->seconds;
        wide[1] = 123456789;
        return 0;
    }
    if (number == SYS_clock_gettime) {
        auto* const narrow = static_cast<std::int32_t*>(time);
        narrow[0] = static_cast<std::int32_t>(kernel->seconds);
        narrow[1] = 123456789;
        return 0;
    }
    errno = ENOSYS;
    return -1;
}

int main() {
    int failed = 0;
    for (const Case& row : cases) {
        kernel = &row;
        const pt::datetime time = pt::now(true);
        const bool right = pt::unixseconds(time) == row.seconds && pt::milliseconds(time) == 123 &&
                           timeGetTime() == static_cast<std::uint32_t>(row.seconds * 1000 + 123);
        std::printf("%s kernel: %lld, %s\n", row.wide ? "new" : "old", pt::unixseconds(time),
                    right ? "right" : "wrong");
        if (!right) failed = 1;
    }
    return failed;
}
