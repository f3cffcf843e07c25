// Platform area: threads and synchronisation.
//
// POSIX: KPlatformThreadPosix.cpp (pthreads). Windows counterparts: Mutex is
// a CRITICAL_SECTION (Enter/Leave/TryEnterCriticalSection, its OwningThread
// for MutexIsOwned); Event is CreateEvent/SetEvent/ResetEvent with
// WaitForSingleObject; Thread is a job run by a _beginthreadex thread (new,
// or parked in a pool on an SRWLOCK and a CONDITION_VARIABLE), its end an
// event, ThreadTerminate a flag acted on at the library's waits (never
// TerminateThread); priorities are SetThreadPriority/GetThreadPriority;
// CurrentThreadId is GetCurrentThreadId.
//
// Creation functions throw CKMemoryException when the system has no room;
// every other failure is reported (type 10 log line) and returned.
#ifndef KELVOR_KPLATFORMTHREAD_H
#define KELVOR_KPLATFORMTHREAD_H

#include <cstddef>
#include <cstdint>

namespace kplat {

// Re-entrant mutex.
struct Mutex;
Mutex* MutexNew();
void MutexFree(Mutex* m);
// False only when the system refuses (reported).
bool MutexLock(Mutex* m);
bool MutexTryLock(Mutex* m);
// False, and nothing happens, when the calling thread does not hold it.
bool MutexUnlock(Mutex* m);
// Whether the calling thread holds it.
bool MutexIsOwned(const Mutex* m);

// Holds a mutex for a scope: the library's internal locks.
class MutexGuard {
public:
  explicit MutexGuard(Mutex* m) : m_p(m) { MutexLock(m_p); }
  ~MutexGuard() { MutexUnlock(m_p); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

private:
  Mutex* m_p;
};

// Event with manual or automatic reset and a timed wait.
struct Event;
Event* EventNew(bool bManualReset, bool bInitialState);
void EventFree(Event* e);
void EventSet(Event* e);
void EventReset(Event* e);
// Waits up to nMilliseconds (0xFFFFFFFF = forever); true when signalled.
// A forced termination of the calling worker may take hold here.
bool EventWait(Event* e, uint32_t nMilliseconds);
bool EventIsSet(Event* e);

// Sleeps; a forced termination of the calling worker may take hold here.
void SleepMs(uint32_t nMilliseconds);

// Identifier of the calling thread (a small stable number per thread).
uint32_t CurrentThreadId();

// Threads. A thread is one job: it runs pFunc(pArg) and then ends. nStackSize
// 0 takes the system's default stack; null when the thread cannot be created
// (reported). The handle is also stored in *ppHandle (if given) before
// pFunc can start, and reset there on failure.
//
// Jobs with the default stack run on pooled OS threads: a thread that
// finished a job waits up to 2 s for the next one (at most 64 wait), so
// CurrentThreadId may repeat from one job to the next, as the OS reuses ids
// anyway. A job starts with the priority the OS thread was born with; a
// forced termination ends that OS thread, never a later job.
struct Thread;
Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize = 0,
                     Thread** ppHandle = nullptr);
// Waits for the end up to nMilliseconds; true when it has ended.
bool ThreadWait(Thread* t, uint32_t nMilliseconds);
bool ThreadHasEnded(Thread* t);
// Forced termination: takes hold at the thread's next termination point
// (EventWait, SleepMs, ThreadTestCancel) outside any NoCancelScope.
bool ThreadTerminate(Thread* t);
// Releases the handle; an unfinished thread goes on detached.
void ThreadRelease(Thread* t);
bool ThreadIsCurrent(Thread* t);
// Scheduling priority of the calling thread, on the Windows scale
// (-15 idle ... 15 time-critical); false when the OS refuses.
bool ThreadSetPriority(int nPriority);
int ThreadGetPriority();

// A termination point: a pending forced termination of the calling worker
// takes hold here (outside any NoCancelScope).
void ThreadTestCancel();

// Holds off forced termination of the calling thread for its lifetime
// (nestable). The library holds it off wherever it releases resources.
class NoCancelScope {
public:
  NoCancelScope();
  ~NoCancelScope();
  NoCancelScope(const NoCancelScope&) = delete;
  NoCancelScope& operator=(const NoCancelScope&) = delete;
};

}  // namespace kplat

#endif  // KELVOR_KPLATFORMTHREAD_H
