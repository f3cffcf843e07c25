// The platform layer: every operating-system service the library uses sits
// behind these functions. KPlatformPosix.cpp implements them for POSIX; a
// Windows build supplies KPlatformWin32.cpp with the same interface. No other
// source file includes an OS header.
#ifndef KELVOR_KPLATFORM_H
#define KELVOR_KPLATFORM_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace kplat {

// Re-entrant mutex (a Windows critical section). Never fails to construct:
// allocation failure throws std::bad_alloc like any new.
struct Mutex;
Mutex* MutexNew();
void MutexFree(Mutex* m);
void MutexLock(Mutex* m);
bool MutexTryLock(Mutex* m);
void MutexUnlock(Mutex* m);

// Event with manual or automatic reset and a timed wait.
struct Event;
Event* EventNew(bool bManualReset, bool bInitialState);
void EventFree(Event* e);
void EventSet(Event* e);
void EventReset(Event* e);
// Waits up to nMilliseconds (0xFFFFFFFF = forever); true when signalled.
bool EventWait(Event* e, uint32_t nMilliseconds);
bool EventIsSet(Event* e);

// Milliseconds since an arbitrary start, wrapping like GetTickCount.
uint32_t TickCount();
// High-resolution counter and its frequency in counts per second.
int64_t PerfCounter();
int64_t PerfFrequency();
void SleepMs(uint32_t nMilliseconds);

// Environment variables: false when the variable does not exist.
bool GetEnv(const char* szName, std::string& strValue);
bool SetEnv(const char* szName, const char* szValue);

// Raw debug output (stderr here); the library decides whether to call it.
void DebugWrite(const char* szText);

// Identifier of the calling thread (a small stable number per thread).
uint32_t CurrentThreadId();

// Threads. A thread runs pFunc(pArg) and then ends. nStackSize 0 takes the
// system's default stack; null when the thread cannot be created.
struct Thread;
Thread* ThreadCreate(void (*pFunc)(void*), void* pArg, size_t nStackSize = 0);
// Waits for the end up to nMilliseconds; true when it has ended.
bool ThreadWait(Thread* t, uint32_t nMilliseconds);
bool ThreadHasEnded(Thread* t);
// Forced termination: asynchronous cancellation request; see docs/design.md.
bool ThreadTerminate(Thread* t);
// Releases the handle; an unfinished thread goes on detached.
void ThreadRelease(Thread* t);
bool ThreadIsCurrent(Thread* t);
// Scheduling priority of the calling thread, on the Windows scale
// (-15 idle ... 15 time-critical); false when the OS refuses.
bool ThreadSetPriority(int nPriority);
int ThreadGetPriority();

// Random bytes from the operating system's source.
bool RandomBytes(void* pBuffer, size_t nLen);

// File search: the first entry matching szPattern (wildcards '*' and '?' in
// the last component; "*.*" matches every name; among several matches the
// smallest name). Gives its last-write and creation times as FILETIME ticks
// (100 ns since 1601, UTC). Where the file system keeps no birth time the
// creation time is the last status change. False when nothing matches.
bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate);

// Calendar conversions in the process's time zone.
bool LocalTime(time_t t, struct tm* pTm);
bool GmTime(time_t t, struct tm* pTm);
time_t MakeTimeGm(struct tm* pTm);
void TzSet();
// Date and time of pTm in the user's default locale's short form ("%x %X"
// of the locale the environment selects); false when it cannot be made.
bool FormatUserDateTime(const struct tm* pTm, char* pBuffer, size_t nSize);

}  // namespace kplat

// Thread cancellation control (forced termination is deferred cancellation).
namespace kplat {
// Acts on a pending forced termination of the calling thread, if any.
void ThreadTestCancel();
// Enables or disables forced termination of the calling thread; returns the
// previous setting.
bool ThreadSetCancelEnabled(bool bEnabled);
// Holds off forced termination of the calling thread for its lifetime.
struct NoCancelScope {
  NoCancelScope() : bOld(ThreadSetCancelEnabled(false)) {}
  ~NoCancelScope() { ThreadSetCancelEnabled(bOld); }
  NoCancelScope(const NoCancelScope&) = delete;
  NoCancelScope& operator=(const NoCancelScope&) = delete;
  bool bOld;
};
}  // namespace kplat

#endif  // KELVOR_KPLATFORM_H
