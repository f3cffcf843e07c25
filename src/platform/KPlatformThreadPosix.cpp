// Threads and synchronisation on POSIX threads.
#if !defined(_WIN32)
#define KSRC_PATH "src/platform/KPlatformThreadPosix"

#include "platform/KPlatformThread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include <pthread.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif

#include <base/tools/KException.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

namespace {

// Forced termination is deferred cancellation that the library keeps
// disabled in its workers except inside its own termination points, and
// only while no NoCancelScope is alive: the C library's cancellation points
// (stdio, write, condition waits of the application) never end a worker, and
// no library destructor or release path is ever cut short.
thread_local bool tIsWorker = false;
thread_local int tHoldOff = 0;

class CancelWindow {
public:
  CancelWindow() : m_bOpen(tIsWorker && tHoldOff == 0) {
    if (m_bOpen) pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  }
  ~CancelWindow() {
    if (m_bOpen) pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  }
  CancelWindow(const CancelWindow&) = delete;
  CancelWindow& operator=(const CancelWindow&) = delete;

private:
  bool m_bOpen;
};

// Unlocks on scope exit, also when a cancellation unwinds a condition wait
// (which re-acquires the mutex first).
class PthreadUnlocker {
public:
  explicit PthreadUnlocker(pthread_mutex_t* m) : m_p(m) {}
  ~PthreadUnlocker() { pthread_mutex_unlock(m_p); }
  PthreadUnlocker(const PthreadUnlocker&) = delete;
  PthreadUnlocker& operator=(const PthreadUnlocker&) = delete;

private:
  pthread_mutex_t* m_p;
};

[[noreturn]] void NoRoom(unsigned nLine) { throw CKMemoryException(KSRC_PATH, nLine); }

// Creation failures: no room is the memory exception, anything else is
// reported and is also no usable object.
void CheckCreate(int rc, const char* szCall, unsigned nLine) {
  if (rc == 0) return;
  if (rc != ENOMEM && rc != EAGAIN) ReportError(szCall, rc);
  NoRoom(nLine);
}

}  // namespace

NoCancelScope::NoCancelScope() { ++tHoldOff; }
NoCancelScope::~NoCancelScope() { --tHoldOff; }

void ThreadTestCancel() {
  CancelWindow w;
  pthread_testcancel();
}

// ---------------------------------------------------------------- mutex
struct Mutex {
  pthread_mutex_t m;
  std::atomic<uint32_t> nOwner{0};  // thread id of the holder, 0 when free
  unsigned nDepth = 0;             // entries of the holder
};

Mutex* MutexNew() {
  std::unique_ptr<Mutex> p(new (std::nothrow) Mutex);
  if (!p) NoRoom(__LINE__);
  pthread_mutexattr_t a;
  CheckCreate(pthread_mutexattr_init(&a), "pthread_mutexattr_init", __LINE__);
  int rc = pthread_mutexattr_settype(&a, PTHREAD_MUTEX_RECURSIVE);
  if (rc == 0) rc = pthread_mutex_init(&p->m, &a);
  pthread_mutexattr_destroy(&a);
  CheckCreate(rc, "pthread_mutex_init", __LINE__);
  return p.release();
}

void MutexFree(Mutex* m) {
  if (!m) return;
  const int rc = pthread_mutex_destroy(&m->m);
  if (rc != 0) ReportError("pthread_mutex_destroy", rc);
  delete m;
}

static void TakeOwnership(Mutex* m) {
  if (m->nDepth++ == 0) m->nOwner.store(CurrentThreadId(), std::memory_order_relaxed);
}

bool MutexLock(Mutex* m) {
  const int rc = pthread_mutex_lock(&m->m);
  if (rc != 0) {
    ReportError("pthread_mutex_lock", rc);
    return false;
  }
  TakeOwnership(m);
  return true;
}

bool MutexTryLock(Mutex* m) {
  const int rc = pthread_mutex_trylock(&m->m);
  if (rc == EBUSY) return false;
  if (rc != 0) {
    ReportError("pthread_mutex_trylock", rc);
    return false;
  }
  TakeOwnership(m);
  return true;
}

bool MutexIsOwned(const Mutex* m) {
  return m->nOwner.load(std::memory_order_relaxed) == CurrentThreadId();
}

bool MutexUnlock(Mutex* m) {
  // Only the holder reads or writes nDepth; another thread sees an owner
  // that is not itself and stops here.
  if (!MutexIsOwned(m)) return false;
  if (--m->nDepth == 0) m->nOwner.store(0, std::memory_order_relaxed);
  const int rc = pthread_mutex_unlock(&m->m);
  if (rc != 0) {
    ReportError("pthread_mutex_unlock", rc);
    return false;
  }
  return true;
}

// ---------------------------------------------------------------- event
struct Event {
  pthread_mutex_t m;
  pthread_cond_t c;
  bool bManual;
  bool bSet;
};

Event* EventNew(bool bManualReset, bool bInitialState) {
  std::unique_ptr<Event> e(new (std::nothrow) Event);
  if (!e) NoRoom(__LINE__);
  CheckCreate(pthread_mutex_init(&e->m, nullptr), "pthread_mutex_init", __LINE__);
  pthread_condattr_t a;
  int rc = pthread_condattr_init(&a);
  if (rc == 0) {
    rc = pthread_condattr_setclock(&a, CLOCK_MONOTONIC);
    if (rc == 0) rc = pthread_cond_init(&e->c, &a);
    pthread_condattr_destroy(&a);
  }
  if (rc != 0) {
    pthread_mutex_destroy(&e->m);
    CheckCreate(rc, "pthread_cond_init", __LINE__);
  }
  e->bManual = bManualReset;
  e->bSet = bInitialState;
  return e.release();
}

void EventFree(Event* e) {
  if (!e) return;
  int rc = pthread_cond_destroy(&e->c);
  if (rc != 0) ReportError("pthread_cond_destroy", rc);
  rc = pthread_mutex_destroy(&e->m);
  if (rc != 0) ReportError("pthread_mutex_destroy", rc);
  delete e;
}

// The event's own mutex guards only a flag: lock failures cannot happen for
// a valid event, and are reported if they do.
static bool LockEvent(Event* e) {
  const int rc = pthread_mutex_lock(&e->m);
  if (rc != 0) ReportError("pthread_mutex_lock", rc);
  return rc == 0;
}

void EventSet(Event* e) {
  if (!LockEvent(e)) return;
  e->bSet = true;
  const int rc = e->bManual ? pthread_cond_broadcast(&e->c) : pthread_cond_signal(&e->c);
  pthread_mutex_unlock(&e->m);
  if (rc != 0) ReportError("pthread_cond_signal", rc);
}

void EventReset(Event* e) {
  if (!LockEvent(e)) return;
  e->bSet = false;
  pthread_mutex_unlock(&e->m);
}

bool EventIsSet(Event* e) {
  if (!LockEvent(e)) return false;
  const bool b = e->bSet;
  pthread_mutex_unlock(&e->m);
  return b;
}

static bool MonotonicNow(struct timespec* ts) {
  if (clock_gettime(CLOCK_MONOTONIC, ts) == 0) return true;
  ReportError("clock_gettime", errno);
  return false;
}

bool EventWait(Event* e, uint32_t nMilliseconds) {
  const bool bForever = nMilliseconds == 0xFFFFFFFFu;
  struct timespec ts = {0, 0};
  if (!bForever) {
    if (!MonotonicNow(&ts)) return false;
    ts.tv_sec += nMilliseconds / 1000;
    ts.tv_nsec += (long)(nMilliseconds % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
      ts.tv_sec++;
      ts.tv_nsec -= 1000000000L;
    }
  }
  if (!LockEvent(e)) return false;
  bool bSignalled;
  {
    PthreadUnlocker unlock(&e->m);
    CancelWindow w;
    while (!e->bSet) {
      const int rc = bForever ? pthread_cond_wait(&e->c, &e->m)
                              : pthread_cond_timedwait(&e->c, &e->m, &ts);
      if (rc == ETIMEDOUT) break;
      if (rc != 0) {
        // Never spin on a wait the system refuses.
        ReportError("pthread_cond_wait", rc);
        break;
      }
    }
    bSignalled = e->bSet;
    if (bSignalled && !e->bManual) e->bSet = false;
  }
  return bSignalled;
}

void SleepMs(uint32_t nMilliseconds) {
  struct timespec ts;
  ts.tv_sec = nMilliseconds / 1000;
  ts.tv_nsec = (long)(nMilliseconds % 1000) * 1000000L;
  CancelWindow w;
  while (nanosleep(&ts, &ts) != 0) {
    if (errno != EINTR) {
      ReportError("nanosleep", errno);
      break;
    }
  }
}

// ---------------------------------------------------------------- thread ids
uint32_t CurrentThreadId() {
  // Cached: asked once per thread.
  static std::atomic<uint32_t> s_nNext{1};
  thread_local uint32_t tId = 0;
  if (tId == 0) {
#if defined(__linux__)
    // Linux-only: the kernel's thread id, the number tools such as ps show.
    const long n = syscall(SYS_gettid);
    tId = n > 0 ? (uint32_t)n : 0;
#endif
    // POSIX fallback: a small number of our own, unique in the process.
    if (tId == 0) tId = 0x80000000u | s_nNext.fetch_add(1);
  }
  return tId;
}

// ---------------------------------------------------------------- threads
// The handle is shared by the creator and the running thread; whichever lets
// go last frees it, so a released handle never dangles under a live thread.
struct Thread {
  pthread_t id;
  void (*pFunc)(void*);
  void* pArg;
  Event* pEnded;
  std::atomic<int> nRefs;
};

static void ThreadUnref(Thread* t) {
  if (t->nRefs.fetch_sub(1) == 1) {
    EventFree(t->pEnded);
    delete t;
  }
}

namespace {
// Marks the end when the body returns and when a forced termination
// unwinds it.
class EndMark {
public:
  explicit EndMark(Thread* t) : m_t(t) {}
  ~EndMark() {
    EventSet(m_t->pEnded);
    ThreadUnref(m_t);
  }
  EndMark(const EndMark&) = delete;
  EndMark& operator=(const EndMark&) = delete;

private:
  Thread* m_t;
};
}  // namespace

static void* ThreadTrampoline(void* p) {
  Thread* t = (Thread*)p;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
  tIsWorker = true;
  EndMark end(t);
  t->pFunc(t->pArg);
  return nullptr;
}

Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize) {
  pthread_attr_t attr;
  int rc = pthread_attr_init(&attr);
  if (rc != 0) {
    ReportError("pthread_attr_init", rc);
    return nullptr;
  }
  // A size the system refuses fails here, like a stack it cannot map later.
  if (nStackSize && (rc = pthread_attr_setstacksize(&attr, nStackSize)) != 0) {
    pthread_attr_destroy(&attr);
    ReportError("pthread_attr_setstacksize", rc);
    return nullptr;
  }
  std::unique_ptr<Thread> t(new (std::nothrow) Thread);
  if (!t) {
    pthread_attr_destroy(&attr);
    NoRoom(__LINE__);
  }
  t->pFunc = pFunc;
  t->pArg = pArg;
  try {
    t->pEnded = EventNew(true, false);
  } catch (...) {
    pthread_attr_destroy(&attr);
    throw;
  }
  t->nRefs = 2;
  rc = pthread_create(&t->id, &attr, ThreadTrampoline, t.get());
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    ReportError("pthread_create", rc);
    EventFree(t->pEnded);
    return nullptr;
  }
  return t.release();
}

bool ThreadWait(Thread* t, uint32_t nMilliseconds) {
  if (!t) return true;
  return EventWait(t->pEnded, nMilliseconds);
}

bool ThreadHasEnded(Thread* t) { return !t || EventIsSet(t->pEnded); }

bool ThreadTerminate(Thread* t) {
  if (!t || EventIsSet(t->pEnded)) return true;
  const int rc = pthread_cancel(t->id);
  // ESRCH: it ended between the two calls.
  if (rc != 0 && rc != ESRCH) {
    ReportError("pthread_cancel", rc);
    return false;
  }
  return true;
}

bool ThreadIsCurrent(Thread* t) { return t && pthread_equal(t->id, pthread_self()); }

void ThreadRelease(Thread* t) {
  if (!t) return;
  const bool bJoin = !ThreadIsCurrent(t) && EventIsSet(t->pEnded);
  const int rc = bJoin ? pthread_join(t->id, nullptr) : pthread_detach(t->id);
  if (rc != 0) ReportError(bJoin ? "pthread_join" : "pthread_detach", rc);
  ThreadUnref(t);
}

// Windows priority levels mapped onto the per-thread nice value.
static const struct {
  int nWin;
  int nNice;
} kPriorityMap[] = {{-15, 19}, {-2, 10}, {-1, 5}, {0, 0}, {1, -5}, {2, -10}, {15, -20}};

bool ThreadSetPriority(int nPriority) {
  int nNice = 0;
  bool bFound = false;
  for (const auto& e : kPriorityMap)
    if (e.nWin == nPriority) {
      nNice = e.nNice;
      bFound = true;
    }
  if (!bFound) return false;
#if defined(__linux__)
  // Linux-only: setpriority on a thread id sets that thread's nice value.
  // Refusals (no privilege to raise priority) are the caller's to report.
  return setpriority(PRIO_PROCESS, (id_t)CurrentThreadId(), nNice) == 0;
#else
  // POSIX gives nice values to whole processes only.
  (void)nNice;
  return false;
#endif
}

int ThreadGetPriority() {
#if defined(__linux__)
  errno = 0;
  const int nNice = getpriority(PRIO_PROCESS, (id_t)CurrentThreadId());
  if (nNice == -1 && errno != 0) {
    ReportError("getpriority", errno);
    return 0;
  }
  int nBest = 0, nDist = 1000;
  for (const auto& e : kPriorityMap) {
    const int d = e.nNice > nNice ? e.nNice - nNice : nNice - e.nNice;
    if (d < nDist) {
      nDist = d;
      nBest = e.nWin;
    }
  }
  return nBest;
#else
  return 0;
#endif
}

}  // namespace kplat

#endif  // !_WIN32
