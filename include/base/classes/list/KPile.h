// The pile: a growable array of slots with a fixed growth step, the storage
// engine under every list of the library.
//
// KPile is the plain record; the KPile* free functions are the engine.
// CKPileFast wraps a record of pointer-sized slots (its copies share the slot
// array), CKPile frees that array when it dies, and CKPileT<T> is a pile of
// plain values (8-byte integers for CKPileT<__int64>/CKListUINT64, 32-bit
// integers for CKListTyped<int>) with deep copies.
#ifndef KELVOR_KPILE_H
#define KELVOR_KPILE_H

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <base/tools/KDefs.h>
#include <base/tools/KException.h>

#define KPILE_PATH "include/base/classes/list/KPile"

// Comparator handed to qsort: both arguments point to slots.
typedef int (*KPileSortFunc)(const void*, const void*);

// Default growth step, in slots.
#define KPILE_DEFAULT_STEP 128

struct KPile {
  void** ptr;             // slot array (realloc'ed), null when nothing is allocated
  int elts;               // slots in use
  int size;               // slots allocated
  int step;               // growth step in slots
  KPileSortFunc sortfunc; // null: Sort does nothing
};

// Default comparators (defined with the lists). kelvor_comp_func_string
// compares the CKString objects two slots point to; kelvor_comp_func_int_32
// compares the two slot addresses themselves, not what they hold.
KELVOR_API int kelvor_comp_func_string(const void* a, const void* b);
KELVOR_API int kelvor_comp_func_int_32(const void* a, const void* b);

// ---------------------------------------------------------------- engine
// Every function takes a record of pointer-sized slots unless it has a width
// argument. Indexes are signed; -1 means "not found" or "refused".

// Empty record: no array, step 128, no sort function.
KELVOR_API void KPileInit(KPile* p);
// Fits the allocated size to the count (grow by whole steps, shrink when more
// than a step is idle). 1 on success, 0 on failure.
KELVOR_API int KPileCheckSize(KPile* p);
// Same for slots of nWidth bytes. Returns 1 on success, 0 when the heap call
// counts as failed but the array matches the size field (a stale ENOMEM, or
// a shrink of a record without array), -1 when growth found no block (or
// would pass 2 GiB): array and size are then left as they were.
KELVOR_API int KPileCheckSizeW(KPile* p, unsigned nWidth);
// Bytes used by the record and its pointer slots.
KELVOR_API int KPileSizeof(const KPile* p);
KELVOR_API void* KPileGet(const KPile* p, int nIndex);  // null when out of range
// Appends v (InsertAt: at nIndex, appended past the end); the index, or -1
// when the array cannot grow.
KELVOR_API int KPileAdd(KPile* p, void* v);
KELVOR_API int KPileInsertAt(KPile* p, int nIndex, void* v);
// Set stores at nIndex and extends the count to reach it; SetAt replaces an
// existing slot only; SetNoCheck stores anywhere within the allocated size.
// The index, or -1 when refused.
KELVOR_API int KPileSet(KPile* p, int nIndex, void* v);
KELVOR_API int KPileSetAt(KPile* p, int nIndex, void* v);
KELVOR_API int KPileSetNoCheck(KPile* p, int nIndex, void* v);
// Takes a slot out (the later ones move down) and returns what it held
// (null when out of range); Remove does so for the first slot holding v.
KELVOR_API void* KPileRemoveAt(KPile* p, int nIndex);
KELVOR_API void* KPileRemove(KPile* p, void* v);
// First slot from nFrom holding exactly v, or -1.
KELVOR_API int KPileFind(const KPile* p, const void* v, int nFrom);
// Moves one slot to nTo, shifting those between; bad indexes do nothing.
KELVOR_API void KPileMove(KPile* p, int nTo, int nFrom);
KELVOR_API void KPileSwap(KPile* p, int i, int j);
// qsort with the record's sort function (nothing without one).
KELVOR_API void KPileSort(KPile* p);
KELVOR_API int KPileSetStep(KPile* p, int nStep);
// SetCount sets the count (new slots are not cleared) and fits the array by
// the step rule; SetSize allocates nSize slots, cutting the count to them.
// 1 on success.
KELVOR_API int KPileSetCount(KPile* p, int nCount);
KELVOR_API int KPileSetSize(KPile* p, int nSize);
// Frees the array; the step and sort function stay.
KELVOR_API void KPileEmpty(KPile* p);
// pTo frees its array and takes pFrom's array, count, size and step; pFrom
// is left without an array.
KELVOR_API void KPileDetach(KPile* pFrom, KPile* pTo);
// Appends every slot of pOther (which may be p itself); 1 on success.
KELVOR_API int KPileFastAdd(KPile* p, const KPile* pOther);

// ---------------------------------------------------------------- CKPileFast
// A pile of pointer-sized slots. Copies share the slot array; nothing is freed
// on destruction (see CKPile).
class KELVOR_API CKPileFast {
public:
  CKPileFast() { KPileInit(&data); }
  CKPileFast(const CKPileFast& p) : data(p.data) {}
  CKPileFast& operator=(const CKPileFast& p) {
    data = p.data;
    return *this;
  }
  virtual ~CKPileFast();
  // Step 128 when n is not positive, then the size is fitted again.
  virtual void SetStep(int nStep);

  int Count() const { return data.elts; }
  int PileSize() const { return data.size; }
  int PileGetStep() const { return data.step; }
  int PileSizeof() const { return KPileSizeof(&data); }
  void** PileGetData() const { return data.ptr; }
  void* PileGet(const int& nIndex) const { return KPileGet(&data, nIndex); }
  int PileAdd(void* v) { return KPileAdd(&data, v); }
  int PileInsertAt(int nIndex, void* v) { return KPileInsertAt(&data, nIndex, v); }
  int PileSet(int nIndex, void* v) { return KPileSet(&data, nIndex, v); }
  int PileSetAt(int nIndex, void* v) { return KPileSetAt(&data, nIndex, v); }
  int PileSetNoCheck(int nIndex, void* v) { return KPileSetNoCheck(&data, nIndex, v); }
  void* PileRemove(int nIndex) { return KPileRemoveAt(&data, nIndex); }
  void* PileRemove(void* v) { return KPileRemove(&data, v); }
  int PileFind(const void* v, int nFrom = 0) const { return KPileFind(&data, v, nFrom); }
  void PileMove(int nTo, int nFrom) { KPileMove(&data, nTo, nFrom); }
  void PileSwap(int i, int j) { KPileSwap(&data, i, j); }
  void PileSort() { KPileSort(&data); }
  void PileSetSortFunc(KPileSortFunc f) { data.sortfunc = f; }
  KPileSortFunc PileGetSortFunc() const { return data.sortfunc; }
  int PileSetCount(int nCount) { return KPileSetCount(&data, nCount); }
  int PileSetSize(int nSize) { return KPileSetSize(&data, nSize); }
  void PileEmpty() { KPileEmpty(&data); }
  // Moves this pile's array, count, size and step into target (whose array
  // is freed first); this pile is left without an array.
  void PileDetach(CKPileFast& target) { KPileDetach(&data, &target.data); }
  int PileFastAdd(const CKPileFast& other) { return KPileFastAdd(&data, &other.data); }

  KPile data;

protected:
  int CheckSize() { return KPileCheckSize(&data); }
};

// ---------------------------------------------------------------- CKPile
// A pile that frees its slot array when destroyed. Copies still share the
// array (plain field copy), so only one of them may be destroyed with it.
class KELVOR_API CKPile : public CKPileFast {
public:
  CKPile() {}
  CKPile(const CKPile& p) : CKPileFast(p) {}
  CKPile& operator=(const CKPile& p) {
    CKPileFast::operator=(p);
    return *this;
  }
  ~CKPile() override;
};

// ---------------------------------------------------------------- CKPileT<T>
// A pile of plain values of type T (trivially copyable), stored inline in the
// slot array and grown by the same step rule. Copies are deep.
template <class T>
class KELVOR_TEMPLATE_API CKPileT {
  static_assert(std::is_trivially_copyable<T>::value, "CKPileT holds plain values");

public:
  CKPileT() {
    KPileInit(&data);
    data.sortfunc = &CKPileT::CompareValues;
  }
  CKPileT(const CKPileT& p) {
    KPileInit(&data);
    data.step = p.data.step;
    data.sortfunc = p.data.sortfunc;
    if (!PileFastAdd(p)) throw CKMemoryException(KPILE_PATH, __LINE__);
  }
  CKPileT& operator=(const CKPileT& p) {
    Copy(p);
    return *this;
  }
  virtual ~CKPileT() { std::free(data.ptr); }
  virtual void SetStep(int nStep) {
    data.step = nStep > 0 ? nStep : KPILE_DEFAULT_STEP;
    CheckSize();
  }

  int Count() const { return data.elts; }
  int PileSize() const { return data.size; }
  int PileGetStep() const { return data.step; }
  int PileSizeof() const {
    const long long n = (long long)data.size * (long long)sizeof(T) + (long long)sizeof(KPile);
    return n > 0x7FFFFFFF ? 0x7FFFFFFF : (int)n;  // an int cannot say more
  }
  T* PileGetData() const { return (T*)data.ptr; }
  T PileGet(const int& nIndex) const {
    return (nIndex >= 0 && nIndex < data.elts && data.ptr) ? Slots()[nIndex] : T();
  }
  int PileAdd(const T& v) {
    const int nOld = data.size;
    if (KPileCheckSizeW(&data, sizeof(T)) < 0) return Refuse(nOld, data.elts);
    Slots()[data.elts] = v;
    return data.elts++;
  }
  int PileInsertAt(int nIndex, const T& v) {
    if (nIndex >= data.elts) return PileAdd(v);
    if (nIndex < 0) nIndex = 0;
    const int nOld = data.size;
    if (KPileCheckSizeW(&data, sizeof(T)) < 0) return Refuse(nOld, data.elts);
    T* s = Slots();
    std::memmove(s + nIndex + 1, s + nIndex, sizeof(T) * (size_t)(data.elts - nIndex));
    s[nIndex] = v;
    data.elts++;
    return nIndex;
  }
  // Stores v at nIndex, extending the count (new values read as zero).
  int PileSet(int nIndex, const T& v) {
    if (nIndex < 0) nIndex = 0;
    if (nIndex == 0x7FFFFFFF) return -1;  // the count could not hold it
    if (nIndex >= data.elts) {
      const int nOldCount = data.elts;
      const int nOld = data.size;
      data.elts = nIndex + 1;
      if (KPileCheckSizeW(&data, sizeof(T)) < 0) return Refuse(nOld, nOldCount);
      std::memset((void*)(Slots() + nOldCount), 0, sizeof(T) * (size_t)(nIndex - nOldCount));
    }
    Slots()[nIndex] = v;
    return nIndex;
  }
  int PileSetAt(int nIndex, const T& v) {
    if (nIndex < 0) nIndex = 0;
    if (nIndex >= data.elts || !data.ptr) return -1;
    Slots()[nIndex] = v;
    return nIndex;
  }
  // The caller guarantees nIndex < PileSize(); past the array it refuses.
  int PileSetNoCheck(int nIndex, const T& v) {
    if (nIndex < 0) nIndex = 0;
    if (!data.ptr || nIndex >= data.size) return -1;
    if (nIndex >= data.elts) data.elts = nIndex + 1;
    Slots()[nIndex] = v;
    return nIndex;
  }
  // Removes slot nIndex and returns its value (T() when out of range).
  T PileRemove(int nIndex) {
    if (nIndex < 0 || nIndex >= data.elts || !data.ptr) return T();
    T* s = Slots();
    T v = s[nIndex];
    std::memmove(s + nIndex, s + nIndex + 1, sizeof(T) * (size_t)(data.elts - 1 - nIndex));
    data.elts--;
    CheckSize();
    return v;
  }
  // Removes the first slot equal to v; its old index, or -1.
  int PileRemoveValue(const T& v) {
    const int i = PileFind(v, 0);
    if (i >= 0) PileRemove(i);
    return i;
  }
  int PileFind(const T& v, int nFrom = 0) const {
    if (nFrom < 0) nFrom = 0;
    const T* s = Slots();
    if (!s) return -1;
    for (int i = nFrom; i < data.elts; i++)
      if (std::memcmp(&s[i], &v, sizeof(T)) == 0) return i;
    return -1;
  }
  void PileMove(int nTo, int nFrom) {
    if (nTo == nFrom || nTo < 0 || nFrom < 0 || nTo >= data.elts || nFrom >= data.elts ||
        !data.ptr)
      return;
    T* s = Slots();
    T v = s[nFrom];
    if (nFrom < nTo)
      std::memmove(s + nFrom, s + nFrom + 1, sizeof(T) * (size_t)(nTo - nFrom));
    else
      std::memmove(s + nTo + 1, s + nTo, sizeof(T) * (size_t)(nFrom - nTo));
    s[nTo] = v;
  }
  void PileSwap(int i, int j) {
    if (i == j || i < 0 || j < 0 || i >= data.elts || j >= data.elts || !data.ptr) return;
    T* s = Slots();
    T v = s[i];
    s[i] = s[j];
    s[j] = v;
  }
  void PileSort() {
    if (data.sortfunc && data.elts > 1 && data.ptr)
      std::qsort(data.ptr, (size_t)data.elts, sizeof(T), data.sortfunc);
  }
  void PileSetSortFunc(KPileSortFunc f) { data.sortfunc = f; }
  KPileSortFunc PileGetSortFunc() const { return data.sortfunc; }
  // New values exposed by a larger count read as zero.
  int PileSetCount(int nCount) {
    if (nCount < 0) nCount = 0;
    const int nOldCount = data.elts;
    const int nOld = data.size;
    data.elts = nCount;
    const int r = KPileCheckSizeW(&data, sizeof(T));
    if (r < 0) return Refuse(nOld, nOldCount) + 1;
    if (nCount > nOldCount)
      std::memset((void*)(Slots() + nOldCount), 0, sizeof(T) * (size_t)(nCount - nOldCount));
    return r;
  }
  int PileSetSize(int nSize) {
    if (nSize < 0) nSize = 0;
    if (data.size == nSize) return 1;
    const int nCount = data.elts;
    const int nOld = data.size;
    data.elts = nSize;
    const int r = KPileCheckSizeW(&data, sizeof(T));
    data.elts = nCount < nSize ? nCount : nSize;
    if (r < 0) {
      data.size = nOld;
      return 0;
    }
    return r;
  }
  void PileEmpty() {
    std::free(data.ptr);
    data.ptr = nullptr;
    data.elts = 0;
    data.size = 0;
  }
  // Moves the values, count, size and step into target; this pile is left
  // empty.
  void PileDetach(CKPileT& target) {
    if (&target == this) return;
    std::free(target.data.ptr);
    target.data.ptr = data.ptr;
    target.data.elts = data.elts;
    target.data.size = data.size;
    target.data.step = data.step;
    data.ptr = nullptr;
    data.elts = 0;
    data.size = 0;
  }
  // Appends all of other's values with one copy. 1, or 0 when the pile could
  // not grow.
  int PileFastAdd(const CKPileT& other) {
    const int n = other.data.elts;
    if (n <= 0 || !other.data.ptr) return 1;
    const int nOldCount = data.elts;
    const int nOld = data.size;
    data.elts += n;
    if (KPileCheckSizeW(&data, sizeof(T)) < 0) return Refuse(nOld, nOldCount) + 1;
    std::memmove(Slots() + nOldCount, other.Slots(), sizeof(T) * (size_t)n);
    return 1;
  }

  // Value interface: a pile that cannot grow throws CKMemoryException (the
  // Pile* members above refuse with -1 instead).
  int Add(const T& v) { return Grown(PileAdd(v), __LINE__); }
  T Get(const int& nIndex) const { return PileGet(nIndex); }
  int Set(int nIndex, const T& v) { return Grown(PileSet(nIndex, v), __LINE__); }
  int Find(const T& v, int nFrom = 0) const { return PileFind(v, nFrom); }
  // Index of v, appending it first when absent.
  int AddUnique(const T& v) {
    const int i = PileFind(v, 0);
    return i >= 0 ? i : Add(v);
  }
  // Removes slot nIndex and returns its value (T() when out of range).
  T Delete(const int& nIndex) { return PileRemove(nIndex); }
  void Empty() { PileEmpty(); }
  void DeleteAll() { PileEmpty(); }
  void Sort() { PileSort(); }
  void Swap(int i, int j) { PileSwap(i, j); }
  // Deep copy of the values (a copy of itself changes nothing).
  void Copy(const CKPileT& p) {
    if (&p == this) return;
    data.elts = 0;
    data.step = p.data.step;
    data.sortfunc = p.data.sortfunc;
    CheckSize();
    if (!PileFastAdd(p)) throw CKMemoryException(KPILE_PATH, __LINE__);
  }
  void Detach(CKPileT& target) { PileDetach(target); }
  T operator[](const int& nIndex) const { return PileGet(nIndex); }

  KPile data;

protected:
  int CheckSize() { return KPileCheckSizeW(&data, sizeof(T)) > 0 ? 1 : 0; }
  T* Slots() const { return (T*)data.ptr; }
  static int CompareValues(const void* a, const void* b) {
    const T& x = *(const T*)a;
    const T& y = *(const T*)b;
    return x < y ? -1 : (y < x ? 1 : 0);
  }

private:
  static int Grown(int nIndex, unsigned nLine) {
    if (nIndex < 0) throw CKMemoryException(KPILE_PATH, nLine);
    return nIndex;
  }
  // Growth failed without a block: undo the count and size, refuse.
  int Refuse(int nOldSize, int nOldCount) {
    data.size = nOldSize;
    data.elts = nOldCount;
    return -1;
  }
};

// A list of unsigned 64-bit values.
class KELVOR_API CKListUINT64 : public CKPileT<unsigned __int64> {
public:
  CKListUINT64() {}
  CKListUINT64(const CKListUINT64& l) : CKPileT<unsigned __int64>(l) {}
  CKListUINT64& operator=(const CKListUINT64& l) {
    Copy(l);
    return *this;
  }
  ~CKListUINT64() override {}
};

// A list of plain values; CKListTyped<int> is the library's integer list.
template <class T>
class KELVOR_TEMPLATE_API CKListTyped : public CKPileT<T> {
public:
  CKListTyped() {}
  CKListTyped(const CKListTyped& l) : CKPileT<T>(l) {}
  CKListTyped& operator=(const CKListTyped& l) {
    this->Copy(l);
    return *this;
  }
  ~CKListTyped() override {}
};

#endif  // KELVOR_KPILE_H
