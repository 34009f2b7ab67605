// Points in time as the host's documents count them.
#pragma once

namespace pt {

// Milliseconds since 0001-01-01 00:00. Negative values stand for "no time".
using datetime = long long;

constexpr datetime invdatetime = -1;
constexpr datetime unixepoch = 62135596800000;     // 1970-01-01 00:00
constexpr datetime maxdatetime = 315537897599999;  // 9999-12-31 23:59:59.999

// The current time. Always in UTC: local time (utc false) is not supported.
datetime now(bool utc);

// The given time of day as milliseconds. Values beyond their usual range are simply added up.
datetime encodetime(int hour, int minute, int second, int millisecond);

// Seconds since 1970 as a datetime.
datetime utodatetime(long long seconds);

// True for a time from year 1 to year 9999.
bool isvalid(datetime time);

// The Unix time in whole seconds, and the millisecond within the second, of a datetime.
long long unixseconds(datetime time);
int milliseconds(datetime time);

}  // namespace pt
