// IPv4 stream sockets on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformSocket.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

namespace {

thread_local int tSockError = 0;

// The Windows Sockets code for an errno value, so that callers read one set
// of codes on every system (10000 + the BSD number, as Winsock numbers them).
int WsaCode(int e) {
  switch (e) {
    case 0: return 0;
    case EINTR: return 10004;
    case EBADF: return 10009;
    case EACCES: return 10013;
    case EFAULT: return 10014;
    case EINVAL: return 10022;
    case EMFILE: case ENFILE: return 10024;
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EAGAIN: return 10035;
    case EINPROGRESS: return 10036;
    case EALREADY: return 10037;
    case ENOTSOCK: return 10038;
    case EDESTADDRREQ: return 10039;
    case EMSGSIZE: return 10040;
    case EPROTOTYPE: return 10041;
    case ENOPROTOOPT: return 10042;
    case EPROTONOSUPPORT: return 10043;
    case ESOCKTNOSUPPORT: return 10044;
    case EOPNOTSUPP: return 10045;
    case EAFNOSUPPORT: return 10047;
    case EADDRINUSE: return 10048;
    case EADDRNOTAVAIL: return 10049;
    case ENETDOWN: return 10050;
    case ENETUNREACH: return 10051;
    case ECONNABORTED: return 10053;
    case ECONNRESET: return 10054;
    case ENOBUFS: case ENOMEM: return 10055;
    case EISCONN: return 10056;
    case ENOTCONN: return 10057;
    case EPIPE: return 10058;  // WSAESHUTDOWN: the sending side is closed
    case ETIMEDOUT: return 10060;
    case ECONNREFUSED: return 10061;
    case EHOSTUNREACH: return 10065;
    default: return e;  // below 10000: never mistaken for a Winsock code
  }
}

bool Refused(const char* szCall, int e) {
  const int nCode = WsaCode(e);
  ReportError(szCall, e);
  tSockError = nCode;  // after the report, whose own calls may set errno
  return false;
}

bool SetCloseOnExec(int fd) {
  const int nFlags = fcntl(fd, F_GETFD);
  if (nFlags < 0 || fcntl(fd, F_SETFD, nFlags | FD_CLOEXEC) < 0) return Refused("fcntl", errno);
  return true;
}

// A peer that has gone must not raise SIGPIPE: Linux says so per send
// (MSG_NOSIGNAL), the BSDs per socket (SO_NOSIGPIPE).
bool SetNoSigPipe(int fd) {
#if defined(SO_NOSIGPIPE)
  int nOn = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &nOn, sizeof(nOn)) != 0)
    return Refused("setsockopt", errno);
#else
  (void)fd;
#endif
  return true;
}

// A new descriptor made ready for use (close-on-exec when the call could
// not ask for it, no SIGPIPE), or closed when it cannot be.
uintptr_t Prepared(int fd, bool bSetCloseOnExec) {
  if ((bSetCloseOnExec && !SetCloseOnExec(fd)) || !SetNoSigPipe(fd)) {
    close(fd);
    return kSockInvalid;
  }
  return (uintptr_t)fd;
}

#if defined(MSG_NOSIGNAL)
const int kSendFlags = MSG_NOSIGNAL;
#else
const int kSendFlags = 0;
#endif

int Fd(uintptr_t s) { return s > (uintptr_t)INT_MAX ? -1 : (int)s; }

uint64_t NowMicros() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (uint64_t)ts.tv_sec * 1000000u + (uint64_t)ts.tv_nsec / 1000u;
}

bool RefusedNow(const char* szCall) { return Refused(szCall, errno); }
bool RefusedNotIpv4(const char* szCall) { return Refused(szCall, EAFNOSUPPORT); }

}  // namespace
}  // namespace kplat

#include "platform/KPlatformSocketShared.h"

namespace kplat {

using sockshared::ToSockaddr;

int SockLastError() { return tSockError; }
void SockSetLastError(int nCode) { tSockError = nCode; }

uintptr_t SockCreateTcp4() {
#if defined(SOCK_CLOEXEC)
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
#endif
  if (fd < 0) {
    Refused("socket", errno);
    return kSockInvalid;
  }
#if defined(SOCK_CLOEXEC)
  return Prepared(fd, false);
#else
  return Prepared(fd, true);
#endif
}

bool SockClose(uintptr_t s) {
  const int fd = Fd(s);
  if (fd < 0) return Refused("close", EBADF);
  // Not retried on EINTR: Linux has released the descriptor by then.
  if (close(fd) != 0 && errno != EINTR) return Refused("close", errno);
  return true;
}

bool SockBind4(uintptr_t s, uint16_t nPort, uint32_t nAddr) {
  sockaddr_in sa;
  ToSockaddr(nAddr, nPort, sa);
  if (bind(Fd(s), (const sockaddr*)&sa, sizeof(sa)) != 0) return Refused("bind", errno);
  return true;
}

bool SockListen(uintptr_t s, int nBacklog) {
  if (listen(Fd(s), nBacklog < 0 ? SOMAXCONN : nBacklog) != 0) return Refused("listen", errno);
  return true;
}

bool SockConnect4(uintptr_t s, uint32_t nAddr, uint16_t nPort) {
  sockaddr_in sa;
  ToSockaddr(nAddr, nPort, sa);
  if (connect(Fd(s), (const sockaddr*)&sa, sizeof(sa)) == 0) return true;
  if (errno != EINTR) return Refused("connect", errno);
  // An interrupted connect goes on in the background: wait for its outcome.
  pollfd p = {Fd(s), POLLOUT, 0};
  int rc;
  do rc = poll(&p, 1, -1);
  while (rc < 0 && errno == EINTR);
  if (rc < 0) return Refused("poll", errno);
  int nErr = 0;
  socklen_t nLen = sizeof(nErr);
  if (getsockopt(Fd(s), SOL_SOCKET, SO_ERROR, &nErr, &nLen) != 0) return Refused("getsockopt", errno);
  if (nErr != 0) return Refused("connect", nErr);
  return true;
}

uintptr_t SockAccept(uintptr_t s, bool* pbWouldBlock) {
  if (pbWouldBlock) *pbWouldBlock = false;
  for (;;) {
#if defined(__linux__)
    const int fd = accept4(Fd(s), nullptr, nullptr, SOCK_CLOEXEC);
#else
    const int fd = accept(Fd(s), nullptr, nullptr);
#endif
    if (fd >= 0) {
#if defined(__linux__)
      return Prepared(fd, false);
#else
      return Prepared(fd, true);
#endif
    }
    const int e = errno;
    if (e == EINTR) continue;
    // A connection reset while queued is the peer's business: nothing pending.
    if (e == EAGAIN || e == EWOULDBLOCK || e == ECONNABORTED) {
      tSockError = 10035;
      if (pbWouldBlock) *pbWouldBlock = true;
      return kSockInvalid;
    }
    Refused("accept", e);
    return kSockInvalid;
  }
}

bool SockSetNonBlocking(uintptr_t s, bool bNonBlocking) {
  const int fd = Fd(s);
  const int nFlags = fcntl(fd, F_GETFL);
  if (nFlags < 0) return Refused("fcntl", errno);
  const int nNew = bNonBlocking ? (nFlags | O_NONBLOCK) : (nFlags & ~O_NONBLOCK);
  if (nNew != nFlags && fcntl(fd, F_SETFL, nNew) < 0) return Refused("fcntl", errno);
  return true;
}

bool SockIoctl(uintptr_t s, long nCmd, unsigned long* pArg) {
  if (!pArg) return Refused("ioctlsocket", EFAULT);
  if (nCmd == (long)0x8004667E || nCmd == (long)FIONBIO) return SockSetNonBlocking(s, *pArg != 0);
  if (nCmd == (long)0x4004667F || nCmd == (long)FIONREAD) {
    int n = 0;
    if (ioctl(Fd(s), FIONREAD, &n) != 0) return Refused("ioctl", errno);
    *pArg = (unsigned long)n;
    return true;
  }
  return Refused("ioctlsocket", EINVAL);
}

bool SockSetOpt(uintptr_t s, int nLevel, int nName, const char* pValue, int nLen) {
  if (nLen < 0) return Refused("setsockopt", EINVAL);
  if (setsockopt(Fd(s), nLevel, nName, pValue, (socklen_t)nLen) != 0) return Refused("setsockopt", errno);
  return true;
}

int SockLevelSocket() { return SOL_SOCKET; }
int SockOptKeepAlive() { return SO_KEEPALIVE; }

// poll rather than select: a descriptor past FD_SETSIZE must not overflow a set.
int SockWait(uintptr_t s, int nWhich, unsigned long nMicroseconds) {
  const int fd = Fd(s);
  if (fd < 0) {
    Refused("poll", EBADF);
    return -1;
  }
  pollfd p;
  p.fd = fd;
  p.events = nWhich == kSockRead ? POLLIN : nWhich == kSockWrite ? POLLOUT : POLLPRI;
  p.revents = 0;
  const uint64_t nEnd = NowMicros() + nMicroseconds;
  uint64_t nLeft = nMicroseconds;
  for (;;) {
    // Rounded up, so that a short wait is not a zero-time poll.
    const uint64_t nMs = (nLeft + 999) / 1000;
    const int rc = poll(&p, 1, nMs > (uint64_t)INT_MAX ? INT_MAX : (int)nMs);
    if (rc > 0) {
      if (p.revents & POLLNVAL) {
        Refused("poll", EBADF);
        return -1;
      }
      // Hang-up and errors count as readable/writable (the next call tells),
      // as select reports them; for the exception set only urgent data does.
      if (nWhich == kSockExcept) return (p.revents & POLLPRI) ? 1 : 0;
      return 1;
    }
    if (rc == 0) return 0;
    if (errno != EINTR) {
      Refused("poll", errno);
      return -1;
    }
    const uint64_t nNow = NowMicros();
    if (nNow >= nEnd) return 0;
    nLeft = nEnd - nNow;
  }
}

long SockRecv(uintptr_t s, void* p, unsigned long n) {
  if (n > (unsigned long)LONG_MAX) n = (unsigned long)LONG_MAX;
  for (;;) {
    const ssize_t k = recv(Fd(s), p, n, 0);
    if (k >= 0) return (long)k;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      tSockError = 10035;  // not a failure worth a log line
      return -1;
    }
    Refused("recv", errno);
    return -1;
  }
}

long SockSend(uintptr_t s, const void* p, unsigned long n) {
  if (n > (unsigned long)LONG_MAX) n = (unsigned long)LONG_MAX;
  for (;;) {
    const ssize_t k = send(Fd(s), p, n, kSendFlags);
    if (k >= 0) return (long)k;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      tSockError = 10035;
      return -1;
    }
    Refused("send", errno);
    return -1;
  }
}

bool SockPeerAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort) {
  return sockshared::NameOf<socklen_t>(getpeername, "getpeername", Fd(s), pAddr, pPort);
}

bool SockLocalAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort) {
  return sockshared::NameOf<socklen_t>(getsockname, "getsockname", Fd(s), pAddr, pPort);
}

bool SockHostByAddr(uint32_t nAddr, std::string& strName) { return sockshared::HostByAddr(nAddr, strName); }

bool SockAddrsByName(const char* szName, std::vector<uint32_t>& addrs) {
  return sockshared::AddrsByName(szName, addrs);
}

}  // namespace kplat

#endif  // !_WIN32
