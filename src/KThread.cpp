// Worker threads, thread priorities and the performance-counter stopwatch.
#define KSRC_PATH "src/KThread"

#include <base/tools/KThread.h>

#include <cmath>
#include <cstdio>
#include <exception>

#include <base/tools/KDateTime.h>
#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KMessage.h>
#include <base/tools/KStr.h>
#include <lang/KLangList.h>

#include "platform/KPlatform.h"

namespace {

// How long HardDestroy lets a cancelled worker take to unwind.
const uint32_t kForcedEndWaitMs = 2000;

}  // namespace

// ---------------------------------------------------------------- CKThread
CKThread::CKThread() : CKThread(nullptr) {}

CKThread::CKThread(HWND hNotify)
    : m_bAutoDelete(TRUE),
      m_pObj(nullptr),
      m_pFunc(nullptr),
      m_lParam1(0),
      m_lParam2(0),
      m_pStopEvent(kplat::EventNew(true, false)),
      m_hNotify(hNotify),
      m_iError(0),
      m_bEnded(0),
      m_bRunning(0),
      m_cLang(0),
      m_nStackSize(0),
      m_pThread(nullptr) {}

CKThread::~CKThread() {
  // A destructor must not be cut short by a pending forced termination of
  // the thread that runs it (the waits below are cancellation points).
  kplat::NoCancelScope noCancel;
  if (!m_bAutoDelete) StopAndWait(1);
  kplat::ThreadRelease(m_pThread);
  m_pThread = nullptr;
  kplat::EventFree(m_pStopEvent);
}

void CKThread::ThreadEntry(void* pArg) {
  CKThread* pThis = static_cast<CKThread*>(pArg);
  // There is no message loop: whatever InitInstance says, the thread ends.
  pThis->InitInstance();
  // The body is over: a forced termination has nothing left to cut short,
  // and must not strike inside the end-of-thread work and destructors.
  kplat::NoCancelScope noCancel;
  pThis->ExitInstance();
  if (pThis->m_bAutoDelete) delete pThis;
  // The OS thread may run another job next: it must find the thread state
  // a new thread starts with.
  KLangSetThreadLang(0);
  KLangExtSetThreadLang(nullptr);
  kplat::SockSetLastError(0);
}

BOOL CKThread::InitInstance() {
  KLangSetThreadLang(m_cLang);
  KLangExtSetThreadLang(m_strLangExt);
  m_bRunning = 1;
  // Only typed handlers: a forced termination unwinds through here and must
  // not be caught.
  try {
    Func();
  } catch (const std::exception& e) {
    m_strError = KAnd("Exception in thread body: ", e.what());
    KLog(KLOG_ERROR, "ERROR => CKThread: ", m_strError);
  } catch (const CKMemoryException& e) {
    m_strError = KAnd("Memory exhausted in thread body at ", e.m_szFile);
    KLog(KLOG_ERROR, "ERROR => CKThread: ", m_strError);
  } catch (const CNotSupportedException&) {
    m_strError = "Debugging exception in thread body";
    KLog(KLOG_ERROR, "ERROR => CKThread: ", m_strError);
  }
  m_bRunning = 0;
  return FALSE;
}

int CKThread::ExitInstance() {
  EndOfThread();
  return 0;
}

void CKThread::Func() {
  if (m_pFunc) m_pFunc(m_pObj, m_lParam1, m_lParam2, m_strParam1, m_strParam2);
}

void CKThread::EndOfThread() {
  if (m_bEnded.exchange(1)) return;
  m_bRunning = 0;
  if (m_hNotify) KPostMessage(m_hNotify, KWM_THREAD_END, (WPARAM)this, 0);
}

int CKThread::IsAlive() {
  if (m_pThread) return kplat::ThreadHasEnded(m_pThread) ? FALSE : TRUE;
  return m_bRunning;
}

int CKThread::Start() {
  // One thread per object at a time: a second one would share every field.
  if (IsAlive()) {
    KLog(KLOG_ERROR, "ERROR => CKThread::Start: the thread is still running");
    return FALSE;
  }
  // Own copies: the texts cross to another thread.
  m_cLang = KLangGet();
  m_strLangExt = (const char*)KLangExtGet();
  kplat::EventReset(m_pStopEvent);
  m_bRunning = 1;
  m_strError.Empty();
  m_iError = 0;
  m_bEnded = 0;
  kplat::ThreadRelease(m_pThread);
  m_pThread = nullptr;
  // The handle is in m_pThread before the body can run; from then on an
  // auto-deleting object belongs to its thread.
  if (!kplat::ThreadCreate(&CKThread::ThreadEntry, this, m_nStackSize, &m_pThread)) {
    m_bRunning = 0;
    m_iError = 1;
    KLog(KLOG_ERROR, "ERROR => CKThread::Start: the thread cannot be created");
    return FALSE;
  }
  return TRUE;
}

int CKThread::Start(KThreadFunc pFunc, CKThread* pObj, long lParam1, long lParam2,
                    const char* szParam1, const char* szParam2) {
  if (IsAlive()) {
    KLog(KLOG_ERROR, "ERROR => CKThread::Start: the thread is still running");
    return FALSE;
  }
  m_pFunc = pFunc;
  m_pObj = pObj;
  m_lParam1 = lParam1;
  m_lParam2 = lParam2;
  m_strParam1 = szParam1;
  m_strParam2 = szParam2;
  return Start();
}

int CKThread::Stop() {
  kplat::EventSet(m_pStopEvent);
  return TRUE;
}

int CKThread::IsStopping() {
  // In the worker itself this is also where a forced termination takes hold.
  if (m_pThread && kplat::ThreadIsCurrent(m_pThread)) kplat::ThreadTestCancel();
  return kplat::EventIsSet(m_pStopEvent) ? TRUE : FALSE;
}

int CKThread::WaitStopping(unsigned long nMilliseconds) {
  if (m_pThread && kplat::ThreadIsCurrent(m_pThread)) kplat::ThreadTestCancel();
  const uint32_t nWait = nMilliseconds >= 0xFFFFFFFFul ? 0xFFFFFFFFu : (uint32_t)nMilliseconds;
  return kplat::EventWait(m_pStopEvent, nWait) ? TRUE : FALSE;
}

int CKThread::IsRunning() { return IsAlive(); }

void CKThread::StopAndWait(int nSeconds) {
  // Stopping a thread releases it: a worker that runs this (often from a
  // destructor) is not terminated half-way.
  kplat::NoCancelScope noCancel;
  if (!IsAlive()) return;
  Stop();
  // Polls every 100 ms; the wait on the thread returns as soon as it ends.
  for (int i = 0; i < nSeconds * 10; ++i) {
    if (!IsAlive()) break;
    if (m_pThread)
      kplat::ThreadWait(m_pThread, 100);
    else
      kplat::SleepMs(100);
  }
  if (IsAlive()) HardDestroy();
}

int CKThread::HardDestroy() {
  kplat::NoCancelScope noCancel;
  EndOfThread();
  if (!m_pThread) return FALSE;
  if (!kplat::ThreadTerminate(m_pThread)) return FALSE;
  // A worker terminating itself goes at its next cancellation point.
  if (kplat::ThreadIsCurrent(m_pThread)) return TRUE;
  if (!kplat::ThreadWait(m_pThread, kForcedEndWaitMs))
    KLog(KLOG_ERROR, "ERROR => CKThread::HardDestroy: the thread did not end");
  return TRUE;
}

int CKThread::Reset() {
  if (IsAlive()) return FALSE;
  kplat::EventReset(m_pStopEvent);
  m_iError = 0;
  m_strError.Empty();
  m_bRunning = 0;
  return TRUE;
}

CKString CKThread::GetDisplay() {
  CKString s;
  char buf[64];
  if (IsAlive()) s += "IsRunning,";
  if (kplat::EventIsSet(m_pStopEvent)) s += "IsStopping,";
  snprintf(buf, sizeof(buf), "m_pFunc=%08llX,",
           (unsigned long long)reinterpret_cast<uintptr_t>(m_pFunc));
  s += buf;
  if (m_lParam1) {
    snprintf(buf, sizeof(buf), "m_lParam1=%ld,", m_lParam1);
    s += buf;
  }
  if (m_lParam2) {
    snprintf(buf, sizeof(buf), "m_lParam2=%ld,", m_lParam2);
    s += buf;
  }
  if (m_strParam1.GetLength()) s += KAnd("m_strParam1=", m_strParam1, ",");
  if (m_strParam2.GetLength()) s += KAnd("m_strParam2=", m_strParam2, ",");
  if (m_strError.GetLength()) s += KAnd("m_strError=", m_strError, ",");
  if (m_iError) {
    snprintf(buf, sizeof(buf), "m_iError=%d,", m_iError);
    s += buf;
  }
  snprintf(buf, sizeof(buf), "m_bRunning=%d,m_bAutoDelete=%d", m_bRunning.load(),
           (int)m_bAutoDelete);
  s += buf;
  return s;
}

// ---------------------------------------------------------------- priorities
static int PrioritySet(int nPriority, const char* szDone) {
  if (kplat::ThreadGetPriority() == nPriority) return TRUE;
  if (!kplat::ThreadSetPriority(nPriority)) {
    KLog("########################### CANNOT SET PRIORITY");
    return FALSE;
  }
  KLog(szDone);
  return TRUE;
}

int KThreadPrioritySetHighest() { return PrioritySet(2, "Priority Set Highest"); }
int KThreadPrioritySetNormal() { return PrioritySet(0, "Priority Set Normal"); }
int KThreadPrioritySetBelow() { return PrioritySet(-1, "Priority Set Below"); }
int KThreadPrioritySetLowest() { return PrioritySet(-2, "Priority Set Lowest"); }
int KThreadPrioritySetIdle() { return PrioritySet(-15, "Priority Set Idle"); }

CKString KPriorityText(int nPriority) {
  switch (nPriority) {
    case 2: return "HIGHEST";
    case 1: return "ABOVE";
    case 0: return "NORMAL";
    case -1: return "BELOW";
    case -2: return "LOWEST";
    case -15: return "IDLE";
    case 2147483647: return "<null>";
    default: return KAnd("THREAD_PRIORITY n ", KStr(nPriority));
  }
}

// ---------------------------------------------------------------- CKTimer
namespace {

// a * b / c without intermediate overflow, truncated like integer division.
inline __int64 MulDiv64(__int64 a, __int64 b, __int64 c) {
#if defined(__SIZEOF_INT128__)
  return (__int64)((__int128)a * b / c);
#else
  return (__int64)((long double)a * b / c);
#endif
}

// Whole seconds are kept in 32 bits, as the counter arithmetic always did.
inline void SplitTicks(__int64 e, __int64 f, int32_t& s, __int64& r) {
  s = (int32_t)(e / f);
  r = e - (__int64)s * f;
}

__int64 TicksToNanos(__int64 e) {
  const __int64 f = kplat::PerfFrequency();
  if (f <= 0) return 0;
  int32_t s;
  __int64 r;
  SplitTicks(e, f, s, r);
  return (__int64)s * 1000000000LL + MulDiv64(r, 1000000000LL, f);
}

// s * 1000 is a 32-bit product: only spans under about 24 days are exact.
__int64 TicksToMillis(__int64 e) {
  const __int64 f = kplat::PerfFrequency();
  if (f <= 0) return 0;
  int32_t s;
  __int64 r;
  SplitTicks(e, f, s, r);
  return MulDiv64(r, 1000, f) + (int32_t)((uint32_t)s * 1000u);
}

}  // namespace

CKTimer::CKTimer(int bStart) : top(0), start(0) {
  if (bStart) Reset();
}

CKTimer::~CKTimer() {}

void CKTimer::Start() { start = kplat::PerfCounter(); }
void CKTimer::GetTop() { top = kplat::PerfCounter(); }
void CKTimer::Reset() { start = top = kplat::PerfCounter(); }

__int64 CKTimer::ToNanos() const { return TicksToNanos(top - start); }
__int64 CKTimer::ToMillis() const { return TicksToMillis(top - start); }

__int64 CKTimer::InNanos(int bTop, int bRestart) {
  if (bTop) GetTop();
  const __int64 n = ToNanos();
  if (bRestart) start = top;
  return n;
}

__int64 CKTimer::InMillis(int bTop, int bRestart) {
  __int64 n;
  if (bTop) {
    GetTop();
    n = TicksToMillis(top - start);
  } else {
    n = TicksToMillis(start);
  }
  if (bRestart) start = top;
  return n;
}

CKTimer CKTimer::operator-(const CKTimer& o) const {
  CKTimer t(FALSE);
  t.start = start;
  t.top = top - (o.top - o.start);
  return t;
}

void CKTimer::operator+=(const CKTimer& o) { top += o.top - o.start; }

void CKTimer::AddNanos(__int64 n) { top += MulDiv64(kplat::PerfFrequency(), n, 1000000000LL); }

void CKTimer::operator/=(unsigned __int64 n) {
  if (n == 0) n = 1;
  top = start + (__int64)((unsigned __int64)(top - start) / n);
}

CKString CKTimer::GetTextAbsolut(int bHours, int bMs, int bTop) {
  if (bTop) GetTop();
  const __int64 nMs = ToMillis();
  // The tick-count text takes 32-bit milliseconds: spans whose 32-bit
  // product went negative (24 to 49 days) read back as their true length.
  if (bHours || nMs / 1000 != 0) return KTimerGetTextAbsolut((uint32_t)nMs, bHours, bMs);
  const __int64 f = kplat::PerfFrequency();
  const double dMs = f > 0 ? (double)(top - start) * 1000.0 / (double)f : 0.0;
  CKString s;
  if (dMs != std::floor(dMs))
    s.Format("%.03f ms", dMs);
  else
    s.Format("%.00f ms", dMs);
  return s;
}

double CKTimer::GetPercentOf(CKTimer& o) {
  const __int64 nOther = o.ToNanos();
  if (nOther == 0) return 0.0;
  return (double)MulDiv64(ToNanos(), 10000, nOther) * 0.01;
}

CKString CKTimer::PercentOf(CKTimer& o) {
  if (o.ToNanos() == 0) return "0%";
  CKString s;
  s.Format("%.02f%%", GetPercentOf(o));
  return s;
}

void CKTimer::Trace() { KLog((const char*)GetText(FALSE, TRUE)); }
void CKTimer::Trace(int nLevel) { KLog(nLevel, (const char*)GetText(FALSE, TRUE)); }

void CKTimer::TraceReset() {
  Trace();
  Reset();
}

void CKTimer::TraceReset(int nLevel) {
  Trace(nLevel);
  Reset();
}

void CKTimer::Trace2(const char* szLabel) { KLog(szLabel, " : ", GetText(FALSE, TRUE)); }

void CKTimer::Trace2(int nLevel, const char* szLabel) {
  KLog(nLevel, szLabel, " : ", GetText(FALSE, TRUE));
}

void CKTimer::Trace2Reset(const char* szLabel) {
  Trace2(szLabel);
  Reset();
}

void CKTimer::Trace2Reset(int nLevel, const char* szLabel) {
  Trace2(nLevel, szLabel);
  Reset();
}
