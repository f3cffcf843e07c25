// Text conversions: KHttpDecode, KStr2Cstr / KStrConsumeCstr, KInt2, KBool,
// KIsStrictInt, KStr. Properties: KHttpDecode follows its rule (written out
// here) and undoes a %HH encoding of any text; a C literal of any text reads
// back to it and a literal that reads prints to one that reads the same;
// KInt2 is atoi clamped to the int range; KStr in any radix reads back with
// strtoll.
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <base/tools/KStr.h>

#include "KFuzz.h"

namespace {

int HexVal(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string HttpDecode(const std::string& s) {
  std::string r;
  for (size_t i = 0; i < s.size(); ++i) {
    int hi, lo;
    if (s[i] == '+')
      r += ' ';
    else if (s[i] == '%' && i + 2 < s.size() && (hi = HexVal(s[i + 1])) >= 0 &&
             (lo = HexVal(s[i + 2])) >= 0 && (hi | lo))
      r += (char)(hi * 16 + lo), i += 2;
    else
      r += s[i];
  }
  return r;
}

// atoi's reading with the value clamped: blanks, one sign, digits.
long long AtoiClamped(const char* s) {
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  bool bNeg = *s == '-';
  if (*s == '-' || *s == '+') ++s;
  long long v = 0;
  for (; *s >= '0' && *s <= '9'; ++s)
    if (v <= (long long)INT_MAX + 1) v = v * 10 + (*s - '0');
  v = bNeg ? -v : v;
  return v < INT_MIN ? INT_MIN : v > INT_MAX ? INT_MAX : v;
}

bool IsStrictInt(const std::string& s) {
  size_t i = !s.empty() && s[0] == '-' ? 1 : 0;
  if (i == s.size()) return false;
  for (; i < s.size(); ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strRaw((const char*)data, size);
  const char* sz = strRaw.c_str();
  const std::string s = sz;

  const CKString strDecoded = KHttpDecode(sz);
  KFUZZ_EQ(KFuzzStr(strDecoded), HttpDecode(s));
  std::string strEncoded;
  for (unsigned char c : s) {
    static const char s_szHex[] = "0123456789abcdef";
    strEncoded += '%';
    strEncoded += s_szHex[c >> 4];
    strEncoded += s_szHex[c & 15];
  }
  KFUZZ_EQ(KFuzzStr(KHttpDecode(strEncoded.c_str())), s);

  const CKString strLiteral = KStr2Cstr(sz);
  const char* p = strLiteral;
  CKString strBack = "stale";
  KFUZZ_CHECK(KStrConsumeCstr(p, strBack) == 1 && *p == 0);
  KFUZZ_EQ(KFuzzStr(strBack), s);
  p = sz;
  if (KStrConsumeCstr(p, strBack)) {
    KFUZZ_CHECK(p > sz && p <= sz + s.size() && p[-1] == '"');
    const std::string strOnce = KFuzzStr(strBack);
    const CKString strAgain = KStr2Cstr(strOnce.c_str());
    p = strAgain;
    KFUZZ_CHECK(KStrConsumeCstr(p, strBack) == 1);
    KFUZZ_EQ(KFuzzStr(strBack), strOnce);
  } else {
    KFUZZ_CHECK(p == sz && strBack.GetLength() == 0);
  }

  KFUZZ_CHECK(KInt2(sz, 77) == (s.empty() ? 77 : AtoiClamped(sz)));
  KFUZZ_CHECK(KIsStrictInt(sz) == (int)IsStrictInt(s));
  const int bBool = KBool(sz);
  KFUZZ_CHECK(bBool == 0 || bBool == 1);
  if (!s.empty() && AtoiClamped(sz) != 0) KFUZZ_CHECK(bBool == 1);

  if (size >= 9) {
    long long v;
    memcpy(&v, data, sizeof(v));
    const int nRadix = 2 + data[8] % 35;
    const CKString strNum = KStr((__int64)v, nRadix);
    errno = 0;
    char* pEnd = nullptr;
    KFUZZ_CHECK(strtoll(strNum, &pEnd, nRadix) == v && *pEnd == 0 && errno == 0);
  }
  return 0;
}
