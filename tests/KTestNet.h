// Loopback helpers for the socket and HTTP tests: Windows Sockets start-up
// (as an application does it), a raw client built on CKSocket, and the
// process's descriptor and thread counts where the system shows them.
#ifndef KELVOR_KTESTNET_H
#define KELVOR_KTESTNET_H

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <base/tools/KSocket.h>

#if defined(_WIN32)
// Lean: the printer API would rename SetPort to SetPortA.
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <winsock2.h>
#  undef SetPort
#endif

// Starts Windows Sockets for the whole test program.
class CKTestNetEnv : public ::testing::Environment {
public:
  void SetUp() override {
#if defined(_WIN32)
    WSADATA data;
    ASSERT_EQ(0, WSAStartup(MAKEWORD(2, 2), &data));
#endif
  }
  void TearDown() override {
#if defined(_WIN32)
    WSACleanup();
#endif
  }
};

inline unsigned long KTestLoopback() { return KInetAddrToN("127.0.0.1"); }

// A client connected to 127.0.0.1:nPort (invalid when refused).
inline CKSocket KTestConnect(unsigned short nPort) {
  CKSocket s;
  if (!s.CreateSocketIPV4() || !s.ConnectByIP(KTestLoopback(), nPort)) return CKSocket();
  return s;
}

inline bool KTestSend(CKSocket& s, const std::string& str) {
  return s.Write((unsigned char*)const_cast<char*>(str.data()), (unsigned long)str.size(), 65536) != 0;
}

// Everything the peer sends until it closes (or nSeconds pass: then
// *pbClosed stays false).
inline std::string KTestRecvAll(CKSocket& s, int nSeconds = 20, bool* pbClosed = nullptr) {
  std::string str;
  if (pbClosed) *pbClosed = false;
  const auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(nSeconds);
  unsigned char buf[4096];
  while (std::chrono::steady_clock::now() < tEnd) {
    if (!s.SelectRead(100000)) continue;
    unsigned long n = 0;
    if (!s.Recv(buf, sizeof(buf), &n) || n == 0) {
      if (pbClosed) *pbClosed = true;
      break;
    }
    str.append((const char*)buf, n);
  }
  return str;
}

// One request on a new connection, the whole answer back.
inline std::string KTestExchange(unsigned short nPort, const std::string& strRequest) {
  CKSocket s = KTestConnect(nPort);
  if (!s.IsValid() || !KTestSend(s, strRequest)) return "<no connection>";
  return KTestRecvAll(s);
}

// Open descriptors and threads of this process; -1 where /proc is missing.
inline int KTestCountDir(const char* szDir) {
#if defined(__linux__)
  std::error_code ec;
  int n = 0;
  for (std::filesystem::directory_iterator it(szDir, ec), end; !ec && it != end; it.increment(ec)) ++n;
  return ec ? -1 : n;
#else
  (void)szDir;
  return -1;
#endif
}

// Waits (bounded) until fCond holds; the condition's last value.
template <class F>
bool KTestEventually(F fCond, int nSeconds = 10) {
  const auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(nSeconds);
  while (!fCond()) {
    if (std::chrono::steady_clock::now() >= tEnd) return fCond();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

#endif  // KELVOR_KTESTNET_H
