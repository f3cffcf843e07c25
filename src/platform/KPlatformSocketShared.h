// Platform area: IPv4 stream sockets, the address handling that the POSIX
// and Windows Sockets implementations share (both name the same structures
// and calls). Internal: included only by KPlatformSocketPosix.cpp and
// KPlatformSocketWin32.cpp, after their own system headers (it includes
// none). Each defines, before including it:
//   bool RefusedNow(const char* szCall)      - reports the call's last error
//   bool RefusedNotIpv4(const char* szCall)  - reports an address that is not IPv4
#ifndef KELVOR_KPLATFORMSOCKETSHARED_H
#define KELVOR_KPLATFORMSOCKETSHARED_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kplat {
namespace sockshared {

inline void ToSockaddr(uint32_t nAddr, uint16_t nPort, sockaddr_in& sa) {
  memset(&sa, 0, sizeof(sa));
  sa.sin_family = AF_INET;
  sa.sin_port = htons(nPort);
  sa.sin_addr.s_addr = nAddr;
}

// getpeername or getsockname (fCall, named szCall) of an IPv4 socket: the
// address in network order, the port in host order.
template <class Len, class Handle, class Call>
bool NameOf(Call fCall, const char* szCall, Handle h, uint32_t* pAddr, uint16_t* pPort) {
  sockaddr_in sa;
  Len n = sizeof(sa);
  memset(&sa, 0, sizeof(sa));
  if (fCall(h, (sockaddr*)&sa, &n) != 0) return RefusedNow(szCall);
  if (sa.sin_family != AF_INET) return RefusedNotIpv4(szCall);
  if (pAddr) *pAddr = sa.sin_addr.s_addr;
  if (pPort) *pPort = ntohs(sa.sin_port);
  return true;
}

// getnameinfo/getaddrinfo: the thread-safe forms of gethostbyaddr and
// gethostbyname. A name that does not resolve is an answer, not a failure.
inline bool HostByAddr(uint32_t nAddr, std::string& strName) {
  sockaddr_in sa;
  ToSockaddr(nAddr, 0, sa);
  char szHost[NI_MAXHOST];
  if (getnameinfo((const sockaddr*)&sa, sizeof(sa), szHost, sizeof(szHost), nullptr, 0, NI_NAMEREQD) != 0)
    return false;
  strName = szHost;
  return true;
}

inline bool AddrsByName(const char* szName, std::vector<uint32_t>& addrs) {
  addrs.clear();
  if (!szName || !*szName) return false;
  addrinfo hints;
  memset(&hints, 0, sizeof(hints));
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* pList = nullptr;
  if (getaddrinfo(szName, nullptr, &hints, &pList) != 0) return false;
  for (addrinfo* p = pList; p; p = p->ai_next)
    if (p->ai_family == AF_INET && p->ai_addr)
      addrs.push_back(((const sockaddr_in*)p->ai_addr)->sin_addr.s_addr);
  freeaddrinfo(pList);
  return !addrs.empty();
}

}  // namespace sockshared
}  // namespace kplat

#endif  // KELVOR_KPLATFORMSOCKETSHARED_H
