// Concurrent use of the objects the library shares between threads. Each
// test is bounded by a fixed amount of work and checks exact totals; the
// ThreadSanitizer build turns any unguarded access into a failure.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KDebug.h>
#include <base/tools/KLogFile.h>
#include <base/tools/KMessage.h>
#include <base/tools/KSync.h>
#include <base/tools/KTools.h>
#include <lang/KLangList.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

const int kThreads = 4;

template <class F>
void RunThreads(F f) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(f, t);
  for (std::thread& th : threads) th.join();
}

struct Received {
  std::multiset<std::string> texts;
  int nShared = 0;  // records whose text block was shared with someone
};

LRESULT CollectLog(HWND, UINT nMsg, WPARAM wParam, LPARAM lParam, void* pContext) {
  if (nMsg != KWM_LOG) return 0;
  Received* r = static_cast<Received*>(pContext);
  CKLogMsg* pMsg = (CKLogMsg*)lParam;
  if (pMsg->m_strText.GetRefCount() != 1) ++r->nShared;
  EXPECT_EQ((int)wParam, pMsg->m_nType);
  r->texts.insert((const char*)pMsg->m_strText);
  delete pMsg;
  return 0;
}

}  // namespace

TEST(KStress, LogLinesFromWorkersReachThePumpAndTheFile) {
  const int kLines = 300;
  CKTestTempDir dir;
  const std::string strFile = dir.Path("stress.log");
  Received received;
  HWND h = KMessageTargetCreate(CollectLog, &received);
  CKTools* pTools = KTools();
  pTools->SetMainWnd(h);
  CKLogFile shared;
  shared.SetFileName(strFile.c_str());

  std::atomic<int> nDone{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t)
    workers.emplace_back([&, t] {
      for (int i = 0; i < kLines; ++i) {
        const std::string s = "w" + std::to_string(t) + " " + std::to_string(i);
        KLog(24, s.c_str());
        // Copies and assignments of a log file guarded by another lock.
        CKLogFile copy(shared);
        if (i % 2) {
          copy.Log("%s", s.c_str());
        } else {
          CKLogFile assigned;
          assigned = copy;
          assigned.LogNoCRWithThreadID((s + "\n").c_str());
        }
        shared.SetFileName(strFile.c_str());
      }
      ++nDone;
    });
  // The owner pumps while the workers post.
  const size_t nExpected = (size_t)kThreads * kLines;
  while (nDone < kThreads || received.texts.size() < nExpected)
    if (KMessagePump(h, 20) < 0) break;
  for (std::thread& th : workers) th.join();
  pTools->SetMainWnd(nullptr);
  EXPECT_TRUE(KMessageTargetDestroy(h));

  EXPECT_EQ(0, received.nShared);
  ASSERT_EQ(nExpected, received.texts.size());
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kLines; i += 97)
      EXPECT_EQ(1u, received.texts.count("w" + std::to_string(t) + " " + std::to_string(i) + "\n"));

  // Every line whole: "<stamp>: [(<thread>) ]w<t> <i>".
  std::ifstream in(strFile);
  std::set<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    const size_t n = line.find(": ");
    ASSERT_NE(std::string::npos, n) << line;
    std::string rest = line.substr(n + 2);
    if (rest[0] == '(') rest = rest.substr(rest.find(") ") + 2);
    EXPECT_TRUE(lines.insert(rest).second) << line;
  }
  EXPECT_EQ(nExpected, lines.size());
}

TEST(KStress, RunningObjectTableNamesExcludeAndRegistrationsBalance) {
  const int kRounds = 400;
  int counters[3] = {0, 0, 0};  // guarded by the named locks only
  RunThreads([&](int t) {
    std::vector<CWnd> holders(8);  // objects the table does not own
    for (int i = 0; i < kRounds; ++i) {
      const int k = (i + t) % 3;
      {
        CKRotLock lock(("stress.lock." + std::to_string(k)).c_str(), INFINITE);
        ASSERT_TRUE(lock.IsLocked());
        const int n = counters[k];
        if (i % 16 == 0) std::this_thread::yield();
        counters[k] = n + 1;
      }
      const std::string key = "stress.obj." + std::to_string(t) + "." + std::to_string(i % 8);
      CObject* pObj = &holders[i % 8];
      EXPECT_TRUE(KRot()->Register(key.c_str(), pObj, 0));
      EXPECT_EQ(pObj, KRot()->GetObject(key.c_str()));
      EXPECT_STREQ(key.c_str(), KRot()->GetKey(pObj));
      KRot()->Unregister(key.c_str());
    }
  });
  EXPECT_EQ(kThreads * kRounds, counters[0] + counters[1] + counters[2]);
  EXPECT_FALSE(KRot()->ExistBeginKey("stress."));
}

TEST(KStress, LanguageTableSwappedWhileRead) {
  const int kRounds = 300;
  auto table = [](const char* szWord) {
    CKLangList l;
    CKList* p = l.Add('e');
    p->Add("yes");
    p->Add("true");
    p->Add(szWord);
    return l;
  };
  std::atomic<int> nBad{0};
  RunThreads([&](int t) {
    KLangSetThreadLang('e');
    for (int i = 0; i < kRounds; ++i) {
      if (t == 0) {
        CKLangList l = table(i % 2 ? "odd" : "even");
        KLangSetTable(l, i % 3 == 0);
      } else {
        const CKString s = KLangString(KLANG_STR_FIRST);
        if (s != "odd" && s != "even" && s.GetLength() != 0) ++nBad;
        CKLangList copy;
        KLangGetTable(copy);
      }
    }
  });
  EXPECT_EQ(0, nBad.load());
  CKLangList empty;
  KLangSetTable(empty, FALSE);
}

TEST(KStress, LeakTrackerCountsFromManyThreads) {
  KDebugReset();
  const int kObjects = 500;
  RunThreads([&](int t) {
    std::vector<int> objects(kObjects);
    const char* szClass = t % 2 ? "CStressOdd" : "CStressEven";
    for (int& o : objects) KDebugAlloc(szClass, &o);
    for (int& o : objects) KDebugFree(szClass, &o);
  });
  CKTestLog tools;
  KDebugDisplay(nullptr);
  const std::string strBanner(41, '=');
  EXPECT_EQ((CKTestLog::Strings{strBanner, "=== No Leak", strBanner}), tools.Texts());

  // An allocation left behind on one thread shows on another.
  int x = 0;
  std::thread([&] { KDebugAlloc("CStressLeft", &x); }).join();
  tools.Clear();
  KDebugDisplay(nullptr);
  EXPECT_EQ("=== CStressLeft : 1 not released", tools.Texts().at(1));
  KDebugReset();
}
