// CKVariant::VariantDecode on any bytes, with and without a name. Properties:
// a failed decode leaves the variant empty; a value that decodes re-encodes
// (texts up to their first zero byte), and from there decoding and encoding
// again give the same tag, name, payload size and encoded length (dates come
// back with hour and minute exchanged, so bytes may differ there).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <base/tools/KByteStream.h>
#include <base/tools/KFile.h>
#include <base/tools/KVariant.h>

#include "KFuzz.h"

namespace {

std::string Encode(const CKVariant& v, const char* szName, int* pOk) {
  CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  CKByteStream bs;
  KFUZZ_CHECK(bs.InitWrite(&f, -1, -1));
  *pOk = v.VariantEncode(bs, szName);
  bs.TermWrite();
  const __int64 n = bs.GetSize();
  return n > 0 && f.MemData() ? std::string((const char*)f.MemData(), (size_t)n) : std::string();
}

int Decode(const uint8_t* p, size_t n, CKVariant& v, CKString* pName) {
  CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  if (n) {
    f.SetSize(n);
    memcpy(f.MemData(), p, n);
  }
  CKByteStream bs;
  KFUZZ_CHECK(bs.InitRead(&f));
  return v.VariantDecode(bs, pName);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const bool bNamed = data[0] & 1;
  CKVariant v;
  CKString name;
  const int r = Decode(data + 1, size - 1, v, bNamed ? &name : nullptr);
  if (!r) {
    KFUZZ_CHECK(v.Type() == 0);
    return 0;
  }
  // The first encoding normalises (a text is written up to its first zero
  // byte); from there a decode and an encode must be stable.
  int bOk = 0;
  const std::string once = Encode(v, bNamed ? name.GetString() : nullptr, &bOk);
  KFUZZ_CHECK(bOk);
  CKVariant w, w2;
  CKString name2, name3;
  KFUZZ_CHECK(Decode((const uint8_t*)once.data(), once.size(), w, bNamed ? &name2 : nullptr) == 1);
  KFUZZ_CHECK(w.Type() == v.Type() || (v.Type() == KVT_FASTLIST && w.Type() == KVT_LIST));
  KFUZZ_EQ(std::string(name2.GetString()), std::string(name.GetString()));
  const std::string twice = Encode(w, bNamed ? name2.GetString() : nullptr, &bOk);
  KFUZZ_CHECK(bOk && twice.size() == once.size());
  KFUZZ_CHECK(Decode((const uint8_t*)twice.data(), twice.size(), w2, bNamed ? &name3 : nullptr) == 1);
  KFUZZ_CHECK(w2.Type() == w.Type() && w2.VariantSize() == w.VariantSize());
  KFUZZ_EQ(KFuzzStr(name3), KFuzzStr(name2));
  return 0;
}
