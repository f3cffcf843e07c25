#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <base/classes/hash/KHashStringToPtr.h>
#include <base/classes/hash/KHashStringToString.h>
#include <base/tools/KException.h>

#include "KTestLog.h"

namespace {

struct CCounted {
  static int s_nLive;
  int n;
  explicit CCounted(int v = 0) : n(v) { ++s_nLive; }
  CCounted(const CCounted& o) : n(o.n) { ++s_nLive; }
  CCounted& operator=(const CCounted&) = default;
  virtual ~CCounted() { --s_nLive; }
};
int CCounted::s_nLive = 0;

typedef CKHashStringToPtr<CCounted> CMap;

// Integer keys, hash = key: buckets are predictable and collisions easy.
class CIntMap : public CKHashList {
public:
  using CKHashList::operator=;
  ~CIntMap() override { DeleteAll(); }
  int m_nDestructed = 0;
  std::vector<std::pair<void*, void*>> m_valueChanges;

protected:
  unsigned int HashKey(void* pKey) const override { return (unsigned int)(uintptr_t)pKey; }
  int CompareKey(void* a, void* b) const override { return a == b; }
  void DestructElement(void*, void*) override { ++m_nDestructed; }
  void DestructValue(void* pOld, void* pNew) override { m_valueChanges.push_back({pOld, pNew}); }
  void CopyElement(void*& k, void*& v, void* pKey, void* pValue) override {
    k = pKey;
    v = pValue;
  }
};

void* P(uintptr_t n) { return (void*)n; }

std::string Dump(const CMap& m) {
  std::string s;
  for (unsigned i = 0; i < m.Count(); ++i)
    s += (const char*)m.GetKeyAt(i) + ("=" + std::to_string(m.GetAt(i)->n)) + " ";
  return s;
}

}  // namespace

TEST(KHashList, StringHashBucketsAndCollisions) {
  EXPECT_EQ(CKHashList::HashString(""), 0u);
  EXPECT_EQ(CKHashList::HashString(nullptr), 0u);
  EXPECT_EQ(CKHashList::HashString("ab"), 3299u);
  EXPECT_EQ(CKHashList::HashString("a\xE9"), 97u * 33u - 23u);  // signed bytes
  // Every length around the blocks the hash reads at once, high bytes too.
  std::string text;
  unsigned h = 0;
  for (int i = 0; i < 40; ++i) {
    size_t nLen = 99;
    EXPECT_EQ(CKHashList::HashText(text.c_str(), nLen), h) << i;
    EXPECT_EQ(nLen, text.size());
    const char c = (char)(i * 37 + 200);
    text += c;
    h = h * 33u + (unsigned)(int)(signed char)c;
  }

  // "a" hashes to 97, "ab" to bucket 206, "!'" to 33 * 33 + 39 = 97 + 1031.
  CMap m;
  EXPECT_FALSE(m.HasTable());
  m.Set("ab", new CCounted(1));
  m.Set("a", new CCounted(2));
  EXPECT_EQ(m.GetCollisions(), 0);
  m.Set("!'", new CCounted(3));
  EXPECT_EQ(m.GetTableSize(), 1031u);
  EXPECT_EQ(m.GetAllocatedElements(), 256);
  EXPECT_EQ(m.GetCollisions(), 1);
  EXPECT_EQ(Dump(m), "!'=3 a=2 ab=1 ");  // newest heads its chain
  // A copy inserts the source's elements in iteration order, each at its
  // chain's head: colliding keys come out reversed.
  CMap copy(m);
  EXPECT_EQ(Dump(copy), "a=2 !'=3 ab=1 ");
  EXPECT_EQ(copy.Get("!'")->n, 3);

  m.Delete("a");  // tail of the chain
  EXPECT_EQ(m.Get("a"), nullptr);
  EXPECT_EQ(m.Get("!'")->n, 3);
  m.Set("a", new CCounted(4));
  m.Delete("!'");  // head of the chain
  EXPECT_EQ(m.Get("a")->n, 4);
  EXPECT_FALSE(m.Exist("!'"));
  EXPECT_EQ(Dump(m), "a=4 ab=1 ");

  // Keys compare as strcmp does: a stored key with a zero byte inside
  // matches the text before it, and a longer or shorter text does not.
  CKString* pKey = new CKString("qrXs");
  pKey->SetAt(2, 0);
  CCounted* pValue = new CCounted(5);
  CKHashList& base = m;
  base.Set(pKey, pValue);
  EXPECT_EQ(m.Get("qr"), pValue);
  m.Delete("qr");
  EXPECT_EQ(m.Count(), 2u);
  EXPECT_EQ(CKHashList::HashString("a\xF5") % 1031, 97u);  // the bucket of "a"
  EXPECT_EQ(m.Get("a\xF5"), nullptr);
}

TEST(KHashList, PoolRelocationChainsDummyAndHooks) {
  const unsigned nTable = 7;
  CIntMap m;
  m.InitHashTable(nTable, 2);
  // Whether realloc moves the pool is the heap's choice: the other blocks
  // allocated meanwhile make it likely; insert until it has moved a few times.
  std::vector<std::unique_ptr<char[]>> blockers;
  void** pFirstSlot = nullptr;
  int nMoves = 0, nKeys = 0;
  while ((nMoves < 4 || nKeys % 2) && nKeys < 2000) {
    ++nKeys;
    m.Set(P(nKeys), P(1000 + nKeys));
    size_t nBlock = 24 * (size_t)(nKeys < 400 ? nKeys : 400);
    blockers.emplace_back(new char[nBlock]);
    memset(blockers.back().get(), 0xA5, nBlock);  // scribbles over a freed old pool
    void** pSlot = &m.Get(P(1), 0, nullptr);
    if (pFirstSlot && pSlot != pFirstSlot) ++nMoves;
    pFirstSlot = pSlot;
  }
  EXPECT_GE(nMoves, 4);
  EXPECT_EQ(m.GetAllocatedElements(), nKeys);
  EXPECT_EQ(m.Count(), (unsigned)nKeys);
  for (int k = 1; k <= nKeys; ++k) EXPECT_EQ(m.Get(P(k)), P(1000 + k)) << k;

  // Buckets in order, each from the most recent insertion back.
  std::vector<uintptr_t> expected, byIndex, byCursor;
  for (unsigned b = 0; b < nTable; ++b)
    for (int k = nKeys; k >= 1; --k)
      if (k % nTable == b) expected.push_back(k);
  for (unsigned i = 0; i < m.Count(); ++i) byIndex.push_back((uintptr_t)m.GetKey(i));
  KHashPos pos;
  for (int b = m.First(pos); b; b = m.Next(pos)) byCursor.push_back((uintptr_t)pos.pElt->pKey);
  EXPECT_EQ(byIndex, expected);
  EXPECT_EQ(byCursor, expected);
  EXPECT_EQ((uintptr_t)m.Get(5u), 1000 + expected[5]);
  EXPECT_EQ(m.GetCollisions(), nKeys - (int)nTable);

  // Deleted elements are recycled before the pool grows again.
  for (int k = 2; k <= nKeys; k += 2) m.Delete(P(k));
  EXPECT_EQ(m.m_nDestructed, nKeys / 2);
  for (int k = 2; k <= nKeys; k += 2) m.Set(P(k + 5000), P(k));
  EXPECT_EQ(m.GetAllocatedElements(), nKeys);
  void* pKey3 = m.GetKey(3u);
  m.Delete(3u);
  EXPECT_FALSE(m.Exist(pKey3));

  // A second InitHashTable rehashes instead of dropping the elements.
  m.InitHashTable(101, 4);
  EXPECT_EQ(m.Count(), (unsigned)nKeys - 1);
  for (int k = 1; k <= nKeys; k += 2)
    EXPECT_EQ(m.Get(P(k)), P(k) == pKey3 ? nullptr : P(1000 + k));

  CIntMap d;
  d.Delete(P(1));  // no table: nothing happens
  int bFound = 7;
  void*& rMissing = d.Get(P(5), 0, &bFound);
  EXPECT_EQ(bFound, 0);
  EXPECT_EQ(rMissing, nullptr);
  rMissing = P(123);  // lands in the dummy, not in the map
  EXPECT_EQ(d.Count(), 0u);
  EXPECT_EQ(d.Get(P(6), 0, nullptr), nullptr);

  void*& rNew = d.Get(P(5), 1, &bFound);
  EXPECT_EQ(bFound, 1);
  EXPECT_EQ(rNew, nullptr);
  rNew = P(77);
  EXPECT_EQ(d.Get(P(5), &bFound), P(77));
  d.Set(P(5), P(78));
  EXPECT_EQ(d.m_valueChanges.back(), std::make_pair(P(77), P(78)));
  d.Delete(P(42));
  EXPECT_EQ(d.m_nDestructed, 0);

  // New pool elements are handed out lowest first; a deleted one is reused next.
  void** pSlot5 = &d.Get(P(5), 0, nullptr);
  d.Set(P(6), P(60));
  void** pSlot6 = &d.Get(P(6), 0, nullptr);
  EXPECT_EQ(pSlot6 - pSlot5, (ptrdiff_t)(sizeof(KHashElt) / sizeof(void*)));
  d.Delete(P(6));
  d.Set(P(7), P(70));
  EXPECT_EQ(&d.Get(P(7), 0, nullptr), pSlot6);
  d.Delete(P(7));
  d.DeleteAll();
  EXPECT_EQ(d.m_nDestructed, 3);
  EXPECT_EQ(d.GetAllocatedElements(), 0);
}

TEST(KHashList, OwnershipCopyAndDetach) {
  ASSERT_EQ(CCounted::s_nLive, 0);
  {
    CMap m;
    for (int i = 0; i < 300; ++i) m.Set(("k" + std::to_string(i)).c_str(), new CCounted(i));
    EXPECT_EQ(m.GetAllocatedElements(), 512);

    m.Set("k7", new CCounted(-7));  // old value deleted, stored key kept
    m.Set("k8", m.Get("k8"));         // the same object again: kept
    EXPECT_EQ(CCounted::s_nLive, 300);
    EXPECT_EQ(m.Get("k8")->n, 8);

    CMap copy(m);
    EXPECT_EQ(CCounted::s_nLive, 600);
    EXPECT_EQ(copy.GetAllocatedElements(), 512);
    EXPECT_EQ(copy.GetCollisions(), m.GetCollisions());
    EXPECT_NE(copy.Get("k1"), m.Get("k1"));
    const CMap& self = copy;
    copy = self;
    EXPECT_EQ(copy.Count(), 300u);

    CMap target;
    target.Set("old", new CCounted(1));
    m.Detach(target);
    EXPECT_EQ(CCounted::s_nLive, 600);  // "old" destroyed
    EXPECT_EQ(target.Get("k7")->n, -7);
    EXPECT_EQ(m.Count(), 0u);
    EXPECT_FALSE(m.HasTable());
    EXPECT_EQ(m.GetTableSize(), 1031u);
    EXPECT_EQ(m.GetStep(), 256);
    m.Set("again", new CCounted(0));  // a detached map is usable

    copy = target;
    EXPECT_EQ(CCounted::s_nLive, 601);
    target.Delete("k0");
    target.DeleteAt(0);
    EXPECT_EQ(CCounted::s_nLive, 599);
    target.DeleteAll();
    EXPECT_EQ(CCounted::s_nLive, 301);
  }
  EXPECT_EQ(CCounted::s_nLive, 0);
}

TEST(KHashList, StringToStringOwnsItsCopies) {
  CKHashStringToString m;
  char buf[8] = "one";
  m.Set("k", buf);
  buf[0] = 'X';
  EXPECT_EQ(m.Get("k"), "one");
  m.Set("n", nullptr);
  EXPECT_EQ(m.Get("n", "dflt"), "");
  EXPECT_EQ(m.Get("absent", "dflt"), "dflt");
  CKString str("keep");
  EXPECT_FALSE(m.Get("absent", str));
  EXPECT_EQ(str, "keep");

  CKHashStringToString copy(m);
  m.Set("k", "two");
  EXPECT_EQ(copy.Get("k"), "one");
  m.Delete("k");
  EXPECT_FALSE(m.Exist("k"));
  EXPECT_EQ(copy.Count(), 2u);
}

TEST(KHashList, PreconditionReportsAndGrowthFailure) {
  CKTestLog log;
  CMap m;
  m.InitHashTable(1, 2);
  m.InitHashTable(5, 1);
  EXPECT_FALSE(m.HasTable());
  EXPECT_EQ(m.GetAt(0), nullptr);
  EXPECT_EQ(m.GetCollisions(), 0);
  CCounted* p = new CCounted(1);
  m.Set(nullptr, p);
  EXPECT_EQ(m.Count(), 0u);
  delete p;
  m.Set("x", new CCounted(2));
  EXPECT_EQ(m.GetKeyAt(1), "");

  std::vector<std::string> expected = {
      "Assertion failed (nTableSize>1 in src/KHashList on line 100. Returning",
      "Assertion failed (nPas>1 in src/KHashList on line 101. Returning",
      "Assertion failed (nIndex<m_nCount) in src/KHashList on line 153. Returning value...",
      "Assertion failed (m_pHashTable) in src/KHashList on line 273. Returning value...",
      "Assertion failed (szKey in include/base/classes/hash/KHashStringToPtr on line 265. "
      "Returning",
      "Assertion failed (nIndex<m_nCount) in src/KHashList on line 153. Returning value...",
  };
  EXPECT_EQ(log.Texts(), expected);
  EXPECT_EQ(log.Asserts(), expected);

  // Assignment between maps of different classes is refused, not reinterpreted.
  log.Clear();
  CKHashStringToString texts;
  texts.Set("x", "y");
  CKHashList& rTexts = texts;
  rTexts = m;
  EXPECT_TRUE(log.HasAssert("pSrc", "include/base/classes/hash/KHashStringToString",
                            CKTestLog::kReturnValue));
  m.Detach(texts);
  EXPECT_TRUE(log.LastIsAssert("pTarget", "include/base/classes/hash/KHashStringToPtr",
                               CKTestLog::kReturn));
  EXPECT_EQ(m.Count(), 1u);
  EXPECT_EQ(texts.Count(), 1u);  // neither refusal touched it
  EXPECT_EQ(texts.Get("x"), "y");
  CKHashStringToString other;
  other.Set("k", "v");
  rTexts = other;  // same class through the base: copied
  EXPECT_EQ(texts.Get("k"), "v");
  EXPECT_FALSE(texts.Exist("x"));

  CMap g;
  g.InitHashTable(2, INT_MAX);  // the first element asks for INT_MAX pool entries
  CCounted* q = new CCounted(1);
  try {
    g.Set("a", q);
    ADD_FAILURE() << "no exception";
  } catch (const CKMemoryException& e) {
    EXPECT_STREQ(e.m_szFile, "src/KHashList");
    EXPECT_EQ(e.m_nLine, 225u);
  }
  EXPECT_EQ(g.Count(), 0u);
  EXPECT_EQ(g.GetAllocatedElements(), 0);
  delete q;
}
