// Object and record sizes that callers and persisted data depend on. Each
// row gives the fields in declaration order ('p' a pointer, a digit a field
// of that many bytes) and the size they make with 4-byte pointers; the same
// fields laid out with this build's pointer width must give sizeof exactly.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include <kelvor/Kelvor.h>

namespace {

constexpr unsigned kPtr = sizeof(void*);

// C layout of scalar fields, each aligned to its own width (none is wider
// than a pointer), the whole padded to its widest field.
unsigned Layout(const std::string& fields, unsigned ptr) {
  unsigned off = 0, align = 1;
  for (char c : fields) {
    const unsigned w = c == 'p' ? ptr : (unsigned)(c - '0');
    off = (off + w - 1) / w * w + w;
    if (w > align) align = w;
  }
  return (off + align - 1) / align * align;
}

// The pile record: slot array, count, size, step, sort function.
const std::string kPile = "p444p";
// A class with virtual operations starts with its table pointer.
const std::string kPileClass = "p" + kPile;

struct Row {
  const char* name;
  size_t size;
  std::string fields;
  unsigned size32;
};

TEST(KLayout, RecordSizesFollowPointerWidth) {
  const Row rows[] = {
      {"KPile", sizeof(KPile), kPile, 20},
      {"KHashElt", sizeof(KHashElt), "ppp", 12},
      {"CKString", sizeof(CKString), "p", 4},
      {"KStringData", sizeof(KStringData), "444", 12},
      {"CKPileFast", sizeof(CKPileFast), kPileClass, 24},
      {"CKPile", sizeof(CKPile), kPileClass, 24},
      {"CKList", sizeof(CKList), kPileClass, 24},
      {"CKFastList", sizeof(CKFastList), kPileClass, 24},
      {"CKListUINT64", sizeof(CKListUINT64), kPileClass, 24},
      {"CKPtrListOwned<CKList>", sizeof(CKPtrListOwned<CKList>), kPileClass + "4", 28},
      {"CKListList", sizeof(CKListList), kPileClass + "4", 28},
      {"CKListParamValue", sizeof(CKListParamValue), "p" + kPileClass + kPileClass, 52},
      {"CKListParamValueInt", sizeof(CKListParamValueInt), "p" + kPileClass + kPileClass, 52},
      {"CKHashList", sizeof(CKHashList), "pppp4444p", 36},
      {"CKMem", sizeof(CKMem), "p44p44", 24},
      {"CKGuid", sizeof(CKGuid), "42211111111", 16},
      {"CKDateTime", sizeof(CKDateTime), "211111", 8},
      {"CKLogMsg", sizeof(CKLogMsg), "4p44", 16},
      {"CKCriticalSectionLock", sizeof(CKCriticalSectionLock), "p4", 8},
      {"CKLockWS", sizeof(CKLockWS), "p4", 8},
      {"CKLockSWS", sizeof(CKLockSWS), "p44", 12},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(Layout(r.fields, 4), r.size32);
    EXPECT_EQ(r.size, Layout(r.fields, kPtr));
    if (kPtr == 4) {
      EXPECT_EQ(r.size, r.size32);
    }
  }
}

TEST(KLayout, PileSizeofAndStringHeader) {
  // size x 4 + 20 with 4-byte slots; slot and record widths scale together.
  const int record = (int)Layout(kPile, kPtr);
  EXPECT_EQ(CKPile().PileSizeof(), record);
  CKList list;
  CKPile pile;
  int seen = 0;
  for (int n : {1, 128, 1000, 3}) {
    pile.PileSetCount(n);
    list.PileSetCount(n);
    SCOPED_TRACE(n);
    EXPECT_EQ(pile.PileSizeof(), pile.PileSize() * (int)kPtr + record);
    EXPECT_EQ(list.PileSizeof(), list.PileSize() * (int)kPtr + record);
    if (kPtr == 4) {
      EXPECT_EQ(pile.PileSizeof(), pile.PileSize() * 4 + 20);
    }
    EXPECT_NE(pile.PileSize(), seen);
    seen = pile.PileSize();
  }
  list.PileSetCount(0);

  // The three header words lie just before the characters of a string.
  CKString s("layout");
  CKString copy(s);
  const KStringData* h = reinterpret_cast<const KStringData*>((const char*)s) - 1;
  EXPECT_EQ((const char*)s - (const char*)h, 12);
  EXPECT_EQ(h->nDataLength, 6u);
  EXPECT_EQ(h->nAllocLength, s.GetAllocLength());
  EXPECT_EQ(h->nRefs, 2u);
}

}  // namespace
