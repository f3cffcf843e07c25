// Number helpers: the prime-number generator.
#ifndef KELVOR_KMATH_H
#define KELVOR_KMATH_H

#include <base/tools/KDefs.h>
#include <base/classes/list/KPile.h>

// Empties list, then adds the primes p with nStartValue <= p < nStartValue +
// nRange (nRange is the width of the range searched). nStartValue >= 3 and
// nRange > 0, else reported and nothing is done.
KELVOR_API void KMathGetPrimes(CKListTyped<int>& list, unsigned int nRange,
                               unsigned __int64 nStartValue);

#endif  // KELVOR_KMATH_H
