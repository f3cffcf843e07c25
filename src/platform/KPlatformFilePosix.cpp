// Files on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformFile.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

// Writes all n bytes, resuming after partial writes and signals.
static bool WriteAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    const ssize_t k = write(fd, p, n);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) {
      ReportError("write", k < 0 ? errno : EIO);
      return false;
    }
    p += k;
    n -= (size_t)k;
  }
  return true;
}

FILE* FileOpen(const char* szName, const char* szMode) {
  if (!szName || !szMode) return nullptr;
  // "e": the descriptor is opened with O_CLOEXEC (GNU C library and the BSDs).
  std::string strMode(szMode);
  strMode += 'e';
  for (;;) {
    FILE* f = fopen(szName, strMode.c_str());
    if (f || errno != EINTR) return f;
  }
}

bool FileAppendText(const char* szName, const char* p, size_t n) {
  if (!szName) return false;
  int fd;
  do fd = open(szName, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;
  bool bOk = WriteAll(fd, p, n);
  // Linux may report EINTR from close although the descriptor is gone.
  if (close(fd) != 0 && errno != EINTR) {
    ReportError("close", errno);
    bOk = false;
  }
  return bOk;
}

// '*' and '?' as the system's file search reads them; "*.*" is everything.
static bool WildMatch(const char* p, const char* s) {
  const char* pStar = nullptr;
  const char* sStar = nullptr;
  while (*s) {
    if (*p == '?' || *p == *s) {
      ++p;
      ++s;
    } else if (*p == '*') {
      pStar = p++;
      sStar = s;
    } else if (pStar) {
      p = pStar + 1;
      s = ++sStar;
    } else {
      return false;
    }
  }
  while (*p == '*') ++p;
  return !*p || strcmp(p, ".*") == 0;
}

static uint64_t ToFileTicks(int64_t nSec, long nNsec) {
  // 11644473600 s from 1601 to 1970; times before 1601 clamp to 0.
  const int64_t n = nSec + 11644473600LL;
  if (n < 0) return 0;
  return (uint64_t)n * 10000000u + (uint64_t)nNsec / 100u;
}

// Last-write and creation times of one path.
static bool PathTimes(const std::string& strPath, uint64_t* pWrite, uint64_t* pCreate) {
#if defined(__linux__) && defined(STATX_BTIME)
  // Linux-only: statx gives the birth time where the file system keeps one.
  struct statx sx;
  if (statx(AT_FDCWD, strPath.c_str(), 0, STATX_MTIME | STATX_BTIME | STATX_CTIME, &sx) == 0) {
    if (pWrite) *pWrite = ToFileTicks(sx.stx_mtime.tv_sec, (long)sx.stx_mtime.tv_nsec);
    if (pCreate) {
      const struct statx_timestamp& t = (sx.stx_mask & STATX_BTIME) ? sx.stx_btime : sx.stx_ctime;
      *pCreate = ToFileTicks(t.tv_sec, (long)t.tv_nsec);
    }
    return true;
  }
  if (errno != ENOSYS) return false;
#endif
  // POSIX fallback: no birth time, the last status change stands in.
  struct stat st;
  if (stat(strPath.c_str(), &st) != 0) return false;
  if (pWrite) *pWrite = ToFileTicks(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  if (pCreate) *pCreate = ToFileTicks(st.st_ctim.tv_sec, st.st_ctim.tv_nsec);
  return true;
}

bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate) {
  if (!szPattern || !*szPattern) return false;
  std::string strPath(szPattern);
  const size_t nSlash = strPath.find_last_of('/');
  const std::string strDir =
      nSlash == std::string::npos ? "." : strPath.substr(0, nSlash ? nSlash : 1);
  const std::string strName = nSlash == std::string::npos ? strPath : strPath.substr(nSlash + 1);
  if (strName.find_first_of("*?") != std::string::npos) {
    // opendir opens its descriptor close-on-exec.
    DIR* d = opendir(strDir.c_str());
    if (!d) return false;
    std::string strBest;
    bool bFound = false;
    for (;;) {
      errno = 0;
      struct dirent* e = readdir(d);
      if (!e) {
        if (errno != 0) ReportError("readdir", errno);
        break;
      }
      if (WildMatch(strName.c_str(), e->d_name) && (!bFound || strBest > e->d_name)) {
        strBest = e->d_name;
        bFound = true;
      }
    }
    closedir(d);
    if (!bFound) return false;
    strPath = (strDir == "/" ? "/" : strDir + "/") + strBest;
  }
  return PathTimes(strPath, pWrite, pCreate);
}

bool FileSeek(FILE* f, int64_t nOffset, int nWhence) {
  if (!f) return false;
  if ((int64_t)(off_t)nOffset != nOffset) {
    ReportError("fseeko", EOVERFLOW);
    return false;
  }
  if (fseeko(f, (off_t)nOffset, nWhence) != 0) {
    ReportError("fseeko", errno);
    return false;
  }
  return true;
}

int64_t FileTell(FILE* f) {
  if (!f) return -1;
  const off_t n = ftello(f);
  if (n < 0) ReportError("ftello", errno);
  return n < 0 ? -1 : (int64_t)n;
}

int FileKind(const char* szName) {
  if (!szName || !*szName) return FILE_KIND_NONE;
  struct stat st;
  if (stat(szName, &st) != 0) return FILE_KIND_NONE;
  return S_ISDIR(st.st_mode) ? FILE_KIND_DIR : FILE_KIND_FILE;
}

static int OpenRetry(const char* szName, int nFlags) {
  int fd;
  do fd = open(szName, nFlags | O_CLOEXEC, 0666);
  while (fd < 0 && errno == EINTR);
  return fd;
}

FILE* FileCreateExclusive(const char* szName, bool* pbExists) {
  if (pbExists) *pbExists = false;
  if (!szName || !*szName) return nullptr;
  const int fd = OpenRetry(szName, O_RDWR | O_CREAT | O_EXCL);
  if (fd < 0) {
    if (errno == EEXIST) {
      if (pbExists) *pbExists = true;
    } else {
      ReportError("open", errno);
    }
    return nullptr;
  }
  FILE* f = fdopen(fd, "wb+");
  if (!f) {
    ReportError("fdopen", errno);
    close(fd);
    unlink(szName);
  }
  return f;
}

int FileOpenDescriptor(const char* szName, bool bWrite) {
  if (!szName || !*szName) return -1;
  return OpenRetry(szName, bWrite ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY);
}

void FileCloseDescriptor(int fd) {
  if (fd >= 0 && close(fd) != 0 && errno != EINTR) ReportError("close", errno);
}

bool FileRename(const char* szFrom, const char* szTo) {
  if (!szFrom || !szTo) return false;
  if (rename(szFrom, szTo) != 0) {
    ReportError("rename", errno);
    return false;
  }
  return true;
}

bool FileRemove(const char* szName) {
  if (!szName || !*szName) return false;
  if (unlink(szName) == 0) return true;
  if (errno != ENOENT) ReportError("unlink", errno);
  return false;
}

std::string TempDir() {
  std::string str;
  if (!GetEnv("TMPDIR", str) || str.empty() || FileKind(str.c_str()) != FILE_KIND_DIR)
    str = "/tmp";
  while (str.size() > 1 && str.back() == '/') str.pop_back();
  return str;
}

// Whole-file saves: a temporary name beside the target, written, flushed
// and renamed over it.
bool FileSaveReplace(const char* szName, const char* p, size_t n) {
  if (!szName || !*szName || (!p && n)) return false;
  try {
    // A name no other saver uses: the process id and a per-process counter.
    static unsigned s_nSeq = 0;
    int fd = -1;
    std::string strTmp;
    for (int nTry = 0; fd < 0 && nTry < 100; nTry++) {
      strTmp = std::string(szName) + ".~" + std::to_string((long)getpid()) + "." +
               std::to_string(__atomic_add_fetch(&s_nSeq, 1, __ATOMIC_RELAXED)) + ".tmp";
      do fd = open(strTmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      while (fd < 0 && errno == EINTR);
      if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
      ReportError("open", errno);
      return false;
    }
    bool bOk = WriteAll(fd, p, n);
    if (bOk && fsync(fd) != 0 && errno != EINVAL) {
      ReportError("fsync", errno);
      bOk = false;
    }
    if (close(fd) != 0 && errno != EINTR) {
      ReportError("close", errno);
      bOk = false;
    }
    if (bOk && rename(strTmp.c_str(), szName) != 0) {
      ReportError("rename", errno);
      bOk = false;
    }
    if (!bOk && unlink(strTmp.c_str()) != 0) ReportError("unlink", errno);
    return bOk;
  } catch (...) {
    return false;
  }
}

}  // namespace kplat

#endif  // !_WIN32
