// Diagnostics and log: assertion reports, the KLog family, the default tools
// object (the sink), debug helpers and the leak tracker.
#define KSRC_PATH "src/KDebug"

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include <base/classes/list/KList.h>
#include <base/classes/list/KPile.h>
#include <base/classes/list/KPtrList.h>
#include <base/tools/KMessage.h>
#include <base/tools/KStr.h>
#include <base/tools/KTools.h>

#include "KAlloc.h"
#include "platform/KPlatform.h"

// ---------------------------------------------------------------- tools object
namespace {

std::atomic<int> g_nDefaultLogType{1};
int g_nDbgCount = 0;

// Set from one thread, read by every logging thread: the pair is read and
// written together under its lock, and called outside it.
struct DebugOutputHook {
  kplat::Mutex* pLock = kplat::MutexNew();
  KDebugOutputFunc pFunc = nullptr;
  void* pContext = nullptr;
};
DebugOutputHook& DebugHook() {
  static DebugOutputHook* p = new DebugOutputHook;  // outlives static destructors
  return *p;
}

// Never destroyed: static destructors elsewhere may still log at exit.
CKTools& DefaultTools() {
  static CKTools* p = new CKTools;
  return *p;
}

std::atomic<CKTools*> g_pTools{nullptr};

}  // namespace

CKTools* KTools() {
  CKTools* p = g_pTools.load(std::memory_order_acquire);
  return p ? p : &DefaultTools();
}

void KToolsInit(CKTools* p) { g_pTools.store(p, std::memory_order_release); }

void KSetDebugOutput(KDebugOutputFunc pFunc, void* pContext) {
  DebugOutputHook& h = DebugHook();
  kplat::MutexGuard g(h.pLock);
  h.pFunc = pFunc;
  h.pContext = pContext;
}

CKTools::CKTools()
    : m_nFlags(KTOOLS_FLAG_LOG), m_nDebugMode(0), m_hWndMain(nullptr), m_pLogFile(nullptr) {}

CKTools::~CKTools() {}

CKString CKTools::GetFileLocation(const char* szPath, int nLine, int& nLineOut) {
  nLineOut = nLine;
  if (!szPath) return CKString();
  // Keep the part from the last "src/" or "include/" directory on.
  const char* pBest = szPath;
  for (const char* p = szPath; *p; ++p) {
    if ((p == szPath || p[-1] == '/' || p[-1] == '\\') &&
        (strncmp(p, "src/", 4) == 0 || strncmp(p, "include/", 8) == 0))
      pBest = p;
  }
  CKString s(pBest);
  int nSlash = s.ReverseFind('/');
  int nDot = s.ReverseFind('.');
  if (nDot > nSlash && nDot > 0) s = s.Left((unsigned)nDot);
  return s;
}

void CKTools::Log(const char* szText, int nType) {
  if (!szText) szText = "";
  CKString strLine = KAnd(szText, "\n");
  HWND hWnd = m_hWndMain;
  if (hWnd && KIsMessageTarget(hWnd)) {
    std::unique_ptr<CKLogMsg> pMsg(KMEM_TRY(new CKLogMsg));
    pMsg->m_nReserved = 0;
    // A block of the record's own: the receiver may free it on another thread
    // while this one still holds strLine (string counts are not atomic).
    pMsg->m_strText = (const char*)strLine;
    pMsg->m_nType = nType;
    // The owner thread gets it at once; other threads queue it so a worker
    // never waits on the interface thread.
    // The target owns a record it was given; one it refused is freed here.
    if (KMessageIsOwnerThread(hWnd)) {
      KSendMessage(hWnd, KWM_LOG, (WPARAM)nType, (LPARAM)pMsg.release());
    } else if (KPostMessage(hWnd, KWM_LOG, (WPARAM)nType, (LPARAM)pMsg.get())) {
      pMsg.release();
    }
  } else {
    DebugOutput(strLine);
  }
  FILE* pStream = m_pLogFile;
  if (pStream) fprintf(pStream, "%s", (const char*)strLine);
}

void CKTools::LogClear(int nType, int bPost) {
  HWND hWnd = m_hWndMain;
  if (!hWnd) return;
  if (bPost)
    KPostMessage(hWnd, KWM_LOG_CLEAR, (WPARAM)nType, 1);
  else
    KSendMessage(hWnd, KWM_LOG_CLEAR, (WPARAM)nType, 1);
}

void CKTools::LogSwitch(int nType, int bPost) {
  HWND hWnd = m_hWndMain;
  if (!hWnd) return;
  if (bPost)
    KPostMessage(hWnd, KWM_LOG_SWITCH, (WPARAM)nType, 0);
  else
    KSendMessage(hWnd, KWM_LOG_SWITCH, (WPARAM)nType, 0);
}

void CKTools::Status(const char* szText, const char* /*szText2*/, int /*n*/) {
  if (szText) DebugOutput(szText);
  DebugOutput("\r\n");
}

void CKTools::DebugOutput(const char* szText) {
  if (!szText) return;
  KDebugOutputFunc pFunc;
  void* pContext;
  {
    DebugOutputHook& h = DebugHook();
    kplat::MutexGuard g(h.pLock);
    pFunc = h.pFunc;
    pContext = h.pContext;
  }
  if (pFunc) {
    pFunc(szText, pContext);
    return;
  }
  if (m_nDebugMode) kplat::DebugWrite(szText);
}

void CKTools::SetLogFile(FILE* pStream) { m_pLogFile = pStream; }

// ---------------------------------------------------------------- records
// Out of line, so that the DLL exports these classes by name.
CKLogMsg::CKLogMsg() : m_nReserved(0), m_nType(0), m_nParam(0) {}

CKMemoryException::CKMemoryException(const char* szFile, unsigned nLine)
    : m_szFile(szFile), m_nLine(nLine) {}

// ---------------------------------------------------------------- log family
static inline bool LogOn() { return (KTools()->GetFlags() & KTOOLS_FLAG_LOG) != 0; }

int KLogEnabled() { return LogOn() ? 1 : 0; }

int KLogType(int nType) { return nType == 1 ? g_nDefaultLogType.load() : nType; }

void KSetDefaultLogType(int nType) { g_nDefaultLogType = nType; }

void KLog(const char* szText) {
  if (!LogOn() || !szText) return;
  KTools()->Log(szText, KLogType(1));
}

void KLog(int nType, const char* szText) {
  if (!LogOn() || !szText) return;
  KTools()->Log(szText, KLogType(nType));
}

void KLog(const char* s1, const char* s2, const char* s3, const char* s4, const char* s5) {
  if (!LogOn()) return;
  const char* a[5] = {s1, s2, s3, s4, s5};
  KTools()->Log(KAndN(a, 5), KLogType(1));
}

void KLog(const char* s1, const char* s2, const char* s3, const char* s4, const char* s5,
          const char* s6, const char* s7, const char* s8, const char* s9, const char* s10,
          const char* s11, const char* s12, const char* s13, const char* s14, const char* s15) {
  if (!LogOn()) return;
  const char* a[15] = {s1, s2, s3, s4, s5, s6, s7, s8, s9, s10, s11, s12, s13, s14, s15};
  KTools()->Log(KAndN(a, 15), KLogType(1));
}

void KLog(int nType, const char* s1, const char* s2, const char* s3, const char* s4,
          const char* s5) {
  if (!LogOn()) return;
  const char* a[5] = {s1, s2, s3, s4, s5};
  KTools()->Log(KAndN(a, 5), KLogType(nType));
}

void KLog(int nType, const char* s1, const char* s2, const char* s3, const char* s4,
          const char* s5, const char* s6, const char* s7, const char* s8, const char* s9,
          const char* s10, const char* s11, const char* s12, const char* s13,
          const char* s14, const char* s15) {
  if (!LogOn()) return;
  const char* a[15] = {s1, s2, s3, s4, s5, s6, s7, s8, s9, s10, s11, s12, s13, s14, s15};
  KTools()->Log(KAndN(a, 15), KLogType(nType));
}

void KLogList(int nType, CKList* pLines) {
  if (!LogOn() || !pLines) return;
  for (int i = 0; i < pLines->Count(); ++i) KLog(nType, (const char*)pLines->Get(i));
}

void KLogText(int nType, const char* szText) {
  if (!LogOn()) return;
  CKList lines;
  KStrTextToList(&lines, szText);
  KLogList(nType, &lines);
}

void KLogClear(int nType, int bPost) {
  if (!LogOn()) return;
  KTools()->LogClear(KLogType(nType), bPost);
}

void KLogSwitch(int nType, int bPost) {
  if (!LogOn()) return;
  KTools()->LogSwitch(nType, bPost);
}

void KStatus(const char* szText, const char* szText2, int n) {
  CKTools* p = KTools();
  if (!(p->GetFlags() & KTOOLS_FLAG_STATUS) || !szText) return;
  p->Status(szText, szText2, n);
}

void KAssertReport(const char* szCond, const char* szPath, int nLine, int nVariant) {
  if (!LogOn()) return;
  char szLine[32];
  KStr(nLine, szLine, 10);
  switch (nVariant) {
    case KASSERT_CONTINUE:
      KLog(KLOG_ASSERT, "Assertion failed (", szCond, ") in ", szPath, " on line ", szLine,
           ". Continue...", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
           nullptr);
      break;
    case KASSERT_RETURN_VALUE:
      KLog(KLOG_ASSERT, "Assertion failed (", szCond, ") in ", szPath, " on line ", szLine,
           ". Returning value...", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
           nullptr, nullptr);
      break;
    default:
      // No closing parenthesis and no " value...": this form is part of the
      // output that log readers expect.
      KLog(KLOG_ASSERT, "Assertion failed (", szCond, " in ", szPath, " on line ", szLine,
           ". Returning", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
           nullptr);
      break;
  }
}

// ---------------------------------------------------------------- debug helpers
void KDbg(const char* szText) { KLogText(KLOG_DEBUG, szText); }

void KDbgReport(const char* szFile, int nLine) {
  if (!LogOn()) return;
  char szDate[128];
  struct tm t;
  const time_t now = kplat::CurrentTime();
  if (now == (time_t)-1 || !kplat::LocalTime(now, &t) ||
      !kplat::FormatUserDateTime(&t, szDate, sizeof(szDate)))
    strcpy(szDate, "Invalid DateTime");
  char szLine[32];
  KStr(nLine, szLine, 10);
  char szBanner[64];
  memset(szBanner, '#', 63);
  szBanner[63] = 0;
  CKString strReport = KAnd(szBanner, "\r\n", szDate, " : ", "VBDLL Assertion in File = \"",
                            szFile, "\", at Line = ", szLine, "\r\n");
  KLogText(KLOG_DEBUG, strReport);
}

void KDbgThrow() {
  KLogText(KLOG_DEBUG, "AfxThrowNotSupportedException()");
  throw CNotSupportedException();
}

void KDbgAssert1() {
  KDbgReport(KSRC_PATH, 142);
  KDbgThrow();
}

void KDbgAssert2() {
  // Deliberate access violation: write to the first bytes of the null page.
  volatile int* volatile p = nullptr;
  *p = 0;
  abort();
}

void KDbgInc() { ++g_nDbgCount; }
void KDbgClear() { g_nDbgCount = 0; }
int KDbgCount() { return g_nDbgCount; }

void KSetDebugMode(int nMode) { KTools()->SetDebugMode(nMode); }

// ---------------------------------------------------------------- leak tracker
namespace {

struct LeakTracker {
  kplat::Mutex* pLock = kplat::MutexNew();
  CKList names;
  CKPile counts;  // slot i: live count of names[i], stored in the slot itself
  CKPile lists;   // slot i: CKPtrList<void>* of live objects of names[i]

  int Position(const char* szName) {
    int i = names.Find(szName, FALSE);
    if (i < 0) i = names.Add(szName);
    return i;
  }
  CKPtrList<void>* ListAt(int i) {
    CKPtrList<void>* p = (CKPtrList<void>*)lists.PileGet(i);
    if (!p) {
      p = KMEM_TRY(new CKPtrList<void>);
      lists.PileSet(i, p);
    }
    return p;
  }
  void Clear() {
    for (int i = 0; i < lists.Count(); ++i) delete (CKPtrList<void>*)lists.PileGet(i);
    lists.PileEmpty();
    counts.PileEmpty();
    names.DeleteAll();
  }
};

// Never destroyed, like the tools object: objects freed by static
// destructors may still report to it.
LeakTracker& Tracker() {
  static LeakTracker* p = new LeakTracker;
  return *p;
}

struct TrackerLock : kplat::MutexGuard {
  explicit TrackerLock(LeakTracker& t) : kplat::MutexGuard(t.pLock) {}
};

}  // namespace

KDebugTermFunc gpFuncDebugTerm = nullptr;

void KDebugAlloc(const char* szClassName, void* pObject) {
  LeakTracker& t = Tracker();
  TrackerLock lock(t);
  int i = t.Position(szClassName);
  if (i >= t.counts.Count())
    t.counts.PileSet(i, (void*)(intptr_t)1);
  else
    t.counts.PileSet(i, (void*)((intptr_t)t.counts.PileGet(i) + 1));
  t.ListAt(i)->Add(pObject);
}

void KDebugFree(const char* szClassName, void* pObject) {
  LeakTracker& t = Tracker();
  TrackerLock lock(t);
  int i = t.Position(szClassName);
  if (i < t.counts.Count()) {
    t.counts.PileSet(i, (void*)((intptr_t)t.counts.PileGet(i) - 1));
    t.ListAt(i)->Remove(pObject);
  } else {
    // A free without an allocation shows as a negative count.
    t.counts.PileSet(i, (void*)(intptr_t)-1);
  }
}

void KDebugDisplay(KDebugTermFunc pCallback) {
  LeakTracker& t = Tracker();
  TrackerLock lock(t);
  const char* szBanner = "=========================================";  // 41
  KLog(szBanner);
  bool bLeak = false;
  for (int i = 0; i < t.counts.Count(); ++i) {
    intptr_t n = (intptr_t)t.counts.PileGet(i);
    if (n == 0) continue;
    bLeak = true;
    CKString strName = t.names.Get(i);
    KLog("=== ", strName, " : ", KStr((__int64)n), " not released");
    if (pCallback) {
      CKPtrList<void>* pList = (CKPtrList<void>*)t.lists.PileGet(i);
      for (int j = 0; pList && j < pList->Count(); ++j) pCallback(strName, pList->Get(j));
    }
  }
  if (!bLeak) KLog("=== No Leak");
  KLog(szBanner);
}

void KDebugReset() {
  LeakTracker& t = Tracker();
  TrackerLock lock(t);
  t.Clear();
}

// ---------------------------------------------------------------- start-up
void KDebugStartupCheck() {
  KLog("Seeking for kelvor debug mode");
  std::string strValue;
  if (kplat::GetEnv("KELVOR_DEBUG", strValue)) {
    KSetDebugMode(1);
    KLog("Switching to kelvor debug mode");
  }
}

namespace {
struct StartupCheck {
  StartupCheck() { KDebugStartupCheck(); }
} g_startupCheck;
}  // namespace
