// URL decoding (HttpRequestParseString): the result follows the rule written
// out here on std::string - '+' to space, then from the first '%': while a
// '%' has two characters after it, two hexadecimal digits replace every
// occurrence of that sequence by the byte (a zero removes it), anything else
// stops; the next '%' is looked for one position further.
#include <cstddef>
#include <cstdint>
#include <string>

#include <base/tools/KHttpRequest.h>

#include "KFuzz.h"

namespace {

int Hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Model(std::string s) {
  for (char& c : s)
    if (c == '+') c = ' ';
  size_t p = s.find('%');
  while (p != std::string::npos && p + 2 < s.size()) {
    const int hi = Hex(s[p + 1]), lo = Hex(s[p + 2]);
    if (hi < 0 || lo < 0) break;
    const std::string strSeq = s.substr(p, 3);
    const char c = (char)(hi * 16 + lo);
    const std::string strBy = c ? std::string(1, c) : std::string();
    std::string out;
    for (size_t i = 0; i < s.size();) {
      if (s.compare(i, 3, strSeq) == 0) {
        out += strBy;
        i += 3;
      } else {
        out += s[i++];
      }
    }
    s = out;
    p = s.find('%', p + 1);
  }
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;  // the rule is quadratic; long inputs add nothing
  const std::string strIn((const char*)data, size);
  const std::string strText = strIn.substr(0, strIn.find('\0'));  // a C text
  CKString s(strText.c_str());
  HttpRequestParseString(s);
  KFUZZ_EQ(KFuzzStr(s), Model(strText));
  return 0;
}
