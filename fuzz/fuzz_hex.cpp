// Hex decoder and encoders. Properties: KStrHexToByte reads pairs of hex
// digits up to the first pair that is not one, into at most n bytes (n from
// the first input byte), and writes nothing past them; any bytes encode to
// two upper-case digits each and decode back; the text form gives eight
// digits for bytes of 0x80 and above, two for the others.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <base/tools/KSha1.h>

#include "KFuzz.h"

namespace {

int Digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int nMax = data[0];
  const std::string strText((const char*)data + 1, size - 1);
  const char* sz = strText.c_str();

  std::string strWant;
  for (size_t i = 0; (int)strWant.size() < nMax; i += 2) {
    const int hi = sz[i] ? Digit(sz[i]) : -1;
    const int lo = hi >= 0 && sz[i + 1] ? Digit(sz[i + 1]) : -1;
    if (lo < 0) break;
    strWant += (char)(hi * 16 + lo);
  }
  std::vector<unsigned char> out((size_t)nMax + 1, 0xA5);
  const int n = KStrHexToByte(sz, out.data(), nMax);
  KFUZZ_CHECK(n == (int)strWant.size());
  KFUZZ_EQ(std::string((const char*)out.data(), (size_t)n), strWant);
  KFUZZ_CHECK(out[(size_t)nMax] == 0xA5 && (n == nMax || out[(size_t)n] == 0xA5));

  const CKString strHex = KStrToHex(const_cast<unsigned char*>(data), (int)size);
  KFUZZ_CHECK(strHex.GetLength() == 2 * size);
  std::vector<unsigned char> back(size);
  KFUZZ_CHECK(KStrHexToByte(strHex, back.data(), (int)size) == (int)size);
  KFUZZ_CHECK(memcmp(back.data(), data, size) == 0);

  size_t nWide = 0;
  for (const char* q = sz; *q; ++q) nWide += (unsigned char)*q >= 0x80 ? 8 : 2;
  const CKString strSigned = KStrToHex(sz);
  KFUZZ_CHECK(strSigned.GetLength() == nWide);
  for (unsigned i = 0; i < strSigned.GetLength(); ++i) KFUZZ_CHECK(Digit(strSigned[(int)i]) >= 0);
  return 0;
}
