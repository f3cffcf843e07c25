// CKGZFile: the gzip file behind the byte stream's compressed mode.
#define KSRC_PATH "src/KZip"

#include <base/tools/KGZFile.h>

#include <climits>

#include <zlib.h>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>

#include "platform/KPlatformFile.h"

#define KGZ ((gzFile)m_pGz)

namespace {

// zlib's own account of a failed gz call.
void GzReport(gzFile gz, const char* szCall) {
  int nErr = 0;
  const char* sz = gz ? gzerror(gz, &nErr) : "cannot open";
  KLog(KLOG_ERROR, "ERROR => ", szCall, " failed: ", sz ? sz : "");
}

}  // namespace

CKGZFile::CKGZFile() : m_pGz(nullptr), m_bWriting(0) {}

CKGZFile::~CKGZFile() { Close(); }

int CKGZFile::OpenWrite(const char* szName, int nLevel) {
  Close();
  KASSERT_RETV(szName && *szName, 0);
  // The descriptor comes from the platform layer: binary and not inherited.
  const int fd = kplat::FileOpenDescriptor(szName, true);
  if (fd < 0) return 0;
  gzFile gz = gzdopen(fd, "wb");
  if (!gz) {
    kplat::FileCloseDescriptor(fd);
    GzReport(nullptr, "gzdopen");
    return 0;
  }
  if (nLevel < -1 || nLevel > 9) nLevel = Z_DEFAULT_COMPRESSION;
  if (gzsetparams(gz, nLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
    GzReport(gz, "gzsetparams");
    gzclose(gz);
    return 0;
  }
  m_pGz = gz;
  m_bWriting = 1;
  return 1;
}

int CKGZFile::OpenRead(const char* szName) {
  Close();
  KASSERT_RETV(szName && *szName, 0);
  const int fd = kplat::FileOpenDescriptor(szName, false);
  if (fd < 0) return 0;
  gzFile gz = gzdopen(fd, "rb");
  if (!gz) {
    kplat::FileCloseDescriptor(fd);
    GzReport(nullptr, "gzdopen");
    return 0;
  }
  m_pGz = gz;
  m_bWriting = 0;
  return 1;
}

__int64 CKGZFile::Write(const void* p, __int64 n) {
  KASSERT_RETV(m_pGz && m_bWriting, -1);
  const char* pc = (const char*)p;
  __int64 nDone = 0;
  // gzwrite takes an unsigned count and answers with an int: go in slices.
  while (nDone < n) {
    const unsigned nChunk = n - nDone > 0x40000000 ? 0x40000000u : (unsigned)(n - nDone);
    const int k = gzwrite(KGZ, pc + nDone, nChunk);
    if (k <= 0) {
      GzReport(KGZ, "gzwrite");
      return -1;
    }
    nDone += k;
  }
  return nDone;
}

__int64 CKGZFile::Read(void* p, __int64 n) {
  KASSERT_RETV(m_pGz && !m_bWriting, -1);
  char* pc = (char*)p;
  __int64 nDone = 0;
  while (nDone < n) {
    const unsigned nChunk = n - nDone > 0x40000000 ? 0x40000000u : (unsigned)(n - nDone);
    const int k = gzread(KGZ, pc + nDone, nChunk);
    if (k < 0) {
      GzReport(KGZ, "gzread");
      return -1;
    }
    if (k == 0) break;
    nDone += k;
  }
  return nDone;
}

int CKGZFile::Eof() const { return m_pGz ? gzeof(KGZ) != 0 : 1; }

int CKGZFile::Close() {
  if (!m_pGz) return 1;
  gzFile gz = KGZ;
  m_pGz = nullptr;
  const int rc = gzclose(gz);
  if (rc != Z_OK) {
    KLog(KLOG_ERROR, "ERROR => gzclose failed: ", KStr((__int64)rc));
    return 0;
  }
  return 1;
}
