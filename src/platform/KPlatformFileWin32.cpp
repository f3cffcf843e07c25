// Files on Win32.
#if defined(_WIN32)
#include "platform/KPlatformFile.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <windows.h>

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformThread.h"

namespace kplat {

FILE* FileOpen(const char* szName, const char* szMode) {
  if (!szName || !szMode) return nullptr;
  // "N": the handle is not inherited by child processes.
  std::string strMode(szMode);
  strMode += 'N';
  return fopen(szName, strMode.c_str());
}

bool FileAppendText(const char* szName, const char* p, size_t n) {
  if (!szName) return false;
  // Without FILE_WRITE_DATA every write goes to the end in one piece.
  HANDLE h = CreateFileA(szName, FILE_APPEND_DATA,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  std::string strText;
  strText.reserve(n + n / 16);
  for (size_t i = 0; i < n; ++i) {
    if (p[i] == '\n') strText += '\r';
    strText += p[i];
  }
  // Wine emulates the append with a size query and a positioned write, so two
  // handles can overwrite each other there; one lock keeps this process's
  // writers whole under Wine too (Windows itself needs none).
  static Mutex* s_pAppend = MutexNew();
  MutexGuard guard(s_pAppend);
  bool bOk = true;
  for (size_t nDone = 0; nDone < strText.size();) {
    const DWORD nChunk = (DWORD)(std::min<size_t>)(strText.size() - nDone, 0x40000000);
    DWORD nWritten = 0;
    if (!WriteFile(h, strText.data() + nDone, nChunk, &nWritten, nullptr) || nWritten == 0) {
      ReportError("WriteFile", (int)GetLastError());
      bOk = false;
      break;
    }
    nDone += nWritten;
  }
  if (!CloseHandle(h)) {
    ReportError("CloseHandle", (int)GetLastError());
    bOk = false;
  }
  return bOk;
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
