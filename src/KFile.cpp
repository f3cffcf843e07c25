// CKFile: a disk file or a memory image of one behind one interface;
// KFileGetTemp: unique temporary files.
#define KSRC_PATH "src/KFile"

#include <base/tools/KFile.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformFile.h"
#include "platform/KPlatformRandom.h"

namespace {

// Bytes of the buffer's block from its start offset (what a content can use).
unsigned MemAvail(const CKMem& mem) {
  if (!mem.m_pMemRef || !mem.m_pMemRef->pData) return 0;
  return mem.m_nAllocatedSize > mem.m_nStartOffset ? mem.m_nAllocatedSize - mem.m_nStartOffset : 0;
}

unsigned char* MemBase(const CKMem& mem) {
  return mem.m_pMemRef && mem.m_pMemRef->pData ? mem.m_pMemRef->pData + mem.m_nStartOffset
                                               : nullptr;
}

// Size, as the stream says, measured from its end; the position comes back.
__int64 MeasureStream(FILE* f) {
  const int64_t nHere = kplat::FileTell(f);
  if (nHere < 0 || !kplat::FileSeek(f, 0, SEEK_END)) return -1;
  const int64_t nEnd = kplat::FileTell(f);
  if (!kplat::FileSeek(f, nHere, SEEK_SET)) return -1;
  return nEnd;
}

}  // namespace

CKFile::CKFile(const char* szName, unsigned long nMode)
    : m_pFile(nullptr), m_nSize(0), m_nMode((uint32_t)nMode), m_nPosition(0) {
  if (szName && *szName) m_strName = szName;
}

CKFile::CKFile(const CKFile& f) : m_pFile(nullptr), m_nSize(0), m_nMode(0), m_nPosition(0) {
  CopyFrom(f);
}

CKFile& CKFile::operator=(const CKFile& f) {
  if (this != &f) {
    Close();
    CopyFrom(f);
  }
  return *this;
}

void CKFile::CopyFrom(const CKFile& f) {
  m_mem.Copy(f.m_mem);
  m_nSize = f.m_nSize;
  m_strName = f.m_strName;
  m_nMode = f.m_nMode;
  m_nPosition = f.m_nPosition;
  m_dt = f.m_dt;
}

CKFile::~CKFile() { Close(); }

void CKFile::SetMode(unsigned long nMode) {
  Close();
  m_nMode = (uint32_t)nMode;
}

void CKFile::SetFileName(const char* szName) { m_strName = szName ? szName : ""; }

void CKFile::Close() {
  if (!m_pFile) return;
  FILE* f = m_pFile;
  m_pFile = nullptr;
  if (fflush(f) != 0) kplat::ReportError("fflush", errno);
  if (fclose(f) != 0) kplat::ReportError("fclose", errno);
}

int CKFile::Open(const char* szName, unsigned long nMode) {
  SetFileName(szName);
  return Open(nMode);
}

int CKFile::Open(unsigned long nMode) {
  // The mode asked for decides: a memory file has nothing to open.
  if ((nMode ? nMode : m_nMode) & KFILE_MEMORY) {
    if (nMode) m_nMode = (uint32_t)nMode;
    return 1;
  }
  Close();
  if ((m_strName.GetLength() == 0)) return 0;
  if (nMode) m_nMode = (uint32_t)nMode;
  KASSERT_RETV(!KFILE_HAS_APPEND(this) || !KFILE_HAS_WRITE(this), 0);

  const int nKind = kplat::FileKind(m_strName);
  const bool bExists = nKind == kplat::FILE_KIND_FILE;
  const bool bTruncate = KFILE_HAS_TRUNCATE(this);
  const bool bCreate = KFILE_HAS_CREATE(this);
  const char* szMode;
  if (KFILE_HAS_READ(this) && KFILE_HAS_WRITE(this)) {
    if (!bCreate && !bExists) return 0;
    // create makes a missing file (see docs/design.md).
    szMode = bTruncate || !bExists ? "wb+" : "rb+";
  } else if (KFILE_HAS_READ(this)) {
    KASSERT_RETV(!KFILE_HAS_TRUNCATE(this), 0);
    KASSERT_RETV(!KFILE_HAS_CREATE(this), 0);
    szMode = "rb";
  } else if (KFILE_HAS_WRITE(this)) {
    if (!bCreate) {
      if (!bExists) return 0;
      szMode = bTruncate ? "wb+" : "rb+";
    } else {
      szMode = bExists && !bTruncate ? "rb+" : "wb";
    }
  } else {
    KASSERT_RETV_T(KFILE_HAS_APPEND(this), "FALSE", 0);
    if (!bCreate && !bExists) return 0;
    szMode = bTruncate ? "wb+" : "ab+";
  }
  // A directory never opens as a file.
  if (nKind == kplat::FILE_KIND_DIR) return 0;
  m_pFile = kplat::FileOpen(m_strName, szMode);
  if (!m_pFile) return 0;
  const __int64 nSize = MeasureStream(m_pFile);
  if (nSize < 0 || !kplat::FileSeek(m_pFile, 0, SEEK_SET)) {
    Close();
    return 0;
  }
  m_nSize = nSize;
  m_nPosition = 0;
  return 1;
}

int CKFile::OpenWrite(int bTruncate) {
  if (KFILE_HAS_MEMORY(this)) return 1;
  Close();
  if ((m_strName.GetLength() == 0)) return 0;
  if (!bTruncate && kplat::FileKind(m_strName) != kplat::FILE_KIND_FILE) return 0;
  m_pFile = kplat::FileOpen(m_strName, bTruncate ? "wb" : "ab");
  if (!m_pFile) return 0;
  const __int64 nSize = MeasureStream(m_pFile);
  if (nSize < 0 || !kplat::FileSeek(m_pFile, 0, SEEK_SET)) {
    Close();
    return 0;
  }
  m_nSize = nSize;
  m_nPosition = 0;
  return 1;
}

unsigned __int64 CKFile::Read(CKMem& dst, unsigned __int64 n) {
  if (KFILE_HAS_MEMORY(this)) {
    const __int64 nLeft = m_nSize - m_nPosition;
    if (nLeft <= 0 || n == 0) return 0;
    if (n > (unsigned __int64)nLeft) n = (unsigned __int64)nLeft;
    if (n > (unsigned __int64)MemAvail(m_mem) - (unsigned __int64)m_nPosition) return 0;
    if (n > KMEM_SIZE_MAX || !dst.GetFromStart((unsigned)n)) return 0;
    if (!dst.Memcpy(MemBase(m_mem) + m_nPosition, (unsigned)n)) return 0;
    return n;
  }
  if (!m_pFile || n == 0) return 0;
  if (n > KMEM_SIZE_MAX) n = KMEM_SIZE_MAX;
  if (!dst.GetFromStart((unsigned)n)) return 0;
  const unsigned nRead = dst.Fread(1, (unsigned)n, m_pFile);
  if (nRead == 0xFFFFFFFFu) return 0;
  if (nRead < n && ferror(m_pFile)) kplat::ReportError("fread", errno);
  return nRead;
}

__int64 CKFile::Write(const unsigned char* p, unsigned __int64 n) {
  if (KFILE_HAS_MEMORY(this)) {
    if (n == 0) return 0;
    KASSERT_RETV(p, -1);
    EnsureBufferPositionAdd((__int64)n);
    if ((unsigned __int64)m_nPosition + n > MemAvail(m_mem)) return -1;
    memmove(MemBase(m_mem) + m_nPosition, p, (size_t)n);
    if (m_nPosition + (__int64)n > m_nSize) m_nSize = m_nPosition + (__int64)n;
    return (__int64)n;
  }
  if (!m_pFile) return -1;
  if (n == 0) return 0;
  const size_t nDone = fwrite(p, 1, (size_t)n, m_pFile);
  if (nDone < n) kplat::ReportError("fwrite", errno);
  return (__int64)nDone;
}

__int64 CKFile::Write(const CKMem& src, unsigned __int64 n) {
  // The bytes at the source's data position, as CKMem::Fwrite takes them.
  const unsigned nAvail = MemAvail(src) > src.m_nOffset ? MemAvail(src) - src.m_nOffset : 0;
  KASSERT_RETV_T(n <= nAvail, "n <= src room", -1);
  return Write(MemBase(src) ? MemBase(src) + src.m_nOffset : nullptr, n);
}

int CKFile::Seek(__int64 nOffset, int nOrigin) {
  if (nOrigin < 1 || nOrigin > 3) return -1;
  if (!KFILE_HAS_MEMORY(this)) {
    if (!m_pFile) return -1;
    static const int s_nWhence[] = {SEEK_SET, SEEK_END, SEEK_CUR};
    return kplat::FileSeek(m_pFile, nOffset, s_nWhence[nOrigin - 1]) ? 0 : -1;
  }
  __int64 nNew;
  if (nOrigin == 1) {
    nNew = nOffset;
  } else if (nOrigin == 2) {
    if (nOffset > 0) return -1;
    nNew = m_nSize + nOffset;
  } else {
    // Overflow-free: the sum is checked against the bounds before it is made.
    if (nOffset > m_nSize - m_nPosition || nOffset < -m_nPosition) return -1;
    nNew = m_nPosition + nOffset;
  }
  if (nNew < 0 || nNew > m_nSize) return -1;
  m_nPosition = nNew;
  return 0;
}

__int64 CKFile::GetPosition() const {
  if (KFILE_HAS_MEMORY(this) || !m_pFile) return m_nPosition;
  const int64_t n = kplat::FileTell(m_pFile);
  return n < 0 ? 0 : n;
}

int CKFile::Eof() const {
  if (KFILE_HAS_MEMORY(this)) return m_nPosition == m_nSize;
  if (!m_pFile) return 1;
  return feof(m_pFile) ? 1 : 0;
}

__int64 CKFile::GetLength() const {
  if (KFILE_HAS_MEMORY(this)) return m_nSize;
  if (!m_pFile) return 0;
  const __int64 n = MeasureStream(m_pFile);
  return n < 0 ? 0 : n;
}

__int64 CKFile::GetFileLength() {
  KASSERT_RETV_T(m_pFile, "FALSE", 0);
  if (fflush(m_pFile) != 0) kplat::ReportError("fflush", errno);
  const __int64 n = MeasureStream(m_pFile);
  return n < 0 ? 0 : n;
}

void CKFile::SetSize(unsigned __int64 n) {
  KASSERT_RET(KFILE_HAS_MEMORY(this));
  if (n > KMEM_SIZE_MAX || !m_mem.SetSize((unsigned)n)) {
    // SetSize reports the refusal; n above the limit is refused the same way.
    if (n > KMEM_SIZE_MAX) m_mem.SetSize(KMEM_SIZE_MAX + 1u);
    m_nSize = 0;
    m_nPosition = 0;
    return;
  }
  m_nSize = (__int64)n;
  if (m_nPosition > m_nSize) m_nPosition = m_nSize;
}

void CKFile::SetAllocatedSize(unsigned __int64 n) {
  if (n > KMEM_SIZE_MAX) n = KMEM_SIZE_MAX + 1u;  // refused, with its message
  if (!m_mem.SetSize((unsigned)n)) return;
  const __int64 nAvail = MemAvail(m_mem);
  if (m_nSize > nAvail) m_nSize = nAvail;
  if (m_nPosition > m_nSize) m_nPosition = m_nSize;
}

void CKFile::EnsureBufferPositionAdd(__int64 n) {
  if (n > KMEM_SIZE_MAX * 2LL) n = KMEM_SIZE_MAX * 2LL;
  const __int64 nWant = m_nPosition + n;
  const __int64 nAlloc = m_mem.Size();
  if (nWant < 0 || nWant <= nAlloc) return;
  __int64 nNew = nAlloc + (nWant - nAlloc + KFILE_GROW_STEP - 1) / KFILE_GROW_STEP * KFILE_GROW_STEP;
  if (nNew > KMEM_SIZE_MAX) nNew = nWant <= KMEM_SIZE_MAX ? KMEM_SIZE_MAX : KMEM_SIZE_MAX + 1LL;
  m_mem.SetSize((unsigned)nNew);
}

void CKFile::SetData(const CKMem& mem) {
  Close();
  m_mem = mem;
  m_nSize = m_mem.Size();
  if (m_nPosition > m_nSize) m_nPosition = m_nSize;
}

void CKFile::RewindAndSetData(const CKMem& mem) {
  SetData(mem);
  m_nPosition = 0;
}

void CKFile::Free() {
  m_mem.SetSize(0);
  m_nSize = 0;
  m_nPosition = 0;
}

void CKFile::Detach(CKFile& dst) {
  if (&dst == this) return;
  dst.Close();
  m_mem.Detach(dst.m_mem);
  dst.m_pFile = m_pFile;
  dst.m_nSize = m_nSize;
  dst.m_strName = m_strName;
  dst.m_nMode = m_nMode;
  dst.m_nPosition = m_nPosition;
  dst.m_dt = m_dt;
  m_pFile = nullptr;
  m_nSize = 0;
  m_nPosition = 0;
}

int CKFile::ReadWhole(const char* szName) {
  if (szName) SetFileName(szName);
  return ReadWhole();
}

int CKFile::ReadWhole() {
  Close();
  if ((m_strName.GetLength() == 0)) return 0;
  if (kplat::FileKind(m_strName) != kplat::FILE_KIND_FILE) return 0;
  FILE* f = kplat::FileOpen(m_strName, "rb");
  if (!f) return 0;
  int bOk = 0;
  const __int64 nSize = MeasureStream(f);
  // A memory image holds at most one buffer's worth.
  KASSERT_T(nSize <= (__int64)KMEM_SIZE_MAX, "nSize <= KMEM_SIZE_MAX");
  if (nSize >= 0 && nSize <= (__int64)KMEM_SIZE_MAX && m_mem.SetSize((unsigned)nSize)) {
    m_mem.m_nStartOffset = 0;
    m_mem.m_nOffset = 0;
    size_t nRead = nSize ? fread(MemBase(m_mem), 1, (size_t)nSize, f) : 0;
    if ((__int64)nRead != nSize) {
      kplat::ReportError("fread", ferror(f) ? errno : EIO);
    } else {
      m_nSize = nSize;
      m_nPosition = 0;
      bOk = 1;
    }
  }
  if (fclose(f) != 0) kplat::ReportError("fclose", errno);
  return bOk;
}

int CKFile::WriteWhole(const char* szName) {
  if (szName) SetFileName(szName);
  if ((m_strName.GetLength() == 0)) return 0;
  Close();
  FILE* f = kplat::FileOpen(m_strName, "wb");
  if (!f) return 0;
  unsigned __int64 n = m_nSize > 0 ? (unsigned __int64)m_nSize : 0;
  if (n > MemAvail(m_mem)) n = MemAvail(m_mem);
  int bOk = n == (unsigned __int64)(m_nSize > 0 ? m_nSize : 0);
  if (n && fwrite(MemBase(m_mem), 1, (size_t)n, f) != n) {
    kplat::ReportError("fwrite", errno);
    bOk = 0;
  }
  if (fclose(f) != 0) {
    kplat::ReportError("fclose", errno);
    bOk = 0;
  }
  return bOk;
}

int CKFile::Zip(int nLevel) {
  KASSERT_RETV(KFILE_HAS_MEMORY(this), 0);
  if (m_nSize <= 0 || m_nSize > MemAvail(m_mem)) return 0;
  const int bOk = m_mem.Zip((unsigned)m_nSize, nLevel, 1024, nullptr);
  // Uncompressed content leaves the size at the whole block; kept as it is.
  if (bOk) m_nSize = m_mem.Size();
  if (m_nPosition > m_nSize) m_nPosition = m_nSize;
  return bOk;
}

int CKFile::Unzip() {
  KASSERT_RETV(KFILE_HAS_MEMORY(this), 0);
  if (m_nSize < 0 || m_nSize > MemAvail(m_mem)) return 0;
  int bUnzipped = 0;
  const int bOk = m_mem.Unzip((unsigned)m_nSize, &bUnzipped);
  if (bOk && bUnzipped) m_nSize = m_mem.Size();
  if (m_nPosition > m_nSize) m_nPosition = m_nSize;
  return bOk;
}

namespace {

// First differing byte of two equally sized contents, or -1.
__int64 FirstDiff(const CKFile& a, const CKFile& b) {
  const __int64 nSize = a.m_nSize;
  const __int64 nA = MemAvail(a.m_mem), nB = MemAvail(b.m_mem);
  const __int64 n = nSize < nA ? (nSize < nB ? nSize : nB) : (nA < nB ? nA : nB);
  const unsigned char* pA = MemBase(a.m_mem);
  const unsigned char* pB = MemBase(b.m_mem);
  for (__int64 i = 0; i < n; ++i)
    if (pA[i] != pB[i]) return i;
  return -1;
}

}  // namespace

int CKFile::FileCmp(const CKFile& other) const {
  if (m_nSize != other.m_nSize) return m_nSize < other.m_nSize ? -1 : 1;
  const __int64 i = FirstDiff(*this, other);
  if (i < 0) return 0;
  return MemBase(m_mem)[i] < MemBase(other.m_mem)[i] ? -1 : 1;
}

int CKFile::FileCmpTrace(CKFile& other) {
  KLog("Comparing ", m_strName, " with ", other.m_strName);
  if (m_nSize != other.m_nSize) {
    KLog("File size differs : ", KStr(m_nSize), ", ", KStr(other.m_nSize));
    return m_nSize > other.m_nSize ? 1 : -1;
  }
  const __int64 i = FirstDiff(*this, other);
  if (i < 0) {
    KLog("Files are identical");
    return 0;
  }
  const unsigned char a = MemBase(m_mem)[i], b = MemBase(other.m_mem)[i];
  KLog("Files differ on byte ", KStr(i), " : ", KStr((__int64)a), ", ", KStr((__int64)b));
  return a < b ? -1 : 1;
}

// ---------------------------------------------------------------- temporary names
CKString KFileGetTemp(const char* szDir, const char* szPrefix, int bFlag) {
  std::string strDir = szDir && *szDir ? szDir : kplat::TempDir();
  if (!strDir.empty() && strDir.back() != '/' && strDir.back() != '\\') strDir += '/';
  static const char s_szDigits[] = "0123456789abcdef";
  // 64 random bits per try: a name another process holds is simply skipped.
  for (int nTry = 0; nTry < 64; ++nTry) {
    unsigned char r[8];
    if (!kplat::RandomBytes(r, sizeof(r))) break;
    std::string strName = strDir + (szPrefix ? szPrefix : "");
    for (unsigned char c : r) {
      strName += s_szDigits[c >> 4];
      strName += s_szDigits[c & 15];
    }
    if (bFlag) strName += ".tmp";
    bool bExists = false;
    FILE* f = kplat::FileCreateExclusive(strName.c_str(), &bExists);
    if (f) {
      if (fclose(f) != 0) kplat::ReportError("fclose", errno);
      return CKString(strName.c_str());
    }
    if (!bExists) break;
  }
  KLog(KLOG_ERROR, "ERROR => KFileGetTemp: no temporary file in ", strDir.c_str());
  return CKString();
}
