// Files on Win32.
#if defined(_WIN32)
#include "platform/KPlatformFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

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

bool FileSeek(FILE* f, int64_t nOffset, int nWhence) {
  if (!f) return false;
  if (_fseeki64(f, nOffset, nWhence) != 0) {
    ReportError("_fseeki64", errno);
    return false;
  }
  return true;
}

int64_t FileTell(FILE* f) {
  if (!f) return -1;
  const int64_t n = _ftelli64(f);
  if (n < 0) ReportError("_ftelli64", errno);
  return n < 0 ? -1 : n;
}

int FileKind(const char* szName) {
  if (!szName || !*szName) return FILE_KIND_NONE;
  const DWORD n = GetFileAttributesA(szName);
  if (n == INVALID_FILE_ATTRIBUTES) return FILE_KIND_NONE;
  return (n & FILE_ATTRIBUTE_DIRECTORY) ? FILE_KIND_DIR : FILE_KIND_FILE;
}

static int OpenCrt(const char* szName, int nFlags) {
  int fd = -1;
  if (_sopen_s(&fd, szName, nFlags | _O_BINARY | _O_NOINHERIT, _SH_DENYNO,
               _S_IREAD | _S_IWRITE) != 0)
    return -1;
  return fd;
}

FILE* FileCreateExclusive(const char* szName, bool* pbExists) {
  if (pbExists) *pbExists = false;
  if (!szName || !*szName) return nullptr;
  const int fd = OpenCrt(szName, _O_RDWR | _O_CREAT | _O_EXCL);
  if (fd < 0) {
    if (errno == EEXIST) {
      if (pbExists) *pbExists = true;
    } else {
      ReportError("_sopen_s", errno);
    }
    return nullptr;
  }
  FILE* f = _fdopen(fd, "wb+");
  if (!f) {
    ReportError("_fdopen", errno);
    _close(fd);
    DeleteFileA(szName);
  }
  return f;
}

int FileOpenDescriptor(const char* szName, bool bWrite) {
  if (!szName || !*szName) return -1;
  return OpenCrt(szName, bWrite ? _O_WRONLY | _O_CREAT | _O_TRUNC : _O_RDONLY);
}

void FileCloseDescriptor(int fd) {
  if (fd >= 0 && _close(fd) != 0) ReportError("_close", errno);
}

bool FileRename(const char* szFrom, const char* szTo) {
  if (!szFrom || !szTo) return false;
  if (!MoveFileExA(szFrom, szTo, MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED)) {
    ReportError("MoveFileExA", (int)GetLastError());
    return false;
  }
  return true;
}

bool FileRemove(const char* szName) {
  if (!szName || !*szName) return false;
  if (DeleteFileA(szName)) return true;
  const DWORD nErr = GetLastError();
  if (nErr != ERROR_FILE_NOT_FOUND && nErr != ERROR_PATH_NOT_FOUND)
    ReportError("DeleteFileA", (int)nErr);
  return false;
}

std::string TempDir() {
  char sz[MAX_PATH + 1];
  const DWORD n = GetTempPathA(sizeof(sz), sz);
  if (n == 0 || n > sizeof(sz)) {
    ReportError("GetTempPathA", (int)GetLastError());
    return ".";
  }
  std::string str(sz, n);
  while (str.size() > 3 && (str.back() == '\\' || str.back() == '/')) str.pop_back();
  return str;
}

// Whole-file saves: a temporary name beside the target, written, flushed
// and renamed over it.
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
