// Variant: tags, setters and getters without widening, ownership, copies,
// the boxed form and the payload size.
#include <base/tools/KVariant.h>

#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "KTestLog.h"

namespace {

CKList MakeList(std::initializer_list<const char*> items) {
  CKList l;
  for (const char* s : items) l.Add(s);
  return l;
}

}  // namespace

TEST(KVariant, ScalarsKeepTheirTagAndNeverWiden) {
  CKVariant v;
  EXPECT_EQ(0, v.Type());
  EXPECT_EQ(0, v.GetInt32());
  EXPECT_STREQ("", v.GetText());
  EXPECT_EQ(0u, v.VariantSize());

  v = -5;
  EXPECT_EQ(KVT_INT, v.Type());
  EXPECT_EQ(-5, v.GetInt32());
  EXPECT_EQ(0, v.GetInt64());  // no widening
  EXPECT_EQ(0u, v.GetUInt32());
  EXPECT_EQ(0.0, v.GetDouble());
  __int64 n64 = 77;
  EXPECT_EQ(0, v.Get(n64));
  EXPECT_EQ(77, n64);  // left alone
  EXPECT_EQ(4u, v.VariantSize());

  struct Case {
    CKVariant v;
    int tag;
    unsigned size;
  };
  const Case cases[] = {
      {CKVariant(4000000000u), KVT_UINT32, 4}, {CKVariant((__int64)-3), KVT_INT64, 8},
      {CKVariant((unsigned __int64)9), KVT_UINT64, 8}, {CKVariant(1.5f), KVT_FLOAT, 4},
      {CKVariant(2.25), KVT_DOUBLE, 8}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.tag, c.v.Type());
    EXPECT_EQ(c.size, c.v.VariantSize());
  }
  EXPECT_EQ(4000000000u, cases[0].v.GetUInt32());
  EXPECT_EQ(0, cases[0].v.GetInt32());
  EXPECT_EQ(-3, cases[1].v.GetInt64());
  EXPECT_EQ(0u, cases[1].v.GetUInt64());
  EXPECT_EQ(9u, cases[2].v.GetUInt64());
  EXPECT_EQ(1.5f, cases[3].v.GetFloat());
  EXPECT_EQ(0.0, cases[3].v.GetDouble());
  EXPECT_EQ(2.25, cases[4].v.GetDouble());
}

TEST(KVariant, TextAndDateOwnershipAndDetach) {
  CKVariant v("hello");
  EXPECT_EQ(KVT_STRING, v.Type());
  EXPECT_EQ(6u, v.VariantSize());
  CKString s;
  EXPECT_EQ(1, v.Get(s));
  EXPECT_STREQ("hello", s);
  EXPECT_EQ(0, v.GetInt32());

  CKString* p = v.GetString();
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(p, v.GetString(0));  // no detach: still owned
  EXPECT_EQ(KVT_STRING, v.Type());
  CKString t = v.GetText(1);
  EXPECT_STREQ("hello", t);
  EXPECT_EQ(0, v.Type());

  v.Set(new CKString("owned"));
  CKString* q = v.GetString(1);
  EXPECT_EQ(0, v.Type());
  ASSERT_NE(nullptr, q);
  EXPECT_STREQ("owned", *q);
  delete q;

  CKDateTime d;
  d.SetDateTime(2006, 3, 15, 10, 20, 30);
  v = d;
  EXPECT_EQ(KVT_DATETIME, v.Type());
  EXPECT_EQ(7u, v.VariantSize());
  CKDateTime e;
  EXPECT_EQ(1, v.Get(e));
  EXPECT_TRUE(e == d);
  EXPECT_EQ(0, v.Get(s));  // a date is not a text
}

TEST(KVariant, ContainersCopyMoveAndBox) {
  CKList l = MakeList({"a", "bc"});
  CKVariant v(l);
  EXPECT_EQ(KVT_LIST, v.Type());
  ASSERT_NE(nullptr, v.GetList());
  EXPECT_NE(&l, v.GetList());
  EXPECT_TRUE(*v.GetList() == l);
  EXPECT_EQ(5u, v.VariantSize());  // 2 + 3

  // Set with bDetach moves the contents out of the argument.
  CKList m = MakeList({"x", "y", "z"});
  v.Set(m, 1);
  EXPECT_EQ(0, m.Count());
  EXPECT_EQ(3, v.GetList()->Count());
  // Set a list from its own held object keeps the contents.
  v.Set(*v.GetList(), 0);
  EXPECT_EQ(3, v.GetList()->Count());

  CKList out;
  EXPECT_EQ(1, v.Get(out, 0));
  EXPECT_EQ(3, out.Count());
  EXPECT_EQ(3, v.GetList()->Count());
  CKList moved;
  EXPECT_EQ(1, v.Get(moved, 1));
  EXPECT_EQ(3, moved.Count());
  EXPECT_EQ(0, v.GetList()->Count());  // the variant keeps an emptied list
  CKListUINT64 wrong;
  EXPECT_EQ(0, v.Get(wrong, 0));

  // Typed lists: payload sizes and the GUID list's pulling Detach.
  CKListTyped<int> li;
  li.Add(1);
  li.Add(2);
  CKListUINT64 lu;
  lu.Add(5);
  CKPileT<__int64> ls;
  ls.Add(-1);
  ls.Add(-2);
  CKListDateTime ld;
  ld.Add(CKDateTime());
  CKListGuid lg;
  lg.Add(CKGuid());
  CKVariant vi(li), vu(lu), vs(ls), vd(ld);
  EXPECT_EQ(8u, vi.VariantSize());
  EXPECT_EQ(8u, vu.VariantSize());
  EXPECT_EQ(16u, vs.VariantSize());
  EXPECT_EQ(7u, vd.VariantSize());
  CKVariant vg;
  vg.Set(lg, 1);
  EXPECT_EQ(0, lg.Count());
  ASSERT_NE(nullptr, vg.GetListGuid());
  EXPECT_EQ(1, vg.GetListGuid()->Count());

  // The container assignment boxes: tag 22, and the typed getter says null.
  CKTestLog log;
  CKVariant b;
  b = l;
  EXPECT_EQ(KVT_VARIANT, b.Type());
  EXPECT_EQ(nullptr, b.GetList());
  ASSERT_NE(nullptr, b.GetVariant());
  EXPECT_EQ(KVT_LIST, b.GetVariant()->Type());
  CKVariant unboxed;
  EXPECT_EQ(1, b.Get(unboxed));
  EXPECT_EQ(KVT_LIST, unboxed.Type());
  EXPECT_TRUE(*unboxed.GetList() == l);
  EXPECT_EQ(0, unboxed.Get(b));  // only a boxed variant unboxes
}

TEST(KVariant, CopiesAndTheBoxedForm) {
  CKTestLog log;
  CKVariant a("text");
  CKVariant b;
  b = a;
  EXPECT_EQ(KVT_STRING, b.Type());
  EXPECT_NE(a.GetString(), b.GetString());
  EXPECT_STREQ("text", b.GetText());
  CKVariant& self = b;
  b = self;  // self-assignment changes nothing
  EXPECT_STREQ("text", b.GetText());

  // Set(const CKVariant&) and VariantAssign box a deep copy.
  CKVariant c;
  c.Set(a);
  EXPECT_EQ(KVT_VARIANT, c.Type());
  EXPECT_STREQ("text", c.GetVariant()->GetText());
  EXPECT_NE(a.GetString(), c.GetVariant()->GetString());
  c.VariantAssign(CKVariant(3));
  EXPECT_EQ(3, c.GetVariant()->GetInt32());
  // Unboxing into the box's own content changes nothing.
  CKVariant* inner = c.GetVariant();
  EXPECT_EQ(1, c.Get(*inner));
  EXPECT_EQ(3, inner->GetInt32());

  // Deep-copying a boxed variant reports and keeps the tag with no value.
  log.Clear();
  CKVariant d;
  d = c;
  EXPECT_EQ(KVT_VARIANT, d.Type());
  EXPECT_EQ(nullptr, d.GetVariant());
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kContinue, 162));

  // Releasing a boxed variant reports line 128.
  log.Clear();
  c.VariantDelete();
  EXPECT_EQ(0, c.Type());
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kContinue, 128));

  // Detach moves value and tag.
  CKVariant e(2.5), f("x");
  e.Detach(f);
  EXPECT_EQ(0, e.Type());
  EXPECT_EQ(2.5, f.GetDouble());
}

TEST(KVariant, NestedListsAndSizeReports) {
  CKTestLog log;
  CKVariant::CKListVariant lv;
  lv.Add(new CKVariant("ab"));
  lv.Add(new CKVariant(7));
  CKVariant v(lv);
  EXPECT_EQ(KVT_LISTVARIANT, v.Type());
  EXPECT_EQ(7u, v.VariantSize());  // 3 + 4
  CKVariant w;
  w = v;
  ASSERT_NE(nullptr, w.GetListVariant());
  EXPECT_NE(v.GetListVariant()->GetAt(0), w.GetListVariant()->GetAt(0));  // deep
  EXPECT_STREQ("ab", w.GetListVariant()->GetAt(0)->GetText());

  // A null element stops the size with a report.
  v.GetListVariant()->Add(nullptr);
  EXPECT_EQ(0u, v.VariantSize());
  EXPECT_TRUE(log.HasAssert("pVariant", "src/KVariant", CKTestLog::kReturnValue, 246));

  CKListList ll;
  CKList* p1 = new CKList;
  p1->Add("abc");
  ll.Add(p1);
  CKList* p2 = new CKList;
  p2->Add("");
  ll.Add(p2);
  CKVariant vl(ll);
  EXPECT_EQ(5u, vl.VariantSize());

  CKLangList lang;
  lang.Add('E')->Add("yes");
  log.Clear();
  CKVariant vg(CKListGuid{}), vn(lang);
  EXPECT_EQ(0u, vg.VariantSize());
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kReturnValue, 238));
  EXPECT_EQ(0u, vn.VariantSize());
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kReturnValue, 214));
  CKVariant boxed;
  boxed.Set(CKVariant(1));
  EXPECT_EQ(0u, boxed.VariantSize());
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kContinue, 252));
}

// ---------------------------------------------------------------- encoding
#include "KTestStream.h"

namespace {

std::string Enc(const CKVariant& v, const char* szName = nullptr) {
  return KTestEncode([&](CKByteStream& bs) { return v.VariantEncode(bs, szName); });
}

int Dec(const std::string& bytes, CKVariant& v, CKString* pName = nullptr) {
  return KTestDecode(bytes, [&](CKByteStream& bs) { return v.VariantDecode(bs, pName); });
}

}  // namespace

TEST(KVariantEncode, DocumentedByteSequences) {
  CKDateTime d;
  d.SetDateTime(2006, 3, 15, 10, 20, 30);
  CKList l;
  l.Add("a");
  l.Add("bc");
  struct Case {
    CKVariant v;
    const char* name;
    const char* hex;
  };
  const Case cases[] = {
      {CKVariant(), nullptr, "00 00 00 00"},
      {CKVariant(-5), nullptr, "04 00 00 00 FB FF FF FF"},
      {CKVariant(""), nullptr, "02 00 00 00 01 00 00 00 00"},
      {CKVariant(7), "n", "04 00 00 00 02 00 00 00 6E 00 07 00 00 00"},
      {CKVariant(d), nullptr, "0F 00 00 00 D6 07 03 0F 14 0A 1E"},
      {CKVariant(l), nullptr, "03 00 00 00 02 00 00 00 02 00 00 00 61 00 03 00 00 00 62 63 00"},
      {CKVariant(4000000000u), nullptr, "19 00 00 00 00 28 6B EE"},
      {CKVariant((__int64)-2), nullptr, "17 00 00 00 FE FF FF FF FF FF FF FF"},
      {CKVariant(1.0), nullptr, "0D 00 00 00 00 00 00 00 00 00 F0 3F"},
      {CKVariant(1.0f), nullptr, "0E 00 00 00 00 00 80 3F"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.hex, KTestHex(Enc(c.v, c.name)));

  // The date comes back with hour and minute exchanged.
  CKVariant v;
  ASSERT_EQ(1, Dec(Enc(CKVariant(d)), v));
  ASSERT_EQ(KVT_DATETIME, v.Type());
  EXPECT_EQ(20, v.GetDateTime()->GetHour());
  EXPECT_EQ(10, v.GetDateTime()->GetMinute());
  CKString name;
  ASSERT_EQ(1, Dec(Enc(CKVariant(7), "n"), v, &name));
  EXPECT_STREQ("n", name);
  EXPECT_EQ(7, v.GetInt32());
}

TEST(KVariantEncode, EveryTagRoundTrips) {
  CKTestLog log;
  CKList l;
  l.Add("one");
  l.Add("");
  CKFastList fl;
  fl.Add("fast");
  CKListList ll;
  ll.Add(new CKList(l));
  ll.Add(new CKList);
  CKLangList lang;
  lang.Add('E', l, 0);
  lang.Add('F')->Add("oui");
  CKListTyped<int> li;
  li.Add(-1);
  li.Add(1 << 30);
  CKListUINT64 lu;
  lu.Add(~0ull);
  CKPileT<__int64> ls;
  ls.Add(-9);
  CKDateTime d;
  d.SetDateTime(1999, 12, 31, 23, 59, 58);
  CKListDateTime ld;
  ld.Add(d);
  CKVariant::CKListVariant lv;
  lv.Add(new CKVariant("in"));
  lv.Add(new CKVariant(lv));
  CKFile file(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  KTestImage(file, std::string("\0\1\2zz", 5));

  std::vector<CKVariant*> vs = {new CKVariant(), new CKVariant(3), new CKVariant(3u),
                                new CKVariant((__int64)-3), new CKVariant((unsigned __int64)3),
                                new CKVariant(0.1), new CKVariant(0.1f), new CKVariant("t\nx"),
                                new CKVariant(l), new CKVariant(ll), new CKVariant(lang),
                                new CKVariant(li), new CKVariant(lu), new CKVariant(ls),
                                new CKVariant(ld), new CKVariant(lv), new CKVariant(file)};
  for (CKVariant* pv : vs) {
    std::unique_ptr<CKVariant> v(pv);
    const std::string bytes = Enc(*v);
    ASSERT_FALSE(bytes.empty()) << (int)v->Type();
    CKVariant back;
    ASSERT_EQ(1, Dec(bytes, back)) << (int)v->Type();
    EXPECT_EQ(v->Type(), back.Type());
    if (v->Type() == KVT_DATETIME || v->Type() == KVT_LISTDATETIME) continue;
    EXPECT_EQ(bytes, Enc(back)) << (int)v->Type();
  }
  CKVariant back;
  ASSERT_EQ(1, Dec(Enc(CKVariant(file)), back));
  ASSERT_NE(nullptr, back.GetFile());
  EXPECT_EQ(std::string("\0\1\2zz", 5), KTestBytes(*back.GetFile()));
  EXPECT_EQ(KVT_FILE, back.Type());
  ASSERT_EQ(1, Dec(Enc(CKVariant(lang)), back));
  EXPECT_TRUE(*back.GetLangList() == lang);

  // A fast list comes back as a list; an empty file image as nothing.
  CKVariant vf(fl);
  ASSERT_EQ(1, Dec(Enc(vf), back));
  EXPECT_EQ(KVT_LIST, back.Type());
  EXPECT_STREQ("fast", back.GetList()->Get(0));
  delete vf.GetFastList(1);
  fl.RealDeleteAll();
  CKFile empty(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  ASSERT_EQ(1, Dec(Enc(CKVariant(empty)), back));
  EXPECT_EQ(0, back.Type());
}

TEST(KVariantEncode, RefusedTagsAndHostileBytes) {
  CKTestLog log;
  // Tags without an encoding.
  CKListGuid lg;
  CKVariant g(lg), boxed;
  boxed.Set(CKVariant(1));
  int r = -1;
  KTestEncode([&](CKByteStream& bs) { return g.VariantEncode(bs, nullptr); }, &r);
  EXPECT_EQ(0, r);
  EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kReturnValue, 639));
  KTestEncode([&](CKByteStream& bs) { return boxed.VariantEncode(bs, nullptr); }, &r);
  EXPECT_EQ(0, r);

  for (int tag : {22, 8, 27, -1, 5}) {
    log.Clear();
    std::string bytes(4, '\0');
    std::memcpy(&bytes[0], &tag, 4);
    CKVariant v("keep?");
    EXPECT_EQ(0, Dec(bytes, v)) << tag;
    EXPECT_EQ(0, v.Type());
    EXPECT_TRUE(log.HasAssert("FALSE", "src/KVariant", CKTestLog::kReturnValue, 1080)) << tag;
  }

  // Every truncation of a rich encoding fails and leaves the variant empty.
  CKList l;
  l.Add("abc");
  CKListList ll;
  ll.Add(new CKList(l));
  CKVariant::CKListVariant lv;
  lv.Add(new CKVariant(l));
  lv.Add(new CKVariant(ll));
  lv.Add(new CKVariant(2.5));
  const std::string full = Enc(CKVariant(lv), "name");
  for (size_t n = 0; n < full.size(); n++) {
    CKVariant v(1);
    CKString name;
    EXPECT_EQ(0, Dec(full.substr(0, n), v, &name)) << n;
    EXPECT_EQ(0, v.Type()) << n;
  }

  // Counts of 2^31 - 1 and lengths far beyond the data fail at once.
  for (int tag : {3, 6, 12, 16, 19, 20, 21, 24, 26}) {
    std::string bytes(8, '\0');
    const int count = 0x7FFFFFFF;
    std::memcpy(&bytes[0], &tag, 4);
    std::memcpy(&bytes[4], &count, 4);
    bytes += std::string(12, '\x41');
    CKVariant v;
    EXPECT_EQ(0, Dec(bytes, v)) << tag;
    EXPECT_EQ(0, v.Type());
  }
  const std::string big = std::string("\x01\0\0\0", 4) + std::string("\0\0\0\0\0\0\0\x40", 8);
  CKVariant v;
  EXPECT_EQ(0, Dec(big, v));
}
