#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <base/tools/KMd5.h>

#include "KTestTemp.h"
#include "KTestTool.h"

namespace {

std::string Md5(const std::vector<unsigned char>& v) {
  KMd5Data ctx;
  unsigned char d[MD5_DIGEST_SIZE];
  KMd5Init(&ctx);
  KMd5Update(&ctx, v.data(), v.size());
  KMd5Final(&ctx, d);
  std::string s;
  char buf[3];
  for (unsigned char c : d) {
    snprintf(buf, sizeof(buf), "%02x", c);
    s += buf;
  }
  return s;
}

// KMd5Cram takes writable texts.
CKString Cram(const std::string& strText, const std::string& strKey) {
  std::vector<unsigned char> t(strText.begin(), strText.end()), k(strKey.begin(), strKey.end());
  t.push_back(0);
  k.push_back(0);
  return KMd5Cram(t.data(), k.data());
}

}  // namespace

TEST(KMd5, PublishedVectors) {
  const char* const kCases[][2] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& c : kCases) EXPECT_STREQ(c[1], KMd5GetString(c[0])) << c[0];
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", KMd5GetString(nullptr));
}

TEST(KMd5, PiecesGiveTheWholeDigest) {
  // Every split point around the block and padding boundaries.
  const std::vector<unsigned char> v = KTestBytes(300, 7);
  for (size_t nLen : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 128u, 300u}) {
    const std::vector<unsigned char> part(v.begin(), v.begin() + (long)nLen);
    const std::string strWhole = Md5(part);
    for (size_t nCut = 0; nCut <= nLen; ++nCut) {
      KMd5Data ctx;
      unsigned char d[MD5_DIGEST_SIZE];
      KMd5Init(&ctx);
      KMd5Update(&ctx, part.data(), nCut);
      for (size_t i = nCut; i < nLen; i += 3)
        KMd5Update(&ctx, part.data() + i, nLen - i < 3 ? nLen - i : 3);
      KMd5Final(&ctx, d);
      unsigned char e[MD5_DIGEST_SIZE];
      KMd5Final(&ctx, e);  // Final leaves a fresh state: the empty digest
      char hex[33];
      for (int i = 0; i < 16; ++i) snprintf(hex + 2 * i, 3, "%02x", d[i]);
      ASSERT_EQ(strWhole, hex) << nLen << " cut " << nCut;
      for (int i = 0; i < 16; ++i) snprintf(hex + 2 * i, 3, "%02x", e[i]);
      ASSERT_STREQ("d41d8cd98f00b204e9800998ecf8427e", hex);
    }
  }
}

TEST(KMd5, HmacVectorsAndKeyLengths) {
  // RFC 2202 test cases 1 to 7 (the key of case 4 is 0x01..0x19).
  std::string k4;
  for (int i = 1; i <= 25; ++i) k4 += (char)i;
  const std::string k80(80, '\xaa');
  const std::string kCases[][3] = {
      {std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
      {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
      {std::string(16, '\xaa'), std::string(50, '\xdd'), "56be34521d144c88dbb8c733f0e8b3f6"},
      {k4, std::string(50, '\xcd'), "697eaf0aca3a3aea3a75164746ffaa79"},
      {std::string(16, '\x0c'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c"},
      {k80, "Test Using Larger Than Block-Size Key - Hash Key First",
       "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
      {k80, "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
       "6f630fad67cda0ee1fb1f562db3aa53e"},
  };
  for (const auto& c : kCases)
    EXPECT_STREQ(c[2].c_str(), Cram(c[1], c[0]))
        << c[1];

  // Keys around the block size (64 is used as is, 65 is hashed first),
  // against Python's hmac module.
  if (!KTestHasTool("python3")) GTEST_SKIP() << "python3 is not installed: no peer for HMAC-MD5";
  for (int nKey : {0, 1, 63, 64, 65, 100, 200}) {
    const std::string strKey(nKey, 'k'), strText = "<1896.697170952@postoffice.example.net>";
    const std::string strPeer = KTestRun(
        "python3 -c \"import hmac,hashlib;print(hmac.new(b'k'*" + std::to_string(nKey) +
        ",b'" + strText + "',hashlib.md5).hexdigest())\"");
    EXPECT_STREQ(strPeer.c_str(),
                 Cram(strText, strKey))
        << nKey;
  }
}

TEST(KMd5, FilesAgainstMd5sum) {
  // md5sum where it runs; everywhere the in-memory digest of the same bytes.
  const bool bPeer = KTestHasTool("md5sum");
  CKTestTempDir dir;
  for (size_t n : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 65535u, 65536u, 65537u, 3u << 20}) {
    const std::string strPath = dir.Path("f" + std::to_string(n));
    const std::vector<unsigned char> v = KTestBytes(n, (unsigned)n);
    ASSERT_TRUE(KTestWriteFile(strPath, v));
    const std::string strWant = Md5(v);
    if (bPeer) {
      EXPECT_EQ(KTestRun("md5sum '" + strPath + "'").substr(0, 32), strWant) << n;
    }
    EXPECT_STREQ(strWant.c_str(), KMd5Get(strPath.c_str(), -1)) << n;
    EXPECT_STREQ(strWant.c_str(), KMd5Get(strPath.c_str(), (int)n + 1000)) << n;
    // A prefix: the digest of the first nMax bytes only.
    const int nMax = (int)(n / 3 + 1);
    const std::string strHead =
        Md5(std::vector<unsigned char>(v.begin(), v.begin() + (long)std::min(n, (size_t)nMax)));
    const std::string strCmd = "head -c " + std::to_string(nMax) + " '" + strPath + "' | md5sum";
    if (bPeer) {
      EXPECT_EQ(KTestRun(strCmd).substr(0, 32), strHead);
    }
    EXPECT_STREQ(strHead.c_str(), KMd5Get(strPath.c_str(), nMax)) << n;
    EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", KMd5Get(strPath.c_str(), 0));
  }
  // A missing file: 32 characters, none of them a digest's.
  const CKString s = KMd5Get(dir.Path("missing").c_str(), -1);
  EXPECT_EQ(32u, s.GetLength());
  EXPECT_EQ(std::string::npos, std::string((const char*)s).find_first_of("0123456789abcdef"));
  if (!bPeer) GTEST_SKIP() << "md5sum is not available: files checked against in-memory digests only";
}
