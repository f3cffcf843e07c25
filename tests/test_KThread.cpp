#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <base/tools/KMessage.h>
#include <base/tools/KSync.h>
#include <base/tools/KThread.h>
#include <lang/KLangList.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

typedef std::vector<std::pair<WPARAM, LPARAM>> Notices;

LRESULT NoticeProc(HWND, UINT nMsg, WPARAM wParam, LPARAM lParam, void* pContext) {
  if (nMsg == KWM_THREAD_END) static_cast<Notices*>(pContext)->push_back({wParam, lParam});
  return 0;
}

struct Seen {
  std::string text;
  std::promise<void> started;
} g_seen;

void Body(CKThread* pObj, long l1, long l2, const char* s1, const char* s2) {
  char buf[64];
  snprintf(buf, sizeof(buf), "%p %ld %ld %s|%s %d ", (void*)pObj, l1, l2, s1, s2, KLangGet());
  g_seen.text = buf + std::string(KLangExtGet());
  g_seen.started.set_value();
  pObj->WaitStopping(INFINITE);
}

void Thrower(CKThread*, long, long, const char*, const char*) { throw std::runtime_error("boom"); }

// A body that ignores the stop event: blocked in a wait, or spinning.
struct Stubborn : CKThread {
  Stubborn(HWND h, bool bSpin) : CKThread(h), m_bSpin(bSpin) { m_bAutoDelete = FALSE; }
  void Func() override {
    struct Mark {
      std::atomic<bool>& b;
      ~Mark() { b = true; }
    } mark{m_bUnwound};
    m_started.set_value();
    while (m_bSpin) IsStopping();
    unsigned long dw = INFINITE;
    m_never.Wait(dw);
    m_bReachedEnd = true;
  }
  bool m_bSpin;
  std::promise<void> m_started;
  std::atomic<bool> m_bUnwound{false}, m_bReachedEnd{false};
  CKWaitableSection m_never;
};

// A body whose last destructor does file I/O and sleeps (blocking calls of
// the C library) while a forced termination is requested.
struct EndsInDestructor : CKThread {
  explicit EndsInDestructor(std::string strFile) : m_strFile(std::move(strFile)) {
    m_bAutoDelete = FALSE;
  }
  void Func() override {
    struct Busy {
      EndsInDestructor* p;
      ~Busy() {
        p->m_inDestructor.set_value();
        // HardDestroy marks the end before it terminates: from here on the
        // termination request is on its way.
        while (!p->m_bEnded) std::this_thread::yield();
        for (int i = 0; i < 40; ++i) {
          FILE* f = fopen(p->m_strFile.c_str(), "a");
          if (f) {
            fputs("x", f);
            fclose(f);
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        p->m_bDestructorDone = true;
      }
    } busy{this};
  }
  std::string m_strFile;
  std::promise<void> m_inDestructor;
  std::atomic<bool> m_bDestructorDone{false};
};

struct SelfDeleting : CKThread {
  explicit SelfDeleting(std::promise<void>* p) : m_pGone(p) {}
  ~SelfDeleting() override { m_pGone->set_value(); }
  std::promise<void>* m_pGone;
};

}  // namespace

TEST(KThread, CallbackRunsUntilStopAndWaitAndNotifies) {
  CKTestLog tools;
  g_seen.started = std::promise<void>();
  Notices notices;
  HWND h = KMessageTargetCreate(NoticeProc, &notices);
  KLangSetThreadLang('e');
  KLangExtSetThreadLang("ext1");
  CKThread th(h);
  th.m_bAutoDelete = FALSE;
  EXPECT_FALSE(th.IsRunning());
  ASSERT_TRUE(th.Start(Body, &th, 7, -8, "one", nullptr));
  g_seen.started.get_future().wait();
  KLangSetThreadLang(0);
  KLangExtSetThreadLang("");
  char szExpect[160];
  snprintf(szExpect, sizeof(szExpect), "%p 7 -8 one| 101 ext1", (void*)&th);
  EXPECT_EQ(szExpect, g_seen.text);  // the starter's language went with it

  EXPECT_TRUE(th.IsRunning() && !th.IsStopping());
  snprintf(szExpect, sizeof(szExpect),
           "IsRunning,m_pFunc=%08llX,m_lParam1=7,m_lParam2=-8,m_strParam1=one,m_bRunning=1,"
           "m_bAutoDelete=0",
           (unsigned long long)reinterpret_cast<uintptr_t>(&Body));
  EXPECT_STREQ(szExpect, th.GetDisplay());
  EXPECT_FALSE(th.Reset());  // alive: nothing changes
  EXPECT_FALSE(th.Start());  // one thread per object
  EXPECT_STREQ(szExpect, th.GetDisplay());
  EXPECT_EQ(0, KMessagePump(h, 0));

  th.StopAndWait(5);
  EXPECT_TRUE(!th.IsRunning() && th.IsStopping());
  EXPECT_EQ(1, KMessagePump(h, 0));
  EXPECT_EQ((Notices{{(WPARAM)&th, 0}}), notices);

  // Reset prepares another run, which is announced again.
  EXPECT_TRUE(th.Reset() && !th.IsStopping());
  g_seen.started = std::promise<void>();
  ASSERT_TRUE(th.Start());
  g_seen.started.get_future().wait();
  EXPECT_EQ(" 0 ", g_seen.text.substr(g_seen.text.size() - 3));  // language 0 now, no extension
  th.Stop();
  for (int i = 0; i < 100 && notices.size() < 2; ++i) KMessagePump(h, 100);
  EXPECT_EQ(2u, notices.size());
  th.StopAndWait(5);
  EXPECT_EQ(0, KMessagePump(h, 0));
  KMessageTargetDestroy(h);
  EXPECT_EQ(CKTestLog::Strings{"ERROR => CKThread::Start: the thread is still running"},
            tools.Texts());
}

TEST(KThread, ForcedTerminationAutoDeleteAndErrors) {
  Notices notices;
  HWND h = KMessageTargetCreate(NoticeProc, &notices);
  for (bool bSpin : {false, true}) {
    Stubborn th(h, bSpin);
    ASSERT_TRUE(th.Start());
    th.m_started.get_future().wait();
    th.StopAndWait(0);  // no grace: terminated at once
    EXPECT_FALSE(th.IsRunning());
    EXPECT_TRUE(th.m_bUnwound && !th.m_bReachedEnd);  // the stack was unwound
    EXPECT_EQ(1, KMessagePump(h, 0));
    EXPECT_EQ((WPARAM)&th, notices.back().first);
    EXPECT_TRUE(th.HardDestroy());  // already over: no second notice
    EXPECT_EQ(0, KMessagePump(h, 0));
  }
  KMessageTargetDestroy(h);

  // Terminated while a destructor runs: the destructor finishes, the thread
  // ends, the process goes on.
  {
    CKTestTempDir dir;
    CKTestLog tools;
    EndsInDestructor th(dir.Path("io.txt"));
    ASSERT_TRUE(th.Start());
    th.m_inDestructor.get_future().wait();
    EXPECT_TRUE(th.HardDestroy());
    EXPECT_TRUE(th.m_bDestructorDone && !th.IsRunning());
    EXPECT_EQ(0u, tools.Count());  // no "did not end"
  }

  std::promise<void> gone;
  SelfDeleting* p = new SelfDeleting(&gone);
  ASSERT_TRUE(p->Start());
  gone.get_future().wait();  // the thread deleted its object

  // An exception in the body ends the run with an error text, not the process.
  CKTestLog tools;
  CKThread bad;
  bad.m_bAutoDelete = FALSE;
  ASSERT_TRUE(bad.Start(Thrower, nullptr, 0, 0, nullptr, nullptr));
  bad.Stop();
  bad.StopAndWait(5);
  EXPECT_STREQ("Exception in thread body: boom", bad.GetErrorMsg());
  EXPECT_STREQ("IsStopping,m_pFunc=", CKString(bad.GetDisplay()).Left(19));
  EXPECT_EQ(CKTestLog::Strings{"ERROR => CKThread: Exception in thread body: boom"},
            tools.Texts());

  // A thread the system cannot create: a stack as large as the address space.
  tools.Clear();
  bad.Reset();
  bad.SetStackSize(~(size_t)0xFFFF);
  EXPECT_FALSE(bad.Start(Thrower, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_TRUE(bad.GetError() == 1 && !bad.IsRunning());
  // The system's refusal, then the thread's own line.
  ASSERT_EQ(2u, tools.Count());
  EXPECT_EQ(0u, tools.Texts()[0].find("ERROR => "));
  EXPECT_EQ("ERROR => CKThread::Start: the thread cannot be created", tools.Last());
  bad.SetStackSize(0);
  EXPECT_TRUE(bad.Start(Thrower, nullptr, 0, 0, nullptr, nullptr) && bad.GetError() == 0);
  bad.StopAndWait(5);
}

TEST(KThread, Priorities) {
  const std::pair<int, const char*> aTexts[] = {
      {1, "ABOVE"}, {-15, "IDLE"}, {2147483647, "<null>"}, {15, "THREAD_PRIORITY n 15"}};
  for (const auto& [n, szText] : aTexts) EXPECT_STREQ(szText, KPriorityText(n)) << n;
  // Lowering is always allowed from normal; raising again may be refused.
  CKTestLog tools;
  int bNormal = FALSE, bStartedNormal = FALSE;
  std::thread([&] {
    bStartedNormal = KThreadPrioritySetNormal();  // a niced run may not get back up
    if (!bStartedNormal) return;
    tools.Clear();
    EXPECT_TRUE(KThreadPrioritySetLowest());
    EXPECT_TRUE(KThreadPrioritySetLowest());  // already there: no line
    EXPECT_TRUE(KThreadPrioritySetIdle());
    bNormal = KThreadPrioritySetNormal();
  }).join();
  if (!bStartedNormal) GTEST_SKIP() << "the tests run below normal priority";
  CKTestLog::Strings expected{"Priority Set Lowest", "Priority Set Idle",
                              bNormal ? "Priority Set Normal"
                                      : "########################### CANNOT SET PRIORITY"};
  EXPECT_EQ(expected, tools.Texts());
}

// Which job last ran on the calling OS thread: 0 on a thread that never ran one.
thread_local int tLastJob = 0;

struct Job {
  int nIndex = 0;
  int nFoundOnThread = -1;  // tLastJob when the job began
  bool bLowered = false;    // the job lowered its priority itself
  std::promise<void> done;
};

void JobBody(CKThread* pObj, long, long, const char*, const char*) {
  Job* p = reinterpret_cast<Job*>(pObj);
  p->nFoundOnThread = tLastJob;
  tLastJob = p->nIndex;
  p->bLowered = KThreadPrioritySetLowest() != 0;
  p->done.set_value();
}

// Runs jobs one after the other until one lands on an OS thread that ran an
// earlier one; false if none did in nMax jobs.
bool RunUntilReused(int nFirst, int nMax, std::vector<int>& found, CKTestLog& tools) {
  for (int i = 0; i < nMax; ++i) {
    Job job;
    job.nIndex = nFirst + i;
    CKThread th;
    th.m_bAutoDelete = FALSE;
    tools.Clear();
    EXPECT_TRUE(th.Start(JobBody, reinterpret_cast<CKThread*>(&job), 0, 0, nullptr, nullptr));
    job.done.get_future().wait();
    th.StopAndWait(5);
    // A lowered priority left by an earlier job would have made this a no-op.
    EXPECT_EQ(CKTestLog::Strings{"Priority Set Lowest"}, tools.Texts()) << job.nIndex;
    found.push_back(job.nFoundOnThread);
    if (job.nFoundOnThread != 0) return true;
    std::this_thread::yield();
  }
  return false;
}

TEST(KThread, JobsReuseParkedThreadsAndStartClean) {
  CKTestLog tools;
  std::vector<int> found;
  // A job that finished leaves its OS thread parked for the next one, which
  // starts at the normal priority whatever the previous job set.
  const bool bReused = RunUntilReused(1, 200, found, tools);
  int bCanRestore = FALSE;
  std::thread([&] {
    KThreadPrioritySetLowest();
    bCanRestore = KThreadPrioritySetNormal();
  }).join();
  // Where the priority cannot be raised back, the thread is not reused.
  EXPECT_TRUE(bReused || !bCanRestore) << "no job ran on a parked thread";

  // A terminated job takes its OS thread with it: no later job runs there.
  struct Marked : Stubborn {
    Marked() : Stubborn(nullptr, false) {}
    void Func() override {
      tLastJob = 999;
      Stubborn::Func();
    }
  } stuck;
  ASSERT_TRUE(stuck.Start());
  stuck.m_started.get_future().wait();
  stuck.StopAndWait(0);
  EXPECT_TRUE(stuck.m_bUnwound && !stuck.IsRunning());
  found.clear();
  RunUntilReused(1000, 20, found, tools);
  for (int n : found) EXPECT_NE(999, n);

  // Many short jobs from several threads at once, every one run once.
  std::atomic<int> nRuns(0);
  std::vector<std::thread> starters;
  for (int t = 0; t < 4; ++t)
    starters.emplace_back([&nRuns] {
      for (int i = 0; i < 50; ++i) {
        CKThread th;
        th.m_bAutoDelete = FALSE;
        ASSERT_TRUE(th.Start(
            [](CKThread* p, long, long, const char*, const char*) {
              ++*reinterpret_cast<std::atomic<int>*>(p);
            },
            reinterpret_cast<CKThread*>(&nRuns), 0, 0, nullptr, nullptr));
        th.StopAndWait(5);
      }
    });
  for (std::thread& t : starters) t.join();
  EXPECT_EQ(200, nRuns.load());
}

TEST(KThread, TimerArithmetic) {
  CKTimer t(FALSE);
  EXPECT_TRUE(t.IsNull());
  t.AddNanos(1500000000);
  EXPECT_EQ(1500000000, t.ToNanos());
  EXPECT_EQ(1500, t.ToMillis());
  CKTimer half(FALSE);
  half.AddNanos(500000000);
  CKTimer d = t - half;
  EXPECT_EQ(t.start, d.start);
  d += half;
  d /= 0;
  EXPECT_EQ(1500000000, d.ToNanos());
  d /= 3;
  EXPECT_EQ(500000000, d.ToNanos());
  EXPECT_TRUE(half < t && t > half && !(t < half));
  EXPECT_STREQ("33.33%", half.PercentOf(t));
  EXPECT_DOUBLE_EQ(3333 * 0.01, half.GetPercentOf(t));
  CKTimer empty(FALSE);
  EXPECT_STREQ("0%", t.PercentOf(empty));

  // Whole seconds times 1000 is a 32-bit product: 25 days wrap.
  CKTimer span(FALSE);
  span.AddNanos(25LL * 86400 * 1000000000);
  EXPECT_EQ(25LL * 86400 * 1000000000, span.ToNanos());
  EXPECT_EQ((int32_t)(25u * 86400u * 1000u), span.ToMillis());
  EXPECT_STREQ("600 hours 0 min 0 s 0 ms", span.GetTextAbsolut(TRUE, TRUE, FALSE));
  // Without bTop, InMillis converts the start reading itself.
  CKTimer s(FALSE);
  s.start = half.top;
  EXPECT_EQ(500, s.InMillis(FALSE, FALSE));
  EXPECT_EQ(500000000, half.InNanos(FALSE, TRUE));
  EXPECT_TRUE(half.IsNull());

  CKTimer m(FALSE);
  m.AddNanos(1500000);
  EXPECT_STREQ("1.500 ms", m.GetTextAbsolut(FALSE, TRUE, FALSE));
  m.AddNanos(500000);
  EXPECT_STREQ("2 ms", m.GetTextAbsolut(FALSE, TRUE, FALSE));
  m.AddNanos(61001000000LL - 2000000);
  EXPECT_STREQ("1 min 1 s 1 ms", m.GetTextAbsolut(FALSE, TRUE, FALSE));
  EXPECT_STREQ("0 hours 0 min 0 s 500 ms", d.GetTextAbsolut(TRUE, TRUE, FALSE));

  CKTimer c(t);
  c.Reset();
  EXPECT_TRUE(c.IsNull() && !t.IsNull());
  CKTestLog tools;
  c.Trace2Reset("lbl");
  ASSERT_EQ(1u, tools.Count());
  EXPECT_EQ(0u, tools.Last().find("lbl : "));
}
