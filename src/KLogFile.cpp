// CKLogFile: one open/append/close per line under the object's own lock.
#define KSRC_PATH "src/KLogFile"

#include <base/tools/KLogFile.h>

#include <cstdarg>
#include <cstdio>

#include "platform/KPlatform.h"

CKLogFile::CKLogFile() {}

// Copies name and stamp; the lock is never shared.
CKLogFile::CKLogFile(const CKLogFile& o) : m_strFileName(o.m_strFileName), m_dtStamp(o.m_dtStamp) {}

CKLogFile& CKLogFile::operator=(const CKLogFile& o) {
  if (this != &o) {
    m_strFileName = o.m_strFileName;
    m_dtStamp = o.m_dtStamp;
  }
  return *this;
}

CKLogFile::~CKLogFile() {}

void CKLogFile::SetFileName(const char* szName) {
  CKCriticalSectionLock lock(&m_cs);
  m_strFileName = szName;
}

void CKLogFile::Write(const char* szFormat, va_list args, int bNewLine) {
  CKCriticalSectionLock lock(&m_cs);
  m_dtStamp.CurrentDate();
  FILE* f = fopen(m_strFileName, "a+");
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
  CKCriticalSectionLock lock(&m_cs);
  m_dtStamp.CurrentDate();
  FILE* f = fopen(m_strFileName, "a+");
  if (!f) return;
  fprintf(f, "%s: (%08X) %s", (const char*)m_dtStamp.Format('/', ':', '.'),
          (unsigned)kplat::CurrentThreadId(), szText ? szText : "");
  fclose(f);
}
