// Whole-file saves on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformSave.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

namespace {

bool WriteAll(int fd, const char* p, size_t n) {
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

}  // namespace

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
