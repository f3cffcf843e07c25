// CKByteStream typed reads over hostile bytes: the stream names its own
// operations (one byte each, then the value), so the fuzzer reaches every
// Get in every order. Each value that reads re-encodes to exactly the bytes
// it came from (a date with its hour and minute bytes exchanged, as the
// stored layout has them).
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include <base/tools/KByteStream.h>

#include "KFuzz.h"

namespace {

std::string Encoded(const std::function<void(CKByteStream&)>& fWrite) {
  CKByteStream s;
  s.InitWrite();
  fWrite(s);
  s.TermWrite();
  return std::string((const char*)s.File()->MemData(), (size_t)s.File()->Size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CKFile f(nullptr, KFILE_MEMORY);
  if (size) f.Write(data, size);
  CKByteStream s;
  KFUZZ_CHECK(s.InitRead(&f));
  const std::string strIn((const char*)data, size);
  char op;
  int nJumps = 0;
  while (s.Get(op)) {
    const __int64 nAt = s.GetPosition();
    int bOk = 0;
    std::string strBack;
    switch ((unsigned char)op % 8) {
      case 0: {
        int n = 0;
        if ((bOk = s.Get(n))) strBack = Encoded([&](CKByteStream& w) { w.Put(n); });
        break;
      }
      case 1: {
        __int64 n = 0;
        if ((bOk = s.GetINT64(n))) strBack = Encoded([&](CKByteStream& w) { w.PutINT64(n); });
        break;
      }
      case 2: {
        CKString str;
        bOk = s.Get(str);
        const __int64 nLen = s.GetPosition() - nAt;
        // Lengths of 0 and above 128 MiB read as empty texts of 4 bytes.
        if (bOk && nLen > 4) {
          KFUZZ_CHECK(str.GetLength() + 5 == (unsigned)nLen);
          strBack = Encoded([&](CKByteStream& w) { w.Put(str.GetString(), (__int64)str.GetLength() + 1); });
          strBack = strIn.substr((size_t)nAt, 4) + strBack;
        } else if (bOk) {
          KFUZZ_CHECK(str.GetLength() == 0 && nLen == 4);
          strBack = strIn.substr((size_t)nAt, 4);
        }
        break;
      }
      case 3: {
        CKGuid g;
        if ((bOk = s.Get(g))) strBack = Encoded([&](CKByteStream& w) { w.Put(g); });
        break;
      }
      case 4: {
        CKDateTime d;
        if ((bOk = s.Get(d))) {
          strBack = Encoded([&](CKByteStream& w) { w.Put(d); });
          std::swap(strBack[4], strBack[5]);
        } else {
          KFUZZ_CHECK(d.IsNull());
        }
        break;
      }
      case 5: {
        CKString str;
        if ((bOk = s.GetNL(str))) strBack = Encoded([&](CKByteStream& w) { w.PutNL(str); });
        break;
      }
      case 6: {
        CKMem mem;
        const __int64 n = (unsigned char)op / 8;
        if ((bOk = s.Get(mem, n))) {
          KFUZZ_CHECK(mem.GetLength() == (unsigned)n);
          strBack = Encoded([&](CKByteStream& w) { w.Put(mem, n); });
        }
        break;
      }
      default: {
        // Jump back a little, never past the start, a bounded number of times.
        if (++nJumps > 16) continue;
        const __int64 nBack = ((unsigned char)op / 8) % 8;
        KFUZZ_CHECK(s.SetPosition(nAt > nBack ? nAt - nBack : 0));
        continue;
      }
    }
    if (!bOk) break;
    const __int64 nUsed = s.GetPosition() - nAt;
    KFUZZ_CHECK(nUsed >= 0 && nAt + nUsed <= (__int64)size);
    KFUZZ_EQ(strBack, strIn.substr((size_t)nAt, (size_t)nUsed));
  }
  return 0;
}
