#include "platform/datetime.h"

#include <cassert>
#include <ctime>

namespace pt {

datetime now([[maybe_unused]] bool utc) {
    assert(utc);
    timespec clock{};
    clock_gettime(CLOCK_REALTIME, &clock);
    return utodatetime(clock.tv_sec) + clock.tv_nsec / 1000000;
}

datetime encodetime(int hour, int minute, int second, int millisecond) {
    return ((datetime{hour} * 60 + minute) * 60 + second) * 1000 + millisecond;
}

datetime utodatetime(long long seconds) {
    return seconds * 1000 + unixepoch;
}

bool isvalid(datetime time) {
    return time >= 0 && time <= maxdatetime;
}

long long unixseconds(datetime time) {
    return (time - unixepoch) / 1000;
}

int milliseconds(datetime time) {
    return static_cast<int>(time % 1000);
}

}  // namespace pt
