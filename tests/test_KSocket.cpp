// Sockets on loopback: the shared handle block, set-up, readiness, transfer,
// addresses, the error codes and the dotted-address conversions.
#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <base/tools/KSocket.h>
#include <base/tools/KHttpRequest.h>

#include "KTestLog.h"
#include "KTestNet.h"

namespace {

const ::testing::Environment* const kNetEnv = ::testing::AddGlobalTestEnvironment(new CKTestNetEnv);

// A listener on an ephemeral loopback port.
struct Listener {
  CKSocket s;
  unsigned short nPort = 0;
  Listener() {
    EXPECT_TRUE(s.CreateSocketIPV4());
    EXPECT_TRUE(s.Bind(0, KTestLoopback()));
    EXPECT_TRUE(s.Listen(-1));
    nPort = s.GetLocalPort();
    EXPECT_NE(0, nPort);
  }
};

TEST(KSocket, DottedAddresses) {
  struct {
    const char* sz;
    unsigned char b[4];
  } kCases[] = {{"127.0.0.1", {127, 0, 0, 1}}, {"10.20.30.40", {10, 20, 30, 40}},
                {"255.255.255.255", {255, 255, 255, 255}}, {"0.0.0.0", {0, 0, 0, 0}}};
  for (const auto& c : kCases) {
    const unsigned long n = KInetAddrToN(c.sz);
    uint32_t v = (uint32_t)n;
    EXPECT_EQ(0, memcmp(&v, c.b, 4)) << c.sz;  // network order: a first in memory
    EXPECT_STREQ(c.sz, KInetNToAddr(n)) << c.sz;
  }
  EXPECT_EQ(0ul, KInetAddrToN("1.2.3"));
  EXPECT_EQ(0ul, KInetAddrToN("a.b.c.d"));
  EXPECT_EQ(0ul, KInetAddrToN(""));
  EXPECT_EQ(0ul, KInetAddrToN(nullptr));
  // Parts are not range-checked: each keeps its low byte.
  EXPECT_STREQ("1.2.3.4", KInetNToAddr(KInetAddrToN("257.2.3.4")));
}

TEST(KSocket, SharedBlockCloseAndDetach) {
  CKSocket a;
  EXPECT_FALSE(a.IsValid());
  EXPECT_EQ(INVALID_SOCKET, (SOCKET)a);
  ASSERT_TRUE(a.CreateSocketIPV4());
  const SOCKET h = a;
  {
    CKSocket b(a);
    EXPECT_EQ(h, (SOCKET)b);
    // Shared: Close on either does nothing.
    b.Close();
    a.Close();
    EXPECT_TRUE(a.IsValid());
    EXPECT_TRUE(b.IsValid());
    CKSocket c;
    c = b;
    CKSocket& same = c;
    c = same;  // self-assignment changes nothing
    EXPECT_EQ(h, (SOCKET)c);
  }
  // The copies went; the socket still works.
  EXPECT_TRUE(a.IsValid());
  EXPECT_TRUE(a.Bind(0, KTestLoopback()));
  EXPECT_NE(0, a.GetLocalPort());

  // Detach on a copy takes the handle away from every sharer, unclosed.
  CKSocket d(a);
  const SOCKET hDetached = d.Detach();
  EXPECT_EQ(h, hDetached);
  EXPECT_FALSE(a.IsValid());
  EXPECT_FALSE(d.IsValid());
  CKSocket owner(hDetached);
  EXPECT_NE(0, owner.GetLocalPort());  // still open
  owner.Close();                      // sole owner: closes
  EXPECT_FALSE(owner.IsValid());
}

TEST(KSocket, AcceptTransferAndAddresses) {
  Listener l;
  ASSERT_TRUE(l.s.SetBlockingMode(1));  // non-zero: non-blocking
  CKSocket none(KTestLoopback());       // any valid-looking handle is replaced
  none.Detach();
  EXPECT_TRUE(l.s.Accept(none, TRUE));  // nothing pending
  EXPECT_FALSE(none.IsValid());
  EXPECT_EQ(WSAEWOULDBLOCK, WSAGetLastError());
  EXPECT_FALSE(l.s.SelectRead(0));

  CKSocket client = KTestConnect(l.nPort);
  ASSERT_TRUE(client.IsValid());
  ASSERT_TRUE(l.s.IsReadReady(5000000));
  CKSocket server;
  ASSERT_TRUE(l.s.Accept(server, TRUE));
  ASSERT_TRUE(server.IsValid());
  EXPECT_STREQ("127.0.0.1", server.GetAddr());
  EXPECT_STREQ("127.0.0.1", server.GetLocalAddr());
  EXPECT_STREQ("127.0.0.1", client.GetAddr());
  EXPECT_EQ(l.nPort, server.GetLocalPort());
  EXPECT_EQ(1, client.SelectWrite(1000000));
  EXPECT_TRUE(client.IsWriteReady(0));

  // Byte by byte with a chunk of 1, then read in small chunks.
  std::string strData = "hello, socket";
  strData.push_back('\0');
  strData += "after NUL";
  ASSERT_TRUE(client.Write((unsigned char*)&strData[0], (unsigned long)strData.size(), 1));
  EXPECT_TRUE(client.Write((unsigned char*)&strData[0], 0, 1));
  CKMem mem;
  ASSERT_TRUE(KTestEventually([&]() {
    server.SelectRead(100000);
    server.Read(mem, 3);
    return mem.GetLength() >= strData.size();
  }));
  ASSERT_EQ(strData.size(), mem.GetLength());
  EXPECT_EQ(0, memcmp(mem.GetFromStart(0, mem.GetLength()), strData.data(), strData.size()));

  // Recv and Send report counts through pDone.
  unsigned char buf[8] = {0};
  unsigned long nDone = 99;
  unsigned char xyz[] = {'x', 'y', 'z'};
  ASSERT_TRUE(server.Send(xyz, 3, &nDone));
  EXPECT_EQ(3ul, nDone);
  ASSERT_TRUE(client.SelectRead(5000000));
  ASSERT_TRUE(client.Recv(buf, sizeof(buf), &nDone));
  EXPECT_EQ(3ul, nDone);
  EXPECT_EQ(0, memcmp(buf, "xyz", 3));

  // The peer closes: Read stops at the end of the stream instead of
  // spinning, and Recv gives TRUE with 0.
  client.Close();
  EXPECT_TRUE(server.SelectRead(5000000));
  CKMem rest;
  EXPECT_TRUE(server.Read(rest, 65536));
  EXPECT_EQ(0u, rest.GetLength());
  nDone = 99;
  EXPECT_TRUE(server.Recv(buf, sizeof(buf), &nDone));
  EXPECT_EQ(0ul, nDone);
}

// Writing to a peer that went (no SIGPIPE: the process would end) or that
// never reads (the write time-out): Write fails with a code and a log line.
TEST(KSocket, WriteToAGoneOrStalledPeerFails) {
  struct {
    bool bPeerCloses;
    std::vector<int> codes;
    const char* szLine;
  } kCases[] = {
      {true, {10053, 10054, 10058}, "ERROR => send failed: "},
      {false, {10060}, "ERROR => CKSocket::Write: the peer has stopped reading"},
  };
  for (const auto& c : kCases) {
    Listener l;
    CKSocket client = KTestConnect(l.nPort);
    ASSERT_TRUE(client.IsValid());
    CKSocket server;
    ASSERT_TRUE(l.s.Accept(server, FALSE));
    if (c.bPeerCloses) server.Close();
    CKTestLog log;
    client.SetWriteTimeout(300);
    std::string strBlock(1024 * 1024, 'y');
    int bOk = TRUE;
    for (int i = 0; i < 256 && bOk; ++i)
      bOk = client.Write((unsigned char*)&strBlock[0], (unsigned long)strBlock.size(), 65536);
    EXPECT_FALSE(bOk) << c.szLine;
    const int nCode = WSAGetLastError();
    EXPECT_NE(c.codes.end(), std::find(c.codes.begin(), c.codes.end(), nCode)) << nCode;
    bool bReported = false;
    for (const std::string& str : log.Texts(10)) bReported |= str.rfind(c.szLine, 0) == 0;
    EXPECT_TRUE(bReported) << c.szLine;
  }
}

TEST(KSocket, RefusalsGiveWindowsSocketsCodes) {
  CKTestLog log;
  // Nothing listens on a port just released.
  unsigned short nPort;
  {
    Listener l;
    nPort = l.nPort;
  }
  CKSocket s;
  ASSERT_TRUE(s.CreateSocketIPV4());
  EXPECT_FALSE(s.ConnectByIP("127.0.0.1", nPort));
  EXPECT_EQ(10061, WSAGetLastError());
  EXPECT_EQ(0u, log.Last().rfind("ERROR => connect failed: ", 0)) << log.Last();

  // A listening port taken twice.
  Listener l;
  CKSocket twice;
  ASSERT_TRUE(twice.CreateSocketIPV4());
  EXPECT_FALSE(twice.Bind(l.nPort, KTestLoopback()));
  EXPECT_EQ(10048, WSAGetLastError());

  // The server's texts for the codes it knows; the rest are unknown.
  CKHttpMiniServer server;
  EXPECT_STREQ("Unknown error", server.LastError());
  CKSocket notSock((SOCKET)0);  // standard input: not a socket
  int nOn = 1;
  EXPECT_FALSE(notSock.SetSockOpt(0xffff, 8, (const char*)&nOn, sizeof(nOn)) &&
               notSock.SetSockOpt(1, 9, (const char*)&nOn, sizeof(nOn)));
  notSock.Detach();  // not ours to close
  EXPECT_EQ(10038, WSAGetLastError());
  EXPECT_STREQ("An operation was attempted on something that is not a socket.", server.LastError());

  // ioctlsocket: non-blocking mode on and off, bytes waiting.
  CKSocket c = KTestConnect(l.nPort);
  ASSERT_TRUE(c.IsValid());
  CKSocket a;
  ASSERT_TRUE(l.s.Accept(a, FALSE));
  ASSERT_TRUE(KTestSend(c, "12345"));
  ASSERT_TRUE(a.SelectRead(5000000));
  unsigned long nWaiting = 0;
#if defined(_WIN32)
  EXPECT_TRUE(a.Ioctl((long)FIONREAD, &nWaiting));
#else
  EXPECT_TRUE(a.Ioctl(KFIONREAD, &nWaiting));
  unsigned long nOne = 1;
  EXPECT_EQ(0, ioctlsocket(a, KFIONBIO, &nOne));
#endif
  EXPECT_EQ(5ul, nWaiting);
}

#if defined(__linux__)
TEST(KSocket, NotInheritedByChildren) {
  Listener l;
  CKSocket c = KTestConnect(l.nPort);
  CKSocket a;
  ASSERT_TRUE(l.s.Accept(a, FALSE));
  // The child shell lists its own descriptors: none of ours may be there.
  FILE* f = popen("ls /proc/$$/fd", "r");
  ASSERT_TRUE(f);
  std::string strFds;
  char buf[256];
  while (fgets(buf, sizeof(buf), f)) strFds += std::string(" ") + buf;
  pclose(f);
  for (SOCKET h : {(SOCKET)l.s, (SOCKET)c, (SOCKET)a})
    EXPECT_EQ(std::string::npos, strFds.find(" " + std::to_string(h) + "\n")) << h << " in" << strFds;
}
#endif

}  // namespace
