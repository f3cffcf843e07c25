// CKMem: growable byte buffer shared by views, with in-place zlib compression.
#define KSRC_PATH "src/KMem"

#include <base/tools/KMem.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include <zlib.h>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>

#define KMEM_THROW() throw CKMemoryException(KSRC_PATH, __LINE__)
// Refusals reported with the bare "Returning" form, yet returning a value.
#define KMEM_REFUSE(value)                                          \
  do {                                                              \
    KAssertReport("FALSE", KSRC_PATH, __LINE__, KASSERT_RETURN);    \
    return value;                                                   \
  } while (0)

namespace {

std::atomic<KMemReallocFunc> g_pRealloc{nullptr};

// Every block of this module is obtained here, so that a test can refuse it.
inline void* MemRealloc(void* p, size_t n) {
  KMemReallocFunc f = g_pRealloc.load(std::memory_order_relaxed);
  return f ? f(p, n) : realloc(p, n);
}

// Lists of views rarely hold more than a few entries.
const int KMEM_VIEW_STEP = 4;

}  // namespace

KMemReallocFunc KMemSetRealloc(KMemReallocFunc pFunc) { return g_pRealloc.exchange(pFunc); }

// ---------------------------------------------------------------- CMemRef
CMemRef::CMemRef() : pData(nullptr), nBlockSize(0), bOwnsData(1), bEmbedded(0) {
  memList.SetStep(KMEM_VIEW_STEP);
}

CMemRef::~CMemRef() {
  if (bOwnsData) free(pData);
}

// ---------------------------------------------------------------- CKMem
CKMem::CKMem(unsigned nSize, int nOption)
    : m_nOffset(0), m_nStartOffset(0), m_pMemRef(nullptr), m_nAllocatedSize(0), m_nOption(nOption) {
  Register(new (std::nothrow) CMemRef);
  KASSERT(m_pMemRef);
  if (nSize) {
    try {
      SetSize(nSize);
    } catch (...) {
      // No destructor runs for a half-built object: leave the record here.
      Free();
      throw;
    }
  }
}

CKMem::CKMem(const CKMem& mem)
    : m_nOffset(mem.m_nOffset),
      m_nStartOffset(mem.m_nStartOffset),
      m_pMemRef(nullptr),
      m_nAllocatedSize(mem.m_nAllocatedSize),
      m_nOption(0) {
  KASSERT(mem.m_pMemRef);
  if (mem.m_pMemRef) {
    Register(mem.m_pMemRef);
  } else {
    m_nOffset = m_nStartOffset = m_nAllocatedSize = 0;
    EnsureMemRef();
  }
}

CKMem::CKMem(CMemRef& ref, unsigned nOffset, unsigned nStartOffset, unsigned nSize)
    : m_nOffset(nOffset),
      m_nStartOffset(nStartOffset),
      m_pMemRef(nullptr),
      m_nAllocatedSize(nSize),
      m_nOption(0) {
  Register(&ref);
}

CKMem::CKMem(KNoRef)
    : m_nOffset(0), m_nStartOffset(0), m_pMemRef(nullptr), m_nAllocatedSize(0), m_nOption(0) {}

CKMem& CKMem::operator=(const CKMem& mem) {
  if (this == &mem) return *this;
  Free();
  if (mem.m_pMemRef) {
    Register(mem.m_pMemRef);
    m_nOffset = mem.m_nOffset;
    m_nAllocatedSize = mem.m_nAllocatedSize;
    m_nStartOffset = mem.m_nStartOffset;
  } else {
    EnsureMemRef();
  }
  return *this;
}

CKMem::~CKMem() { Free(); }

// The view is this buffer's only once the record's list has taken it; a
// fresh record that cannot even list its first view goes again.
void CKMem::Register(CMemRef* pRef) {
  if (pRef) {
    try {
      pRef->memList.Add(this);
    } catch (...) {
      if (pRef->memList.Count() == 0 && !pRef->bEmbedded) delete pRef;
      throw;
    }
  }
  m_pMemRef = pRef;
}

void CKMem::Free() {
  CMemRef* r = m_pMemRef;
  if (r) {
    r->memList.Remove(this);
    KASSERT(m_pMemRef->memList.Count()>=0);
    // A record embedded in a fake belongs to the fake, which releases it.
    if (r->memList.Count() == 0 && !r->bEmbedded) delete r;
  }
  m_pMemRef = nullptr;
  m_nAllocatedSize = 0;
  m_nOffset = 0;
  m_nStartOffset = 0;
}

int CKMem::EnsureMemRef() {
  if (m_pMemRef) return 1;
  Register(new (std::nothrow) CMemRef);
  KASSERT_RETV(m_pMemRef, 0);
  m_nAllocatedSize = 0;
  m_nOffset = 0;
  m_nStartOffset = 0;
  return 1;
}

unsigned CKMem::Limit() const {
  // A fake may record a size over a null pointer: nothing is there to reach.
  if (!m_pMemRef || !m_pMemRef->pData) return 0;
  return m_nAllocatedSize < m_pMemRef->nBlockSize ? m_nAllocatedSize : m_pMemRef->nBlockSize;
}

unsigned CKMem::Room() const {
  uint64_t nUsed = (uint64_t)m_nOffset + m_nStartOffset;
  unsigned nLimit = Limit();
  return nUsed >= nLimit ? 0 : nLimit - (unsigned)nUsed;
}

void CKMem::ResetViews(unsigned nSize) {
  CMemRef* r = m_pMemRef;
  for (int i = 0; i < r->memList.Count(); ++i) {
    CKMem* v = r->memList.Get(i);
    v->m_nAllocatedSize = nSize;
    v->m_nOffset = 0;
    v->m_nStartOffset = 0;
  }
}

void CKMem::InstallBlock(unsigned char* p, unsigned nSize) {
  CMemRef* r = m_pMemRef;
  if (r->bOwnsData && r->pData != p) free(r->pData);
  r->pData = p;
  r->nBlockSize = nSize;
  r->bOwnsData = 1;
}

int CKMem::SetSize(unsigned nSize) {
  KASSERT_RETV(nSize<=KMEM_SIZE_MAX, 0);
  // A view may claim more than its block holds (a view made on a record, a
  // fake that shrank): then the block must still grow to the size.
  if (nSize == m_nAllocatedSize && (!m_pMemRef || m_pMemRef->nBlockSize >= nSize)) return 1;
  if (nSize == 0) {
    Free();
    EnsureMemRef();
    return 1;
  }
  if (!EnsureMemRef()) return 0;
  CMemRef* r = m_pMemRef;
  unsigned nOld = r->nBlockSize;
  unsigned char* p;
  if (r->bOwnsData) {
    p = (unsigned char*)MemRealloc(r->pData, nSize);
  } else {
    // Memory of a caller: the block grows into a copy of our own.
    p = (unsigned char*)MemRealloc(nullptr, nSize);
    if (p && r->pData) memcpy(p, r->pData, nOld < nSize ? nOld : nSize);
    if (!r->pData) nOld = 0;
  }
  if (!p) {
    KLog(KLOG_ASSERT, "Unable to allocate memory (", KStr(nSize), ")");
    // The record drops the block; release it rather than leak it, and let
    // no view keep a size over the missing block.
    InstallBlock(nullptr, 0);
    ResetViews(0);
    KMEM_THROW();
  }
  r->pData = p;
  r->nBlockSize = nSize;
  r->bOwnsData = 1;
  if (nSize > nOld) memset(p + nOld, 0, nSize - nOld);

  if (m_nOffset >= nSize) m_nOffset = nSize - 1;
  if (m_nStartOffset >= nSize) m_nStartOffset = nSize - 1;
  m_nAllocatedSize = nSize;

  // The other views must not reach past a block that shrank under them.
  if (r->memList.Count() > 1) {
    for (int i = 0; i < r->memList.Count(); ++i) {
      CKMem* v = r->memList.Get(i);
      if (v == this || v->m_nAllocatedSize <= nSize) continue;
      v->m_nAllocatedSize = nSize;
      if (v->m_nOffset >= nSize) v->m_nOffset = nSize - 1;
      if (v->m_nStartOffset >= nSize) v->m_nStartOffset = nSize - 1;
    }
  }
  return 1;
}

int CKMem::EnsureBufferSize(unsigned n) {
  if (m_nAllocatedSize >= n) return 1;
  return SetSize(n);
}

int CKMem::Memcpy(const unsigned char* p, unsigned nLenToCopy) {
  if (nLenToCopy == 0) return 1;
  KASSERT_RETV(p, 0);
  KASSERT_RETV_T(Room() >= nLenToCopy, "m_nAllocatedSize-m_nOffset-m_nStartOffset >= nLenToCopy", 0);
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  memmove(Data() + m_nStartOffset + m_nOffset, p, nLenToCopy);
  return 1;
}

int CKMem::Memcpy(const CKMem& memSrc, unsigned nLenToCopy) {
  if (nLenToCopy == 0) return 1;
  KASSERT_RETV_T(nLenToCopy <= memSrc.Room(),
                 "nLenToCopy<=(memSrc.m_nAllocatedSize-memSrc.m_nOffset-memSrc.m_nStartOffset)", 0);
  KASSERT_RETV_T(memSrc.Data(), "memSrc.m_pMemRef->pData", 0);
  KASSERT_RETV_T(Room() >= nLenToCopy, "m_nAllocatedSize-m_nOffset-m_nStartOffset >= nLenToCopy", 0);
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  memmove(Data() + m_nStartOffset + m_nOffset,
          memSrc.Data() + memSrc.m_nStartOffset + memSrc.m_nOffset, nLenToCopy);
  return 1;
}

int CKMem::Memcmp(const CKMem& memSrc, unsigned nLenToCmp) const {
  if (nLenToCmp == 0) return 0;
  if (!Data() && !memSrc.Data()) return 0;
  KASSERT_RETV_T(nLenToCmp <= memSrc.Room(),
                 "nLenToCmp<=(memSrc.m_nAllocatedSize-memSrc.m_nOffset-memSrc.m_nStartOffset)", 0);
  KASSERT_RETV_T(memSrc.Data(), "memSrc.m_pMemRef->pData", 0);
  KASSERT_RETV_T(Room() >= nLenToCmp, "m_nAllocatedSize-m_nOffset-m_nStartOffset >= nLenToCmp", 0);
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  int n = memcmp(Data() + m_nStartOffset + m_nOffset,
                 memSrc.Data() + memSrc.m_nStartOffset + memSrc.m_nOffset, nLenToCmp);
  return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

unsigned CKMem::GetLength() const { return m_nOffset; }

int CKMem::SetValue(const void* pValue, size_t nValueSize, unsigned n) {
  if (!SetSize(n)) return 0;
  m_nStartOffset = 0;
  if (n == 0) return 1;
  unsigned char* p = Data();
  KASSERT_RETV_T(p, "m_pMemRef->pData", 0);
  size_t nCopy = n < nValueSize ? n : nValueSize;
  memmove(p, pValue, nCopy);
  if (n > nCopy) memset(p + nCopy, 0, n - nCopy);
  return 1;
}

int CKMem::Set(void* p, unsigned n) {
  KASSERT_RETV(p || !n, 0);
  const unsigned char* pSrc = (const unsigned char*)p;
  const unsigned char* pBlock = Data();
  if (!n || !pBlock || pSrc < pBlock || pSrc >= pBlock + m_pMemRef->nBlockSize)
    return SetValue(p, n, n);
  // Bytes of our own block: resizing may move them, so take them out first.
  unsigned nAvail = m_pMemRef->nBlockSize - (unsigned)(pSrc - pBlock);
  if (nAvail > n) nAvail = n;
  unsigned char* pTemp = (unsigned char*)MemRealloc(nullptr, nAvail);
  if (!pTemp) KMEM_THROW();
  memcpy(pTemp, pSrc, nAvail);
  int bOk;
  try {
    bOk = SetValue(pTemp, nAvail, n);
  } catch (...) {
    free(pTemp);
    throw;
  }
  free(pTemp);
  return bOk;
}

int CKMem::Set(double v, unsigned n) { return SetValue(&v, sizeof(v), n); }

int CKMem::Set(int v, unsigned n) { return SetValue(&v, sizeof(v), n); }

int CKMem::Set(unsigned int v, unsigned n) { return SetValue(&v, sizeof(v), n); }

int CKMem::Set(__int64 v, unsigned n) { return SetValue(&v, sizeof(v), n); }

void CKMem::SetEmpty() { m_nOffset = 0; }

void CKMem::IncreaseOffset(unsigned n) { m_nOffset += n; }

void CKMem::DecreaseOffset(unsigned n) { m_nOffset = n > m_nOffset ? 0 : m_nOffset - n; }

unsigned CKMem::Offset() const { return m_nOffset; }

// Compacts in place; the bytes after the live data keep whatever they held.
int CKMem::ResetStartPosition() {
  if (m_nStartOffset == 0) return 1;
  unsigned char* p = Data();
  unsigned nLimit = Limit();
  if (p && m_nStartOffset < nLimit) memmove(p, p + m_nStartOffset, nLimit - m_nStartOffset);
  m_nStartOffset = 0;
  return 1;
}

unsigned char* CKMem::GetFromStart(unsigned nOffset, unsigned n) {
  if (nOffset == 0 && n == 0) return Data();
  KASSERT_RETV_T((uint64_t)nOffset + m_nStartOffset <= m_nAllocatedSize,
                 "nOffset <= m_nAllocatedSize-m_nStartOffset", nullptr);
  if ((uint64_t)m_nStartOffset + nOffset + n > Limit()) {
    ResetStartPosition();
    uint64_t nWant = (uint64_t)nOffset + n;
    if (nWant > Limit()) {
      if (!SetSize(nWant > 0xFFFFFFFFu ? 0xFFFFFFFFu : (unsigned)nWant)) return nullptr;
      // A fake only records sizes: the caller's memory may still be short.
      KASSERT_RETV_T(nWant <= Limit(), "nOffset+n <= m_nAllocatedSize-m_nStartOffset", nullptr);
    }
  }
  unsigned char* p = Data();
  return p ? p + m_nStartOffset + nOffset : nullptr;
}

unsigned char* CKMem::GetFromStart(unsigned n) {
  if (n > Room()) {
    ResetStartPosition();
    if (n > Room()) {
      uint64_t nWant = (uint64_t)n + m_nOffset - m_nStartOffset;
      if (!SetSize(nWant > 0xFFFFFFFFu ? 0xFFFFFFFFu : (unsigned)nWant)) return nullptr;
      // A fake only records sizes: the caller's memory may still be short.
      KASSERT_RETV_T(n <= Room(), "m_nAllocatedSize-m_nOffset-m_nStartOffset >= n", nullptr);
    }
  }
  unsigned char* p = Data();
  return p ? p + m_nStartOffset + m_nOffset : nullptr;
}

unsigned char* CKMem::Detach() {
  KASSERT_RETV(m_pMemRef, nullptr);
  CMemRef* r = m_pMemRef;
  unsigned char* p = r->pData;
  if (p && !r->bOwnsData) {
    // A caller's memory cannot be handed out to be freed: hand out a copy.
    unsigned n = m_nAllocatedSize;
    unsigned nCopy = Limit();
    p = (unsigned char*)MemRealloc(nullptr, n ? n : 1);
    if (!p) KMEM_THROW();
    memcpy(p, r->pData, nCopy);
    if (n > nCopy) memset(p + nCopy, 0, n - nCopy);
  }
  r->pData = nullptr;
  r->nBlockSize = 0;
  r->bOwnsData = 1;
  ResetViews(0);
  return p;
}

void CKMem::Attach(void* p, unsigned n) {
  KASSERT_RET(m_pMemRef);
  if (!p) n = 0;
  InstallBlock((unsigned char*)p, n);
  ResetViews(n);
}

unsigned CKMem::Fread(unsigned nEltSize, unsigned nEltCount, FILE* fp) {
  uint64_t nBytes = (uint64_t)nEltSize * nEltCount;
  KASSERT_RETV_T(nBytes <= Room(),
                 "nEltSize * nEltCount <= (m_nAllocatedSize-m_nOffset-m_nStartOffset)", 0xFFFFFFFFu);
  KASSERT_RETV(fp, 0xFFFFFFFFu);
  if (nBytes == 0) return 0;
  return (unsigned)fread(Data() + m_nStartOffset + m_nOffset, nEltSize, nEltCount, fp);
}

unsigned CKMem::Fwrite(unsigned nEltSize, unsigned nEltCount, FILE* fp) const {
  uint64_t nBytes = (uint64_t)nEltSize * nEltCount;
  KASSERT_RETV_T(nBytes <= Room(),
                 "nEltSize * nEltCount <= (m_nAllocatedSize-m_nOffset-m_nStartOffset)", 0xFFFFFFFFu);
  KASSERT_RETV(fp, 0xFFFFFFFFu);
  if (nBytes == 0) return 0;
  return (unsigned)fwrite(Data() + m_nStartOffset + m_nOffset, nEltSize, nEltCount, fp);
}

unsigned CKMem::Size() const { return m_nAllocatedSize; }

// Never grows: callers reserve room first (GetFromStart, EnsureBufferSize),
// so that a run of small writes costs no growth checks.
unsigned CKMem::Write(void* pValue, unsigned nLenToWrite) {
  if (nLenToWrite == 0) return 1;
  KASSERT_RETV(pValue, 0);
  KASSERT_RETV_T(Room() >= nLenToWrite, "m_nAllocatedSize-m_nOffset-m_nStartOffset >= nLenToWrite", 0);
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  memmove(Data() + m_nStartOffset + m_nOffset, pValue, nLenToWrite);
  m_nOffset += nLenToWrite;
  return 1;
}

void CKMem::IncreasePos(unsigned n) {
  if (n > m_nOffset) {
    KASSERT(FALSE);
    m_nOffset = n;
  }
  m_nOffset -= n;
  m_nStartOffset += n;
}

void CKMem::DecreasePos(unsigned n) {
  if (n > m_nStartOffset) {
    KASSERT(FALSE);
    n = m_nStartOffset;
  }
  m_nStartOffset -= n;
}

int CKMem::Copy(const CKMem& src) {
  if (this == &src) return 1;
  m_nOption = src.m_nOption;
  // A view of src's own block would copy onto itself: take a block of our own.
  if (m_pMemRef && m_pMemRef == src.m_pMemRef) {
    Free();
    EnsureMemRef();
  }
  if (!SetSize(src.m_nAllocatedSize)) return 0;
  if (m_nAllocatedSize) {
    m_nOffset = src.m_nOffset;
    m_nStartOffset = src.m_nStartOffset;
    unsigned n = Limit();
    unsigned nSrc = src.Limit();
    if (nSrc < n) n = nSrc;
    if (n && Data() && src.Data()) memcpy(Data(), src.Data(), n);
  }
  return 1;
}

CKMem CKMem::operator+(unsigned nOffset) const {
  KASSERT(m_pMemRef);
  KASSERT(nOffset < m_nAllocatedSize);
  if (!m_pMemRef) return CKMem();
  return CKMem(*m_pMemRef, nOffset, m_nStartOffset, m_nAllocatedSize);
}

CKMem CKMem::operator-(unsigned n) const {
  KASSERT(m_pMemRef);
  if (!m_pMemRef) return CKMem();
  return CKMem(*m_pMemRef, n > m_nOffset ? 0 : m_nOffset - n, m_nStartOffset, m_nAllocatedSize);
}

CKMem& CKMem::operator+=(const CKMem& mem) {
  uint64_t nEnd = (uint64_t)mem.m_nStartOffset + mem.m_nOffset;
  KASSERT_RETV_T(nEnd <= mem.Limit(), "mem.m_nStartOffset+mem.m_nOffset<=mem.m_nAllocatedSize",
                 *this);
  unsigned n = mem.m_nOffset;
  if (n == 0) return *this;
  KASSERT_RETV_T(mem.Data(), "mem.m_pMemRef->pData", *this);
  // Making room may move or compact a shared block: take the bytes out first.
  unsigned char* pTemp = nullptr;
  if (mem.m_pMemRef == m_pMemRef) {
    pTemp = (unsigned char*)MemRealloc(nullptr, n);
    if (!pTemp) KMEM_THROW();
    memcpy(pTemp, mem.Data() + mem.m_nStartOffset, n);
  }
  unsigned char* pDst;
  try {
    pDst = GetFromStart(n);
  } catch (...) {
    free(pTemp);
    throw;
  }
  if (pDst) {
    memcpy(pDst, pTemp ? pTemp : mem.Data() + mem.m_nStartOffset, n);
    m_nOffset += n;
  }
  free(pTemp);
  return *this;
}

void CKMem::Detach(CKMem& dst) {
  if (&dst == this) return;
  unsigned nSize = m_nAllocatedSize;
  unsigned nOffset = m_nOffset;
  unsigned nStart = m_nStartOffset;
  if (m_pMemRef && dst.m_pMemRef == m_pMemRef) {
    // Already a view of this block: dst simply takes this view's place.
    dst.m_nAllocatedSize = nSize;
    dst.m_nOffset = nOffset;
    dst.m_nStartOffset = nStart;
    Free();
    EnsureMemRef();
    return;
  }
  unsigned char* p = Detach();
  if (!p && nSize) return;  // refused and reported
  dst.Attach(p, nSize);
  dst.m_nOffset = nOffset;
  dst.m_nStartOffset = nStart;
}

// Compresses the first nLen bytes in place. Data shorter than nMinSize, or
// that does not get smaller, stays as it is (result 1, *pbZipped 0).
int CKMem::Zip(unsigned nLen, int nLevel, unsigned nMinSize, int* pbZipped) {
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  KASSERT_RETV(m_pMemRef->memList.Count()==1, 0);
  KASSERT_RETV(m_nStartOffset==0, 0);
  if (pbZipped) *pbZipped = 0;
  if (nLen == 0) return 0;
  if (nLen < nMinSize) return 1;
  KASSERT_RETV_T(nLen <= Limit(), "nLen<=m_nAllocatedSize", 0);

  uLongf nOut = nLen / 1000 + nLen + 12;
  uLong nBound = compressBound(nLen);
  if (nOut < nBound) nOut = nBound;
  unsigned char* pOut = (unsigned char*)MemRealloc(nullptr, nOut);
  if (!pOut) KMEM_THROW();
  int rc = compress2(pOut, &nOut, Data(), nLen, nLevel);
  if (rc != Z_OK) {
    free(pOut);
    KLog(KLOG_ASSERT, "CKMem::Zip: compress2 failed (", KStr(rc), ")");
    return 0;
  }
  if (nOut < nLen) {
    unsigned char* p = (unsigned char*)MemRealloc(pOut, nOut);
    if (!p) {
      free(pOut);
      KMEM_THROW();
    }
    InstallBlock(p, (unsigned)nOut);
    m_nAllocatedSize = (unsigned)nOut;
    if (pbZipped) *pbZipped = 1;
  } else {
    free(pOut);
  }
  return 1;
}

// Expands nLen compressed bytes in place. Bytes that are not a zlib stream
// are taken as already expanded: result 1 with *pbUnzipped 0.
int CKMem::Unzip(unsigned nLen, int* pbUnzipped) {
  KASSERT_RETV_T(Data(), "m_pMemRef->pData", 0);
  KASSERT_RETV(m_pMemRef->memList.Count()==1, 0);
  KASSERT_RETV(m_nStartOffset==0, 0);
  if (pbUnzipped) *pbUnzipped = 0;
  KASSERT_RETV_T(nLen <= Limit(), "nLen<=m_nAllocatedSize", 0);
  if (nLen == 0) return 1;

  // No buffer may exceed the size limit, the expanded one included.
  size_t nOutSize = (size_t)nLen * 2 < KMEM_SIZE_MAX ? (size_t)nLen * 2 : KMEM_SIZE_MAX;
  unsigned char* pOut = (unsigned char*)MemRealloc(nullptr, nOutSize);
  if (!pOut) KMEM_THROW();
  for (;;) {
    uLongf nOut = nOutSize;
    int rc = uncompress(pOut, &nOut, Data(), nLen);
    if (rc == Z_OK) {
      if (pbUnzipped) *pbUnzipped = 1;
      unsigned char* p = nullptr;
      if (nOut == 0) {
        free(pOut);
      } else {
        p = (unsigned char*)MemRealloc(pOut, nOut);
        if (!p) {
          free(pOut);
          KMEM_THROW();
        }
      }
      InstallBlock(p, (unsigned)nOut);
      m_nAllocatedSize = (unsigned)nOut;
      return 1;
    }
    if (rc == Z_BUF_ERROR) {
      KLog("Z_BUF_ERROR");
      if (nOutSize >= KMEM_SIZE_MAX) {
        // The expanded data could never fit in a buffer.
        free(pOut);
        KLog(KLOG_ASSERT, "CKMem::Unzip: expanded data exceeds the buffer limit");
        return 0;
      }
      nOutSize = nOutSize * 2 < KMEM_SIZE_MAX ? nOutSize * 2 : KMEM_SIZE_MAX;
      unsigned char* p = (unsigned char*)MemRealloc(pOut, nOutSize);
      if (!p) {
        free(pOut);
        KMEM_THROW();
      }
      pOut = p;
      continue;
    }
    free(pOut);
    if (rc == Z_MEM_ERROR) return 0;
    if (rc == Z_DATA_ERROR) return 1;
    KMEM_REFUSE(0);
  }
}

// ---------------------------------------------------------------- CKMemFake
CKMemFake::CKMemFake() : CKMem(KNoRef()) { Wrap(nullptr, 0, 0); }

CKMemFake::CKMemFake(const void* p, unsigned n) : CKMem(KNoRef()) { Wrap(p, n, n); }

CKMemFake::CKMemFake(const CKMemFake& mem) : CKMem(KNoRef()) {
  Wrap(nullptr, 0, 0);
  Copy(mem);
}

CKMemFake& CKMemFake::operator=(const CKMemFake& mem) {
  Copy(mem);
  return *this;
}

CKMemFake::~CKMemFake() {
  Free();
  ReleaseEmbedded();
}

// nBlock is the length of the caller's memory, which no size recorded later
// extends: reads and writes stop there.
void CKMemFake::Wrap(const void* p, unsigned n, unsigned nBlock) {
  // The record's pointer is writable because the library's own blocks are;
  // the caller's memory is written only through the calls the caller makes.
  m_MemRef.pData = const_cast<unsigned char*>(static_cast<const unsigned char*>(p));
  m_MemRef.nBlockSize = p ? nBlock : 0;
  m_MemRef.bOwnsData = 0;
  m_MemRef.bEmbedded = 1;
  Register(&m_MemRef);
  m_nAllocatedSize = n;
  m_nOffset = 0;
  m_nStartOffset = 0;
}

// Views still on the embedded record outlive it: they move to a record of
// their own that keeps pointing at the same memory.
void CKMemFake::ReleaseEmbedded() {
  CMemRef& e = m_MemRef;
  if (e.memList.Count() > 0) {
    CMemRef* r = new (std::nothrow) CMemRef;
    if (r) {
      r->pData = e.pData;
      r->nBlockSize = e.nBlockSize;
      r->bOwnsData = e.bOwnsData;
      e.bOwnsData = 0;
    }
    while (e.memList.Count() > 0) {
      CKMem* v = e.memList.Get(0);
      e.memList.Remove(v);
      if (r) {
        v->m_pMemRef = r;
        r->memList.Add(v);
      } else {
        v->m_pMemRef = nullptr;
        v->m_nAllocatedSize = v->m_nOffset = v->m_nStartOffset = 0;
      }
    }
  }
  if (e.bOwnsData) free(e.pData);
  e.pData = nullptr;
  e.nBlockSize = 0;
  e.bOwnsData = 0;
}

int CKMemFake::SetSize(unsigned nSize) {
  // Once the bytes live in a block of the library's own (a view grew it, or
  // Attach, Zip or an assignment replaced it), that block grows for real.
  if (m_pMemRef != &m_MemRef || m_MemRef.bOwnsData) return CKMem::SetSize(nSize);
  m_nAllocatedSize = nSize;
  return 1;
}

unsigned char* CKMemFake::Detach() { KMEM_REFUSE(nullptr); }

int CKMemFake::EnsureBuffer(unsigned n) {
  (void)n;
  KMEM_REFUSE(0);
}

int CKMemFake::Copy(const CKMemFake& mem) {
  if (this == &mem) return 1;
  m_nOption = mem.m_nOption;
  if (mem.m_pMemRef && mem.m_pMemRef == m_pMemRef) {
    m_nAllocatedSize = mem.m_nAllocatedSize;
    m_nOffset = m_nStartOffset = 0;
    return 1;
  }
  Free();
  ReleaseEmbedded();  // may move mem, a view of ours, to a record of its own
  CMemRef* r = mem.m_pMemRef;
  if (r && r->pData && r->bOwnsData) {
    // A block of the library's own (mem grew, unzipped or was attached to)
    // dies with its last view: share it instead of pointing into it.
    Register(r);
    m_nAllocatedSize = mem.m_nAllocatedSize;
    m_nOffset = m_nStartOffset = 0;
  } else {
    Wrap(mem.Data(), mem.m_nAllocatedSize, r ? r->nBlockSize : 0);
  }
  return 1;
}
