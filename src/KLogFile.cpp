// CKLogFile: one open/append/close per line under the object's own lock.
#define KSRC_PATH "src/KLogFile"

#include <base/tools/KLogFile.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/KPlatform.h"

CKLogFile::CKLogFile() {}

// Copies name and stamp under the source's lock (a writer may be stamping
// it); the lock itself is never shared, and neither is the name's block: the
// two objects are guarded by different locks and string counts are not
// atomic.
CKLogFile::CKLogFile(const CKLogFile& o) {
  CKCriticalSectionLock lock(&o.m_cs);
  m_strFileName = (const char*)o.m_strFileName;
  m_dtStamp = o.m_dtStamp;
}

CKLogFile& CKLogFile::operator=(const CKLogFile& o) {
  if (this == &o) return *this;
  CKString strName;
  CKDateTime dtStamp;
  {
    CKCriticalSectionLock lock(&o.m_cs);
    strName = (const char*)o.m_strFileName;
    dtStamp = o.m_dtStamp;
  }
  // One lock at a time: a = b and b = a on two threads cannot deadlock.
  CKCriticalSectionLock lock(&m_cs);
  m_strFileName = (const char*)strName;
  m_dtStamp = dtStamp;
  return *this;
}

CKLogFile::~CKLogFile() {}

void CKLogFile::SetFileName(const char* szName) {
  CKCriticalSectionLock lock(&m_cs);
  m_strFileName = szName;
}

CKString CKLogFile::GetFileName() const {
  CKCriticalSectionLock lock(&m_cs);
  return CKString((const char*)m_strFileName);
}

// The whole line is formatted first and appended in one write, so that lines
// from writers holding other locks (copies, other processes) never mix. The
// bytes are those of fprintf + vfprintf + "\n", zero bytes included. Forced
// termination is held off for one line, so the file is always closed and the
// line whole.
void CKLogFile::Write(const char* szFormat, va_list args, int bNewLine) {
  kplat::NoCancelScope noCancel;
  CKCriticalSectionLock lock(&m_cs);
  m_dtStamp.CurrentDate();
  std::string strLine = (const char*)m_dtStamp.Format('/', ':', '.');
  strLine += ": ";
  if (szFormat) {
    va_list copy;
    va_copy(copy, args);
    const int n = vsnprintf(nullptr, 0, szFormat, copy);
    va_end(copy);
    if (n > 0) {
      const size_t nAt = strLine.size();
      strLine.resize(nAt + (size_t)n + 1);
      vsnprintf(&strLine[nAt], (size_t)n + 1, szFormat, args);
      strLine.resize(nAt + (size_t)n);
    }
  }
  if (bNewLine) strLine += '\n';
  kplat::FileAppendText(m_strFileName, strLine.data(), strLine.size());
}

void CKLogFile::Log(const char* szFormat, ...) {
  va_list args;
  va_start(args, szFormat);
  Write(szFormat, args, TRUE);
  va_end(args);
}

void CKLogFile::LogNoCR(const char* szFormat, ...) {
  va_list args;
  va_start(args, szFormat);
  Write(szFormat, args, FALSE);
  va_end(args);
}

void CKLogFile::LogNoCRWithThreadID(const char* szText) {
  kplat::NoCancelScope noCancel;
  CKCriticalSectionLock lock(&m_cs);
  m_dtStamp.CurrentDate();
  char szId[16];
  snprintf(szId, sizeof(szId), "(%08X) ", (unsigned)kplat::CurrentThreadId());
  std::string strLine = (const char*)m_dtStamp.Format('/', ':', '.');
  strLine += ": ";
  strLine += szId;
  if (szText) strLine += szText;
  kplat::FileAppendText(m_strFileName, strLine.data(), strLine.size());
}
