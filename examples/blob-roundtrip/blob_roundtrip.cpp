// A blob round trip: one blob holding every element kind, written in each of
// the three encoded forms (binary, zlib-compressed binary, text) to memory and
// to a file, read back and checked value by value.
#include <kelvor/Kelvor.h>

#include <cstdio>
#include <string>

namespace {

int g_nFailures = 0;

void Check(bool bOk, const char* szWhat, const char* szForm) {
  if (!bOk) {
    std::printf("  MISMATCH: %s (%s)\n", szWhat, szForm);
    g_nFailures++;
  }
}

const char* const kGuid = "{01234567-89AB-CDEF-0123-456789ABCDEF}";

// The kinds that every form carries.
void FillCommon(CKBlob& b) {
  CKList words;
  words.Add("alpha");
  words.Add("");  // empty strings survive too
  words.Add("line\r\nbreak");
  CKListList table;
  table.Add(new CKList(words));  // the table owns its rows
  CKLangList lang;
  lang.Add('E', words, 0);
  lang.Add('F', words, 0);
  CKListTyped<int> ints;
  ints.Add(-7);
  ints.Add(42);
  CKListUINT64 bigs;
  bigs.Add(1ull << 63);
  CKFile raw(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  const unsigned char bytes[] = {0x00, 0xFF, 0x10, 0x20};
  raw.Write(bytes, sizeof bytes);

  b.SetElement("text", "caf\xE9 \xFF byte");  // 8-bit text, 0xFF included
  b.SetElement("int", -123456);
  b.SetElement("double", 3.25);
  b.SetElement("float", 0.5f);
  b.SetElement("u64", (unsigned __int64)18000000000000000000ull);
  b.SetElement("guid", CKGuid(kGuid));  // kept as its text form
  b.SetElement("list", words, 0);
  b.SetElement("table", table, 0);
  b.SetElement("lang", lang, 0);
  b.SetElement("ints", ints, 0);
  b.SetElement("bigs", bigs, 0);
  b.SetElementRaw("raw", raw, 0);
  b.BlobElementAdd("nothing");  // an element with no value
}

// The kinds whose size the binary writer does not count (dates, 64-bit and
// unsigned 32-bit integers, variant, GUID and 64-bit lists): the text form
// carries them; the binary form refuses them, as docs/formats.md describes.
void FillTextOnly(CKBlob& b) {
  CKDateTime d;
  d.SetDateTime(2024, 2, 29, 23, 59, 58);
  CKListDateTime dates;
  dates.Add(d);
  CKVariant::CKListVariant mixed;
  mixed.Add(new CKVariant(7));
  mixed.Add(new CKVariant("seven"));
  CKListGuid guids;
  guids.Add(CKGuid(kGuid));
  CKPileT<__int64> longs;
  longs.Add(-5000000000ll);
  b.SetElement("date", d);
  b.SetElement("dates", dates, 0);
  b.SetElement("i64", (__int64)-9000000000ll);
  b.SetElement("u32", 4000000000u);
  b.SetElement("mixed", CKVariant(mixed));
  // Kinds without a typed setter go in through a variant.
  b.SetElement("guids", CKVariant(guids));
  b.SetElement("longs", CKVariant(longs));
}

void VerifyCommon(CKBlob& b, const char* szForm) {
  CKString s;
  int n = 0;
  double d = 0;
  float f = 0;
  unsigned __int64 u = 0;
  Check(b.GetElement("text", s) && s == "caf\xE9 \xFF byte", "text", szForm);
  Check(b.GetElement("int", n) && n == -123456, "int", szForm);
  Check(b.GetElement("double", d) && d == 3.25, "double", szForm);
  Check(b.GetElement("float", f) && f == 0.5f, "float", szForm);
  Check(b.GetElement("u64", u) && u == 18000000000000000000ull, "u64", szForm);
  Check(b.GetElement("guid", s) && CKGuid(s) == CKGuid(kGuid), "guid", szForm);
  CKList words;
  Check(b.GetElement("list", words, 0) && words.Count() == 3 && words.Get(2) == "line\r\nbreak",
        "list", szForm);
  CKListList table;
  Check(b.GetElement("table", table, 0) && table.Count() == 1 && table.Get(0)->Count() == 3,
        "table", szForm);
  CKLangList lang;
  Check(b.GetElement("lang", lang, 0) && lang.Count() == 2 && lang.Get('F') &&
            lang.Get('F')->Get(0) == "alpha",
        "lang", szForm);
  CKListTyped<int> ints;
  Check(b.GetElement("ints", ints, 0) && ints.Count() == 2 && ints.Get(0) == -7, "ints", szForm);
  CKListUINT64 bigs;
  Check(b.GetElement("bigs", bigs, 0) && bigs.Count() == 1 && bigs.Get(0) == 1ull << 63, "bigs",
        szForm);
  CKFile* pRaw = b.GetElementRaw("raw", 0, 0);
  Check(pRaw && pRaw->Size() == 4 && pRaw->MemData() && pRaw->MemData()[1] == 0xFF, "raw", szForm);
  Check(b.BlobElementExist("nothing") && b.BlobElementGet("nothing")->IsEmpty(), "nothing", szForm);
}

void VerifyTextOnly(CKBlob& b, const char* szForm) {
  CKDateTime d;
  Check(b.GetElement("date", d) && d.FormatMySql() == "2024-02-29 23:59:58", "date", szForm);
  CKListDateTime dates;
  Check(b.GetElement("dates", dates, 0) && dates.Count() == 1 && dates.Get(0) == d, "dates", szForm);
  __int64 i64 = 0;
  unsigned int u32 = 0;
  Check(b.GetElement("i64", i64) && i64 == -9000000000ll, "i64", szForm);
  Check(b.GetElement("u32", u32) && u32 == 4000000000u, "u32", szForm);
  CKBlobElement* pMixed = b.BlobElementGet("mixed");
  CKVariant::CKListVariant* pList = pMixed ? pMixed->GetListVariant() : nullptr;
  Check(pList && pList->Count() == 2 && pList->Get(1)->GetText() == "seven", "mixed", szForm);
  CKBlobElement* pGuids = b.BlobElementGet("guids");
  Check(pGuids && pGuids->GetListGuid() && pGuids->GetListGuid()->Get(0) == CKGuid(kGuid), "guids",
        szForm);
  CKBlobElement* pLongs = b.BlobElementGet("longs");
  Check(pLongs && pLongs->GetListINT64() && pLongs->GetListINT64()->Get(0) == -5000000000ll, "longs",
        szForm);
}

void Fill(CKBlob& b, int bZip, int bText) {
  b.SetZipped(bZip);
  b.SetTextMode(bText);
  FillCommon(b);
  if (bText) FillTextOnly(b);
}

void Verify(CKBlob& b, int bText, const char* szForm) {
  VerifyCommon(b, szForm);
  if (bText) VerifyTextOnly(b, szForm);
}

// One form: into memory and back, then into a file and back. The reader is
// told the form, as the writer was.
void RoundTrip(const char* szForm, int bZip, int bText, const std::string& strDir) {
  CKBlobMemory out;
  Fill(out, bZip, bText);
  CKMem mem;
  if (!out.ToMem(mem)) {
    Check(false, "encode to memory", szForm);
    return;
  }
  CKBlobMemory in;
  in.SetZipped(bZip);
  in.SetTextMode(bText);
  in.FromMem(mem);
  std::printf("  %-6s memory: %2d elements in %4u bytes\n", szForm, in.BlobElementCount(),
              mem.Size() - mem.m_nStartOffset);
  Verify(in, bText, szForm);

  const std::string strFile = strDir + "/" + szForm + ".blob";
  CKBlobFile file(strFile.c_str());
  Fill(file, bZip, bText);
  Check(file.Save() == 1, "save to file", szForm);
  CKBlobFile back(strFile.c_str());
  back.SetZipped(bZip);
  back.SetTextMode(bText);
  Check(back.Load() == 1, "load from file", szForm);
  std::printf("  %-6s file:   %2d elements in %s\n", szForm, back.BlobElementCount(),
              strFile.c_str());
  Verify(back, bText, szForm);
  std::remove(strFile.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  // Files go to the directory given, or to the current one.
  const std::string strDir = argc > 1 ? argv[1] : ".";
  std::printf("Blob round trips (binary, zipped, text; memory and file)\n");
  RoundTrip("binary", 0, 0, strDir);
  RoundTrip("zipped", 1, 0, strDir);
  RoundTrip("text", 0, 1, strDir);
  if (g_nFailures) {
    std::printf("%d mismatches\n", g_nFailures);
    return 1;
  }
  std::printf("every element came back unchanged\n");
  return 0;
}
