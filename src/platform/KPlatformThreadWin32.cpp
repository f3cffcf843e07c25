// Threads and synchronisation on Win32.
#if defined(_WIN32)
#define KSRC_PATH "src/platform/KPlatformThreadWin32"

#include "platform/KPlatformThread.h"

#include <atomic>
#include <memory>
#include <new>

#include <windows.h>
#include <process.h>

#include <base/tools/KException.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

// Forced termination works as on POSIX, without TerminateThread (which
// unwinds nothing and can leave the heap locked): the request is a flag of
// the worker's, acted on at the library's own termination points outside
// any NoCancelScope by throwing ThreadCancelled, which unwinds the worker's
// stack to its entry. A worker blocked in a library wait is woken for it.
namespace {

struct ThreadCancelled {};

thread_local Thread* tSelf = nullptr;  // the worker's own handle, null elsewhere
thread_local int tHoldOff = 0;

[[noreturn]] void NoRoom(unsigned nLine) { throw CKMemoryException(KSRC_PATH, nLine); }

}  // namespace

struct Event {
  CRITICAL_SECTION cs;
  CONDITION_VARIABLE cv;
  bool bManual;
  bool bSet;
};

// The handle is shared by the creator and the running thread; whichever lets
// go last frees it, so a released handle never dangles under a live thread.
struct Thread {
  HANDLE hThread;
  DWORD nId;
  void (*pFunc)(void*);
  void* pArg;
  std::atomic<int> nRefs;
  std::atomic<bool> bCancel;
  CRITICAL_SECTION csWait;  // guards pWaitingOn
  Event* pWaitingOn;        // the event the worker is blocked on, if any
  Event* pSleep;            // never set: SleepMs waits on it
};

static bool CancelPending() {
  return tSelf && tHoldOff == 0 && tSelf->bCancel.load();
}

NoCancelScope::NoCancelScope() { ++tHoldOff; }
NoCancelScope::~NoCancelScope() { --tHoldOff; }

void ThreadTestCancel() {
  if (CancelPending()) throw ThreadCancelled();
}

// ---------------------------------------------------------------- mutex
struct Mutex {
  CRITICAL_SECTION cs;
  std::atomic<uint32_t> nOwner{0};
  unsigned nDepth = 0;
};

Mutex* MutexNew() {
  Mutex* p = new (std::nothrow) Mutex;
  if (!p) NoRoom(__LINE__);
  InitializeCriticalSection(&p->cs);
  return p;
}

void MutexFree(Mutex* m) {
  if (!m) return;
  DeleteCriticalSection(&m->cs);
  delete m;
}

static void TakeOwnership(Mutex* m) {
  if (m->nDepth++ == 0) m->nOwner.store(GetCurrentThreadId(), std::memory_order_relaxed);
}

bool MutexLock(Mutex* m) {
  EnterCriticalSection(&m->cs);
  TakeOwnership(m);
  return true;
}

bool MutexTryLock(Mutex* m) {
  if (!TryEnterCriticalSection(&m->cs)) return false;
  TakeOwnership(m);
  return true;
}

bool MutexIsOwned(const Mutex* m) {
  return m->nOwner.load(std::memory_order_relaxed) == GetCurrentThreadId();
}

bool MutexUnlock(Mutex* m) {
  if (!MutexIsOwned(m)) return false;
  if (--m->nDepth == 0) m->nOwner.store(0, std::memory_order_relaxed);
  LeaveCriticalSection(&m->cs);
  return true;
}

// ---------------------------------------------------------------- event
// A flag under a critical section with a condition variable: the same
// semantics as the POSIX event, and a waiter can be woken for termination.
Event* EventNew(bool bManualReset, bool bInitialState) {
  Event* e = new (std::nothrow) Event;
  if (!e) NoRoom(__LINE__);
  InitializeCriticalSection(&e->cs);
  InitializeConditionVariable(&e->cv);
  e->bManual = bManualReset;
  e->bSet = bInitialState;
  return e;
}

void EventFree(Event* e) {
  if (!e) return;
  DeleteCriticalSection(&e->cs);
  delete e;
}

void EventSet(Event* e) {
  EnterCriticalSection(&e->cs);
  e->bSet = true;
  if (e->bManual)
    WakeAllConditionVariable(&e->cv);
  else
    WakeConditionVariable(&e->cv);
  LeaveCriticalSection(&e->cs);
}

void EventReset(Event* e) {
  EnterCriticalSection(&e->cs);
  e->bSet = false;
  LeaveCriticalSection(&e->cs);
}

bool EventIsSet(Event* e) {
  EnterCriticalSection(&e->cs);
  const bool b = e->bSet;
  LeaveCriticalSection(&e->cs);
  return b;
}

namespace {
// Publishes the event a worker blocks on, so that a termination request can
// wake it; withdrawn on every way out.
class WaitRegistration {
public:
  explicit WaitRegistration(Event* e) : m_t(tSelf && tHoldOff == 0 ? tSelf : nullptr) {
    if (!m_t) return;
    EnterCriticalSection(&m_t->csWait);
    m_t->pWaitingOn = e;
    LeaveCriticalSection(&m_t->csWait);
  }
  ~WaitRegistration() {
    if (!m_t) return;
    EnterCriticalSection(&m_t->csWait);
    m_t->pWaitingOn = nullptr;
    LeaveCriticalSection(&m_t->csWait);
  }
  WaitRegistration(const WaitRegistration&) = delete;
  WaitRegistration& operator=(const WaitRegistration&) = delete;

private:
  Thread* m_t;
};
}  // namespace

bool EventWait(Event* e, uint32_t nMilliseconds) {
  ThreadTestCancel();
  const bool bForever = nMilliseconds == 0xFFFFFFFFu;
  const ULONGLONG nDeadline = GetTickCount64() + nMilliseconds;
  WaitRegistration reg(e);
  bool bCancelled = false;
  EnterCriticalSection(&e->cs);
  while (!e->bSet) {
    if (CancelPending()) {
      bCancelled = true;
      break;
    }
    DWORD nWait = INFINITE;
    if (!bForever) {
      const ULONGLONG nNow = GetTickCount64();
      if (nNow >= nDeadline) break;
      nWait = (DWORD)(nDeadline - nNow);
    }
    if (!SleepConditionVariableCS(&e->cv, &e->cs, nWait)) {
      const DWORD nErr = GetLastError();
      if (nErr == ERROR_TIMEOUT) continue;  // the loop checks the deadline
      // Never spin on a wait the system refuses.
      LeaveCriticalSection(&e->cs);
      ReportError("SleepConditionVariableCS", (int)nErr);
      return false;
    }
  }
  const bool bSignalled = !bCancelled && e->bSet;
  if (bSignalled && !e->bManual) e->bSet = false;
  LeaveCriticalSection(&e->cs);
  if (bCancelled) throw ThreadCancelled();
  return bSignalled;
}

void SleepMs(uint32_t nMilliseconds) {
  if (tSelf && tHoldOff == 0) {
    // A wait on an event nobody sets, so a termination can end it.
    EventWait(tSelf->pSleep, nMilliseconds);
    return;
  }
  Sleep(nMilliseconds);
}

uint32_t CurrentThreadId() { return (uint32_t)GetCurrentThreadId(); }

// ---------------------------------------------------------------- threads
static void ThreadUnref(Thread* t) {
  if (t->nRefs.fetch_sub(1) == 1) {
    CloseHandle(t->hThread);
    DeleteCriticalSection(&t->csWait);
    EventFree(t->pSleep);
    delete t;
  }
}

static unsigned __stdcall ThreadTrampoline(void* p) {
  Thread* t = (Thread*)p;
  tSelf = t;
  try {
    t->pFunc(t->pArg);
  } catch (const ThreadCancelled&) {
    // Terminated: the stack is unwound, the thread ends here.
  }
  tSelf = nullptr;
  ThreadUnref(t);
  return 0;
}

Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize) {
  // _beginthreadex takes 32 bits of stack size: a larger one cannot be had.
  if (nStackSize > 0x7FFFFFFFu) {
    ReportError("_beginthreadex", ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  std::unique_ptr<Thread> t(new (std::nothrow) Thread);
  if (!t) NoRoom(__LINE__);
  t->pFunc = pFunc;
  t->pArg = pArg;
  t->nRefs = 2;
  t->bCancel = false;
  t->pWaitingOn = nullptr;
  t->pSleep = EventNew(true, false);
  InitializeCriticalSection(&t->csWait);
  unsigned nId = 0;
  // Created suspended so that the handle is stored before the body runs.
  const uintptr_t h = _beginthreadex(nullptr, (unsigned)nStackSize, ThreadTrampoline, t.get(),
                                     CREATE_SUSPENDED | (nStackSize ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0),
                                     &nId);
  if (h == 0) {
    ReportError("_beginthreadex", (int)GetLastError());
    DeleteCriticalSection(&t->csWait);
    EventFree(t->pSleep);
    return nullptr;
  }
  t->hThread = (HANDLE)h;
  t->nId = nId;
  Thread* pThread = t.release();
  if (ResumeThread(pThread->hThread) == (DWORD)-1) {
    ReportError("ResumeThread", (int)GetLastError());
    TerminateThread(pThread->hThread, 1);  // never ran a line of the body
    pThread->nRefs = 1;
    ThreadUnref(pThread);
    return nullptr;
  }
  return pThread;
}

bool ThreadWait(Thread* t, uint32_t nMilliseconds) {
  if (!t) return true;
  // A worker waiting for another thread can itself be terminated here.
  if (tSelf && tHoldOff == 0) {
    const ULONGLONG nDeadline = GetTickCount64() + nMilliseconds;
    for (;;) {
      ThreadTestCancel();
      DWORD nSlice = 50;
      if (nMilliseconds != 0xFFFFFFFFu) {
        const ULONGLONG nNow = GetTickCount64();
        if (nNow >= nDeadline) return WaitForSingleObject(t->hThread, 0) == WAIT_OBJECT_0;
        if (nDeadline - nNow < nSlice) nSlice = (DWORD)(nDeadline - nNow);
      }
      const DWORD r = WaitForSingleObject(t->hThread, nSlice);
      if (r == WAIT_OBJECT_0) return true;
      if (r != WAIT_TIMEOUT) break;
    }
  } else {
    const DWORD r = WaitForSingleObject(t->hThread, nMilliseconds);
    if (r == WAIT_OBJECT_0) return true;
    if (r == WAIT_TIMEOUT) return false;
  }
  ReportError("WaitForSingleObject", (int)GetLastError());
  return false;
}

bool ThreadHasEnded(Thread* t) { return !t || WaitForSingleObject(t->hThread, 0) == WAIT_OBJECT_0; }

bool ThreadTerminate(Thread* t) {
  if (!t || ThreadHasEnded(t)) return true;
  t->bCancel = true;
  // Wake the worker if it is blocked in a library wait; csWait keeps the
  // event alive until it is woken.
  EnterCriticalSection(&t->csWait);
  if (Event* e = t->pWaitingOn) {
    EnterCriticalSection(&e->cs);
    WakeAllConditionVariable(&e->cv);
    LeaveCriticalSection(&e->cs);
  }
  LeaveCriticalSection(&t->csWait);
  return true;
}

bool ThreadIsCurrent(Thread* t) { return t && t->nId == GetCurrentThreadId(); }

void ThreadRelease(Thread* t) {
  if (!t) return;
  ThreadUnref(t);
}

bool ThreadSetPriority(int nPriority) {
  switch (nPriority) {
    case -15: case -2: case -1: case 0: case 1: case 2: case 15: break;
    default: return false;
  }
  if (SetThreadPriority(GetCurrentThread(), nPriority)) return true;
  ReportError("SetThreadPriority", (int)GetLastError());
  return false;
}

int ThreadGetPriority() {
  const int n = GetThreadPriority(GetCurrentThread());
  if (n != THREAD_PRIORITY_ERROR_RETURN) return n;
  ReportError("GetThreadPriority", (int)GetLastError());
  return 0;
}

}  // namespace kplat

#endif  // _WIN32
