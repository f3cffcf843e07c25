// Owned pointer lists: every slot owns one heap object of class T (which has
// a virtual destructor); deleting an entry deletes the object.
//
// CKPtrListOwned<T> copies by sharing (the copy constructor copies the pile
// fields, so source and copy see the same objects); CKPtrListOwnedC<T> adds a
// deep assignment that makes a new T for every source entry. A list that
// cannot grow deletes the object it was handed and throws CKMemoryException.
#ifndef KELVOR_KPTRLISTOWNED_H
#define KELVOR_KPTRLISTOWNED_H

#include <base/classes/list/KPile.h>
#include <base/tools/KDebug.h>
#include <base/tools/KException.h>

#define KPTRLISTOWNED_PATH "include/base/classes/list/KPtrListOwned"

template <class T>
class KELVOR_TEMPLATE_API CKPtrListOwned : public CKPile {
public:
  CKPtrListOwned() : m_nParam(0) { data.sortfunc = kelvor_comp_func_int_32; }
  // Shares the source's slot array and objects.
  CKPtrListOwned(const CKPtrListOwned& l) : CKPile(l), m_nParam(l.m_nParam) {}
  CKPtrListOwned& operator=(const CKPtrListOwned& l) = delete;
  ~CKPtrListOwned() override { DeleteAll(); }

  // Appends p, which the list now owns; its index.
  int Add(T* p) { return Taken(PileAdd(p), p, __LINE__); }
  int InsertAt(int nIndex, T* p) { return Taken(PileInsertAt(nIndex, p), p, __LINE__); }
  // The object at nIndex; null when out of range.
  T* Get(const int& nIndex) const { return (T*)PileGet(nIndex); }
  T* GetAt(int nIndex) const { return (T*)PileGet(nIndex); }
  T* operator[](const int& nIndex) const { return (T*)PileGet(nIndex); }
  T* GetLast() const { return (T*)PileGet(data.elts - 1); }
  // Stores p at nIndex (the list grows past the end); an object it replaces
  // is deleted.
  int Set(int nIndex, T* p) {
    if (nIndex < 0) nIndex = 0;
    T* pOld = (T*)PileGet(nIndex);  // null past the end
    const int nOldCount = data.elts;
    const int r = Taken(PileSet(nIndex, p), p, __LINE__);
    for (int i = nOldCount; i < nIndex; i++) data.ptr[i] = nullptr;
    if (pOld != p) delete pOld;
    return r;
  }
  int Find(const T* p, int nFrom = 0) const { return PileFind(p, nFrom); }
  // Takes entry nIndex out of the list without deleting it.
  T* RemoveAt(int nIndex) { return (T*)PileRemove(nIndex); }
  // Takes p out of the list without deleting it; its old index, or -1.
  int Remove(T* p) {
    const int i = PileFind(p, 0);
    if (i >= 0) PileRemove(i);
    return i;
  }
  void Swap(int i, int j) { PileSwap(i, j); }
  void Sort() { PileSort(); }

  // Removes entry nIndex and deletes its object.
  void Delete(const int& nIndex) {
    KASSERT_AT(nIndex < Count(), "nIndex<Count()", KPTRLISTOWNED_PATH, 50);
    delete (T*)PileRemove(nIndex);
  }
  // Deletes every object in index order, then empties the pile.
  void DeleteAll() {
    const int c = data.elts;
    KASSERT_RET_AT(c <= data.size, "c<=data.elts", KPTRLISTOWNED_PATH, 79);
    for (int i = 0; i < c && data.ptr; i++) {
      T* p = (T*)data.ptr[i];
      data.ptr[i] = nullptr;
      delete p;
    }
    PileEmpty();
  }
  // target deletes its objects, then takes this list's array, count, size and
  // step; this list is left empty.
  void Detach(CKPtrListOwned& target) {
    if (&target == this) return;
    target.DeleteAll();
    PileDetach(target);
  }

  int m_nParam;  // free integer for the owner, copied with the list

private:
  // p was refused: nobody else will delete it.
  static int Taken(int nIndex, T* p, unsigned nLine) {
    if (nIndex >= 0) return nIndex;
    delete p;
    throw CKMemoryException(KPTRLISTOWNED_PATH, nLine);
  }
};

template <class T>
class KELVOR_TEMPLATE_API CKPtrListOwnedC : public CKPtrListOwned<T> {
public:
  CKPtrListOwnedC() {}
  CKPtrListOwnedC(const CKPtrListOwnedC& l) : CKPtrListOwned<T>(l) {}
  // Deep: deletes every owned object, then appends a new T assigned from each
  // source entry (an empty T for a null entry). No self-check: assigning a
  // list to itself leaves it empty.
  CKPtrListOwnedC& operator=(const CKPtrListOwnedC& l) {
    this->DeleteAll();
    const int n = l.Count();
    for (int i = 0; i < n; i++) {
      const T* pSrc = (const T*)l.data.ptr[i];
      T* p = new T;
      if (pSrc) *p = *pSrc;
      this->Add(p);
    }
    return *this;
  }
  ~CKPtrListOwnedC() override {}
};

#endif  // KELVOR_KPTRLISTOWNED_H
