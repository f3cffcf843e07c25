#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <base/tools/KSha1.h>

#include "KTestLog.h"
#include "KTestTemp.h"
#include "KTestTool.h"

namespace {

std::string Hex(const unsigned char* p, size_t n) {
  std::string s;
  char buf[3];
  for (size_t i = 0; i < n; ++i) {
    snprintf(buf, sizeof(buf), "%02x", p[i]);
    s += buf;
  }
  return s;
}

// SHA-1 of v fed in pieces of nPiece bytes.
std::string Sha1(const std::vector<unsigned char>& v, size_t nPiece) {
  KSha1Data ctx;
  unsigned char d[SHA1_DIGEST_SIZE];
  KSha1Init(&ctx);
  for (size_t i = 0; i < v.size(); i += nPiece)
    KSha1Update(&ctx, (unsigned)std::min(nPiece, v.size() - i), v.data() + i);
  KSha1Digest(&ctx, SHA1_DIGEST_SIZE, d);
  return Hex(d, sizeof(d));
}

std::vector<unsigned char> Bytes(const std::string& s) { return {s.begin(), s.end()}; }

// Runs the test body once per implementation: the portable code always, the
// processor's instructions where the CPU has them.
class KSha1Paths : public ::testing::TestWithParam<bool> {
protected:
  void SetUp() override {
    if (GetParam() && !KSha1HasHardware())
      GTEST_SKIP() << "this CPU has no SHA instructions: only the portable code is tested";
    m_bWas = KSha1UseHardware(GetParam());
  }
  void TearDown() override { KSha1UseHardware(m_bWas); }
  int m_bWas = FALSE;
};

}  // namespace

TEST_P(KSha1Paths, PublishedVectorsAndPieces) {
  const std::string kAbc = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", Sha1(Bytes("abc"), 64));
  EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1", Sha1(Bytes(kAbc), 64));
  EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", Sha1({}, 64));
  const std::vector<unsigned char> million(1000000, 'a');
  EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f", Sha1(million, 1000000));
  EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f", Sha1(million, 997));

  // Lengths around the padding boundary, fed whole and in odd pieces.
  const std::vector<unsigned char> v = KTestBytes(260, 3);
  for (size_t n = 0; n <= v.size(); ++n) {
    const std::vector<unsigned char> part(v.begin(), v.begin() + (long)n);
    const std::string strWhole = Sha1(part, n ? n : 1);
    ASSERT_EQ(strWhole, Sha1(part, 1)) << n;
    ASSERT_EQ(strWhole, Sha1(part, 63)) << n;
  }
}

INSTANTIATE_TEST_SUITE_P(Impl, KSha1Paths, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                           return i.param ? std::string("Hardware") : std::string("Portable");
                         });

TEST(KSha1, DigestLengthAndReuse) {
  CKTestLog log;
  KSha1Data ctx;
  unsigned char d[SHA1_DIGEST_SIZE + 4];
  memset(d, 0x5A, sizeof(d));
  KSha1Init(&ctx);
  KSha1Update(&ctx, 3, (const unsigned char*)"abc");
  KSha1Digest(&ctx, 21, d);
  EXPECT_TRUE(log.LastIsAssert("length <= SHA1_DIGEST_SIZE", "src/KSha1", CKTestLog::kReturn));
  EXPECT_EQ(0x5A, d[0]);
  // A shorter length writes only the first bytes.
  KSha1Digest(&ctx, 4, d);
  EXPECT_EQ("a9993e36", Hex(d, 4));
  EXPECT_EQ(0x5A, d[4]);
  // The state starts again after a digest.
  KSha1Digest(&ctx, SHA1_DIGEST_SIZE, d);
  EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", Hex(d, SHA1_DIGEST_SIZE));
}

TEST(KSha1, FilesAgainstSha1sum) {
  // sha1sum where it runs; everywhere the in-memory digest of the same bytes.
  const bool bPeer = KTestHasTool("sha1sum");
  CKTestTempDir dir;
  CKTestLog log;
  unsigned char buf[70000];
  for (size_t n : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 65537u, 5u << 20}) {
    const std::string strPath = dir.Path("f" + std::to_string(n));
    const std::vector<unsigned char> v = KTestBytes(n, (unsigned)n + 1);
    ASSERT_TRUE(KTestWriteFile(strPath, v));
    const std::string strWant = Sha1(v, 4096);
    if (bPeer) {
      EXPECT_EQ(KTestRun("sha1sum '" + strPath + "'").substr(0, 40), strWant) << n;
    }
    unsigned char d[SHA1_DIGEST_SIZE];
    ASSERT_TRUE(KSha1DoFile(strPath.c_str(), d));
    EXPECT_EQ(strWant, Hex(d, sizeof(d))) << n;
    for (unsigned nPiece : {1u, 7u, 64u, 70000u}) {
      if (nPiece < 64 && n > 100000) continue;
      memset(d, 0, sizeof(d));
      ASSERT_TRUE(KSha1DoFile(strPath.c_str(), d, buf, nPiece));
      EXPECT_EQ(strWant, Hex(d, sizeof(d))) << n << " in pieces of " << nPiece;
    }
    // The text form is the base32 of the digest, and the time is traced.
    CKString strOut = "stale";
    log.Clear();
    ASSERT_TRUE(KSha1DoFile(strPath.c_str(), strOut, buf, 4096));
    EXPECT_STREQ(KStrToBase32(d, SHA1_DIGEST_SIZE), strOut);
    EXPECT_EQ(32u, strOut.GetLength());
    EXPECT_EQ(0u, log.Last().find("KSha1DoFile for " + strPath + " : ")) << log.Last();
    strOut = "stale";
    ASSERT_TRUE(KSha1DoFile(strPath.c_str(), strOut));
    EXPECT_STREQ(KStrToBase32(d, SHA1_DIGEST_SIZE), strOut);
  }
  const std::string strMissing = dir.Path("missing");
  unsigned char d[SHA1_DIGEST_SIZE];
  EXPECT_FALSE(KSha1DoFile(strMissing.c_str(), d));
  CKString strOut = "stale";
  EXPECT_FALSE(KSha1DoFile(strMissing.c_str(), strOut));
  EXPECT_TRUE(strOut.IsEmpty());
  if (!bPeer) GTEST_SKIP() << "sha1sum is not available: files checked against in-memory digests only";
}

TEST(KBase32, EncodeDecodeAndFiles) {
  // RFC 4648 vectors without their padding.
  const char* const kCases[][2] = {{"", ""},           {"f", "MY"},         {"fo", "MZXQ"},
                                   {"foo", "MZXW6"},   {"foob", "MZXW6YQ"}, {"fooba", "MZXW6YTB"},
                                   {"foobar", "MZXW6YTBOI"}};
  for (const auto& c : kCases) {
    std::vector<unsigned char> v = Bytes(c[0]);
    EXPECT_STREQ(c[1], KStrToBase32(v.data(), (int)v.size()));
    unsigned char* p = nullptr;
    const int n = KBase32Decode(c[1], p);
    ASSERT_TRUE(p != nullptr);
    EXPECT_EQ((int)(strlen(c[1]) * 5 / 8), n);
    EXPECT_EQ(std::string(c[0]), std::string((const char*)p, (size_t)n));
    free(p);
  }
  unsigned char ff = 0xFF;
  EXPECT_STREQ("74", KStrToBase32(&ff, 1));
  EXPECT_STREQ("", KStrToBase32(&ff, 0));

  // Decoders take any text: case folded, foreign characters skipped, the
  // count from the text's length.
  const struct {
    const char* sz;
    int nCount;
    const char* szBytes;
  } kDecode[] = {{"74", 1, "\xff"},       {"7-4", 1, "\xff"},         {"mzxw6", 3, "foo"},
                 {"MZ XW 6", 4, "foo\0"}, {"01890189", 5, "\0\0\0\0\0"}, {"\x80\xffMY", 2, "f\0"},
                 {"M", 0, ""}};
  for (const auto& c : kDecode) {
    unsigned char* p = nullptr;
    EXPECT_EQ(c.nCount, KBase32Decode(c.sz, p)) << c.sz;
    ASSERT_TRUE(p != nullptr);
    EXPECT_EQ(0, memcmp(p, c.szBytes, (size_t)c.nCount)) << c.sz;
    free(p);
  }

  // Round trips of every length up to three groups.
  const std::vector<unsigned char> v = KTestBytes(24, 5);
  for (int n = 1; n <= 24; ++n) {
    const CKString s = KStrToBase32(const_cast<unsigned char*>(v.data()), n);
    EXPECT_EQ((unsigned)((8 * n + 4) / 5), s.GetLength());
    unsigned char* p = nullptr;
    ASSERT_EQ(n, KBase32Decode(s, p));
    EXPECT_EQ(0, memcmp(p, v.data(), (size_t)n));
    free(p);
  }

  CKTestTempDir dir;
  const std::vector<unsigned char> data = KTestBytes(1000, 9);
  ASSERT_TRUE(KTestWriteFile(dir.Path("b"), data));
  EXPECT_STREQ(KStrToBase32(const_cast<unsigned char*>(data.data()), 1000),
               KBase32Get(dir.Path("b").c_str()));
  EXPECT_TRUE(KBase32Get(dir.Path("missing").c_str()).IsEmpty());
}

TEST(KHex, TextsBytesAndBack) {
  EXPECT_STREQ("415A", KStrToHex("AZ"));
  EXPECT_STREQ("", KStrToHex(""));
  // The text form widens bytes as signed chars.
  EXPECT_STREQ("41FFFFFFE97F", KStrToHex("A\xe9\x7f"));
  unsigned char b[] = {0x00, 0xE9, 0x0A, 0xFF};
  EXPECT_STREQ("00E90AFF", KStrToHex(b, 4));
  EXPECT_STREQ("", KStrToHex(b, 0));

  unsigned char out[8];
  const struct {
    const char* sz;
    int n, nWant;
    const char* szBytes;
  } kCases[] = {{"00E90aff", 8, 4, "\x00\xe9\x0a\xff"}, {"00E90aff", 2, 2, "\x00\xe9"},
                {"4142x3", 8, 2, "AB"}, {"414", 8, 1, "A"}, {"", 8, 0, ""}, {"zz", 8, 0, ""},
                {"41", 0, 0, ""}};
  for (const auto& c : kCases) {
    memset(out, 0xEE, sizeof(out));
    ASSERT_EQ(c.nWant, KStrHexToByte(c.sz, out, c.n)) << c.sz;
    EXPECT_EQ(0, memcmp(out, c.szBytes, (size_t)c.nWant)) << c.sz;
    EXPECT_EQ(0xEE, out[c.nWant]) << c.sz;
  }
  const std::vector<unsigned char> v = KTestBytes(256, 2);
  std::vector<unsigned char> back(256);
  EXPECT_EQ(256, KStrHexToByte(KStrToHex(const_cast<unsigned char*>(v.data()), 256), back.data(), 256));
  EXPECT_EQ(v, back);
}
