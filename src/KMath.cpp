// Number helpers: primes in a range, by a segmented sieve that gives what
// trial division by the smaller primes gives.
#define KSRC_PATH "src/KMath"

#include <base/tools/KMath.h>

#include <vector>

#include <base/tools/KDebug.h>

void KMathGetPrimes(CKListTyped<int>& list, unsigned int nRange, unsigned __int64 nStartValue) {
  KASSERT_RET(nStartValue >= 3);
  KASSERT_RET(nRange > 0);
  list.Empty();
  // The list holds ints: the search ends where they do.
  const uint64_t nLimit = 0x80000000ull;
  if (nStartValue >= nLimit) return;
  uint64_t nEnd = nStartValue + nRange;
  if (nEnd > nLimit) nEnd = nLimit;

  // Odd primes up to the square root of the last candidate are the only
  // divisors trial division ever reaches.
  uint32_t nRoot = 1;
  while ((uint64_t)(nRoot + 1) * (nRoot + 1) < nEnd) ++nRoot;
  std::vector<uint32_t> small;
  {
    std::vector<bool> composite(nRoot + 1, false);
    for (uint32_t i = 3; i <= nRoot; i += 2) {
      if (composite[i]) continue;
      small.push_back(i);
      for (uint64_t j = (uint64_t)i * i; j <= nRoot; j += 2 * i) composite[j] = true;
    }
  }

  // Odd candidates only, in segments of 256 Ki numbers.
  const uint64_t nSegment = 1u << 18;
  std::vector<unsigned char> composite;
  for (uint64_t nLow = nStartValue; nLow < nEnd; nLow += nSegment) {
    const uint64_t nHigh = nLow + nSegment < nEnd ? nLow + nSegment : nEnd;
    composite.assign(nHigh - nLow, 0);
    for (uint32_t q : small) {
      const uint64_t q2 = (uint64_t)q * q;
      if (q2 >= nHigh) break;
      // First odd multiple of q in the segment, not below q * q.
      uint64_t j = q2 >= nLow ? q2 : (nLow + q - 1) / q * q;
      if (!(j & 1)) j += q;
      for (; j < nHigh; j += 2 * (uint64_t)q) composite[j - nLow] = 1;
    }
    for (uint64_t v = nLow | 1; v < nHigh; v += 2)
      if (!composite[v - nLow]) list.Add((int)v);
  }
}
