// Platform area: clocks and time.
//
// POSIX: KPlatformTimePosix.cpp. Windows counterparts: TickCount is
// GetTickCount; PerfCounter/PerfFrequency are QueryPerformanceCounter/
// QueryPerformanceFrequency; LocalTime/GmTime/MakeTimeGm are
// _time64, localtime_s/gmtime_s/_mkgmtime64/_mktime64; TzSet and TimeZoneOffset are _tzset and
// _get_timezone; FormatUserDateTime is GetDateFormatA/GetTimeFormatA with
// LOCALE_USER_DEFAULT.
#ifndef KELVOR_KPLATFORMTIME_H
#define KELVOR_KPLATFORMTIME_H

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace kplat {

// Milliseconds since an arbitrary start, wrapping like GetTickCount.
uint32_t TickCount();
// High-resolution counter and its frequency in counts per second.
int64_t PerfCounter();
int64_t PerfFrequency();

// Seconds since 1970 (UTC); -1 when the clock cannot be read.
time_t CurrentTime();

// Calendar conversions in the process's time zone; false on failure.
bool LocalTime(time_t t, struct tm* pTm);
bool GmTime(time_t t, struct tm* pTm);
time_t MakeTimeGm(struct tm* pTm);
// mktime: local fields to seconds, normalising them; -1 when they cannot be
// represented.
time_t MakeTimeLocal(struct tm* pTm);
void TzSet();
// Seconds west of UTC of the zone's standard time (the C library's
// `timezone` after tzset).
long TimeZoneOffset();
// Date and time of pTm in the user's default locale's short form ("%x %X"
// of the locale the environment selects); false when it cannot be made.
bool FormatUserDateTime(const struct tm* pTm, char* pBuffer, size_t nSize);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMTIME_H
