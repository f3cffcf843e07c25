// Date and time: the CKDateTime calendar value, its list, and the KTime* /
// KTimer* helpers that parse, format and time things.
//
// A CKDateTime is a broken-down wall-clock value with no zone, no fraction of
// a second and no weekday. Operations that need a time_t go through the C
// run-time's mktime/localtime/gmtime in the process's zone.
#ifndef KELVOR_KDATETIME_H
#define KELVOR_KDATETIME_H

#include <ctime>

#include <base/classes/list/KPile.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

class KELVOR_API CKDateTime {
public:
  // Null date: every field 0.
  CKDateTime() : m_nYear(0), m_nSecond(0), m_nMinute(0), m_nHour(0), m_nDay(0), m_nMonth(0) {}
  CKDateTime(const CKDateTime& d) = default;
  CKDateTime& operator=(const CKDateTime& d) = default;
  // Copies *p; with a null p the fields are left for the caller to set.
  CKDateTime(CKDateTime* p);
  CKDateTime(const tm& t) { FromStruct(t); }
  // UTC stays UTC: the file time's fields are taken without zone conversion.
  CKDateTime(const FILETIME& ft);
  // An invalid COleDateTime gives the invalid date (year -1, others 255).
  CKDateTime(const COleDateTime& od);
  // CurrentDate(t, bGmt).
  CKDateTime(long t, int bGmt);

  void FromStruct(const tm& t);
  // Stores the six values truncated to the field widths; no range check.
  void SetDateTime(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond);
  void Empty() { *this = CKDateTime(); }
  int IsNull() const {
    return !m_nYear && !m_nMonth && !m_nDay && !m_nHour && !m_nMinute && !m_nSecond;
  }
  int IsEmpty() const { return IsNull(); }

  int GetYear() const { return m_nYear; }
  int GetMonth() const { return m_nMonth; }
  int GetDay() const { return m_nDay; }
  int GetHour() const { return m_nHour; }
  int GetMinute() const { return m_nMinute; }
  int GetSecond() const { return m_nSecond; }
  // tm_wday (0 = Sunday) and tm_yday (0-based) of localtime(ToSeconds(FALSE));
  // -1 when the break-down fails.
  int GetWDay() const;
  int GetYDay() const;
  // Moves the date by n - GetYDay() days.
  void SetYDay(int n);

  // Zeroed tm with the six fields (tm_isdst 0).
  void ToStruct(tm& t) const;
  // mktime of that tm (0 when mktime fails); with bGmt the zone's standard
  // offset is taken back out, so the fields read as UTC.
  void ToStruct(long& t, int bGmt) const;
  long ToSeconds(int bGmt = FALSE) const;
  operator COleDateTime() const;

  // Lexicographic on year, month, day, hour, minute, second (signed).
  int Compare(const CKDateTime& d) const;
  int operator==(const CKDateTime& d) const;
  int operator!=(const CKDateTime& d) const { return !(*this == d); }
  int operator<(const CKDateTime& d) const { return Compare(d) < 0; }
  int operator<=(const CKDateTime& d) const { return Compare(d) <= 0; }
  int operator>(const CKDateTime& d) const { return Compare(d) > 0; }
  int operator>=(const CKDateTime& d) const { return Compare(d) >= 0; }

  // Calendar arithmetic. AddYear and AddMonth touch only their fields (the day
  // is not clamped); the others go through mktime in local time so that every
  // field carries.
  void AddYear(int n);
  void AddMonth(int n);
  void AddDay(int n);
  void AddHour(int n);
  void AddMinute(int n);
  void AddSecond(int n);
  // The fields of gmtime(t) or localtime(t); t = 0 means now.
  void CurrentDate(long t = 0, int bGmt = FALSE);

  // Text forms.
  CKString Format(char cDate = '/', char cTime1 = ':', char cTime2 = ':') const;
  CKString FormatZero(char cDate = '/', char cTime1 = ':', char cTime2 = ':') const;
  CKString Format2(char cDate = '/', char cTime = ':') const;  // "dd/mm/yyyy hh:mm"
  CKString FormatShort() const;                                 // "dd/mm/yyyy"
  CKString FormatShortMySql() const;                            // "yyyy-mm-dd"
  CKString FormatMySql() const;                                 // "yyyy-mm-dd hh:mm:ss"
  // French month name in ISO-8859-1; empty outside 1..12.
  CKString GetStrMonth() const;
  // HTTP date forms of ToSeconds(FALSE) broken down in UTC (bGmt) or local
  // time. The suffix is always "GMT".
  CKString FormatHttp(int bGmt = TRUE) const;   // RFC 1123
  CKString FormatHttp2(int bGmt = TRUE) const;  // RFC 850
  static CKString FormatHttp3(long t);          // RFC 1123 of gmtime(t)

  // Declared in this order: year, then second up to month.
  short m_nYear;
  signed char m_nSecond;
  signed char m_nMinute;
  signed char m_nHour;
  signed char m_nDay;
  signed char m_nMonth;

private:
  void AddToField(int tm::*pField, int n);
  CKString FormatHttpWith(int bGmt, int bLongDay) const;
};

// ---------------------------------------------------------------- free functions
KELVOR_API CKString KTimeForMySql(const CKDateTime& d);
// "yyyy-mm-dd" with an optional " hh:mm:ss"; the null date when malformed.
KELVOR_API CKDateTime KTimeFromMySql(const char* s);
// "d/m/yyyy" (day and month one or two digits) and nothing else.
KELVOR_API CKDateTime KTimeParseDate(const char* s);
// "d/m/yyyy h:m" and nothing else.
KELVOR_API CKDateTime KTimeParseDateTime(const char* s);
// OLE day number as text (empty for the null date) and back; a text that
// reads as 0.0 gives the invalid date.
KELVOR_API CKString KTimeToStoredStr(const CKDateTime& d);
KELVOR_API CKDateTime KTimeFromStoredStr(const char* s);
KELVOR_API int KTimeIsNull(const CKDateTime& d);
KELVOR_API void KTimeSetNull(CKDateTime& d);
// Only the UTC form (bGmt) is provided; t is left unchanged otherwise.
KELVOR_API void KTimeAddMonth(long& t, int n, int bGmt);
KELVOR_API void KTimeAddYear(long& t, int n, int bGmt);
KELVOR_API int KTimeGetFileTime(const CKDateTime& d, FILETIME& ft);
// Days with weekday nWDay (0 = Sunday) from "from" to "to" within one year.
KELVOR_API int KGetDaysCount(const CKDateTime& from, const CKDateTime& to, int nWDay);
// Saturdays and Sundays from "from" up to the week-end "to" falls in.
KELVOR_API int KGetWeekEndDaysCount(const CKDateTime& from, const CKDateTime& to);
// Last-write time of the first file matching szPath, in UTC; 30 December 1899
// when there is none.
KELVOR_API CKDateTime KFileTime(const char* szPath);
KELVOR_API CKDateTime KFileTime(const char* szPath, CKDateTime& creation);
// "1h01m05s" style duration of a number of seconds.
KELVOR_API CKString KTime(unsigned long nSeconds);

// ---------------------------------------------------------------- timers
// Millisecond tick count; wraps every 2^32 ms like the system's.
KELVOR_API unsigned long KGetTickCount();
// The tick count when timer tracing (tools flag 8) is on, else 0.
KELVOR_API unsigned long KTimerStart();
// The tick count, whether tracing is on or not.
KELVOR_API unsigned long KTimerStart2();
// Milliseconds since nStart, modulo 2^32 (the tick count wraps).
KELVOR_API unsigned long KTimerGet(unsigned long nStart);
// nMs as "250 ms", "3 s 250 ms", "2 min 3 s 250 ms" or "1 hours 2 min 3 s
// 250 ms" (bHours: always the hours form; bMs 0 drops the milliseconds once a
// second is reached).
KELVOR_API CKString KTimerGetTextAbsolut(unsigned long nMs, int bHours = FALSE, int bMs = TRUE);
// The same for the time since nStart.
KELVOR_API CKString KTimerGetText(unsigned long nStart, int bHours = FALSE, int bMs = TRUE);
// Coarse form of the time since nValue (or of nValue milliseconds when
// bIsStart is 0): "0 s", "42 s", "3 min 07 s", "2 hours 05 min".
KELVOR_API CKString KTimerGetSmartText(unsigned long nValue, int bIsStart = TRUE);
// Log the time since nStart (Trace2: "label : time") when timer tracing is
// on; the Reset forms then restart nStart with KTimerStart.
KELVOR_API void KTimerTrace(unsigned long nStart);
KELVOR_API void KTimerTrace(int nLevel, unsigned long nStart);
KELVOR_API void KTimerTrace2(const char* szLabel, unsigned long nStart);
KELVOR_API void KTimerTrace2(int nLevel, const char* szLabel, unsigned long nStart);
KELVOR_API void KTimerTraceReset(unsigned long& nStart);
KELVOR_API void KTimerTraceReset(int nLevel, unsigned long& nStart);
KELVOR_API void KTimerTrace2Reset(const char* szLabel, unsigned long& nStart);
KELVOR_API void KTimerTrace2Reset(int nLevel, const char* szLabel, unsigned long& nStart);

// ---------------------------------------------------------------- list
// Pile of owned, individually allocated dates. Copies (construction and
// operator=) duplicate the elements.
class KELVOR_API CKListDateTime : public CKPile {
public:
  CKListDateTime() {}
  CKListDateTime(const CKListDateTime& l);
  ~CKListDateTime() override;
  CKListDateTime& operator=(const CKListDateTime& l);

  virtual int Add(const COleDateTime& d);
  virtual int Add(const CKDateTime& d);
  // -1 when d is already present (not its index).
  virtual int AddUnique(const CKDateTime& d);
  virtual int Find(const CKDateTime& d);

  int InsertAt(int nIndex, const CKDateTime& d);
  CKDateTime Get(int nIndex) const;
  int Set(int nIndex, const CKDateTime& d);
  void Delete(int nIndex);
  void DeleteAll();
  void Empty() { DeleteAll(); }
  int PreAlloc(int n);
  // First index >= max(nStart, 0) holding a date earlier than d, or -1.
  int FindFirstLow(const CKDateTime& d, int nStart = 0) const;
  void Detach(CKListDateTime& other);

private:
  CKDateTime* At(int nIndex) const;
  // nIndex, or -1 after freeing p when the pile could not take it.
  int Kept(int nIndex, CKDateTime* p);
};

#endif  // KELVOR_KDATETIME_H
