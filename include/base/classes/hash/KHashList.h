// CKHashList: hash map from an opaque pointer-sized key to an opaque
// pointer-sized value. The base owns the bucket table, the element pool and
// the free list; subclasses supply hashing, key equality and the ownership of
// keys and values through the pure virtual operations.
//
// Elements live in one contiguous pool grown by a fixed step, so inserting
// does not allocate per element; deleted elements are recycled through the
// free list. The bucket table is never resized by insertion: chains grow.
#ifndef KELVOR_KHASHLIST_H
#define KELVOR_KHASHLIST_H

#include <cstddef>
#include <cstring>

#include <base/tools/KDefs.h>

// One pool entry: chain link, key, value.
struct KHashElt {
  KHashElt* pNextElt;
  void* pKey;
  void* pValue;
};

// Cursor for walking a map in iteration order (buckets 0 .. table size - 1,
// each chain from its head) without the per-call walk of Get(index).
struct KHashPos {
  unsigned int nBucket;
  KHashElt* pElt;
};

// Equality between a stored key and a probe of another type (see FindLink).
typedef int (*KHashEqualFunc)(const void* pStoredKey, const void* pProbe);

class KELVOR_API CKHashList {
public:
  enum { DEFAULT_STEP = 256, DEFAULT_TABLE_SIZE = 1031 };

  CKHashList();
  virtual ~CKHashList();

  // Moves every field to target (whose elements are destroyed first); this
  // map is left as a new one.
  virtual void Detach(CKHashList& target);

protected:
  virtual unsigned int HashKey(void* pKey) const = 0;
  // Non-zero when the stored key equals pKey.
  virtual int CompareKey(void* pStoredKey, void* pKey) const = 0;
  // Releases what an element owns when it leaves the map.
  virtual void DestructElement(void* pKey, void* pValue) = 0;
  // Called before a value is overwritten by pNewValue.
  virtual void DestructValue(void* pOldValue, void* pNewValue) = 0;
  // Makes the owned copies of an element of another map (for assignment).
  virtual void CopyElement(void*& pKeyOut, void*& pValueOut, void* pKey, void* pValue) = 0;

public:
  // Deep copy through this map's CopyElement: every source element, bucket
  // by bucket and chain by chain, is copied and inserted like a new key (at
  // its chain's head, so colliding keys come out in reverse order). src must
  // hold keys and values of the kinds this map's operations expect: the
  // subclasses' overrides refuse a source of an unrelated class.
  virtual CKHashList& operator=(const CKHashList& src);

  // Creates the bucket table (nTableSize buckets, pool step nPas). A map
  // that already has a table keeps its elements: they are rehashed into the
  // new one and the old table is released.
  void InitHashTable(int nTableSize, int nPas);

  void Set(void* pKey, void* pValue);
  // Reference to the value of pKey. Missing key: inserted with a null value
  // when bCreate is non-zero, else a reference to a zeroed dummy slot.
  void*& Get(void* pKey, int bCreate, int* pbFound);
  void* Get(void* pKey) const;
  void* Get(void* pKey, int* pbFound) const;
  int Exist(void* pKey) const;

  // Value or key of the nIndex-th element in iteration order.
  void* Get(unsigned int nIndex) const;
  void* GetKey(unsigned int nIndex) const;

  void Delete(void* pKey);
  void Delete(unsigned int nIndex);
  void DeleteAll();

  unsigned int Count() const { return m_nCount; }
  // Elements that are not the head of their bucket's chain.
  int GetCollisions() const;

  unsigned int GetTableSize() const { return m_nTableSize; }
  int GetStep() const { return m_nPas; }
  int GetAllocatedElements() const { return m_nAllocated; }
  int HasTable() const { return m_pHashTable != nullptr; }

  // Iteration: First then Next while they return TRUE; the cursor's element
  // must not be deleted between calls.
  int First(KHashPos& pos) const;
  int Next(KHashPos& pos) const;

  // The string hash of the library's string-keyed maps: h = h * 33 + c over
  // the bytes taken as signed chars, 32-bit wrapping, no initial offset.
  static unsigned int HashString(const char* sz) {
    size_t nLen;
    return HashText(sz, nLen);
  }
  // The same, giving the text's length as well. The length comes first;
  // then eight bytes at a time (h * 33^8 + c0 * 33^7 + ... + c7: the same
  // value), so that the multiplications do not wait on each other.
  static unsigned int HashText(const char* sz, size_t& nLen) {
    nLen = sz ? std::strlen(sz) : 0;
    unsigned int h = 0;
    size_t i = 0;
    for (; i + 8 <= nLen; i += 8) {
      const char* p = sz + i;  // powers of 33 modulo 2^32
      h = h * 1954312449u + Byte(p[0]) * 3963737313u + Byte(p[1]) * 1291467969u +
          Byte(p[2]) * 39135393u + Byte(p[3]) * 1185921u + Byte(p[4]) * 35937u +
          Byte(p[5]) * 1089u + Byte(p[6]) * 33u + Byte(p[7]);
    }
    for (; i < nLen; ++i) h = h * 33u + Byte(sz[i]);
    return h;
  }

protected:
  // A byte of a key text as the hash takes it: signed, sign-extended.
  static unsigned int Byte(char c) { return (unsigned int)(int)(signed char)c; }
  // The link that heads bucket nHash % table size; null without a table.
  KHashElt** BucketLink(unsigned int nHash) const {
    return m_pHashTable ? &m_pHashTable[nHash % m_nTableSize] : nullptr;
  }

  // The base cannot copy elements while a subclass is not yet constructed:
  // it starts empty, and subclass copy constructors call operator=.
  CKHashList(const CKHashList&);

  // Address of the link (bucket head or chain link) that points to the
  // first element of bucket nHash % table size matching pProbe; null when
  // there is none or no table.
  KHashElt** FindLink(unsigned int nHash, const void* pProbe, KHashEqualFunc pfEqual) const;
  KHashElt** FindLink(void* pKey) const;
  // The same with HashKey(pKey) already computed.
  KHashElt** FindLinkHashed(unsigned int nHash, void* pKey) const;
  // Pushes a new element for pKey at the head of its bucket (table created
  // if needed); its value is null.
  KHashElt* InsertElt(unsigned int nHash, void* pKey);
  // Unlinks *ppLink, destructs it and recycles it.
  void RemoveLink(KHashElt** ppLink);

private:
  KHashElt* GetFreeElement();
  void GrowPool(int nAdd);
  KHashElt* EltAt(unsigned int nIndex, KHashElt*** pppLink) const;
  KHashElt* EltReported(unsigned int nIndex) const;
  void Reset();

  KHashElt** m_pHashTable;
  KHashElt* m_pFreeList;
  KHashElt* m_pElts;
  int m_nPas;
  int m_nAllocated;
  unsigned int m_nTableSize;
  unsigned int m_nCount;
  void* m_pDummy;
};

#endif  // KELVOR_KHASHLIST_H
