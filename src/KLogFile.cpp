// CKLogFile: one open/append/close per line under the object's own lock.
#define KSRC_PATH "src/KLogFile"

#include <base/tools/KLogFile.h>

#include <cstdarg>
#include <cstdio>

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

// Forced termination is held off for one line, so the file is always closed
// and the line whole.
void CKLogFile::Write(const char* szFormat, va_list args, int bNewLine) {
  kplat::NoCancelScope noCancel;
  CKCriticalSectionLock lock(&m_cs);
  m_dtStamp.CurrentDate();
  FILE* f = kplat::FileOpen(m_strFileName, "a+");
  if (!f) return;
  fprintf(f, "%s: ", (const char*)m_dtStamp.Format('/', ':', '.'));
  if (szFormat) vfprintf(f, szFormat, args);
  if (bNewLine) fputs("\n", f);
  fclose(f);
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
  FILE* f = kplat::FileOpen(m_strFileName, "a+");
  if (!f) return;
  fprintf(f, "%s: (%08X) %s", (const char*)m_dtStamp.Format('/', ':', '.'),
          (unsigned)kplat::CurrentThreadId(), szText ? szText : "");
  fclose(f);
}
