// CKString: copy-on-write 8-bit string on a counted block.
#define KSRC_PATH "src/KString"

#include <base/tools/KString.h>

#include <atomic>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KListUtil.h"
#include "KStringPool.h"
#include "platform/KPlatform.h"

namespace {

// Longest text a block may hold: lengths stay within the signed indexes of
// the interface, capacities within 32 bits.
const uint32_t kMaxLength = 0x7FFFF000u;

// The one shared empty representation: length 0, capacity 0, count 1.
struct KStringNil {
  KStringData hdr;
  char chNil[4];
};
KStringNil g_nil = {{0, 0, 1}, {0, 0, 0, 0}};
char* const g_pchNil = g_nil.chNil;

static_assert(sizeof(KStringData) == 12, "the header is three 32-bit words");
static_assert(sizeof(CKString) == sizeof(char*), "a string is one pointer");

// Heap exhaustion, and sizes no block can have: logged, then thrown.
[[noreturn]] void NoMemory(uint64_t nBytes, unsigned nLine) {
  // The log line needs strings too; a failure while logging only throws.
  static thread_local bool s_bLogging = false;
  if (!s_bLogging) {
    struct Guard {
      Guard() { s_bLogging = true; }
      ~Guard() { s_bLogging = false; }
    } guard;
    char szSize[32];
    KStr((__int64)nBytes, szSize, 10);
    KLog(KLOG_ASSERT, "Unable to allocate memory (", szSize, ")");
  }
  throw CKMemoryException(KSRC_PATH, nLine);
}

// a + b characters, refused beyond kMaxLength.
inline uint32_t LenSum(uint64_t a, uint64_t b) {
  if (a + b > kMaxLength) NoMemory(a + b + 1, __LINE__);
  return (uint32_t)(a + b);
}

KStringData* NewBlock(uint32_t nCapacity) {
  KStringData* p = (KStringData*)malloc(sizeof(KStringData) + nCapacity);
  if (!p) NoMemory(sizeof(KStringData) + (uint64_t)nCapacity, __LINE__);
  p->nAllocLength = nCapacity;
  p->nRefs = 1;
  return p;
}

// The test behind IsStaticEmpty, which the library's own calls (an exported
// member) would otherwise make out of line.
inline bool IsNil(const char* p) { return p == g_pchNil; }

bool IsWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A private heap block with d's text, sized as a copy made before a write.
char* HeapCopy(const KStringData* d) {
  KStringData* q = NewBlock(CKString::CapacityFor(d->nDataLength));
  q->nDataLength = d->nDataLength;
  memcpy(q->data(), (const char*)(d + 1), d->nDataLength + 1);
  return q->data();
}

}  // namespace

// ---------------------------------------------------------------- pool
// Chunks are carved front to back; a text too long for a chunk's share gets
// a chunk of its own. Holds are atomic: a pooled string may end on another
// thread than the decoder that made it.
struct KStringPool {
  struct alignas(8) Chunk {  // keeps what follows 8-aligned
    Chunk* pNext;
  };
  std::atomic<size_t> nHolds{1};
  Chunk* pChunks = nullptr;
  char* pCur = nullptr;
  char* pEnd = nullptr;
  size_t nNext = 64 * 1024;  // bytes of the next shared chunk
};

namespace {

const size_t kPoolHead = sizeof(KStringPool*) + sizeof(KStringData);
const size_t kPoolBig = 16 * 1024;  // longer texts get a chunk of their own
const size_t kPoolMaxChunk = 1024 * 1024;

KStringPool*& PoolOf(KStringData* d) { return *((KStringPool**)(void*)d - 1); }

char* NewChunk(KStringPool* pool, size_t nBytes) {
  const size_t nAll = sizeof(KStringPool::Chunk) + nBytes;
  KStringPool::Chunk* c = (KStringPool::Chunk*)malloc(nAll);
  if (!c) NoMemory(nAll, __LINE__);
  c->pNext = pool->pChunks;
  pool->pChunks = c;
  return (char*)(c + 1);
}

void PoolDrop(KStringPool* pool) {
  if (pool->nHolds.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  for (KStringPool::Chunk* c = pool->pChunks; c;) {
    KStringPool::Chunk* pNext = c->pNext;
    free(c);
    c = pNext;
  }
  delete pool;
}

}  // namespace

void* kstr::PoolRaw(KStringPool* pool, size_t n) {
  const size_t nBytes = (n + 7) / 8 * 8;
  char* p = (char*)(((uintptr_t)pool->pCur + 7) & ~(uintptr_t)7);
  if (!pool->pCur || (size_t)(pool->pEnd - pool->pCur) < nBytes + 8) {
    p = NewChunk(pool, pool->nNext);  // malloc's alignment covers 8
    pool->pEnd = p + pool->nNext;
    if (pool->nNext < kPoolMaxChunk) pool->nNext *= 2;
  }
  pool->pCur = p + nBytes;
  return p;
}

struct KStringPoolAccess {
  static void Set(CKString& s, char* p) {
    s.Release();
    s.m_pchData = p;
  }
};

KStringPool* kstr::PoolNew() {
  KStringPool* p = new (std::nothrow) KStringPool;
  if (!p) NoMemory(sizeof(KStringPool), __LINE__);
  return p;
}

void kstr::PoolRelease(KStringPool* pPool) {
  if (pPool) PoolDrop(pPool);
}

char* kstr::PoolCarve(KStringPool* pool, CKString& s, uint32_t n) {
  LenSum(n, 0);
  const size_t a = sizeof(KStringPool*);
  const size_t nBytes = (kPoolHead + n + 1 + a - 1) / a * a;
  char* pBlock;
  if (nBytes > kPoolBig) {
    pBlock = NewChunk(pool, nBytes);
  } else {
    if ((size_t)(pool->pEnd - pool->pCur) < nBytes) {
      pool->pCur = NewChunk(pool, pool->nNext);
      pool->pEnd = pool->pCur + pool->nNext;
      if (pool->nNext < kPoolMaxChunk) pool->nNext *= 2;
    }
    pBlock = pool->pCur;
    pool->pCur += nBytes;
  }
  KStringData* d = (KStringData*)(pBlock + sizeof(KStringPool*));
  PoolOf(d) = pool;
  d->nDataLength = n;
  d->nAllocLength = CKString::CapacityFor(n);  // what a heap block of n would report
  d->nRefs = 0;
  d->data()[n] = 0;
  // Only the decoding thread knows the pool while it is being filled.
  pool->nHolds.store(pool->nHolds.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  KStringPoolAccess::Set(s, d->data());
  return d->data();
}

uint32_t CKString::CapacityFor(uint32_t n) {
  if (n <= 31) return 32;
  if (n <= 63) return 64;
  if (n <= 127) return 128;
  if (n <= 255) return 256;
  if (n <= 511) return 512;
  if (n <= 1023) return 1024;
  return ((n + 1) + 1023) / 1024 * 1024;
}

// ---------------------------------------------------------------- lifetime
bool CKString::IsStaticEmpty() const { return m_pchData == g_pchNil; }

void CKString::Init() { m_pchData = g_pchNil; }

void CKString::Release() {
  if (!IsNil(m_pchData)) {
    KStringData* p = GetData();
    const uint32_t n = p->nRefs;
    if (n > 1)
      p->nRefs = n - 1;
    else if (n == 1)
      free(p);
    else
      PoolDrop(PoolOf(p));
    m_pchData = g_pchNil;
  }
}

// Fresh private block for n characters (length n, terminator written).
void CKString::AllocBuffer(uint32_t n) {
  LenSum(n, 0);
  KStringData* p = NewBlock(CapacityFor(n));
  p->nDataLength = n;
  p->data()[n] = 0;
  m_pchData = p->data();
}

void CKString::CopyBeforeWrite() {
  if (IsNil(m_pchData)) return;
  // Shared or pooled: the text moves to a private heap block.
  KStringData* p = GetData();
  if (p->nRefs != 1) {
    char* q = HeapCopy(p);
    Release();
    m_pchData = q;
  }
}

namespace {

// A private block grown to nBytes (null when the heap refuses). Small blocks
// move through malloc and free, whose per-thread caches make that cheaper
// than realloc. Larger ones grow in place when the heap allows and are asked
// for geometrically (the recorded capacity still follows the rule), so that
// a long run of appends moves its text a logarithmic number of times.
KStringData* Regrow(KStringData* p, size_t nBytes) {
  if (nBytes <= 1024) {
    KStringData* q = (KStringData*)malloc(nBytes);
    if (q) {
      memcpy((void*)q, p, sizeof(KStringData) + p->nDataLength + 1);
      free(p);
    }
    return q;
  }
  const size_t nMax = sizeof(KStringData) + (size_t)CKString::CapacityFor(kMaxLength);
  return (KStringData*)klist::GrowBlock(p, nBytes, nMax);
}

}  // namespace

void CKString::Reserve(uint32_t n) {
  LenSum(n, 0);
  if (m_pchData == g_pchNil) {
    AllocBuffer(n);
    GetData()->nDataLength = 0;
    m_pchData[0] = 0;
    return;
  }
  KStringData* p = GetData();
  if (p->nRefs != 1) {
    uint32_t nLen = p->nDataLength;
    KStringData* q = NewBlock(CapacityFor(n > nLen ? n : nLen));
    q->nDataLength = nLen;
    memcpy(q->data(), p->data(), nLen + 1);
    Release();
    m_pchData = q->data();
    return;
  }
  if (n + 1 > p->nAllocLength) {
    uint32_t nCap = CapacityFor(n);
    KStringData* q = Regrow(p, sizeof(KStringData) + nCap);
    if (!q) NoMemory(sizeof(KStringData) + (uint64_t)nCap, __LINE__);
    q->nAllocLength = nCap;
    m_pchData = q->data();
  }
}

// Replaces the text by n characters of p; p may point into this string.
void CKString::AssignCopy(uint32_t n, const char* p) {
  if (n == 0) {
    // Keep a private block (length 0); share-nothing otherwise.
    if (!IsNil(m_pchData) && GetData()->nRefs == 1) {
      GetData()->nDataLength = 0;
      m_pchData[0] = 0;
    } else {
      Release();
    }
    return;
  }
  if (!IsNil(m_pchData) && GetData()->nRefs == 1 && n + 1 <= GetData()->nAllocLength) {
    memmove(m_pchData, p, n);
  } else {
    char* pOld = m_pchData;
    AllocBuffer(n);
    memcpy(m_pchData, p, n);
    CKString tmp;
    tmp.m_pchData = pOld;  // releases the old block after the copy
  }
  GetData()->nDataLength = n;
  m_pchData[n] = 0;
}

void CKString::Append(uint32_t n, const char* p) {
  if (n == 0) return;
  KStringData* d = GetData();
  uint32_t nLen = d->nDataLength;
  // Private block with room: the common case of a run of appends. (The empty
  // representation has capacity 0 and never takes this path.)
  if (d->nRefs == 1 && (uint64_t)nLen + n < d->nAllocLength) {
    memmove(m_pchData + nLen, p, n);
    d->nDataLength = nLen + n;
    m_pchData[nLen + n] = 0;
    return;
  }
  if (m_pchData == g_pchNil) {
    // The first text of an empty string: a block of its own.
    AllocBuffer(n);
    memcpy(m_pchData, p, n);
    return;
  }
  // p may lie inside our own block, which Reserve may move.
  if (p >= m_pchData && p <= m_pchData + nLen) {
    size_t nOff = (size_t)(p - m_pchData);
    Reserve(LenSum(nLen, n));
    p = m_pchData + nOff;
  } else {
    Reserve(LenSum(nLen, n));
  }
  memmove(m_pchData + nLen, p, n);
  GetData()->nDataLength = nLen + n;
  m_pchData[nLen + n] = 0;
}

CKString::CKString() { Init(); }

CKString::CKString(const CKString& s) {
  m_pchData = s.m_pchData;
  if (!IsNil(m_pchData)) {
    KStringData* d = GetData();
    if (d->nRefs)
      ++d->nRefs;
    else
      m_pchData = HeapCopy(d);
  }
}

CKString::CKString(const char* s) {
  Init();
  if (s && *s) {
    uint32_t n = LenSum(strlen(s), 0);
    AllocBuffer(n);
    memcpy(m_pchData, s, n);
  }
}

CKString::CKString(const unsigned char* s) : CKString((const char*)s) {}

CKString::CKString(const CString& s) {
  Init();
  if (!s.empty()) {
    AllocBuffer(LenSum(s.size(), 0));
    memcpy(m_pchData, s.data(), s.size());
  }
}

CKString::CKString(char c) {
  Init();
  AllocBuffer(1);
  m_pchData[0] = c;
}

CKString::~CKString() { Release(); }

CKString& CKString::operator=(const CKString& s) {
  if (m_pchData != s.m_pchData) {
    char* pNew = s.m_pchData;
    if (pNew != g_pchNil) {
      KStringData* d = ((KStringData*)pNew) - 1;
      if (d->nRefs)
        ++d->nRefs;
      else
        pNew = HeapCopy(d);
    }
    Release();
    m_pchData = pNew;
  }
  return *this;
}

CKString& CKString::operator=(const char* s) {
  AssignCopy(s ? LenSum(strlen(s), 0) : 0, s);
  return *this;
}

CKString& CKString::operator=(const unsigned char* s) { return *this = (const char*)s; }

CKString& CKString::operator=(char c) {
  AssignCopy(1, &c);
  return *this;
}

CKString& CKString::operator=(const CString& s) {
  AssignCopy(LenSum(s.size(), 0), s.data());
  return *this;
}

CKString::operator CString() const { return CString(m_pchData, GetLength()); }

// ---------------------------------------------------------------- concatenation
CKString& CKString::operator+=(const CKString& s) {
  Append(s.GetLength(), s.m_pchData);
  return *this;
}

CKString& CKString::operator+=(const char* s) {
  if (!s || !*s) return *this;
  const size_t n = strlen(s);
  // A private block with room: copy in place (s may be part of this text).
  char* p = m_pchData;
  KStringData* d = (KStringData*)p - 1;
  const uint32_t nLen = d->nDataLength;
  if (d->nRefs == 1 && nLen + (uint64_t)n < d->nAllocLength) {
    memmove(p + nLen, s, n);
    p[nLen + n] = 0;
    d->nDataLength = nLen + (uint32_t)n;
    return *this;
  }
  Append(LenSum(n, 0), s);
  return *this;
}

namespace {

// One character into a private block with room; false when there is none.
// The text and header are read once: stores through char* may alias them.
inline bool PutChar(char* p, char c) {
  KStringData* d = (KStringData*)p - 1;
  const uint32_t nLen = d->nDataLength;
  if (d->nRefs != 1 || nLen + 1 >= d->nAllocLength) return false;
  p[nLen] = c;
  p[nLen + 1] = 0;
  d->nDataLength = nLen + 1;
  return true;
}

// The growing case, out of line so that the common one needs no frame.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
CKString& AppendCharSlow(CKString& s, char c) {
  const char sz[2] = {c, 0};
  s.KConcatInPlace(1, sz);
  return s;
}

}  // namespace

CKString& CKString::operator+=(char c) {
  if (PutChar(m_pchData, c)) return *this;
  return AppendCharSlow(*this, c);
}

CKString& CKString::operator+=(const CString& s) {
  Append(LenSum(s.size(), 0), s.data());
  return *this;
}

void CKString::KConcatInPlace(unsigned n, const char* p) {
  if (n == 0 || !p) return;
  Append(n, p);
}

void CKString::KConcatInPlace(char c) {
  if (!PutChar(m_pchData, c)) AppendCharSlow(*this, c);
}

static CKString Concat(const char* a, uint32_t na, const char* b, uint32_t nb) {
  CKString s;
  if (na + nb == 0) return s;
  char* p = s.GetBuffer(LenSum(na, nb));
  memcpy(p, a, na);
  memcpy(p + na, b, nb);
  s.ReleaseBuffer(na + nb);
  return s;
}

CKString operator+(const CKString& a, const CKString& b) {
  if (b.GetLength() == 0) return a;
  if (a.GetLength() == 0) return b;
  return Concat(a, a.GetLength(), b, b.GetLength());
}

CKString operator+(const CKString& a, const char* b) {
  if (!b || !*b) return a;
  return Concat(a, a.GetLength(), b, LenSum(strlen(b), 0));
}

CKString operator+(const char* a, const CKString& b) {
  if (!a || !*a) return b;
  return Concat(a, LenSum(strlen(a), 0), b, b.GetLength());
}

CKString operator+(const CKString& a, char c) { return Concat(a, a.GetLength(), &c, 1); }

CKString operator+(char c, const CKString& b) { return Concat(&c, 1, b, b.GetLength()); }

CKString operator+(const CKString& a, const CString& b) {
  return Concat(a, a.GetLength(), b.data(), LenSum(b.size(), 0));
}

// ---------------------------------------------------------------- comparison
int CKString::Compare(const char* s) const { return strcmp(m_pchData, s ? s : ""); }

int CKString::CompareNoCase(const char* s) const { return KStrICmp(m_pchData, s ? s : ""); }

bool CKString::operator==(char c) const { return GetLength() == 1 && m_pchData[0] == c; }

bool CKString::operator!=(char c) const { return !(*this == c); }

bool CKString::operator!=(unsigned char* s) const { return !(*this == (const char*)s); }

bool operator==(const CKString& a, const CKString& b) {
  unsigned n = a.GetLength();
  return n == b.GetLength() && memcmp((const char*)a, (const char*)b, n) == 0;
}

bool operator==(const CKString& a, const char* b) {
  if (!b) return a.GetLength() == 0;
  return strcmp(a, b) == 0;
}

bool operator==(const char* a, const CKString& b) { return b == a; }
bool operator!=(const CKString& a, const CKString& b) { return !(a == b); }
bool operator!=(const CKString& a, const char* b) { return !(a == b); }
bool operator!=(const char* a, const CKString& b) { return !(b == a); }

int KStrCompareLengthFirst(const CKString& a, const CKString& b, int bNoCase) {
  unsigned na = a.GetLength(), nb = b.GetLength();
  if (na != nb) return na < nb ? -1 : 1;
  return bNoCase ? KStrICmp(a, b) : strcmp(a, b);
}

// ---------------------------------------------------------------- buffer access
void CKString::Empty() { Release(); }

char CKString::OutOfRange() {
  KAssertReport("i<=GetLength()", KSRC_PATH, __LINE__, KASSERT_RETURN_VALUE);
  return 0;
}

void CKString::SetAt(unsigned i, char c) {
  // Past the text lie the terminator, or the shared empty text: never written.
  KASSERT_RET(i<GetLength());
  CopyBeforeWrite();
  m_pchData[i] = c;
}

char* CKString::GetBuffer(unsigned n) {
  uint32_t nLen = GetLength();
  if (IsNil(m_pchData) && n == 0) return m_pchData;
  Reserve(n > nLen ? n : nLen);
  return m_pchData;
}

char* CKString::GetBufferSetLength(unsigned n) {
  GetBuffer(n);
  if (!IsNil(m_pchData)) {
    GetData()->nDataLength = n;
    m_pchData[n] = 0;
  }
  return m_pchData;
}

void CKString::ReleaseBuffer() {
  if (IsNil(m_pchData)) return;
  CopyBeforeWrite();
  // A caller that wrote over the last byte still gets a terminated text.
  KStringData* d = GetData();
  const char* pEnd = (const char*)memchr(m_pchData, 0, d->nAllocLength);
  uint32_t n = pEnd ? (uint32_t)(pEnd - m_pchData) : d->nAllocLength - 1;
  m_pchData[n] = 0;
  d->nDataLength = n;
}

void CKString::ReleaseBuffer(unsigned n) {
  if (IsNil(m_pchData)) {
    KASSERT(n==0||n==0xFFFFFFFF);
    return;
  }
  // 0xFFFFFFFF (-1) asks for the text's own length, as with the framework
  // string; any other length past the block is refused for it.
  CopyBeforeWrite();
  if (n >= GetData()->nAllocLength) {
    if (n != 0xFFFFFFFFu) KASSERT(n<GetData()->nAllocLength);
    ReleaseBuffer();
    return;
  }
  GetData()->nDataLength = n;
  m_pchData[n] = 0;
}

// ---------------------------------------------------------------- sub-strings
CKString CKString::Mid(unsigned nFirst, unsigned nCount) const {
  if ((int)nFirst < 0) nFirst = 0;
  if ((int)nCount < 0) nCount = 0;
  uint32_t nLen = GetLength();
  if (nFirst >= nLen) return CKString();
  if (nCount > nLen - nFirst) nCount = nLen - nFirst;
  if (nFirst == 0 && nCount == nLen) return *this;
  CKString s;
  if (nCount == 0) return s;
  s.AllocBuffer(nCount);
  memcpy(s.m_pchData, m_pchData + nFirst, nCount);
  return s;
}

CKString CKString::Mid(unsigned nFirst) const {
  if ((int)nFirst < 0) nFirst = 0;
  uint32_t nLen = GetLength();
  return Mid(nFirst, nFirst < nLen ? nLen - nFirst : 0);
}

CKString CKString::Left(unsigned n) const {
  if ((int)n < 0) n = 0;
  if (n >= GetLength()) return *this;
  return Mid(0, n);
}

CKString CKString::Right(unsigned n) const {
  if ((int)n < 0) n = 0;
  uint32_t nLen = GetLength();
  if (n >= nLen) return *this;
  return Mid(nLen - n, n);
}

int CKString::Find(char c) const { return Find(c, 0); }

int CKString::Find(char c, unsigned nStart) const {
  if (nStart >= GetLength()) return -1;
  const char* p = strchr(m_pchData + nStart, c);
  return p ? (int)(p - m_pchData) : -1;
}

int CKString::Find(const char* s) const { return Find(s, 0); }

int CKString::Find(const char* s, unsigned nStart) const {
  if (!s || nStart > GetLength()) return -1;
  const char* p = strstr(m_pchData + nStart, s);
  return p ? (int)(p - m_pchData) : -1;
}

int CKString::ReverseFind(char c) const {
  const char* p = strrchr(m_pchData, c);
  return p ? (int)(p - m_pchData) : -1;
}

int CKString::ReverseFind(char c, unsigned nStart) const {
  uint32_t nLen = GetLength();
  if (nLen == 0) return -1;
  int i = (int)(nStart < nLen ? nStart : nLen - 1);
  for (; i >= 0; --i)
    if (m_pchData[i] == c) return i;
  return -1;
}

int CKString::FindOneOf(const char* szSet) const {
  if (!szSet) return -1;
  const char* p = strpbrk(m_pchData, szSet);
  return p ? (int)(p - m_pchData) : -1;
}

BOOL AfxExtractSubString(CKString& out, const char* szFull, int n, char cSep) {
  if (!szFull) {
    out.Empty();
    return FALSE;
  }
  while (n-- > 0) {
    // A zero separator is the terminator: the text is one field.
    szFull = cSep ? strchr(szFull, cSep) : nullptr;
    if (!szFull) {
      out.Empty();
      return FALSE;
    }
    ++szFull;
  }
  const char* pEnd = cSep ? strchr(szFull, cSep) : nullptr;
  size_t nLen = pEnd ? (size_t)(pEnd - szFull) : strlen(szFull);
  // Built apart: full may be out's own text.
  CKString field;
  if (nLen) memcpy(field.GetBufferSetLength(LenSum(nLen, 0)), szFull, nLen);
  out = field;
  return TRUE;
}

// ---------------------------------------------------------------- modification
int CKString::Insert(unsigned i, char c) {
  char s[2] = {c, 0};
  uint32_t nLen = GetLength();
  if (i > nLen) i = nLen;
  Reserve(LenSum(nLen, 1));
  memmove(m_pchData + i + 1, m_pchData + i, nLen - i + 1);
  m_pchData[i] = s[0];
  GetData()->nDataLength = nLen + 1;
  return (int)(nLen + 1);
}

int CKString::Insert(unsigned i, const char* s) {
  uint32_t nLen = GetLength();
  if (!s || !*s) return (int)nLen;
  uint32_t n = LenSum(strlen(s), 0);
  if (i > nLen) i = nLen;
  // The inserted text may come from this very string.
  CKString tmp;
  if (s >= m_pchData && s <= m_pchData + nLen) {
    tmp = CKString(s);
    s = tmp;
  }
  Reserve(LenSum(nLen, n));
  memmove(m_pchData + i + n, m_pchData + i, nLen - i + 1);
  memcpy(m_pchData + i, s, n);
  GetData()->nDataLength = nLen + n;
  return (int)(nLen + n);
}

int CKString::Delete(unsigned i, unsigned n) {
  uint32_t nLen = GetLength();
  if (n > 0 && i < nLen) {
    // Callers must stay inside the text; a longer count is reported and cut
    // at the end rather than read past the block.
    if (n > nLen - i) {
      KASSERT(n<=GetLength()-i);
      n = nLen - i;
    }
    CopyBeforeWrite();
    memmove(m_pchData + i, m_pchData + i + n, nLen - (i + n) + 1);
    GetData()->nDataLength = nLen - n;
  }
  return (int)nLen;
}

int CKString::Replace(char cOld, char cNew) {
  if (cOld == cNew) return 0;
  uint32_t nLen = GetLength();
  int nCount = 0;
  for (uint32_t i = 0; i < nLen; ++i) {
    if (m_pchData[i] == cOld) {
      if (nCount == 0) CopyBeforeWrite();
      m_pchData[i] = cNew;
      ++nCount;
    }
  }
  return nCount;
}

int CKString::Replace(const char* szOld, const char* szNew) {
  if (!szOld || !*szOld) return 0;
  if (!szNew) szNew = "";
  uint32_t nOld = LenSum(strlen(szOld), 0), nNew = LenSum(strlen(szNew), 0);
  uint32_t nLen = GetLength();
  // Count over the whole length, also past embedded terminators.
  int nCount = 0;
  const char* pStart = m_pchData;
  const char* pEnd = m_pchData + nLen;
  while (pStart < pEnd) {
    const char* p;
    while ((p = strstr(pStart, szOld)) != nullptr) {
      ++nCount;
      pStart = p + nOld;
    }
    pStart += strlen(pStart) + 1;
  }
  if (nCount == 0) return 0;
  // The replacement may alias this string's text.
  CKString tmp;
  if (szNew >= m_pchData && szNew <= pEnd) {
    tmp = CKString(szNew);
    szNew = tmp;
  }
  CKString tmpOld;
  if (szOld >= m_pchData && szOld <= pEnd) {
    tmpOld = CKString(szOld);
    szOld = tmpOld;
  }
  uint32_t nNewLen = LenSum(nLen + (uint64_t)nCount * nNew - (uint64_t)nCount * nOld, 0);
  Reserve(nNewLen > nLen ? nNewLen : nLen);
  char* pS = m_pchData;
  char* pE = m_pchData + nLen;
  while (pS < pE) {
    char* p;
    while ((p = strstr(pS, szOld)) != nullptr) {
      uint32_t nTail = (uint32_t)(pE - (p + nOld));
      memmove(p + nNew, p + nOld, nTail + 1);
      memcpy(p, szNew, nNew);
      pE += (int)nNew - (int)nOld;
      pS = p + nNew;
    }
    pS += strlen(pS) + 1;
  }
  GetData()->nDataLength = nNewLen;
  m_pchData[nNewLen] = 0;
  return nCount;
}

void CKString::TrimLeft() {
  uint32_t nLen = GetLength(), i = 0;
  while (i < nLen && IsWhite(m_pchData[i])) ++i;
  if (i == 0) return;
  CopyBeforeWrite();
  memmove(m_pchData, m_pchData + i, nLen - i + 1);
  GetData()->nDataLength = nLen - i;
}

void CKString::TrimRight() {
  uint32_t nLen = GetLength(), n = nLen;
  while (n > 0 && IsWhite(m_pchData[n - 1])) --n;
  if (n == nLen) return;
  CopyBeforeWrite();
  m_pchData[n] = 0;
  GetData()->nDataLength = n;
}

void CKString::TrimLeft(char c) {
  uint32_t nLen = GetLength(), i = 0;
  while (i < nLen && m_pchData[i] == c) ++i;
  if (i == 0) return;
  CopyBeforeWrite();
  memmove(m_pchData, m_pchData + i, nLen - i + 1);
  GetData()->nDataLength = nLen - i;
}

// Cuts after the last character that differs from c, except when that
// character is the first of the string: then nothing changes. All-c texts
// drop to length 0 and keep their block. Callers rely on this edge.
void CKString::TrimRight(char c) {
  int nLen = (int)GetLength();
  if (nLen == 0) return;
  int i = nLen - 1;
  while (i >= 0 && m_pchData[i] == c) --i;
  if (i == 0 || i == nLen - 1) return;
  CopyBeforeWrite();
  m_pchData[i + 1] = 0;
  GetData()->nDataLength = (uint32_t)(i + 1);
}

void CKString::MakeUpper() {
  CopyBeforeWrite();
  for (char* p = m_pchData; *p; ++p)
    if (*p >= 'a' && *p <= 'z') *p = (char)(*p - 'a' + 'A');
}

void CKString::MakeLower() {
  CopyBeforeWrite();
  for (char* p = m_pchData; *p; ++p)
    if (*p >= 'A' && *p <= 'Z') *p = (char)(*p - 'A' + 'a');
}

// ---------------------------------------------------------------- formatting
void CKString::Format(const char* szFormat, ...) {
  va_list args;
  va_start(args, szFormat);
  FormatV(szFormat, args);
  va_end(args);
}

namespace {

// A decimal count of a format, saturated rather than overflowing.
int ReadCount(const char*& p) {
  long long n = 0;
  for (; *p >= '0' && *p <= '9'; ++p)
    if (n <= INT_MAX) n = n * 10 + (*p - '0');
  return n > INT_MAX ? INT_MAX : (int)n;
}

inline size_t AtLeast(size_t n, int nWidth, int nPrecision) {
  size_t m = (size_t)nWidth + (size_t)nPrecision;
  return n > m ? n : m;
}

// Numbered arguments ("%3$d") the measuring pass follows, as many as the C
// library promises (NL_ARGMAX).
const int kMaxFormatArgs = 4096;

// How the C formatter reads one argument.
enum FmtArg : unsigned char {
  kArgNone, kArgInt, kArgLong, kArgLongLong, kArgDouble, kArgLongDouble, kArgPtr
};

union FmtValue {
  long long n;
  double d;
  long double ld;
  const void* p;
};

// One conversion, with the indexes of the arguments it reads (-1: none).
struct FmtSpec {
  char cConv = 0;
  bool bAlt = false;
  bool bWide = false;       // s and c of wide characters
  bool bPrecision = false;
  bool bKnown = true;       // covered by the measuring rules
  int nWidth = 0, nPrecision = 0;
  int nWidthArg = -1, nPrecisionArg = -1, nDataArg = -1;
  FmtArg eData = kArgNone;
};

// A short array on the stack that moves to the heap only when a format has
// more conversions or arguments than most: Format is called often.
template <typename T, size_t N>
class FmtArray {
public:
  FmtArray() = default;
  FmtArray(const FmtArray&) = delete;  // points into itself
  FmtArray& operator=(const FmtArray&) = delete;
  size_t size() const { return m_n; }
  T& operator[](size_t i) { return m_p[i]; }
  const T& operator[](size_t i) const { return m_p[i]; }
  T* begin() { return m_p; }
  T* end() { return m_p + m_n; }
  void push_back(const T& v) {
    if (m_n == N && m_p == m_aLocal) m_heap.assign(m_aLocal, m_aLocal + N);
    if (m_n >= N) {
      m_heap.push_back(v);
      m_p = m_heap.data();
    } else {
      m_aLocal[m_n] = v;
    }
    ++m_n;
  }
  void assign(size_t n, const T& v) {
    if (n > N) {
      m_heap.assign(n, v);
      m_p = m_heap.data();
    } else {
      for (size_t i = 0; i < n; ++i) m_aLocal[i] = v;
      m_p = m_aLocal;
    }
    m_n = n;
  }

private:
  T m_aLocal[N];
  std::vector<T> m_heap;
  T* m_p = m_aLocal;
  size_t m_n = 0;
};

// "n$" at p: the argument number n (p moves past it), or 0.
int ReadArgNumber(const char*& p) {
  const char* q = p;
  int n = ReadCount(q);
  if (n <= 0 || *q != '$') return 0;
  p = q + 1;
  return n;
}

// The integer argument of a size prefix of type T: what the C formatter reads.
template <typename T>
FmtArg IntArgOf() {
  return sizeof(T) > sizeof(long) ? kArgLongLong : sizeof(T) > sizeof(int) ? kArgLong : kArgInt;
}

// Parses the conversion after a '%' as the C formatter does: flags, width,
// precision, one size prefix, the conversion character. Unnumbered star and
// data arguments take the next index. Returns false for a format cut short.
//
// Two dialects. The GNU C library's: numbered arguments ("%2$s"), 'I' is a
// flag (the locale's digits, so "%I64d" is a width of 64), 'q' and 'L' ask
// for long long integers, "ll" and 'q' for long doubles, %b and %B print
// binary. The Windows build's C99 formatter (MinGW-w64's): no numbered
// arguments ("%1$d" prints as written, its "1" read as a width), "I32",
// "I64" and 'I' are int, 64-bit and size_t prefixes, 'L' leaves integers
// int, "ll" leaves floating numbers double, and 'q', 'Z', %b and %B are
// unknown (printed as written, no argument read).
#if defined(_WIN32)
#define KFMT_WINDOWS 1
#else
#define KFMT_WINDOWS 0
#endif
bool ParseSpec(const char*& p, FmtSpec& s, int& nNext, bool& bNumbered, bool& bUnnumbered) {
  const int nData = KFMT_WINDOWS ? 0 : ReadArgNumber(p);
  for (;; ++p) {
    if (*p == '#')
      s.bAlt = true;
    else if (*p != '-' && *p != '+' && *p != ' ' && *p != '0' && *p != '\'' &&
             (KFMT_WINDOWS || *p != 'I'))
      break;
  }
  auto star = [&](int& nArg) {
    ++p;
    const int n = KFMT_WINDOWS ? 0 : ReadArgNumber(p);
    nArg = n ? n - 1 : nNext++;
    (n ? bNumbered : bUnnumbered) = true;
  };
  if (*p == '*')
    star(s.nWidthArg);
  else
    s.nWidth = ReadCount(p);
  if (*p == '.') {
    ++p;
    s.bPrecision = true;
    if (*p == '*')
      star(s.nPrecisionArg);
    else
      s.nPrecision = ReadCount(p);
  }
  // One size prefix. bLong makes s and c wide and integers long; bLongDouble
  // makes integers long long and floating numbers long double.
  bool bLong = false, bLongDouble = false;
  FmtArg eInt = kArgInt;
  switch (*p) {
    case 'h':
      p += p[1] == 'h' ? 2 : 1;
      break;
    case 'l':
      bLong = true;
      eInt = kArgLong;
      if (p[1] == 'l') {
        bLongDouble = !KFMT_WINDOWS;
        eInt = kArgLongLong;
        ++p;
      }
      ++p;
      break;
#if KFMT_WINDOWS
    case 'L':
      bLong = bLongDouble = true;
      ++p;
      break;
    case 'I':
      if (p[1] == '6' && p[2] == '4') {
        eInt = kArgLongLong;
        p += 3;
      } else if (p[1] == '3' && p[2] == '2') {
        p += 3;
      } else if (p[1] >= '0' && p[1] <= '9') {
        s.cConv = 'I';  // another width: unknown, printed as written
        s.bKnown = false;
        ++p;
        return true;
      } else {
        eInt = IntArgOf<size_t>();
        ++p;
      }
      bLong = eInt != kArgInt;
      break;
#else
    case 'L':
    case 'q':
      bLong = bLongDouble = true;
      eInt = kArgLongLong;
      ++p;
      break;
    case 'Z':
#endif
    case 'z':
    case 't':
    case 'j':
      eInt = *p == 'j'   ? IntArgOf<intmax_t>()
             : *p == 't' ? IntArgOf<ptrdiff_t>()
                         : IntArgOf<size_t>();
      bLong = eInt != kArgInt;
      bLongDouble = eInt == kArgLongLong;
      ++p;
      break;
    default:
      break;
  }
  if (!*p) return false;
  s.cConv = *p++;
  switch (s.cConv) {
#if !KFMT_WINDOWS
    case 'b': case 'B':
#endif
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X':
      s.eData = eInt;
      break;
    case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
      s.eData = bLongDouble ? kArgLongDouble : kArgDouble;
      break;
    case 'c':
    case 'C':
      s.bWide = bLong || s.cConv == 'C';
      s.eData = kArgInt;  // a char or a wint_t, promoted
      break;
    case 's':
    case 'S':
      s.bWide = bLong || s.cConv == 'S';
      s.eData = kArgPtr;
      break;
    case 'p':
    case 'n':
      s.eData = kArgPtr;
      break;
    case '%':
      break;
    default:
      // 'm' (the text of errno) and conversions the C formatter does not
      // know: no argument, and the C library measures them.
      s.bKnown = false;
      break;
  }
  if (s.eData != kArgNone) {
    s.nDataArg = nData ? nData - 1 : nNext++;
    (nData ? bNumbered : bUnnumbered) = true;
  }
  return true;
}

// The C formatter on the caller's format. The format was checked where the
// caller wrote it (Format carries the format attribute), so the check of a
// format handed on is quieted here only.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
#endif
int CFormat(char* pBuf, size_t nSize, const char* szFormat, va_list args) {
  return vsnprintf(pBuf, nSize, szFormat, args);
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

// An argument read as a count: a negative width means '-' and its size, a
// negative precision means none.
template <typename Values>
void ResolveCounts(FmtSpec& s, const Values& aValues) {
  if (s.nWidthArg >= 0) {
    long long n = (int)aValues[(size_t)s.nWidthArg].n;
    s.nWidth = (int)(n < 0 ? (-n > INT_MAX ? INT_MAX : -n) : n);
  }
  if (s.nPrecisionArg >= 0) {
    int n = (int)aValues[(size_t)s.nPrecisionArg].n;
    s.bPrecision = n >= 0;
    s.nPrecision = n >= 0 ? n : 0;
  }
}

// The least that the measure below counts for s: its width, and for numbers
// the precision as well. Needs no measuring, so a format asking for more
// than a string can hold is refused before any work.
size_t LeastCount(const FmtSpec& s, const FmtValue& v) {
  size_t nLeast = 0;
  switch (s.cConv) {
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'b': case 'B': case 'p':
    case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
      nLeast = (size_t)s.nWidth + (size_t)s.nPrecision;
      break;
    case 'f':
    case 'F':
      // A finite number prints its digits and 6 decimals more than asked;
      // inf and nan ignore the precision.
      if (s.eData == kArgLongDouble ? std::isfinite(v.ld) : std::isfinite(v.d))
        nLeast = (size_t)s.nPrecision + 8;
      break;
    default:
      break;
  }
  return nLeast > (size_t)s.nWidth ? nLeast : (size_t)s.nWidth;
}

}  // namespace

// Measures an upper bound of the output first, then formats once into a
// block of that size. The measuring pass reads the arguments exactly as the
// C formatter will (every flag, size prefix and numbered argument it knows);
// what it cannot bound itself the C library measures.
void CKString::FormatV(const char* szFormat, va_list argList) {
  if (!szFormat) {
    AssignCopy(0, nullptr);
    return;
  }
  // Texts read from this string's own block (the format or a %s argument)
  // must outlive the write, which may move or overwrite the block.
  const char* pOwn = IsNil(m_pchData) ? nullptr : m_pchData;
  const char* pOwnEnd = pOwn ? pOwn + GetData()->nAllocLength : nullptr;
  bool bAlias = pOwn && szFormat >= pOwn && szFormat < pOwnEnd;

  // 1. The conversions and the ordinary characters.
  FmtArray<FmtSpec, 16> aSpecs;
  size_t nMaxLen = 0;
  int nArgs = 0;
  bool bNumbered = false, bUnnumbered = false, bAskLibrary = false;
  for (const char* p = szFormat; *p;) {
    if (*p++ != '%') {
      ++nMaxLen;
      continue;
    }
    if (*p == '%') {
      ++p;
      ++nMaxLen;
      continue;
    }
    // A conversion cut short by the end of the format reads no argument: the
    // caller passed none for it, and the C formatter fails on such a format.
    FmtSpec s;
    int nNext = nArgs;
    bool bNum = bNumbered, bUnnum = bUnnumbered;
    if (!ParseSpec(p, s, nNext, bNum, bUnnum)) break;
    bNumbered = bNum;
    bUnnumbered = bUnnum;
    nArgs = nNext;
    if (s.bAlt) nMaxLen += 2;
    if (!s.bKnown) bAskLibrary = true;
    for (int nArg : {s.nWidthArg, s.nPrecisionArg, s.nDataArg})
      if (nArg >= nArgs) nArgs = nArg + 1;
    aSpecs.push_back(s);
  }
  // Numbered and unnumbered arguments together, or more numbered ones than
  // the C library follows, cannot be read safely.
  if ((bNumbered && bUnnumbered) || nArgs > kMaxFormatArgs) {
    AssignCopy(0, nullptr);
    KASSERT_RET_T(false, "nArgs<=kMaxFormatArgs && !(bNumbered && bUnnumbered)");
  }

  // 2. The arguments, in order, with the types the conversions give them
  // (an argument no conversion names is read as an int, as the C library does).
  FmtArray<FmtArg, 32> aTypes;
  aTypes.assign((size_t)nArgs, kArgInt);
  for (const FmtSpec& s : aSpecs)
    if (s.nDataArg >= 0) aTypes[(size_t)s.nDataArg] = s.eData;
  FmtArray<FmtValue, 32> aValues;
  aValues.assign((size_t)nArgs, FmtValue());
  va_list args;
  va_copy(args, argList);
  for (int i = 0; i < nArgs; ++i) {
    FmtValue& v = aValues[(size_t)i];
    switch (aTypes[(size_t)i]) {
      case kArgLong: v.n = va_arg(args, long); break;
      case kArgLongLong: v.n = va_arg(args, long long); break;
      case kArgDouble: v.d = va_arg(args, double); break;
      case kArgLongDouble: v.ld = va_arg(args, long double); break;
      case kArgPtr: v.p = va_arg(args, const void*); break;
      default: v.n = va_arg(args, int); break;
    }
  }
  va_end(args);

  // 3. Limits, before anything is measured.
  static const FmtValue s_none = {0};
  size_t nLeast = nMaxLen;
  for (FmtSpec& s : aSpecs) {
    ResolveCounts(s, aValues);
    nLeast += LeastCount(s, s.nDataArg >= 0 ? aValues[(size_t)s.nDataArg] : s_none);
    if (nLeast > kMaxLength) {
      AssignCopy(0, nullptr);
      KASSERT_RET_T(false, "nMaxLen<=kMaxLength");
    }
  }

  // 4. The measure of each conversion.
  for (const FmtSpec& s : aSpecs) {
    const FmtValue& v = s.nDataArg >= 0 ? aValues[(size_t)s.nDataArg] : s_none;
    const int nWidth = s.nWidth, nPrecision = s.nPrecision;
    size_t nItemLen = 0;
    switch (s.cConv) {
      case 'c':
      case 'C':
        // A wide character can take up to MB_LEN_MAX bytes once narrowed.
        nItemLen = s.bWide ? (MB_LEN_MAX > 2 ? MB_LEN_MAX : 2) : 2;
        break;
      case 's':
      case 'S':
        if (!v.p) {
          nItemLen = 6;  // "(null)"
        } else if (s.bWide) {
          nItemLen = s.bPrecision ? (size_t)nPrecision : wcslen((const wchar_t*)v.p) * MB_LEN_MAX;
        } else {
          const char* sz = (const char*)v.p;
          if (pOwn && sz >= pOwn && sz < pOwnEnd) bAlias = true;
          // With a precision the text need not be terminated.
          const char* pZero =
              s.bPrecision ? (const char*)memchr(sz, 0, (size_t)nPrecision) : nullptr;
          nItemLen = !s.bPrecision ? strlen(sz) : pZero ? (size_t)(pZero - sz) : (size_t)nPrecision;
        }
        if (nItemLen < 1) nItemLen = 1;
        break;
      case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'b': case 'B': case 'p':
        nItemLen = AtLeast(32, nWidth, nPrecision);
        break;
      case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
        nItemLen = AtLeast(128, nWidth, nPrecision);
        break;
      case 'f':
      case 'F': {
        // The length of the number printed with 6 more decimals than asked.
        int nDecimals = nPrecision > INT_MAX - 6 ? INT_MAX : nPrecision + 6;  // inf and nan
        int n = s.eData == kArgLongDouble ? snprintf(nullptr, 0, "%*.*Lf", nWidth, nDecimals, v.ld)
                                          : snprintf(nullptr, 0, "%*.*f", nWidth, nDecimals, v.d);
        nItemLen = n >= 0 ? (size_t)n : (size_t)kMaxLength + 1;
        break;
      }
      case '%':
        nItemLen = 1;
        break;
      default:  // 'n', and what the C library measures below
        break;
    }
    nMaxLen += nItemLen > (size_t)nWidth ? nItemLen : (size_t)nWidth;
  }
  if (bAskLibrary) {
    va_list args2;
    va_copy(args2, argList);
    int n = CFormat(nullptr, 0, szFormat, args2);
    va_end(args2);
    if (n > 0 && (size_t)n > nMaxLen) nMaxLen = (size_t)n;
  }

  if (bAlias) {
    CKString strOut;
    strOut.FormatV(szFormat, argList);
    *this = strOut;
    return;
  }
  // The bound holds for every conversion; should the C formatter still write
  // more (a locale's digit grouping), its returned length is used to format again.
  for (;;) {
    if (nMaxLen > kMaxLength) {
      AssignCopy(0, nullptr);
      KASSERT_RET(nMaxLen<=kMaxLength);
    }
    va_list args2;
    va_copy(args2, argList);
    char c;
    // Nothing to print needs no block: the empty text stays shared.
    char* pBuf = nMaxLen ? GetBuffer((unsigned)nMaxLen) : &c;
    int n = CFormat(pBuf, nMaxLen + 1, szFormat, args2);
    va_end(args2);
    if (n < 0) {
      AssignCopy(0, nullptr);
      KASSERT_RET(n>=0);
    }
    if ((size_t)n <= nMaxLen) {
      if (nMaxLen) {
        // As ReleaseBuffer(): the text ends at its first zero (a %c of 0).
        const char* pZero = (const char*)memchr(pBuf, 0, (size_t)n);
        ReleaseBuffer(pZero ? (unsigned)(pZero - pBuf) : (unsigned)n);
      } else {
        AssignCopy(0, nullptr);
      }
      return;
    }
    nMaxLen = (size_t)n;
  }
}

// ---------------------------------------------------------------- string table
namespace {

// Never destroyed: strings may be loaded while statics go.
kplat::Mutex* TableLock() {
  static kplat::Mutex* p = kplat::MutexNew();
  return p;
}
std::map<unsigned, std::string>& Table() {
  static std::map<unsigned, std::string> t;
  return t;
}

int TableLoader(unsigned nID, char* buf, int nBufMax) {
  if (!buf || nBufMax <= 0) return 0;
  kplat::MutexGuard g(TableLock());
  auto it = Table().find(nID);
  if (it == Table().end()) {
    buf[0] = 0;
    return 0;
  }
  int n = (int)it->second.size();
  if (n > nBufMax - 1) n = nBufMax - 1;
  memcpy(buf, it->second.data(), (size_t)n);
  buf[n] = 0;
  return n;
}

KStringLoader g_pLoader = TableLoader;

}  // namespace

void KSetStringLoader(KStringLoader pLoader) { g_pLoader = pLoader ? pLoader : TableLoader; }

void KStringTableSet(unsigned nID, const char* szText) {
  kplat::MutexGuard g(TableLock());
  if (szText)
    Table()[nID] = szText;
  else
    Table().erase(nID);
}

void KStringTableClear() {
  kplat::MutexGuard g(TableLock());
  Table().clear();
}

// Reads into 256 bytes; a text that leaves fewer than 3 bytes unused may be
// cut, so the buffer grows by 256 and the read is repeated.
BOOL CKString::LoadString(unsigned nID) {
  char szTemp[256];
  szTemp[0] = 0;
  int nLen = g_pLoader(nID, szTemp, 256);
  if (nLen < 0) nLen = 0;  // a failing loader has no such string
  if (256 - nLen >= 3) {
    szTemp[nLen] = 0;
    *this = szTemp;
    if (nLen == 0) Empty();
    return nLen > 0;
  }
  int nSize = 256;
  do {
    nSize += 256;
    nLen = g_pLoader(nID, GetBuffer((unsigned)(nSize - 1)), nSize);
    if (nLen < 0) nLen = 0;
  } while (nSize - nLen < 3);
  ReleaseBuffer((unsigned)nLen);
  return nLen > 0;
}
