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
#include "platform/KPlatformThreadPool.h"

namespace kplat {

// Forced termination works as on POSIX, without TerminateThread (which
// unwinds nothing and can leave the heap locked): the request is a flag of
// the worker's, acted on at the library's own termination points outside
// any NoCancelScope by throwing ThreadCancelled, which unwinds the worker's
// stack to its entry. A worker blocked in a library wait is woken for it.
namespace {

struct ThreadCancelled {};

thread_local Thread* tSelf = nullptr;  // the job the thread runs, null elsewhere
thread_local int tHoldOff = 0;

[[noreturn]] void NoRoom(unsigned nLine) { throw CKMemoryException(KSRC_PATH, nLine); }

}  // namespace

struct Event {
  CRITICAL_SECTION cs;
  CONDITION_VARIABLE cv;
  bool bManual;
  bool bSet;
};

// A Thread is one job: pFunc(pArg) on some OS thread (pooled as on POSIX;
// see the threads section below). The handle is shared by the creator and
// the running side; whichever lets go last frees it.
struct Thread {
  void (*pFunc)(void*);
  void* pArg;
  std::atomic<int> nRefs;
  std::atomic<bool> bCancel;  // per job: it can never reach a later job
  CRITICAL_SECTION csWait;    // guards pWaitingOn
  Event* pWaitingOn;          // the event the job is blocked on, if any
  Event* pSleep;              // never set: SleepMs waits on it
  Event* pEnded;              // set when the job is over
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
// Jobs with the default stack run on pooled workers: a worker that finished
// a job parks for a while and takes the next job handed to ThreadCreate,
// which saves the creation and teardown of an OS thread per job. A job with
// a stack size of its own gets a thread of its own that ends with it.
static void ThreadUnref(Thread* t) {
  if (t->nRefs.fetch_sub(1) == 1) {
    DeleteCriticalSection(&t->csWait);
    EventFree(t->pSleep);
    EventFree(t->pEnded);
    delete t;
  }
}

namespace {

// The priority the thread had before its first change, so that a pooled
// worker hands the next job the priority it was born with.
thread_local bool tPriorityTouched = false;
thread_local int tBirthPriority = 0;

// Parked workers, each on its own stack waiting on its own condition. The
// pool is static data without a destructor: a worker still parked while the
// process exits never touches a destroyed object.
struct Worker {
  CONDITION_VARIABLE cond;
  Thread* pJob;
  Worker* pPrev;
  Worker* pNext;
};

SRWLOCK gPoolLock = SRWLOCK_INIT;
pool::Parked<Worker> gParked;  // under gPoolLock

struct WorkerStart {
  Thread* pJob;
  bool bPooled;
};

// Runs one job; true when it was terminated (or asked to be).
bool RunJob(Thread* t) {
  bool bCancelled = false;
  tSelf = t;
  try {
    t->pFunc(t->pArg);
  } catch (const ThreadCancelled&) {
    // Terminated: the job's stack is unwound, its worker ends.
    bCancelled = true;
  }
  tSelf = nullptr;
  bCancelled = bCancelled || t->bCancel.load();
  EventSet(t->pEnded);
  ThreadUnref(t);
  return bCancelled;
}

bool ReadyForNextJob(bool bCancelled) {
  if (bCancelled) return false;
  if (tPriorityTouched) {
    if (!SetThreadPriority(GetCurrentThread(), tBirthPriority)) {
      ReportError("SetThreadPriority", (int)GetLastError());
      return false;
    }
    tPriorityTouched = false;
  }
  return true;
}

// Parks until a job comes (returned), the time-out passes or the pool is
// full (null: the worker ends).
Thread* Park(Worker* w) {
  AcquireSRWLockExclusive(&gPoolLock);
  w->pJob = nullptr;
  if (!gParked.Push(w)) {
    ReleaseSRWLockExclusive(&gPoolLock);
    return nullptr;
  }
  const ULONGLONG nDeadline = GetTickCount64() + pool::kParkMs;
  while (!w->pJob) {
    const ULONGLONG nNow = GetTickCount64();
    if (nNow >= nDeadline) break;
    if (!SleepConditionVariableSRW(&w->cond, &gPoolLock, (DWORD)(nDeadline - nNow), 0)) {
      const DWORD nErr = GetLastError();
      if (nErr == ERROR_TIMEOUT) continue;  // the loop checks the deadline
      ReportError("SleepConditionVariableSRW", (int)nErr);
      break;
    }
  }
  Thread* t = w->pJob;
  if (!t) gParked.Remove(w);  // nobody took it: it leaves the pool
  ReleaseSRWLockExclusive(&gPoolLock);
  return t;
}

bool HandToParked(Thread* t) {
  AcquireSRWLockExclusive(&gPoolLock);
  Worker* w = gParked.Pop();
  if (w) {
    w->pJob = t;
    WakeConditionVariable(&w->cond);
  }
  ReleaseSRWLockExclusive(&gPoolLock);
  return w != nullptr;
}

}  // namespace

static unsigned __stdcall WorkerMain(void* p) {
  Thread* t = ((WorkerStart*)p)->pJob;
  const bool bPooled = ((WorkerStart*)p)->bPooled;
  delete (WorkerStart*)p;
  Worker w;
  InitializeConditionVariable(&w.cond);
  while (t) {
    const bool bCancelled = RunJob(t);
    t = bPooled && ReadyForNextJob(bCancelled) ? Park(&w) : nullptr;
  }
  return 0;
}

Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize, Thread** ppHandle) {
  if (ppHandle) *ppHandle = nullptr;
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
  try {
    t->pEnded = EventNew(true, false);
  } catch (...) {
    EventFree(t->pSleep);
    throw;
  }
  InitializeCriticalSection(&t->csWait);
  // Published before the job can start; unpublished on failure.
  if (ppHandle) *ppHandle = t.get();
  const bool bPooled = nStackSize == 0;
  if (bPooled && HandToParked(t.get())) return t.release();
  WorkerStart* pStart = new (std::nothrow) WorkerStart{t.get(), bPooled};
  unsigned nId = 0;
  const uintptr_t h =
      pStart ? _beginthreadex(nullptr, (unsigned)nStackSize, WorkerMain, pStart,
                              nStackSize ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, &nId)
             : 0;
  if (h == 0) {
    const DWORD nErr = pStart ? GetLastError() : (DWORD)ERROR_NOT_ENOUGH_MEMORY;
    delete pStart;
    if (ppHandle) *ppHandle = nullptr;
    DeleteCriticalSection(&t->csWait);
    EventFree(t->pSleep);
    EventFree(t->pEnded);
    if (!pStart) NoRoom(__LINE__);
    ReportError("_beginthreadex", (int)nErr);
    return nullptr;
  }
  // Nobody waits on the OS thread itself: a job's end is its event.
  CloseHandle((HANDLE)h);
  return t.release();
}

bool ThreadWait(Thread* t, uint32_t nMilliseconds) {
  if (!t) return true;
  // A worker waiting for another job can itself be terminated here.
  return EventWait(t->pEnded, nMilliseconds);
}

bool ThreadHasEnded(Thread* t) { return !t || EventIsSet(t->pEnded); }

bool ThreadTerminate(Thread* t) {
  if (!t || ThreadHasEnded(t)) return true;
  t->bCancel = true;
  // Wake the job if it is blocked in a library wait; csWait keeps the
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

bool ThreadIsCurrent(Thread* t) { return t && tSelf == t; }

void ThreadRelease(Thread* t) {
  if (!t) return;
  ThreadUnref(t);
}

bool ThreadSetPriority(int nPriority) {
  switch (nPriority) {
    case -15: case -2: case -1: case 0: case 1: case 2: case 15: break;
    default: return false;
  }
  if (!tPriorityTouched) {
    const int nNow = GetThreadPriority(GetCurrentThread());
    if (nNow == THREAD_PRIORITY_ERROR_RETURN) {
      ReportError("GetThreadPriority", (int)GetLastError());
      return false;
    }
    tBirthPriority = nNow;
    tPriorityTouched = true;
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
