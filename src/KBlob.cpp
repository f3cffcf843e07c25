#define KSRC_PATH "src/KBlob"

#include <base/tools/KBlob.h>

#include <cstring>
#include <vector>

#include <base/tools/KDebug.h>

#include "KAlloc.h"

// ---------------------------------------------------------------- name index
// Open-addressed table of element pointers keyed by the ASCII-folded name,
// so look-ups by name cost one probe sequence instead of a scan. Deletions
// and renames mark it stale; it is rebuilt on the next look-up.
struct KBlobIndex {
  std::vector<CKBlobElement*> slots;
  size_t nUsed = 0;
  bool bStale = true;
  // Whether the list is in ascending byte order of the names, which lets the
  // position of a found element come from a binary search.
  bool bSorted = true;
};

namespace {

inline unsigned char Fold(unsigned char c) { return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + 32) : c; }

size_t HashName(const char* s) {
  size_t h = 1469598103u;
  for (const unsigned char* p = (const unsigned char*)s; *p; ++p) h = (h ^ Fold(*p)) * 16777619u;
  return h;
}

int NameCmp(const CKString& a, const char* b) { return std::strcmp(a.GetString(), b); }

void IndexPut(KBlobIndex& x, CKBlobElement* p) {
  if ((x.nUsed + 1) * 2 > x.slots.size()) {
    std::vector<CKBlobElement*> old;
    old.swap(x.slots);
    x.slots.assign(old.empty() ? 64 : old.size() * 2, nullptr);
    x.nUsed = 0;
    for (CKBlobElement* q : old)
      if (q) IndexPut(x, q);
  }
  const size_t mask = x.slots.size() - 1;
  for (size_t i = HashName(p->m_strName.GetString()) & mask;; i = (i + 1) & mask) {
    CKBlobElement*& s = x.slots[i];
    if (!s) {
      s = p;
      x.nUsed++;
      return;
    }
    if (s->m_strName.CompareNoCase(p->m_strName.GetString()) == 0) return;  // first one wins
  }
}

CKBlobElement* IndexFind(const KBlobIndex& x, const char* szName) {
  if (x.slots.empty()) return nullptr;
  const size_t mask = x.slots.size() - 1;
  for (size_t i = HashName(szName) & mask;; i = (i + 1) & mask) {
    CKBlobElement* s = x.slots[i];
    if (!s) return nullptr;
    if (s->m_strName.CompareNoCase(szName) == 0) return s;
  }
}

}  // namespace

// ---------------------------------------------------------------- CKBlob
CKBlob::CKBlob() : m_pElements(nullptr), m_bZip(0), m_bText(0), m_nStatus(0), m_pIndex(new KBlobIndex) {}

CKBlob::~CKBlob() {
  BlobDecodedDelete();
  delete m_pIndex;
}

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
  int n = 0;
  for (int i = 0; i < m_pElements->Count(); i++) {
    n++;
    if (!fn(this, m_pElements->GetAt(i), nParam)) break;
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
  m_pIndex->slots.clear();
  m_pIndex->nUsed = 0;
  m_pIndex->bStale = true;
  m_pIndex->bSorted = true;
}

void CKBlob::DeleteDecodedContent() {
  BlobDropPending();
  BlobDecodedDelete();
  m_nStatus = 0;
}

// The element named szName ignoring case (the first one in list order).
CKBlobElement* CKBlob::Found(const char* szName) {
  if (!szName || !m_pElements) return nullptr;
  KBlobIndex& x = *m_pIndex;
  if (x.bStale) {
    x.slots.clear();
    x.nUsed = 0;
    x.bSorted = true;
    const int n = m_pElements->Count();
    for (int i = 0; i < n; i++) {
      CKBlobElement* p = m_pElements->GetAt(i);
      if (!p) continue;
      IndexPut(x, p);
      if (i > 0 && x.bSorted) {
        const CKBlobElement* q = m_pElements->GetAt(i - 1);
        if (!q || NameCmp(q->m_strName, p->m_strName.GetString()) > 0) x.bSorted = false;
      }
    }
    x.bStale = false;
  }
  return IndexFind(x, szName);
}

int CKBlob::BlobElementIndex(const char* szName) {
  if (!EnsureDecoded()) return -1;
  CKBlobElement* p = Found(szName);
  if (!p) return -1;
  const int n = m_pElements->Count();
  if (m_pIndex->bSorted) {
    // First slot whose name is not below p's, then forward to p itself.
    const char* sz = p->m_strName.GetString();
    int lo = 0, hi = n;
    while (lo < hi) {
      const int mid = (lo + hi) / 2;
      if (NameCmp(m_pElements->GetAt(mid)->m_strName, sz) < 0)
        lo = mid + 1;
      else
        hi = mid;
    }
    for (int i = lo; i < n; i++)
      if (m_pElements->GetAt(i) == p) return i;
  }
  return m_pElements->Find(p);
}

CKBlobElement* CKBlob::BlobElementGet(int nIndex) {
  if (!EnsureDecoded() || !m_pElements) return nullptr;
  return m_pElements->GetAt(nIndex);
}

CKBlobElement* CKBlob::BlobElementGet(const char* szName) {
  if (!EnsureDecoded()) return nullptr;
  return Found(szName);
}

CKBlobElement* CKBlob::BlobElementAdd(const char* szName) {
  if (!EnsureDecoded()) return nullptr;
  const int i = _AddElement(szName);
  return i < 0 ? nullptr : m_pElements->GetAt(i);
}

int CKBlob::_AddElement(const char* szName) {
  if (!szName || !*szName) return -1;
  if (!m_pElements) {
    m_pElements = new CKBlobElementList;
    m_pIndex->bStale = true;
  }
  if (CKBlobElement* p = Found(szName)) {
    // Same key ignoring case; a change of case may break the order.
    if (std::strcmp(p->m_strName.GetString(), szName) != 0) {
      p->m_strName = szName;
      m_pIndex->bStale = true;
    }
    return BlobElementIndex(szName);
  }
  // Before the first name that compares greater.
  const int n = m_pElements->Count();
  int nAt = n;
  if (m_pIndex->bSorted) {
    int lo = 0, hi = n;
    while (lo < hi) {
      const int mid = (lo + hi) / 2;
      if (NameCmp(m_pElements->GetAt(mid)->m_strName, szName) <= 0)
        lo = mid + 1;
      else
        hi = mid;
    }
    nAt = lo;
  } else {
    for (int i = 0; i < n; i++) {
      const CKBlobElement* q = m_pElements->GetAt(i);
      if (q && NameCmp(q->m_strName, szName) > 0) {
        nAt = i;
        break;
      }
    }
  }
  CKBlobElement* p = new CKBlobElement;
  p->m_strName = szName;
  const int r = m_pElements->InsertAt(nAt, p);
  if (!m_pIndex->bStale) IndexPut(*m_pIndex, p);
  return r;
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
  CKBlobElement* pOld = Found(szNewName);
  if (pOld) {
    m_pElements->Remove(pOld);
    delete pOld;
  }
  p->m_strName = szNewName;
  m_pIndex->bStale = true;  // not re-sorted: the order check runs again
}

void CKBlob::BlobElementSetName(const char* szName, const char* szNewName) {
  const int i = BlobElementIndex(szName);
  if (i >= 0) BlobElementSetName(i, szNewName);
}

void CKBlob::BlobElementDelete(int nIndex) {
  if (!EnsureDecoded() || !m_pElements || nIndex < 0 || nIndex >= m_pElements->Count()) return;
  m_pElements->Delete(nIndex);
  m_pIndex->bStale = true;
}

void CKBlob::BlobElementDelete(const char* szName) { BlobElementDelete(BlobElementIndex(szName)); }

void CKBlob::BlobElementDeleteAll() {
  if (!EnsureDecoded() || !m_pElements) return;
  m_pElements->DeleteAll();
  m_pIndex->bStale = true;
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
  for (int i = 0; i < m_pElements->Count(); i++) {
    const CKBlobElement* p = m_pElements->GetAt(i);
    if (p) n += p->GetEncodedSize();
  }
  return n;
}
