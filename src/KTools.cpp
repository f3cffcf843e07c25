// Locks: critical sections, waitable sections, the shared/exclusive lock and
// the running-object table.
#define KSRC_PATH "src/KTools"

#include <base/tools/KSync.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>
#include <base/tools/KTools.h>

#include "KAlloc.h"
#include "platform/KPlatform.h"

// ---------------------------------------------------------------- critical section
// Copies of a CKCriticalSection share one system section; the last owner frees it.
struct CKCriticalSection::Section {
  kplat::Mutex* pMutex;
  std::atomic<int> nRefs;
};

static CKCriticalSection::Section* SectionNew() {
  std::unique_ptr<CKCriticalSection::Section> p(KMEM_TRY(new CKCriticalSection::Section));
  p->pMutex = kplat::MutexNew();
  p->nRefs = 1;
  return p.release();
}

static void SectionUnref(CKCriticalSection::Section* p) {
  if (p && p->nRefs.fetch_sub(1) == 1) {
    kplat::MutexFree(p->pMutex);
    delete p;
  }
}

// The fields the C functions work on.
struct KCriticalSectionAccess {
  static CKCriticalSection::Section*& Sec(CKCriticalSection* cs) { return cs->m_pSection; }
  static CKCriticalSection::Section* Sec(const CKCriticalSection* cs) { return cs->m_pSection; }
  static std::atomic<int>& Flag(CKCriticalSection* cs) { return cs->m_bLocked; }
  static const std::atomic<int>& Flag(const CKCriticalSection* cs) { return cs->m_bLocked; }
  static CKCriticalSection*& CS(CKCriticalSectionLock* l) { return l->m_pCS; }
  static int& Held(CKCriticalSectionLock* l) { return l->m_bLocked; }
  static int Held(const CKCriticalSectionLock* l) { return l->m_bLocked; }
};
typedef KCriticalSectionAccess A;

// The flag is cleared before the section is left: once left, the next holder
// owns the flag.
static void LeaveAndClear(CKCriticalSection::Section* p, std::atomic<int>& bLocked) {
  bLocked.store(0);
  kplat::MutexUnlock(p->pMutex);
}

void TKCriticalSectionInit(CKCriticalSection* cs, int bLock) {
  KASSERT_RET(cs != nullptr);
  A::Sec(cs) = SectionNew();
  A::Flag(cs).store(0);
  if (bLock) {
    kplat::MutexLock(A::Sec(cs)->pMutex);
    A::Flag(cs).store(1);
  }
}

void TKCriticalSectionTerm(CKCriticalSection* cs) {
  KASSERT_RET(cs != nullptr);
  if (!A::Sec(cs)) return;
  if (A::Flag(cs).load() && kplat::MutexIsOwned(A::Sec(cs)->pMutex))
    LeaveAndClear(A::Sec(cs), A::Flag(cs));
  SectionUnref(A::Sec(cs));
  A::Sec(cs) = nullptr;
}

int TKCriticalSectionLock(CKCriticalSection* cs) {
  KASSERT_RETV(cs != nullptr && A::Sec(cs) != nullptr, FALSE);
  kplat::MutexLock(A::Sec(cs)->pMutex);
  A::Flag(cs).store(1);
  return TRUE;
}

int TKCriticalSectionUnlock(CKCriticalSection* cs) {
  KASSERT_RETV(cs != nullptr && A::Sec(cs) != nullptr, FALSE);
  // A flag, not a count: only the first Unlock after a Lock leaves.
  if (!A::Flag(cs).load()) return TRUE;
  if (!kplat::MutexIsOwned(A::Sec(cs)->pMutex)) {
    // Leaving a section another thread holds would break it for its holder.
    KLog(KLOG_ERROR, "ERROR => CKCriticalSection::Unlock: the section is held by another thread");
    return FALSE;
  }
  LeaveAndClear(A::Sec(cs), A::Flag(cs));
  return TRUE;
}

int TKCriticalSectionIsLocked(const CKCriticalSection* cs) {
  KASSERT_RETV(cs != nullptr, FALSE);
  return A::Flag(cs).load();
}

CKCriticalSection::CKCriticalSection(int bLock) : m_pSection(nullptr), m_bLocked(0) {
  TKCriticalSectionInit(this, bLock);
}

CKCriticalSection::CKCriticalSection(const CKCriticalSection& o)
    : m_pSection(o.m_pSection), m_bLocked(o.m_bLocked.load()) {
  if (m_pSection) m_pSection->nRefs.fetch_add(1);
}

CKCriticalSection::~CKCriticalSection() { TKCriticalSectionTerm(this); }

CKCriticalSection& CKCriticalSection::operator=(const CKCriticalSection& o) {
  if (this == &o) return *this;
  // The copy names the source's section; our own one is let go (a held one
  // is left first so that it cannot stay entered for ever).
  if (o.m_pSection) o.m_pSection->nRefs.fetch_add(1);
  TKCriticalSectionTerm(this);
  m_pSection = o.m_pSection;
  m_bLocked.store(o.m_bLocked.load());
  return *this;
}

int CKCriticalSection::Lock() { return TKCriticalSectionLock(this); }
int CKCriticalSection::TryLock() {
  KASSERT_RETV(m_pSection != nullptr, FALSE);
  if (!kplat::MutexTryLock(m_pSection->pMutex)) return FALSE;
  m_bLocked.store(1);
  return TRUE;
}

int CKCriticalSection::Unlock() { return TKCriticalSectionUnlock(this); }
int CKCriticalSection::IsLocked() const { return TKCriticalSectionIsLocked(this); }

// ---------------------------------------------------------------- critical section guard
void TKCriticalSectionLockInit(CKCriticalSectionLock* l, CKCriticalSection* cs, int bLock) {
  KASSERT_RET(l != nullptr);
  A::CS(l) = cs;
  A::Held(l) = 0;
  if (bLock) TKCriticalSectionLockLock(l);
}

void TKCriticalSectionLockTerm(CKCriticalSectionLock* l) {
  KASSERT_RET(l != nullptr);
  CKCriticalSection* cs = A::CS(l);
  if (cs && A::Sec(cs) && A::Held(l) && A::Flag(cs).load() &&
      kplat::MutexIsOwned(A::Sec(cs)->pMutex))
    LeaveAndClear(A::Sec(cs), A::Flag(cs));
}

void TKCriticalSectionLockLock(CKCriticalSectionLock* l) {
  KASSERT_RET(l != nullptr);
  CKCriticalSection* cs = A::CS(l);
  if (!cs || !A::Sec(cs)) return;
  kplat::MutexLock(A::Sec(cs)->pMutex);
  A::Flag(cs).store(1);
  A::Held(l) = 1;
}

void TKCriticalSectionLockUnlock(CKCriticalSectionLock* l) {
  KASSERT_RET(l != nullptr);
  CKCriticalSection* cs = A::CS(l);
  if (!cs || !A::Held(l)) return;
  if (A::Flag(cs).load() && A::Sec(cs) && kplat::MutexIsOwned(A::Sec(cs)->pMutex))
    LeaveAndClear(A::Sec(cs), A::Flag(cs));
  A::Held(l) = 0;
}

int TKCriticalSectionLockIsLocked(const CKCriticalSectionLock* l) {
  KASSERT_RETV(l != nullptr, FALSE);
  return A::Held(l);
}

CKCriticalSectionLock::CKCriticalSectionLock(CKCriticalSection* p, int bLock)
    : m_pCS(nullptr), m_bLocked(0) {
  TKCriticalSectionLockInit(this, p, bLock);
}

CKCriticalSectionLock::~CKCriticalSectionLock() { TKCriticalSectionLockTerm(this); }
void CKCriticalSectionLock::Lock() { TKCriticalSectionLockLock(this); }
void CKCriticalSectionLock::Unlock() { TKCriticalSectionLockUnlock(this); }
int CKCriticalSectionLock::IsLocked() const { return TKCriticalSectionLockIsLocked(this); }

// ---------------------------------------------------------------- waitable section
CKWaitableSection::CKWaitableSection()
    : m_pMutex(kplat::MutexNew()), m_pEvent(kplat::EventNew(true, false)) {}

CKWaitableSection::~CKWaitableSection() {
  kplat::EventFree(m_pEvent);
  kplat::MutexFree(m_pMutex);
}

void CKWaitableSection::Lock(int bResetWait) {
  kplat::MutexLock(m_pMutex);
  if (bResetWait) kplat::EventReset(m_pEvent);
}

void CKWaitableSection::Unlock(int bFreeWait) {
  if (bFreeWait) kplat::EventSet(m_pEvent);
  kplat::MutexUnlock(m_pMutex);
}

int CKWaitableSection::Wait(unsigned long& dwTimeout) {
  if (dwTimeout == 0) return FALSE;
  const bool bFinite = dwTimeout < 0xFFFFFFFFul;
  const uint32_t nStart = bFinite ? kplat::TickCount() : 0;
  if (!kplat::EventWait(m_pEvent, bFinite ? (uint32_t)dwTimeout : 0xFFFFFFFFu)) return FALSE;
  if (bFinite) {
    const unsigned long nElapsed = (uint32_t)(kplat::TickCount() - nStart);
    dwTimeout = nElapsed >= dwTimeout ? 0 : dwTimeout - nElapsed;
  }
  return TRUE;
}

int CKWaitableSection::ResetWait() {
  kplat::EventReset(m_pEvent);
  return TRUE;
}

int CKWaitableSection::FreeWait() {
  kplat::EventSet(m_pEvent);
  return TRUE;
}

CKLockWS::CKLockWS(CKWaitableSection* pWS, int bResetWait, int bFreeWait)
    : m_pWS(pWS), m_bFreeWait(bFreeWait) {
  KASSERT(pWS);
  if (m_pWS) m_pWS->Lock(bResetWait);
}

CKLockWS::~CKLockWS() {
  if (m_pWS) m_pWS->Unlock(m_bFreeWait);
}

// ---------------------------------------------------------------- shared/exclusive lock
void CKLockSWS::Init(CKSharedWS* pSWS, int bExclusive) {
  KASSERT_T(pSWS != nullptr, "pSWS != NULL");
  m_pSWS = pSWS;
  m_bExclusive = pSWS ? bExclusive : FALSE;
  m_bLocked = FALSE;
}

CKLockSWS::CKLockSWS(CKSharedWS* pSWS, int bExclusive) { Init(pSWS, bExclusive); }

CKLockSWS::CKLockSWS(CKSharedWS* pSWS, int bExclusive, unsigned long dwTimeout) {
  Init(pSWS, bExclusive);
  m_bLocked = Lock(dwTimeout);
}

CKLockSWS::~CKLockSWS() { Unlock(); }

int CKLockSWS::TryLock() {
  // Every try resets the event: only a release after this point wakes us.
  CKLockWS lock(m_pSWS, TRUE, FALSE);
  if (m_bExclusive) {
    if (m_pSWS->m_nStatus != 0) return FALSE;
    m_pSWS->m_nStatus = -1;
  } else {
    if (m_pSWS->m_nStatus < 0) return FALSE;
    m_pSWS->m_nStatus++;
  }
  return TRUE;
}

int CKLockSWS::Lock(unsigned long dwTimeout) {
  if (!m_pSWS || m_bLocked) return TRUE;
  while (!TryLock()) {
    if (!m_pSWS->Wait(dwTimeout)) {
      int32_t nStatus;
      {
        CKLockWS lock(m_pSWS, FALSE, FALSE);
        nStatus = m_pSWS->m_nStatus;
      }
      KTools()->DebugOutput(KAnd("####################### Wait LogNum Status timeout - ",
                                 m_bExclusive ? "exclusive, " : "non-exclusive, ", "status = ",
                                 KStr(nStatus)));
      return FALSE;
    }
  }
  m_bLocked = TRUE;
  return TRUE;
}

int CKLockSWS::Unlock() {
  if (!m_bLocked) return TRUE;
  if (!m_pSWS) return FALSE;
  // Leaving with free-wait wakes every waiter.
  CKLockWS lock(m_pSWS, FALSE, TRUE);
  m_bLocked = FALSE;
  int bConsistent;
  if (m_bExclusive) {
    bConsistent = m_pSWS->m_nStatus == -1;
    if (bConsistent) m_pSWS->m_nStatus = 0;
  } else {
    bConsistent = m_pSWS->m_nStatus > 0;
    if (bConsistent) m_pSWS->m_nStatus--;
  }
  return bConsistent;
}

// ---------------------------------------------------------------- counted objects
CReffedObject::~CReffedObject() {}

LONG CReffedObject::AddRef() { return m_lRef.fetch_add(1) + 1; }

LONG CReffedObject::Release() {
  KASSERT_RETV(m_lRef > 0, 0);
  LONG lRef = m_lRef.fetch_sub(1) - 1;
  if (lRef == 0) delete this;
  return lRef;
}

CObjectPtrHolder::~CObjectPtrHolder() {}

// ---------------------------------------------------------------- running-object table
struct CKRot::Map {
  typedef std::map<std::string, CObject*> Items;
  Items items;
};

namespace {

typedef std::map<std::string, CObject*>::value_type RotEntry;

inline POSITION ToPos(const RotEntry& e) {
  return reinterpret_cast<POSITION>(const_cast<RotEntry*>(&e));
}
inline RotEntry* FromPos(POSITION pos) { return reinterpret_cast<RotEntry*>(pos); }

}  // namespace

CKRot::CKRot() : m_pMap(KMEM_TRY(new Map)) {}

CKRot::~CKRot() {
  // Pointer holders belong to the table; registered objects do not.
  for (auto& e : m_pMap->items) delete dynamic_cast<CObjectPtrHolder*>(e.second);
  delete m_pMap;
}

int CKRot::Register(const char* key, CObject* pObj, unsigned long dwTimeout, CObject** ppFound,
                    int bAddRef) {
  return DoRegister(key, pObj, dwTimeout, ppFound, bAddRef, nullptr);
}

int CKRot::DoRegister(const char* key, CObject* pObj, unsigned long dwTimeout, CObject** ppFound,
                      int bAddRef, void** ppFoundPtr) {
  if (KIsEmpty(key)) return FALSE;
  // The reference taken on the holder of the key is given back when a
  // forced termination unwinds the wait; the caller keeps it otherwise.
  struct HeldRef {
    CKRot* pRot;
    CObject* pObj = nullptr;
    ~HeldRef() { pRot->RotRelease(pObj); }
    CObject* Keep() {
      CObject* p = pObj;
      pObj = nullptr;
      return p;
    }
  } held{this};
  CObject* pFound = nullptr;
  for (;;) {
    // The reference taken on the previous pass's holder is not kept.
    if (bAddRef) RotRelease(held.Keep());
    int bStored;
    {
      CKLockWS lock(&m_ws, TRUE, FALSE);
      auto ins = KMEM_TRY(m_pMap->items.emplace(key, pObj));
      bStored = ins.second;
      pFound = ins.first->second;
      if (bAddRef) {
        RotAddRef(pFound);
        held.pObj = pFound;
      }
      // Read the holder's pointer while the holder is sure to exist.
      if (ppFoundPtr) {
        CObjectPtrHolder* pHolder = dynamic_cast<CObjectPtrHolder*>(pFound);
        *ppFoundPtr = pHolder ? pHolder->GetPtr() : nullptr;
      }
    }
    if (bStored) {
      held.Keep();
      if (ppFound) *ppFound = pFound;
      return TRUE;
    }
    if (!WaitRot(dwTimeout)) {
      held.Keep();
      if (ppFound) *ppFound = pFound;
      return FALSE;
    }
  }
}

void CKRot::RegisterPtr(const char* key, void* p, unsigned long dwTimeout, void** ppFound) {
  // Owned here until the table takes it (also when a wait is unwound).
  std::unique_ptr<CObjectPtrHolder> pHolder(KMEM_TRY(new CObjectPtrHolder(p)));
  void* pFound = nullptr;
  if (DoRegister(key, pHolder.get(), dwTimeout, nullptr, FALSE, &pFound)) pHolder.release();
  if (ppFound) *ppFound = pFound;
}

void CKRot::Unregister(const char* key) {
  if (KIsEmpty(key)) return;
  CKLockWS lock(&m_ws, FALSE, TRUE);
  auto it = m_pMap->items.find(key);
  if (it == m_pMap->items.end()) return;
  delete dynamic_cast<CObjectPtrHolder*>(it->second);
  m_pMap->items.erase(it);
}

void CKRot::Unregister(CObject* pObj) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  Unregister((const char*)GetKey(pObj));
}

void CKRot::UnregisterPtr(void* p) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  Unregister((const char*)GetKeyPtr(p));
}

CObject* CKRot::GetObject(const char* key, int bAddRef) {
  if (KIsEmpty(key)) return nullptr;
  CKLockWS lock(&m_ws, FALSE, FALSE);
  auto it = m_pMap->items.find(key);
  if (it == m_pMap->items.end()) return nullptr;
  if (bAddRef) RotAddRef(it->second);
  return it->second;
}

CWnd* CKRot::GetWnd(const char* key) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  return dynamic_cast<CWnd*>(GetObject(key, FALSE));
}

CView* CKRot::GetView(const char* key) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  return dynamic_cast<CView*>(GetObject(key, FALSE));
}

void* CKRot::GetPtr(const char* key) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  CObjectPtrHolder* pHolder = dynamic_cast<CObjectPtrHolder*>(GetObject(key, FALSE));
  return pHolder ? pHolder->GetPtr() : nullptr;
}

CKString CKRot::GetKey(CObject* pObj) {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  for (const auto& e : m_pMap->items)
    if (e.second == pObj) return CKString(e.first.c_str());
  return CKString();
}

CKString CKRot::GetKeyPtr(void* p) {
  if (!p) return CKString();
  CKLockWS lock(&m_ws, FALSE, FALSE);
  for (const auto& e : m_pMap->items) {
    CObjectPtrHolder* pHolder = dynamic_cast<CObjectPtrHolder*>(e.second);
    if (pHolder && pHolder->GetPtr() == p) return CKString(e.first.c_str());
  }
  return CKString();
}

int CKRot::ExistKey(const char* key) {
  if (!key) return FALSE;
  CKLockWS lock(&m_ws, FALSE, FALSE);
  return m_pMap->items.count(key) != 0;
}

int CKRot::ExistBeginKey(const char* szPrefix) {
  if (KIsEmpty(szPrefix)) return FALSE;
  CKLockWS lock(&m_ws, FALSE, FALSE);
  // Keys are sorted: the first key not below the prefix is the only candidate.
  auto it = m_pMap->items.lower_bound(szPrefix);
  return it != m_pMap->items.end() && it->first.compare(0, strlen(szPrefix), szPrefix) == 0;
}

POSITION CKRot::GetFirstPos() {
  CKLockWS lock(&m_ws, FALSE, FALSE);
  return m_pMap->items.empty() ? nullptr : ToPos(*m_pMap->items.begin());
}

CObject* CKRot::GetNext(POSITION& pos) {
  CKString key;
  return GetNext(pos, key);
}

CObject* CKRot::GetNext(POSITION& pos, CKString& key) {
  KASSERT_RETV(pos != nullptr, nullptr);
  CKLockWS lock(&m_ws, FALSE, FALSE);
  RotEntry* pEntry = FromPos(pos);
  key = pEntry->first.c_str();
  CObject* pObj = pEntry->second;
  auto it = m_pMap->items.find(pEntry->first);
  if (it != m_pMap->items.end()) ++it;
  pos = it == m_pMap->items.end() ? nullptr : ToPos(*it);
  return pObj;
}

CKString CKRot::GetNextKey(POSITION& pos) {
  CKString key;
  GetNext(pos, key);
  return key;
}

int CKRot::WaitRot(unsigned long& dwTimeout) { return m_ws.Wait(dwTimeout); }

void CKRot::RotAddRef(CObject* pObj) {
  if (!pObj) return;
  CReffedObject* pReffedObj = dynamic_cast<CReffedObject*>(pObj);
  KASSERT_T(pReffedObj != nullptr, "pReffedObj != NULL");
  if (pReffedObj) pReffedObj->AddRef();
}

void CKRot::RotRelease(CObject* pObj) {
  if (!pObj) return;
  CReffedObject* pReffedObj = dynamic_cast<CReffedObject*>(pObj);
  KASSERT_T(pReffedObj != nullptr, "pReffedObj != NULL");
  if (pReffedObj) pReffedObj->Release();
}

CKRot* KRot() {
  static CKRot rot;
  return &rot;
}

namespace {
// The table exists from library load on, before any thread can race for it.
CKRot* const g_pRotAtLoad = KRot();
}  // namespace

// ---------------------------------------------------------------- named locks
CKRotLock::CKRotLock(const char* key, unsigned long dwTimeout) {
  if (!KIsEmpty(key) && KRot()->Register(key, nullptr, dwTimeout, nullptr, FALSE)) m_strKey = key;
}

CKRotLock::~CKRotLock() { Unlock(); }

int CKRotLock::Lock(const char* key, unsigned long dwTimeout) {
  Unlock();
  if (KIsEmpty(key) || !KRot()->Register(key, nullptr, dwTimeout, nullptr, FALSE)) return FALSE;
  m_strKey = key;
  return TRUE;
}

void CKRotLock::Unlock() {
  if (m_strKey.GetLength() == 0) return;
  KRot()->Unregister((const char*)m_strKey);
  m_strKey.Empty();
}
