// CKMem::Unzip and Zip. Properties: Unzip of any bytes succeeds; when it
// expands them, the result is what zlib's own uncompress gives; when it does
// not, the buffer is left as it was. Zip of any bytes unzips back to them,
// and a buffer Zip leaves unzipped is unchanged.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <zlib.h>

#include <base/tools/KMem.h>

#include "KFuzz.h"

namespace {

bool Holds(const CKMem& m, const uint8_t* p, size_t n) {
  const unsigned char* q = const_cast<CKMem&>(m).GetFromStart(0, 0);
  return m.Size() == n && (n == 0 || memcmp(q, p, n) == 0);
}

CKMem Filled(const uint8_t* p, size_t n) {
  CKMem m;
  std::vector<uint8_t> copy(p, p + n);
  KFUZZ_CHECK(m.Set(copy.data(), (unsigned)n) == 1);
  return m;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;  // no block: both refuse before looking at anything
  // The first byte picks the compression level (-1 to 9) for the zip half.
  const int nLevel = data[0] % 11 - 1;

  {
    CKMem m = Filled(data, size);
    int bUnzipped = -1;
    KFUZZ_CHECK(m.Unzip((unsigned)size, &bUnzipped) == 1);
    KFUZZ_CHECK(bUnzipped == 0 || bUnzipped == 1);
    if (!bUnzipped) {
      KFUZZ_CHECK(Holds(m, data, size));
    } else {
      // zlib itself, given exactly one byte more room than the result.
      std::vector<uint8_t> ref(m.Size() + 1);
      uLongf nRef = (uLongf)ref.size();
      KFUZZ_CHECK(uncompress(ref.data(), &nRef, data, (uLong)size) == Z_OK);
      KFUZZ_CHECK(Holds(m, ref.data(), nRef));
    }
  }
  {
    CKMem m = Filled(data, size);
    int bZipped = -1;
    KFUZZ_CHECK(m.Zip((unsigned)size, nLevel, 0, &bZipped) == 1);
    if (!bZipped) {
      KFUZZ_CHECK(Holds(m, data, size));  // no smaller: kept as it was
    } else {
      KFUZZ_CHECK(m.Size() < size);
      int bUnzipped = 0;
      KFUZZ_CHECK(m.Unzip(m.Size(), &bUnzipped) == 1 && bUnzipped == 1);
      KFUZZ_CHECK(Holds(m, data, size));
    }
  }
  return 0;
}
