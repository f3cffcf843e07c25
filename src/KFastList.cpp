// CKFastList: a string list that never frees the string objects it made
// while it lives. Slots from the count up to the allocated size park objects
// for reuse; copies share the slot array; RealDeleteAll releases everything.
#define KSRC_PATH "src/KFastList"

#include <base/classes/list/KList.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KListUtil.h"

namespace {

inline CKString* NewStr(const char* sz, unsigned nLine) { return klist::NewString(sz, KSRC_PATH, nLine); }

}  // namespace

CKFastList::CKFastList() { data.sortfunc = kelvor_comp_func_string; }

CKFastList::CKFastList(const CKFastList& l) : CKPileFast(l) {}

CKFastList::~CKFastList() {}

void CKFastList::operator=(const CKFastList& l) {
  if (&l != this) data = l.data;
}

void CKFastList::SetStep(int nStep) {
  data.step = nStep > 0 ? nStep : KPILE_DEFAULT_STEP;
  // Never shrinks: the idle slots park objects.
  if (data.ptr && data.elts >= data.size) CheckSize();
}

void CKFastList::Reserve() {
  if (!data.ptr && data.size) {
    // The storage was released by RealDeleteAll: start over.
    data.size = 0;
    data.elts = 0;
  }
  if (data.elts < data.size) return;
  const int nOld = data.size;
  if (KPileCheckSizeW(&data, sizeof(void*)) < 0) {
    data.size = nOld;
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

int CKFastList::Append(const char* sz, unsigned) {
  Reserve();
  CKString*& p = ((CKString**)data.ptr)[data.elts];
  if (p)
    *p = sz;
  else
    p = NewStr(sz, __LINE__);
  const int i = data.elts++;
  // Keep a slot free at the count; a failure here is caught up by Reserve.
  if (data.elts == data.size) {
    const int nOld = data.size;
    if (KPileCheckSizeW(&data, sizeof(void*)) < 0) data.size = nOld;
  }
  return i;
}

int CKFastList::Add(const CKString& s) {
  Reserve();
  CKString*& p = ((CKString**)data.ptr)[data.elts];
  if (p)
    *p = s;
  else
    p = klist::NewString(s, KSRC_PATH, __LINE__);
  const int i = data.elts++;
  if (data.elts == data.size) {
    const int nOld = data.size;
    if (KPileCheckSizeW(&data, sizeof(void*)) < 0) data.size = nOld;
  }
  return i;
}

int CKFastList::Add(const char* sz) { return Append(sz, 0); }

int CKFastList::AddUnique(const CKString& s) {
  const int i = Find(s, FALSE);
  return i >= 0 ? i : Add(s);
}

int CKFastList::AddUnique(const char* sz) {
  const int i = Find(sz, FALSE);
  return i >= 0 ? i : Add(sz);
}

void CKFastList::InsertAt(int nIndex, const CKString& s) {
  const CKString str(s);  // s may live in one of the slots about to move
  InsertAt(nIndex, str.GetString());
}

void CKFastList::InsertAt(int nIndex, const char* sz) {
  Reserve();
  if (nIndex >= data.elts) {
    Add(sz);
    return;
  }
  if (nIndex < 0) nIndex = 0;
  CKString** s = (CKString**)data.ptr;
  CKString* pDropped = s[data.elts];
  // Every slot from the count down to nIndex + 1 takes the pointer below it,
  // so slots nIndex and nIndex + 1 end up sharing one object, which then
  // takes the text: the element that was at nIndex is overwritten.
  std::memmove(s + nIndex + 1, s + nIndex, sizeof(void*) * (size_t)(data.elts - nIndex));
  if (s[nIndex])
    *s[nIndex] = sz;
  else
    s[nIndex] = NewStr(sz, __LINE__);
  data.elts++;
  if (data.elts == data.size) {
    const int nOld = data.size;
    if (KPileCheckSizeW(&data, sizeof(void*)) < 0) data.size = nOld;
  }
  if (!pDropped) return;

  // The object parked at the old count lost its slot. Unless another slot
  // still refers to it, park it again (first free idle slot, else a new
  // step) so that RealDeleteAll still finds it.
  s = (CKString**)data.ptr;
  for (int i = 0; i < data.size; i++)
    if (s[i] == pDropped) return;
  for (int i = data.elts; i < data.size; i++)
    if (!s[i]) {
      s[i] = pDropped;
      return;
    }
  const int nCount = data.elts;
  const int nOld = data.size;
  data.elts = data.size;
  const int r = KPileCheckSizeW(&data, sizeof(void*));
  data.elts = nCount;
  if (r < 0) {
    data.size = nOld;
    delete pDropped;  // referenced nowhere else
    return;
  }
  data.ptr[nOld] = pDropped;
}

CKString CKFastList::Get(const int& nIndex) const { return klist::TextAt(data, nIndex); }

CKString CKFastList::operator[](const int& nIndex) const { return Get(nIndex); }

CKString CKFastList::GetLast() const {
  if (data.elts <= 0) return CKString();
  return Get(data.elts - 1);
}

void CKFastList::Park(int nIndex) {
  CKString** s = (CKString**)data.ptr;
  if (!s) return;
  if (data.elts > 1 && nIndex != data.elts - 1) {
    CKString* p = s[nIndex];
    std::memmove(s + nIndex, s + nIndex + 1, sizeof(void*) * (size_t)(data.elts - 1 - nIndex));
    s[data.elts - 1] = p;
  }
  data.elts--;
}

void CKFastList::Delete(const int& nIndex) {
  KASSERT_AT(nIndex < data.elts && nIndex >= 0, "nIndex<data.elts&&nIndex>=0", "src/KFastList", 90);
  if (nIndex < 0 || nIndex >= data.elts || !data.ptr) return;
  Park(nIndex);
}

void CKFastList::Delete(const char* sz) {
  const int i = Find(sz, FALSE);
  if (i >= 0) Park(i);
}

void CKFastList::Empty() { data.elts = 0; }

void CKFastList::DeleteAll() { data.elts = 0; }

void CKFastList::RealDeleteAll() {
  CKString** s = (CKString**)data.ptr;
  if (s) {
    // InsertAt can leave one object in two slots: delete each object once.
    std::sort(s, s + data.size, std::less<CKString*>());
    CKString* pPrev = nullptr;
    for (int i = 0; i < data.size; i++) {
      if (s[i] && s[i] != pPrev) delete s[i];
      pPrev = s[i];
      s[i] = nullptr;
    }
  }
  std::free(data.ptr);
  data.ptr = nullptr;
}

int CKFastList::Find(const char* sz, int bNoCase) const {
  return klist::FindText(data, sz, bNoCase);
}

int CKFastList::FindBeginWith(const char* sz, int bNoCase, int) const {
  return klist::FindPrefix(data, sz, bNoCase);
}

void CKFastList::operator+=(const CKFastList& l) {
  const int n = l.Count();
  if (&l != this && l.data.ptr && l.data.ptr == data.ptr) {
    // A shallow copy of this list: its slots are this list's parked ones, and
    // its array pointer goes stale when this list grows. Texts first.
    std::vector<CKString> texts;
    texts.reserve((size_t)n);
    for (int i = 0; i < n; i++) texts.push_back(l.Get(i));
    for (const CKString& s : texts) Add(s);
    return;
  }
  for (int i = 0; i < n; i++) {
    const CKString* s = l.GetPtr(i);
    if (s)
      Add(CKString(*s));  // a copy: the source slot may be the one written
    else
      Add("");
  }
}

int CKFastList::Set(int nIndex, const CKString& s) {
  const CKString str(s);
  return Set(nIndex, str.GetString());
}

int CKFastList::Set(int nIndex, const char* sz) {
  if (nIndex < 0) nIndex = 0;
  if (!data.ptr) {
    // No array yet, or released by RealDeleteAll: every index is past the
    // allocated size, so the pile's set stores the text and extends the count.
    data.size = 0;
    data.elts = 0;
  }
  if (nIndex >= data.size) {
    CKString* p = NewStr(sz, __LINE__);
    if (PileSet(nIndex, p) < 0) {
      delete p;
      throw CKMemoryException(KSRC_PATH, __LINE__);
    }
    return nIndex;
  }
  CKString*& p = ((CKString**)data.ptr)[nIndex];
  if (p)
    *p = sz;
  else
    p = NewStr(sz, __LINE__);
  // Only an index past the count extends it: Set(Count(), ...) fills the
  // parked slot and leaves the count alone.
  if (data.elts < nIndex) {
    data.elts = nIndex + 1;
    if (data.elts >= data.size) {
      const int nOld = data.size;
      if (KPileCheckSizeW(&data, sizeof(void*)) < 0) data.size = nOld;
    }
  }
  return nIndex;
}

CKString CKFastList::ToString(char cSeparator) const { return klist::Join(data, &cSeparator, 1); }

void CKFastList::Swap(int i, int j) { PileSwap(i, j); }

void CKFastList::StripEmptyStrings() {
  // Same result as deleting each empty element by rotation: survivors in
  // order, then the removed objects parked last-removed first.
  CKString** s = (CKString**)data.ptr;
  if (!s) return;
  std::vector<CKString*> removed;
  int nKept = 0;
  for (int i = 0; i < data.elts; i++) {
    CKString* p = s[i];
    if (p && p->GetLength() > 0)
      s[nKept++] = p;
    else
      removed.push_back(p);
  }
  if (removed.empty()) return;
  std::copy(removed.rbegin(), removed.rend(), s + nKept);
  data.elts = nKept;
}

void CKFastList::Sort() { PileSort(); }

void CKFastList::Copy(const CKFastList& l) {
  Empty();
  const int n = l.Count();
  for (int i = 0; i < n; i++) {
    const CKString* s = l.GetPtr(i);
    if (s)
      Add(CKString(*s));
    else
      Add("");
  }
}

void CKFastList::CopyAndRemove(CKFastList& target, int n, int bEmptyTarget) {
  // With this list as its own target the first n elements end up last.
  if (bEmptyTarget) target.DeleteAll();
  const int m = n < data.elts ? n : data.elts;
  if (m <= 0) return;
  for (int i = 0; i < m; i++) target.Add(Get(i));
  // m deletions of element 0 by rotation, in one move: the survivors slide
  // down and the removed objects park last-removed first.
  CKString** s = (CKString**)data.ptr;
  std::rotate(s, s + m, s + data.elts);
  std::reverse(s + data.elts - m, s + data.elts);
  data.elts -= m;
}

void CKFastList::SetCount(int n) { klist::SetCount(*this, n); }

int CKFastList::TotalCharCount() const { return klist::TotalCharsInt(data); }

int CKFastList::iGet(int nIndex) const { return klist::IntAt(data, nIndex); }

int CKFastList::iGet2(int nIndex, int nDefault) const {
  return klist::IntAt(data, nIndex, nDefault);
}

int CKFastList::InsertUniqueAt(int nIndex, CKString& s, int bNoCase) {
  const CKString str(s);
  return InsertUniqueAt(nIndex, str.GetString(), bNoCase);
}

int CKFastList::InsertUniqueAt(int nIndex, const char* sz, int bNoCase) {
  return klist::InsertUnique(*this, nIndex, sz, bNoCase);
}

int CKFastList::PreAlloc(int n) {
  Reserve();
  if (n < 1) {
    data.elts = 0;
    return 1;
  }
  // Grows only (parked objects are kept), then n empty elements, reusing
  // the objects already in the slots.
  if (n >= data.size) {
    const int nCount = data.elts;
    const int nOld = data.size;
    data.elts = n;
    const int r = KPileCheckSizeW(&data, sizeof(void*));
    data.elts = nCount;
    if (r < 0) {
      data.size = nOld;
      throw CKMemoryException(KSRC_PATH, __LINE__);
    }
  }
  CKString** s = (CKString**)data.ptr;
  for (int i = 0; i < n; i++) {
    if (s[i])
      s[i]->Empty();
    else
      s[i] = NewStr("", __LINE__);
  }
  data.elts = n;
  return 1;
}

// Reported on the lines the fast list's checks have always named.
void CKFastList::RemoveDuplicates(int bNoCase) {
  klist::RemoveDuplicates(*this, bNoCase, KSRC_PATH, 408, 413);
}

void CKFastList::Detach(CKFastList& target) {
  if (&target != this) target.data = data;
}
