// Message targets: synchronous delivery on the owner thread, a queue for
// every other thread, drained by the owner's KMessagePump.
#define KSRC_PATH "src/KMessage"

#include <base/tools/KMessage.h>

#include <deque>
#include <memory>
#include <set>

#include <base/tools/KDebug.h>

#include "KAlloc.h"
#include "platform/KPlatform.h"

// The record behind a target handle (HWND is an opaque pointer to it).
struct KTarget {
  KMessageProc pProc;
  void* pContext;
  uint32_t nOwnerThread;
  kplat::Event* pQueued;  // auto-reset: set when a message is queued
  struct Msg {
    UINT nMsg;
    WPARAM wParam;
    LPARAM lParam;
  };
  std::deque<Msg> queue;  // guarded by the registry lock
};

namespace {

// Registry of live targets; also guards every queue.
struct Registry {
  kplat::Mutex* pLock = kplat::MutexNew();
  std::set<HWND> targets;
};

Registry& Reg() {
  static Registry* p = new Registry;  // outlives every static destructor
  return *p;
}

// HWND is an opaque handle; behind it lies a KTarget.
inline KTarget* Target(HWND h) { return reinterpret_cast<KTarget*>(h); }

struct RegLock : kplat::MutexGuard {
  RegLock() : kplat::MutexGuard(Reg().pLock) {}
};

bool IsLive(HWND h) { return h && Reg().targets.count(h) != 0; }

}  // namespace

HWND KMessageTargetCreate(KMessageProc pProc, void* pContext) {
  if (!pProc) {
    KLog(KLOG_ASSERT, "KMessageTargetCreate: no message procedure");
    return nullptr;
  }
  std::unique_ptr<KTarget> h(KMEM_TRY(new KTarget));
  h->pProc = pProc;
  h->pContext = pContext;
  h->nOwnerThread = kplat::CurrentThreadId();
  h->pQueued = kplat::EventNew(false, false);
  RegLock lock;
  try {
    KMEM_TRY(Reg().targets.insert(reinterpret_cast<HWND>(h.get())));
  } catch (...) {
    kplat::EventFree(h->pQueued);
    throw;
  }
  return reinterpret_cast<HWND>(h.release());
}

BOOL KMessageTargetDestroy(HWND hWnd) {
  std::deque<KTarget::Msg> pending;
  bool bForeign = false;
  {
    RegLock lock;
    if (!IsLive(hWnd)) return FALSE;
    // The owner may be waiting in KMessagePump on this target's event, so
    // only the owner can free it (a window cannot be destroyed by another
    // thread either).
    bForeign = Target(hWnd)->nOwnerThread != kplat::CurrentThreadId();
    if (!bForeign) {
      Reg().targets.erase(hWnd);
      pending.swap(Target(hWnd)->queue);
    }
  }
  if (bForeign) {
    KLog(KLOG_ERROR, "ERROR => KMessageTargetDestroy: not the owner thread");
    return FALSE;
  }
  // Log records belong to the receiver; nobody will receive these now.
  for (const auto& m : pending)
    if (m.nMsg == KWM_LOG) delete (CKLogMsg*)m.lParam;
  kplat::EventFree(Target(hWnd)->pQueued);
  delete Target(hWnd);
  return TRUE;
}

BOOL KIsMessageTarget(HWND hWnd) {
  RegLock lock;
  return IsLive(hWnd) ? TRUE : FALSE;
}

BOOL KMessageIsOwnerThread(HWND hWnd) {
  RegLock lock;
  return (IsLive(hWnd) && Target(hWnd)->nOwnerThread == kplat::CurrentThreadId()) ? TRUE : FALSE;
}

BOOL KPostMessage(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam) {
  RegLock lock;
  if (!IsLive(hWnd)) return FALSE;
  KMEM_TRY(Target(hWnd)->queue.push_back({nMsg, wParam, lParam}));
  kplat::EventSet(Target(hWnd)->pQueued);
  return TRUE;
}

LRESULT KSendMessage(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam) {
  KMessageProc pProc = nullptr;
  void* pContext = nullptr;
  {
    RegLock lock;
    if (!IsLive(hWnd)) return 0;
    if (Target(hWnd)->nOwnerThread != kplat::CurrentThreadId()) {
      KMEM_TRY(Target(hWnd)->queue.push_back({nMsg, wParam, lParam}));
      kplat::EventSet(Target(hWnd)->pQueued);
      return 0;
    }
    pProc = Target(hWnd)->pProc;
    pContext = Target(hWnd)->pContext;
  }
  return pProc(hWnd, nMsg, wParam, lParam, pContext);
}

int KMessagePump(HWND hWnd, DWORD nTimeoutMs) {
  kplat::Event* pQueued = nullptr;
  {
    RegLock lock;
    if (!IsLive(hWnd) || Target(hWnd)->nOwnerThread != kplat::CurrentThreadId()) return -1;
    if (Target(hWnd)->queue.empty()) pQueued = Target(hWnd)->pQueued;
  }
  // Only the owner destroys its target, so the event outlives this wait.
  if (pQueued && nTimeoutMs) kplat::EventWait(pQueued, nTimeoutMs);
  std::deque<KTarget::Msg> batch;
  {
    RegLock lock;
    if (!IsLive(hWnd)) return -1;
    batch.swap(Target(hWnd)->queue);
    // The queue is empty now: a signal left from a message taken without
    // waiting must not wake the next pump early.
    kplat::EventReset(Target(hWnd)->pQueued);
  }
  int n = 0;
  for (size_t i = 0; i < batch.size(); ++i) {
    const KTarget::Msg& m = batch[i];
    if (!KIsMessageTarget(hWnd)) {
      // A procedure destroyed its own target: drop the rest like Destroy does.
      for (; i < batch.size(); ++i)
        if (batch[i].nMsg == KWM_LOG) delete (CKLogMsg*)batch[i].lParam;
      break;
    }
    Target(hWnd)->pProc(hWnd, m.nMsg, m.wParam, m.lParam, Target(hWnd)->pContext);
    ++n;
  }
  return n;
}
