// Helpers for tests that encode to and decode from bytes in memory.
#ifndef KELVOR_KTESTSTREAM_H
#define KELVOR_KTESTSTREAM_H

#include <cstring>
#include <string>

#include <base/tools/KByteStream.h>
#include <base/tools/KFile.h>

// The bytes an in-memory write stream holds (after TermWrite).
inline std::string KTestBytes(CKFile& f) {
  const __int64 n = f.Size() < f.MemRoom() ? f.Size() : f.MemRoom();
  return n > 0 ? std::string((const char*)f.MemData(), (size_t)n) : std::string();
}

// Runs put on a stream writing into memory; the bytes written.
template <class F>
std::string KTestEncode(F put, int* pResult = nullptr) {
  CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  CKByteStream bs;
  bs.InitWrite(&f, -1, -1);
  const int r = put(bs);
  if (pResult) *pResult = r;
  bs.TermWrite();
  f.SetSize((unsigned __int64)bs.GetSize());
  return KTestBytes(f);
}

// A memory file holding bytes.
inline void KTestImage(CKFile& f, const std::string& bytes) {
  f.SetSize(bytes.size());
  if (!bytes.empty()) std::memcpy(f.MemData(), bytes.data(), bytes.size());
}

// Runs get on a stream reading bytes; its result.
template <class F>
int KTestDecode(const std::string& bytes, F get) {
  CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  KTestImage(f, bytes);
  CKByteStream bs;
  if (!bs.InitRead(&f)) return -1;
  return get(bs);
}

inline std::string KTestHex(const std::string& s) {
  static const char d[] = "0123456789ABCDEF";
  std::string h;
  for (unsigned char c : s) {
    if (!h.empty()) h += ' ';
    h += d[c >> 4];
    h += d[c & 15];
  }
  return h;
}

#endif  // KELVOR_KTESTSTREAM_H
