// CKSocket, a copyable handle to an IPv4 TCP socket whose copies share one
// counted handle block, and the dotted-address conversions.
#ifndef KELVOR_KSOCKET_H
#define KELVOR_KSOCKET_H

#include <base/tools/KDefs.h>
#include <base/tools/KMem.h>
#include <base/tools/KString.h>

#if !defined(_WIN32)
// The Windows Sockets calls and codes the interface names, for POSIX
// callers; a Windows application takes them from winsock2.h.
#  define WSAEWOULDBLOCK 10035
// Exported from the POSIX builds only (the DLL has no such functions).
#  define KELVOR_POSIX_API KELVOR_API
// ioctlsocket commands, as Windows numbers them.
#  define KFIONBIO ((long)0x8004667E)
#  define KFIONREAD ((long)0x4004667F)
// The Windows Sockets code of the calling thread's last refused socket call
// (errno values mapped to their Winsock numbers, e.g. EMFILE -> 10024).
KELVOR_POSIX_API int WSAGetLastError();
// FIONBIO and FIONREAD, with the Windows values above or the system's own.
KELVOR_POSIX_API int ioctlsocket(SOCKET s, long cmd, unsigned long* argp);
#endif

struct CKSocketBlock {
  SOCKET hSocket;
  int nRefs;
};

class KELVOR_API CKSocket {
public:
  CKSocket();
  explicit CKSocket(SOCKET s);
  CKSocket(const CKSocket& s);
  void operator=(const CKSocket& s);
  virtual ~CKSocket();

  // Closes only when this object is the block's sole owner.
  void Close();
  // Takes the handle away from every sharer without closing it.
  SOCKET Detach();
  operator SOCKET() const { return m_pBlock->hSocket; }
  int IsValid() const { return m_pBlock->hSocket != INVALID_SOCKET; }

  int CreateSocketIPV4();
  // port in host order; addr in network order (0: every address).
  int Bind(unsigned short port, unsigned long addr);
  // -1: SOMAXCONN.
  int Listen(int backlog);
  int ConnectByIP(unsigned long addr, unsigned short port);
  int ConnectByIP(const char* szAddr, unsigned short port);
  // TRUE with client set to the new connection; with bNonBlocking also TRUE
  // when nothing is pending (client then stays invalid).
  int Accept(CKSocket& client, int bNonBlocking);
  // Non-zero makes the socket non-blocking (whatever the name says).
  int SetBlockingMode(int bNonBlocking);
  int Ioctl(long cmd, unsigned long* arg);
  int SetSockOpt(int level, int name, const char* value, int len);

  // Readiness within usec microseconds. SelectRead and the Is... forms are
  // TRUE only when select reports this socket; SelectWrite and SelectError
  // give select's raw result (1, 0 on time-out, -1 on error).
  int SelectRead(unsigned long usec) const;
  int SelectWrite(unsigned long usec) const;
  int SelectError(unsigned long usec) const;
  int IsReadReady(unsigned long usec) const;
  int IsWriteReady(unsigned long usec) const;

  // One receive or send; *pDone gets the count. FALSE on a socket error; a
  // closed peer gives TRUE with 0 bytes.
  int Recv(unsigned char* buf, unsigned long len, unsigned long* pDone);
  int Send(unsigned char* buf, unsigned long len, unsigned long* pDone);
  // Appends whatever is immediately available, chunk bytes per receive;
  // stops (TRUE) at the end of the stream.
  int Read(CKMem& mem, unsigned long chunk);
  // Sends everything, chunk bytes at a time; FALSE when the peer has not
  // taken any byte for WriteTimeout milliseconds.
  int Write(unsigned char* data, unsigned long len, unsigned long chunk);
  int Write(const char* text, unsigned long chunk);
  // How long Write waits for a peer that stops reading (default 30 000 ms).
  void SetWriteTimeout(unsigned long nMilliseconds) { m_nWriteTimeoutMs = nMilliseconds; }
  unsigned long WriteTimeout() const { return m_nWriteTimeoutMs; }

  // Peer and local addresses in dotted form, the peer's name by reverse
  // look-up; empty on failure or for an invalid socket.
  CKString GetAddr() const;
  CKString GetLocalAddr() const;
  // The local port (host order); 0 when unknown.
  unsigned short GetLocalPort() const;
  CKString GetHostName() const;
  // TRUE when the peer's reverse-looked-up name maps forward to its address.
  int ReverseAddr() const;

protected:
  // Drops this object's share of the block.
  void Free();
  int WriteBytes(const unsigned char* data, unsigned long len, unsigned long chunk);

  CKSocketBlock* m_pBlock;
  unsigned long m_nWriteTimeoutMs;
};

// "a.b.c.d" to the network-order value (0 when fewer than four numbers).
KELVOR_API unsigned long KInetAddrToN(const char* sz);
// The reverse: the four bytes from the lowest, joined by ".".
KELVOR_API CKString KInetNToAddr(unsigned long n);

#endif  // KELVOR_KSOCKET_H
