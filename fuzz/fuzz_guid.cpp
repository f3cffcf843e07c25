// GUID parsers. Properties: every entry point of a form parses a text to the
// same GUID; the printed braced and plain forms of any GUID (parsed or taken
// from raw bytes) parse back to it; the Ex form picks the braced parser
// exactly for texts starting with '{'; the little-endian pair swaps Data1 to
// Data3 and keeps Data4.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <base/tools/KGuid.h>

#include "KFuzz.h"

namespace {

std::string Hex(const GUID& g) {
  static const char s_szDigits[] = "0123456789ABCDEF";
  const unsigned char* p = (const unsigned char*)&g;
  std::string s;
  for (int i = 0; i < 16; ++i) {
    s += s_szDigits[p[i] >> 4];
    s += s_szDigits[p[i] & 15];
  }
  return s;
}

void CheckPrintedForms(const CKGuid& g) {
  const CKString strBraced = g, strPlain = g.Str2();
  KFUZZ_CHECK(strBraced.GetLength() == 38 && strPlain.GetLength() == 32);
  KFUZZ_EQ(Hex(__CLSIDFromString(strBraced)), Hex(g));
  KFUZZ_EQ(Hex(__CLSIDFromString2(strPlain)), Hex(g));
  KFUZZ_EQ(Hex(__CLSIDFromStringEx(strBraced)), Hex(g));
  KFUZZ_EQ(Hex(__CLSIDFromStringEx(strPlain)), Hex(g));
  KFUZZ_CHECK(g == (const char*)strBraced);
  char buf[39];
  KFUZZ_EQ(__StringFromCLSID(buf, g), std::string(strBraced));
  KFUZZ_EQ(std::string(__String2FromCLSID(g)), std::string(strPlain));

  unsigned char le[16];
  g.ToLittleEndian(le);
  CKGuid back;
  back.FromLittleEndian(le);
  KFUZZ_CHECK(back.Data1 == __builtin_bswap32(g.Data1) &&
              back.Data2 == __builtin_bswap16(g.Data2) &&
              back.Data3 == __builtin_bswap16(g.Data3) &&
              memcmp(back.Data4, g.Data4, sizeof(g.Data4)) == 0);
  KFUZZ_CHECK(CKGuid(g).HashKey() == g.HashKey() && g.HashKey() <= 0xFFFF);
  for (int nRadix = 2; nRadix <= 36; nRadix += 17) KFUZZ_CHECK(g.Str3(nRadix).GetLength() >= 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strText((const char*)data, size);
  const char* sz = strText.c_str();

  const CKGuid braced = __CLSIDFromString(sz), plain = __CLSIDFromString2(sz);
  const CKGuid ex = __CLSIDFromStringEx(sz);
  KFUZZ_EQ(Hex(ex), Hex(sz[0] == '{' ? braced : plain));

  // The members and the free functions agree.
  KFUZZ_EQ(Hex(CKGuid(sz, TRUE)), Hex(braced));
  KFUZZ_EQ(Hex(CKGuid(sz, FALSE)), Hex(plain));
  CKGuid g;
  KFUZZ_EQ(Hex(*g.FromStr(sz)), Hex(braced));
  KFUZZ_EQ(Hex(*g.FromStr2(sz)), Hex(plain));
  KFUZZ_EQ(Hex(*g.FromStrEx(sz)), Hex(ex));
  g = sz;
  KFUZZ_EQ(Hex(g), Hex(braced));
  KFUZZ_CHECK((braced == sz) == 1);
  GUID out;
  memset(&out, 0xA5, sizeof(out));
  __CLSIDFromString2(sz, out);
  KFUZZ_EQ(Hex(out), Hex(plain));

  CheckPrintedForms(braced);
  CheckPrintedForms(plain);
  if (size >= 16) {
    CKGuid raw;
    memcpy((GUID*)&raw, data, 16);
    CheckPrintedForms(raw);
  }
  return 0;
}
