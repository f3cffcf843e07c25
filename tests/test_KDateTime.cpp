#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>

#include <base/tools/KDateTime.h>

#include "KTestEnv.h"
#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

// Central European rule written out, so no zone database is needed; where TZ
// carries no rules, the same standard offset without summer time.
const char* const kParis = kTestZoneRules ? "CET-1CEST,M3.5.0,M10.5.0/3" : "CET-1";

struct DateTest : ::testing::Test {
  CKTestLog tools;
};

CKDateTime Make(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  CKDateTime x;
  x.SetDateTime(y, mo, d, h, mi, s);
  return x;
}

std::string Str(const CKDateTime& d) { return std::string(d.FormatMySql()); }

// Applies one calendar step to d and gives the result's MySQL form.
std::string Step(CKDateTime& d, void (CKDateTime::*pStep)(int), int n) {
  (d.*pStep)(n);
  return Str(d);
}
std::string Step(CKDateTime&& d, void (CKDateTime::*f)(int), int n) { return Step(d, f, n); }

// The fields read as UTC, by the C library's own conversion.
long FieldsAsUtc(const CKDateTime& d) {
  tm t;
  d.ToStruct(t);
  return (long)KTestFieldsAsUtc(t);
}

// The HTTP date of t by the C library: RFC 1123, or with bLong RFC 850.
std::string HttpDate(long t, bool bGmt, bool bLong = false) {
  tm b;
  KTestBreakDown(t, bGmt, b);
  char buf[128];
  if (bLong)
    strftime(buf, sizeof(buf), "%A, %d-%b-%Y %H:%M:%S GMT", &b);
  else
    strftime(buf, sizeof(buf), "%a, %d %b %Y %H:%M:%S GMT", &b);
  return buf;
}

bool IsInvalidDate(const CKDateTime& d) { return d == Make(-1, -1, -1, -1, -1, -1); }

// Counts the calls that AddUnique makes through the virtual slots.
struct CountingList : CKListDateTime {
  int nFind = 0, nAdd = 0;
  int Find(const CKDateTime& d) override { return ++nFind, CKListDateTime::Find(d); }
  int Add(const CKDateTime& d) override { return ++nAdd, CKListDateTime::Add(d); }
  using CKListDateTime::Add;
};

}  // namespace

TEST(KDateTime, LayoutConstructionAndOrdering) {
  static_assert(sizeof(CKDateTime) == 8, "eight bytes");
  EXPECT_EQ(2u, offsetof(CKDateTime, m_nSecond));
  EXPECT_EQ(6u, offsetof(CKDateTime, m_nMonth));
  CKDateTime n;
  EXPECT_TRUE(n.IsNull() && n.IsEmpty() && KTimeIsNull(n));
  CKDateTime d = Make(70000, 300, 7, 9, 5, 30);  // truncated, not checked
  CKDateTime e = Make(2006, 3, 7, 9, 5, 30);
  EXPECT_EQ((short)70000, d.GetYear());
  EXPECT_EQ((signed char)300, d.GetMonth());
  EXPECT_TRUE(CKDateTime(&d) == d);

  tm t;
  Make(2006, 3, 7, 9, 5, 30).ToStruct(t);
  EXPECT_TRUE(t.tm_year == 106 && t.tm_mon == 2 && t.tm_yday == 0 && CKDateTime(t) == e);

  EXPECT_EQ(0, e.Compare(Make(2006, 3, 7, 9, 5, 30)));
  EXPECT_EQ(-1, e.Compare(Make(2006, 3, 7, 9, 5, 31)));
  EXPECT_EQ(1, e.Compare(Make(2006, 2, 28, 23, 59, 59)));
  EXPECT_TRUE(Make(2006, -1, 1) < Make(2006, 1, 1));
  COleDateTime bad;
  bad.SetStatus(COleDateTime::invalid);
  CKDateTime inv(bad);
  EXPECT_TRUE(IsInvalidDate(inv));
  EXPECT_TRUE(inv < n && n > inv);
}

TEST_F(DateTest, CalendarAndLocalArithmetic) {
  CKDateTime d = Make(2006, 1, 31);
  EXPECT_EQ("2006-02-31 00:00:00", Step(d, &CKDateTime::AddMonth, 1));  // the day is not clamped
  EXPECT_EQ("2008-03-31 00:00:00", Step(d, &CKDateTime::AddMonth, 25));
  EXPECT_EQ("2004-12-31 00:00:00", Step(d, &CKDateTime::AddMonth, -39));
  EXPECT_EQ("2104-12-31 00:00:00", Step(d, &CKDateTime::AddMonth, 1200));  // not cut to 8 bits
  EXPECT_EQ("2005-02-29 00:00:00", Step(Make(2004, 2, 29), &CKDateTime::AddYear, 1));
  // The year wraps at 16 bits for any n: INT_MAX is -1 modulo 2^16, INT_MIN 0.
  EXPECT_EQ("2005-02-29 00:00:00", Step(Make(2006, 2, 29), &CKDateTime::AddYear, INT_MAX));
  EXPECT_EQ("2006-02-29 00:00:00", Step(Make(2006, 2, 29), &CKDateTime::AddYear, INT_MIN));
  d = Make(32767, 1, 1);
  d.AddYear(1);
  EXPECT_EQ(-32768, d.GetYear());

  for (const char* szZone : {"UTC0", kParis}) {
    KTestZone zone(szZone);
    const bool bParis = szZone == kParis && kTestZoneRules;  // with summer time
    d = Make(2006, 12, 31, 23);
    EXPECT_EQ("2007-01-01 23:00:00", Step(d, &CKDateTime::AddDay, 1));
    EXPECT_EQ("2006-12-31 23:59:59", Step(d, &CKDateTime::AddSecond, -(23 * 3600 + 1)));
    EXPECT_EQ("2007-01-01 01:00:59", Step(d, &CKDateTime::AddMinute, 61));
    // Wall-clock days across the spring change; in Paris the missing hour is skipped.
    EXPECT_EQ("2006-03-26 12:00:00", Step(Make(2006, 3, 25, 12), &CKDateTime::AddDay, 1));
    EXPECT_EQ(bParis ? "2006-03-26 03:30:00" : "2006-03-26 02:30:00",
              Step(Make(2006, 3, 26, 1, 30), &CKDateTime::AddHour, 1));
    EXPECT_EQ(bParis ? "2006-03-26 03:00:00" : "2006-03-26 02:00:00",
              Step(Make(2006, 3, 26, 1, 59, 59), &CKDateTime::AddSecond, 1));
    EXPECT_EQ("2006-03-03 00:00:01", Step(Make(2006, 2, 31), &CKDateTime::AddSecond, 1));

    d = Make(2006, 3, 7);
    EXPECT_EQ(65, d.GetYDay());
    EXPECT_EQ(2, d.GetWDay());  // Tuesday
    d.SetYDay(364);
    EXPECT_EQ("2006-12-31 00:00:00", Str(d));

    // A sum beyond the C library's range leaves the date as it was.
    EXPECT_EQ("2006-12-31 00:00:00", Step(d, &CKDateTime::AddDay, INT_MAX));
    EXPECT_TRUE(tools.LastIsAssert("now", "src/KDateTime.inl", CKTestLog::kReturn));
  }
  EXPECT_EQ(2u, tools.Count());
}

TEST_F(DateTest, SecondsZonesAndGmtSteps) {
  const CKDateTime winter = Make(2006, 3, 7, 9, 5, 30);
  const CKDateTime summer = Make(2006, 7, 1, 23, 30);
  {
    KTestZone zone("UTC0");
    EXPECT_EQ(1141722330L, winter.ToSeconds(FALSE));
    EXPECT_EQ(1141722330L, winter.ToSeconds(TRUE));
    EXPECT_EQ(6, summer.GetWDay());
    // mktime's -1 reads as a failure and gives 0.
    EXPECT_EQ(0L, Make(1969, 12, 31, 23, 59, 59).ToSeconds(TRUE));
    EXPECT_EQ(kTestTimeBefore1970 ? -2L : 0L, Make(1969, 12, 31, 23, 59, 58).ToSeconds(TRUE));
  }
  {
    KTestZone zone(kParis);
    EXPECT_EQ(1141722330L - 3600, winter.ToSeconds(FALSE));
    EXPECT_EQ(1141722330L, winter.ToSeconds(TRUE));
    // Fields read as standard time, also in summer: 23:30 is the next day.
    EXPECT_EQ(FieldsAsUtc(summer) - 3600, summer.ToSeconds(FALSE));
    EXPECT_EQ(FieldsAsUtc(summer), summer.ToSeconds(TRUE));
    EXPECT_EQ(kTestZoneRules ? 0 : 6, summer.GetWDay());
    CKDateTime d(1141722330L, TRUE);
    EXPECT_EQ("2006-03-07 09:05:30", Str(d));
    d.CurrentDate(1151755200L, FALSE);
    EXPECT_EQ(kTestZoneRules ? "2006-07-01 14:00:00" : "2006-07-01 13:00:00", Str(d));
  }
  CKDateTime d = winter;
  d.CurrentDate(LONG_MAX, TRUE);
  if (sizeof(long) > 4) {  // past the C library's range: refused
    EXPECT_TRUE(d == winter);
    EXPECT_TRUE(tools.LastIsAssert("now", "src/KDateTime.inl", CKTestLog::kReturn));
  } else {  // a 32-bit long ends at the last second of 2038-01-19
    EXPECT_EQ("2038-01-19 03:14:07", Str(d));
  }
  const size_t nLogged = tools.Count();

  long t = 1141722330L;  // 2006-03-07 09:05:30 UTC
  {
    KTestZone zone("UTC0");
    KTimeAddMonth(t, 1, TRUE);
    EXPECT_EQ(1141722330L + 31 * 86400L, t);
    KTimeAddMonth(t, -13, TRUE);
    EXPECT_EQ("2005-03-07 09:05:30", Str(CKDateTime(t, TRUE)));
    KTimeAddYear(t, 1, TRUE);
    EXPECT_EQ(1141722330L, t);
  }
  KTimeAddMonth(t, 1, FALSE);
  KTimeAddYear(t, 1, FALSE);
  KTimeAddYear(t, 0, FALSE);
  EXPECT_EQ(1141722330L, t);
  ASSERT_EQ(nLogged + 2u, tools.Count());
  EXPECT_TRUE(tools.LastIsAssert("FALSE", "src/KDateTime", CKTestLog::kReturn));
  KTestZone zone(kParis);  // the stepped fields go back through mktime in local time
  KTimeAddYear(t, 1, TRUE);
  EXPECT_EQ(1141722330L + 365 * 86400L - 3600, t);
}

// ToSeconds(TRUE) takes the zone's present standard offset out of mktime's
// reading. Caracas kept UTC-4:30 as standard time from December 2007 to May
// 2016 and UTC-4 before and after, so 2010's fields come out half an hour on.
TEST_F(DateTest, GmtSecondsUseThePresentStandardOffset) {
  if (!kTestZoneRules) GTEST_SKIP() << "the C run-time's TZ takes no zone database names";
  if (!std::ifstream("/usr/share/zoneinfo/America/Caracas"))
    GTEST_SKIP() << "no zone database for America/Caracas";
  KTestZone zone("America/Caracas");
  const CKDateTime d2010 = Make(2010, 6, 1, 12), d2020 = Make(2020, 6, 1, 12);
  EXPECT_EQ(FieldsAsUtc(d2010) + 4 * 3600 + 1800, d2010.ToSeconds(FALSE));
  EXPECT_EQ(FieldsAsUtc(d2010) + 1800, d2010.ToSeconds(TRUE));
  EXPECT_EQ(FieldsAsUtc(d2020) + 4 * 3600, d2020.ToSeconds(FALSE));
  EXPECT_EQ(FieldsAsUtc(d2020), d2020.ToSeconds(TRUE));
  long t = 0;
  d2010.ToStruct(t, TRUE);
  EXPECT_EQ(d2010.ToSeconds(TRUE), t);
  EXPECT_EQ(0u, tools.Count());
}

TEST_F(DateTest, TextForms) {
  CKDateTime d = Make(2006, 3, 7, 9, 5, 30);
  EXPECT_STREQ("7/3/2006 9:5:30", d.Format('/', ':', ':'));
  EXPECT_STREQ("7/3/2006 9:5.30", d.Format('/', ':', '.'));
  EXPECT_STREQ("07-03-2006 09h05m30", d.FormatZero('-', 'h', 'm'));
  EXPECT_STREQ("07/03/2006 09:05", d.Format2('/', ':'));
  EXPECT_STREQ("07/03/2006", d.FormatShort());
  EXPECT_STREQ("2006-03-07", d.FormatShortMySql());
  EXPECT_STREQ("2006-03-07 09:05:30", KTimeForMySql(d));
  CKDateTime old = Make(99, 12, 31, 23, 59, 1);
  EXPECT_STREQ("0099-12-31 23:59:01", old.FormatMySql());
  EXPECT_STREQ("31.12.0099 23h59", old.Format2('.', 'h'));
  EXPECT_STREQ("31/12/99 23:59:1", old.Format());

  const char* const aszMonths[12] = {"Janvier", "F\xE9vrier", "Mars", "Avril", "Mai", "Juin",
                                     "Juillet", "Ao\xFBt", "Septembre", "Octobre", "Novembre",
                                     "D\351cembre"};
  for (int m = 1; m <= 12; ++m) EXPECT_STREQ(aszMonths[m - 1], Make(2006, m, 1).GetStrMonth());
  EXPECT_TRUE(Make(2006, 0, 1).GetStrMonth() == "" && Make(2006, 13, 1).GetStrMonth() == "");

  const CKDateTime dates[] = {Make(2006, 3, 7, 9, 5, 30), Make(2006, 7, 1, 23, 30, 59),
                              Make(1999, 12, 31, 23, 59, 59), Make(2038, 1, 19, 3, 14, 8)};
  for (const char* szZone : {"UTC0", kParis}) {
    KTestZone zone(szZone);
    long nStd = szZone == kParis ? 3600 : 0;  // the zone's standard offset
    for (const CKDateTime& x : dates) {
      long t = FieldsAsUtc(x) - nStd;
      for (int bGmt = 0; bGmt < 2; ++bGmt) {
        EXPECT_EQ(HttpDate(t, bGmt), std::string(x.FormatHttp(bGmt))) << szZone << " " << Str(x);
        EXPECT_EQ(HttpDate(t, bGmt, true), std::string(x.FormatHttp2(bGmt)));
      }
      EXPECT_EQ(HttpDate(t, true), std::string(CKDateTime::FormatHttp3(t)));
    }
  }
  if (sizeof(long) > 4) {  // past the C library's range
    EXPECT_STREQ("", CKDateTime::FormatHttp3(LONG_MAX));
    EXPECT_TRUE(tools.LastIsAssert("now", "src/KDateTime", CKTestLog::kReturnValue));
  } else {
    EXPECT_STREQ("Tue, 19 Jan 2038 03:14:07 GMT", CKDateTime::FormatHttp3(LONG_MAX));
  }
}

TEST(KDateTime, ParsersOleDatesAndStoredText) {
  for (const char* s : {"2006-03-07", "2006-03-07 12:3", "2006-03-07T12:30:45"})
    EXPECT_EQ("2006-03-07 00:00:00", Str(KTimeFromMySql(s)));
  EXPECT_EQ("2006-03-07 12:30:45", Str(KTimeFromMySql("2006-03-07 12:30:45.123 junk")));
  EXPECT_EQ("2006-13-45 25:61:99", Str(KTimeFromMySql("2006-13-45 25:61:99")));
  for (const char* s : {"06-03-07", "2006/03/07", "2006-3-07", "2006-03-7", "", "200a-03-07",
                        (const char*)nullptr})
    EXPECT_TRUE(KTimeFromMySql(s).IsNull()) << s;

  EXPECT_EQ("2006-03-07 00:00:00", Str(KTimeParseDate("7/3/2006")));
  EXPECT_EQ("2006-99-99 00:00:00", Str(KTimeParseDate("99/99/2006")));
  for (const char* s : {"07/03/06", "7/3/2006 ", "123/3/2006", "7/3/20061", "7//2006", "/3/2006",
                        "7-3-2006", "", "7/3/2006 9:5", (const char*)nullptr})
    EXPECT_TRUE(KTimeParseDate(s).IsNull()) << s;

  EXPECT_EQ("2006-03-07 09:05:00", Str(KTimeParseDateTime("7/3/2006 9:5")));
  EXPECT_EQ("2006-03-07 23:59:00", Str(KTimeParseDateTime("07/03/2006 23:59")));
  for (const char* s : {"7/3/2006", "7/3/2006 ", "7/3/2006  9:5", "7/3/2006 9:5:0",
                        "7/3/2006 9:", "7/3/2006 123:5", "7/3/2006 9:5 ", (const char*)nullptr})
    EXPECT_TRUE(KTimeParseDateTime(s).IsNull()) << s;

  COleDateTime o(2006, 3, 7, 9, 5, 30);
  ASSERT_EQ(COleDateTime::valid, o.GetStatus());
  EXPECT_DOUBLE_EQ(38783.0 + (9 * 3600 + 5 * 60 + 30) / 86400.0, (double)o);
  EXPECT_EQ(3, o.GetDayOfWeek());  // Tuesday
  EXPECT_EQ(66, o.GetDayOfYear());
  EXPECT_EQ("2006-03-07 09:05:30", Str(CKDateTime(o)));
  EXPECT_EQ("1899-12-29 06:00:00", Str(CKDateTime(COleDateTime(-1.25))));
  EXPECT_EQ("1900-01-01 00:00:00", Str(CKDateTime(COleDateTime(1.9999999))));
  for (const CKDateTime& bad : {Make(2005, 2, 29), Make(99, 1, 1), Make(2006, 1, 1, 24),
                                Make(2006, 13, 1), CKDateTime()}) {
    COleDateTime x = bad;
    EXPECT_EQ(COleDateTime::invalid, x.GetStatus()) << Str(bad);
    EXPECT_TRUE(IsInvalidDate(CKDateTime(x)));
  }
  EXPECT_EQ(-1, COleDateTime(1e9).GetYear());  // valid status, out of range

  EXPECT_STREQ("", KTimeToStoredStr(CKDateTime()));
  for (const CKDateTime& d : {Make(2006, 3, 7, 9, 5, 30), Make(1850, 6, 15, 18, 30, 15),
                              Make(9999, 12, 31, 23, 59, 59), Make(100, 1, 1, 0, 0, 1)}) {
    CKString s = KTimeToStoredStr(d);
    EXPECT_TRUE(KTimeFromStoredStr(s) == d) << s.GetString();
  }
  EXPECT_EQ("2006-03-07 12:00:00", Str(KTimeFromStoredStr("38783.5")));
  EXPECT_EQ("2006-03-07 12:00:00", Str(KTimeFromStoredStr(" 38783,5")));
  for (const char* s : {"", "0", "0.0", "abc", "-0", (const char*)nullptr})
    EXPECT_TRUE(IsInvalidDate(KTimeFromStoredStr(s))) << s;
  // A date the OLE form cannot hold is stored as day 0 and reads back invalid.
  EXPECT_TRUE(IsInvalidDate(KTimeFromStoredStr(KTimeToStoredStr(Make(2006, 13, 1)))));
}

TEST_F(DateTest, FileTimes) {
  FILETIME ft;
  ASSERT_TRUE(KTimeGetFileTime(Make(2006, 3, 7, 9, 5, 30), ft));
  unsigned long long n = ((unsigned long long)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
  EXPECT_EQ((1141722330ull + 11644473600ull) * 10000000ull, n);
  ft.dwLowDateTime += 1;  // a fraction of a second, dropped
  EXPECT_EQ("2006-03-07 09:05:30", Str(CKDateTime(ft)));
  ASSERT_TRUE(KTimeGetFileTime(Make(1601, 1, 1), ft));
  EXPECT_EQ(0u, ft.dwLowDateTime | ft.dwHighDateTime);
  EXPECT_FALSE(KTimeGetFileTime(Make(1600, 12, 31), ft) || KTimeGetFileTime(CKDateTime(), ft) ||
               KTimeGetFileTime(Make(2006, 2, 30), ft));
  ft.dwHighDateTime = 0x80000000u;
  EXPECT_TRUE(CKDateTime(ft).IsNull());
  EXPECT_EQ(1u, tools.Count());

  CKTestTempDir dir;
  const std::string strStem = dir.Path("kdatetime");
  const std::string strFile = strStem + "_probe.tmp";
  long t0 = (long)time(nullptr);
  std::ofstream(strFile) << "x";
  CKDateTime creation = Make(2000, 1, 1);
  CKDateTime d = KFileTime(strFile.c_str(), creation);
  EXPECT_GE(d.ToSeconds(TRUE), t0 - 1);
  EXPECT_LE(d.ToSeconds(TRUE), (long)time(nullptr) + 1);
  EXPECT_FALSE(creation.IsNull());
  EXPECT_TRUE(KFileTime((strStem + "_pro?e.*").c_str()) == d);
  std::remove(strFile.c_str());

  const CKDateTime oleZero = Make(1899, 12, 30);
  EXPECT_TRUE(KFileTime(strFile.c_str(), creation) == oleZero);
  EXPECT_TRUE(creation.IsNull());
  EXPECT_TRUE(KFileTime("") == oleZero && KFileTime(nullptr) == oleZero);
  EXPECT_TRUE(KFileTime((strStem + "_*").c_str()) == oleZero);
}

TEST_F(DateTest, DayCounts) {
  KTestZone zone(kParis);
  // March 2006: Tuesdays 7, 14, 21, 28; Wednesdays 1, 8, 15, 22, 29.
  EXPECT_EQ(4, KGetDaysCount(Make(2006, 3, 1), Make(2006, 3, 31), 2));
  EXPECT_EQ(5, KGetDaysCount(Make(2006, 3, 1), Make(2006, 3, 31), 3));
  EXPECT_EQ(1, KGetDaysCount(Make(2006, 3, 1), Make(2006, 3, 1), 3));
  EXPECT_EQ(0, KGetDaysCount(Make(2006, 3, 2), Make(2006, 3, 1), 3));
  EXPECT_TRUE(tools.LastIsAssert("now->tm_yday<=now2->tm_yday", "src/KDateTime",
                                 CKTestLog::kReturnValue));

  // From Monday 6 March; the end's own week-end is left out.
  const std::pair<int, int> aEnds[] = {{10, 0}, {17, 2}, {18, 2}, {19, 2}, {20, 4}};
  for (const auto& x : aEnds)
    EXPECT_EQ(x.second, KGetWeekEndDaysCount(Make(2006, 3, 6), Make(2006, 3, x.first))) << x.first;
  EXPECT_EQ(2, KGetWeekEndDaysCount(Make(2006, 12, 27), Make(2007, 1, 5)));  // over a new year
  // A leap year shifts the weekdays past 31 December: an end Saturday gives -1.
  EXPECT_EQ(-1, KGetWeekEndDaysCount(Make(2008, 12, 29), Make(2009, 1, 3)));
}

TEST_F(DateTest, DurationsAndTimers) {
  const std::pair<unsigned long, const char*> aSecs[] = {
      {0, "0s"},      {5, "5s"},         {60, "1m00s"},       {65, "1m05s"},
      {3605, "1h05s"}, {3665, "1h01m05s"}, {100000, "27h46m40s"}};
  for (const auto& x : aSecs) EXPECT_STREQ(x.second, KTime(x.first));

  const std::tuple<unsigned long, int, int, const char*> aAbs[] = {
      {500, 0, 1, "500 ms"},        {61001, 0, 1, "1 min 1 s 1 ms"},
      {61001, 0, 0, "1 min 1 s"},   {500, 1, 1, "0 hours 0 min 0 s 500 ms"},
      {1500, 0, 1, "1 s 500 ms"},   {1500, 0, 0, "1 s"},
      {3723004, 0, 0, "1 hours 2 min 3 s"}, {3723004, 1, 1, "1 hours 2 min 3 s 4 ms"}};
  for (const auto& [nMs, bHours, bMs, szText] : aAbs)
    EXPECT_STREQ(szText, KTimerGetTextAbsolut(nMs, bHours, bMs)) << nMs;
  const unsigned long anSmart[] = {999, 59999, 61000, 3723004};
  const char* const aszSmart[] = {"0 s", "59 s", "1 min 01 s", "1 hours 02 min"};
  for (int i = 0; i < 4; ++i) EXPECT_STREQ(aszSmart[i], KTimerGetSmartText(anSmart[i], FALSE));
  EXPECT_STREQ("2 s", KTimerGetSmartText(KGetTickCount() - 2500, TRUE));

  // Tick differences wrap at 32 bits.
  unsigned long nNow = KGetTickCount();
  EXPECT_GE(KTimerGet(nNow - 5000), 5000ul);
  EXPECT_LT(KTimerGet(nNow - 5000), 60000ul);
  unsigned long nWrapped = KTimerGet((nNow + 1000) & 0xFFFFFFFFul);
  EXPECT_TRUE(nWrapped > 0xFFFF0000ul && nWrapped <= 0xFFFFFFFFul);

  unsigned long nStart = (KGetTickCount() - 1500) & 0xFFFFFFFFul;
  KTimerTrace2(1024, "Sort marked done in", nStart);
  ASSERT_EQ(1u, tools.Count());
  EXPECT_EQ(1024, tools.LastType());
  EXPECT_EQ(0u, tools.Last().find("Sort marked done in : 1 s "));
  KTimerTrace(nStart);
  EXPECT_EQ(0u, tools.Last().find("1 s "));
  EXPECT_EQ(" ms", tools.Last().substr(tools.Last().size() - 3));
  unsigned long nReset = nStart;
  KTimerTrace2Reset("step", nReset);
  EXPECT_TRUE(tools.Count() == 3u && KTimerGet(nReset) < 1000ul);

  tools.SetFlags(0);  // timer tracing off
  EXPECT_EQ(0ul, KTimerStart());
  EXPECT_LT(KTimerGet(KTimerStart2()), 1000ul);
  KTimerTrace(nStart);
  KTimerTrace2(24, "x", nStart);
  KTimerTraceReset(nReset);
  EXPECT_TRUE(tools.Count() == 3u && nReset == 0ul);
}

TEST(KListDateTime, Operations) {
  CountingList l;
  const CKDateTime a = Make(2006, 3, 7), b = Make(2006, 1, 1), c = Make(2007, 5, 5);
  EXPECT_EQ(0, l.Add(a));
  EXPECT_EQ(1, l.Add(COleDateTime(2006, 1, 1, 0, 0, 0)));
  EXPECT_TRUE(l.Get(1) == b);
  EXPECT_EQ(-1, l.AddUnique(a));
  EXPECT_EQ(2, l.AddUnique(c));
  EXPECT_TRUE(l.nFind == 2 && l.nAdd == 2 && l.Count() == 3);
  EXPECT_TRUE(l.Find(Make(1999, 1, 1)) == -1 && l.Get(3).IsNull() && l.Get(-1).IsNull());

  EXPECT_EQ(1, l.FindFirstLow(a, -5));
  EXPECT_EQ(-1, l.FindFirstLow(a, 2));
  EXPECT_EQ(0, l.InsertAt(-2, c));
  EXPECT_TRUE(l.Get(0) == c && l.Get(1) == a);
  void* pSlot = l.PileGet(1);
  EXPECT_EQ(1, l.Set(1, b));
  EXPECT_EQ(pSlot, l.PileGet(1));  // overwritten in place
  EXPECT_EQ(0, l.Set(-4, a));
  EXPECT_EQ(6, l.Set(6, a));
  EXPECT_TRUE(l.Count() == 7 && l.Get(5).IsNull() && l.Get(6) == a);
  l.Delete(5);
  EXPECT_TRUE(l.Count() == 6 && l.Get(5) == a);
  // Setting past the count clears the slots in between, even vacated ones.
  EXPECT_EQ(7, l.Set(7, c));
  EXPECT_TRUE(l.Get(6).IsNull() && !l.PileGet(6) && l.Get(7) == c);
  CKTestLog log;
  EXPECT_TRUE(l.Set(INT_MAX - 5, a) == -1 && l.Count() == 8);  // refused, copy freed
  EXPECT_EQ("ERROR => CKListDateTime: the list cannot grow", log.Last());

  // Copies, by assignment or construction, own their elements.
  CKListDateTime copy;
  copy.Add(c);
  copy = l;
  const CKListDateTime built(l);
  ASSERT_TRUE(l.Count() == copy.Count() && l.Count() == built.Count());
  for (int i = 0; i < l.Count(); ++i) {
    EXPECT_TRUE(copy.Get(i) == l.Get(i) && built.Get(i) == l.Get(i));
    void* pOwn = l.PileGet(i);
    EXPECT_TRUE(!pOwn || (copy.PileGet(i) != pOwn && built.PileGet(i) != pOwn));
  }

  CKListDateTime target;
  target.Add(b);
  copy.Detach(target);
  EXPECT_EQ(0, copy.Count());
  EXPECT_TRUE(target.Count() == l.Count() && target.Get(0) == a);
  EXPECT_TRUE(target.PreAlloc(3));
  EXPECT_TRUE(target.Count() == 3 && target.Get(2).IsNull() && target.PileGet(2) != nullptr);
  EXPECT_FALSE(target.PreAlloc(INT_MAX));  // no room: refused, not written past the block
  EXPECT_EQ(0, target.Count());
  target.Empty();
  l.DeleteAll();
  EXPECT_TRUE(target.Count() == 0 && l.Count() == 0 && l.PileGetData() == nullptr);
}
