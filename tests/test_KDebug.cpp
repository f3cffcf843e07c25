#define KSRC_PATH "tests/test_KDebug"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KDebug.h>
#include <base/tools/KMessage.h>
#include <base/tools/KTools.h>

#include "KTestEnv.h"
#include "KTestLog.h"

namespace {

struct CStatusLog : CKTestLog {
  std::vector<std::string> status;
  void Status(const char* a, const char* b, int n) override {
    status.push_back(std::string(a) + "|" + (b ? b : "") + "|" + std::to_string(n));
  }
};

struct KDebugTest : ::testing::Test {
  KDebugTest() { Reset(); }
  ~KDebugTest() override { Reset(); }
  static void Reset() {
    KSetDefaultLogType(1);
    KDebugReset();
  }
  CStatusLog tools;
};

int g_nLine = 0;
int AssertContinue(int n) {
  g_nLine = __LINE__; KASSERT(n>0);
  return 1;
}
int AssertReturnValue(int nIndex) {
  g_nLine = __LINE__; KASSERT_RETV(nIndex>=0, -1);
  return nIndex;
}
void AssertReturn(int c, int elts) {
  KASSERT_RET_AT(c <= elts, "c<=data.elts", "include/base/classes/list/KPile", 79);
}

typedef std::vector<std::string> Received;
// Records "log <type> <text>", "clear <type> <lParam>" or "switch <type> <lParam>".
LRESULT Collect(HWND, UINT nMsg, WPARAM w, LPARAM l, void* ctx) {
  std::string s = nMsg == KWM_LOG ? "log " : nMsg == KWM_LOG_CLEAR ? "clear " : "switch ";
  s += std::to_string(w) + " ";
  if (nMsg == KWM_LOG) {
    s += (const char*)((CKLogMsg*)l)->m_strText;
    delete (CKLogMsg*)l;
  } else {
    s += std::to_string(l);
  }
  ((Received*)ctx)->push_back(s);
  return 1;
}

}  // namespace

TEST_F(KDebugTest, AssertionVariantsAreExact) {
  EXPECT_EQ(1, AssertContinue(0));
  const std::string strContinueAt = "in tests/test_KDebug on line " + std::to_string(g_nLine);
  EXPECT_EQ(-1, AssertReturnValue(-4));
  AssertReturn(5, 3);
  AssertReturn(1, 3);
  const CKTestLog::Strings expected = {
      "Assertion failed (n>0) " + strContinueAt + ". Continue...",
      "Assertion failed (nIndex>=0) in tests/test_KDebug on line " + std::to_string(g_nLine) +
          ". Returning value...",
      "Assertion failed (c<=data.elts in include/base/classes/list/KPile on line 79. Returning"};
  EXPECT_EQ(expected, tools.Texts());
  EXPECT_EQ(expected, tools.Asserts());  // all of type 8

  // A disabled log reports nothing at all.
  tools.SetFlags(0);
  AssertContinue(0);
  KLog(8, "x");
  EXPECT_EQ(3u, tools.Count());
}

TEST_F(KDebugTest, LogFamilyRoutesAndResolvesTypes) {
  KLog("plain");
  KSetDefaultLogType(24);
  KLog(1, "resolved");
  KLog("a", "b", "c");
  KLog(8, "a", nullptr, "b", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
       nullptr, nullptr, nullptr, nullptr, nullptr);
  KLog(10, "ERROR => ", "disk", " full");
  KLog((const char*)nullptr);
  KLog(8, (const char*)nullptr);
  KLogText(8, "first\r\nsecond");
  EXPECT_EQ(tools.Texts(), (CKTestLog::Strings{"plain", "resolved", "abc", "ab",
                                                "ERROR => disk full", "first", "second"}));
  EXPECT_EQ(tools.Texts(1), CKTestLog::Strings{"plain"});
  EXPECT_EQ(tools.Texts(24), (CKTestLog::Strings{"resolved", "abc"}));
  EXPECT_EQ(tools.Texts(8), (CKTestLog::Strings{"ab", "first", "second"}));
  EXPECT_EQ(5, KLogType(5));
  EXPECT_EQ(24, KLogType(1));
  EXPECT_EQ(1, KLogEnabled());
  tools.SetFlags(0);
  EXPECT_EQ(0, KLogEnabled());
  KLogText(8, "x\ny");
  EXPECT_EQ(7u, tools.Count());

  // Status needs its own flag and a text.
  tools.SetFlags(KTOOLS_FLAG_LOG);
  KStatus("s", "t", 3);
  EXPECT_TRUE(tools.status.empty());
  tools.SetFlags(KTOOLS_FLAG_STATUS);
  KStatus(nullptr, "t", 3);
  KStatus("s", nullptr, 4);
  ASSERT_EQ(1u, tools.status.size());
  EXPECT_EQ("s||4", tools.status[0]);
}

TEST_F(KDebugTest, LeakTracker) {
  int a, b, c;
  KDebugDisplay(nullptr);
  const std::string strRule(41, '=');
  EXPECT_EQ(tools.Texts(), (CKTestLog::Strings{strRule, "=== No Leak", strRule}));

  tools.Clear();
  KDebugAlloc("CKObj", &a);
  KDebugAlloc("CKObj", &b);
  KDebugAlloc("CProp", &c);
  KDebugFree("CKObj", &a);
  KDebugFree("CProp", &c);
  KDebugFree("CNever", &c);
  static std::vector<void*> seen;
  seen.clear();
  KDebugDisplay([](const char* szName, void* p) {
    EXPECT_STREQ("CKObj", szName);
    seen.push_back(p);
  });
  EXPECT_EQ(tools.Texts(), (CKTestLog::Strings{strRule, "=== CKObj : 1 not released",
                                                "=== CNever : -1 not released", strRule}));
  ASSERT_EQ(1u, seen.size());
  EXPECT_EQ(&b, seen[0]);
}

TEST_F(KDebugTest, DebugReportAndThrow) {
  KDbgReport("src/KObj", 77);
  ASSERT_EQ(3u, tools.Count());
  EXPECT_EQ(std::string(63, '#'), tools.lines[0].text);
  // The local date and time, then the place.
  const std::string strTail = " : VBDLL Assertion in File = \"src/KObj\", at Line = 77";
  const std::string& strReport = tools.lines[1].text;
  EXPECT_TRUE(strReport.size() > strTail.size() &&
              strReport.compare(strReport.size() - strTail.size(), strTail.size(), strTail) == 0)
      << strReport;
  EXPECT_EQ(24, tools.lines[1].type);

  tools.Clear();
  EXPECT_THROW(KDbgThrow(), CNotSupportedException);
  EXPECT_EQ(tools.Texts(), CKTestLog::Strings{"AfxThrowNotSupportedException()"});
  tools.Clear();
  EXPECT_THROW(KDbgAssert1(), CNotSupportedException);
  EXPECT_NE(std::string::npos, tools.lines[1].text.find("\"src/KDebug\", at Line = 142"));
}

TEST(KDebugDeath, Assert2Crashes) {
  EXPECT_DEATH(KDbgAssert2(), "");
}

TEST(KDebugSink, MainWindowGetsLinesSyncOrQueued) {
  CKTools tools;
  KToolsInit(&tools);
  Received r;
  HWND h = KMessageTargetCreate(Collect, &r);
  tools.SetMainWnd(h);
  FILE* f = tmpfile();
  tools.SetLogFile(f);

  KLog(8, "from owner");
  EXPECT_EQ(Received{"log 8 from owner\n"}, r);  // delivered at once on the owner thread
  std::thread([] { KLog(10, "from worker"); }).join();
  EXPECT_EQ(1u, r.size());  // queued, not delivered
  EXPECT_EQ(1, KMessagePump(h, 1000));
  EXPECT_EQ(2u, r.size());

  KSetDefaultLogType(5);
  KLogClear(1, FALSE);  // type 1 resolved to the default
  KSetDefaultLogType(1);
  KLogSwitch(24, TRUE);
  EXPECT_EQ(3u, r.size());
  EXPECT_EQ(1, KMessagePump(h));
  EXPECT_EQ(r, (Received{"log 8 from owner\n", "log 10 from worker\n", "clear 5 1",
                         "switch 24 0"}));

  // Pending records die with the target.
  std::thread([] { KLog("orphan"); }).join();
  KMessageTargetDestroy(h);
  EXPECT_FALSE(KIsMessageTarget(h));
  tools.SetMainWnd(nullptr);

  char buf[64] = {0};
  rewind(f);
  size_t n = fread(buf, 1, sizeof(buf) - 1, f);
  fclose(f);
  EXPECT_EQ("from owner\nfrom worker\norphan\n", std::string(buf, n));
  KToolsInit(nullptr);
}

TEST(KDebugSink, TargetsBelongToTheirThread) {
  CKTestLog log;
  Received r;
  HWND h = KMessageTargetCreate(Collect, &r);
  // A message taken without waiting leaves no signal behind: the next pump
  // waits its whole time-out instead of returning at once.
  KPostMessage(h, KWM_LOG_SWITCH, 1, 0);
  EXPECT_EQ(1, KMessagePump(h, 0));
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(0, KMessagePump(h, 60));
  EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(55));
  std::async(std::launch::async, [h] { KPostMessage(h, KWM_LOG_SWITCH, 2, 0); }).get();
  EXPECT_EQ(1, KMessagePump(h, 10000));
  EXPECT_EQ(r, (Received{"switch 1 0", "switch 2 0"}));

  // Only the owner may destroy it: the owner could be waiting on it.
  BOOL bDestroyed = TRUE;
  std::thread([h, &bDestroyed] { bDestroyed = KMessageTargetDestroy(h); }).join();
  EXPECT_FALSE(bDestroyed);
  EXPECT_TRUE(KIsMessageTarget(h));
  EXPECT_EQ("ERROR => KMessageTargetDestroy: not the owner thread", log.Last());
  EXPECT_EQ(10, log.LastType());
  EXPECT_TRUE(KMessageTargetDestroy(h));
  EXPECT_FALSE(KMessageTargetDestroy(h));
}

TEST(KDebugSink, DebugOutputChannel) {
  static std::string out;
  out.clear();
  CKTools tools;
  KToolsInit(&tools);
  KSetDebugOutput([](const char* s, void*) { out += s; }, nullptr);
  KLog("to debugger");
  tools.SetFlags(KTOOLS_FLAG_LOG | KTOOLS_FLAG_STATUS);
  KStatus("status", nullptr, 0);
  EXPECT_EQ("to debugger\nstatus\r\n", out);
  KSetDebugOutput(nullptr, nullptr);

  int nLine = 0;
  EXPECT_STREQ("src/KList", tools.GetFileLocation("/work/x/src/KList.cpp", 79, nLine));
  EXPECT_EQ(79, nLine);
  EXPECT_STREQ("include/base/classes/list/KPile",
               tools.GetFileLocation("../include/base/classes/list/KPile.h", 1, nLine));
  KToolsInit(nullptr);
  EXPECT_NE(&tools, KTools());
}

TEST(KDebugSink, StartupCheckReadsEnvironment) {
  CKTestLog tools;
  KTestSetEnv("KELVOR_DEBUG", nullptr);
  tools.SetDebugMode(0);
  KDebugStartupCheck();
  EXPECT_EQ(0, tools.GetDebugMode());
  EXPECT_EQ(tools.Texts(), CKTestLog::Strings{"Seeking for kelvor debug mode"});
  KTestSetEnv("KELVOR_DEBUG", "0");  // any value, even "0"
  KDebugStartupCheck();
  EXPECT_EQ(1, tools.GetDebugMode());
  EXPECT_EQ("Switching to kelvor debug mode", tools.Last());
  KTestSetEnv("KELVOR_DEBUG", nullptr);
}
