// Clocks and time on Win32.
#if defined(_WIN32)
#include "platform/KPlatformTime.h"

#include <cstring>
#include <ctime>

#include <windows.h>

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformThread.h"

namespace kplat {

uint32_t TickCount() { return (uint32_t)GetTickCount(); }

int64_t PerfCounter() {
  LARGE_INTEGER n;
  // Never fails on Windows XP and later.
  QueryPerformanceCounter(&n);
  return (int64_t)n.QuadPart;
}

int64_t PerfFrequency() {
  static const int64_t s_nFreq = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return (int64_t)f.QuadPart;
  }();
  return s_nFreq;
}

time_t CurrentTime() {
  FILETIME ft;
  GetSystemTimeAsFileTime(&ft);
  const uint64_t n = ((uint64_t)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
  // 100 ns ticks since 1601 to seconds since 1970.
  return (time_t)(n / 10000000u - 11644473600ull);
}

// The C run-time's zone state is read under the environment lock, as TZ
// may change.
bool LocalTime(time_t t, struct tm* pTm) {
  MutexGuard g(EnvLock());
  const __time64_t t64 = (__time64_t)t;
  return _localtime64_s(pTm, &t64) == 0;
}

bool GmTime(time_t t, struct tm* pTm) {
  const __time64_t t64 = (__time64_t)t;
  return _gmtime64_s(pTm, &t64) == 0;
}

time_t MakeTimeGm(struct tm* pTm) { return (time_t)_mkgmtime64(pTm); }

time_t MakeTimeLocal(struct tm* pTm) {
  MutexGuard g(EnvLock());
  return (time_t)_mktime64(pTm);
}

void TzSet() {
  MutexGuard g(EnvLock());
  _tzset();
}

long TimeZoneOffset() {
  MutexGuard g(EnvLock());
  _tzset();
  return _timezone;
}

// The user's default locale's short date and time.
bool FormatUserDateTime(const struct tm* pTm, char* pBuffer, size_t nSize) {
  if (!pTm || !pBuffer || nSize == 0) return false;
  SYSTEMTIME st;
  memset(&st, 0, sizeof(st));
  st.wYear = (WORD)(pTm->tm_year + 1900);
  st.wMonth = (WORD)(pTm->tm_mon + 1);
  st.wDayOfWeek = (WORD)pTm->tm_wday;
  st.wDay = (WORD)pTm->tm_mday;
  st.wHour = (WORD)pTm->tm_hour;
  st.wMinute = (WORD)pTm->tm_min;
  st.wSecond = (WORD)pTm->tm_sec;
  const int nDate = GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, pBuffer,
                                   (int)nSize);
  if (nDate <= 0 || (size_t)nDate >= nSize) {
    ReportError("GetDateFormatA", (int)GetLastError());
    return false;
  }
  pBuffer[nDate - 1] = ' ';
  const int nTime = GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &st, nullptr, pBuffer + nDate,
                                   (int)(nSize - (size_t)nDate));
  if (nTime <= 0) {
    ReportError("GetTimeFormatA", (int)GetLastError());
    return false;
  }
  return true;
}

}  // namespace kplat

#endif  // _WIN32
