#include <gtest/gtest.h>

#include <string>

#include <base/classes/list/KList.h>
#include <base/tools/KStr.h>

#include "KTestLog.h"

namespace {

// Owns one fast-list storage and releases it once, as the contract asks.
class FastListTest : public ::testing::Test {
protected:
  void TearDown() override { l.RealDeleteAll(); }
  void Fill(std::initializer_list<const char*> items) {
    l.Empty();
    for (const char* s : items) l.Add(s);
  }
  std::string Text(const CKFastList& f) const { return std::string(f.ToString('|')); }
  void* Slot(int i) const { return l.PileGetData()[i]; }
  CKTestLog tools;
  CKFastList l;
};

}  // namespace

TEST_F(FastListTest, ParksAndReusesObjects) {
  Fill({"a", "b", "c"});
  void* pa = Slot(0);
  void* pb = Slot(1);
  l.Empty();
  l.Add("x");
  EXPECT_EQ(pa, Slot(0));  // same object, new text
  EXPECT_EQ("x", Text(l));

  Fill({"a", "b", "c"});
  l.Delete(0);  // the removed object becomes the first parked one
  EXPECT_EQ("b|c", Text(l));
  EXPECT_EQ(pa, Slot(2));
  EXPECT_EQ(pb, Slot(0));
  l.Delete("c");
  EXPECT_EQ("b", Text(l));
  l.Delete(1);
  l.Delete(-1);
  ASSERT_EQ(2u, tools.Count());
  EXPECT_TRUE(CKTestLog::IsAssert(tools.lines[0].text, "nIndex<data.elts&&nIndex>=0",
                                  "src/KFastList", CKTestLog::kContinue, 90));
  EXPECT_EQ(1, l.Count());

  // Growth keeps a free slot at the count; SetStep never shrinks.
  for (int i = 0; i < 300; i++) l.Add("v");
  EXPECT_EQ(384, l.PileSize());
  l.Empty();
  l.SetStep(128);
  EXPECT_EQ(384, l.PileSize());
  l.SetCount(2);
  EXPECT_EQ("|", Text(l));
  EXPECT_EQ(pb, Slot(0));
}

TEST_F(FastListTest, LossyInsertAndOffByOneSet) {
  Fill({"a", "b"});
  l.InsertAt(0, "n");
  EXPECT_EQ("n|n|b", Text(l));
  EXPECT_EQ(Slot(0), Slot(1));
  l.InsertAt(9, CKString("e"));
  EXPECT_EQ("n|n|b|e", Text(l));

  // Inserting over parked objects loses none of them (RealDeleteAll in
  // TearDown must find each exactly once).
  Fill({"p", "q", "r", "s"});
  l.Empty();
  l.Add("a");
  l.InsertAt(0, "b");
  EXPECT_EQ("b|b", Text(l));

  // Later reuse goes through the shared object too.
  Fill({"a", "b"});
  EXPECT_EQ("b|b", Text(l));

  CKFastList f;
  EXPECT_EQ(0, f.Set(0, "a"));  // no array yet: past the size, so it extends
  f.Add("b");
  EXPECT_EQ(2, f.Set(2, "z"));  // writes the parked slot only
  EXPECT_EQ(2, f.Count());
  EXPECT_EQ("z", std::string(*(CKString*)f.PileGetData()[2]));
  EXPECT_EQ(4, f.Set(4, CKString("w")));
  EXPECT_EQ("a|b|z||w", Text(f));
  EXPECT_EQ(300, f.Set(300, "far"));
  EXPECT_EQ(301, f.Count());
  EXPECT_EQ("far", std::string(f.GetLast()));
  f.RealDeleteAll();
  EXPECT_EQ(nullptr, f.PileGetData());
  EXPECT_EQ(301, f.Count());
  EXPECT_EQ("", std::string(f.Get(0)));
}

TEST_F(FastListTest, CopiesShareStorage) {
  Fill({"a", "b"});
  CKFastList c(l);
  EXPECT_EQ(l.PileGetData(), c.PileGetData());
  l.Set(0, "z");
  EXPECT_EQ("z|b", Text(c));
  CKFastList d;
  d = c;
  CKFastList& dself = d;
  d = dself;
  EXPECT_EQ(2, d.Count());
  CKFastList e;
  d.Detach(e);
  EXPECT_EQ(e.PileGetData(), l.PileGetData());
  EXPECT_EQ(2, d.Count());  // Detach clears nothing

  // Deep copy into this list's own reused objects.
  CKFastList other;
  for (const char* s : {"x", "y", "z"}) other.Add(s);
  void* p0 = Slot(0);
  l.Copy(other);
  EXPECT_EQ("x|y|z", Text(l));
  EXPECT_EQ(p0, Slot(0));
  l += other;
  EXPECT_EQ(6, l.Count());
  {
    // Appending a shallow copy of itself across a growth: the copy's array
    // is gone once this list has grown.
    CKFastList g;
    for (int i = 0; i < 100; i++) g.Add(KStr(i));
    CKFastList shallow(g);
    g += shallow;
    ASSERT_EQ(200, g.Count());
    EXPECT_EQ("99", std::string(g.Get(199)));
    g.RealDeleteAll();
  }
  l.CopyAndRemove(other, 2, TRUE);
  EXPECT_EQ("x|y", Text(other));
  EXPECT_EQ("z|x|y|z", Text(l));
  l.CopyAndRemove(l, 1, FALSE);  // its own target: the first one goes last
  EXPECT_EQ("x|y|z|z", Text(l));
  other.RealDeleteAll();
}

TEST_F(FastListTest, SharedListBehaviour) {
  Fill({"b", "", "a", "", "c", "a"});
  void* pEmpty1 = Slot(1);
  void* pEmpty2 = Slot(3);
  l.StripEmptyStrings();
  EXPECT_EQ("b|a|c|a", Text(l));
  EXPECT_EQ(pEmpty2, Slot(4));  // parked last-removed first
  EXPECT_EQ(pEmpty1, Slot(5));
  EXPECT_EQ(1, l.Find("a"));
  EXPECT_EQ(1, l.Find("A", TRUE));
  EXPECT_EQ(0, l.AddUnique("b"));
  EXPECT_EQ(4, l.AddUnique(CKString("d")));
  l.RemoveDuplicates(FALSE);
  EXPECT_EQ("b|a|c|d", Text(l));
  // Null elements (slots the list has never filled) are reported and kept.
  CKFastList holes;
  holes.SetStep(4);
  holes.Add("a");
  holes.Set(5, "a");
  holes.RemoveDuplicates(FALSE);
  EXPECT_EQ("a||||", Text(holes));
  EXPECT_EQ(nullptr, holes.PileGet(1));
  EXPECT_TRUE(tools.HasAssert("pStr2", "src/KFastList", CKTestLog::kContinue, 413));
  EXPECT_TRUE(tools.HasAssert("pStr1", "src/KFastList", CKTestLog::kContinue, 408));
  holes.RealDeleteAll();
  l.Sort();
  EXPECT_EQ("a|b|c|d", Text(l));
  l.Swap(0, 3);
  EXPECT_EQ("d|b|c|a", Text(l));
  EXPECT_EQ(4, l.TotalCharCount());
  // The lossy insertion makes InsertUniqueAt lose the element it lands on.
  EXPECT_EQ(1, l.InsertUniqueAt(1, "a", FALSE));
  EXPECT_EQ("d|a|a|c", Text(l));

  Fill({"5", "x"});
  EXPECT_EQ(5, l.iGet(0));
  EXPECT_EQ(9, l.iGet2(2, 9));
  EXPECT_EQ(0, l.iGet2(1, 9));
  EXPECT_EQ(1, l.PreAlloc(3));
  EXPECT_EQ("||", Text(l));
  l.Empty();
  EXPECT_EQ("", std::string(l.GetLast()));
}
