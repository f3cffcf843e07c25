#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <set>
#include <string>

#include <base/tools/KGuid.h>

#include "KTestLog.h"

namespace {

const char* const kBraced = "{00112233-4455-6677-8899-AABBCCDDEEFF}";
const char* const kPlain = "00112233445566778899AABBCCDDEEFF";

CKGuid Sample() {
  GUID g = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  return CKGuid(g);
}

}  // namespace

TEST(KGuid, CreationTextFormsByteOrderAndHash) {
  EXPECT_TRUE(CKGuid(0).IsEmpty());
  CKGuid a(1);
  EXPECT_FALSE(a.IsEmpty());
  EXPECT_EQ(0x4000, a.Data3 & 0xF000);
  EXPECT_EQ(0x80, a.Data4[0] & 0xC0);
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) seen.insert((const char*)CKString(CKGuid(TRUE)));
  EXPECT_EQ(200u, seen.size());
  EXPECT_STREQ("{ABABABAB-ABAB-ABAB-ABAB-ABABABABABAB}",
               (const char*)CKString(CKGuid((unsigned char)0xAB)));

  const CKGuid g = Sample();
  EXPECT_STREQ(kBraced, (const char*)CKString(g));
  EXPECT_STREQ(kPlain, g.Str2());
  char buf[39];
  EXPECT_STREQ(kBraced, __StringFromCLSID(buf, g));
  // Words 0x00112233, 0x66774455, 0xBBAA9988 and 0xFFEEDDCC, taken as signed.
  EXPECT_STREQ("11223366774455-44556678-112234", g.Str3(16));
  CKGuid h;
  h.Data1 = 0xABCDEF;
  EXPECT_STREQ("ABCDEF000", h.Str3(16));
  EXPECT_STREQ("-1-1-1-1", CKGuid((unsigned char)0xFF).Str3(10));

  unsigned char le[16];
  g.ToLittleEndian(le);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(((const unsigned char*)&g)[15 - i], le[i]);
  // Not inverses: Data1..Data3 come back byte-swapped, Data4 intact.
  CKGuid back;
  back.FromLittleEndian(le);
  EXPECT_STREQ("{33221100-5544-7766-8899-AABBCCDDEEFF}", (const char*)CKString(back));
  // The reversed big-endian bytes read back as the same GUID.
  unsigned char rev[16];
  for (int i = 0; i < 16; ++i) rev[i] = (unsigned char)(0xFF - 0x11 * i);
  back.FromLittleEndian(rev);
  EXPECT_TRUE(back == g);

  EXPECT_EQ(g.HashKey(), Sample().HashKey());
  std::set<unsigned> hashes;
  for (int i = 0; i < 64; ++i) hashes.insert(CKGuid(TRUE).HashKey());
  EXPECT_GT(hashes.size(), 56u);
  EXPECT_LE(*hashes.rbegin(), 0xFFFFu);
}

TEST(KGuid, ParsingIsLenientAndMalformedIsEmpty) {
  const CKGuid g = Sample();
  EXPECT_TRUE(CKGuid("{00112233-4455-6677-8899-aabbccddeeff}") == g);
  EXPECT_TRUE(CKGuid(kPlain, FALSE) == g);
  EXPECT_TRUE(CKGuid(_variant_t(kPlain)) == g);
  EXPECT_TRUE(CKGuid(_variant_t()).IsEmpty());
  // The closing brace is matched after the eleven fields: it may be missing.
  EXPECT_TRUE(g == "{00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_TRUE(g == CKString(std::string(kBraced) + "xyz"));
  CKGuid one, two;
  one.FromStrEx("{00000000-0000-0000-0000-000000000001}");
  two.FromStrEx("00000000000000000000000000000001");
  EXPECT_TRUE(one == two);
  EXPECT_EQ(1, one.Data4[7]);

  const char* bad[] = {nullptr, "", "{", "{00112233-4455-6677-8899-AABBCCDDEE}",
                       "00112233445566778899AABBCCDD", "{zz112233-4455-6677-8899-AABBCCDDEEFF}"};
  for (const char* sz : bad) {
    CKGuid x(1);
    EXPECT_TRUE(x.FromStr(sz)->IsEmpty()) << (sz ? sz : "null");
    x.New();
    EXPECT_TRUE(x.FromStr2(sz)->IsEmpty());
    GUID r;
    memset(&r, 0x55, sizeof(r));
    __CLSIDFromStringEx(sz, r);
    EXPECT_TRUE(CKGuid(r).IsEmpty());
  }
}

TEST(KGuid, ListOwnsCopiesWithItsDeliberateQuirks) {
  CKListGuid l, other;
  const CKGuid g = Sample(), a(1), b(1);
  for (const CKGuid* x : {&g, &a, &b}) l.Add(*x);
  EXPECT_TRUE(l.Get(1) == a);
  EXPECT_TRUE(l.Get(-1).IsEmpty());
  EXPECT_TRUE(l.Get(3).IsEmpty());
  EXPECT_EQ(0, l.Find(g, 5));  // nStart is ignored
  other.Add(CKGuid(1));
  EXPECT_FALSE(l.IsEqual(other));
  for (int i = 0; i < 2; ++i) other.Add(CKGuid(1));
  EXPECT_TRUE(l.IsEqual(other));  // counts decide

  CKListGuid copy(l);
  EXPECT_NE(copy.GetData(0), l.GetData(0));
  EXPECT_TRUE(copy.Get(2) == b);
  EXPECT_EQ(1, l.Remove(a));
  EXPECT_EQ(-1, l.Remove(a));
  CKGuid* pOld = l.GetData(0);
  l.Set(0, a);
  EXPECT_TRUE(*pOld == g);  // the replaced element stays valid
  delete pOld;

  other.Detach(l);
  EXPECT_EQ(0, l.Count());
  EXPECT_TRUE(other.Get(0) == a && other.Get(1) == b);
  other.RemoveAt(0);
  EXPECT_TRUE(other.Get(0) == b);
  // Slots opened past the end are empty, not the removed elements.
  other.Set(2, g);
  EXPECT_TRUE(other.Get(1).IsEmpty() && other.Get(2) == g);
  // A slot the pile cannot open: the copy is freed and the refusal logged.
  CKTestLog log;
  other.Set(INT_MAX - 5, a);
  EXPECT_EQ(3, other.Count());
  EXPECT_EQ(CKTestLog::Strings{"ERROR => CKListGuid: the list cannot grow"}, log.Texts(10));
}
