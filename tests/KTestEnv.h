// Environment, zone and C-library time helpers for tests, on every platform.
#ifndef KELVOR_KTESTENV_H
#define KELVOR_KTESTENV_H

#include <cstdlib>
#include <ctime>
#include <string>

// Null removes the variable.
inline void KTestSetEnv(const char* szName, const char* szValue) {
#if defined(_WIN32)
  _putenv_s(szName, szValue ? szValue : "");
#else
  if (szValue)
    setenv(szName, szValue, 1);
  else
    unsetenv(szName);
#endif
}

inline void KTestTzset() {
#if defined(_WIN32)
  _tzset();
#else
  tzset();
#endif
}

// Whether TZ can carry daylight-saving rules and zone database names, and
// whether mktime reaches before 1970. The Windows C run-time reads only
// "NAME[+|-]h[DST]", applies the United States rules to it (Wine: none) and
// stops at 1970, so tests that need more run on POSIX only.
#if defined(_WIN32)
constexpr bool kTestZoneRules = false;
constexpr bool kTestTimeBefore1970 = false;
#else
constexpr bool kTestZoneRules = true;
constexpr bool kTestTimeBefore1970 = true;
#endif

// Puts the process in a zone (a TZ value) for one scope.
struct KTestZone {
  explicit KTestZone(const char* szZone) : m_bHad(getenv("TZ") != nullptr) {
    if (m_bHad) m_strOld = getenv("TZ");
    KTestSetEnv("TZ", szZone);
    KTestTzset();
  }
  ~KTestZone() {
    KTestSetEnv("TZ", m_bHad ? m_strOld.c_str() : nullptr);
    KTestTzset();
  }
  KTestZone(const KTestZone&) = delete;
  KTestZone& operator=(const KTestZone&) = delete;
  const bool m_bHad;
  std::string m_strOld;
};

// Broken-down fields read as UTC, by calendar arithmetic (no C library
// needed: timegm is not everywhere).
inline long long KTestFieldsAsUtc(const tm& t) {
  long long y = t.tm_year + 1900LL + t.tm_mon / 12;
  int m = t.tm_mon % 12;
  if (m < 0) m += 12, --y;
  y -= m < 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const long long yoe = y - era * 400;
  const long long doy = (153 * (m + (m < 2 ? 10 : -2)) + 2) / 5 + t.tm_mday - 1;
  const long long days = era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
  return days * 86400 + t.tm_hour * 3600LL + t.tm_min * 60LL + t.tm_sec;
}

// Thread-safe broken-down time of t, in UTC or in the local zone.
inline bool KTestBreakDown(long long t, bool bUtc, tm& out) {
  const time_t x = (time_t)t;
#if defined(_WIN32)
  return (bUtc ? gmtime_s(&out, &x) : localtime_s(&out, &x)) == 0;
#else
  return (bUtc ? gmtime_r(&x, &out) : localtime_r(&x, &out)) != nullptr;
#endif
}

#endif  // KELVOR_KTESTENV_H
