// CKGZFile and the compressed byte stream over hostile bytes: the input is
// written to a file and read back as gzip. Whatever comes out must equal what
// zlib's own inflate (gzip wrapper) makes of the same bytes, up to the point
// where either stops; what reads fully is written again by CKGZFile and reads
// back the same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <zlib.h>

#include <base/tools/KByteStream.h>
#include <base/tools/KGZFile.h>

#include "KFuzz.h"

namespace {

// zlib's reading of one gzip member (and of plain bytes: none).
std::string Inflate(const uint8_t* data, size_t size, bool* pbComplete) {
  z_stream z{};
  std::string out;
  *pbComplete = false;
  if (inflateInit2(&z, 16 + MAX_WBITS) != Z_OK) return out;
  z.next_in = const_cast<Bytef*>(data);
  z.avail_in = (uInt)size;
  char buf[4096];
  for (;;) {
    z.next_out = (Bytef*)buf;
    z.avail_out = sizeof(buf);
    const int rc = inflate(&z, Z_NO_FLUSH);
    out.append(buf, sizeof(buf) - z.avail_out);
    if (rc == Z_STREAM_END) *pbComplete = true;
    if (rc != Z_OK || out.size() > (1u << 22)) break;
  }
  inflateEnd(&z);
  return out;
}

void RemoveScratch();

// One scratch file per process, removed when it ends.
const CKString& Scratch() {
  static const CKString s_str = KFileGetTemp(nullptr, "kfz", 1);
  static const int s_bOnce = std::atexit(RemoveScratch);
  (void)s_bOnce;
  return s_str;
}

void RemoveScratch() { std::remove(Scratch()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 16)) return 0;
  FILE* f = fopen(Scratch(), "wb");
  if (!f) return 0;
  fwrite(data, 1, size, f);
  fclose(f);

  CKByteStream s;
  if (!s.InitRead(Scratch(), 512, 1)) return 0;
  std::string strOut;
  CKMem mem;
  for (;;) {
    __int64 n = 700;
    mem.m_nOffset = 0;
    if (!s.ReadBytes(mem, n) || n <= 0 || strOut.size() > (1u << 22)) break;
    strOut.append((const char*)mem.GetFromStart(0, 0), (size_t)n);
  }
  s.Close();

  bool bComplete = false;
  const std::string strZlib = Inflate(data, size, &bComplete);
  // A gzip member that zlib reads whole, with nothing after it, reads the same.
  if (bComplete && size >= 18 && data[0] == 0x1f && data[1] == 0x8b) {
    const size_t nCommon = strOut.size() < strZlib.size() ? strOut.size() : strZlib.size();
    KFUZZ_EQ(strOut.substr(0, nCommon), strZlib.substr(0, nCommon));
  }

  // Round trip through the writer.
  CKGZFile gz;
  KFUZZ_CHECK(gz.OpenWrite(Scratch(), size ? data[0] % 10 : 6));
  if (!strOut.empty()) KFUZZ_CHECK(gz.Write(strOut.data(), (__int64)strOut.size()) == (__int64)strOut.size());
  KFUZZ_CHECK(gz.Close());
  KFUZZ_CHECK(s.InitRead(Scratch(), -1, 1));
  std::string strBack(strOut.size(), '\0');
  if (!strOut.empty()) KFUZZ_CHECK(s.Get(&strBack[0], (__int64)strBack.size()));
  KFUZZ_CHECK(s.Eof());
  KFUZZ_EQ(strBack, strOut);
  return 0;
}
