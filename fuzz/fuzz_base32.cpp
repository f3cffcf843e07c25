// Base32 decoder. Properties: the count is strlen * 5 / 8 whatever the text;
// the bytes are what the alphabet characters (case folded, everything else
// skipped) give, rule written out here; the tail of the block stays zero;
// any bytes encode to text that decodes back to them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <base/tools/KSha1.h>

#include "KFuzz.h"

namespace {

std::string Reference(const std::string& strText) {
  static const char s_szAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
  std::string strOut;
  unsigned nAcc = 0;
  int nBits = 0;
  for (char ch : strText) {
    const char c = (ch >= 'a' && ch <= 'z') ? (char)(ch - 32) : ch;
    const char* q = c ? strchr(s_szAlphabet, c) : nullptr;
    if (!q) continue;
    nAcc = (nAcc << 5) | (unsigned)(q - s_szAlphabet);
    nBits += 5;
    if (nBits >= 8) {
      nBits -= 8;
      strOut += (char)(nAcc >> nBits);
    }
  }
  return strOut;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strIn((const char*)data, size);
  const char* sz = strIn.c_str();
  const size_t nLen = strlen(sz);
  unsigned char* p = nullptr;
  const int n = KBase32Decode(sz, p);
  KFUZZ_CHECK(p != nullptr);
  KFUZZ_CHECK(n == (int)(nLen * 5 / 8));
  std::string strWant = Reference(std::string(sz, nLen));
  strWant.resize((size_t)n, '\0');
  KFUZZ_EQ(std::string((const char*)p, (size_t)n), strWant);
  free(p);

  // The raw bytes encode and decode back.
  const CKString s = KStrToBase32(const_cast<unsigned char*>(data), (int)size);
  KFUZZ_CHECK(s.GetLength() == (size * 8 + 4) / 5);
  p = nullptr;
  const int m = KBase32Decode(s, p);
  KFUZZ_CHECK(p != nullptr && m == (int)size);
  KFUZZ_EQ(std::string((const char*)p, (size_t)m), std::string((const char*)data, size));
  free(p);
  return 0;
}
