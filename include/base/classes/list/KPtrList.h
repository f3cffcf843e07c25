// CKPtrList<T>: a typed list of pointers that owns nothing. The objects stay
// the caller's; destroying or emptying the list only drops the pointers.
// Null entries are allowed. DeleteAll and Delete are the explicit ways to
// delete the objects themselves. A list that cannot grow throws
// CKMemoryException.
#ifndef KELVOR_KPTRLIST_H
#define KELVOR_KPTRLIST_H

#include <base/classes/list/KPile.h>
#include <base/tools/KException.h>

#define KPTRLIST_PATH "include/base/classes/list/KPtrList"

template <class T>
class KELVOR_TEMPLATE_API CKPtrList : public CKPile {
public:
  CKPtrList() {}
  // Copies are independent lists of the same pointers.
  CKPtrList(const CKPtrList& l) : CKPile() {
    data.step = l.data.step;
    data.sortfunc = l.data.sortfunc;
    if (!PileFastAdd(l)) throw CKMemoryException(KPTRLIST_PATH, __LINE__);
  }
  CKPtrList& operator=(const CKPtrList& l) {
    if (&l != this) {
      data.elts = 0;
      CheckSize();
      data.sortfunc = l.data.sortfunc;
      if (!PileFastAdd(l)) throw CKMemoryException(KPTRLIST_PATH, __LINE__);
    }
    return *this;
  }
  ~CKPtrList() override {}

  // Appends p (null allowed); its index.
  int Add(T* p) { return Grown(PileAdd(p), __LINE__); }
  // Inserts p at nIndex (below 0: 0; at or past the end: appends).
  int InsertAt(int nIndex, T* p) { return Grown(PileInsertAt(nIndex, p), __LINE__); }
  // The pointer at nIndex; null when out of range.
  T* Get(const int& nIndex) const { return (T*)PileGet(nIndex); }
  T* GetAt(int nIndex) const { return (T*)PileGet(nIndex); }
  T* operator[](const int& nIndex) const { return (T*)PileGet(nIndex); }
  T* GetLast() const { return (T*)PileGet(data.elts - 1); }
  // Replaces the pointer at nIndex (not deleting the old one); past the end
  // the list grows with null entries. Negative indexes are ignored (-1).
  int Set(int nIndex, T* p) {
    if (nIndex < 0) return -1;
    if (nIndex == 0x7FFFFFFF) throw CKMemoryException(KPTRLIST_PATH, __LINE__);
    if (nIndex >= data.elts) SetCount(nIndex + 1);
    return PileSetAt(nIndex, p);
  }
  // Cuts the list or pads it with null entries (n below 0: 0). Returns 1.
  int SetCount(int n) {
    if (n < 0) n = 0;
    const int nOld = data.elts;
    if (n <= nOld) {
      PileSetCount(n);
      return 1;
    }
    const int nOldSize = data.size;
    data.elts = n;
    if (KPileCheckSizeW(&data, sizeof(void*)) < 0) {
      data.size = nOldSize;
      data.elts = nOld;
      throw CKMemoryException(KPTRLIST_PATH, __LINE__);
    }
    std::memset((void*)(data.ptr + nOld), 0, sizeof(void*) * (size_t)(n - nOld));
    return 1;
  }
  // Index of the first p at or after nFrom, or -1.
  int Find(const T* p, int nFrom = 0) const { return PileFind(p, nFrom); }
  // Drops the first entry equal to p; its old index, or -1.
  int Remove(T* p) {
    const int i = PileFind(p, 0);
    if (i >= 0) PileRemove(i);
    return i;
  }
  // Drops entry nIndex and returns it (null when out of range).
  T* RemoveAt(int nIndex) { return (T*)PileRemove(nIndex); }
  void RemoveAll() { PileEmpty(); }
  void Empty() { PileEmpty(); }
  void Swap(int i, int j) { PileSwap(i, j); }
  void Move(int nTo, int nFrom) { PileMove(nTo, nFrom); }
  void Sort() { PileSort(); }
  // Drops entry nIndex and deletes its object.
  void Delete(const int& nIndex) { delete (T*)PileRemove(nIndex); }
  // Deletes every object, first to last, then empties the list.
  void DeleteAll() {
    for (int i = 0; i < data.elts; i++) {
      T* p = (T*)data.ptr[i];
      data.ptr[i] = nullptr;
      delete p;
    }
    PileEmpty();
  }
  // Hands the entries to target (its own entries are dropped).
  void Detach(CKPtrList& target) {
    if (&target != this) PileDetach(target);
  }

private:
  static int Grown(int nIndex, unsigned nLine) {
    if (nIndex < 0) throw CKMemoryException(KPTRLIST_PATH, nLine);
    return nIndex;
  }
};

#endif  // KELVOR_KPTRLIST_H
