// CKMem: the growable byte buffer. The block lives in a shared record
// (CMemRef) so that several CKMem objects can be views on one block, each
// with its own cursors; the block dies with the last view. CKMemFake wraps a
// caller's memory without copying it.
#ifndef KELVOR_KMEM_H
#define KELVOR_KMEM_H

#include <cstddef>
#include <cstdio>

#include <base/classes/list/KPtrList.h>
#include <base/tools/KDefs.h>
#include <base/tools/KException.h>

// Largest block a buffer may hold: 128 MiB.
#define KMEM_SIZE_MAX 0x8000000u

class CKMem;

// Shared storage record: the block and the views that use it.
class KELVOR_API CMemRef {
public:
  CMemRef();
  virtual ~CMemRef();

  unsigned char* pData;        // the block; null when nothing is allocated
  CKPtrList<CKMem> memList;    // the views sharing this record (not owned)

  // Bookkeeping that keeps views of one block consistent.
  unsigned nBlockSize;  // bytes really allocated at pData
  int bOwnsData;        // pData is a C-heap block this record frees
  int bEmbedded;        // lives inside a CKMemFake: never deleted by a view

private:
  CMemRef(const CMemRef&) = delete;
  CMemRef& operator=(const CMemRef&) = delete;
};

class KELVOR_API CKMem {
public:
  explicit CKMem(unsigned nSize = 0, int nOption = 0);
  // A new view on mem's block, not a copy of its bytes (see Copy).
  CKMem(const CKMem& mem);
  // A view on an existing record with the given cursors and size.
  CKMem(CMemRef& ref, unsigned nOffset, unsigned nStartOffset, unsigned nSize);
  // Leaves the current block and becomes a view on mem's block.
  CKMem& operator=(const CKMem& mem);

  // The virtual operations, in their fixed slot order.
  virtual ~CKMem();
  // Gives this view a record of its own when it has none.
  virtual int EnsureMemRef();
  // Resizes the block to nSize bytes (at most KMEM_SIZE_MAX; 0 frees it);
  // every view of the block sees the new size.
  virtual int SetSize(unsigned nSize);
  // Copy to or compare with the bytes at the write cursor (start offset +
  // offset); no cursor moves and nothing grows. Memcmp gives -1, 0 or 1.
  virtual int Memcpy(const unsigned char* p, unsigned nLenToCopy);
  virtual int Memcpy(const CKMem& memSrc, unsigned nLenToCopy);
  virtual int Memcmp(const CKMem& memSrc, unsigned nLenToCmp) const;
  // The live data: the bytes written after the start offset (= Offset()).
  virtual unsigned GetLength() const;
  // The Set family: size the block to n and copy n bytes of the value (its
  // machine representation) to the very start; bytes beyond the value are
  // zero.
  virtual int Set(void* p, unsigned n);
  virtual int Set(double v, unsigned n);
  virtual int Set(int v, unsigned n);
  virtual int Set(unsigned int v, unsigned n);
  virtual int Set(__int64 v, unsigned n);
  // Grows the block to at least n bytes.
  virtual int EnsureBufferSize(unsigned n);
  // Cursor moves: SetEmpty forgets the data (offset 0); Increase/DecreaseOffset
  // move the write cursor; IncreasePos consumes bytes at the front (start
  // offset + n, offset - n), DecreasePos gives them back.
  virtual void SetEmpty();
  virtual void IncreaseOffset(unsigned n);
  virtual void DecreaseOffset(unsigned n);
  virtual unsigned Offset() const;
  // Moves the live data to the front of the block (start offset 0).
  virtual int ResetStartPosition();
  // Pointer to byte nOffset after the start offset, with room for n bytes
  // there (the block is compacted or grown); GetFromStart(0, 0) is the block
  // itself. GetFromStart(n): room for n bytes at the write cursor. Null when
  // the room cannot be made.
  virtual unsigned char* GetFromStart(unsigned nOffset, unsigned n);
  virtual unsigned char* GetFromStart(unsigned n);
  // The caller takes the block and frees it with free().
  virtual unsigned char* Detach();
  // p must come from the C heap; the record takes it over.
  virtual void Attach(void* p, unsigned n);
  // fread/fwrite at the write cursor within the block (no growth, no cursor
  // move); 0xFFFFFFFF when the block is too small.
  virtual unsigned Fread(unsigned nEltSize, unsigned nEltCount, FILE* fp);
  virtual unsigned Fwrite(unsigned nEltSize, unsigned nEltCount, FILE* fp) const;
  // The block size (not the length of the data: see GetLength).
  virtual unsigned Size() const;
  // Copies at the write cursor and advances it; never grows (reserve first).
  virtual unsigned Write(void* pValue, unsigned nLenToWrite);
  virtual void IncreasePos(unsigned n);
  virtual void DecreasePos(unsigned n);

  // Deep copy of src's block, cursors and option.
  int Copy(const CKMem& src);
  // View with the offset set to nOffset (absolute).
  CKMem operator+(unsigned nOffset) const;
  // View with the offset moved back by n (relative, stops at 0).
  CKMem operator-(unsigned n) const;
  // Appends mem's live data (GetLength() bytes from its start offset).
  CKMem& operator+=(const CKMem& mem);
  // Hands the block, with this view's size and cursors, over to dst.
  void Detach(CKMem& dst);

  // In-place zlib compression of the first nLen bytes; see the source.
  int Zip(unsigned nLen, int nLevel, unsigned nMinSize, int* pbZipped);
  int Unzip(unsigned nLen, int* pbUnzipped);

  int GetOption() const { return m_nOption; }

  // Fields, in order. Public as callers of the buffer read them directly.
  uint32_t m_nOffset;       // write/length cursor, from the start offset
  uint32_t m_nStartOffset;  // bytes consumed at the front of the block
  CMemRef* m_pMemRef;       // shared record
  uint32_t m_nAllocatedSize;
  int m_nOption;            // carried and copied only

protected:
  struct KNoRef {};
  // For derived classes that supply their own record.
  explicit CKMem(KNoRef);

  void Free();
  // The block (null without a record).
  unsigned char* Data() const { return m_pMemRef ? m_pMemRef->pData : nullptr; }
  // Free room for writing; 0 when the cursors run past the size.
  unsigned Room() const;
  // Block-level helpers shared by the operations above.
  void Register(CMemRef* pRef);
  void ResetViews(unsigned nSize);
  void InstallBlock(unsigned char* p, unsigned nSize);
  // Bytes that may be read or written from the block's start.
  unsigned Limit() const;
  int SetValue(const void* pValue, size_t nValueSize, unsigned n);
};

// A view on memory the caller owns: nothing is allocated or freed.
class KELVOR_API CKMemFake : public CKMem {
public:
  CKMemFake();
  CKMemFake(const void* p, unsigned n);
  CKMemFake(const CKMemFake& mem);
  CKMemFake& operator=(const CKMemFake& mem);

  ~CKMemFake() override;
  // Only records the new size.
  int SetSize(unsigned nSize) override;
  // Not allowed on a fake: the caller's memory cannot be handed out.
  unsigned char* Detach() override;
  using CKMem::Detach;
  // Not allowed on a fake either.
  virtual int EnsureBuffer(unsigned n);

  // Copies the view (pointer and size), not the bytes.
  int Copy(const CKMemFake& mem);

private:
  void Wrap(const void* p, unsigned n, unsigned nBlock);
  void ReleaseEmbedded();

  CMemRef m_MemRef;
};

// Test seam: every block this module allocates or resizes goes through one
// realloc-shaped function (blocks are still released with free). Tests
// install a failing one to reach the heap-exhaustion paths; null restores
// the C heap's realloc. Returns the previous function.
typedef void* (*KMemReallocFunc)(void* p, size_t n);
KELVOR_API KMemReallocFunc KMemSetRealloc(KMemReallocFunc pFunc);

#endif  // KELVOR_KMEM_H
