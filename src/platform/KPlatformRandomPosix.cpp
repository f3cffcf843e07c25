// Random bytes on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformRandom.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/random.h>
#endif

#include "platform/KPlatformEnv.h"

namespace kplat {

// POSIX fallback: the kernel's pool through /dev/urandom.
static bool ReadUrandom(unsigned char* p, size_t nLen) {
  const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    ReportError("open /dev/urandom", errno);
    return false;
  }
  bool bOk = true;
  while (nLen > 0) {
    const ssize_t n = read(fd, p, nLen);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ReportError("read /dev/urandom", n < 0 ? errno : EIO);
      bOk = false;
      break;
    }
    p += n;
    nLen -= (size_t)n;
  }
  close(fd);
  return bOk;
}

bool RandomBytes(void* pBuffer, size_t nLen) {
  unsigned char* p = (unsigned char*)pBuffer;
#if defined(__linux__)
  // Linux-only: getrandom needs no descriptor.
  while (nLen > 0) {
    const ssize_t n = getrandom(p, nLen, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == ENOSYS) break;  // an old kernel: fall back below
      ReportError("getrandom", errno);
      return false;
    }
    p += n;
    nLen -= (size_t)n;
  }
  if (nLen == 0) return true;
#endif
  return ReadUrandom(p, nLen);
}

}  // namespace kplat

#endif  // !_WIN32
