#include <gtest/gtest.h>

#include <vector>

#include <base/tools/KMath.h>

#include "KTestLog.h"

namespace {

bool IsPrime(long long v) {
  if (v < 2) return false;
  for (long long d = 2; d * d <= v; ++d)
    if (v % d == 0) return false;
  return true;
}

std::vector<int> Primes(unsigned nRange, unsigned long long nStart) {
  CKListTyped<int> list;
  list.Add(-1);  // emptied first
  KMathGetPrimes(list, nRange, nStart);
  std::vector<int> v;
  for (int i = 0; i < list.Count(); ++i) v.push_back(list.Get(i));
  return v;
}

}  // namespace

TEST(KMath, PrimesInARange) {
  EXPECT_EQ((std::vector<int>{3, 5, 7, 11, 13}), Primes(12, 3));
  EXPECT_EQ((std::vector<int>{}), Primes(1, 4));
  EXPECT_EQ((std::vector<int>{5}), Primes(1, 5));
  // Ranges of every shape against trial division, segment borders included.
  const struct {
    unsigned nRange;
    unsigned long long nStart;
  } kCases[] = {{1000, 3}, {1000, 4}, {5000, 1000000}, {300000, 100}, {2000, 2147483000ull}};
  for (const auto& c : kCases) {
    std::vector<int> want;
    for (unsigned long long v = c.nStart; v < c.nStart + c.nRange && v <= 2147483647ull; ++v)
      if (IsPrime((long long)v)) want.push_back((int)v);
    EXPECT_EQ(want, Primes(c.nRange, c.nStart)) << c.nStart << " + " << c.nRange;
  }
  // Past the int range nothing fits in the list.
  EXPECT_TRUE(Primes(100, 0x80000000ull).empty());
}

TEST(KMath, RefusedArguments) {
  CKTestLog log;
  CKListTyped<int> list;
  list.Add(7);
  KMathGetPrimes(list, 10, 2);
  EXPECT_TRUE(log.LastIsAssert("nStartValue >= 3", "src/KMath", CKTestLog::kReturn));
  KMathGetPrimes(list, 0, 3);
  EXPECT_TRUE(log.LastIsAssert("nRange > 0", "src/KMath", CKTestLog::kReturn));
  EXPECT_EQ(1, list.Count());
}
