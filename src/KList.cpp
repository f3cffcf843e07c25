// CKList, CKListList, CKCircularList and the default comparators.
#define KSRC_PATH "src/KList"

#include <base/classes/list/KList.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KListUtil.h"

namespace {

inline CKString* NewStr(const char* sz, unsigned nLine) { return klist::NewString(sz, KSRC_PATH, nLine); }
inline CKString* NewStr(const CKString& s, unsigned nLine) { return klist::NewString(s, KSRC_PATH, nLine); }

// Room for n more elements in one growth (adding one by one would shrink a
// larger array back first). The new slots are null, so an allocation that
// fails while they are filled leaves null elements, never stale pointers.
// Returns the first new index.
int Extend(CKPileFast& p, int n, unsigned nLine) {
  const int nOld = p.data.elts;
  if (n <= 0) return nOld;
  if ((long long)nOld + n > INT_MAX) throw CKMemoryException(KSRC_PATH, nLine);
  p.PileSetCount(nOld + n);
  if (p.data.elts != nOld + n) throw CKMemoryException(KSRC_PATH, nLine);
  std::memset((void*)(p.data.ptr + nOld), 0, sizeof(void*) * (size_t)n);
  return nOld;
}

// Deletes the elements below the count, last first, and sets the count to 0.
// Slots past the count may hold stale pointers and are left alone.
template <class T>
void FreeCounted(CKPileFast& p) {
  for (int i = p.data.elts - 1; i >= 0; i--) {
    delete (T*)p.data.ptr[i];
    p.data.ptr[i] = nullptr;
  }
  p.data.elts = 0;
}

// Appends a copy of each of the first n elements of src (which may be p).
void AppendCopies(CKPileFast& p, const CKPileFast& src, int n, unsigned nLine) {
  const int nBase = Extend(p, n, nLine);
  for (int i = 0; i < n; i++) {
    const CKString* s = (const CKString*)src.data.ptr[i];
    p.data.ptr[nBase + i] = s ? NewStr(*s, nLine) : NewStr("", nLine);
  }
}

}  // namespace

// ---------------------------------------------------------------- comparators

int kelvor_comp_func_string(const void* a, const void* b) {
  const CKString* s1 = *(CKString* const*)a;
  const CKString* s2 = *(CKString* const*)b;
  // Null elements sort after every string.
  if (!s1) return s2 ? 1 : 0;
  if (!s2) return -1;
  const int r = std::strcmp(*s1, *s2);
  return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int kelvor_comp_func_int_32(const void* a, const void* b) {
  // The slot addresses are compared, not the values in the slots.
  const uintptr_t x = (uintptr_t)a;
  const uintptr_t y = (uintptr_t)b;
  return y > x ? 1 : (y < x ? -1 : 0);
}

// ---------------------------------------------------------------- CKList

CKList::CKList() { data.sortfunc = kelvor_comp_func_string; }

CKList::CKList(const CKList& l) : CKPile() {
  data.sortfunc = l.data.sortfunc;
  try {
    AppendCopies(*this, l, l.Count(), __LINE__);
  } catch (...) {
    CKList::Empty();  // no destructor runs for a half-built list
    throw;
  }
}

CKList& CKList::operator=(const CKList& l) {
  Copy(l);
  return *this;
}

CKList::~CKList() { CKList::Empty(); }

int CKList::AddPtr(CKString* p) {
  const int i = PileAdd(p);
  if (i < 0) {
    delete p;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
  return i;
}

CKString CKList::GetLast() const {
  if (data.elts <= 0) return CKString();
  return Get(data.elts - 1);
}

void CKList::DeleteLast() {
  if (data.elts > 0) Delete(data.elts - 1);
}

int CKList::Add(const char* sz) { return AddPtr(NewStr(sz, __LINE__)); }

int CKList::Add(const CKString& s) { return AddPtr(NewStr(s, __LINE__)); }

int CKList::Add(const CString& s) {
  CKString* p = new (std::nothrow) CKString(s);
  if (!p) throw CKMemoryException(KSRC_PATH, __LINE__);
  return AddPtr(p);
}

int CKList::AddUnique(const CKString& s, int bNoCase) {
  const int i = Find(s, bNoCase);
  return i >= 0 ? i : Add((const char*)s);
}

int CKList::AddUnique(const char* sz, int bNoCase) {
  const int i = Find(sz, bNoCase);
  return i >= 0 ? i : Add(sz);
}

void CKList::InsertAt(int nIndex, const CString& s) {
  CKString* p = new (std::nothrow) CKString(s);
  if (!p) throw CKMemoryException(KSRC_PATH, __LINE__);
  if (PileInsertAt(nIndex, p) < 0) {
    delete p;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

void CKList::InsertAt(int nIndex, const CKString& s) {
  CKString* p = NewStr(s, __LINE__);
  if (PileInsertAt(nIndex, p) < 0) {
    delete p;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

void CKList::InsertAt(int nIndex, const char* sz) {
  CKString* p = NewStr(sz, __LINE__);
  if (PileInsertAt(nIndex, p) < 0) {
    delete p;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

CKString CKList::Get(const int& nIndex) const { return klist::TextAt(data, nIndex); }

CKString CKList::operator[](const int& nIndex) const { return Get(nIndex); }

void CKList::Delete(const char* sz) {
  const int i = Find(sz, FALSE);
  if (i >= 0) Delete(i);
}

void CKList::Delete(const int& nIndex) {
  KASSERT_AT(nIndex < Count(), "nIndex<Count()", "src/KList", 79);
  // Out-of-range indexes remove nothing.
  delete (CKString*)PileRemove(nIndex);
}

void CKList::Empty() {
  for (int i = data.elts - 1; i >= 0; i--) {
    delete (CKString*)data.ptr[i];
    data.ptr[i] = nullptr;
  }
  PileEmpty();
}

void CKList::DeleteAll() { CKList::Empty(); }

int CKList::Find(const char* sz, int bNoCase) const { return klist::FindText(data, sz, bNoCase); }

int CKList::FindBeginWith(const char* sz, int bNoCase, int) const {
  return klist::FindPrefix(data, sz, bNoCase);
}

void CKList::operator+=(const CKList& l) {
  // Counted first: the source may be this list.
  AppendCopies(*this, l, l.Count(), __LINE__);
}

void CKList::operator-=(const CKList& l) {
  if (&l == this) {
    // Every element deletes its own first match: nothing is left.
    DeleteAll();
    return;
  }
  const int n = l.Count();
  for (int i = 0; i < n; i++) {
    const CKString* s = l.GetPtr(i);
    Delete(s ? s->GetString() : "");
  }
}

int CKList::operator==(const CKList& l) const {
  if (data.elts != l.data.elts) return 0;
  for (int i = 0; i < data.elts; i++) {
    const CKString* a = GetPtr(i);
    const CKString* b = l.GetPtr(i);
    const unsigned na = a ? a->GetLength() : 0;
    const unsigned nb = b ? b->GetLength() : 0;
    if (na != nb) return 0;
    if (na && std::memcmp(a->GetString(), b->GetString(), na) != 0) return 0;
  }
  return 1;
}

int CKList::operator!=(const CKList& l) const { return !(*this == l); }

int CKList::Set(int nIndex, const CKString& s) {
  // Only assigns an existing string; never extends the list.
  if (nIndex < 0) nIndex = 0;
  if (nIndex < data.elts) {
    if (CKString* p = (CKString*)data.ptr[nIndex]) *p = s;
  }
  return nIndex;
}

int CKList::Set(int nIndex, const char* sz) {
  if (nIndex < 0) nIndex = 0;
  if (nIndex < data.elts) {
    CKString*& p = ((CKString**)data.ptr)[nIndex];
    if (p)
      *p = sz;
    else
      p = NewStr(sz, __LINE__);
    return nIndex;
  }
  CKString* p = NewStr(sz, __LINE__);
  const int nOld = data.elts;
  if (PileSet(nIndex, p) < 0) {
    delete p;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
  // The slots in between may hold stale pointers: they become null elements.
  for (int i = nOld; i < nIndex; i++) data.ptr[i] = nullptr;
  return nIndex;
}

void CKList::FromString(const char* szText, const char* szSeparators, int) {
  Empty();
  if (szText && *szText) KStrParse(this, szText, szSeparators);
}

void CKList::FromString(const char* szText, char cSeparator, int nFlags) {
  Empty();
  if (szText && *szText) KStrParse(this, szText, cSeparator, nFlags);
}

CKString CKList::ToString(const char* szSeparator) const {
  return klist::Join(data, szSeparator, szSeparator ? std::strlen(szSeparator) : 0);
}

CKString CKList::ToString(char cSeparator) const { return klist::Join(data, &cSeparator, 1); }

void CKList::Swap(int i, int j) { PileSwap(i, j); }

void CKList::StripEmptyStrings(int) {
  // One pass: trimmed survivors slide down in order, empty ones are freed.
  CKString** s = (CKString**)data.ptr;
  int nKept = 0;
  for (int i = 0; i < data.elts; i++) {
    CKString* p = s[i];
    if (p) {
      p->TrimLeft();
      p->TrimRight();
    }
    if (p && p->GetLength() > 0)
      s[nKept++] = p;
    else
      delete p;
  }
  if (nKept != data.elts) PileSetCount(nKept);
}

void CKList::Sort() { PileSort(); }

void CKList::Copy(const CKList& l) {
  // No self-check: copying a list into itself leaves it empty.
  DeleteAll();
  AppendCopies(*this, l, l.Count(), __LINE__);
}

void CKList::CopyAndRemove(CKList& target, int n, int bEmptyTarget) {
  // Target's pile directly, not its Add. With this list as its own target the
  // first n elements end up last.
  if (bEmptyTarget) target.DeleteAll();
  const int m = n < data.elts ? n : data.elts;
  if (m <= 0) return;
  AppendCopies(target, *this, m, __LINE__);
  // The moved elements leave this list in one shift.
  for (int i = 0; i < m; i++) delete (CKString*)data.ptr[i];
  std::memmove(data.ptr, data.ptr + m, sizeof(void*) * (size_t)(data.elts - m));
  PileSetCount(data.elts - m);
}

void CKList::SetCount(int n) { klist::SetCount(*this, n); }

int CKList::TotalCharCount() const { return klist::TotalCharsInt(data); }

int CKList::iGet(int nIndex) const { return klist::IntAt(data, nIndex); }

int CKList::iGet2(int nIndex, int nDefault) const { return klist::IntAt(data, nIndex, nDefault); }

int CKList::InsertUniqueAt(int nIndex, CKString& s, int bNoCase) {
  // A private copy: s may be one of the strings about to be deleted.
  const CKString str(s);
  return InsertUniqueAt(nIndex, str.GetString(), bNoCase);
}

int CKList::InsertUniqueAt(int nIndex, const char* sz, int bNoCase) {
  return klist::InsertUnique(*this, nIndex, sz, bNoCase);
}

int CKList::PreAlloc(int n) {
  // Meant for an empty list: elements it already has are replaced or cut
  // off, so they are freed here rather than lost.
  FreeCounted<CKString>(*this);
  PileSetSize(n);
  if (n > data.size) throw CKMemoryException(KSRC_PATH, __LINE__);
  for (int i = 0; i < n; i++) PileSetNoCheck(i, NewStr("", __LINE__));
  return 1;
}

void CKList::RemoveDuplicates(int bNoCase) {
  klist::RemoveDuplicates(*this, bNoCase, "src/KList", 247, 251);
}

void CKList::Detach(CKList& target) {
  if (&target == this) return;
  target.DeleteAll();
  PileDetach(target);
}

// ---------------------------------------------------------------- CKListList

CKListList::CKListList() {}

CKListList::CKListList(const CKListList& l) : CKPtrListOwnedC<CKList>(l) {}

CKListList& CKListList::operator=(const CKListList& l) {
  DeleteAll();
  const int n = l.Count();
  const int nBase = Extend(*this, n, __LINE__);
  for (int i = 0; i < n; i++) {
    const CKList* pSrc = (const CKList*)l.data.ptr[i];
    CKList* p = new (std::nothrow) CKList;
    if (!p) throw CKMemoryException(KSRC_PATH, __LINE__);
    data.ptr[nBase + i] = p;
    if (pSrc) *p = *pSrc;
  }
  return *this;
}

int CKListList::PreAlloc(int n) {
  // As CKList::PreAlloc: the lists it replaces or cuts off are deleted.
  FreeCounted<CKList>(*this);
  PileSetSize(n);
  if (n > data.size) throw CKMemoryException(KSRC_PATH, __LINE__);
  for (int i = 0; i < n; i++) {
    CKList* p = new (std::nothrow) CKList;
    if (!p) throw CKMemoryException(KSRC_PATH, __LINE__);
    PileSetNoCheck(i, p);
  }
  return 1;
}

CKListList::~CKListList() {}

// ---------------------------------------------------------------- CKCircularList

CKCircularList::CKCircularList(int nCapacity) : m_nCapacity(nCapacity < 2 ? 30 : nCapacity) {}

CKCircularList::CKCircularList(const CKCircularList& l) : CKList(l), m_nCapacity(l.m_nCapacity) {}

CKCircularList& CKCircularList::operator=(const CKCircularList& l) {
  CKList::operator=(l);
  m_nCapacity = l.m_nCapacity;
  return *this;
}

CKCircularList::~CKCircularList() {}

int CKCircularList::Add(const char* sz) {
  if (data.elts < m_nCapacity) return CKList::Add(sz);
  // Full: the oldest string goes to the end and takes the new text.
  const int nLast = data.elts - 1;
  PileMove(nLast, 0);
  CKString*& pStr = ((CKString**)data.ptr)[nLast];
  KASSERT_AT(pStr, "pStr", "src/KList", 548);
  if (pStr)
    *pStr = sz;
  else
    pStr = NewStr(sz, __LINE__);
  return nLast;
}

CKString CKCircularList::RemoveLast() {
  if (data.elts <= 0) return CKString();
  CKString* p = (CKString*)PileRemove(data.elts - 1);
  if (!p) return CKString();
  CKString s(*p);
  delete p;
  return s;
}
