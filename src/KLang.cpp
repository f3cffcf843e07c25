// Localisation: the language table, the process's current table and the
// per-thread language.
#define KSRC_PATH "src/KLang"

#include <lang/KLangList.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>

#include <base/tools/KDebug.h>

#include "KAlloc.h"
#include "platform/KPlatform.h"

namespace {

// A table holds a few languages: a small hash table instead of the default
// 1031 buckets. 67 buckets keep the letters and digits apart.
const int s_nLangTableSize = 67;
const int s_nLangStep = 16;

inline const CKString* StringAt(const CKList* pList, int nId) {
  return pList ? (const CKString*)pList->PileGet(nId) : nullptr;
}

// Copies src into dst text by text, so that dst shares no string block with
// src: the current table is read from every thread, and string counts are
// not atomic.
void CopyPrivate(const CKLangList& src, CKLangList& dst) {
  dst.DeleteAll();
  for (int i = 0; i < src.Count(); ++i) {
    const CKList* pSrc = src.GetAt(i);
    CKList* pDst = dst.Add(src.GetCode(i));
    if (!pSrc || !pDst) continue;
    const int n = pSrc->Count();
    if (n > 128) pDst->SetStep(n);
    for (int j = 0; j < n; ++j) {
      const CKString* ps = StringAt(pSrc, j);
      pDst->Add(ps ? ps->GetString() : "");
    }
  }
}

struct KLangState {
  kplat::Mutex* pMutex = kplat::MutexNew();
  CKLangList table;
  // Every extension name ever set, kept for the process's lifetime so that
  // a thread's slot is a plain pointer (see t_pszExt).
  std::set<std::string> extNames;
};

// Never destroyed: threads may still look texts up while statics go.
KLangState& State() {
  static KLangState* p = new KLangState;
  return *p;
}

// Languages in the current table: look-ups skip the lock while it is empty.
std::atomic<int> g_nLangs{0};

thread_local char t_cLang = 0;
// No thread_local with a destructor: MinGW emulates thread-local storage and
// frees it at thread end before libstdc++ runs thread_local destructors
// (both are winpthreads key destructors), so such a destructor would work on
// freed memory. The slot points into State().extNames; null is "".
thread_local const char* t_pszExt = nullptr;

}  // namespace

// ---------------------------------------------------------------- CKLangList
CKLangList::CKLangList() {}

CKLangList::CKLangList(const CKLangList& src) : m_Langs(src.m_Langs), m_strCodes(src.m_strCodes) {}

CKLangList& CKLangList::operator=(const CKLangList& src) {
  Copy(src);
  return *this;
}

CKLangList::~CKLangList() {}

CKList* CKLangList::Add(char cCode) {
  KASSERT_RETV(cCode != 0, nullptr);
  const char szKey[2] = {cCode, 0};
  if (CKList* p = m_Langs.Get(szKey)) return p;
  if (!m_Langs.HasTable()) m_Langs.InitHashTable(s_nLangTableSize, s_nLangStep);
  std::unique_ptr<CKList> pNew(KMEM_TRY(new CKList));
  m_strCodes += cCode;
  try {
    m_Langs.Set(szKey, pNew.get());
  } catch (...) {
    m_strCodes.Delete(m_strCodes.GetLength() - 1, 1);
    throw;
  }
  if (m_Langs.Get(szKey) != pNew.get()) {
    // The map refused the key (reported by the map): the list stays ours.
    m_strCodes.Delete(m_strCodes.GetLength() - 1, 1);
    return nullptr;
  }
  return pNew.release();
}

CKList* CKLangList::Add(char cCode, CKList& list, int bDetach) {
  CKList* p = Add(cCode);
  if (!p || p == &list) return p;
  if (bDetach)
    list.Detach(*p);
  else
    p->Copy(list);
  return p;
}

CKList* CKLangList::Get(char cCode) const {
  if (!cCode) return nullptr;
  const char szKey[2] = {cCode, 0};
  return m_Langs.Get(szKey);
}

CKList* CKLangList::GetAt(int nIndex) const {
  char c = GetCode(nIndex);
  return c ? Get(c) : nullptr;
}

char CKLangList::GetCode(int nIndex) const {
  return (nIndex >= 0 && nIndex < Count()) ? m_strCodes[nIndex] : 0;
}

int CKLangList::Find(char cCode) const { return cCode ? m_strCodes.Find(cCode) : -1; }

int CKLangList::Delete(char cCode) {
  int i = Find(cCode);
  if (i < 0) return 0;
  const char szKey[2] = {cCode, 0};
  m_Langs.Delete(szKey);
  m_strCodes.Delete((unsigned)i, 1);
  return 1;
}

void CKLangList::DeleteAll() {
  m_Langs.DeleteAll();
  m_strCodes.Empty();
}

void CKLangList::Copy(const CKLangList& src) {
  if (&src == this) return;
  m_Langs = src.m_Langs;
  m_strCodes = src.m_strCodes;
}

void CKLangList::Detach(CKLangList& target) {
  if (&target == this) return;
  m_Langs.Detach(target.m_Langs);
  target.m_strCodes = m_strCodes;
  m_strCodes.Empty();
}

int CKLangList::operator==(const CKLangList& other) const {
  if (m_strCodes != other.m_strCodes) return 0;
  for (int i = 0; i < Count(); ++i) {
    const CKList* a = GetAt(i);
    const CKList* b = other.GetAt(i);
    if (!a || !b) {
      if (a != b) return 0;
    } else if (!(*a == *b)) {
      return 0;
    }
  }
  return 1;
}

CKString CKLangList::GetString(char cCode, int nId) const {
  const CKString* ps = StringAt(Get(cCode), nId);
  return ps ? *ps : CKString();
}

// ---------------------------------------------------------------- current table
void KLangSetTable(CKLangList& table, int bDetach) {
  CKLangList fresh;
  CopyPrivate(table, fresh);
  if (bDetach) table.DeleteAll();
  KLangState& st = State();
  kplat::MutexGuard lock(st.pMutex);
  fresh.Detach(st.table);
  g_nLangs.store(st.table.Count(), std::memory_order_release);
}

void KLangGetTable(CKLangList& target) {
  CKLangList copy;
  {
    KLangState& st = State();
    kplat::MutexGuard lock(st.pMutex);
    CopyPrivate(st.table, copy);
  }
  copy.Detach(target);
}

// ---------------------------------------------------------------- per thread
char KLangGet() { return t_cLang; }

void KLangSetThreadLang(char cLang) { t_cLang = cLang; }

CKString KLangExtGet() { return CKString(t_pszExt ? t_pszExt : ""); }

void KLangExtSetThreadLang(const char* szExt) {
  // The common case, no extension, takes no lock.
  if (!szExt || !*szExt) {
    t_pszExt = nullptr;
    return;
  }
  KLangState& st = State();
  kplat::MutexGuard lock(st.pMutex);
  t_pszExt = KMEM_TRY(st.extNames.insert(szExt)).first->c_str();
}

// ---------------------------------------------------------------- look-ups
CKString KLangString(int nId) {
  if (nId < 0 || g_nLangs.load(std::memory_order_acquire) == 0) return CKString();
  const char cLang = t_cLang;
  KLangState& st = State();
  kplat::MutexGuard lock(st.pMutex);
  const CKString* ps = StringAt(st.table.Get(cLang), nId);
  if (!ps || !ps->GetLength()) ps = StringAt(st.table.GetAt(0), nId);
  // A private copy: the table's blocks never leave the lock.
  return ps ? CKString(ps->GetString()) : CKString();
}

CKString KLangString(int nId, char cLang) {
  if (nId < 0 || g_nLangs.load(std::memory_order_acquire) == 0) return CKString();
  KLangState& st = State();
  kplat::MutexGuard lock(st.pMutex);
  const CKString* ps = StringAt(st.table.Get(cLang), nId);
  return ps ? CKString(ps->GetString()) : CKString();
}

CKString KLangYes() { return KLangString(KLANG_STR_YES); }

CKString KLangTrue() { return KLangString(KLANG_STR_TRUE); }
