// CKLogFile: appends time-stamped lines to a text file. The file is opened
// and closed for every line, so several writers (threads or processes) may
// share it and a crash loses nothing already written.
#ifndef KELVOR_KLOGFILE_H
#define KELVOR_KLOGFILE_H

#include <cstdarg>

#include <base/tools/KDateTime.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>
#include <base/tools/KSync.h>

class KELVOR_API CKLogFile {
public:
  CKLogFile();
  CKLogFile(const CKLogFile& o);
  CKLogFile& operator=(const CKLogFile& o);
  virtual ~CKLogFile();

  void SetFileName(const char* szName);
  // A copy of the name, taken under the lock.
  CKString GetFileName() const;

  // "<time stamp>: " + the formatted text + "\n".
  void Log(const char* szFormat, ...) KELVOR_PRINTF(2, 3);
  // The same without the final "\n".
  void LogNoCR(const char* szFormat, ...) KELVOR_PRINTF(2, 3);
  // "<time stamp>: (<thread id, 8 upper-case hex digits>) <text>", no newline.
  void LogNoCRWithThreadID(const char* szText);

private:
  void Write(const char* szFormat, va_list args, int bNewLine) KELVOR_PRINTF(2, 0);

  CKString m_strFileName;
  CKDateTime m_dtStamp;  // time stamp of the line being written
  mutable CKCriticalSection m_cs;  // each object has a lock of its own
};

#endif  // KELVOR_KLOGFILE_H
