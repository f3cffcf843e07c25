// Internal: memory images shared by the blob storage classes, and the
// element store behind CKBlob.
#ifndef KELVOR_KBLOBSTORE_H
#define KELVOR_KBLOBSTORE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include <base/tools/KBlob.h>
#include <base/tools/KFile.h>
#include <base/tools/KMem.h>

namespace kblob {
// A memory-mode file holding a copy of mem's bytes; null when it cannot.
CKFile* NewImage(const CKMem& mem);
// mem receives the file image's bytes (its block, when it can be taken).
int ImageToMem(CKFile& f, CKMem& mem);
int ImageCopyToMem(const CKFile& f, CKMem& mem);
}  // namespace kblob

// The elements of a blob. v holds them in list order. New names added while
// v is sorted wait in tail and are merged in before anyone looks at
// positions (Place), so building a blob in any order costs a sort, not a
// memmove per insertion. Elements are constructed in pool blocks that go
// away with the store; a destroyed element's slot is reused. A binary decode
// also carves the elements' texts from one string pool.
struct KBlobElements {
  std::vector<CKBlobElement*> v;
  std::vector<CKBlobElement*> tail;
  bool bSorted = true;  // v is in ascending byte order of the names

  // Open-addressed name index (ASCII-folded hash, case-insensitive match),
  // rebuilt on the next look-up once bStale is set.
  struct Slot {
    uint64_t h;  // the name's hash, compared before the names
    CKBlobElement* p;
  };
  std::vector<Slot> slots;
  unsigned nBits = 0;  // slots.size() is 1 << nBits
  size_t nUsed = 0;
  bool bStale = true;

  struct Block {
    unsigned char* p;
    size_t nCap;  // elements
    size_t nUsed;
  };
  std::vector<Block> pool;
  std::vector<void*> freed;  // slots of destroyed elements
  // Names and texts of a binary decode (src/KStringPool.h); held by the store
  // and by each string carved from it.
  KStringPool* pStrings = nullptr;
  __int64 nSizeHint = -1;     // bytes of the last binary encoding, to pre-size the next

  KBlobElements() = default;
  KBlobElements(const KBlobElements&) = delete;
  KBlobElements& operator=(const KBlobElements&) = delete;
  ~KBlobElements() { Clear(); }

  size_t Count() const { return v.size() + tail.size(); }
  // Makes the next pool block hold at least n elements.
  void Reserve(size_t n);
  // A new empty element from the pool.
  CKBlobElement* NewPooled();
  // Destroys p, which the store no longer lists; its slot is kept for reuse.
  void Destroy(CKBlobElement* p);
  void Clear();
  void Place();
};

namespace kblob {
// A pass over v reads, for every element, its name, its value object and the
// value's characters, each in a block of its own: this asks for the blocks
// of the elements a few places ahead (value objects earlier, their contents
// later, once the object has arrived) so the misses overlap.
inline void Ahead(const std::vector<CKBlobElement*>& v, size_t i) {
#if defined(__GNUC__)
  if (i + 16 < v.size()) {
    const CKBlobElement* q = v[i + 16];
    __builtin_prefetch(q->m_strName.GetString());
    if (q->Type() == KVT_STRING || q->Type() == KVT_LIST) __builtin_prefetch(q->GetString() ? (const void*)q->GetString() : (const void*)q->GetList());
  }
  if (i + 8 < v.size()) {
    const CKBlobElement* q = v[i + 8];
    if (const CKString* s = q->GetString())
      __builtin_prefetch(s->GetString());
    else if (const CKList* l = q->GetList())
      __builtin_prefetch(l->PileGetData());
  }
  // A string list's items: their objects, then their characters.
  for (size_t k = 4; k >= 2; k -= 2)
    if (i + k < v.size())
      if (const CKList* l = v[i + k]->GetList()) {
        void* const* a = l->PileGetData();
        const int n = a ? (l->Count() < 8 ? l->Count() : 8) : 0;
        for (int j = 0; j < n; j++)
          if (a[j]) __builtin_prefetch(k == 4 ? a[j] : (const void*)((const CKString*)a[j])->GetString());
      }
#else
  (void)v;
  (void)i;
#endif
}
}  // namespace kblob

#endif  // KELVOR_KBLOBSTORE_H
