#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KSync.h>

#include "KTestLog.h"

using namespace std::chrono_literals;

namespace {

struct CaptureTools : CKTestLog {
  void DebugOutput(const char* s) override {
    std::lock_guard<std::mutex> g(mutex);
    debug.push_back(s);
  }
  std::mutex mutex;
  std::vector<std::string> debug;
};

struct RotProbe : CKRot {
  using CKRot::GetFirstPos;
  using CKRot::GetNext;
  using CKRot::GetNextKey;
};

}  // namespace

TEST(KSync, CriticalSectionExcludesAndKeepsAFlagNotACount) {
  CKCriticalSection cs;
  int n = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      CKCriticalSectionLock g(&cs, TRUE);
      ++n;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(40000, n);
  EXPECT_FALSE(cs.IsLocked());

  // Two Locks, two Unlocks: the second finds the flag clear, so the section
  // stays entered once and another thread cannot get in.
  cs.Lock();
  cs.Lock();
  EXPECT_TRUE(cs.Unlock());
  EXPECT_FALSE(TKCriticalSectionIsLocked(&cs));
  EXPECT_TRUE(cs.Unlock());
  auto tryFromOtherThread = [&] {
    return std::async(std::launch::async, [&] {
      const int bIn = cs.TryLock();
      if (bIn) cs.Unlock();
      return bIn;
    }).get();
  };
  EXPECT_FALSE(tryFromOtherThread());
  // A copy shares the section and the flag, so two flagged Unlocks leave twice.
  cs.Lock();
  {
    CKCriticalSection copy;
    copy = cs;
    EXPECT_TRUE(copy.IsLocked());
    copy.Unlock();
  }
  cs.Unlock();
  EXPECT_TRUE(tryFromOtherThread());

  // Leaving a section another thread holds is refused and changes nothing.
  CKTestLog tools;
  cs.Lock();
  std::async(std::launch::async, [&] {
    EXPECT_FALSE(cs.Unlock());
    EXPECT_TRUE(cs.IsLocked());
    EXPECT_FALSE(cs.TryLock());
  }).get();
  EXPECT_EQ(CKTestLog::Strings{"ERROR => CKCriticalSection::Unlock: the section is held by "
                               "another thread"},
            tools.Texts());
  EXPECT_TRUE(cs.Unlock());
  EXPECT_TRUE(tryFromOtherThread());
}

TEST(KSync, WaitableSectionWaitBudget) {
  CKWaitableSection ws;
  unsigned long dw = 0;
  EXPECT_FALSE(ws.Wait(dw));
  dw = 20;
  EXPECT_FALSE(ws.Wait(dw));
  EXPECT_EQ(20ul, dw);  // a time-out leaves the budget alone

  // A successful wait takes the time spent out of the budget. The setter
  // holds back 40 ms from the moment the waiter is about to wait.
  std::promise<void> go, never;
  std::thread setter([&] {
    go.get_future().wait();
    never.get_future().wait_for(40ms);
    ws.Lock(FALSE);
    ws.Unlock(TRUE);  // free-wait sets the event
  });
  auto t0 = std::chrono::steady_clock::now();
  dw = 5000;
  go.set_value();
  EXPECT_TRUE(ws.Wait(dw));
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - t0).count();
  setter.join();
  EXPECT_LE(dw, 5000ul - 20);
  EXPECT_GE(dw + 2, 5000ul - (unsigned long)ms);
  dw = INFINITE;  // the event stays set until a reset-wait
  EXPECT_TRUE(ws.Wait(dw));
  EXPECT_EQ((unsigned long)INFINITE, dw);
}

TEST(KSync, SharedAndExclusiveLocks) {
  CaptureTools tools;
  CKSharedWS sws;
  CKLockSWS r1(&sws, FALSE, INFINITE), r2(&sws, FALSE, INFINITE);
  EXPECT_EQ(2, sws.m_nStatus);
  EXPECT_FALSE(CKLockSWS(&sws, TRUE, 0).IsLocked());
  EXPECT_EQ(std::vector<std::string>{
                "####################### Wait LogNum Status timeout - exclusive, status = 2"},
            tools.debug);

  // An exclusive holder waits for both shared holders: a bounded try fails
  // while either holds, an unbounded one gets in once both have gone.
  auto exclusive = [&](unsigned long dw) {
    return std::async(std::launch::async, [&sws, dw] {
      return CKLockSWS(&sws, TRUE, dw).IsLocked();
    });
  };
  EXPECT_FALSE(exclusive(30).get());
  EXPECT_TRUE(r1.Unlock());
  EXPECT_FALSE(exclusive(30).get());
  std::future<int> f = exclusive(INFINITE);
  EXPECT_TRUE(r2.Unlock());
  EXPECT_TRUE(f.get());
  tools.debug.clear();
  EXPECT_EQ(0, sws.m_nStatus);
  EXPECT_TRUE(r1.Unlock());  // not locked: nothing changes
  EXPECT_EQ(0, sws.m_nStatus);

  CKLockSWS w(&sws, TRUE);
  EXPECT_TRUE(!w.IsLocked() && w.Lock(0));
  EXPECT_EQ(-1, sws.m_nStatus);
  CKLockSWS r(&sws, FALSE, 0);
  EXPECT_FALSE(r.IsLocked());
  EXPECT_EQ(std::vector<std::string>{"####################### Wait LogNum Status timeout - "
                                     "non-exclusive, status = -1"},
            tools.debug);
  r.SetLocked(TRUE);  // claims a hold it does not have: the mismatch is reported
  EXPECT_FALSE(r.Unlock());
  EXPECT_TRUE(w.Unlock());
  EXPECT_EQ(0, sws.m_nStatus);

  CKLockSWS none(nullptr, TRUE, 0);
  EXPECT_TRUE(none.IsLocked());
  EXPECT_FALSE(none.Unlock());
  ASSERT_EQ(1u, tools.Count());
  EXPECT_TRUE(tools.LastIsAssert("pSWS != NULL", "src/KTools"));
  { CKLockWS noSection(nullptr, TRUE, TRUE); }
  EXPECT_TRUE(tools.LastIsAssert("pWS", "src/KTools"));
}

TEST(KSync, RotRegistryReferencesAndLocks) {
  CaptureTools tools;
  CKRot* rot = KRot();
  CObject* pFound = nullptr;
  EXPECT_FALSE(rot->Register("", nullptr, 0));
  EXPECT_FALSE(rot->Register(nullptr, nullptr, 0));

  CReffedObject* pA = new CReffedObject;
  CReffedObject* pB = new CReffedObject;
  EXPECT_TRUE(rot->Register("t.a", pA, 0, &pFound, TRUE));
  EXPECT_EQ(pA, pFound);
  EXPECT_EQ(2, pA->GetRefCount());
  // A taken key: the caller still gets a reference to the present object.
  EXPECT_FALSE(rot->Register("t.a", pB, 0, &pFound, TRUE));
  EXPECT_EQ(pA, pFound);
  EXPECT_EQ(3, pA->GetRefCount());
  EXPECT_EQ(1, pB->GetRefCount());
  EXPECT_EQ(pA, rot->GetObject("t.a", TRUE));
  EXPECT_STREQ("t.a", rot->GetKey(pA));
  EXPECT_TRUE(rot->ExistBeginKey("t.") && !rot->ExistBeginKey("t.b"));
  rot->Unregister(static_cast<CObject*>(pA));
  EXPECT_FALSE(rot->ExistKey("t.a"));
  for (LONG n = 3; n >= 0; --n) EXPECT_EQ(n, pA->Release());  // deleted at 0
  EXPECT_EQ(0, pB->Release());

  CWnd wnd;
  CView view;
  EXPECT_TRUE(rot->Register("t.wnd", &wnd, 0) && rot->Register("t.view", &view, 0));
  EXPECT_TRUE(!rot->GetView("t.wnd") && rot->GetWnd("t.view") == &view && !rot->GetPtr("t.wnd"));
  EXPECT_FALSE(rot->Register("t.wnd", &view, 0, &pFound, TRUE));  // not counted
  EXPECT_EQ(&wnd, pFound);
  ASSERT_EQ(1u, tools.Count());
  EXPECT_TRUE(tools.LastIsAssert("pReffedObj != NULL", "src/KTools"));
  for (const char* szKey : {"t.wnd", "t.view"}) rot->Unregister(szKey);

  // Raw pointers live in holders that the table owns.
  int x = 0, y = 0;
  void* pPtr = nullptr;
  rot->RegisterPtr("t.p", &x, 0, &pPtr);
  EXPECT_EQ(&x, pPtr);
  rot->RegisterPtr("t.p", &y, 0, &pPtr);
  EXPECT_EQ(&x, pPtr);
  EXPECT_EQ(&x, rot->GetPtr("t.p"));
  EXPECT_STREQ("t.p", rot->GetKeyPtr(&x));
  rot->UnregisterPtr(&x);
  EXPECT_FALSE(rot->ExistKey("t.p"));

  RotProbe probe;
  EXPECT_EQ(nullptr, probe.GetFirstPos());
  probe.Register("b", &wnd, 0);
  probe.Register("a", nullptr, 0);
  probe.RegisterPtr("c", &x, 0);
  std::string keys;
  for (POSITION pos = probe.GetFirstPos(); pos;) keys += (const char*)probe.GetNextKey(pos);
  EXPECT_EQ("abc", keys);
  POSITION pos = probe.GetFirstPos();
  EXPECT_EQ(nullptr, probe.GetNext(pos));
  EXPECT_EQ(&wnd, probe.GetNext(pos));

  CKRotLock held("t.lock", 0);
  EXPECT_TRUE(held.IsLocked());
  EXPECT_TRUE(KRot()->ExistKey("t.lock"));  // registered with a null object
  std::promise<void> tried;
  std::future<void> f = std::async(std::launch::async, [&] {
    EXPECT_FALSE(CKRotLock("t.lock", 0).IsLocked());
    CKRotLock later;
    EXPECT_FALSE(later.Lock("t.lock", 20));
    tried.set_value();
    EXPECT_TRUE(later.Lock("t.lock", INFINITE));
  });
  tried.get_future().wait();  // the bounded tries failed: the name was held
  held.Unlock();
  EXPECT_FALSE(held.IsLocked());
  f.wait();
  EXPECT_FALSE(KRot()->ExistKey("t.lock"));  // the thread's lock went with it
  EXPECT_FALSE(held.Lock("", INFINITE));
}
