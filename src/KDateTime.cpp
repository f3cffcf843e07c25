// Date and time: CKDateTime, the OLE date stand-in, the date texts and
// parsers, file times, tick-count texts and CKListDateTime.
#define KSRC_PATH "src/KDateTime"
// The calendar members (constructors, weekday and day of year, arithmetic,
// CurrentDate) report under this path; text forms and free functions under
// KSRC_PATH.
#define KSRC_PATH_INL "src/KDateTime.inl"

#include <base/tools/KDateTime.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <new>
#include <string>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>
#include <base/tools/KTools.h>

#include "platform/KPlatform.h"

namespace {

// ---------------------------------------------------------------- calendar
// Days since 1 January 1970 of a proleptic Gregorian date (any year).
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = (unsigned)(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + (long long)doe - 719468;
}

void CivilFromDays(long long z, long long& y, unsigned& m, unsigned& d) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = (unsigned)(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = doy - (153 * mp + 2) / 5 + 1;
  m = mp < 10 ? mp + 3 : mp - 9;
  y = (long long)yoe + era * 400 + (m <= 2);
}

int IsLeap(long long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(long long y, int m) {
  static const int s_anDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return (m == 2 && IsLeap(y)) ? 29 : s_anDays[m - 1];
}

long long FloorDiv(long long a, long long b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

const long long kOleEpochDays = -25569;      // 30 December 1899
const long long kFileEpochDays = -134774;    // 1 January 1601
const long long kTicksPerSecond = 10000000;  // FILETIME units
// OLE dates cover 1 January 100 to 31 December 9999.
const int kOleMinYear = 100;
const int kOleMaxYear = 9999;

// Broken-down calendar value with wide fields, shared by the conversions.
struct Parts {
  long long nYear;
  int nMonth, nDay, nHour, nMinute, nSecond;
  long long nDays;  // days since 1970 of the date part
};

// OLE day number to its parts, rounded to the nearest second. The integer
// part is the day, the fraction's magnitude the time of day, also for
// negative numbers (-1.25 is 29 December 1899 06:00).
bool OleToParts(double dt, Parts& p) {
  if (!(dt > -657435.0 && dt < 2958466.0)) return false;  // also rejects NaN
  double dDay = std::trunc(dt);
  long long nSecs = (long long)dDay * 86400 + std::llround(std::fabs(dt - dDay) * 86400.0);
  long long nDay = FloorDiv(nSecs, 86400);
  long long nTod = nSecs - nDay * 86400;
  p.nDays = nDay + kOleEpochDays;
  unsigned m, d;
  CivilFromDays(p.nDays, p.nYear, m, d);
  if (p.nYear < kOleMinYear || p.nYear > kOleMaxYear) return false;
  p.nMonth = (int)m;
  p.nDay = (int)d;
  p.nHour = (int)(nTod / 3600);
  p.nMinute = (int)(nTod / 60 % 60);
  p.nSecond = (int)(nTod % 60);
  return true;
}

bool OleFromFields(int y, int mo, int d, int h, int mi, int s, double& dt) {
  if (y < kOleMinYear || y > kOleMaxYear || mo < 1 || mo > 12) return false;
  if (d < 1 || d > DaysInMonth(y, mo) || h < 0 || h > 23 || mi < 0 || mi > 59 || s < 0 ||
      s > 59)
    return false;
  long long nDay = DaysFromCivil(y, (unsigned)mo, (unsigned)d) - kOleEpochDays;
  double dTime = (h * 3600 + mi * 60 + s) / 86400.0;
  dt = nDay >= 0 ? (double)nDay + dTime : (double)nDay - dTime;
  return true;
}

// FILETIME <-> calendar, as the system's conversions do (to the second).
bool FileTimeToParts(const FILETIME& ft, Parts& p) {
  unsigned long long n = ((unsigned long long)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
  if (n > 0x7FFFFFFFFFFFFFFFull) return false;
  long long nSecs = (long long)(n / kTicksPerSecond);
  p.nDays = nSecs / 86400 + kFileEpochDays;
  long long nTod = nSecs % 86400;
  unsigned m, d;
  CivilFromDays(p.nDays, p.nYear, m, d);
  p.nMonth = (int)m;
  p.nDay = (int)d;
  p.nHour = (int)(nTod / 3600);
  p.nMinute = (int)(nTod / 60 % 60);
  p.nSecond = (int)(nTod % 60);
  return true;
}

bool PartsToFileTime(const Parts& p, FILETIME& ft) {
  if (p.nYear < 1601 || p.nYear > 30827) return false;
  long long nSecs = (p.nDays - kFileEpochDays) * 86400 + p.nHour * 3600 + p.nMinute * 60 +
                    p.nSecond;
  unsigned long long n = (unsigned long long)nSecs * kTicksPerSecond;
  ft.dwLowDateTime = (DWORD)(n & 0xFFFFFFFFu);
  ft.dwHighDateTime = (DWORD)(n >> 32);
  return true;
}

// Normalises *t with mktime; false when the C run-time cannot represent it.
// tm_wday is only written on success, which tells a failure from the valid
// result -1 (one second before 1970 in UTC).
bool MakeTime(tm& t, time_t& r) {
  t.tm_wday = -1;
  r = kplat::MakeTimeLocal(&t);
  return t.tm_wday != -1;
}

// ---------------------------------------------------------------- text helpers
const char* const s_aszDayShort[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const s_aszDayLong[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
const char* const s_aszMonthShort[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
// ISO-8859-1 bytes whatever the caller's code page.
const char* const s_aszMonthFrench[12] = {
    "Janvier", "F\xE9vrier", "Mars",      "Avril",   "Mai",      "Juin",
    "Juillet", "Ao\xFBt",    "Septembre", "Octobre", "Novembre", "D\351cembre"};

inline char Digit(int n) { return (char)('0' + n); }

// Two characters of v; out-of-range values give whatever '0' + digit makes.
inline char* Put2(char* p, int v) {
  p[0] = Digit(v / 10);
  p[1] = Digit(v % 10);
  return p + 2;
}

inline char* Put4(char* p, int v) {
  p[0] = Digit(v / 1000);
  p[1] = Digit(v / 100 % 10);
  p[2] = Digit(v / 10 % 10);
  p[3] = Digit(v % 10);
  return p + 4;
}

// Fixed-width decimal fields, each but the first after its separator.
struct Field {
  int v;
  int nWidth;  // 2 or 4
  char cSep;
};

CKString Fields(std::initializer_list<Field> fields) {
  char buf[32];
  char* p = buf;
  for (const Field& f : fields) {
    if (p != buf) *p++ = f.cSep;
    p = f.nWidth == 4 ? Put4(p, f.v) : Put2(p, f.v);
  }
  CKString s;
  memcpy(s.GetBufferSetLength((unsigned)(p - buf)), buf, (size_t)(p - buf));
  return s;
}

CKString FormatHttpTm(const tm& t, int bLongDay) {
  const char* szDay = (t.tm_wday >= 0 && t.tm_wday < 7)
                          ? (bLongDay ? s_aszDayLong : s_aszDayShort)[t.tm_wday]
                          : "";
  const char* szMonth = (t.tm_mon >= 0 && t.tm_mon < 12) ? s_aszMonthShort[t.tm_mon] : "";
  CKString s;
  if (bLongDay)
    s.Format("%s, %02d-%s-%d %02d:%02d:%02d GMT", szDay, t.tm_mday, szMonth, t.tm_year + 1900,
             t.tm_hour, t.tm_min, t.tm_sec);
  else
    s.Format("%s, %02d %s %d %02d:%02d:%02d GMT", szDay, t.tm_mday, szMonth, t.tm_year + 1900,
             t.tm_hour, t.tm_min, t.tm_sec);
  return s;
}

// ---------------------------------------------------------------- parsing helpers
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// n decimal digits at s (stops at the terminator, which is not a digit).
bool ReadDigits(const char* s, int n, int& v) {
  v = 0;
  for (int i = 0; i < n; ++i) {
    if (!IsDigit(s[i])) return false;
    v = v * 10 + (s[i] - '0');
  }
  return true;
}

// One or two digits; advances s.
bool ReadShortNumber(const char*& s, int& v) {
  if (!IsDigit(*s)) return false;
  v = *s++ - '0';
  if (IsDigit(*s)) v = v * 10 + (*s++ - '0');
  return true;
}

// "d/m/yyyy"; advances s past the year.
bool ReadDate(const char*& s, int& d, int& m, int& y) {
  if (!s || !ReadShortNumber(s, d) || *s++ != '/') return false;
  if (!ReadShortNumber(s, m) || *s++ != '/') return false;
  if (!ReadDigits(s, 4, y)) return false;
  s += 4;
  return true;
}

// The stored-double text: the shortest form that reads back to the same
// double, with '.' whatever the locale.
CKString StoredDoubleToStr(double v) {
  char buf[64];
  std::to_chars_result r = std::to_chars(buf, buf + sizeof(buf) - 1, v);
  *r.ptr = 0;
  return CKString(buf);
}

// Reads a stored double; leading blanks and '+' are skipped and ',' is taken
// as the decimal point. Anything unreadable is 0.0.
double StoredStrToDouble(const char* s) {
  while (*s == ' ' || *s == '\t') ++s;
  if (*s == '+') ++s;
  char buf[64];
  size_t n = 0;
  while (s[n] && n < sizeof(buf) - 1) {
    buf[n] = s[n] == ',' ? '.' : s[n];
    ++n;
  }
  double v = 0.0;
  if (std::from_chars(buf, buf + n, v).ec != std::errc()) return 0.0;
  return v;
}

CKDateTime InvalidDate() {
  CKDateTime d;
  d.SetDateTime(-1, -1, -1, -1, -1, -1);
  return d;
}

bool TimerTraceOn() {
  CKTools* p = KTools();
  return p && (p->GetFlags() & 8);
}

}  // namespace

// ======================================================================= COleDateTime
COleDateTime::COleDateTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec)
    : m_dt(0.0), m_status(valid) {
  SetDateTime(nYear, nMonth, nDay, nHour, nMin, nSec);
}

int COleDateTime::SetDateTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec) {
  double dt = 0.0;
  if (!OleFromFields(nYear, nMonth, nDay, nHour, nMin, nSec, dt)) {
    m_dt = 0.0;
    m_status = invalid;
    return 1;
  }
  m_dt = dt;
  m_status = valid;
  return 0;
}

namespace {
bool OleParts(const COleDateTime& o, Parts& p) {
  return o.GetStatus() == COleDateTime::valid && OleToParts(o.m_dt, p);
}

// One field of the date's parts, -1 for an invalid date.
int OleField(const COleDateTime& d, int Parts::*pField) {
  Parts p;
  return OleParts(d, p) ? p.*pField : -1;
}
}  // namespace

int COleDateTime::GetYear() const {
  Parts p;
  return OleParts(*this, p) ? (int)p.nYear : -1;
}
int COleDateTime::GetMonth() const { return OleField(*this, &Parts::nMonth); }
int COleDateTime::GetDay() const { return OleField(*this, &Parts::nDay); }
int COleDateTime::GetHour() const { return OleField(*this, &Parts::nHour); }
int COleDateTime::GetMinute() const { return OleField(*this, &Parts::nMinute); }
int COleDateTime::GetSecond() const { return OleField(*this, &Parts::nSecond); }
int COleDateTime::GetDayOfWeek() const {
  Parts p;
  if (!OleParts(*this, p)) return -1;
  // 1 January 1970 was a Thursday.
  return (int)((p.nDays % 7 + 7 + 4) % 7) + 1;
}
int COleDateTime::GetDayOfYear() const {
  Parts p;
  if (!OleParts(*this, p)) return -1;
  return (int)(p.nDays - DaysFromCivil(p.nYear, 1, 1)) + 1;
}

// ======================================================================= CKDateTime
CKDateTime::CKDateTime(CKDateTime* p) {
  if (p) *this = *p;
}

CKDateTime::CKDateTime(const FILETIME& ft) : CKDateTime() {
  Parts p;
  bool bOk = FileTimeToParts(ft, p);
  KASSERT_AT(bOk, "FileTimeToSystemTime(&ft,&st)", KSRC_PATH_INL, __LINE__);
  if (bOk) SetDateTime((int)p.nYear, p.nMonth, p.nDay, p.nHour, p.nMinute, p.nSecond);
}

CKDateTime::CKDateTime(const COleDateTime& od) {
  Parts p;
  if (!OleParts(od, p)) {
    // Invalid status (or out of range): year -1, every other field 255.
    *this = InvalidDate();
    return;
  }
  SetDateTime((int)p.nYear, p.nMonth, p.nDay, p.nHour, p.nMinute, p.nSecond);
}

CKDateTime::CKDateTime(long t, int bGmt) : CKDateTime() { CurrentDate(t, bGmt); }

void CKDateTime::FromStruct(const tm& t) {
  SetDateTime(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
}

void CKDateTime::SetDateTime(int nYear, int nMonth, int nDay, int nHour, int nMinute,
                             int nSecond) {
  m_nYear = (short)nYear;
  m_nMonth = (signed char)nMonth;
  m_nDay = (signed char)nDay;
  m_nHour = (signed char)nHour;
  m_nMinute = (signed char)nMinute;
  m_nSecond = (signed char)nSecond;
}

int CKDateTime::GetWDay() const {
  tm t;
  KASSERT_RETV_AT(kplat::LocalTime((time_t)ToSeconds(FALSE), &t), "now", KSRC_PATH_INL,
                  __LINE__, -1);
  return t.tm_wday;
}

int CKDateTime::GetYDay() const {
  tm t;
  KASSERT_RETV_AT(kplat::LocalTime((time_t)ToSeconds(FALSE), &t), "now", KSRC_PATH_INL,
                  __LINE__, -1);
  return t.tm_yday;
}

void CKDateTime::SetYDay(int n) {
  int nYDay = GetYDay();
  if (nYDay < 0) return;  // already reported
  AddDay(n - nYDay);
}

void CKDateTime::ToStruct(tm& t) const {
  memset(&t, 0, sizeof(t));
  t.tm_year = m_nYear - 1900;
  t.tm_mon = m_nMonth - 1;
  t.tm_mday = m_nDay;
  t.tm_hour = m_nHour;
  t.tm_min = m_nMinute;
  t.tm_sec = m_nSecond;
}

void CKDateTime::ToStruct(long& t, int bGmt) const {
  tm x;
  ToStruct(x);
  time_t r = kplat::MakeTimeLocal(&x);
  if (r == (time_t)-1) {
    t = 0;
    return;
  }
  // mktime read the fields as local standard time (tm_isdst 0); taking the
  // zone's present standard offset back out reads them as UTC, except for
  // dates when the zone kept another standard offset.
  if (bGmt) r -= (time_t)kplat::TimeZoneOffset();
  t = (long)r;
}

long CKDateTime::ToSeconds(int bGmt) const {
  long t = 0;
  ToStruct(t, bGmt);
  return t;
}

CKDateTime::operator COleDateTime() const {
  return COleDateTime(m_nYear, m_nMonth, m_nDay, m_nHour, m_nMinute, m_nSecond);
}

int CKDateTime::Compare(const CKDateTime& d) const {
  if (m_nYear != d.m_nYear) return m_nYear < d.m_nYear ? -1 : 1;
  if (m_nMonth != d.m_nMonth) return m_nMonth < d.m_nMonth ? -1 : 1;
  if (m_nDay != d.m_nDay) return m_nDay < d.m_nDay ? -1 : 1;
  if (m_nHour != d.m_nHour) return m_nHour < d.m_nHour ? -1 : 1;
  if (m_nMinute != d.m_nMinute) return m_nMinute < d.m_nMinute ? -1 : 1;
  if (m_nSecond != d.m_nSecond) return m_nSecond < d.m_nSecond ? -1 : 1;
  return 0;
}

int CKDateTime::operator==(const CKDateTime& d) const {
  return m_nYear == d.m_nYear && m_nMonth == d.m_nMonth && m_nDay == d.m_nDay &&
         m_nHour == d.m_nHour && m_nMinute == d.m_nMinute && m_nSecond == d.m_nSecond;
}

// The year wraps at 16 bits for any n (the sum is taken modulo 2^16).
void CKDateTime::AddYear(int n) { m_nYear = (short)(uint16_t)((unsigned)m_nYear + (unsigned)n); }

void CKDateTime::AddMonth(int n) {
  if (n == 0) return;
  // Same result as stepping twelve months at a time, without the loop.
  long long nMonths = (long long)m_nMonth - 1 + n;
  long long nYears = FloorDiv(nMonths, 12);
  m_nMonth = (signed char)(nMonths - nYears * 12 + 1);
  m_nYear = (short)(m_nYear + nYears);
}

void CKDateTime::AddToField(int tm::*pField, int n) {
  if (n == 0) return;
  tm t;
  ToStruct(t);
  long long nValue = (long long)(t.*pField) + n;
  time_t r = 0;
  bool bOk = nValue >= INT_MIN && nValue <= INT_MAX;
  if (bOk) {
    t.*pField = (int)nValue;
    t.tm_isdst = -1;
    bOk = MakeTime(t, r);
  }
  tm now;
  bOk = bOk && kplat::LocalTime(r, &now);
  KASSERT_RET_AT(bOk, "now", KSRC_PATH_INL, __LINE__);
  FromStruct(now);
}

void CKDateTime::AddDay(int n) { AddToField(&tm::tm_mday, n); }
void CKDateTime::AddHour(int n) { AddToField(&tm::tm_hour, n); }
void CKDateTime::AddMinute(int n) { AddToField(&tm::tm_min, n); }
void CKDateTime::AddSecond(int n) { AddToField(&tm::tm_sec, n); }

void CKDateTime::CurrentDate(long t, int bGmt) {
  kplat::TzSet();
  time_t x = t ? (time_t)t : kplat::CurrentTime();
  tm now;
  bool bOk = bGmt ? kplat::GmTime(x, &now) : kplat::LocalTime(x, &now);
  KASSERT_RET_AT(bOk, "now", KSRC_PATH_INL, __LINE__);
  FromStruct(now);
}

// ---------------------------------------------------------------- text forms
CKString CKDateTime::Format(char cDate, char cTime1, char cTime2) const {
  CKString s;
  s.Format("%hd%c%hd%c%hd %hd%c%hd%c%hd", (short)m_nDay, cDate, (short)m_nMonth, cDate, m_nYear,
           (short)m_nHour, cTime1, (short)m_nMinute, cTime2, (short)m_nSecond);
  return s;
}

CKString CKDateTime::FormatZero(char cDate, char cTime1, char cTime2) const {
  CKString s;
  s.Format("%02hd%c%02hd%c%hd %02hd%c%02hd%c%02hd", (short)m_nDay, cDate, (short)m_nMonth,
           cDate, m_nYear, (short)m_nHour, cTime1, (short)m_nMinute, cTime2, (short)m_nSecond);
  return s;
}

CKString CKDateTime::Format2(char cDate, char cTime) const {
  return Fields({{m_nDay, 2, 0}, {m_nMonth, 2, cDate}, {m_nYear, 4, cDate}, {m_nHour, 2, ' '},
                 {m_nMinute, 2, cTime}});
}

CKString CKDateTime::FormatShort() const {
  CKString s;
  s.Format("%02hd/%02hd/%04hd", (short)m_nDay, (short)m_nMonth, m_nYear);
  return s;
}

CKString CKDateTime::FormatShortMySql() const {
  CKString s;
  s.Format("%04hd-%02hd-%02hd", m_nYear, (short)m_nMonth, (short)m_nDay);
  return s;
}

CKString CKDateTime::FormatMySql() const {
  return Fields({{m_nYear, 4, 0}, {m_nMonth, 2, '-'}, {m_nDay, 2, '-'}, {m_nHour, 2, ' '},
                 {m_nMinute, 2, ':'}, {m_nSecond, 2, ':'}});
}

CKString CKDateTime::GetStrMonth() const {
  if (m_nMonth < 1 || m_nMonth > 12) return CKString();
  return CKString(s_aszMonthFrench[m_nMonth - 1]);
}

CKString CKDateTime::FormatHttpWith(int bGmt, int bLongDay) const {
  time_t t = (time_t)ToSeconds(FALSE);
  kplat::TzSet();
  tm x;
  bool bOk = bGmt ? kplat::GmTime(t, &x) : kplat::LocalTime(t, &x);
  KASSERT_RETV_T(bOk, "now", CKString());
  return FormatHttpTm(x, bLongDay);
}

CKString CKDateTime::FormatHttp(int bGmt) const { return FormatHttpWith(bGmt, FALSE); }

CKString CKDateTime::FormatHttp2(int bGmt) const { return FormatHttpWith(bGmt, TRUE); }

CKString CKDateTime::FormatHttp3(long t) {
  tm x;
  KASSERT_RETV_T(kplat::GmTime((time_t)t, &x), "now", CKString());
  return FormatHttpTm(x, FALSE);
}

// ======================================================================= free functions
CKString KTimeForMySql(const CKDateTime& d) {
  CKString s;
  s.Format("%04hd-%02hd-%02hd %02hd:%02hd:%02hd", d.m_nYear, (short)d.m_nMonth, (short)d.m_nDay,
           (short)d.m_nHour, (short)d.m_nMinute, (short)d.m_nSecond);
  return s;
}

CKDateTime KTimeFromMySql(const char* s) {
  CKDateTime d;
  int y, mo, dd;
  if (!s || !ReadDigits(s, 4, y)) return d;
  if (s[4] != '-' || !ReadDigits(s + 5, 2, mo) || s[7] != '-' || !ReadDigits(s + 8, 2, dd))
    return d;
  int h = 0, mi = 0, se = 0;
  if (!(s[10] == ' ' && ReadDigits(s + 11, 2, h) && s[13] == ':' && ReadDigits(s + 14, 2, mi) &&
        s[16] == ':' && ReadDigits(s + 17, 2, se)))
    h = mi = se = 0;  // the date alone
  d.SetDateTime(y, mo, dd, h, mi, se);
  return d;
}

CKDateTime KTimeParseDate(const char* s) {
  CKDateTime d;
  int dd, mo, y;
  if (!ReadDate(s, dd, mo, y) || *s) return d;
  d.SetDateTime(y, mo, dd, 0, 0, 0);
  return d;
}

CKDateTime KTimeParseDateTime(const char* s) {
  CKDateTime d;
  int dd, mo, y, h, mi;
  if (!ReadDate(s, dd, mo, y) || *s++ != ' ') return d;
  if (!ReadShortNumber(s, h) || *s++ != ':' || !ReadShortNumber(s, mi) || *s) return d;
  d.SetDateTime(y, mo, dd, h, mi, 0);
  return d;
}

CKString KTimeToStoredStr(const CKDateTime& d) {
  if (d.IsNull()) return CKString();
  COleDateTime od = d;
  return StoredDoubleToStr(od.m_dt);
}

CKDateTime KTimeFromStoredStr(const char* s) {
  // Empty and zero texts give the invalid date, not the null one.
  double v = KIsEmpty(s) ? 0.0 : StoredStrToDouble(s);
  if (v == 0.0) return InvalidDate();
  return CKDateTime(COleDateTime(v));
}

int KTimeIsNull(const CKDateTime& d) { return d.IsNull(); }

void KTimeSetNull(CKDateTime& d) { d.Empty(); }

namespace {
// Adds n to one field of gmtime(t) and converts back with mktime.
void AddToGmtField(long& t, int n, int bGmt, int tm::*pField) {
  if (n == 0) return;
  KASSERT_RET_T(bGmt, "FALSE");
  tm x;
  time_t r = 0;
  bool bOk = kplat::GmTime((time_t)t, &x);
  long long nValue = bOk ? (long long)(x.*pField) + n : 0;
  bOk = bOk && nValue >= INT_MIN && nValue <= INT_MAX;
  if (bOk) {
    x.*pField = (int)nValue;
    x.tm_isdst = 0;
    bOk = MakeTime(x, r);
  }
  KASSERT_RET_T(bOk, "now");
  t = (long)r;
}
}  // namespace

void KTimeAddMonth(long& t, int n, int bGmt) { AddToGmtField(t, n, bGmt, &tm::tm_mon); }

void KTimeAddYear(long& t, int n, int bGmt) { AddToGmtField(t, n, bGmt, &tm::tm_year); }

int KTimeGetFileTime(const CKDateTime& d, FILETIME& ft) {
  COleDateTime od = d;
  Parts p;
  if (!OleParts(od, p)) return FALSE;
  return PartsToFileTime(p, ft) ? TRUE : FALSE;
}

namespace {
// localtime(ToSeconds(FALSE)) of both ends.
bool BreakDownSpan(const CKDateTime& from, const CKDateTime& to, tm& a, tm& b) {
  return kplat::LocalTime((time_t)from.ToSeconds(FALSE), &a) &&
         kplat::LocalTime((time_t)to.ToSeconds(FALSE), &b);
}

// Days d in y1..y2 whose weekday (w1 - y1 + d) mod 7 is nWDay.
int CountWeekDays(int y1, int y2, int w1, int nWDay) {
  int n = 0;
  for (int d = y1; d <= y2; ++d)
    if ((w1 - y1 + d) % 7 == nWDay) ++n;
  return n;
}
}  // namespace

int KGetDaysCount(const CKDateTime& from, const CKDateTime& to, int nWDay) {
  tm now, now2;
  KASSERT_RETV_T(BreakDownSpan(from, to, now, now2), "now", 0);
  KASSERT_RETV_T(now.tm_yday <= now2.tm_yday, "now->tm_yday<=now2->tm_yday", 0);
  return CountWeekDays(now.tm_yday, now2.tm_yday, now.tm_wday, nWDay);
}

int KGetWeekEndDaysCount(const CKDateTime& from, const CKDateTime& to) {
  tm now, now2;
  KASSERT_RETV_T(BreakDownSpan(from, to, now, now2), "now", 0);
  int y1 = now.tm_yday, y2 = now2.tm_yday, w1 = now.tm_wday, w2 = now2.tm_wday;
  if (y1 > y2) y2 += 365;  // across one new year; leap years ignored
  int n = 0;
  if (y1 <= y2) n = CountWeekDays(y1, y2, w1, 6) + CountWeekDays(y1, y2, w1, 0);
  // The week-end the end date falls in is left out.
  if (w2 == 6) return n - 1;
  if (w2 == 0) return n - 2;
  return n;
}

// ---------------------------------------------------------------- file times
namespace {

FILETIME ToFiletime(uint64_t n) {
  FILETIME ft;
  ft.dwLowDateTime = (DWORD)(n & 0xFFFFFFFFu);
  ft.dwHighDateTime = (DWORD)(n >> 32);
  return ft;
}

}  // namespace

// Nothing found gives OLE day 0, 30 December 1899 00:00:00.
CKDateTime KFileTime(const char* szPath) {
  uint64_t nWrite = 0;
  if (KIsEmpty(szPath) || !kplat::FindFileTimes(szPath, &nWrite, nullptr))
    return CKDateTime(COleDateTime(0.0));
  return CKDateTime(ToFiletime(nWrite));
}

CKDateTime KFileTime(const char* szPath, CKDateTime& creation) {
  creation.Empty();
  uint64_t nWrite = 0, nCreate = 0;
  if (KIsEmpty(szPath) || !kplat::FindFileTimes(szPath, &nWrite, &nCreate))
    return CKDateTime(COleDateTime(0.0));
  creation = CKDateTime(ToFiletime(nCreate));
  return CKDateTime(ToFiletime(nWrite));
}

// ---------------------------------------------------------------- durations
CKString KTime(unsigned long nSeconds) {
  char buf[96];
  int n = 0;
  unsigned long s = nSeconds;
  if (s >= 3600) {
    n += snprintf(buf + n, sizeof(buf) - n, "%luh", s / 3600);
    s %= 3600;
  }
  if (s >= 60) {
    n += snprintf(buf + n, sizeof(buf) - n, n ? "%02lum" : "%lum", s / 60);
    s %= 60;
  }
  snprintf(buf + n, sizeof(buf) - n, n ? "%02lus" : "%lus", s);
  return CKString(buf);
}

unsigned long KGetTickCount() { return kplat::TickCount(); }

unsigned long KTimerStart() { return TimerTraceOn() ? KGetTickCount() : 0; }

unsigned long KTimerStart2() { return KGetTickCount(); }

// Tick differences are taken modulo 2^32, as the tick count wraps.
unsigned long KTimerGet(unsigned long nStart) { return (uint32_t)(KGetTickCount() - nStart); }

CKString KTimerGetTextAbsolut(unsigned long nMs, int bHours, int bMs) {
  unsigned long nMsec = nMs % 1000, nSec = nMs / 1000 % 60, nMin = nMs / 60000;
  unsigned long nHours = nMin / 60, m = nMin % 60;
  CKString s;
  if (nMs / 1000 == 0 && !bHours)
    s.Format("%lu ms", nMsec);
  else if (nMin == 0 && !bHours)
    bMs ? s.Format("%lu s %lu ms", nSec, nMsec) : s.Format("%lu s", nSec);
  else if (nHours > 0 || bHours)
    bMs ? s.Format("%lu hours %lu min %lu s %lu ms", nHours, m, nSec, nMsec)
        : s.Format("%lu hours %lu min %lu s", nHours, m, nSec);
  else
    bMs ? s.Format("%lu min %lu s %lu ms", m, nSec, nMsec) : s.Format("%lu min %lu s", m, nSec);
  return s;
}

CKString KTimerGetText(unsigned long nStart, int bHours, int bMs) {
  return KTimerGetTextAbsolut(KTimerGet(nStart), bHours, bMs);
}

CKString KTimerGetSmartText(unsigned long nValue, int bIsStart) {
  unsigned long d = bIsStart ? KTimerGet(nValue) : nValue;
  CKString s;
  if (d < 1000)
    s = "0 s";
  else if (d < 60000)
    s.Format("%lu s", d / 1000);
  else if (d < 3600000)
    s.Format("%lu min %02lu s", d / 60000, d / 1000 % 60);
  else
    s.Format("%lu hours %02lu min", d / 3600000, d / 60000 % 60);
  return s;
}

void KTimerTrace(unsigned long nStart) {
  if (TimerTraceOn()) KLog(KTimerGetText(nStart, FALSE, TRUE));
}

void KTimerTrace(int nLevel, unsigned long nStart) {
  if (TimerTraceOn()) KLog(nLevel, KTimerGetText(nStart, FALSE, TRUE));
}

void KTimerTrace2(const char* szLabel, unsigned long nStart) {
  if (TimerTraceOn()) KLog(szLabel, " : ", KTimerGetText(nStart, FALSE, TRUE));
}

void KTimerTrace2(int nLevel, const char* szLabel, unsigned long nStart) {
  if (TimerTraceOn()) KLog(nLevel, szLabel, " : ", KTimerGetText(nStart, FALSE, TRUE));
}

void KTimerTraceReset(unsigned long& nStart) {
  KTimerTrace(nStart);
  nStart = KTimerStart();
}

void KTimerTraceReset(int nLevel, unsigned long& nStart) {
  KTimerTrace(nLevel, nStart);
  nStart = KTimerStart();
}

void KTimerTrace2Reset(const char* szLabel, unsigned long& nStart) {
  KTimerTrace2(szLabel, nStart);
  nStart = KTimerStart();
}

void KTimerTrace2Reset(int nLevel, const char* szLabel, unsigned long& nStart) {
  KTimerTrace2(nLevel, szLabel, nStart);
  nStart = KTimerStart();
}

// ======================================================================= CKListDateTime
CKListDateTime::~CKListDateTime() { DeleteAll(); }

CKDateTime* CKListDateTime::At(int nIndex) const { return (CKDateTime*)PileGet(nIndex); }

namespace {
const char* const kNoRoom = "ERROR => CKListDateTime: the list cannot grow";
}  // namespace

// A copy the pile refused to take is freed, not leaked.
int CKListDateTime::Kept(int nIndex, CKDateTime* p) {
  if (nIndex >= 0) return nIndex;
  delete p;
  KLog(KLOG_ERROR, kNoRoom);
  return -1;
}

// A list of its own: the elements are copied, so either list may go first.
CKListDateTime::CKListDateTime(const CKListDateTime& l) : CKPile() {
  data.step = l.data.step;
  data.sortfunc = l.data.sortfunc;
  *this = l;
}

CKListDateTime& CKListDateTime::operator=(const CKListDateTime& l) {
  if (&l == this) return *this;
  DeleteAll();
  const int n = l.Count();
  for (int i = 0; i < n; ++i) {
    CKDateTime* p = l.At(i);
    Add(p ? *p : CKDateTime());
  }
  return *this;
}

int CKListDateTime::Add(const COleDateTime& d) { return CKListDateTime::Add(CKDateTime(d)); }

// A copy that cannot be allocated is kept as a null slot.
int CKListDateTime::Add(const CKDateTime& d) {
  CKDateTime* p = new (std::nothrow) CKDateTime(d);
  return Kept(PileAdd(p), p);
}

int CKListDateTime::AddUnique(const CKDateTime& d) {
  if (Find(d) != -1) return -1;
  return Add(d);
}

int CKListDateTime::Find(const CKDateTime& d) {
  const int n = Count();
  for (int i = 0; i < n; ++i) {
    CKDateTime* p = At(i);
    if (p && *p == d) return i;
  }
  return -1;
}

int CKListDateTime::InsertAt(int nIndex, const CKDateTime& d) {
  CKDateTime* p = new (std::nothrow) CKDateTime(d);
  return Kept(PileInsertAt(nIndex, p), p);
}

CKDateTime CKListDateTime::Get(int nIndex) const {
  CKDateTime* p = At(nIndex);
  return p ? *p : CKDateTime();
}

int CKListDateTime::Set(int nIndex, const CKDateTime& d) {
  if (nIndex < 0) nIndex = 0;
  if (CKDateTime* p = At(nIndex)) {
    *p = d;
    return nIndex;
  }
  const int nCount = Count();
  CKDateTime* p = new (std::nothrow) CKDateTime(d);
  if (Kept(PileSet(nIndex, p), p) < 0) return -1;
  // Slots past the old count may still hold pointers that were removed.
  for (int i = nCount; i < nIndex; ++i) data.ptr[i] = nullptr;
  return nIndex;
}

void CKListDateTime::Delete(int nIndex) {
  KASSERT_RET(nIndex>=0 && nIndex<Count());
  delete (CKDateTime*)PileRemove(nIndex);
}

void CKListDateTime::DeleteAll() {
  for (int i = Count() - 1; i >= 0; --i) {
    delete At(i);
    data.ptr[i] = nullptr;
  }
  PileEmpty();
}

// Any previous elements are freed first, so nothing is leaked.
int CKListDateTime::PreAlloc(int n) {
  DeleteAll();
  if (n < 0) n = 0;
  // The slots are written unchecked: they must all be there (the size
  // call's own verdict also counts a stale ENOMEM, so look at the result).
  PileSetSize(n);
  if (data.size < n || (n && !data.ptr)) {
    PileEmpty();
    KLog(KLOG_ERROR, kNoRoom);
    return FALSE;
  }
  for (int i = 0; i < n; ++i) PileSetNoCheck(i, new (std::nothrow) CKDateTime());
  return TRUE;
}

int CKListDateTime::FindFirstLow(const CKDateTime& d, int nStart) const {
  const int n = Count();
  for (int i = nStart < 0 ? 0 : nStart; i < n; ++i) {
    CKDateTime* p = At(i);
    if (p && *p < d) return i;
  }
  return -1;
}

void CKListDateTime::Detach(CKListDateTime& other) {
  if (&other == this) return;
  other.DeleteAll();
  PileDetach(other);
}
