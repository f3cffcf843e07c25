// Environment, debug output and failure reports on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformEnv.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include <base/tools/KDebug.h>

#include "platform/KPlatformThread.h"

namespace kplat {

bool GetEnv(const char* szName, std::string& strValue) {
  if (!szName) return false;
  MutexGuard g(EnvLock());
  const char* v = getenv(szName);
  if (!v) return false;
  strValue = v;
  return true;
}

bool SetEnv(const char* szName, const char* szValue) {
  if (!szName || !*szName || strchr(szName, '=')) return false;
  MutexGuard g(EnvLock());
  const int rc = szValue ? setenv(szName, szValue, 1) : unsetenv(szName);
  if (rc != 0) ReportError(szValue ? "setenv" : "unsetenv", errno);
  return rc == 0;
}

bool DebugWrite(const char* szText) {
  if (!szText) return false;
  size_t n = strlen(szText);
  while (n > 0) {
    const ssize_t w = write(STDERR_FILENO, szText, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;  // nowhere left to report it
    }
    szText += w;
    n -= (size_t)w;
  }
  return true;
}

void ReportError(const char* szCall, int nError) {
  // A report whose own delivery fails must not report again.
  thread_local bool tInReport = false;
  if (tInReport) return;
  tInReport = true;
  char szBuf[256];
  // The GNU strerror_r may return a static text instead of filling szBuf.
  szBuf[0] = 0;
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
  const char* szText = strerror_r(nError, szBuf, sizeof(szBuf));
#else
  const char* szText = strerror_r(nError, szBuf, sizeof(szBuf)) == 0 ? szBuf : "unknown error";
#endif
  KLog(KLOG_ERROR, "ERROR => ", szCall, " failed: ", szText && *szText ? szText : "unknown error");
  tInReport = false;
}

}  // namespace kplat

#endif  // !_WIN32
