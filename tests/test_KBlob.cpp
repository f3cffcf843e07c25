// Blob: sorted insertion with case-insensitive look-up, renaming, typed
// setters and getters, the expected encoded size.
#include <base/tools/KBlob.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KTestLog.h"

namespace {

// A blob with no storage behind it: always decoded.
class CKTestBlob : public CKBlob {
public:
  int BlobDecodePending() override { return 1; }
  int BlobHasPending() const override { return 0; }
  void BlobDropPending() override {}
};

std::vector<std::string> Names(CKBlob& b) {
  std::vector<std::string> v;
  for (int i = 0; i < b.BlobElementCount(); i++) v.push_back(b.BlobElementName(i));
  return v;
}

}  // namespace

TEST(KBlob, SortedInsertionAndCaseInsensitiveLookup) {
  CKTestBlob b;
  EXPECT_EQ(0, b.BlobElementCount());
  EXPECT_EQ(-1, b.BlobElementIndex("a"));
  EXPECT_EQ(nullptr, b.BlobElementAdd(""));
  EXPECT_EQ(nullptr, b.BlobElementAdd(nullptr));

  ASSERT_NE(nullptr, b.BlobElementAdd("b"));
  ASSERT_NE(nullptr, b.BlobElementAdd("A"));
  EXPECT_EQ((std::vector<std::string>{"A", "b"}), Names(b));
  // Adding 'a' finds 'A' and renames it.
  CKBlobElement* p = b.BlobElementAdd("a");
  ASSERT_NE(nullptr, p);
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), Names(b));
  EXPECT_EQ(0, b.BlobElementIndex("A"));
  EXPECT_EQ(1, b.BlobElementIndex("B"));
  EXPECT_EQ(p, b.BlobElementGet("A"));
  EXPECT_TRUE(b.BlobElementExist("b"));
  EXPECT_FALSE(b.BlobElementExist("c"));

  // Byte order, case-sensitive: upper-case letters sort before lower-case.
  b.BlobElementAdd("Z");
  b.BlobElementAdd("_x");
  b.BlobElementAdd("aa");
  EXPECT_EQ((std::vector<std::string>{"Z", "_x", "a", "aa", "b"}), Names(b));
  for (int i = 0; i < b.BlobElementCount(); i++)
    EXPECT_EQ(i, b.BlobElementIndex(b.BlobElementName(i)));

  b.BlobElementDelete("_X");
  EXPECT_EQ((std::vector<std::string>{"Z", "a", "aa", "b"}), Names(b));
  EXPECT_EQ(-1, b.BlobElementIndex("_x"));
  EXPECT_EQ(2, b.BlobElementIndex("AA"));
  b.BlobElementDeleteAll();
  EXPECT_EQ(0, b.BlobElementCount());
  EXPECT_EQ(-1, b.BlobElementIndex("a"));
}

TEST(KBlob, RenameDeletesTheHolderOfTheNewNameAndKeepsOrder) {
  CKTestBlob b;
  b.SetElement("a", 1);
  b.SetElement("m", 2);
  b.SetElement("z", 3);
  b.BlobElementSetName("a", "");  // refused
  b.BlobElementSetName("nope", "q");
  EXPECT_EQ((std::vector<std::string>{"a", "m", "z"}), Names(b));

  // 'a' becomes 'Z': the element found as 'z' goes; no re-sort.
  b.BlobElementSetName("a", "Z");
  EXPECT_EQ((std::vector<std::string>{"Z", "m"}), Names(b));
  EXPECT_EQ(1, b.BlobElementGet("z")->GetInt32());
  // Renamed out of order: look-ups still find every element.
  b.BlobElementSetName(0, "zz");
  EXPECT_EQ((std::vector<std::string>{"zz", "m"}), Names(b));
  EXPECT_EQ(0, b.BlobElementIndex("ZZ"));
  EXPECT_EQ(1, b.BlobElementIndex("m"));
  // Insertion goes before the first greater name, scanning the unsorted list.
  b.SetElement("b", 4);
  EXPECT_EQ((std::vector<std::string>{"b", "zz", "m"}), Names(b));
  EXPECT_EQ(2, b.BlobElementIndex("M"));
}

TEST(KBlob, TypedSettersAndGetters) {
  CKTestBlob b;
  CKDateTime d;
  d.SetDateTime(2020, 1, 2, 3, 4, 5);
  CKList l;
  l.Add("x");
  CKListTyped<int> li;
  li.Add(9);
  EXPECT_EQ(1, b.SetElement("t", "txt"));
  EXPECT_EQ(1, b.SetElement("i", -1));
  EXPECT_EQ(1, b.SetElement("u", 5u));
  EXPECT_EQ(1, b.SetElement("i64", (__int64)-7));
  EXPECT_EQ(1, b.SetElement("u64", (unsigned __int64)8));
  EXPECT_EQ(1, b.SetElement("f", 0.5f));
  EXPECT_EQ(1, b.SetElement("d", 0.25));
  EXPECT_EQ(1, b.SetElement("dt", d));
  EXPECT_EQ(1, b.SetElement("l", l, 0));
  EXPECT_EQ(1, b.SetElement("li", li, 1));
  EXPECT_EQ(0, li.Count());
  EXPECT_EQ(1, b.SetElement("v", CKVariant(3)));
  EXPECT_EQ(0, b.SetElement("", 1));

  CKString s;
  int n = 0;
  unsigned un = 0;
  __int64 n64 = 0;
  unsigned __int64 u64 = 0;
  float f = 0;
  double dd = 0;
  CKDateTime e;
  EXPECT_EQ(1, b.GetElement("T", s));
  EXPECT_STREQ("txt", s);
  EXPECT_EQ(1, b.GetElement("i", n));
  EXPECT_EQ(-1, n);
  EXPECT_EQ(0, b.GetElement("i", n64));  // no widening
  EXPECT_EQ(1, b.GetElement("u", un));
  EXPECT_EQ(1, b.GetElement("i64", n64));
  EXPECT_EQ(1, b.GetElement("u64", u64));
  EXPECT_EQ(1, b.GetElement("f", f));
  EXPECT_EQ(1, b.GetElement("d", dd));
  EXPECT_EQ(1, b.GetElement("dt", e));
  EXPECT_EQ((std::vector<int>{5, -7, 8}), (std::vector<int>{(int)un, (int)n64, (int)u64}));
  EXPECT_EQ(0.5f, f);
  EXPECT_EQ(0.25, dd);
  EXPECT_TRUE(e == d);
  EXPECT_EQ(3, b.BlobElementGet("v")->GetInt32());  // a deep copy, not a box
  EXPECT_EQ(0, b.GetElement("missing", n));

  EXPECT_EQ(nullptr, b.GetElementListUINT64("l", 0, 0));
  ASSERT_NE(nullptr, b.GetElementList("l", 0, 0));
  EXPECT_EQ(1, b.GetElementListInt("LI", 0, 0)->Count());
  CKListUINT64* pNew = b.GetElementListUINT64("new", 0, 1);
  EXPECT_EQ(nullptr, pNew);  // created empty, not of that kind
  EXPECT_TRUE(b.BlobElementExist("new"));
  EXPECT_EQ(nullptr, b.GetElementList("absent", 0, 0));
  EXPECT_FALSE(b.BlobElementExist("absent"));

  // An observer's answer is the setter's result.
  struct Refusing : CKTestBlob {
    int OnBlobElementSetValue(CKBlobElement*) override { return 0; }
  } r;
  EXPECT_EQ(0, r.SetElement("a", 1));
  EXPECT_EQ(1, r.BlobElementGet("a")->GetInt32());
}

TEST(KBlob, ExpectedEncodedSizes) {
  CKTestLog log;
  CKTestBlob b;
  EXPECT_EQ(0, b.EncodedSize());
  b.SetElement("a", 1);
  EXPECT_EQ(22, b.EncodedSize());

  CKBlobElement e;
  e.m_strName = "nm";  // header 4 + 7
  CKList l;
  l.Add("ab");
  l.Add("");
  CKListList ll;
  ll.Add(new CKList(l));
  CKLangList lang;
  lang.Add('E', l, 0);
  CKDateTime d;
  struct Case {
    std::function<void()> set;
    __int64 size;
  };
  const Case cases[] = {
      {[&] { e.VariantDelete(); }, 11},
      {[&] { e.Set("abc"); }, 11 + 8},
      {[&] { e.Set(l, 0); }, 11 + 4 + 7 + 5},
      {[&] { e.Set(5); }, 15},
      {[&] { e.Set(1.0f); }, 15},
      {[&] { e.Set(1.0); }, 19},
      {[&] { e.Set(d); }, 19},  // counted as 8 although 7 are written
      {[&] { e.Set((unsigned __int64)1); }, 19},
      {[&] { CKListTyped<int> x; x.Add(1); x.Add(2); e.Set(x, 0); }, 11 + 4 + 8},
      {[&] { CKListDateTime x; x.Add(d); e.Set(x, 0); }, 11 + 4 + 7},
      {[&] { CKListUINT64 x; x.Add(1); e.Set(x, 0); }, 11 + 4 + 8},
      {[&] { e.Set(ll, 0); }, 11 + 4 + 4 + 12},
      {[&] { e.Set(lang, 0); }, 11 + 4 + 1 + 4 + 12},
  };
  for (const Case& c : cases) {
    c.set();
    EXPECT_EQ(c.size, e.GetEncodedSize()) << (int)e.Type();
  }
  EXPECT_EQ(0, log.Count());
  // Kinds without a size report and count nothing.
  for (int k = 0; k < 4; k++) {
    log.Clear();
    if (k == 0) e.Set((__int64)1);
    if (k == 1) e.Set(2u);
    CKListGuid lg;
    CKVariant::CKListVariant lv;
    if (k == 2) e.Set(lg, 0);
    if (k == 3) e.Set(lv, 0);
    EXPECT_EQ(0, e.GetEncodedSize());
    EXPECT_TRUE(log.HasAssert("FALSE", "src/KBlobElement", CKTestLog::kReturnValue, 587));
  }
  EXPECT_EQ(9, CKBlobElement::StringEncodedSize("abcd", 0));
  EXPECT_EQ(14, CKBlobElement::StringEncodedSize("abcd", 1));
}

TEST(KBlob, ManyElementsInAnyOrderStaySortedAndFindable) {
  std::vector<std::string> names;
  for (int i = 0; i < 3000; i++) {
    char sz[16];
    std::snprintf(sz, sizeof sz, "k%05d", (i * 7919) % 3000);
    names.push_back(sz);
  }
  CKTestBlob b;
  for (size_t i = 0; i < names.size(); i++) b.SetElement(names[i].c_str(), (int)i);
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted, Names(b));
  for (size_t i = 0; i < names.size(); i++) {
    std::string upper = names[i];
    upper[0] = 'K';
    const int at = b.BlobElementIndex(upper.c_str());
    ASSERT_GE(at, 0);
    EXPECT_EQ(names[i], b.BlobElementName(at));
    EXPECT_EQ((int)i, b.BlobElementGet(at)->GetInt32());
  }
}

// ---------------------------------------------------------------- encoded forms
#include <fstream>

#include "KTestStream.h"
#include "KTestTemp.h"

namespace {

std::string ToBytes(CKBlobMemory& b) {
  CKMem mem;
  if (!b.ToMem(mem)) return "<failed>";
  const unsigned char* p = mem.m_pMemRef ? mem.m_pMemRef->pData : nullptr;
  return p ? std::string((const char*)p + mem.m_nStartOffset, mem.Size() - mem.m_nStartOffset) : "";
}

void FromBytes(CKBlobMemory& b, const std::string& s) {
  CKMem mem;
  std::string copy = s;
  if (!copy.empty()) mem.Set(&copy[0], (unsigned)copy.size());
  b.FromMem(mem);
}

// A blob of every kind the binary form counts correctly.
void Fill(CKBlob& b) {
  CKList l;
  l.Add("x\ny");
  l.Add("");
  CKListList ll;
  ll.Add(new CKList(l));
  CKLangList lang;
  lang.Add('E', l, 0);
  CKListTyped<int> li;
  li.Add(-4);
  CKListUINT64 lu;
  lu.Add(1ull << 63);
  b.SetElement("text", "t\xFFz\r\n");
  b.SetElement("int", -1);
  b.SetElement("dbl", 0.125);
  b.SetElement("flt", 2.5f);
  b.SetElement("u64", (unsigned __int64)12345678901234ull);
  b.SetElement("list", l, 0);
  b.SetElement("ll", ll, 0);
  b.SetElement("lang", lang, 0);
  b.SetElement("li", li, 0);
  b.SetElement("lu", lu, 0);
  b.BlobElementAdd("empty");
}

}  // namespace

TEST(KBlobEncode, DocumentedBytesVersionsAndFailures) {
  CKTestLog log;
  CKBlobMemory b;
  EXPECT_EQ("", ToBytes(b));
  b.SetElement("a", 1);
  EXPECT_EQ("49 51 30 31 01 00 00 00 04 00 00 00 02 00 00 00 61 00 01 00 00 00",
            KTestHex(ToBytes(b)));
  EXPECT_EQ(0, log.Count());

  const std::string good = ToBytes(b);
  for (const char* head : {"IQ02", "IR01", "iq01", "JQ01"}) {
    CKBlobMemory c;
    FromBytes(c, std::string(head) + good.substr(4));
    EXPECT_EQ(1, c.GetStatus());
    EXPECT_FALSE(c.IsDecoded());
    EXPECT_EQ(0, c.BlobElementCount()) << head;
    EXPECT_EQ(-1, c.GetStatus());
  }
  // Every truncation fails and leaves no element.
  CKBlobMemory rich;
  Fill(rich);
  const std::string full = ToBytes(rich);
  for (size_t n = 1; n < full.size(); n++) {
    CKBlobMemory c;
    FromBytes(c, full.substr(0, n));
    EXPECT_EQ(0, c.BlobElementCount()) << n;
  }
  // A count of 2^31 - 1 behind a valid header fails fast.
  std::string hostile = std::string("IQ01\xFF\xFF\xFF\x7F", 8) + good.substr(8);
  CKBlobMemory c;
  FromBytes(c, hostile);
  EXPECT_EQ(0, c.BlobElementCount());
}

TEST(KBlobEncode, SizeChecksForMiscountedKinds) {
  CKTestLog log;
  CKBlobMemory b;
  CKDateTime d;
  d.SetDateTime(2001, 2, 3, 4, 5, 6);
  b.SetElement("d", d);
  CKMem mem;
  EXPECT_EQ(0, b.ToMem(mem));  // 8 counted, 7 written
  EXPECT_TRUE(log.HasAssert("nStreamSize==fullsize", "src/KBlob", CKTestLog::kContinue, 323));
  bool bWrong = false;
  for (const std::string& s : log.Texts())
    bWrong |= s == "CKBlob::Encode: Wrong Size fullsize=26 bs.GetSize()=25";
  EXPECT_TRUE(bWrong) << ::testing::PrintToString(log.Texts());
  // Zipped, the size is not compared after the write.
  log.Clear();
  b.SetZipped(1);
  EXPECT_EQ(1, b.ToMem(mem));
  CKBlobMemory z;
  z.SetZipped(1);
  z.FromMem(mem);
  CKDateTime e;
  ASSERT_EQ(1, z.GetElement("d", e));
  EXPECT_EQ(5, e.GetHour());  // hour and minute exchanged on the way back
  EXPECT_EQ(4, e.GetMinute());
}

TEST(KBlobEncode, RoundTripsInEveryFormThroughMemoryAndFiles) {
  CKTestLog log;
  CKTestTempDir tmp;
  for (int form = 0; form < 3; form++) {
    CKBlobMemory b;
    b.SetZipped(form == 1);
    b.SetTextMode(form == 2);
    Fill(b);
    const std::string bytes = ToBytes(b);
    ASSERT_NE("<failed>", bytes) << form;
    CKBlobMemory c;
    c.SetZipped(form == 1);
    c.SetTextMode(form == 2);
    FromBytes(c, bytes);
    ASSERT_EQ(b.BlobElementCount(), c.BlobElementCount()) << form;
    for (int i = 0; i < b.BlobElementCount(); i++) {
      EXPECT_STREQ(b.BlobElementName(i), c.BlobElementName(i));
      EXPECT_EQ(b.BlobElementType(i), c.BlobElementType(i));
    }
    CKString s;
    c.GetElement("text", s);
    EXPECT_EQ(std::string("t\xFFz\r\n"), std::string(s.GetString(), s.GetLength()));
    EXPECT_EQ(bytes, ToBytes(c)) << form;

    const std::string path = tmp.Path("b" + std::to_string(form) + ".blob");
    CKBlobFile f(path.c_str());
    f.SetZipped(form == 1);
    f.SetTextMode(form == 2);
    Fill(f);
    ASSERT_EQ(1, f.Save());
    std::ifstream in(path, std::ios::binary);
    const std::string onDisk((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes, onDisk);
    CKBlobFile g(path.c_str());
    g.SetZipped(form == 1);
    g.SetTextMode(form == 2);
    ASSERT_EQ(1, g.Load());
    EXPECT_FALSE(g.IsDecoded());
    EXPECT_EQ(b.BlobElementCount(), g.BlobElementCount());
    EXPECT_TRUE(g.IsDecoded());
    EXPECT_EQ(2, g.GetStatus());
  }
  EXPECT_EQ(0, log.Count());
  CKBlobFile missing(tmp.Path("none").c_str());
  EXPECT_EQ(0, missing.Load());
}

TEST(KBlobEncode, TextFormOfEveryKind) {
  CKTestLog log;
  CKBlobMemory b;
  b.SetTextMode(1);
  Fill(b);
  CKDateTime d;
  d.SetDateTime(-5, 13, 0, 99, -1, 127);
  b.SetElement("date", d);
  b.SetElement("i64", (__int64)INT64_MIN);
  b.SetElement("u32", 0xFFFFFFFFu);
  CKListDateTime ld;
  ld.Add(d);
  b.SetElement("ld", ld, 0);
  b.SetElement("g", CKGuid());
  CKVariant::CKListVariant lv;
  lv.Add(new CKVariant(lv));
  lv.Add(new CKVariant("\\0\\F"));
  b.SetElement("lv", CKVariant(lv));
  CKFile file(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  KTestImage(file, std::string("\0\xFF", 2));
  b.SetElementRaw("raw", file, 0);
  const std::string bytes = ToBytes(b);
  EXPECT_EQ(0, bytes.compare(0, 6, "IQ01\xFF\0", 6));
  CKBlobMemory c;
  c.SetTextMode(1);
  FromBytes(c, bytes);
  ASSERT_EQ(b.BlobElementCount(), c.BlobElementCount());
  EXPECT_EQ(bytes, ToBytes(c));
  CKDateTime e;
  ASSERT_EQ(1, c.GetElement("date", e));
  EXPECT_TRUE(e == d);  // the text form keeps every field in place
  ASSERT_NE(nullptr, c.GetElementRaw("raw", 0, 0));
  EXPECT_EQ(std::string("\0\xFF", 2), KTestBytes(*c.GetElementRaw("raw", 0, 0)));
  // Truncations of the text form fail.
  for (size_t n = 0; n + 1 < bytes.size(); n += 3) {
    CKBlobMemory t;
    t.SetTextMode(1);
    FromBytes(t, bytes.substr(0, n));
    EXPECT_EQ(0, t.BlobElementCount()) << n;
  }
}

TEST(KBlobEncode, ZippedBodyIsAZlibStreamThatPythonReads) {
  if (std::system("python3 -c 'import zlib' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 with its zlib module is not available";
  CKBlobMemory b;
  b.SetZipped(1);
  Fill(b);
  const std::string zipped = ToBytes(b);
  b.SetZipped(0);
  const std::string plain = ToBytes(b);
  ASSERT_LT(zipped.size(), plain.size());
  CKTestTempDir tmp;
  const std::string in = tmp.Path("z.bin"), out = tmp.Path("plain.bin");
  std::ofstream(in, std::ios::binary) << zipped;
  const std::string cmd = "python3 -c \"import sys,zlib; open(sys.argv[2],'wb').write("
                          "zlib.decompress(open(sys.argv[1],'rb').read()))\" \"" +
                          in + "\" \"" + out + "\"";
  ASSERT_EQ(0, std::system(cmd.c_str()));
  std::ifstream f(out, std::ios::binary);
  EXPECT_EQ(plain, std::string((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>()));
}

TEST(KBlobEncode, RandomMutationsDecodeFullyOrLeaveNothing) {
  CKTestLog log;
  std::mt19937 rng(2024);
  for (int form = 0; form < 3; form++) {
    CKBlobMemory b;
    b.SetTextMode(form == 2);
    b.SetZipped(form == 1);
    Fill(b);
    const std::string good = ToBytes(b);
    for (int round = 0; round < 400; round++) {
      std::string bad = good;
      const int nFlips = 1 + (int)(rng() % 4);
      for (int k = 0; k < nFlips; k++) bad[rng() % bad.size()] = (char)(rng() & 0xFF);
      CKBlobMemory c;
      c.SetTextMode(form == 2);
      c.SetZipped(form == 1);
      FromBytes(c, bad);
      const int n = c.BlobElementCount();
      if (c.GetStatus() < 0) {
        EXPECT_EQ(0, n);
        EXPECT_EQ(nullptr, c.BlobElementGet(0));
      } else {
        for (int i = 0; i < n; i++) ASSERT_NE(nullptr, c.BlobElementName(i));
      }
    }
  }
}

TEST(KBlob, ElementsSurviveGrowthMergesAndDecodedNeighbours) {
  // Addresses hold while thousands of names arrive out of order and are
  // merged in; a change of case alone renames the element in place.
  CKTestBlob b;
  b.SetElement("m", 1);
  CKBlobElement* pM = b.BlobElementGet("m");
  std::mt19937 rng(7);
  std::vector<int> order(4000);
  for (int i = 0; i < 4000; i++) order[i] = i;
  std::shuffle(order.begin(), order.end(), rng);
  for (int i : order) b.SetElement(("k" + std::to_string(i)).c_str(), i);
  EXPECT_EQ(pM, b.BlobElementGet("M"));
  EXPECT_EQ(4000, b.BlobElementIndex("m"));
  b.BlobElementSetName("m", "M");
  EXPECT_EQ(pM, b.BlobElementGet(4000));
  EXPECT_STREQ("M", b.BlobElementName(4000));
  EXPECT_EQ(1, pM->GetInt32());
  b.BlobElementDeleteAll();
  EXPECT_EQ(0, b.BlobElementCount());
  b.SetElement("again", 2);
  EXPECT_EQ(0, b.BlobElementIndex("AGAIN"));

  // Decoded elements take new values and new neighbours; encoding twice
  // gives the same bytes (the first hands its block over).
  CKBlobMemory src;
  Fill(src);
  CKBlobMemory d;
  FromBytes(d, ToBytes(src));
  ASSERT_EQ(src.BlobElementCount(), d.BlobElementCount());
  CKBlobElement* pText = d.BlobElementGet("text");
  d.SetElement("text", "new");
  d.SetElement("aaa", 3);
  d.SetElement("zzz", 4);
  EXPECT_EQ(pText, d.BlobElementGet("TEXT"));
  const std::string once = ToBytes(d);
  EXPECT_EQ(once, ToBytes(d));
  CKBlobMemory e;
  FromBytes(e, once);
  std::vector<std::string> names = Names(d);
  EXPECT_EQ(names, Names(e));
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ("new", std::string(e.BlobElementGet("text")->GetText()));

  // A count far beyond the data fails at the first missing record.
  std::string hostile = std::string("IQ01\xFF\xFF\xFF\x7F", 8) + ToBytes(src).substr(8, 40);
  CKBlobMemory h;
  FromBytes(h, hostile);
  EXPECT_EQ(0, h.BlobElementCount());
  EXPECT_EQ(-1, h.GetStatus());
}

TEST(KBlobEncode, SizeReportsComeBeforeTheSizeCheck) {
  // The expected size is summed while writing; a kind without a size must
  // still report before the size check, as a separate first pass would.
  CKTestLog log;
  CKBlobMemory b;
  CKVariant::CKListVariant lv;
  lv.Add(new CKVariant(5));
  CKVariant v;
  v.Set(lv, 0);
  b.SetElement("a", 1);
  b.SetElement("m", v);
  b.SetElement("z", 2.0);
  CKMem mem;
  EXPECT_EQ(0, b.ToMem(mem));
  const std::vector<std::string> asserts = log.Asserts();
  ASSERT_EQ(2u, asserts.size()) << ::testing::PrintToString(asserts);
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KBlobElement", CKTestLog::kReturnValue, 587));
  EXPECT_NE(std::string::npos, asserts[0].find("src/KBlobElement on line 587"));
  EXPECT_NE(std::string::npos, asserts[1].find("nStreamSize==fullsize"));
}

TEST(KBlobEncode, DecodedTextsAreOwnedByWhateverHoldsThem) {
  CKBlobMemory src;
  Fill(src);
  const std::string bytes = ToBytes(src);
  CKString name, text, item;
  CKList borrowed;
  CKList* pTaken = nullptr;
  CKBlobMemory other;
  CKVariant kept;
  {
    CKBlobMemory b;
    FromBytes(b, bytes);
    ASSERT_EQ(11, b.BlobElementCount());
    CKBlobElement* e = b.BlobElementGet("text");
    ASSERT_NE(nullptr, e);
    name = e->m_strName;
    EXPECT_TRUE(b.GetElement("text", text));
    EXPECT_EQ(1u, e->m_strName.GetRefCount());
    EXPECT_EQ(1u, name.GetRefCount());
    EXPECT_EQ(CKString::CapacityFor(4), e->m_strName.GetAllocLength());
    item = b.GetElementList("list", 0, 0)->Get(0);
    pTaken = b.GetElementList("list", 1, 0);
    b.GetElementListList("ll", 0, 0)->GetAt(0)->Detach(borrowed);
    other.SetElement("copy", 0);
    other.BlobElementGet("copy")->Copy(*b.BlobElementGet("u64"));

    // Writes go to a block of the writer's own; neighbours keep their text.
    CKString* pValue = e->GetString();
    ASSERT_NE(nullptr, pValue);
    pValue->SetAt(0, 'Q');
    e->m_strName += "2";
    b.BlobElementGet("int")->m_strName.MakeUpper();
    EXPECT_STREQ("Q\xFFz\r\n", pValue->GetString());
    EXPECT_STREQ("text2", e->m_strName.GetString());
    EXPECT_STREQ("INT", b.BlobElementName(b.BlobElementIndex("int")));
    EXPECT_TRUE(b.SetElement("dbl", "over"));
    e->Detach(kept);
    EXPECT_TRUE(b.SetElement("text2", 7));
    CKString s;
    EXPECT_TRUE(b.GetElement("dbl", s));
    EXPECT_STREQ("over", s.GetString());
  }
  // Everything taken out of the blob outlives it.
  EXPECT_STREQ("text", name.GetString());
  EXPECT_STREQ("t\xFFz\r\n", text.GetString());
  EXPECT_STREQ("x\ny", item.GetString());
  EXPECT_STREQ("Q\xFFz\r\n", kept.GetText().GetString());
  ASSERT_NE(nullptr, pTaken);
  ASSERT_EQ(2, pTaken->Count());
  EXPECT_STREQ("x\ny", pTaken->Get(0).GetString());
  ASSERT_EQ(2, borrowed.Count());
  EXPECT_STREQ("x\ny", borrowed.Get(0).GetString());
  delete pTaken;
  // Copy takes the name too (the index is not told: read the element itself).
  const CKBlobElement* c = other.BlobElementGet(0);
  unsigned __int64 u = 0;
  EXPECT_TRUE(c->Get(u));
  EXPECT_EQ(12345678901234ull, u);
  EXPECT_STREQ("u64", c->m_strName.GetString());
}

TEST(KBlobEncode, HostileLengthsFailBeforeAllocating) {
  // A count far beyond the data, then a name and a text claiming more bytes
  // than remain: each fails and leaves the blob empty.
  const std::string head("IQ01\xFF\xFF\xFF\x7F", 8);
  const std::string rec = std::string("\x02\0\0\0\x02\0\0\0a\0", 10);
  const std::string cases[] = {head + std::string("\x02\0\0\0\xFF\xFF\xFF\x07", 8) + "abc",
                               head + rec + std::string("\xF0\xFF\xFF\x07", 4) + "xyz",
                               head + rec + std::string("\x03\0\0\0", 4) + "ab"};
  for (const std::string& bytes : cases) {
    CKBlobMemory b;
    FromBytes(b, bytes);
    EXPECT_EQ(0, b.BlobElementCount());
    EXPECT_EQ(-1, b.GetStatus());
  }
}
