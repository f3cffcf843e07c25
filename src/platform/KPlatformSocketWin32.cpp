// IPv4 stream sockets on Win32 (Windows Sockets 2).
#if defined(_WIN32)
#include "platform/KPlatformSocket.h"

#include <cstring>

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

namespace {

bool Refused(const char* szCall, int nCode) {
  ReportError(szCall, nCode);
  WSASetLastError(nCode);  // the report's own calls may have changed it
  return false;
}

bool Refused(const char* szCall) { return Refused(szCall, WSAGetLastError()); }

// Not inherited by child processes (the handle-level close-on-exec).
bool SetNoInherit(SOCKET s) {
  if (!SetHandleInformation((HANDLE)s, HANDLE_FLAG_INHERIT, 0))
    return Refused("SetHandleInformation", (int)GetLastError());
  return true;
}

int Len(unsigned long n) { return n > 0x7FFFFFFFul ? 0x7FFFFFFF : (int)n; }

bool RefusedNow(const char* szCall) { return Refused(szCall); }
bool RefusedNotIpv4(const char* szCall) { return Refused(szCall, WSAEAFNOSUPPORT); }

}  // namespace
}  // namespace kplat

#include "platform/KPlatformSocketShared.h"

namespace kplat {

using sockshared::ToSockaddr;

int SockLastError() { return WSAGetLastError(); }
void SockSetLastError(int nCode) { WSASetLastError(nCode); }

uintptr_t SockCreateTcp4() {
  const SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
  if (s == INVALID_SOCKET) {
    Refused("socket");
    return kSockInvalid;
  }
  if (!SetNoInherit(s)) {
    const int nCode = WSAGetLastError();
    closesocket(s);
    WSASetLastError(nCode);
    return kSockInvalid;
  }
  return (uintptr_t)s;
}

bool SockClose(uintptr_t s) {
  if (closesocket((SOCKET)s) != 0) return Refused("closesocket");
  return true;
}

bool SockBind4(uintptr_t s, uint16_t nPort, uint32_t nAddr) {
  sockaddr_in sa;
  ToSockaddr(nAddr, nPort, sa);
  if (bind((SOCKET)s, (const sockaddr*)&sa, sizeof(sa)) != 0) return Refused("bind");
  return true;
}

bool SockListen(uintptr_t s, int nBacklog) {
  if (listen((SOCKET)s, nBacklog < 0 ? SOMAXCONN : nBacklog) != 0) return Refused("listen");
  return true;
}

bool SockConnect4(uintptr_t s, uint32_t nAddr, uint16_t nPort) {
  sockaddr_in sa;
  ToSockaddr(nAddr, nPort, sa);
  if (connect((SOCKET)s, (const sockaddr*)&sa, sizeof(sa)) != 0) return Refused("connect");
  return true;
}

uintptr_t SockAccept(uintptr_t s, bool* pbWouldBlock) {
  if (pbWouldBlock) *pbWouldBlock = false;
  const SOCKET c = accept((SOCKET)s, nullptr, nullptr);
  if (c == INVALID_SOCKET) {
    const int nCode = WSAGetLastError();
    if (nCode == WSAEWOULDBLOCK || nCode == WSAECONNRESET) {
      WSASetLastError(WSAEWOULDBLOCK);
      if (pbWouldBlock) *pbWouldBlock = true;
      return kSockInvalid;
    }
    Refused("accept", nCode);
    return kSockInvalid;
  }
  // An accepted socket inherits the listener's non-blocking mode on Windows
  // but not on POSIX: start every connection blocking, as POSIX does.
  u_long nOff = 0;
  if (ioctlsocket(c, FIONBIO, &nOff) != 0 || !SetNoInherit(c)) {
    const int nCode = WSAGetLastError();
    closesocket(c);
    Refused("accept", nCode);
    return kSockInvalid;
  }
  return (uintptr_t)c;
}

bool SockIoctl(uintptr_t s, long nCmd, unsigned long* pArg) {
  if (!pArg) return Refused("ioctlsocket", WSAEFAULT);
  u_long n = (u_long)*pArg;
  if (ioctlsocket((SOCKET)s, nCmd, &n) != 0) return Refused("ioctlsocket");
  *pArg = n;
  return true;
}

bool SockSetNonBlocking(uintptr_t s, bool bNonBlocking) {
  unsigned long n = bNonBlocking ? 1 : 0;
  return SockIoctl(s, (long)FIONBIO, &n);
}

bool SockSetOpt(uintptr_t s, int nLevel, int nName, const char* pValue, int nLen) {
  if (setsockopt((SOCKET)s, nLevel, nName, pValue, nLen) != 0) return Refused("setsockopt");
  return true;
}

int SockLevelSocket() { return SOL_SOCKET; }
int SockOptKeepAlive() { return SO_KEEPALIVE; }

// select on one socket: Windows' fd_set is a list, not a bitmap, so any
// handle value fits.
int SockWait(uintptr_t s, int nWhich, unsigned long nMicroseconds) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET((SOCKET)s, &set);
  timeval tv;
  tv.tv_sec = (long)(nMicroseconds / 1000000ul);
  tv.tv_usec = (long)(nMicroseconds % 1000000ul);
  const int rc = select(0, nWhich == kSockRead ? &set : nullptr, nWhich == kSockWrite ? &set : nullptr,
                        nWhich == kSockExcept ? &set : nullptr, &tv);
  if (rc == SOCKET_ERROR) {
    Refused("select");
    return -1;
  }
  return rc > 0 ? 1 : 0;
}

long SockRecv(uintptr_t s, void* p, unsigned long n) {
  const int k = recv((SOCKET)s, (char*)p, Len(n), 0);
  if (k != SOCKET_ERROR) return k;
  if (WSAGetLastError() == WSAEWOULDBLOCK) return -1;  // not worth a log line
  Refused("recv");
  return -1;
}

long SockSend(uintptr_t s, const void* p, unsigned long n) {
  const int k = send((SOCKET)s, (const char*)p, Len(n), 0);
  if (k != SOCKET_ERROR) return k;
  if (WSAGetLastError() == WSAEWOULDBLOCK) return -1;
  Refused("send");
  return -1;
}

bool SockPeerAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort) {
  return sockshared::NameOf<int>(getpeername, "getpeername", (SOCKET)s, pAddr, pPort);
}

bool SockLocalAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort) {
  return sockshared::NameOf<int>(getsockname, "getsockname", (SOCKET)s, pAddr, pPort);
}

bool SockHostByAddr(uint32_t nAddr, std::string& strName) { return sockshared::HostByAddr(nAddr, strName); }

bool SockAddrsByName(const char* szName, std::vector<uint32_t>& addrs) {
  return sockshared::AddrsByName(szName, addrs);
}

}  // namespace kplat

#endif  // _WIN32
