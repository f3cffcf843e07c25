// CKByteStream: buffered little-endian serialisation over a memory file, a
// disk file or a gzip file.
//
// The stream works on a window of bytes [m_pWin, end) whose first byte sits
// at stream position m_nWinPos. Over a memory file the window is the file's
// own block (no copy); over a disk or gzip file it is m_memBuf, flushed or
// refilled as it runs out. Typed operations copy into or out of the window
// inline and only call the slow paths at its edge.
#define KSRC_PATH "src/KFile"

#include <base/tools/KByteStream.h>

#include <cstring>
#include <string>

#include <base/tools/KDebug.h>
#include <base/tools/KGZFile.h>

namespace {

// Texts longer than this are read as empty strings (not an error).
const __int64 KSTREAM_TEXT_MAX = 0x8000000;
// Unknown-length sources fill texts in slices, so a forged length costs no
// more memory than the bytes really there.
const __int64 KSTREAM_SLICE = 0x100000;

__int64 BufSizeOf(__int64 n) { return n <= 0 ? KBYTESTREAM_BUFSIZE : n; }

}  // namespace

CKByteStream::CKByteStream()
    : m_pGZ(nullptr),
      m_pFile(nullptr),
      m_nBuffSize(KBYTESTREAM_BUFSIZE),
      m_bReading(0),
      m_bWriting(0),
      m_bZip(0),
      m_bSourceEnd(0),
      m_pWin(nullptr),
      m_pWCur(nullptr),
      m_pWEnd(nullptr),
      m_pRCur(nullptr),
      m_pREnd(nullptr),
      m_nWinPos(0),
      m_nSize(0) {}

CKByteStream::CKByteStream(const CKByteStream& s) : CKByteStream() { *this = s; }

CKByteStream& CKByteStream::operator=(const CKByteStream& s) {
  if (this == &s) return *this;
  Close();
  m_strFileName = s.m_strFileName;
  m_strTempName = s.m_strTempName;
  m_nBuffSize = s.m_nBuffSize;
  m_fileRead = s.m_fileRead;
  m_fileWrite = s.m_fileWrite;
  // Bytes still in the source's window belong to its file's content.
  if (s.m_bWriting && s.m_pFile == &s.m_fileWrite && s.IsMemoryFile()) {
    const __int64 nEnd = s.GetPosition();
    if (nEnd > m_fileWrite.m_nSize && nEnd <= m_fileWrite.MemRoom()) m_fileWrite.m_nSize = nEnd;
  }
  return *this;
}

CKByteStream::~CKByteStream() { Close(); }

int CKByteStream::IsMemoryFile() const {
  return m_pFile && !m_pGZ && KFILE_HAS_MEMORY(m_pFile);
}

void CKByteStream::ResetWindows() {
  m_pWin = m_pWCur = m_pWEnd = nullptr;
  m_pRCur = m_pREnd = nullptr;
}

void CKByteStream::SetBuffSize(__int64 n) {
  n = BufSizeOf(n);
  if (n > KMEM_SIZE_MAX) n = KMEM_SIZE_MAX;
  if (n == m_nBuffSize) return;
  // A disk or gzip window changes size only between two flushes or refills.
  if (m_bWriting && !IsMemoryFile()) {
    if (!Flush()) return;
    if (!m_memBuf.SetSize((unsigned)n)) return;
    m_pWin = m_pWCur = m_memBuf.GetFromStart(0, 0);
    m_pWEnd = m_pWin + n;
  }
  m_nBuffSize = n;
}

// ---------------------------------------------------------------- opening
int CKByteStream::StartWrite(CKFile* pFile, __int64 nBufSize) {
  m_pFile = pFile;
  m_nBuffSize = BufSizeOf(nBufSize);
  if (m_nBuffSize > KMEM_SIZE_MAX) m_nBuffSize = KMEM_SIZE_MAX;
  m_bWriting = 1;
  m_bReading = 0;
  if (IsMemoryFile()) {
    m_nWinPos = pFile->Position();
    m_nSize = pFile->Size();
    m_pWin = m_pWCur = pFile->MemData() ? pFile->MemData() + m_nWinPos : nullptr;
    m_pWEnd = m_pWin ? pFile->MemData() + pFile->MemRoom() : nullptr;
    return 1;
  }
  if (!m_memBuf.SetSize((unsigned)m_nBuffSize)) {
    m_bWriting = 0;
    return 0;
  }
  m_memBuf.m_nOffset = m_memBuf.m_nStartOffset = 0;
  m_pWin = m_pWCur = m_memBuf.GetFromStart(0, 0);
  m_pWEnd = m_pWin + m_nBuffSize;
  if (m_pGZ) {
    m_nWinPos = m_nSize = 0;
  } else {
    m_nWinPos = pFile->GetPosition();
    m_nSize = pFile->Size() > m_nWinPos ? pFile->Size() : m_nWinPos;
  }
  return 1;
}

int CKByteStream::InitWrite(const char* szFile, int bFlagName, __int64 nBufSize, int bTruncate,
                            int bZip, int nLevel) {
  Close();
  CKString strName = szFile ? szFile : "";
  if (strName.GetLength() == 0) {
    strName = KFileGetTemp(nullptr, "kbs", 1);
    if (strName.GetLength() == 0) return 0;
  }
  KASSERT_T(!bZip || bTruncate, "!bZip");
  if (bZip && bTruncate) {
    m_pGZ = new CKGZFile;
    if (!m_pGZ->OpenWrite(strName, nLevel)) {
      delete m_pGZ;
      m_pGZ = nullptr;
      return 0;
    }
    m_bZip = 1;
    if (!StartWrite(nullptr, nBufSize)) {
      Close();
      return 0;
    }
  } else {
    // A named stream always writes to disk; memory streams are made with
    // InitWrite(CKFile*).
    m_fileWrite.SetMode(0);
    const unsigned long nMode = KFILE_WRITE | KFILE_CREATE | (bTruncate ? KFILE_TRUNCATE : 0);
    if (!m_fileWrite.Open(strName, nMode)) return 0;
    // Existing content is kept: writing continues at its end.
    if (m_fileWrite.Seek(0, 2) != 0 || !StartWrite(&m_fileWrite, nBufSize)) {
      m_fileWrite.Close();
      return 0;
    }
  }
  m_strFileName = strName;
  if (bFlagName) m_strTempName = strName;
  return 1;
}

int CKByteStream::InitWrite(CKFile* pFile, __int64 nSize, __int64 nBufSize) {
  Close();
  if (nBufSize == -1) nBufSize = KBYTESTREAM_BUFSIZE;
  if (nSize == -1) nSize = nBufSize;
  if (!pFile) {
    pFile = &m_fileWrite;
    m_fileWrite.SetMode(KFILE_MEMORY);
    m_fileWrite.Free();
  }
  if (KFILE_HAS_MEMORY(pFile)) {
    // The size reserves room; the content is what gets written.
    if (nSize > 0 && pFile->MemRoom() < nSize) pFile->SetAllocatedSize((unsigned __int64)nSize);
  } else if (!pFile->IsOpen() && !pFile->Open(KFILE_WRITE | KFILE_CREATE)) {
    return 0;
  }
  m_strFileName = pFile->FileName();
  return StartWrite(pFile, nBufSize);
}

int CKByteStream::InitRead(const char* szFile, __int64 nBufSize, int bZip) {
  Close();
  KASSERT_RETV(szFile && *szFile, 0);
  m_nBuffSize = BufSizeOf(nBufSize);
  if (m_nBuffSize > KMEM_SIZE_MAX) m_nBuffSize = KMEM_SIZE_MAX;
  if (bZip) {
    m_pGZ = new CKGZFile;
    if (!m_pGZ->OpenRead(szFile)) {
      delete m_pGZ;
      m_pGZ = nullptr;
      return 0;
    }
    m_bZip = 1;
  } else {
    m_fileRead.SetMode(0);
    if (!m_fileRead.Open(szFile, KFILE_READ)) return 0;
    m_pFile = &m_fileRead;
  }
  if (!m_memBuf.SetSize((unsigned)m_nBuffSize)) {
    Close();
    return 0;
  }
  m_strFileName = szFile;
  m_bReading = 1;
  m_pWin = m_pRCur = m_pREnd = m_memBuf.GetFromStart(0, 0);
  m_nWinPos = 0;
  m_nSize = m_pGZ ? 0 : m_fileRead.Size();
  return 1;
}

int CKByteStream::InitRead(CKFile* pFile) {
  Close();
  KASSERT_RETV(pFile, 0);
  if (!KFILE_HAS_MEMORY(pFile) && !pFile->IsOpen() && !pFile->Open(KFILE_READ)) return 0;
  m_pFile = pFile;
  m_strFileName = pFile->FileName();
  m_bReading = 1;
  if (KFILE_HAS_MEMORY(pFile)) {
    m_nWinPos = pFile->Position();
    m_nSize = pFile->Size() < pFile->MemRoom() ? pFile->Size() : pFile->MemRoom();
    unsigned char* p = pFile->MemData();
    m_pWin = m_pRCur = p ? p + m_nWinPos : nullptr;
    m_pREnd = p ? p + m_nSize : nullptr;
    return 1;
  }
  if (!m_memBuf.SetSize((unsigned)m_nBuffSize)) {
    Close();
    return 0;
  }
  m_pWin = m_pRCur = m_pREnd = m_memBuf.GetFromStart(0, 0);
  m_nWinPos = pFile->GetPosition();
  m_nSize = pFile->Size();
  return 1;
}

// ---------------------------------------------------------------- closing
int CKByteStream::TermWrite() {
  if (!m_bWriting) return 0;
  int bOk = Flush();
  if (m_pGZ) {
    bOk &= m_pGZ->Close();
    delete m_pGZ;
    m_pGZ = nullptr;
  } else if (m_pFile && !KFILE_HAS_MEMORY(m_pFile)) {
    if (m_pFile == &m_fileWrite) {
      m_fileWrite.Close();
    } else if (m_pFile->Stream() && fflush(m_pFile->Stream()) != 0) {
      bOk = 0;
    }
  }
  m_bWriting = 0;
  m_bZip = 0;
  ResetWindows();
  return bOk;
}

int CKByteStream::TermRead() {
  KASSERT_RETV(m_bReading, 0);
  if (m_pGZ) {
    m_pGZ->Close();
    delete m_pGZ;
    m_pGZ = nullptr;
  }
  if (m_pFile == &m_fileRead) m_fileRead.Close();
  m_bReading = 0;
  m_bZip = 0;
  m_bSourceEnd = 0;
  ResetWindows();
  return 1;
}

void CKByteStream::Close() {
  if (m_bWriting) TermWrite();
  if (m_bReading) TermRead();
  delete m_pGZ;
  m_pGZ = nullptr;
  m_fileRead.Close();
  m_fileWrite.Close();
  m_pFile = nullptr;
  m_bZip = 0;
  m_bSourceEnd = 0;
  ResetWindows();
}

// ---------------------------------------------------------------- writing
int CKByteStream::Flush() {
  if (!m_bWriting) return 0;
  const __int64 n = m_pWCur - m_pWin;
  if (IsMemoryFile()) {
    // The bytes are in place already: only the accounting moves.
    m_nWinPos += n;
    if (m_nWinPos > m_pFile->m_nSize) m_pFile->m_nSize = m_nWinPos;
    if (m_nWinPos > m_nSize) m_nSize = m_nWinPos;
    m_pWin = m_pWCur;
    return 1;
  }
  if (n == 0) return 1;
  const __int64 nDone = m_pGZ ? m_pGZ->Write(m_pWin, n) : m_pFile->Write(m_pWin, (unsigned __int64)n);
  if (nDone != n) return 0;
  m_nWinPos += n;
  if (m_nWinPos > m_nSize) m_nSize = m_nWinPos;
  m_pWCur = m_pWin;
  return 1;
}

int CKByteStream::WriteRoom(__int64 n) {
  if (!m_bWriting || n < 0) return 0;
  if (m_pWEnd - m_pWCur >= n) return 1;
  if (!Flush()) return 0;
  if (IsMemoryFile()) {
    const __int64 nWant = m_nWinPos + n;
    if (nWant > KMEM_SIZE_MAX) {
      KLog(KLOG_ASSERT, "CKByteStream: a memory stream holds at most 128 MiB");
      return 0;
    }
    // Geometric growth: a long run of writes costs amortised linear time.
    __int64 nAlloc = m_pFile->MemRoom() * 2;
    if (nAlloc < nWant) nAlloc = nWant;
    nAlloc = (nAlloc + KFILE_GROW_STEP - 1) / KFILE_GROW_STEP * KFILE_GROW_STEP;
    if (nAlloc > KMEM_SIZE_MAX) nAlloc = KMEM_SIZE_MAX;
    m_pFile->SetAllocatedSize((unsigned __int64)(nAlloc + m_pFile->m_mem.m_nStartOffset));
    if (m_pFile->MemRoom() < nWant) return 0;
    m_pWin = m_pWCur = m_pFile->MemData() + m_nWinPos;
    m_pWEnd = m_pFile->MemData() + m_pFile->MemRoom();
    return 1;
  }
  if (m_pWEnd - m_pWin < n) {
    if (n > KMEM_SIZE_MAX || !m_memBuf.SetSize((unsigned)n)) return 0;
    m_pWin = m_pWCur = m_memBuf.GetFromStart(0, 0);
    m_pWEnd = m_pWin + n;
  }
  return 1;
}

__int64 CKByteStream::WriteSlow(const unsigned char* p, __int64 n) {
  if (!m_bWriting || n < 0) return 0;
  if (IsMemoryFile()) {
    if (!WriteRoom(n)) return 0;
    memcpy(m_pWCur, p, (size_t)n);
    m_pWCur += n;
    return n;
  }
  // Fill the window, flush it, then large blocks go straight through.
  __int64 nDone = m_pWEnd - m_pWCur;
  if (nDone > n) nDone = n;
  memcpy(m_pWCur, p, (size_t)nDone);
  m_pWCur += nDone;
  if (!Flush()) return 0;
  const __int64 nRest = n - nDone;
  if (nRest >= m_pWEnd - m_pWin) {
    const __int64 k = m_pGZ ? m_pGZ->Write(p + nDone, nRest)
                            : m_pFile->Write(p + nDone, (unsigned __int64)nRest);
    if (k > 0) {
      m_nWinPos += k;
      if (m_nWinPos > m_nSize) m_nSize = m_nWinPos;
      nDone += k;
    }
    return nDone;
  }
  memcpy(m_pWCur, p + nDone, (size_t)nRest);
  m_pWCur += nRest;
  return n;
}

int CKByteStream::WriteBytes(const unsigned char* p, __int64& n) {
  if (n <= 0) {
    n = 0;
    return 1;
  }
  if (!p) {
    n = 0;
    return 0;
  }
  if (m_pWEnd - m_pWCur >= n) {
    memcpy(m_pWCur, p, (size_t)n);
    m_pWCur += n;
    return 1;
  }
  const __int64 nWant = n;
  n = WriteSlow(p, n);
  return n == nWant;
}

CKMem CKByteStream::GetWriteBytes(__int64 n) {
  if (!WriteRoom(n)) return CKMem();
  if (IsMemoryFile()) {
    CKMem& mem = m_pFile->m_mem;
    return CKMem(*mem.m_pMemRef, (unsigned)(m_pWCur - m_pFile->MemData()), mem.m_nStartOffset,
                 mem.m_nAllocatedSize);
  }
  return CKMem(*m_memBuf.m_pMemRef, (unsigned)(m_pWCur - m_pWin), 0, m_memBuf.m_nAllocatedSize);
}

int CKByteStream::FlushWriteBytes(__int64 n) {
  KASSERT_RETV(m_bWriting, 0);
  KASSERT_RETV(n >= 0 && n <= m_pWEnd - m_pWCur, 0);
  m_pWCur += n;
  return 1;
}

// ---------------------------------------------------------------- reading
__int64 CKByteStream::ReadRemaining() const {
  if (!m_bReading) return 0;
  if (m_pGZ) return -1;
  return m_nSize - GetPosition();
}

int CKByteStream::Refill() {
  if (!m_bReading) return 0;
  if (IsMemoryFile()) {
    const __int64 nPos = GetPosition();
    const __int64 nEnd = m_pFile->Size() < m_pFile->MemRoom() ? m_pFile->Size() : m_pFile->MemRoom();
    if (nPos >= nEnd) return 0;
    m_nWinPos = nPos;
    m_pWin = m_pRCur = m_pFile->MemData() + nPos;
    m_pREnd = m_pFile->MemData() + nEnd;
    return 1;
  }
  m_nWinPos += m_pREnd - m_pWin;
  unsigned char* pBase = m_memBuf.GetFromStart(0, 0);
  m_pWin = m_pRCur = m_pREnd = pBase;
  if (m_bSourceEnd || !pBase) return 0;
  __int64 k;
  if (m_pGZ) {
    k = m_pGZ->Read(pBase, m_nBuffSize);
  } else {
    m_memBuf.m_nOffset = m_memBuf.m_nStartOffset = 0;
    k = (__int64)m_pFile->Read(m_memBuf, (unsigned __int64)m_nBuffSize);
    // Read may have moved the block.
    pBase = m_memBuf.GetFromStart(0, 0);
    m_pWin = m_pRCur = m_pREnd = pBase;
  }
  if (k <= 0) {
    m_bSourceEnd = 1;
    return 0;
  }
  m_pREnd = pBase + k;
  return 1;
}

__int64 CKByteStream::ReadSlow(unsigned char* p, __int64 n) {
  if (!m_bReading || n < 0) return 0;
  __int64 nDone = 0;
  while (nDone < n) {
    __int64 nHave = m_pREnd - m_pRCur;
    if (nHave > 0) {
      if (nHave > n - nDone) nHave = n - nDone;
      memcpy(p + nDone, m_pRCur, (size_t)nHave);
      m_pRCur += nHave;
      nDone += nHave;
      continue;
    }
    // Large reads from a disk file go straight into the target.
    if (!m_pGZ && !IsMemoryFile() && n - nDone >= m_nBuffSize && !m_bSourceEnd) {
      m_nWinPos += m_pREnd - m_pWin;
      m_pWin = m_pRCur = m_pREnd;
      __int64 nRest = n - nDone;
      if (nRest > KMEM_SIZE_MAX) nRest = KMEM_SIZE_MAX;
      CKMemFake fake(p + nDone, (unsigned)nRest);
      const __int64 k = (__int64)m_pFile->Read(fake, (unsigned __int64)nRest);
      if (k <= 0) {
        m_bSourceEnd = 1;
        break;
      }
      m_nWinPos += k;
      nDone += k;
      continue;
    }
    if (!Refill()) break;
  }
  return nDone;
}

int CKByteStream::ReadBytes(CKMem& mem, __int64& n) {
  KASSERT_RETV_T(m_pREnd - m_pRCur >= 0, "nBytesAvail >= 0", 0);
  if (n <= 0) {
    n = 0;
    return 1;
  }
  const __int64 nRemain = ReadRemaining();
  if (nRemain >= 0 && n > nRemain) n = nRemain;
  if (n > KMEM_SIZE_MAX) n = KMEM_SIZE_MAX;
  unsigned char* p = n ? mem.GetFromStart((unsigned)n) : nullptr;
  if (!p) {
    n = 0;
    return 0;
  }
  n = ReadSlow(p, n);
  mem.IncreaseOffset((unsigned)n);
  return n > 0;
}

int CKByteStream::Eof() const {
  if (!m_bReading) return 1;
  if (m_pREnd - m_pRCur > 0) return 0;
  if (IsMemoryFile()) return GetPosition() >= m_nSize;
  // Only a read can tell whether a compressed or disk source has more.
  return const_cast<CKByteStream*>(this)->Refill() ? 0 : 1;
}

// ---------------------------------------------------------------- positions
__int64 CKByteStream::GetPosition() const {
  if (m_bWriting) return m_nWinPos + (m_pWCur - m_pWin);
  if (m_bReading) return m_nWinPos + (m_pRCur - m_pWin);
  return 0;
}

int CKByteStream::SetPosition(__int64 nPos) {
  KASSERT_RETV(!m_bZip, 0);
  if (!m_pFile || nPos < 0) return 0;
  if (m_bWriting) {
    if (!Flush()) return 0;
    if (IsMemoryFile()) {
      if (nPos > m_nSize) return 0;
      m_nWinPos = nPos;
      m_pWin = m_pWCur = m_pFile->MemData() ? m_pFile->MemData() + nPos : nullptr;
      return 1;
    }
    if (m_pFile->Seek(nPos, 1) != 0) return 0;
    m_nWinPos = nPos;
    return 1;
  }
  if (!m_bReading) return 0;
  if (nPos >= m_nWinPos && nPos <= m_nWinPos + (m_pREnd - m_pWin)) {
    m_pRCur = m_pWin + (nPos - m_nWinPos);
    return 1;
  }
  if (IsMemoryFile()) return 0;  // the window is the whole content
  if (m_pFile->Seek(nPos, 1) != 0) return 0;
  m_pWin = m_pRCur = m_pREnd = m_memBuf.GetFromStart(0, 0);
  m_nWinPos = nPos;
  m_bSourceEnd = 0;
  return 1;
}

__int64 CKByteStream::GetSize() const {
  if (m_bWriting) {
    const __int64 nPos = GetPosition();
    return nPos > m_nSize ? nPos : m_nSize;
  }
  if (m_bReading && m_pGZ) return m_nWinPos + (m_pREnd - m_pWin);
  return m_nSize;
}

__int64 CKByteStream::UpdateSize() {
  m_nSize = GetSize();
  return m_nSize;
}

int CKByteStream::IsFileOpen() const {
  if (m_pGZ) return m_pGZ->IsOpen();
  if (!m_pFile) return 0;
  return KFILE_HAS_MEMORY(m_pFile) ? 1 : m_pFile->IsOpen();
}

int CKByteStream::IsFileBased() const {
  return m_pGZ != nullptr || (m_pFile && !KFILE_HAS_MEMORY(m_pFile));
}

// ---------------------------------------------------------------- whole content
int CKByteStream::ToFile(const char* szName, int bAppend) {
  KASSERT_RETV(szName && *szName, 0);
  CKFile file(szName, 0);
  return ToFile(file, bAppend);
}

int CKByteStream::ToFile(CKFile& file, int bAppend) {
  KASSERT_RETV(!m_bZip, 0);
  KASSERT_RETV(m_pFile && &file != m_pFile, 0);
  if (m_bWriting && !Flush()) return 0;
  if (!KFILE_HAS_MEMORY(&file) && !file.IsOpen()) {
    const unsigned long nMode =
        bAppend ? KFILE_APPEND | KFILE_CREATE : KFILE_WRITE | KFILE_CREATE | KFILE_TRUNCATE;
    if (!file.Open(nMode)) return 0;
  }
  const __int64 nSaved = file.m_nPosition;
  if (KFILE_HAS_MEMORY(&file)) {
    if (!bAppend) file.Free();
    file.m_nPosition = file.m_nSize;
  } else if (!bAppend && file.Stream()) {
    file.Seek(0, 1);
  } else {
    file.Seek(0, 2);
  }
  int bOk = 1;
  const __int64 nSize = GetSize();
  if (KFILE_HAS_MEMORY(m_pFile)) {
    const __int64 n = nSize < m_pFile->MemRoom() ? nSize : m_pFile->MemRoom();
    bOk = n == nSize && (n == 0 || file.Write(m_pFile->MemData(), (unsigned __int64)n) == n);
  } else {
    // A disk stream: its file may be open for writing only, so the bytes
    // are read back through a reader of their own.
    FILE* f = m_pFile->Stream();
    if (f && fflush(f) != 0) bOk = 0;
    CKFile src(m_pFile->FileName(), KFILE_READ);
    if (!bOk || !src.Open()) bOk = 0;
    CKMem mem;
    for (__int64 nDone = 0; bOk && nDone < nSize;) {
      const __int64 nSlice = nSize - nDone < KSTREAM_SLICE ? nSize - nDone : KSTREAM_SLICE;
      mem.m_nOffset = mem.m_nStartOffset = 0;
      const __int64 k = (__int64)src.Read(mem, (unsigned __int64)nSlice);
      if (k <= 0 || file.Write(mem.GetFromStart(0, 0), (unsigned __int64)k) != k) bOk = 0;
      nDone += k;
    }
  }
  if (KFILE_HAS_MEMORY(&file)) file.m_nPosition = bAppend ? nSaved : 0;
  return bOk;
}

// After the content was replaced in place: a writer goes on at its end, a
// reader starts again at its beginning.
void CKByteStream::Rebase() {
  m_nSize = m_pFile->m_nSize;
  unsigned char* p = m_pFile->MemData();
  if (m_bWriting) {
    m_nWinPos = m_nSize;
    m_pWin = m_pWCur = p ? p + m_nSize : nullptr;
    m_pWEnd = p ? p + m_pFile->MemRoom() : nullptr;
  } else {
    m_nWinPos = 0;
    m_pWin = m_pRCur = p;
    m_pREnd = p ? p + m_nSize : nullptr;
  }
}

int CKByteStream::Zip(int nLevel) {
  KASSERT_RETV(IsMemoryFile(), 0);
  if (m_bWriting && !Flush()) return 0;
  const __int64 nSize = GetSize();
  if (nSize <= 0 || nSize > m_pFile->MemRoom()) return 0;
  int bDone = 0;
  const int bOk = m_pFile->m_mem.Zip((unsigned)nSize, nLevel, 0, &bDone);
  if (bDone) m_pFile->m_nSize = m_pFile->m_mem.Size();
  Rebase();
  return bOk;
}

int CKByteStream::Unzip() {
  KASSERT_RETV(IsMemoryFile(), 0);
  if (m_bWriting && !Flush()) return 0;
  const __int64 nSize = GetSize();
  if (nSize < 0 || nSize > m_pFile->MemRoom()) return 0;
  int bDone = 0;
  const int bOk = m_pFile->m_mem.Unzip((unsigned)nSize, &bDone);
  if (bDone) m_pFile->m_nSize = m_pFile->m_mem.Size();
  Rebase();
  return bOk;
}

// ---------------------------------------------------------------- typed values
int CKByteStream::PutText(const char* p, uint32_t nLen) {
  // Length (characters + 1), characters, zero byte: one window check.
  const uint32_t nWire = nLen + 1;
  if (m_pWEnd - m_pWCur >= (__int64)nWire + 4) {
    Le32(m_pWCur, nWire);
    memcpy(m_pWCur + 4, p, nLen);
    m_pWCur[4 + nLen] = 0;
    m_pWCur += 4 + (size_t)nWire;
    return 1;
  }
  unsigned char b[4];
  Le32(b, nWire);
  const unsigned char z = 0;
  return PutRaw(b, 4) && PutRaw(p, nLen) && PutRaw(&z, 1);
}

int CKByteStream::Put(const char* s) {
  if (!s) return Put(0);
  return PutText(s, (uint32_t)strlen(s));
}

int CKByteStream::PutNL(const CKString& s) { return PutRaw(s.GetString(), (__int64)s.GetLength() + 1); }

int CKByteStream::Put(const CKGuid& g) {
  unsigned char b[16];
  Le32(b, g.Data1);
  b[4] = (unsigned char)g.Data2;
  b[5] = (unsigned char)(g.Data2 >> 8);
  b[6] = (unsigned char)g.Data3;
  b[7] = (unsigned char)(g.Data3 >> 8);
  memcpy(b + 8, g.Data4, 8);
  return PutRaw(b, 16);
}

int CKByteStream::Get(CKGuid& g) {
  unsigned char b[16];
  if (!GetRaw(b, 16)) return 0;
  g.Data1 = Rd32(b);
  g.Data2 = (uint16_t)(b[4] | b[5] << 8);
  g.Data3 = (uint16_t)(b[6] | b[7] << 8);
  memcpy(g.Data4, b + 8, 8);
  return 1;
}

int CKByteStream::Put(CKMem& mem, __int64 n) {
  if (n < 0) return 0;
  const unsigned char* p = mem.m_pMemRef ? mem.m_pMemRef->pData : nullptr;
  const __int64 nAvail = p && mem.m_nAllocatedSize > mem.m_nStartOffset
                             ? (__int64)(mem.m_nAllocatedSize - mem.m_nStartOffset)
                             : 0;
  KASSERT_RETV(n <= nAvail, 0);
  return n == 0 || PutRaw(p + mem.m_nStartOffset, n);
}

int CKByteStream::Get(CKMem& mem, __int64 n) {
  if (n < 0) return 0;
  if (n == 0) return 1;
  // Room is made only for bytes that are there.
  const __int64 nRemain = ReadRemaining();
  if ((nRemain >= 0 && n > nRemain) || n > KMEM_SIZE_MAX) return 0;
  unsigned char* p = mem.GetFromStart((unsigned)n);
  if (!p || !GetRaw(p, n)) return 0;
  mem.IncreaseOffset((unsigned)n);
  return 1;
}

int CKByteStream::Get(CKString& s) {
  int nLen = 0;
  s.Empty();
  if (!Get(nLen)) return 0;
  if (nLen == 0 || nLen > KSTREAM_TEXT_MAX) {
    s.Empty();
    return 1;
  }
  s.Empty();
  if (nLen < 0) return 0;
  const __int64 nRemain = ReadRemaining();
  if (nRemain >= 0 && nLen > nRemain) return 0;
  if (m_pREnd - m_pRCur >= nLen) {
    if (m_pRCur[nLen - 1] != 0) return 0;
    char* p = s.GetBuffer((unsigned)nLen - 1);
    memcpy(p, m_pRCur, (size_t)nLen - 1);
    s.ReleaseBuffer((unsigned)nLen - 1);
    m_pRCur += nLen;
    return 1;
  }
  // Across windows, in slices: memory follows the bytes actually read.
  std::string str;
  for (__int64 nDone = 0; nDone < nLen;) {
    const __int64 nSlice = nLen - nDone < KSTREAM_SLICE ? nLen - nDone : KSTREAM_SLICE;
    str.resize((size_t)(nDone + nSlice));
    if (!GetRaw(&str[(size_t)nDone], nSlice)) return 0;
    nDone += nSlice;
  }
  if (str.back() != 0) return 0;
  char* p = s.GetBuffer((unsigned)nLen - 1);
  memcpy(p, str.data(), (size_t)nLen - 1);
  s.ReleaseBuffer((unsigned)nLen - 1);
  return 1;
}

int CKByteStream::GetNL(CKString& s) {
  s.Empty();
  std::string str;
  for (;;) {
    if (m_pREnd - m_pRCur <= 0 && !Refill()) break;
    const size_t nHave = (size_t)(m_pREnd - m_pRCur);
    const void* pZero = memchr(m_pRCur, 0, nHave);
    const size_t nText = pZero ? (size_t)((const unsigned char*)pZero - m_pRCur) : nHave;
    str.append((const char*)m_pRCur, nText);
    m_pRCur += pZero ? nText + 1 : nText;
    if (pZero) {
      char* p = s.GetBuffer((unsigned)str.size());
      memcpy(p, str.data(), str.size());
      s.ReleaseBuffer((unsigned)str.size());
      return 1;
    }
    if (str.size() >= KSTREAM_TEXT_MAX) break;
  }
  // No terminator before the end: what was read is kept, the read failed.
  char* p = s.GetBuffer((unsigned)str.size());
  memcpy(p, str.data(), str.size());
  s.ReleaseBuffer((unsigned)str.size());
  return 0;
}

int CKByteStream::Put(const CKDateTime& d) {
  // Minute before hour: the stored layout (Get reads hour first).
  const int nYear = d.GetYear();
  const unsigned char b[7] = {(unsigned char)nYear, (unsigned char)(nYear >> 8),
                              (unsigned char)d.GetMonth(), (unsigned char)d.GetDay(),
                              (unsigned char)d.GetMinute(), (unsigned char)d.GetHour(),
                              (unsigned char)d.GetSecond()};
  return PutRaw(b, 7);
}

int CKByteStream::Get(CKDateTime& d) {
  d.Empty();
  unsigned char b[7];
  if (!GetRaw(b, 7)) return 0;
  d.SetDateTime((short)(b[0] | b[1] << 8), (signed char)b[2], (signed char)b[3],
                (signed char)b[4], (signed char)b[5], (signed char)b[6]);
  return 1;
}

int CKByteStream::Put(const CKList& list) {
  const int n = list.Count();
  if (!Put(n)) return 0;
  for (int i = 0; i < n; ++i) {
    const CKString s = list.Get(i);
    if (!PutText(s.GetString(), s.GetLength())) return 0;
  }
  return 1;
}

int CKByteStream::Put(const CKFastList& list) {
  const int n = list.Count();
  if (!Put(n)) return 0;
  for (int i = 0; i < n; ++i) {
    const CKString s = list.Get(i);
    if (!PutText(s.GetString(), s.GetLength())) return 0;
  }
  return 1;
}

int CKByteStream::Put(const CKListUINT64& list) {
  const int n = list.Count();
  if (!Put(n)) return 0;
  for (int i = 0; i < n; ++i)
    if (!PutINT64((__int64)list.Get(i))) return 0;
  return 1;
}

int CKByteStream::Put(const CKPileT<__int64>& pile) {
  const int n = pile.Count();
  if (!Put(n)) return 0;
  for (int i = 0; i < n; ++i)
    if (!PutINT64(pile.Get(i))) return 0;
  return 1;
}

int CKByteStream::Put(const CKListDateTime& list) {
  const int n = list.Count();
  if (!Put(n)) return 0;
  for (int i = 0; i < n; ++i)
    if (!Put(list.Get(i))) return 0;
  return 1;
}
