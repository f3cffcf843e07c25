// Whole-file saves on Win32.
#if defined(_WIN32)
#include "platform/KPlatformSave.h"

#include <algorithm>
#include <string>

#include <windows.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

bool FileSaveReplace(const char* szName, const char* p, size_t n) {
  if (!szName || !*szName || (!p && n)) return false;
  try {
    static volatile LONG s_nSeq = 0;
    HANDLE h = INVALID_HANDLE_VALUE;
    std::string strTmp;
    DWORD nErr = 0;
    for (int nTry = 0; h == INVALID_HANDLE_VALUE && nTry < 100; nTry++) {
      strTmp = std::string(szName) + ".~" + std::to_string((unsigned long)GetCurrentProcessId()) +
               "." + std::to_string((long)InterlockedIncrement(&s_nSeq)) + ".tmp";
      h = CreateFileA(strTmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                      FILE_ATTRIBUTE_NORMAL, nullptr);
      if (h == INVALID_HANDLE_VALUE) {
        nErr = GetLastError();
        if (nErr != ERROR_FILE_EXISTS && nErr != ERROR_ALREADY_EXISTS) break;
      }
    }
    if (h == INVALID_HANDLE_VALUE) {
      ReportError("CreateFileA", (int)nErr);
      return false;
    }
    bool bOk = true;
    for (size_t nDone = 0; nDone < n;) {
      const DWORD nChunk = (DWORD)(std::min<size_t>)(n - nDone, 0x40000000);
      DWORD nWritten = 0;
      if (!WriteFile(h, p + nDone, nChunk, &nWritten, nullptr) || nWritten == 0) {
        ReportError("WriteFile", (int)GetLastError());
        bOk = false;
        break;
      }
      nDone += nWritten;
    }
    if (bOk && !FlushFileBuffers(h)) {
      ReportError("FlushFileBuffers", (int)GetLastError());
      bOk = false;
    }
    if (!CloseHandle(h)) {
      ReportError("CloseHandle", (int)GetLastError());
      bOk = false;
    }
    if (bOk &&
        !MoveFileExA(strTmp.c_str(), szName, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      ReportError("MoveFileExA", (int)GetLastError());
      bOk = false;
    }
    if (!bOk && !DeleteFileA(strTmp.c_str())) ReportError("DeleteFileA", (int)GetLastError());
    return bOk;
  } catch (...) {
    return false;
  }
}

}  // namespace kplat

#endif  // _WIN32
