// Environment, debug output and failure reports on Win32.
#if defined(_WIN32)
#include "platform/KPlatformEnv.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include <windows.h>

#include <base/tools/KDebug.h>

#include "platform/KPlatformThread.h"

namespace kplat {

bool GetEnv(const char* szName, std::string& strValue) {
  if (!szName) return false;
  MutexGuard g(EnvLock());
  std::vector<char> buf(256);
  for (;;) {
    SetLastError(0);
    const DWORD n = GetEnvironmentVariableA(szName, buf.data(), (DWORD)buf.size());
    if (n == 0) {
      if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) return false;
      if (GetLastError() != 0) return false;
      strValue.clear();  // an empty value
      return true;
    }
    if (n < buf.size()) {
      strValue.assign(buf.data(), n);
      return true;
    }
    buf.resize(n);  // n is the size needed, terminator included
  }
}

bool SetEnv(const char* szName, const char* szValue) {
  if (!szName || !*szName || strchr(szName, '=')) return false;
  MutexGuard g(EnvLock());
  // _putenv_s sets both the C run-time's copy (read by _tzset) and the
  // process's; an empty value removes the variable.
  const errno_t rc = _putenv_s(szName, szValue ? szValue : "");
  if (rc != 0) ReportError("_putenv_s", ERROR_INVALID_PARAMETER);
  return rc == 0;
}

bool DebugWrite(const char* szText) {
  if (!szText) return false;
  OutputDebugStringA(szText);
  return true;
}

void ReportError(const char* szCall, int nError) {
  thread_local bool tInReport = false;
  if (tInReport) return;
  tInReport = true;
  char szBuf[256];
  DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                           (DWORD)nError, 0, szBuf, sizeof(szBuf), nullptr);
  while (n > 0 && (szBuf[n - 1] == '\r' || szBuf[n - 1] == '\n' || szBuf[n - 1] == ' '))
    szBuf[--n] = 0;
  KLog(KLOG_ERROR, "ERROR => ", szCall, " failed: ", n ? szBuf : "unknown error");
  tInReport = false;
}

}  // namespace kplat

#endif  // _WIN32
