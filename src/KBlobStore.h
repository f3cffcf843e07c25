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
// mem receives a copy of the file image's bytes.
int ImageToMem(const CKFile& f, CKMem& mem);
}  // namespace kblob

// The elements of a blob. v holds them in list order. New names added while
// v is sorted wait in tail and are merged in before anyone looks at
// positions (Place), so building a blob in any order costs a sort, not a
// memmove per insertion. Elements are constructed in pool blocks that go
// away with the store; a destroyed element's slot is reused.
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

#endif  // KELVOR_KBLOBSTORE_H
