#define KSRC_PATH "src/KBlob"

#include <base/tools/KBlob.h>

#include <cstring>
#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include <base/tools/KDebug.h>

#include "KAlloc.h"
#include "KBlobStore.h"
#include "KStringPool.h"

// ---------------------------------------------------------------- element store
namespace {

inline unsigned char Fold(unsigned char c) { return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + 32) : c; }

// 64-bit FNV-1a over the folded bytes; the table takes the top bits of a
// Fibonacci multiple, so names that differ only in their last digits spread.
uint64_t HashName(const char* s) {
  uint64_t h = 14695981039346656037ull;
  for (const unsigned char* p = (const unsigned char*)s; *p; ++p) h = (h ^ Fold(*p)) * 1099511628211ull;
  return h * 0x9E3779B97F4A7C15ull;
}

int NameCmp(const CKString& a, const char* b) { return std::strcmp(a.GetString(), b); }

bool NameLess(const CKBlobElement* a, const CKBlobElement* b) {
  return NameCmp(a->m_strName, b->m_strName.GetString()) < 0;
}

size_t SlotOf(const KBlobElements& x, uint64_t h) { return (size_t)(h >> (64 - x.nBits)); }

void IndexPut(KBlobElements& x, CKBlobElement* p, uint64_t h) {
  if ((x.nUsed + 1) * 2 > x.slots.size()) {
    std::vector<KBlobElements::Slot> old;
    old.swap(x.slots);
    x.nBits = old.empty() ? 6 : x.nBits + 1;
    KMEM_TRY((x.slots.assign((size_t)1 << x.nBits, KBlobElements::Slot{0, nullptr}), 0));
    x.nUsed = 0;
    for (const KBlobElements::Slot& q : old)
      if (q.p) IndexPut(x, q.p, q.h);
  }
  const size_t mask = x.slots.size() - 1;
  for (size_t i = SlotOf(x, h);; i = (i + 1) & mask) {
    KBlobElements::Slot& s = x.slots[i];
    if (!s.p) {
      s.h = h;
      s.p = p;
      x.nUsed++;
      return;
    }
    if (s.h == h && s.p->m_strName.CompareNoCase(p->m_strName.GetString()) == 0) return;  // first one wins
  }
}

CKBlobElement* IndexFind(const KBlobElements& x, const char* szName, uint64_t h) {
  if (x.slots.empty()) return nullptr;
  const size_t mask = x.slots.size() - 1;
  for (size_t i = SlotOf(x, h);; i = (i + 1) & mask) {
    const KBlobElements::Slot& s = x.slots[i];
    if (!s.p) return nullptr;
    if (s.h == h && s.p->m_strName.CompareNoCase(szName) == 0) return s.p;
  }
}

// First position in v whose name compares greater than (bAfter) or not
// below sz.
size_t Bound(const std::vector<CKBlobElement*>& v, const char* sz, bool bAfter) {
  size_t lo = 0, hi = v.size();
  while (lo < hi) {
    const size_t mid = (lo + hi) / 2;
    const int c = NameCmp(v[mid]->m_strName, sz);
    if (c < 0 || (bAfter && c == 0))
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

}  // namespace

void KBlobElements::Reserve(size_t n) {
  if (n == 0) return;
  if (!pool.empty() && pool.back().nCap - pool.back().nUsed >= n) return;
  Block b;
  b.p = static_cast<unsigned char*>(KMEM_TRY(::operator new(n * sizeof(CKBlobElement))));
  b.nCap = n;
  b.nUsed = 0;
  try {
    pool.push_back(b);
  } catch (...) {
    ::operator delete(b.p);
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

CKBlobElement* KBlobElements::NewPooled() {
  if (!freed.empty()) {
    void* q = freed.back();
    freed.pop_back();
    return new (q) CKBlobElement;
  }
  if (pool.empty() || pool.back().nUsed == pool.back().nCap) {
    const size_t nLast = pool.empty() ? 0 : pool.back().nCap;
    Reserve(nLast < 64 ? 64 : (nLast >= 65536 ? 65536 : 2 * nLast));
  }
  Block& b = pool.back();
  return new (b.p + b.nUsed++ * sizeof(CKBlobElement)) CKBlobElement;
}

void KBlobElements::Destroy(CKBlobElement* p) {
  if (!p) return;
  p->~CKBlobElement();
  try {
    freed.push_back(p);
  } catch (...) {  // the slot then waits for the store's end
  }
}

void KBlobElements::Clear() {
  for (CKBlobElement* p : v) p->~CKBlobElement();
  for (CKBlobElement* p : tail) p->~CKBlobElement();
  freed.clear();
  v.clear();
  tail.clear();
  for (const Block& b : pool) ::operator delete(b.p);
  pool.clear();
  kstr::PoolRelease(pStrings);
  pStrings = nullptr;
  slots.clear();
  nUsed = 0;
  bStale = true;
  bSorted = true;
}

// The waiting names go where one-by-one insertion before the first greater
// name would have put them: v is sorted and no waiting name equals another
// name, so that is the stable merge of v with the sorted tail.
void KBlobElements::Place() {
  if (tail.empty()) return;
  if (!std::is_sorted(tail.begin(), tail.end(), NameLess)) std::sort(tail.begin(), tail.end(), NameLess);
  const size_t nOld = v.size();
  KMEM_TRY((v.insert(v.end(), tail.begin(), tail.end()), 0));
  tail.clear();
  if (nOld && NameLess(v[nOld], v[nOld - 1])) std::inplace_merge(v.begin(), v.begin() + (std::ptrdiff_t)nOld, v.end(), NameLess);
}

// ---------------------------------------------------------------- CKBlob
CKBlob::CKBlob() : m_pElements(nullptr), m_bZip(0), m_bText(0), m_nStatus(0) {}

CKBlob::~CKBlob() { BlobDecodedDelete(); }

int CKBlob::GetStatus() const {
  if (m_nStatus < 0) return -1;
  if (BlobHasPending()) return 1;
  return m_pElements ? 2 : 0;
}
int CKBlob::IsDecoded() const { return !BlobHasPending(); }
int CKBlob::IsMemory() const { return 0; }
int CKBlob::IsBlobFile() const { return 0; }
int CKBlob::IsBlobMemory() const { return 0; }
int CKBlob::IsText() const { return m_bText; }
int CKBlob::IsZip() const { return m_bZip; }
int CKBlob::OnBlobElementSetValue(CKBlobElement*) { return 1; }

int CKBlob::ToDecoded(long nParam, int (*fn)(CKBlob*, CKBlobElement*, long)) {
  if (!EnsureDecoded() || !m_pElements || !fn) return 0;
  m_pElements->Place();
  int n = 0;
  // By index: the callback may add or delete elements.
  for (size_t i = 0; m_pElements && i < m_pElements->v.size(); i++) {
    n++;
    if (!fn(this, m_pElements->v[i], nParam)) break;
    if (m_pElements) m_pElements->Place();
  }
  return n;
}

int CKBlob::EnsureDecoded() {
  if (IsDecoded()) return 1;
  const int r = BlobDecodePending();
  m_nStatus = r ? 0 : -1;
  return r;
}

void CKBlob::BlobDecodedDelete() {
  delete m_pElements;
  m_pElements = nullptr;
}

void CKBlob::DeleteDecodedContent() {
  BlobDropPending();
  BlobDecodedDelete();
  m_nStatus = 0;
}

// The element named szName ignoring case (the first one in list order).
CKBlobElement* CKBlob::Found(const char* szName) {
  if (!szName || !m_pElements) return nullptr;
  KBlobElements& x = *m_pElements;
  if (x.bStale) {
    x.Place();
    x.slots.clear();
    x.nUsed = 0;
    x.bSorted = true;
    const size_t n = x.v.size();
    for (size_t i = 0; i < n; i++) {
      CKBlobElement* p = x.v[i];
      IndexPut(x, p, HashName(p->m_strName.GetString()));
      if (i > 0 && x.bSorted && NameLess(p, x.v[i - 1])) x.bSorted = false;
    }
    x.bStale = false;
  }
  return IndexFind(x, szName, HashName(szName));
}

int CKBlob::BlobElementIndex(const char* szName) {
  if (!EnsureDecoded()) return -1;
  CKBlobElement* p = Found(szName);
  if (!p) return -1;
  KBlobElements& x = *m_pElements;
  x.Place();
  size_t i = x.bSorted ? Bound(x.v, p->m_strName.GetString(), false) : 0;
  for (; i < x.v.size(); i++)
    if (x.v[i] == p) return (int)i;
  return -1;
}

CKBlobElement* CKBlob::BlobElementGet(int nIndex) {
  if (!EnsureDecoded() || !m_pElements || nIndex < 0 || (size_t)nIndex >= m_pElements->Count()) return nullptr;
  m_pElements->Place();
  return m_pElements->v[(size_t)nIndex];
}

CKBlobElement* CKBlob::BlobElementGet(const char* szName) {
  if (!EnsureDecoded()) return nullptr;
  return Found(szName);
}

CKBlobElement* CKBlob::BlobElementAdd(const char* szName) {
  if (!EnsureDecoded()) return nullptr;
  return AddElement(szName);
}

int CKBlob::_AddElement(const char* szName) {
  return AddElement(szName) ? BlobElementIndex(szName) : -1;
}

CKBlobElement* CKBlob::AddElement(const char* szName) {
  if (!szName || !*szName) return nullptr;
  if (!m_pElements) m_pElements = KMEM_TRY(new KBlobElements);
  KBlobElements& x = *m_pElements;
  if (CKBlobElement* p = Found(szName)) {
    // Same key ignoring case; a change of case may break the order, so the
    // waiting names take their places under the old names first.
    if (std::strcmp(p->m_strName.GetString(), szName) != 0) {
      x.Place();
      p->m_strName = szName;
      x.bStale = true;
    }
    return p;
  }
  CKBlobElement* p = x.NewPooled();
  struct CUndo {  // gives the slot back if the name or the list refuses
    KBlobElements& x;
    CKBlobElement* p;
    ~CUndo() { if (p) x.Destroy(p); }
  } undo{x, p};
  p->m_strName = szName;
  if (x.bSorted) {
    // Behind every name: appended at once; otherwise merged in later.
    std::vector<CKBlobElement*>& to = x.tail.empty() && (x.v.empty() || NameCmp(x.v.back()->m_strName, szName) <= 0) ? x.v : x.tail;
    KMEM_TRY((to.push_back(p), 0));
  } else {
    // Unsorted after a rename: before the first greater name, by a scan.
    size_t nAt = x.v.size();
    for (size_t i = 0; i < x.v.size(); i++)
      if (NameCmp(x.v[i]->m_strName, szName) > 0) {
        nAt = i;
        break;
      }
    KMEM_TRY((x.v.insert(x.v.begin() + (std::ptrdiff_t)nAt, p), 0));
  }
  undo.p = nullptr;
  if (!x.bStale) IndexPut(x, p, HashName(szName));
  return p;
}

int CKBlob::BlobElementCount() {
  if (!EnsureDecoded() || !m_pElements) return 0;
  return m_pElements->Count();
}

const char* CKBlob::BlobElementName(int nIndex) {
  const CKBlobElement* p = BlobElementGet(nIndex);
  return p ? p->m_strName.GetString() : nullptr;
}

int CKBlob::BlobElementType(int nIndex) {
  const CKBlobElement* p = BlobElementGet(nIndex);
  return p ? p->Type() : -1;
}

int CKBlob::BlobElementType(const char* szName) {
  const CKBlobElement* p = BlobElementGet(szName);
  return p ? p->Type() : -1;
}

void CKBlob::BlobElementSetName(int nIndex, const char* szNewName) {
  if (!szNewName || !*szNewName) return;
  CKBlobElement* p = BlobElementGet(nIndex);
  if (!p || std::strcmp(p->m_strName.GetString(), szNewName) == 0) return;
  KBlobElements& x = *m_pElements;
  CKBlobElement* pOld = Found(szNewName);
  // A change of case alone finds p itself, which must survive its rename.
  if (pOld && pOld != p) {
    const auto it = std::find(x.v.begin(), x.v.end(), pOld);
    if (it != x.v.end()) {
      x.v.erase(it);
      x.Destroy(pOld);
    }
  }
  p->m_strName = szNewName;
  x.bStale = true;  // not re-sorted: the order check runs again
}

void CKBlob::BlobElementSetName(const char* szName, const char* szNewName) {
  const int i = BlobElementIndex(szName);
  if (i >= 0) BlobElementSetName(i, szNewName);
}

void CKBlob::BlobElementDelete(int nIndex) {
  CKBlobElement* p = BlobElementGet(nIndex);
  if (!p) return;
  KBlobElements& x = *m_pElements;
  x.v.erase(x.v.begin() + nIndex);
  x.Destroy(p);
  x.bStale = true;
}

void CKBlob::BlobElementDelete(const char* szName) { BlobElementDelete(BlobElementIndex(szName)); }

void CKBlob::BlobElementDeleteAll() {
  if (!EnsureDecoded() || !m_pElements) return;
  m_pElements->Clear();
}

// ---------------------------------------------------------------- typed access
CKBlobElement* CKBlob::ElementFor(const char* szName) { return BlobElementAdd(szName); }

#define KBLOB_SET(ARGS, CALL)                  \
  int CKBlob::SetElement ARGS {                \
    CKBlobElement* p = ElementFor(szName);     \
    if (!p) return 0;                          \
    CALL;                                      \
    return Changed(p);                         \
  }
KBLOB_SET((const char* szName, const char* szText), p->Set(szText))
KBLOB_SET((const char* szName, const CKString& s), p->Set(s))
KBLOB_SET((const char* szName, int n), p->Set(n))
KBLOB_SET((const char* szName, unsigned int n), p->Set(n))
KBLOB_SET((const char* szName, __int64 n), p->Set(n))
KBLOB_SET((const char* szName, unsigned __int64 n), p->Set(n))
KBLOB_SET((const char* szName, float f), p->Set(f))
KBLOB_SET((const char* szName, double d), p->Set(d))
KBLOB_SET((const char* szName, const CKDateTime& d), p->Set(d))
KBLOB_SET((const char* szName, const CKGuid& g), p->Set(__StringFromCLSID(g)))
KBLOB_SET((const char* szName, const CKVariant& v), p->VariantCopy(v))
KBLOB_SET((const char* szName, CKList& l, int bDetach), p->Set(l, bDetach))
KBLOB_SET((const char* szName, CKListList& l, int bDetach), p->Set(l, bDetach))
KBLOB_SET((const char* szName, CKListUINT64& l, int bDetach), p->Set(l, bDetach))
KBLOB_SET((const char* szName, CKLangList& l, int bDetach), p->Set(l, bDetach))
KBLOB_SET((const char* szName, CKListTyped<int>& l, int bDetach), p->Set(l, bDetach))
KBLOB_SET((const char* szName, CKListDateTime& l, int bDetach), p->Set(l, bDetach))
#undef KBLOB_SET
#define KBLOB_GET(T)                                     \
  int CKBlob::GetElement(const char* szName, T& out) {   \
    const CKBlobElement* p = BlobElementGet(szName);     \
    return p ? p->Get(out) : 0;                          \
  }
KBLOB_GET(CKString)
KBLOB_GET(int)
KBLOB_GET(unsigned int)
KBLOB_GET(__int64)
KBLOB_GET(unsigned __int64)
KBLOB_GET(float)
KBLOB_GET(double)
KBLOB_GET(CKDateTime)
#undef KBLOB_GET

#define KBLOB_GETLIST(T, FN, GETTER)                                        \
  int CKBlob::GetElement(const char* szName, T& out, int bDetach) {         \
    const CKBlobElement* p = BlobElementGet(szName);                        \
    return p ? p->Get(out, bDetach) : 0;                                    \
  }                                                                         \
  T* CKBlob::FN(const char* szName, int bDetach, int bCreate) {             \
    CKBlobElement* p = bCreate ? ElementFor(szName) : BlobElementGet(szName); \
    return p ? p->GETTER(bDetach) : nullptr;                                \
  }
KBLOB_GETLIST(CKList, GetElementList, GetList)
KBLOB_GETLIST(CKListList, GetElementListList, GetListList)
KBLOB_GETLIST(CKListUINT64, GetElementListUINT64, GetListUINT64)
KBLOB_GETLIST(CKLangList, GetElementLangList, GetLangList)
KBLOB_GETLIST(CKListTyped<int>, GetElementListInt, GetListInt)
KBLOB_GETLIST(CKListDateTime, GetElementListDateTime, GetListDateTime)
#undef KBLOB_GETLIST

__int64 CKBlob::EncodedSize() const {
  if (!m_pElements || m_pElements->Count() == 0) return 0;
  __int64 n = 8;
  const std::vector<CKBlobElement*>& v = m_pElements->v;
  for (size_t i = 0; i < v.size(); i++) {
    kblob::Ahead(v, i);
    n += v[i]->GetEncodedSize();
  }
  for (const CKBlobElement* p : m_pElements->tail) n += p->GetEncodedSize();
  return n;
}
