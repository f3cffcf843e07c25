// POSIX implementation of the platform layer.
#include "platform/KPlatform.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <dirent.h>
#include <locale.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace kplat {

// ---------------------------------------------------------------- mutex
struct Mutex {
  pthread_mutex_t m;
};

Mutex* MutexNew() {
  Mutex* p = new Mutex;
  pthread_mutexattr_t a;
  pthread_mutexattr_init(&a);
  pthread_mutexattr_settype(&a, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&p->m, &a);
  pthread_mutexattr_destroy(&a);
  return p;
}

void MutexFree(Mutex* m) {
  if (!m) return;
  pthread_mutex_destroy(&m->m);
  delete m;
}

void MutexLock(Mutex* m) { pthread_mutex_lock(&m->m); }
bool MutexTryLock(Mutex* m) { return pthread_mutex_trylock(&m->m) == 0; }
void MutexUnlock(Mutex* m) { pthread_mutex_unlock(&m->m); }

// ---------------------------------------------------------------- event
struct Event {
  pthread_mutex_t m;
  pthread_cond_t c;
  bool bManual;
  bool bSet;
};

Event* EventNew(bool bManualReset, bool bInitialState) {
  Event* e = new Event;
  pthread_mutex_init(&e->m, nullptr);
  pthread_condattr_t a;
  pthread_condattr_init(&a);
  pthread_condattr_setclock(&a, CLOCK_MONOTONIC);
  pthread_cond_init(&e->c, &a);
  pthread_condattr_destroy(&a);
  e->bManual = bManualReset;
  e->bSet = bInitialState;
  return e;
}

void EventFree(Event* e) {
  if (!e) return;
  pthread_cond_destroy(&e->c);
  pthread_mutex_destroy(&e->m);
  delete e;
}

void EventSet(Event* e) {
  pthread_mutex_lock(&e->m);
  e->bSet = true;
  if (e->bManual)
    pthread_cond_broadcast(&e->c);
  else
    pthread_cond_signal(&e->c);
  pthread_mutex_unlock(&e->m);
}

void EventReset(Event* e) {
  pthread_mutex_lock(&e->m);
  e->bSet = false;
  pthread_mutex_unlock(&e->m);
}

bool EventIsSet(Event* e) {
  pthread_mutex_lock(&e->m);
  bool b = e->bSet;
  pthread_mutex_unlock(&e->m);
  return b;
}

static void DeadlineAfter(uint32_t nMs, struct timespec* ts) {
  clock_gettime(CLOCK_MONOTONIC, ts);
  ts->tv_sec += nMs / 1000;
  ts->tv_nsec += (long)(nMs % 1000) * 1000000L;
  if (ts->tv_nsec >= 1000000000L) {
    ts->tv_sec++;
    ts->tv_nsec -= 1000000000L;
  }
}

static void UnlockMutex(void* p) { pthread_mutex_unlock((pthread_mutex_t*)p); }

bool EventWait(Event* e, uint32_t nMilliseconds) {
  struct timespec ts;
  if (nMilliseconds != 0xFFFFFFFFu) DeadlineAfter(nMilliseconds, &ts);
  pthread_mutex_lock(&e->m);
  // A cancelled waiter must not leave the event's mutex locked.
  pthread_cleanup_push(UnlockMutex, &e->m);
  while (!e->bSet) {
    int rc = (nMilliseconds == 0xFFFFFFFFu) ? pthread_cond_wait(&e->c, &e->m)
                                            : pthread_cond_timedwait(&e->c, &e->m, &ts);
    if (rc == ETIMEDOUT) break;
  }
  pthread_cleanup_pop(0);
  bool bSignalled = e->bSet;
  if (bSignalled && !e->bManual) e->bSet = false;
  pthread_mutex_unlock(&e->m);
  return bSignalled;
}

// ---------------------------------------------------------------- time
uint32_t TickCount() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (uint32_t)((uint64_t)ts.tv_sec * 1000u + (uint64_t)ts.tv_nsec / 1000000u);
}

int64_t PerfCounter() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (int64_t)ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

int64_t PerfFrequency() { return 1000000000LL; }

void SleepMs(uint32_t nMilliseconds) {
  struct timespec ts;
  ts.tv_sec = nMilliseconds / 1000;
  ts.tv_nsec = (long)(nMilliseconds % 1000) * 1000000L;
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

bool LocalTime(time_t t, struct tm* pTm) { return localtime_r(&t, pTm) != nullptr; }
bool GmTime(time_t t, struct tm* pTm) { return gmtime_r(&t, pTm) != nullptr; }
time_t MakeTimeGm(struct tm* pTm) { return timegm(pTm); }
void TzSet() { tzset(); }

// The user's default locale is the one the environment names (LC_ALL,
// LC_TIME, LANG), whatever locale the program itself has selected.
bool FormatUserDateTime(const struct tm* pTm, char* pBuffer, size_t nSize) {
  if (!pTm || !pBuffer || nSize == 0) return false;
  locale_t loc = newlocale(LC_TIME_MASK, "", (locale_t)0);
  if (!loc) loc = newlocale(LC_TIME_MASK, "C", (locale_t)0);
  if (!loc) return false;
  const size_t n = strftime_l(pBuffer, nSize, "%x %X", pTm, loc);
  freelocale(loc);
  return n != 0;
}

// ---------------------------------------------------------------- environment
bool GetEnv(const char* szName, std::string& strValue) {
  if (!szName) return false;
  const char* v = getenv(szName);
  if (!v) return false;
  strValue = v;
  return true;
}

bool SetEnv(const char* szName, const char* szValue) {
  if (!szName) return false;
  if (!szValue) return unsetenv(szName) == 0;
  return setenv(szName, szValue, 1) == 0;
}

void DebugWrite(const char* szText) {
  if (!szText) return;
  fputs(szText, stderr);
  fflush(stderr);
}

uint32_t CurrentThreadId() { return (uint32_t)syscall(SYS_gettid); }

// ---------------------------------------------------------------- threads
// The handle is shared by the creator and the running thread; whichever lets
// go last frees it, so a released handle never dangles under a live thread.
struct Thread {
  pthread_t id;
  void (*pFunc)(void*);
  void* pArg;
  Event* pEnded;
  std::atomic<int> nRefs;
  std::atomic<bool> bJoined;
};

static void ThreadUnref(Thread* t) {
  if (t->nRefs.fetch_sub(1) == 1) {
    EventFree(t->pEnded);
    delete t;
  }
}

static void ThreadEndMark(void* p) {
  Thread* t = (Thread*)p;
  EventSet(t->pEnded);
  ThreadUnref(t);
}

static void* ThreadTrampoline(void* p) {
  Thread* t = (Thread*)p;
  pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
  pthread_cleanup_push(ThreadEndMark, t);
  t->pFunc(t->pArg);
  pthread_cleanup_pop(1);
  return nullptr;
}

Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize) {
  pthread_attr_t attr;
  if (pthread_attr_init(&attr) != 0) return nullptr;
  // A size the system refuses fails here, like a stack it cannot map later.
  if (nStackSize && pthread_attr_setstacksize(&attr, nStackSize) != 0) {
    pthread_attr_destroy(&attr);
    return nullptr;
  }
  Thread* t = new (std::nothrow) Thread;
  if (!t) {
    pthread_attr_destroy(&attr);
    return nullptr;
  }
  t->pFunc = pFunc;
  t->pArg = pArg;
  t->pEnded = EventNew(true, false);
  t->nRefs = 2;
  t->bJoined = false;
  const int rc = pthread_create(&t->id, &attr, ThreadTrampoline, t);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    EventFree(t->pEnded);
    delete t;
    return nullptr;
  }
  return t;
}

bool ThreadWait(Thread* t, uint32_t nMilliseconds) {
  if (!t) return true;
  return EventWait(t->pEnded, nMilliseconds);
}

bool ThreadHasEnded(Thread* t) { return !t || EventIsSet(t->pEnded); }

bool ThreadTerminate(Thread* t) {
  if (!t || EventIsSet(t->pEnded)) return true;
  return pthread_cancel(t->id) == 0;
}

bool ThreadIsCurrent(Thread* t) { return t && pthread_equal(t->id, pthread_self()); }

void ThreadRelease(Thread* t) {
  if (!t) return;
  if (!ThreadIsCurrent(t) && EventIsSet(t->pEnded))
    pthread_join(t->id, nullptr);
  else
    pthread_detach(t->id);
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
  return setpriority(PRIO_PROCESS, (id_t)syscall(SYS_gettid), nNice) == 0;
}

int ThreadGetPriority() {
  errno = 0;
  int nNice = getpriority(PRIO_PROCESS, (id_t)syscall(SYS_gettid));
  if (errno != 0) return 0;
  int nBest = 0, nDist = 1000;
  for (const auto& e : kPriorityMap) {
    int d = e.nNice > nNice ? e.nNice - nNice : nNice - e.nNice;
    if (d < nDist) {
      nDist = d;
      nBest = e.nWin;
    }
  }
  return nBest;
}

// ---------------------------------------------------------------- random
bool RandomBytes(void* pBuffer, size_t nLen) {
  unsigned char* p = (unsigned char*)pBuffer;
  while (nLen > 0) {
    ssize_t n = getrandom(p, nLen, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    nLen -= (size_t)n;
  }
  return true;
}

// ---------------------------------------------------------------- file search
// '*' and '?' as the system's file search reads them; "*.*" is everything.
static bool WildMatch(const char* p, const char* s) {
  const char* pStar = nullptr;
  const char* sStar = nullptr;
  while (*s) {
    if (*p == '?' || *p == *s) {
      ++p;
      ++s;
    } else if (*p == '*') {
      pStar = p++;
      sStar = s;
    } else if (pStar) {
      p = pStar + 1;
      s = ++sStar;
    } else {
      return false;
    }
  }
  while (*p == '*') ++p;
  return !*p || strcmp(p, ".*") == 0;
}

static uint64_t ToFileTicks(int64_t nSec, long nNsec) {
  // 11644473600 s from 1601 to 1970; times before 1601 clamp to 0.
  int64_t n = nSec + 11644473600LL;
  if (n < 0) return 0;
  return (uint64_t)n * 10000000u + (uint64_t)nNsec / 100u;
}

bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate) {
  if (!szPattern || !*szPattern) return false;
  std::string strPath(szPattern);
  size_t nSlash = strPath.find_last_of('/');
  std::string strDir = nSlash == std::string::npos ? "." : strPath.substr(0, nSlash ? nSlash : 1);
  std::string strName = nSlash == std::string::npos ? strPath : strPath.substr(nSlash + 1);
  if (strName.find_first_of("*?") != std::string::npos) {
    DIR* d = opendir(strDir.c_str());
    if (!d) return false;
    std::string strBest;
    bool bFound = false;
    while (struct dirent* e = readdir(d)) {
      if (WildMatch(strName.c_str(), e->d_name) && (!bFound || strBest > e->d_name)) {
        strBest = e->d_name;
        bFound = true;
      }
    }
    closedir(d);
    if (!bFound) return false;
    strPath = (strDir == "/" ? "/" : strDir + "/") + strBest;
  }
  struct statx sx;
  if (statx(AT_FDCWD, strPath.c_str(), 0, STATX_MTIME | STATX_BTIME | STATX_CTIME, &sx) != 0)
    return false;
  if (pWrite) *pWrite = ToFileTicks(sx.stx_mtime.tv_sec, (long)sx.stx_mtime.tv_nsec);
  if (pCreate) {
    const struct statx_timestamp& t = (sx.stx_mask & STATX_BTIME) ? sx.stx_btime : sx.stx_ctime;
    *pCreate = ToFileTicks(t.tv_sec, (long)t.tv_nsec);
  }
  return true;
}

}  // namespace kplat

// ---------------------------------------------------------------- cancellation
namespace kplat {

void ThreadTestCancel() { pthread_testcancel(); }

bool ThreadSetCancelEnabled(bool bEnabled) {
  int nOld = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(bEnabled ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE, &nOld);
  return nOld == PTHREAD_CANCEL_ENABLE;
}

}  // namespace kplat
