#include <gtest/gtest.h>

#include <climits>
#include <string>

#include <base/classes/list/KList.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KTestLog.h"

namespace {

struct KListTest : ::testing::Test {
  CKTestLog tools;
};

CKList Make(std::initializer_list<const char*> items) {
  CKList l;
  for (const char* s : items) l.Add(s);
  return l;
}

std::string Join(const CKList& l) { return std::string(l.ToString("|")); }

}  // namespace

TEST_F(KListTest, FindAndUniqueness) {
  CKList l = Make({"abc", "", "AB", "ab"});
  EXPECT_EQ(1, l.Find(nullptr));
  EXPECT_EQ(1, l.Find(""));
  EXPECT_EQ(3, l.Find("ab"));
  EXPECT_EQ(-1, l.Find("abcd"));
  EXPECT_EQ(2, l.Find("ab", TRUE));
  EXPECT_EQ(0, l.FindBeginWith("ab"));
  EXPECT_EQ(2, l.FindBeginWith("AB"));
  EXPECT_EQ(3, l.AddUnique("ab"));
  EXPECT_EQ(4, l.AddUnique(CKString("Ab")));
  EXPECT_EQ(2, l.AddUnique("Ab", TRUE));
  l.Delete("ab");
  EXPECT_EQ("abc||AB|Ab", Join(l));

  // Ignoring case folds ASCII letters only.
  l = Make({"`x", "\xe9", "[", "`X"});
  EXPECT_EQ(-1, l.Find("@x", TRUE));
  EXPECT_EQ(-1, l.Find("\xc9", TRUE));
  EXPECT_EQ(-1, l.Find("{", TRUE));
  EXPECT_EQ(0, l.Find("`X", TRUE));
  // Long lists, null and empty elements on the way.
  l = CKList();
  for (int i = 0; i < 100; i++) l.Add(("item" + std::to_string(i)).c_str());
  l.Set(120, "Last");
  EXPECT_EQ(99, l.Find("item99"));
  EXPECT_EQ(120, l.Find("LAST", TRUE));
  EXPECT_EQ(100, l.Find(""));
  EXPECT_EQ(-1, l.Find("item100"));

  l = Make({"a", "b", "a"});
  EXPECT_EQ(0, l.InsertUniqueAt(1, "a", FALSE));
  EXPECT_EQ("a|b", Join(l));
  EXPECT_EQ(-1, l.InsertUniqueAt(0, nullptr, FALSE));
  CKString s("B");
  EXPECT_EQ(1, l.InsertUniqueAt(9, s, TRUE));
  EXPECT_EQ("a|B", Join(l));

  l = Make({"x", "X", "y", "x"});
  l.RemoveDuplicates(TRUE);
  EXPECT_EQ("x|y", Join(l));
  l = Make({"x", "X", "x", "X"});
  l.RemoveDuplicates(FALSE);
  EXPECT_EQ("x|X", Join(l));

  // Null elements are reported and skipped.
  l.Set(3, "x");
  l.RemoveDuplicates(FALSE);
  EXPECT_EQ("x|X|", Join(l));
  ASSERT_EQ(2u, tools.Asserts().size());
  EXPECT_EQ("Assertion failed (pStr2) in src/KList on line 251. Continue...", tools.Asserts()[1]);
  l = CKList();
  l.Set(1, "a");
  l.Add("a");
  l.RemoveDuplicates(FALSE);
  EXPECT_EQ("|a", Join(l));
  ASSERT_EQ(3u, tools.Asserts().size());
  EXPECT_EQ("Assertion failed (pStr1) in src/KList on line 247. Continue...", tools.Asserts()[2]);

  l = Make({" a ", "", "  ", "\tb", "c"});
  l.Set(6, "d");
  l.StripEmptyStrings();
  EXPECT_EQ("a|b|c|d", Join(l));
}

TEST_F(KListTest, SortAndComparators) {
  CKList l = Make({"b", "B", "a", ""});
  l.Sort();
  EXPECT_EQ("|B|a|b", Join(l));

  // Null elements go after every string; bytes compare unsigned.
  l.Set(6, "\xe9");
  l.Add("z");
  l.Sort();
  EXPECT_EQ("|B|a|b|z|\xe9||", Join(l));
  EXPECT_EQ(nullptr, l.PileGet(6));
  EXPECT_EQ(nullptr, l.PileGet(7));

  CKString a("a"), b("ab");
  CKString* s[3] = {&a, &b, nullptr};
  EXPECT_EQ(-1, kelvor_comp_func_string(&s[0], &s[1]));
  EXPECT_EQ(1, kelvor_comp_func_string(&s[1], &s[0]));
  EXPECT_EQ(-1, kelvor_comp_func_string(&s[0], &s[2]));
  EXPECT_EQ(0, kelvor_comp_func_string(&s[2], &s[2]));

  // The address comparator ignores what the slots hold.
  void* v[2] = {(void*)9, (void*)1};
  EXPECT_EQ(1, kelvor_comp_func_int_32(&v[0], &v[1]));
  EXPECT_EQ(-1, kelvor_comp_func_int_32(&v[1], &v[0]));
  EXPECT_EQ(0, kelvor_comp_func_int_32(&v[1], &v[1]));
}

TEST_F(KListTest, CopiesMovesAndCompare) {
  CKList l = Make({"a", "b", "c"});
  CKList c(l);
  EXPECT_TRUE(c == l);
  c.Set(1, CKString("B"));
  EXPECT_TRUE(c != l);
  EXPECT_EQ("b", std::string(l.Get(1)));
  CKList& self = l;
  l = self;  // no self-check: empties
  EXPECT_EQ(0, l.Count());
  l.Copy(c);
  l += l;
  EXPECT_EQ("a|B|c|a|B|c", Join(l));
  l -= Make({"B", "a", "x"});
  EXPECT_EQ("c|a|B|c", Join(l));
  l -= self;
  EXPECT_EQ(0, l.Count());
  EXPECT_EQ("", std::string(l.GetLast()));
  EXPECT_FALSE(Make({"a", ""}) == Make({"a", "b"}));

  l = Make({"a", "b", "c", "d"});
  CKList t = Make({"t"});
  l.CopyAndRemove(t, 3, FALSE);
  EXPECT_EQ("t|a|b|c", Join(t));
  EXPECT_EQ("d", Join(l));
  l.CopyAndRemove(t, 5, TRUE);
  EXPECT_EQ("d", Join(t));
  EXPECT_EQ(0, l.Count());

  l = Make({"a", "b", "c"});
  l.CopyAndRemove(l, 2, FALSE);
  EXPECT_EQ("c|a|b", Join(l));

  l = Make({"1", "2"});
  l.SetStep(16);
  t.PileSetSortFunc(nullptr);
  l.Detach(t);
  EXPECT_EQ("1|2", Join(t));
  EXPECT_EQ(16, t.PileGetStep());
  EXPECT_EQ(nullptr, t.PileGetSortFunc());
  EXPECT_EQ(0, l.Count());

  CKList p = Make({"a", "b", "c"});
  EXPECT_EQ(1, p.PreAlloc(2));  // replaced elements are freed, not leaked
  EXPECT_EQ("|", Join(p));
  EXPECT_EQ(1, p.PreAlloc(130));
  EXPECT_EQ(130, p.Count());
  EXPECT_EQ(256, p.PileSize());
}

TEST_F(KListTest, SetInsertDelete) {
  CKList l;
  EXPECT_EQ(5, l.Set(5, CKString("x")));
  EXPECT_EQ(0, l.Count());
  EXPECT_EQ(5, l.Set(5, "x"));
  for (int i = 0; i < 5; i++) EXPECT_EQ(nullptr, l.PileGet(i));
  EXPECT_EQ("|||||x", Join(l));
  EXPECT_EQ(3, l.Set(3, "y"));
  EXPECT_EQ(0, l.Set(-2, "z"));
  EXPECT_EQ("z|||y||x", Join(l));

  // Slots vacated by removals must not come back as elements.
  CKList m = Make({"a", "b", "c"});
  m.DeleteLast();
  m.DeleteLast();
  m.Set(3, "d");
  EXPECT_EQ("a|||d", Join(m));

  m.InsertAt(1, "i");
  m.InsertAt(-3, CKString("j"));
  m.InsertAt(99, CString("k"));
  EXPECT_EQ("j|a|i|||d|k", Join(m));
  m.Delete(7);
  m.Delete(-1);  // passes the check, removes nothing
  ASSERT_EQ(1u, tools.Asserts().size());
  EXPECT_EQ("Assertion failed (nIndex<Count()) in src/KList on line 79. Continue...", tools.Asserts()[0]);
  EXPECT_THROW(m.Set(INT_MAX, "w"), CKMemoryException);
  // Past 2 GiB of slots, whatever the pointer width.
  EXPECT_THROW(m.Set(INT_MAX / (int)sizeof(void*) + 1, "w"), CKMemoryException);
  EXPECT_EQ(7, m.Count());

  m.SetCount(-5);
  EXPECT_EQ(0, m.Count());
  m.SetCount(3);
  EXPECT_EQ("||", Join(m));
  EXPECT_NE(nullptr, m.PileGet(2));
}

TEST_F(KListTest, TextForms) {
  CKList l = Make({"a", "", "b"});
  EXPECT_EQ("a,,b", std::string(l.ToString(',')));
  EXPECT_EQ("a--b", std::string(Make({"a", "b"}).ToString("--")));
  EXPECT_EQ("", std::string(CKList().ToString(',')));

  l.FromString("a;;b;", ';');
  EXPECT_EQ("a||b|", Join(l));
  l.FromString("x  y ", " ");
  EXPECT_EQ("x|y", Join(l));

  l = Make({"12x", "7", "-3"});
  EXPECT_EQ(12, l.iGet(0));
  EXPECT_EQ(-1, l.iGet2(7, -1));
  EXPECT_EQ(KInt2("12x", -1), l.iGet2(0, -1));
  // Numbers an int cannot hold give its bounds.
  l = Make({"2147483647", "-2147483648", "2147483648", "-99999999999999999999", " +8x"});
  EXPECT_EQ(INT_MAX, l.iGet(0));
  EXPECT_EQ(INT_MIN, l.iGet(1));
  EXPECT_EQ(INT_MAX, l.iGet(2));
  EXPECT_EQ(INT_MIN, l.iGet(3));
  EXPECT_EQ(8, l.iGet(4));
}

TEST_F(KListTest, TextsSharingOneHugeBlock) {
  // Five elements share one block of 2^30 + 1 characters (nothing is
  // copied): their total passes INT_MAX and 2^32.
  CKString big;
  try {
    big.GetBufferSetLength((1u << 30) + 1);
  } catch (const CKMemoryException&) {
    GTEST_SKIP() << "no room for a 1 GiB block";
  }
  CKList l;
  CKFastList f;
  for (int i = 0; i < 5; i++) {
    l.Add(big);
    f.Add(big);
  }
  EXPECT_EQ(INT_MAX, l.TotalCharCount());
  EXPECT_EQ(INT_MAX, f.TotalCharCount());
  EXPECT_THROW(l.ToString(','), CKMemoryException);
  EXPECT_THROW(f.ToString(','), CKMemoryException);
  f.RealDeleteAll();
}

TEST_F(KListTest, CircularListWraps) {
  CKCircularList small(1);
  EXPECT_EQ(30, small.GetCapacity());
  for (int i = 0; i < 31; i++) small.Add(KStr(i));
  EXPECT_EQ(30, small.Count());
  EXPECT_EQ("1", std::string(small.Get(0)));
  EXPECT_EQ("30", std::string(small.Get(29)));

  CKCircularList c(3);
  for (const char* s : {"a", "b", "c"}) c.Add(s);
  void* pOldest = c.PileGet(0);
  EXPECT_EQ(2, c.Add("d"));
  EXPECT_EQ(pOldest, c.PileGet(2));  // the oldest string object is reused
  EXPECT_EQ("b|c|d", Join(c));
  EXPECT_EQ("d", std::string(c.RemoveLast()));
  EXPECT_EQ("b|c", Join(c));
  c.Add("e");
  delete (CKString*)c.PileGet(0);
  c.PileSetAt(0, nullptr);
  EXPECT_EQ(2, c.Add("f"));
  ASSERT_EQ(1u, tools.Asserts().size());
  EXPECT_EQ("Assertion failed (pStr) in src/KList on line 548. Continue...", tools.Asserts()[0]);
  EXPECT_EQ("c|e|f", Join(c));
}

TEST_F(KListTest, ListOfListsCopiesDeeply) {
  CKListList ll;
  for (CKList* p : {new CKList(Make({"a", "b"})), (CKList*)nullptr, new CKList(Make({"c"}))})
    ll.Add(p);
  CKListList d;
  d.Add(new CKList(Make({"old"})));
  d = ll;
  ASSERT_EQ(3, d.Count());
  EXPECT_NE(ll.Get(0), d.Get(0));
  ll.Get(0)->Set(0, "changed");
  EXPECT_EQ("a|b", Join(*d.Get(0)));
  ASSERT_NE(nullptr, d.Get(1));
  EXPECT_EQ(0, d.Get(1)->Count());
  EXPECT_EQ("c", Join(*d.Get(2)));

  // The copy constructor shares the lists with its source.
  CKListList* pShared = new CKListList(ll);
  EXPECT_EQ(ll.Get(2), pShared->Get(2));
  KPileInit(&pShared->data);
  delete pShared;

  CKListList p;
  p.Add(new CKList(Make({"x"})));
  EXPECT_EQ(1, p.PreAlloc(3));
  ASSERT_EQ(3, p.Count());
  EXPECT_EQ(0, p.Get(2)->Count());
}
