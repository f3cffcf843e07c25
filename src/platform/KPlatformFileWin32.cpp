// Files on Win32.
#if defined(_WIN32)
#include "platform/KPlatformFile.h"

#include <cstring>
#include <string>

#include <windows.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

FILE* FileOpen(const char* szName, const char* szMode) {
  if (!szName || !szMode) return nullptr;
  // "N": the handle is not inherited by child processes.
  std::string strMode(szMode);
  strMode += 'N';
  return fopen(szName, strMode.c_str());
}

static uint64_t Ticks(const FILETIME& ft) {
  return ((uint64_t)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
}

bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate) {
  if (!szPattern || !*szPattern) return false;
  WIN32_FIND_DATAA fd;
  HANDLE h = FindFirstFileA(szPattern, &fd);
  if (h == INVALID_HANDLE_VALUE) return false;
  // The smallest matching name, as on every platform.
  WIN32_FIND_DATAA best = fd;
  while (FindNextFileA(h, &fd))
    if (strcmp(fd.cFileName, best.cFileName) < 0) best = fd;
  const DWORD nErr = GetLastError();
  FindClose(h);
  if (nErr != ERROR_NO_MORE_FILES) ReportError("FindNextFileA", (int)nErr);
  if (pWrite) *pWrite = Ticks(best.ftLastWriteTime);
  if (pCreate) *pCreate = Ticks(best.ftCreationTime);
  return true;
}

}  // namespace kplat

#endif  // _WIN32
