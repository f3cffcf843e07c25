#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <utility>

#include <base/classes/list/KPile.h>
#include <base/classes/list/KPtrList.h>
#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KException.h>

#include "KTestLog.h"

// The first slot count whose array passes INT_MAX bytes, whatever the
// pointer width.
const int kPastMaxSlots = INT_MAX / (int)sizeof(void*) + 1;

namespace {

void* P(intptr_t n) { return (void*)n; }

struct TestPile : CKPile {
  using CKPileFast::CheckSize;
};

struct Counted {
  static int alive;
  int value;
  Counted(int v = 0) : value(v) { ++alive; }
  virtual ~Counted() { --alive; }
};
int Counted::alive = 0;

int Descending(const void* a, const void* b) {
  const intptr_t x = *(const intptr_t*)a, y = *(const intptr_t*)b;
  return x > y ? -1 : (x < y ? 1 : 0);
}

}  // namespace

TEST(KPile, GrowsAndShrinksByWholeSteps) {
  CKPile p;
  EXPECT_EQ(0, p.PileSize());
  EXPECT_EQ(0, p.PileAdd(P(1)));
  EXPECT_EQ(128, p.PileSize());
  for (int i = 1; i < 128; i++) EXPECT_EQ(nullptr, p.PileGetData()[i]) << i;
  for (int i = 1; i < 128; i++) p.PileAdd(P(i + 1));
  EXPECT_EQ(128, p.PileSize());
  EXPECT_EQ(128, p.PileAdd(P(129)));  // the 129th element
  EXPECT_EQ(256, p.PileSize());
  EXPECT_EQ((int)(256 * sizeof(void*) + sizeof(KPile)), p.PileSizeof());
  while (p.Count() > 200) p.PileRemove(p.Count() - 1);
  EXPECT_EQ(256, p.PileSize());
  while (p.Count() > 100) p.PileRemove(0);
  EXPECT_EQ(128, p.PileSize());
  EXPECT_EQ(P(30), p.PileGet(0));  // 29 removed from the front

  CKPile q;
  q.SetStep(16);
  for (int i = 0; i < 17; i++) q.PileAdd(P(i + 1));
  EXPECT_EQ(32, q.PileSize());
  q.SetStep(0);
  EXPECT_EQ(128, q.PileGetStep());
  EXPECT_EQ(32, q.PileSize());  // less than a step idle: kept

  // SetSize keeps the count unless it is larger than the new size.
  q.SetStep(10);
  EXPECT_EQ(1, q.PileSetSize(95));
  EXPECT_EQ(100, q.PileSize());
  EXPECT_EQ(17, q.Count());
  q.PileSetSize(4);
  EXPECT_EQ(4, q.Count());
  EXPECT_EQ(10, q.PileSize());
}

TEST(KPile, CheckSizeRules) {
  TestPile p;
  // {count, size}: whole steps above the size, one more at it, kept with less than a step idle.
  const std::pair<int, int> aSizes[] = {{300, 384}, {384, 512}, {385, 512}, {5, 128}};
  for (const auto& x : aSizes) {
    p.data.elts = x.first;
    EXPECT_EQ(1, p.CheckSize()) << x.first;
    EXPECT_EQ(x.second, p.PileSize()) << x.first;
  }

  // A stale ENOMEM makes the check fail although the block was obtained.
  p.data.elts = 128;
  errno = ENOMEM;
  EXPECT_EQ(0, p.CheckSize());
  errno = 0;
  EXPECT_EQ(256, p.PileSize());
  for (int i = 128; i < 256; i++) ASSERT_EQ(nullptr, p.PileGetData()[i]);
  void** pOld = p.PileGetData();
  p.data.elts = kPastMaxSlots;  // past 2 GiB: refused, array and size untouched
  EXPECT_EQ(0, p.CheckSize());
  EXPECT_EQ(256, p.PileSize());
  EXPECT_EQ(pOld, p.PileGetData());
  p.data.elts = 0;
  EXPECT_EQ(-1, p.PileSetNoCheck(256, P(1)));

  // Shrinking tests the old pointer: no array counts as a failure.
  KPile r;
  KPileInit(&r);
  r.size = 512;
  EXPECT_EQ(0, KPileCheckSize(&r));
  EXPECT_EQ(128, r.size);
  for (int i = 0; i < 128; i++) ASSERT_EQ(nullptr, r.ptr[i]);
  KPileEmpty(&r);
}

TEST(KPile, SlotOperations) {
  CKPile p;
  for (int i = 1; i <= 5; i++) p.PileAdd(P(i));
  EXPECT_EQ(0, p.PileFind(P(1), -3));
  EXPECT_EQ(4, p.PileFind(P(5), 2));
  EXPECT_EQ(nullptr, p.PileRemove(-1));

  EXPECT_EQ(0, p.PileInsertAt(-2, P(9)));  // 9 1 2 3 4 5
  EXPECT_EQ(6, p.PileInsertAt(40, P(8)));  // ... 8
  p.PileMove(5, 0);                        // 1 2 3 4 5 9 8
  EXPECT_EQ(P(9), p.PileGet(5));
  p.PileMove(0, 6);  // 8 1 2 3 4 5 9
  EXPECT_EQ(P(8), p.PileGet(0));
  p.PileSwap(0, 6);
  EXPECT_EQ(P(9), p.PileGet(0));
  EXPECT_EQ(P(3), p.PileRemove(P(3)));
  EXPECT_EQ(P(4), p.PileGet(3));

  EXPECT_EQ(-1, p.PileSetAt(6, P(7)));
  EXPECT_EQ(9, p.PileSet(9, P(10)));
  EXPECT_EQ(10, p.Count());

  p.PileSetSortFunc(Descending);
  p.PileSetCount(6);
  p.PileSort();
  for (int i = 1; i < 6; i++) EXPECT_GT((intptr_t)p.PileGet(i - 1), (intptr_t)p.PileGet(i));

  // FastAdd appends, also from itself; Detach moves everything.
  p.PileFastAdd(p);
  EXPECT_EQ(12, p.Count());
  EXPECT_EQ(p.PileGet(0), p.PileGet(6));
  CKPile q;
  q.PileAdd(P(1));
  p.SetStep(64);
  p.PileDetach(q);
  EXPECT_EQ(12, q.Count());
  EXPECT_EQ(64, q.PileGetStep());
  EXPECT_EQ(0, p.Count());
}

TEST(KPileT, ValuePiles) {
  CKPileT<__int64> p;
  EXPECT_EQ(0, p.Add(-5));
  p.Add(1LL << 40);
  p.Add(7);
  EXPECT_EQ(128, p.PileSize());
  EXPECT_EQ((int)(128 * 8 + sizeof(KPile)), p.PileSizeof());
  EXPECT_EQ(1, p.AddUnique(1LL << 40));
  EXPECT_EQ(3, p.AddUnique(8));
  EXPECT_EQ(1LL << 40, p.Delete(1));
  EXPECT_EQ(3, p.Count());
  p.Sort();
  EXPECT_EQ(-5, p.Get(0));
  EXPECT_EQ(8, p.Get(2));

  CKPileT<__int64> c(p);  // deep
  c.Set(0, 100);
  EXPECT_EQ(-5, p.Get(0));
  c.Detach(p);
  EXPECT_EQ(0, c.Count());
  EXPECT_EQ(3, p.Count());

  CKListUINT64 u;
  for (unsigned __int64 i = 0; i < 129; i++) u.Add(~i);
  EXPECT_EQ(256, u.PileSize());
  u.data.step = 4096;  // set directly, as a decoder does
  u.Empty();
  EXPECT_EQ(0, u.PileSize());

  CKListTyped<int> t;
  t.Add(3);
  EXPECT_EQ(5, t.Set(5, 9));
  EXPECT_EQ(6, t.Count());
  EXPECT_EQ(0, t.Get(3));
  EXPECT_EQ(5, t.Find(9));
  // A typed pile that cannot grow throws and keeps its values.
  EXPECT_THROW(t.Set(600000000, 1), CKMemoryException);
  EXPECT_EQ(6, t.Count());
  CKListTyped<int> t2;
  t2.Copy(t);
  EXPECT_EQ(6, t2.Count());
  EXPECT_EQ(9, t2.Get(5));

  // A record whose array is gone reads as empty; no operation goes through
  // the null array.
  CKListTyped<int> gone;
  gone.data.elts = 3;
  gone.data.size = 128;
  EXPECT_EQ(0, gone.Get(1));
  EXPECT_EQ(-1, gone.Find(0));
  EXPECT_EQ(-1, gone.PileSetAt(1, 5));
  EXPECT_EQ(0, gone.Delete(1));
  gone.Swap(0, 2);
  gone.PileMove(0, 2);
  gone.Sort();
  t2.PileFastAdd(gone);
  EXPECT_EQ(6, t2.Count());
  gone.data.elts = 0;
  gone.data.size = 0;
}

TEST(KPile, SizeofOfHugeSizes) {
  // Sizes whose byte count passes INT_MAX give INT_MAX, not a wrapped value.
  CKPileFast p;
  p.data.size = kPastMaxSlots;
  EXPECT_EQ(INT_MAX, p.PileSizeof());
  CKPileT<__int64> q;
  q.data.size = 1 << 28;
  EXPECT_EQ(INT_MAX, q.PileSizeof());
  q.data.size = 0;
}

TEST(KPtrList, NonOwning) {
  Counted a(1), b(2), c(3);
  {
    CKPtrList<Counted> l;
    for (Counted* x : {&a, &b}) l.Add(x);
    EXPECT_EQ(0, l.InsertAt(-1, &c));
    EXPECT_EQ(&a, l.GetAt(1));
    CKPtrList<Counted> copy(l);
    EXPECT_EQ(0, l.Remove(&c));
    EXPECT_EQ(3, copy.Count());
    EXPECT_EQ(&b, l.RemoveAt(1));
    // Padding with null entries, even over stale slots.
    EXPECT_TRUE(l.SetCount(4));
    EXPECT_EQ(nullptr, l.Get(1));
    EXPECT_EQ(6, l.Set(6, &b));
    EXPECT_EQ(nullptr, l.Get(5));
    EXPECT_THROW(l.Set(kPastMaxSlots, &a), CKMemoryException);
    EXPECT_EQ(7, l.Count());
  }
  EXPECT_EQ(3, Counted::alive);
  CKPtrList<Counted> owned;
  for (Counted* x : {new Counted(4), (Counted*)nullptr, new Counted(5)}) owned.Add(x);
  owned.Delete(0);
  EXPECT_EQ(4, Counted::alive);
  owned.DeleteAll();
  EXPECT_EQ(3, Counted::alive);
  EXPECT_EQ(0, owned.Count());
}

TEST(KPtrListOwned, OwnershipAndAssertions) {
  const char* const kOwned = "include/base/classes/list/KPtrListOwned";
  CKTestLog tools;
  {
    CKPtrListOwnedC<Counted> l;
    EXPECT_EQ(kelvor_comp_func_int_32, l.PileGetSortFunc());
    for (int i = 0; i < 3; i++) l.Add(new Counted(i));
    l.Delete(1);
    EXPECT_EQ(2, Counted::alive);
    l.Delete(2);
    EXPECT_EQ(1u, tools.Count());
    EXPECT_TRUE(tools.LastIsAssert("nIndex<Count()", kOwned, CKTestLog::kContinue, 50));

    CKPtrListOwnedC<Counted> d;
    d.Add(new Counted(9));
    d = l;  // deep
    EXPECT_EQ(4, Counted::alive);
    EXPECT_NE(l.Get(1), d.Get(1));
    EXPECT_EQ(2, d.Get(1)->value);
    l.Add(nullptr);
    d = l;
    EXPECT_EQ(3, d.Count());
    EXPECT_EQ(0, d.Get(2)->value);

    // The copy constructor shares the objects.
    l.m_nParam = 7;
    CKPtrListOwned<Counted>* pShared = new CKPtrListOwned<Counted>(l);
    EXPECT_EQ(l.Get(0), pShared->Get(0));
    EXPECT_EQ(7, pShared->m_nParam);
    KPileInit(&pShared->data);  // let only l delete them
    delete pShared;

    // Count above size: DeleteAll reports and leaves everything in place.
    const int nCount = d.data.elts;
    d.data.elts = d.data.size + 1;
    d.DeleteAll();
    EXPECT_EQ(2u, tools.Count());
    EXPECT_TRUE(tools.LastIsAssert("c<=data.elts", kOwned, CKTestLog::kReturn, 79));
    d.data.elts = nCount;
    EXPECT_EQ(5, Counted::alive);

    CKPtrListOwned<Counted> t;
    t.Add(new Counted(8));
    EXPECT_EQ(6, Counted::alive);
    l.Detach(t);
    EXPECT_EQ(0, l.Count());
    EXPECT_EQ(3, t.Count());
    EXPECT_EQ(5, Counted::alive);
    t.Set(0, new Counted(1));
    EXPECT_EQ(5, Counted::alive);
    // A refused object is deleted, not leaked.
    EXPECT_THROW(t.Set(kPastMaxSlots, new Counted(2)), CKMemoryException);
    EXPECT_EQ(5, Counted::alive);
    EXPECT_EQ(3, t.Count());
  }
  EXPECT_EQ(0, Counted::alive);
}
