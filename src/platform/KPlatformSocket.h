// Platform area: IPv4 stream sockets.
//
// POSIX: KPlatformSocketPosix.cpp (BSD sockets; poll for readiness).
// Windows counterparts: Windows Sockets 2 (ws2_32) - socket, bind, listen,
// connect, accept, ioctlsocket, setsockopt, select, recv, send,
// closesocket, getpeername/getsockname, gethostbyaddr/gethostbyname;
// SockLastError is WSAGetLastError. The application starts Windows Sockets
// (WSAStartup) itself.
//
// Handles are Windows-sized slots (uintptr_t); kSockInvalid is all bits set.
// Sockets are created close-on-exec (not inherited), and a send to a peer
// that has gone never raises SIGPIPE. Every refused call is reported (type 10
// log line) and leaves its Windows Sockets code for SockLastError; EINTR is
// retried.
#ifndef KELVOR_KPLATFORMSOCKET_H
#define KELVOR_KPLATFORMSOCKET_H

#include <cstdint>
#include <string>
#include <vector>

namespace kplat {

const uintptr_t kSockInvalid = ~(uintptr_t)0;

// Windows Sockets code of the calling thread's last refused socket call.
int SockLastError();
void SockSetLastError(int nCode);

// A TCP socket (AF_INET, SOCK_STREAM); kSockInvalid when refused.
uintptr_t SockCreateTcp4();
bool SockClose(uintptr_t s);
// nPort in host order, nAddr in network order (0: every address).
bool SockBind4(uintptr_t s, uint16_t nPort, uint32_t nAddr);
// nBacklog < 0: the system's largest.
bool SockListen(uintptr_t s, int nBacklog);
bool SockConnect4(uintptr_t s, uint32_t nAddr, uint16_t nPort);
// kSockInvalid when nothing was accepted; *pbWouldBlock tells "nothing
// pending" on a non-blocking socket (not reported) from a failure.
uintptr_t SockAccept(uintptr_t s, bool* pbWouldBlock);
// ioctlsocket with the Windows command values (FIONBIO 0x8004667E, FIONREAD
// 0x4004667F); the POSIX ones are accepted too.
bool SockIoctl(uintptr_t s, long nCmd, unsigned long* pArg);
bool SockSetNonBlocking(uintptr_t s, bool bNonBlocking);
bool SockSetOpt(uintptr_t s, int nLevel, int nName, const char* pValue, int nLen);
// The system's SOL_SOCKET and SO_KEEPALIVE.
int SockLevelSocket();
int SockOptKeepAlive();
// Readiness of one socket within nMicroseconds: 1 ready, 0 time-out, -1
// refused. nWhich: 0 readable, 1 writable, 2 exceptional condition.
enum { kSockRead = 0, kSockWrite = 1, kSockExcept = 2 };
int SockWait(uintptr_t s, int nWhich, unsigned long nMicroseconds);
// One receive or send: the count, or -1 when refused. A receive from a
// closed peer gives 0.
long SockRecv(uintptr_t s, void* p, unsigned long n);
long SockSend(uintptr_t s, const void* p, unsigned long n);
// Peer or local address (network order) and port (host order).
bool SockPeerAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort);
bool SockLocalAddr(uintptr_t s, uint32_t* pAddr, uint16_t* pPort);
// Reverse and forward look-ups of IPv4 addresses (network order).
bool SockHostByAddr(uint32_t nAddr, std::string& strName);
bool SockAddrsByName(const char* szName, std::vector<uint32_t>& addrs);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMSOCKET_H
