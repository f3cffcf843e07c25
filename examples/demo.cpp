// Kelvor at work: copy-on-write strings, a log sink of the application's own,
// and a buffer zipped and unzipped in place.
#include <kelvor/Kelvor.h>

#include <cstdio>
#include <cstring>

// The application's sink: every log line and failed check arrives here.
class ConsoleTools : public CKTools {
public:
  void Log(const char* szText, int nType) override { std::printf("  [log %d] %s\n", nType, szText); }
};

int main() {
  ConsoleTools tools;
  KToolsInit(&tools);

  std::printf("Strings\n");
  CKString a("Hello");
  CKString b(a);  // shares a's block
  std::printf("  a and b share one block: %s (count %u)\n",
              (const char*)a == (const char*)b ? "yes" : "no", a.GetRefCount());
  b += ", world";  // b takes a private copy first
  std::printf("  a = \"%s\", b = \"%s\"\n", (const char*)a, (const char*)b);
  CKString f;
  f.Format("%s has %u characters, capacity %u", (const char*)b, b.GetLength(), b.GetAllocLength());
  std::printf("  %s\n", (const char*)f);
  std::printf("  joined: %s\n", (const char*)KAnd("[", a, "|", b, "]"));

  std::printf("Log sink\n");
  KLog("a line of the default type");
  KLog(10, "ERROR => ", "something went wrong", nullptr);
  CKMem tooBig;
  tooBig.SetSize(0x8000001);  // over 128 MiB: refused, reported, no crash

  std::printf("Zipped buffer\n");
  const char* szText = "Kelvor keeps its bytes. Kelvor keeps its bytes. Kelvor keeps its bytes. ";
  CKMem mem;
  unsigned nLen = 0;
  for (int i = 0; i < 40; ++i) {
    unsigned n = (unsigned)strlen(szText);
    mem.GetFromStart(n);
    mem.Write(const_cast<char*>(szText), n);  // Write takes a non-const pointer; it only reads
    nLen += n;
  }
  int bZipped = 0, bUnzipped = 0;
  mem.Zip(nLen, 9, 64, &bZipped);
  std::printf("  %u bytes zipped to %u (zipped=%d)\n", nLen, mem.Size(), bZipped);
  // Each "Z_BUF_ERROR" line is one doubling of the room for the expanded bytes.
  mem.Unzip(mem.Size(), &bUnzipped);
  std::printf("  unzipped back to %u bytes (unzipped=%d), first bytes: %.23s\n", mem.Size(),
              bUnzipped, (const char*)mem.GetFromStart(0, 0));

  KToolsInit(nullptr);
  return 0;
}
