// Threads and synchronisation on POSIX threads.
#if !defined(_WIN32)
#define KSRC_PATH "src/platform/KPlatformThreadPosix"

#include "platform/KPlatformThread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include <pthread.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif

#include <base/tools/KException.h>

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformThreadPool.h"

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

// The CLOCK_MONOTONIC time nMilliseconds from now.
static bool DeadlineIn(uint32_t nMilliseconds, struct timespec* ts) {
  if (!MonotonicNow(ts)) return false;
  ts->tv_sec += nMilliseconds / 1000;
  ts->tv_nsec += (long)(nMilliseconds % 1000) * 1000000L;
  if (ts->tv_nsec >= 1000000000L) {
    ts->tv_sec++;
    ts->tv_nsec -= 1000000000L;
  }
  return true;
}

bool EventWait(Event* e, uint32_t nMilliseconds) {
  const bool bForever = nMilliseconds == 0xFFFFFFFFu;
  struct timespec ts = {0, 0};
  if (!bForever && !DeadlineIn(nMilliseconds, &ts)) return false;
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
// A Thread is one job: pFunc(pArg) on some OS thread. Jobs with the default
// stack run on pooled workers: a worker that finished a job parks for a while
// and takes the next job handed to ThreadCreate, which saves the creation and
// teardown of an OS thread (stack mapping, clone, exit) per job. A job with a
// stack size of its own gets an OS thread of its own that ends with it.
//
// The handle is shared by the creator and the running side; whichever lets
// go last frees it, so a released handle never dangles under a live job.
struct Thread {
  void (*pFunc)(void*);
  void* pArg;
  Event* pEnded;          // set when the job is over; its mutex also guards bCancelAsked
  pthread_t worker;       // the OS thread that runs the job, once bStarted
  bool bStarted;
  bool bCancelAsked;      // a forced termination was asked for this job
  std::atomic<int> nRefs;
};

static void ThreadUnref(Thread* t) {
  if (t->nRefs.fetch_sub(1) == 1) {
    EventFree(t->pEnded);
    delete t;
  }
}

namespace {

// The job the calling thread runs, null outside a job.
thread_local Thread* tJob = nullptr;
// The nice value the thread had before its first priority change, kept so
// that a pooled worker hands the next job the priority it was born with.
thread_local bool tPriorityTouched = false;
thread_local int tBirthNice = 0;

// Parked workers: each waits on its own semaphore for a job, on its own
// stack; the job is handed over under the pool lock and the semaphore is
// posted after it, so the woken worker never waits for that lock. The pool
// is plain static data without a destructor, so workers still parked while
// the process exits never touch a destroyed object.
struct Worker {
  sem_t sem;
  // Published with release order before the post: the semaphore orders it
  // too, but not every checker sees that through sem_clockwait.
  std::atomic<Thread*> pJob;
  Worker* pPrev;
  Worker* pNext;
};

pthread_mutex_t gPoolMutex = PTHREAD_MUTEX_INITIALIZER;
pool::Parked<Worker> gParked;  // under gPoolMutex
using pool::kParkMs;

// Ends a job once, when its body returns and when a forced termination
// unwinds it: marks it ended and tells whether a termination was sent (that
// worker has it pending and must not take another job).
class JobEnd {
public:
  JobEnd(Thread* t, bool* pbCancelled) : m_t(t), m_pbCancelled(pbCancelled) {}
  ~JobEnd() {
    tJob = nullptr;
    bool bCancelled = true;  // if the lock fails, do not reuse the worker
    if (LockEvent(m_t->pEnded)) {
      bCancelled = m_t->bCancelAsked;
      m_t->pEnded->bSet = true;
      const int rc = pthread_cond_broadcast(&m_t->pEnded->c);
      pthread_mutex_unlock(&m_t->pEnded->m);
      if (rc != 0) ReportError("pthread_cond_broadcast", rc);
    }
    *m_pbCancelled = bCancelled;
    ThreadUnref(m_t);
  }
  JobEnd(const JobEnd&) = delete;
  JobEnd& operator=(const JobEnd&) = delete;

private:
  Thread* m_t;
  bool* m_pbCancelled;
};

// Whether the worker can take another job: nothing pending against it, and
// the priority its last job set undone.
bool ReadyForNextJob(bool bCancelled) {
  if (bCancelled) return false;
  if (tPriorityTouched) {
#if defined(__linux__)
    if (setpriority(PRIO_PROCESS, (id_t)CurrentThreadId(), tBirthNice) != 0) return false;
#endif
    tPriorityTouched = false;
  }
  return true;
}

// Waits for the semaphore until ts (CLOCK_MONOTONIC), or for ever when ts
// is null; false on time-out or failure (reported).
bool SemWait(sem_t* p, const struct timespec* ts) {
  for (;;) {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 30)
    const int rc = ts ? sem_clockwait(p, CLOCK_MONOTONIC, ts) : sem_wait(p);
#else
    // Without a monotonic wait the idle time-out follows the wall clock.
    struct timespec tsReal;
    if (ts && clock_gettime(CLOCK_REALTIME, &tsReal) != 0) {
      ReportError("clock_gettime", errno);
      return false;
    }
    if (ts) tsReal.tv_sec += kParkMs / 1000 + 1;
    const int rc = ts ? sem_timedwait(p, &tsReal) : sem_wait(p);
#endif
    if (rc == 0) return true;
    if (errno == EINTR) continue;
    if (errno != ETIMEDOUT) ReportError("sem_wait", errno);
    return false;
  }
}

// Parks the worker until a job comes (returned) or the time-out passes or
// the pool is full (null: the worker ends).
Thread* Park(Worker* w) {
  struct timespec ts;
  if (!DeadlineIn(kParkMs, &ts)) return nullptr;
  int rc = pthread_mutex_lock(&gPoolMutex);
  if (rc != 0) {
    ReportError("pthread_mutex_lock", rc);
    return nullptr;
  }
  w->pJob.store(nullptr, std::memory_order_relaxed);
  if (!gParked.Push(w)) {
    pthread_mutex_unlock(&gPoolMutex);
    return nullptr;
  }
  pthread_mutex_unlock(&gPoolMutex);
  if (SemWait(&w->sem, &ts)) return w->pJob.load(std::memory_order_acquire);
  rc = pthread_mutex_lock(&gPoolMutex);
  if (rc != 0) {
    // Cannot tell whether a job is on its way: wait for it rather than lose it.
    ReportError("pthread_mutex_lock", rc);
    return SemWait(&w->sem, nullptr) ? w->pJob.load(std::memory_order_acquire) : nullptr;
  }
  const bool bListed = w->pJob.load(std::memory_order_acquire) == nullptr;
  if (bListed) {
    // Nobody took it: it leaves the pool.
    gParked.Remove(w);
  }
  pthread_mutex_unlock(&gPoolMutex);
  if (bListed) return nullptr;
  // Taken just as the wait ended: the post is on its way.
  return SemWait(&w->sem, nullptr) ? w->pJob.load(std::memory_order_acquire) : nullptr;
}

// Hands the job to a parked worker; false when none is parked.
bool HandToParked(Thread* t) {
  const int rc = pthread_mutex_lock(&gPoolMutex);
  if (rc != 0) {
    ReportError("pthread_mutex_lock", rc);
    return false;
  }
  Worker* w = gParked.Pop();
  if (w) w->pJob.store(t, std::memory_order_release);
  pthread_mutex_unlock(&gPoolMutex);
  if (!w) return false;
  // The worker waits for this post before it can go: w stays valid. If the
  // post fails the worker never runs the job: a new thread takes it.
  if (sem_post(&w->sem) == 0) return true;
  ReportError("sem_post", errno);
  return false;
}

struct WorkerStart {
  Thread* pJob;
  bool bPooled;
};

}  // namespace

static void RunJob(Thread* t, bool* pbCancelled) {
  JobEnd end(t, pbCancelled);
  // The worker names itself: a termination asked before this point is
  // delivered now and takes hold at the body's first termination point.
  bool bPending = false;
  if (LockEvent(t->pEnded)) {
    t->worker = pthread_self();
    t->bStarted = true;
    bPending = t->bCancelAsked;
    pthread_mutex_unlock(&t->pEnded->m);
  }
  if (bPending) {
    const int rc = pthread_cancel(pthread_self());
    if (rc != 0) ReportError("pthread_cancel", rc);
  }
  tJob = t;
  t->pFunc(t->pArg);
}

static void* WorkerMain(void* p) {
  Thread* t = ((WorkerStart*)p)->pJob;
  bool bPooled = ((WorkerStart*)p)->bPooled;
  delete (WorkerStart*)p;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
  tIsWorker = true;
  Worker w;
  // Without its semaphore the worker runs this one job only.
  if (bPooled && sem_init(&w.sem, 0, 0) != 0) {
    ReportError("sem_init", errno);
    bPooled = false;
  }
  // A forced termination unwinds through here: the semaphore goes with it.
  struct SemRelease {
    Worker* w;
    bool b;
    ~SemRelease() {
      if (b) sem_destroy(&w->sem);
    }
  } release{&w, bPooled};
  while (t) {
    bool bCancelled = false;
    RunJob(t, &bCancelled);
    t = bPooled && ReadyForNextJob(bCancelled) ? Park(&w) : nullptr;
  }
  return nullptr;
}

Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize, Thread** ppHandle) {
  std::unique_ptr<Thread> t(new (std::nothrow) Thread);
  if (!t) NoRoom(__LINE__);
  t->pFunc = pFunc;
  t->pArg = pArg;
  t->pEnded = EventNew(true, false);
  t->bStarted = false;
  t->bCancelAsked = false;
  t->nRefs = 2;
  // Unpublished again by every failure below.
  struct Publish {
    Thread** pp;
    bool bDone;
    ~Publish() {
      if (pp && !bDone) *pp = nullptr;
    }
  } publish{ppHandle, false};
  if (ppHandle) *ppHandle = t.get();
  const bool bPooled = nStackSize == 0;
  if (bPooled && HandToParked(t.get())) {
    publish.bDone = true;
    return t.release();
  }

  pthread_attr_t attr;
  int rc = pthread_attr_init(&attr);
  if (rc != 0) {
    ReportError("pthread_attr_init", rc);
    EventFree(t->pEnded);
    return nullptr;
  }
  // Nobody joins a worker: it may outlive its job, parked.
  rc = pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (rc != 0) {
    pthread_attr_destroy(&attr);
    ReportError("pthread_attr_setdetachstate", rc);
    EventFree(t->pEnded);
    return nullptr;
  }
  // A size the system refuses fails here, like a stack it cannot map later.
  if (nStackSize && (rc = pthread_attr_setstacksize(&attr, nStackSize)) != 0) {
    pthread_attr_destroy(&attr);
    ReportError("pthread_attr_setstacksize", rc);
    EventFree(t->pEnded);
    return nullptr;
  }
  WorkerStart* pStart = new (std::nothrow) WorkerStart{t.get(), bPooled};
  if (!pStart) {
    pthread_attr_destroy(&attr);
    EventFree(t->pEnded);
    NoRoom(__LINE__);
  }
  pthread_t id;
  rc = pthread_create(&id, &attr, WorkerMain, pStart);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    delete pStart;
    ReportError("pthread_create", rc);
    EventFree(t->pEnded);
    return nullptr;
  }
  publish.bDone = true;
  return t.release();
}

bool ThreadWait(Thread* t, uint32_t nMilliseconds) {
  if (!t) return true;
  return EventWait(t->pEnded, nMilliseconds);
}

bool ThreadHasEnded(Thread* t) { return !t || EventIsSet(t->pEnded); }

bool ThreadTerminate(Thread* t) {
  if (!t) return true;
  // Under the job's lock: the worker cannot move on to another job between
  // the test and the cancellation.
  if (!LockEvent(t->pEnded)) return false;
  int rc = 0;
  if (!t->pEnded->bSet) {
    t->bCancelAsked = true;
    if (t->bStarted) rc = pthread_cancel(t->worker);
  }
  pthread_mutex_unlock(&t->pEnded->m);
  // ESRCH: it ended between the two calls.
  if (rc != 0 && rc != ESRCH) {
    ReportError("pthread_cancel", rc);
    return false;
  }
  return true;
}

bool ThreadIsCurrent(Thread* t) { return t && tJob == t; }

void ThreadRelease(Thread* t) {
  if (!t) return;
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
  const id_t nTid = (id_t)CurrentThreadId();
  if (!tPriorityTouched) {
    errno = 0;
    const int nNow = getpriority(PRIO_PROCESS, nTid);
    if (nNow == -1 && errno != 0) {
      ReportError("getpriority", errno);
      return false;
    }
    tBirthNice = nNow;
    tPriorityTouched = true;
  }
  return setpriority(PRIO_PROCESS, nTid, nNice) == 0;
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
