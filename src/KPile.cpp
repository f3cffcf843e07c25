// The pile engine: growth and shrink of the slot array and the slot
// operations shared by every list.
#define KSRC_PATH "src/KPile"

#include <base/classes/list/KPile.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "KListUtil.h"

namespace {

const size_t kSlot = sizeof(void*);
const long long kMaxBytes = INT_MAX;

// Growth that found no block: operations that were about to write into the
// new slots put the count back and refuse.
int Refuse(KPile* p, int nOldSize, int nOldCount) {
  p->size = nOldSize;
  p->elts = nOldCount;
  return -1;
}

// A record whose array was released elsewhere has no slots: writers start
// over instead of writing through a null array.
inline void Revive(KPile* p) {
  if (!p->ptr) {
    p->size = 0;
    if (p->elts > 0) p->elts = 0;
  }
}

}  // namespace

void KPileInit(KPile* p) {
  p->ptr = nullptr;
  p->elts = 0;
  p->size = 0;
  p->step = KPILE_DEFAULT_STEP;
  p->sortfunc = nullptr;
}

int KPileCheckSizeW(KPile* p, unsigned nWidth) {
  const int nCount = p->elts;
  const int nSize = p->size;
  // A step written directly into the record may be unusable; the default
  // step keeps the arithmetic defined.
  const int nStep = p->step > 0 ? p->step : KPILE_DEFAULT_STEP;

  if (nCount >= nSize) {
    long long nNew = nCount > nSize
                         ? nSize + ((long long)(nCount - nSize) + nStep - 1) / nStep * nStep
                         : (long long)nSize + nStep;
    // Arrays stay below 2 GiB, the most a 32-bit heap could ever give: a
    // wild count fails here instead of committing gigabytes.
    if (nNew * nWidth > kMaxBytes) return -1;
    void* pOld = p->ptr;
    // The size field grows by whole steps; the block itself geometrically.
    void* q = klist::GrowBlock(pOld, (size_t)nNew * nWidth, (size_t)kMaxBytes);
    // errno is deliberately not cleared first: a stale ENOMEM also counts.
    const bool bFailed = q == nullptr || errno == ENOMEM;
    // No block: the old array and its size stay, so no later write can go
    // past the end of the array.
    if (q == nullptr) return -1;
    p->size = (int)nNew;
    // A block realloc handed back replaces the old one whatever the verdict.
    p->ptr = (void**)q;
    const size_t nFrom = pOld ? (size_t)nSize : 0;  // a fresh block is all new
    std::memset((char*)q + nFrom * nWidth, 0, ((size_t)nNew - nFrom) * nWidth);
    return bFailed ? 0 : 1;
  }

  // Fewer in use than allocated: shrink only when more than a step is idle.
  if (nSize - nStep <= nCount) return 1;
  const int nNew = (nCount / nStep + 1) * nStep;
  void* pOld = p->ptr;
  p->size = nNew;
  void* q = std::realloc(pOld, (size_t)nNew * nWidth);
  // In this case the test is made on the old pointer, not on the result.
  const bool bFailed = pOld == nullptr || errno == ENOMEM;
  if (q != nullptr) {
    // A record without array gets a fresh block: its slots read as null.
    if (pOld == nullptr) std::memset(q, 0, (size_t)nNew * nWidth);
    p->ptr = (void**)q;
  }
  return bFailed ? 0 : 1;
}

int KPileCheckSize(KPile* p) { return KPileCheckSizeW(p, kSlot) > 0 ? 1 : 0; }

int KPileSizeof(const KPile* p) {
  const long long n = (long long)p->size * (long long)kSlot + (long long)sizeof(KPile);
  return n > INT_MAX ? INT_MAX : (int)n;  // an int cannot say more
}

void* KPileGet(const KPile* p, int nIndex) {
  return (nIndex >= 0 && nIndex < p->elts && p->ptr) ? p->ptr[nIndex] : nullptr;
}

int KPileAdd(KPile* p, void* v) {
  // Room at the count and less than a step idle: CheckSize would change
  // nothing.
  const int nStep = p->step > 0 ? p->step : KPILE_DEFAULT_STEP;
  if (p->ptr && p->elts < p->size && p->size - nStep <= p->elts) {
    p->ptr[p->elts] = v;
    return p->elts++;
  }
  Revive(p);
  const int nOldSize = p->size;
  // A failed verdict with a usable array is ignored; no array refuses.
  if (KPileCheckSizeW(p, kSlot) < 0) return Refuse(p, nOldSize, p->elts);
  p->ptr[p->elts] = v;
  return p->elts++;
}

int KPileInsertAt(KPile* p, int nIndex, void* v) {
  Revive(p);
  if (nIndex >= p->elts) return KPileAdd(p, v);
  const int nOldSize = p->size;
  if (KPileCheckSizeW(p, kSlot) < 0) return Refuse(p, nOldSize, p->elts);
  if (nIndex < 0) nIndex = 0;
  std::memmove(p->ptr + nIndex + 1, p->ptr + nIndex, kSlot * (size_t)(p->elts - nIndex));
  p->ptr[nIndex] = v;
  p->elts++;
  return nIndex;
}

int KPileSet(KPile* p, int nIndex, void* v) {
  Revive(p);
  if (nIndex < 0) nIndex = 0;
  if (nIndex == INT_MAX) return -1;  // the count could not hold it
  if (nIndex >= p->elts) {
    const int nOldCount = p->elts;
    const int nOldSize = p->size;
    p->elts = nIndex + 1;
    if (KPileCheckSizeW(p, kSlot) < 0) return Refuse(p, nOldSize, nOldCount);
  }
  p->ptr[nIndex] = v;
  return nIndex;
}

int KPileSetAt(KPile* p, int nIndex, void* v) {
  if (nIndex < 0) nIndex = 0;
  if (nIndex >= p->elts || !p->ptr) return -1;
  p->ptr[nIndex] = v;
  return nIndex;
}

int KPileSetNoCheck(KPile* p, int nIndex, void* v) {
  if (nIndex < 0) nIndex = 0;
  // The caller promised the room; an index past the array is refused.
  if (!p->ptr || nIndex >= p->size) return -1;
  if (nIndex >= p->elts) p->elts = nIndex + 1;
  p->ptr[nIndex] = v;
  return nIndex;
}

void* KPileRemoveAt(KPile* p, int nIndex) {
  if (nIndex < 0 || nIndex >= p->elts || !p->ptr) return nullptr;
  void* v = p->ptr[nIndex];
  // The vacated last slot keeps its old content.
  if (p->elts >= 2 && nIndex != p->elts - 1)
    std::memmove(p->ptr + nIndex, p->ptr + nIndex + 1, kSlot * (size_t)(p->elts - 1 - nIndex));
  p->elts--;
  KPileCheckSizeW(p, kSlot);
  return v;
}

void* KPileRemove(KPile* p, void* v) {
  const int i = KPileFind(p, v, 0);
  if (i < 0) return nullptr;
  KPileRemoveAt(p, i);
  return v;
}

int KPileFind(const KPile* p, const void* v, int nFrom) {
  if (nFrom < 0) nFrom = 0;
  void* const* s = p->ptr;
  if (!s) return -1;
  for (int i = nFrom; i < p->elts; i++)
    if (s[i] == v) return i;
  return -1;
}

void KPileMove(KPile* p, int nTo, int nFrom) {
  if (nTo == nFrom || nTo < 0 || nFrom < 0 || nTo >= p->elts || nFrom >= p->elts || !p->ptr)
    return;
  void** s = p->ptr;
  void* v = s[nFrom];
  if (nFrom < nTo)
    std::memmove(s + nFrom, s + nFrom + 1, kSlot * (size_t)(nTo - nFrom));
  else
    std::memmove(s + nTo + 1, s + nTo, kSlot * (size_t)(nFrom - nTo));
  s[nTo] = v;
}

void KPileSwap(KPile* p, int i, int j) {
  if (i == j || i < 0 || j < 0 || i >= p->elts || j >= p->elts || !p->ptr) return;
  void* v = p->ptr[i];
  p->ptr[i] = p->ptr[j];
  p->ptr[j] = v;
}

void KPileSort(KPile* p) {
  if (p->sortfunc && p->elts > 1 && p->ptr) std::qsort(p->ptr, (size_t)p->elts, kSlot, p->sortfunc);
}

int KPileSetStep(KPile* p, int nStep) {
  p->step = nStep > 0 ? nStep : KPILE_DEFAULT_STEP;
  return KPileCheckSize(p);
}

int KPileSetCount(KPile* p, int nCount) {
  if (nCount < 0) nCount = 0;
  const int nOldCount = p->elts;
  const int nOldSize = p->size;
  p->elts = nCount;
  const int r = KPileCheckSizeW(p, kSlot);
  if (r < 0) return Refuse(p, nOldSize, nOldCount) + 1;
  return r > 0 ? 1 : 0;
}

int KPileSetSize(KPile* p, int nSize) {
  if (nSize < 0) nSize = 0;
  if (p->size == nSize) return 1;
  const int nCount = p->elts;
  const int nOldSize = p->size;
  p->elts = nSize;
  const int r = KPileCheckSizeW(p, kSlot);
  p->elts = nCount < nSize ? nCount : nSize;
  if (r < 0) {
    p->size = nOldSize;
    return 0;
  }
  return r;
}

void KPileEmpty(KPile* p) {
  std::free(p->ptr);
  p->ptr = nullptr;
  p->elts = 0;
  p->size = 0;
}

void KPileDetach(KPile* pFrom, KPile* pTo) {
  if (pFrom == pTo) return;
  std::free(pTo->ptr);
  pTo->ptr = pFrom->ptr;
  pTo->elts = pFrom->elts;
  pTo->size = pFrom->size;
  pTo->step = pFrom->step;
  pFrom->ptr = nullptr;
  pFrom->elts = 0;
  pFrom->size = 0;
}

int KPileFastAdd(KPile* p, const KPile* pOther) {
  const int n = pOther->elts;
  if (n <= 0 || !pOther->ptr) return 1;
  Revive(p);
  const int nOldCount = p->elts;
  const int nOldSize = p->size;
  if ((long long)nOldCount + n > INT_MAX) return 0;
  // Reading the source before growing: it may be this very pile.
  void* const* src = pOther->ptr;
  const bool bSelf = p == pOther;
  p->elts = nOldCount + n;
  const int r = KPileCheckSizeW(p, kSlot);
  if (r < 0) return Refuse(p, nOldSize, nOldCount) + 1;
  std::memcpy(p->ptr + nOldCount, bSelf ? p->ptr : src, kSlot * (size_t)n);
  return 1;
}

// ---------------------------------------------------------------- classes

CKPileFast::~CKPileFast() {}

void CKPileFast::SetStep(int nStep) { KPileSetStep(&data, nStep); }

CKPile::~CKPile() {
  std::free(data.ptr);
  data.ptr = nullptr;
}
