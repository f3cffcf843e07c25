// Variant: tags, setters and getters without widening, ownership, copies,
// the boxed form and the payload size.
#include <base/tools/KVariant.h>

#include <cstring>

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
  b = b;  // self-assignment changes nothing
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
