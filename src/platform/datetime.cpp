#include "platform/datetime.h"

#include <ctime>

namespace pt {

datetime now(bool utc) {
    timespec clock{};
    clock_gettime(CLOCK_REALTIME, &clock);
    datetime time = utodatetime(clock.tv_sec) + clock.tv_nsec / 1000000;
    tm local{};
    if (!utc && localtime_r(&clock.tv_sec, &local) != nullptr) time += datetime{local.tm_gmtoff} * 1000;
    return time;
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
