// CKBlobMemory decoding any bytes as the binary, zipped or text form (the
// first byte picks the form). Properties: a failed decode leaves no element;
// a decoded blob whose encoding is accepted re-encodes (names and texts up
// to their first zero byte), and from there decoding and encoding again give
// the same names, kinds and encoding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <base/tools/KBlob.h>

#include "KFuzz.h"

namespace {

std::string Bytes(const CKMem& m) {
  const unsigned char* p = m.m_pMemRef ? m.m_pMemRef->pData : nullptr;
  return p && m.Size() > m.m_nStartOffset
             ? std::string((const char*)p + m.m_nStartOffset, m.Size() - m.m_nStartOffset)
             : std::string();
}

void Load(CKBlobMemory& b, int nForm, const CKMem& m) {
  b.SetZipped(nForm == 1);
  b.SetTextMode(nForm == 2);
  KFUZZ_CHECK(b.FromMem(m));
}

void Load(CKBlobMemory& b, int nForm, const uint8_t* p, size_t n) {
  b.SetZipped(nForm == 1);
  b.SetTextMode(nForm == 2);
  CKMem m;
  std::vector<uint8_t> copy(p, p + n);
  if (n) KFUZZ_CHECK(m.Set(copy.data(), (unsigned)n));
  KFUZZ_CHECK(b.FromMem(m));
}

std::string Shape(CKBlobMemory& b) {
  std::string s;
  for (int i = 0; i < b.BlobElementCount(); i++) {
    s += b.BlobElementName(i);
    s += ':';
    s += std::to_string(b.BlobElementType(i));
    s += ';';
  }
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int nForm = data[0] % 3;
  CKBlobMemory b;
  Load(b, nForm, data + 1, size - 1);
  const int n = b.BlobElementCount();
  if (b.GetStatus() < 0) {
    KFUZZ_CHECK(n == 0);
    return 0;
  }
  CKMem m;
  if (!b.ToMem(m)) return 0;  // kinds the binary size check refuses
  // The first encoding normalises (names and texts end at their first zero
  // byte); from there decoding and encoding again must be stable.
  CKBlobMemory c;
  Load(c, nForm, m);
  CKMem m2;
  if (!c.ToMem(m2)) return 0;
  const std::string once = Bytes(m2);
  CKBlobMemory d;
  Load(d, nForm, m2);
  KFUZZ_EQ(Shape(d), Shape(c));
  CKMem m3;
  KFUZZ_CHECK(d.ToMem(m3));
  // The text form keeps dates as they are; the binary form exchanges their
  // hour and minute (same length); a zipped length follows the content.
  if (nForm == 2) KFUZZ_EQ(Bytes(m3), once);
  if (nForm == 0) KFUZZ_CHECK(Bytes(m3).size() == once.size());
  return 0;
}
