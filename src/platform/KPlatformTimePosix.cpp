// Clocks and time on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformTime.h"

#include <cerrno>

#include <locale.h>
#include <time.h>

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformThread.h"

namespace kplat {

static int64_t MonotonicNanos() {
  struct timespec ts;
  if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) {
    ReportError("clock_gettime", errno);
    return 0;
  }
  return (int64_t)ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

uint32_t TickCount() { return (uint32_t)((uint64_t)MonotonicNanos() / 1000000u); }
int64_t PerfCounter() { return MonotonicNanos(); }
int64_t PerfFrequency() { return 1000000000LL; }

time_t CurrentTime() {
  struct timespec ts;
  if (clock_gettime(CLOCK_REALTIME, &ts) != 0) {
    ReportError("clock_gettime", errno);
    return (time_t)-1;
  }
  return ts.tv_sec;
}

// The zone conversions read TZ and the zone's state: they run under the
// environment lock, so a setenv of TZ cannot race them.
bool LocalTime(time_t t, struct tm* pTm) {
  MutexGuard g(EnvLock());
  return localtime_r(&t, pTm) != nullptr;
}
bool GmTime(time_t t, struct tm* pTm) { return gmtime_r(&t, pTm) != nullptr; }
time_t MakeTimeGm(struct tm* pTm) { return timegm(pTm); }
time_t MakeTimeLocal(struct tm* pTm) {
  MutexGuard g(EnvLock());
  return mktime(pTm);
}
void TzSet() {
  MutexGuard g(EnvLock());
  tzset();
}

long TimeZoneOffset() {
  MutexGuard g(EnvLock());
  tzset();
  return timezone;
}

// The user's default locale is the one the environment names (LC_ALL,
// LC_TIME, LANG), whatever locale the program itself has selected.
bool FormatUserDateTime(const struct tm* pTm, char* pBuffer, size_t nSize) {
  if (!pTm || !pBuffer || nSize == 0) return false;
  MutexGuard g(EnvLock());
  locale_t loc = newlocale(LC_TIME_MASK, "", (locale_t)0);
  if (!loc) loc = newlocale(LC_TIME_MASK, "C", (locale_t)0);
  if (!loc) {
    ReportError("newlocale", errno);
    return false;
  }
  const size_t n = strftime_l(pBuffer, nSize, "%x %X", pTm, loc);
  freelocale(loc);
  return n != 0;
}

}  // namespace kplat

#endif  // !_WIN32
