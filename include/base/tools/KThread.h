// CKThread, the worker thread (a callback or an overridden Func, a stop
// event, bounded stop with forced termination, end notice); CKTimer, the
// performance-counter stopwatch; and the thread-priority helpers.
#ifndef KELVOR_KTHREAD_H
#define KELVOR_KTHREAD_H

#include <atomic>

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

namespace kplat {
struct Event;
struct Thread;
}  // namespace kplat

class CKThread;

// The callback form of a thread body.
typedef void (*KThreadFunc)(CKThread* pObj, long lParam1, long lParam2, const char* szParam1,
                            const char* szParam2);

// A worker thread. With m_bAutoDelete set (the default) the object deletes
// itself when its thread ends, so it must come from new and its owner must
// not touch it once the body may have returned; clear m_bAutoDelete to own
// the object and stop it with StopAndWait.
//
// When the thread ends, the notify target (KMessage.h) receives, once per
// run, the queued message KWM_THREAD_END (3026) with the CKThread* as wParam
// and 0 as lParam.
//
// Forced termination (HardDestroy, StopAndWait past its time) takes hold
// only when the worker next waits or sleeps through the library (event and
// section waits, WaitStopping, the message pump) or calls IsStopping, and
// never while the library releases resources (destructors, StopAndWait,
// HardDestroy, log-file lines). The worker's stack is then unwound
// (destructors run), the rest of the body and ExitInstance are skipped, and
// an auto-deleting object is left to its owner to delete. The C library's
// own blocking calls (file and socket I/O, condition variables) never end a
// worker. A body that never reaches a library wait cannot be terminated; a
// body should poll IsStopping and return. A derived class with members used
// by its body should call StopAndWait in its own destructor. docs/design.md
// lists what forced termination can and cannot promise.
class KELVOR_API CKThread {
public:
  CKThread();
  explicit CKThread(HWND hNotify);
  virtual ~CKThread();
  CKThread(const CKThread&) = delete;
  CKThread& operator=(const CKThread&) = delete;

  // Thread side: InitInstance runs the body (and returns FALSE, ending the
  // thread); ExitInstance does the end-of-thread work.
  virtual BOOL InitInstance();
  virtual int ExitInstance();
  // The body: calls the callback when one was given.
  virtual void Func();
  // One-line state dump.
  virtual CKString GetDisplay();

  // Starts the thread (FALSE, logged, while it still runs). The second form
  // first stores the callback and the arguments it is called with.
  int Start();
  int Start(KThreadFunc pFunc, CKThread* pObj, long lParam1, long lParam2,
            const char* szParam1, const char* szParam2);
  // Sets the stop event; does not wait.
  int Stop();
  int IsStopping();
  // Waits up to nMilliseconds (INFINITE: for ever) for the stop event;
  // TRUE once it is set. For bodies that sleep between polls.
  int WaitStopping(unsigned long nMilliseconds);
  int IsRunning();
  // Sets the stop event, waits up to nSeconds for the body to return, then
  // terminates the thread by force.
  void StopAndWait(int nSeconds);
  // Terminates the thread at once (see the class comment for when that takes
  // hold); FALSE when there is no thread or the system refuses.
  int HardDestroy();
  // Prepares a finished thread for another Start; FALSE while it runs.
  int Reset();
  int GetError() const { return m_iError; }
  // Stack of the threads that Start creates, in bytes; 0 (the default) takes
  // the system's default. A size the system refuses makes Start fail.
  void SetStackSize(size_t nBytes) { m_nStackSize = nBytes; }
  size_t GetStackSize() const { return m_nStackSize; }
  // A private copy: the text was written by the worker thread.
  CKString GetErrorMsg() const { return CKString(m_strError.GetString()); }

  BOOL m_bAutoDelete;

protected:
  CKString m_strError;
  CKString m_strLangExt;
  CKString m_strParam1;
  CKString m_strParam2;
  CKThread* m_pObj;
  KThreadFunc m_pFunc;
  long m_lParam1;
  long m_lParam2;
  kplat::Event* m_pStopEvent;
  HWND m_hNotify;
  int m_iError;
  std::atomic<int> m_bEnded;
  std::atomic<int> m_bRunning;
  char m_cLang;
  size_t m_nStackSize;

private:
  static void ThreadEntry(void* pArg);
  // The end-of-thread work, done once per run.
  void EndOfThread();
  // Alive: the thread has not ended (or, without a thread, m_bRunning).
  int IsAlive();

  kplat::Thread* m_pThread;
};

// Priority of the calling thread. Nothing happens when it already has the
// level; else it is set and logged ("Priority Set ..."), or the refusal is
// logged. TRUE when the thread ends up at the level.
KELVOR_API int KThreadPrioritySetHighest();
KELVOR_API int KThreadPrioritySetNormal();
KELVOR_API int KThreadPrioritySetBelow();
KELVOR_API int KThreadPrioritySetLowest();
KELVOR_API int KThreadPrioritySetIdle();
// "HIGHEST", "ABOVE", "NORMAL", "BELOW", "LOWEST", "IDLE", "<null>" for the
// error value, else "THREAD_PRIORITY n " and the number.
KELVOR_API CKString KPriorityText(int nPriority);

// Stopwatch on the performance counter: elapsed = top - start, in counter
// ticks; conversions read the counter frequency each time.
class KELVOR_API CKTimer {
public:
  // bStart: both readings taken now (Reset); else both 0.
  explicit CKTimer(int bStart = TRUE);
  CKTimer(const CKTimer& o) : top(o.top), start(o.start) {}
  CKTimer& operator=(const CKTimer& o) {
    top = o.top;
    start = o.start;
    return *this;
  }
  virtual ~CKTimer();

  // Start reads the counter into start, GetTop into top, Reset into both.
  void Start();
  void GetTop();
  void Reset();
  int IsNull() const { return top == start; }

  // Elapsed time as it stands (no new reading). In*: bTop reads the counter
  // first; bRestart makes the next span start at top.
  __int64 ToNanos() const;
  __int64 InNanos(int bTop = TRUE, int bRestart = FALSE);
  __int64 ToMillis() const;
  // Without bTop this converts the start reading itself, not the elapsed time.
  __int64 InMillis(int bTop = TRUE, int bRestart = FALSE);

  // Arithmetic on spans: - and += take away or add o's span, /= divides
  // this one (by 1 when n is 0), AddNanos lengthens it.
  CKTimer operator-(const CKTimer& o) const;
  void operator+=(const CKTimer& o);
  void AddNanos(__int64 n);
  void operator/=(unsigned __int64 n);
  bool operator<(const CKTimer& o) const { return ToNanos() < o.ToNanos(); }
  bool operator>(const CKTimer& o) const { return ToNanos() > o.ToNanos(); }

  // The elapsed time as text: under a second "12.345 ms", else the tick-count
  // text of KTimerGetTextAbsolut (bHours forces that). bTop reads the counter
  // first.
  CKString GetTextAbsolut(int bHours, int bMs, int bTop);
  CKString GetText(int bHours = FALSE, int bMs = TRUE) { return GetTextAbsolut(bHours, bMs, TRUE); }
  // This span as a share of o's: "12.34%" ("0%", 0.0 when o's is empty).
  CKString PercentOf(CKTimer& o);
  double GetPercentOf(CKTimer& o);

  // Log GetText() (with the type nLevel; Trace2: "label : text"); the Reset
  // forms restart the timer afterwards.
  void Trace();
  void Trace(int nLevel);
  void TraceReset();
  void TraceReset(int nLevel);
  void Trace2(const char* szLabel);
  void Trace2(int nLevel, const char* szLabel);
  void Trace2Reset(const char* szLabel);
  void Trace2Reset(int nLevel, const char* szLabel);

  __int64 top;    // latest reading
  __int64 start;  // start reading
};

#endif  // KELVOR_KTHREAD_H
