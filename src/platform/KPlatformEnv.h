// Platform area: environment, debug output and failure reports.
//
// POSIX: KPlatformEnvPosix.cpp. Windows counterparts: GetEnv/SetEnv are
// GetEnvironmentVariableA/SetEnvironmentVariableA; DebugWrite is
// OutputDebugStringA; error texts come from FormatMessageA.
#ifndef KELVOR_KPLATFORMENV_H
#define KELVOR_KPLATFORMENV_H

#include <string>

#include "platform/KPlatformThread.h"

namespace kplat {

// The lock around the process's environment and time-zone state: getenv,
// setenv and the C library's time-zone conversions (which read TZ) are not
// safe against each other. Never freed, so it outlives static destructors.
inline Mutex* EnvLock() {
  static Mutex* p = MutexNew();
  return p;
}

// Environment variables: false when the variable does not exist.
bool GetEnv(const char* szName, std::string& strValue);
bool SetEnv(const char* szName, const char* szValue);

// Raw debug output (standard error here); the library decides whether to
// call it. False when the text could not be written.
bool DebugWrite(const char* szText);

// Reports a refused system call through the log:
// "ERROR => <szCall> failed: <the system's text for nError>" (type 10).
void ReportError(const char* szCall, int nError);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMENV_H
