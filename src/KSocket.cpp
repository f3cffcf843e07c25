// IPv4 TCP sockets over the platform layer: the shared handle block, set-up,
// readiness, transfer and addresses.
#define KSRC_PATH "src/KSocket"

#include <base/tools/KSocket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "platform/KPlatform.h"

namespace {

const unsigned long kDefaultWriteTimeoutMs = 30000;

CKSocketBlock* NewBlock(SOCKET s, unsigned nLine) {
  CKSocketBlock* p = (CKSocketBlock*)malloc(sizeof(CKSocketBlock));
  if (!p) throw CKMemoryException(KSRC_PATH, nLine);
  p->hSocket = s;
  p->nRefs = 1;
  return p;
}

CKString AddrText(uint32_t nAddr) { return KInetNToAddr(nAddr); }

}  // namespace

#if !defined(_WIN32)
int WSAGetLastError() { return kplat::SockLastError(); }

int ioctlsocket(SOCKET s, long cmd, unsigned long* argp) {
  return kplat::SockIoctl(s, cmd, argp) ? 0 : SOCKET_ERROR;
}
#endif

// ---------------------------------------------------------------- ownership
CKSocket::CKSocket() : m_pBlock(NewBlock(INVALID_SOCKET, __LINE__)), m_nWriteTimeoutMs(kDefaultWriteTimeoutMs) {}

CKSocket::CKSocket(SOCKET s) : m_pBlock(NewBlock(s, __LINE__)), m_nWriteTimeoutMs(kDefaultWriteTimeoutMs) {}

CKSocket::CKSocket(const CKSocket& s) : m_pBlock(s.m_pBlock), m_nWriteTimeoutMs(s.m_nWriteTimeoutMs) {
  ++m_pBlock->nRefs;
}

void CKSocket::operator=(const CKSocket& s) {
  if (&s == this || s.m_pBlock == m_pBlock) return;
  Free();
  m_pBlock = s.m_pBlock;
  ++m_pBlock->nRefs;
}

CKSocket::~CKSocket() { Free(); }

void CKSocket::Free() {
  if (!m_pBlock) return;
  if (m_pBlock->nRefs == 1) {
    if (m_pBlock->hSocket != INVALID_SOCKET) kplat::SockClose(m_pBlock->hSocket);
    m_pBlock->hSocket = INVALID_SOCKET;
    free(m_pBlock);
  } else {
    --m_pBlock->nRefs;
  }
  m_pBlock = nullptr;
}

void CKSocket::Close() {
  // A shared socket is closed by its last owner.
  if (m_pBlock->nRefs != 1) return;
  if (m_pBlock->hSocket != INVALID_SOCKET) kplat::SockClose(m_pBlock->hSocket);
  m_pBlock->hSocket = INVALID_SOCKET;
}

SOCKET CKSocket::Detach() {
  const SOCKET s = m_pBlock->hSocket;
  m_pBlock->hSocket = INVALID_SOCKET;
  return s;
}

// ---------------------------------------------------------------- set-up
int CKSocket::CreateSocketIPV4() {
  // The block keeps one handle: a socket already there is not leaked.
  if (m_pBlock->hSocket != INVALID_SOCKET && m_pBlock->nRefs == 1) kplat::SockClose(m_pBlock->hSocket);
  m_pBlock->hSocket = kplat::SockCreateTcp4();
  return m_pBlock->hSocket != INVALID_SOCKET && m_pBlock->hSocket != 0;
}

int CKSocket::Bind(unsigned short port, unsigned long addr) {
  return kplat::SockBind4(m_pBlock->hSocket, port, (uint32_t)addr) ? TRUE : FALSE;
}

int CKSocket::Listen(int backlog) {
  return kplat::SockListen(m_pBlock->hSocket, backlog == -1 ? -1 : backlog) ? TRUE : FALSE;
}

int CKSocket::ConnectByIP(unsigned long addr, unsigned short port) {
  return kplat::SockConnect4(m_pBlock->hSocket, (uint32_t)addr, port) ? TRUE : FALSE;
}

int CKSocket::ConnectByIP(const char* szAddr, unsigned short port) {
  return ConnectByIP(KInetAddrToN(szAddr), port);
}

int CKSocket::Accept(CKSocket& client, int bNonBlocking) {
  bool bWouldBlock = false;
  const SOCKET s = kplat::SockAccept(m_pBlock->hSocket, &bWouldBlock);
  client = CKSocket(s);
  if (s != INVALID_SOCKET) return TRUE;
  if (bNonBlocking) return kplat::SockLastError() == 10035 ? TRUE : FALSE;
  return FALSE;
}

int CKSocket::SetBlockingMode(int bNonBlocking) {
  return kplat::SockSetNonBlocking(m_pBlock->hSocket, bNonBlocking != 0) ? TRUE : FALSE;
}

int CKSocket::Ioctl(long cmd, unsigned long* arg) {
  return kplat::SockIoctl(m_pBlock->hSocket, cmd, arg) ? TRUE : FALSE;
}

int CKSocket::SetSockOpt(int level, int name, const char* value, int len) {
  return kplat::SockSetOpt(m_pBlock->hSocket, level, name, value, len) ? TRUE : FALSE;
}

// ---------------------------------------------------------------- readiness
int CKSocket::SelectRead(unsigned long usec) const {
  return kplat::SockWait(m_pBlock->hSocket, kplat::kSockRead, usec) == 1 ? TRUE : FALSE;
}

int CKSocket::SelectWrite(unsigned long usec) const {
  return kplat::SockWait(m_pBlock->hSocket, kplat::kSockWrite, usec);
}

int CKSocket::SelectError(unsigned long usec) const {
  return kplat::SockWait(m_pBlock->hSocket, kplat::kSockExcept, usec);
}

int CKSocket::IsReadReady(unsigned long usec) const {
  return kplat::SockWait(m_pBlock->hSocket, kplat::kSockRead, usec) == 1 ? TRUE : FALSE;
}

int CKSocket::IsWriteReady(unsigned long usec) const { return SelectWrite(usec) == 1 ? TRUE : FALSE; }

// ---------------------------------------------------------------- transfer
int CKSocket::Recv(unsigned char* buf, unsigned long len, unsigned long* pDone) {
  if (pDone) *pDone = 0;
  const long n = kplat::SockRecv(m_pBlock->hSocket, buf, len);
  if (n < 0) return FALSE;
  if (pDone) *pDone = (unsigned long)n;
  return TRUE;
}

int CKSocket::Send(unsigned char* buf, unsigned long len, unsigned long* pDone) {
  if (pDone) *pDone = 0;
  const long n = kplat::SockSend(m_pBlock->hSocket, buf, len);
  if (n < 0) return FALSE;
  if (pDone) *pDone = (unsigned long)n;
  return TRUE;
}

int CKSocket::Read(CKMem& mem, unsigned long chunk) {
  if (chunk == 0) return TRUE;
  // A receive straight into the buffer's free room: no intermediate copy.
  const unsigned nChunk = chunk > 0x7FFFFFFFul ? 0x7FFFFFFFu : (unsigned)chunk;
  for (;;) {
    if (!SelectRead(0)) return TRUE;
    unsigned char* p = mem.GetFromStart(nChunk);
    if (!p) return FALSE;
    const long n = kplat::SockRecv(m_pBlock->hSocket, p, nChunk);
    if (n < 0) return FALSE;
    // End of stream: the peer has closed, nothing more will come.
    if (n == 0) return TRUE;
    mem.IncreaseOffset((unsigned)n);
  }
}

int CKSocket::Write(unsigned char* data, unsigned long len, unsigned long chunk) {
  return WriteBytes(data, len, chunk);
}

int CKSocket::WriteBytes(const unsigned char* data, unsigned long len, unsigned long chunk) {
  if (len == 0) return TRUE;
  if (!data) return FALSE;
  if (chunk == 0) chunk = len;
  unsigned long nDone = 0;
  uint32_t nIdleSince = kplat::TickCount();
  while (nDone < len) {
    // Waits for room instead of polling and sleeping; gives up when the
    // peer has taken nothing for the write time-out.
    const int rc = kplat::SockWait(m_pBlock->hSocket, kplat::kSockWrite, 5000);
    if (rc < 0) return FALSE;
    if (rc == 0) {
      if ((uint32_t)(kplat::TickCount() - nIdleSince) >= m_nWriteTimeoutMs) {
        kplat::SockSetLastError(10060);
        KLog(KLOG_ERROR, "ERROR => CKSocket::Write: the peer has stopped reading");
        return FALSE;
      }
      continue;
    }
    const unsigned long nLeft = len - nDone;
    const long n = kplat::SockSend(m_pBlock->hSocket, data + nDone, nLeft < chunk ? nLeft : chunk);
    if (n < 0) {
      if (kplat::SockLastError() == 10035) continue;  // a non-blocking socket that filled up
      return FALSE;
    }
    if (n > 0) nIdleSince = kplat::TickCount();
    nDone += (unsigned long)n;
  }
  return TRUE;
}

int CKSocket::Write(const char* text, unsigned long chunk) {
  if (!text) return FALSE;
  return WriteBytes((const unsigned char*)text, (unsigned long)strlen(text), chunk);
}

// ---------------------------------------------------------------- addresses
CKString CKSocket::GetAddr() const {
  uint32_t nAddr = 0;
  if (!IsValid() || !kplat::SockPeerAddr(m_pBlock->hSocket, &nAddr, nullptr)) return CKString();
  return AddrText(nAddr);
}

CKString CKSocket::GetLocalAddr() const {
  uint32_t nAddr = 0;
  if (!IsValid() || !kplat::SockLocalAddr(m_pBlock->hSocket, &nAddr, nullptr)) return CKString();
  return AddrText(nAddr);
}

unsigned short CKSocket::GetLocalPort() const {
  uint16_t nPort = 0;
  if (!IsValid() || !kplat::SockLocalAddr(m_pBlock->hSocket, nullptr, &nPort)) return 0;
  return nPort;
}

CKString CKSocket::GetHostName() const {
  uint32_t nAddr = 0;
  if (!IsValid() || !kplat::SockPeerAddr(m_pBlock->hSocket, &nAddr, nullptr)) return CKString();
  std::string strName;
  if (!kplat::SockHostByAddr(nAddr, strName)) return CKString();
  return CKString(strName.c_str());
}

int CKSocket::ReverseAddr() const {
  if (!IsValid()) return FALSE;
  uint32_t nAddr = 0;
  if (!kplat::SockPeerAddr(m_pBlock->hSocket, &nAddr, nullptr)) return FALSE;
  const CKString strName = GetHostName();
  if (strName.GetLength() == 0) return FALSE;
  std::vector<uint32_t> addrs;
  if (!kplat::SockAddrsByName(strName, addrs)) return FALSE;
  for (uint32_t a : addrs)
    if (a == nAddr) return TRUE;
  return FALSE;
}

// ---------------------------------------------------------------- free functions
unsigned long KInetAddrToN(const char* sz) {
  if (!sz) return 0;
  int a = 0, b = 0, c = 0, d = 0;
  if (sscanf(sz, "%d.%d.%d.%d", &a, &b, &c, &d) < 4) return 0;
  // The bytes a, b, c, d in memory order, whatever the host's byte order.
  unsigned char bytes[4] = {(unsigned char)a, (unsigned char)b, (unsigned char)c, (unsigned char)d};
  uint32_t n = 0;
  memcpy(&n, bytes, 4);
  return n;
}

CKString KInetNToAddr(unsigned long n) {
  const uint32_t v = (uint32_t)n;
  unsigned char bytes[4];
  memcpy(bytes, &v, 4);
  char sz[20];
  snprintf(sz, sizeof(sz), "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
  return CKString(sz);
}
