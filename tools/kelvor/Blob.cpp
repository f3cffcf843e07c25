// kelvor blob show / make: blob files to a listing or JSON, and JSON back to
// a blob file in any of its three forms.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Tool.h"

using nlohmann::json;

namespace ktool {
namespace {

// Element kinds by tag, for the listing and the JSON "kind" key. Tags
// without a name have no encoded record.
const char* KindName(int nTag) {
  switch (nTag) {
    case KVT_EMPTY: return "empty";
    case KVT_FILE: return "raw";
    case KVT_STRING: return "text";
    case KVT_LIST: return "list";
    case KVT_INT: return "int";
    case KVT_LISTINT: return "listint";
    case KVT_LISTGUID: return "listguid";
    case KVT_LISTVARIANT: return "listvariant";
    case KVT_DOUBLE: return "double";
    case KVT_FLOAT: return "float";
    case KVT_DATETIME: return "datetime";
    case KVT_LISTDATETIME: return "listdatetime";
    case KVT_UINT64: return "uint64";
    case KVT_LISTUINT64: return "listuint64";
    case KVT_LISTLIST: return "listlist";
    case KVT_LANGLIST: return "langlist";
    case KVT_INT64: return "int64";
    case KVT_LISTINT64: return "listint64";
    case KVT_UINT32: return "uint32";
    case KVT_FASTLIST: return "fastlist";
    default: return nullptr;
  }
}

int KindTag(const std::string& s) {
  for (int i = 0; i <= KVT_LAST; ++i)
    if (KindName(i) && s == KindName(i)) return i;
  return -1;
}

// ---------------------------------------------------------------- to JSON
json Text(const CKString& s) { return Latin1ToUtf8(s.GetString(), s.GetLength()); }

std::string DateText(const CKDateTime& d) {
  char sz[80];
  std::snprintf(sz, sizeof(sz), "%04d-%02d-%02d %02d:%02d:%02d", d.GetYear(), d.GetMonth(), d.GetDay(),
                d.GetHour(), d.GetMinute(), d.GetSecond());
  return sz;
}

std::string Hex(const unsigned char* p, size_t n) {
  static const char s_szDigits[] = "0123456789ABCDEF";
  std::string s(n * 2, '0');
  for (size_t i = 0; i < n; ++i) {
    s[2 * i] = s_szDigits[p[i] >> 4];
    s[2 * i + 1] = s_szDigits[p[i] & 15];
  }
  return s;
}

// A finite number as itself; NaN and the infinities as "0x" and the hex of
// the IEEE bytes (big-endian digits), which JSON numbers cannot carry.
template <class F, class U>
json FloatValue(F f) {
  if (std::isfinite(f)) return (double)f;
  U u;
  std::memcpy(&u, &f, sizeof(u));
  char sz[32];
  std::snprintf(sz, sizeof(sz), "0x%0*llX", (int)(2 * sizeof(U)), (unsigned long long)u);
  return sz;
}

json StringList(const CKList* p) {
  json a = json::array();
  for (int i = 0; p && i < p->Count(); ++i) a.push_back(Text(p->Get(i)));
  return a;
}

json ValueToJson(const CKVariant& v, int nDepth);

json VariantToJson(const CKVariant& v, int nDepth) {
  json j;
  j["kind"] = KindName(v.Type()) ? KindName(v.Type()) : "unknown";
  j["value"] = ValueToJson(v, nDepth);
  return j;
}

json ValueToJson(const CKVariant& v, int nDepth) {
  switch (v.Type()) {
    case KVT_EMPTY: return nullptr;
    case KVT_FILE: {
      const CKFile* f = v.GetFile();
      const __int64 n = f ? (f->Size() < f->MemRoom() ? f->Size() : f->MemRoom()) : 0;
      return n > 0 ? Hex(f->MemData(), (size_t)n) : std::string();
    }
    case KVT_STRING: return v.GetString() ? Text(*v.GetString()) : json(nullptr);
    case KVT_LIST: return StringList(v.GetList());
    case KVT_FASTLIST: {
      json a = json::array();
      const CKFastList* p = v.GetFastList();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back(Text(p->Get(i)));
      return a;
    }
    case KVT_INT: {
      int n = 0;
      v.Get(n);
      return n;
    }
    case KVT_UINT32: {
      unsigned n = 0;
      v.Get(n);
      return n;
    }
    case KVT_INT64: {
      __int64 n = 0;
      v.Get(n);
      return (long long)n;
    }
    case KVT_UINT64: {
      unsigned __int64 n = 0;
      v.Get(n);
      return (unsigned long long)n;
    }
    case KVT_DOUBLE: {
      double d = 0;
      v.Get(d);
      return FloatValue<double, unsigned long long>(d);
    }
    case KVT_FLOAT: {
      float f = 0;
      v.Get(f);
      return FloatValue<float, unsigned>(f);
    }
    case KVT_DATETIME: return v.GetDateTime() ? json(DateText(*v.GetDateTime())) : json(nullptr);
    case KVT_LISTINT: {
      json a = json::array();
      const CKListTyped<int>* p = v.GetListInt();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back(p->Get(i));
      return a;
    }
    case KVT_LISTUINT64: {
      json a = json::array();
      const CKListUINT64* p = v.GetListUINT64();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back((unsigned long long)p->Get(i));
      return a;
    }
    case KVT_LISTINT64: {
      json a = json::array();
      const CKPileT<__int64>* p = v.GetListINT64();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back((long long)p->Get(i));
      return a;
    }
    case KVT_LISTDATETIME: {
      json a = json::array();
      const CKListDateTime* p = v.GetListDateTime();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back(DateText(p->Get(i)));
      return a;
    }
    case KVT_LISTGUID: {
      json a = json::array();
      const CKListGuid* p = v.GetListGuid();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back(std::string((CKString)p->Get(i)));
      return a;
    }
    case KVT_LISTLIST: {
      json a = json::array();
      const CKListList* p = v.GetListList();
      for (int i = 0; p && i < p->Count(); ++i) a.push_back(StringList(p->Get(i)));
      return a;
    }
    case KVT_LANGLIST: {
      json a = json::array();
      const CKLangList* p = v.GetLangList();
      for (int i = 0; p && i < p->Count(); ++i)
        a.push_back({{"code", (int)(unsigned char)p->GetCode(i)}, {"texts", StringList(p->GetAt(i))}});
      return a;
    }
    case KVT_LISTVARIANT: {
      json a = json::array();
      const CKVariant::CKListVariant* p = v.GetListVariant();
      for (int i = 0; p && i < p->Count(); ++i)
        a.push_back(p->Get(i) ? VariantToJson(*p->Get(i), nDepth + 1) : json(nullptr));
      return a;
    }
    default: return nullptr;
  }
}

// ---------------------------------------------------------------- from JSON
// Whether the blob being made takes the binary form (zipped or not): its
// writer ends a text at the first NUL byte, so such texts are refused
// rather than cut; and dates need the swap described at MakeDate.
bool g_bBinary = false;

struct Where {
  std::string s;
  [[noreturn]] void Bad(const std::string& strWhy) const { throw Failure(s + ": " + strWhy); }
};

CKString MakeText(const json& j, const Where& w) {
  if (!j.is_string()) w.Bad("a text is expected");
  const std::string s = Utf8ToLatin1(j.get<std::string>(), w.s);
  if (g_bBinary && s.find('\0') != std::string::npos) w.Bad("a text holding a NUL byte has no binary form (use --text)");
  CKString r;
  char* p = r.GetBufferSetLength((unsigned)s.size());
  if (!p && !s.empty()) w.Bad("text too long");
  if (!s.empty()) std::memcpy(p, s.data(), s.size());
  return r;
}

const json& Array(const json& j, const Where& w) {
  if (!j.is_array()) w.Bad("an array is expected");
  return j;
}

template <class T>
T Integer(const json& j, const Where& w) {
  if (j.is_number_unsigned()) {
    const unsigned long long u = j.get<unsigned long long>();
    if (u > (unsigned long long)std::numeric_limits<T>::max()) w.Bad("integer out of range");
    return (T)u;
  }
  if (j.is_number_integer()) {
    const long long n = j.get<long long>();
    if (n < (long long)std::numeric_limits<T>::min() ||
        (n > 0 && (unsigned long long)n > (unsigned long long)std::numeric_limits<T>::max()))
      w.Bad("integer out of range");
    return (T)n;
  }
  w.Bad("an integer is expected");
}

template <class F, class U>
F Floating(const json& j, const Where& w) {
  if (j.is_number()) return (F)j.get<double>();
  if (j.is_string()) {
    const std::string s = j.get<std::string>();
    unsigned long long u = 0;
    char cEnd = 0;
    if (s.size() == 2 + 2 * sizeof(U) && std::sscanf(s.c_str(), "0x%llx%c", &u, &cEnd) == 1) {
      const U x = (U)u;
      F f;
      std::memcpy(&f, &x, sizeof(f));
      return f;
    }
  }
  w.Bad("a number (or \"0x\" and the IEEE bytes in hex) is expected");
}

// The binary writer stores minute then hour where its reader takes hour
// then minute; JSON shows what the reader gives, so a date bound for the
// binary form is handed to the writer with the two swapped, which makes
// file -> JSON -> file give the same bytes.
CKDateTime MakeDate(const json& j, const Where& w) {
  int y, mo, d, h, mi, s;
  char cEnd = 0;
  if (!j.is_string() || std::sscanf(j.get<std::string>().c_str(), "%d-%d-%d %d:%d:%d%c", &y, &mo, &d, &h, &mi,
                                    &s, &cEnd) != 6)
    w.Bad("a date \"yyyy-mm-dd hh:mm:ss\" is expected");
  if (g_bBinary) std::swap(h, mi);
  CKDateTime t;
  t.SetDateTime(y, mo, d, h, mi, s);
  if (t.GetYear() != y || t.GetMonth() != mo || t.GetDay() != d || t.GetHour() != h || t.GetMinute() != mi ||
      t.GetSecond() != s)
    w.Bad("a date field is out of range");
  return t;
}

CKList* MakeStringList(const json& j, const Where& w) {
  std::unique_ptr<CKList> p(new CKList);
  for (const json& x : Array(j, w)) p->Add(MakeText(x, w));
  return p.release();
}

void FillVariant(CKVariant& v, int nTag, const json& j, const Where& w, int nDepth) {
  switch (nTag) {
    case KVT_EMPTY:
      if (!j.is_null()) w.Bad("an empty element has the value null");
      break;
    case KVT_FILE: {
      if (!j.is_string()) w.Bad("hex bytes are expected");
      const std::string s = j.get<std::string>();
      if (s.size() % 2) w.Bad("an odd count of hex digits");
      std::unique_ptr<CKFile> f(new CKFile(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY));
      const size_t n = s.size() / 2;
      if (n) {
        f->SetSize(n);
        if (f->MemRoom() < (__int64)n) w.Bad("raw value too large");
        if (KStrHexToByte(s.c_str(), f->MemData(), (int)n) != (int)n) w.Bad("hex digits are expected");
      }
      v.Set(f.release());
      break;
    }
    case KVT_STRING:
      if (j.is_null())
        v.Set((CKString*)nullptr);
      else
        v.Set(MakeText(j, w));
      break;
    case KVT_LIST: v.Set(MakeStringList(j, w)); break;
    case KVT_FASTLIST: {
      std::unique_ptr<CKFastList> p(new CKFastList);
      for (const json& x : Array(j, w)) p->Add(MakeText(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_INT: v.Set(Integer<int>(j, w)); break;
    case KVT_UINT32: v.Set(Integer<unsigned>(j, w)); break;
    case KVT_INT64: v.Set((__int64)Integer<long long>(j, w)); break;
    case KVT_UINT64: v.Set((unsigned __int64)Integer<unsigned long long>(j, w)); break;
    case KVT_DOUBLE: v.Set(Floating<double, unsigned long long>(j, w)); break;
    case KVT_FLOAT: v.Set(Floating<float, unsigned>(j, w)); break;
    case KVT_DATETIME: v.Set(MakeDate(j, w)); break;
    case KVT_LISTINT: {
      std::unique_ptr<CKListTyped<int>> p(new CKListTyped<int>);
      for (const json& x : Array(j, w)) p->Add(Integer<int>(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_LISTUINT64: {
      std::unique_ptr<CKListUINT64> p(new CKListUINT64);
      for (const json& x : Array(j, w)) p->Add((unsigned __int64)Integer<unsigned long long>(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_LISTINT64: {
      std::unique_ptr<CKPileT<__int64>> p(new CKPileT<__int64>);
      for (const json& x : Array(j, w)) p->Add((__int64)Integer<long long>(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_LISTDATETIME: {
      std::unique_ptr<CKListDateTime> p(new CKListDateTime);
      for (const json& x : Array(j, w)) p->Add(MakeDate(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_LISTGUID: {
      std::unique_ptr<CKListGuid> p(new CKListGuid);
      for (const json& x : Array(j, w)) {
        if (!x.is_string()) w.Bad("a GUID text is expected");
        const std::string s = x.get<std::string>();
        CKGuid g;
        g.FromStrEx(s.c_str());
        if (g.IsEmpty() && s.find_first_not_of("{}-0") != std::string::npos) w.Bad("not a GUID: " + s);
        p->Add(g);
      }
      v.Set(p.release());
      break;
    }
    case KVT_LISTLIST: {
      std::unique_ptr<CKListList> p(new CKListList);
      for (const json& x : Array(j, w)) p->Add(MakeStringList(x, w));
      v.Set(p.release());
      break;
    }
    case KVT_LANGLIST: {
      std::unique_ptr<CKLangList> p(new CKLangList);
      for (const json& x : Array(j, w)) {
        if (!x.is_object() || !x.contains("code") || !x.contains("texts")) w.Bad("{\"code\", \"texts\"} expected");
        const int nCode = Integer<int>(x["code"], w);
        if (nCode < 1 || nCode > 255) w.Bad("a language code is 1 to 255");
        if (p->Find((char)nCode) >= 0) w.Bad("a language code appears twice");
        std::unique_ptr<CKList> l(MakeStringList(x["texts"], w));
        if (!p->Add((char)nCode, *l, TRUE)) w.Bad("language not added");
      }
      v.Set(p.release());
      break;
    }
    case KVT_LISTVARIANT: {
      if (nDepth >= 64) w.Bad("variant lists nest 64 levels at most");
      std::unique_ptr<CKVariant::CKListVariant> p(new CKVariant::CKListVariant);
      for (const json& x : Array(j, w)) {
        if (!x.is_object() || !x.contains("kind")) w.Bad("{\"kind\", \"value\"} expected");
        const int nSub = x["kind"].is_string() ? KindTag(x["kind"].get<std::string>()) : -1;
        if (nSub < 0) w.Bad("unknown kind");
        std::unique_ptr<CKVariant> e(new CKVariant);
        FillVariant(*e, nSub, x.contains("value") ? x["value"] : json(nullptr), w, nDepth + 1);
        p->Add(e.release());
      }
      v.Set(p.release());
      break;
    }
    default: w.Bad("this kind has no encoded form");
  }
}

// A memory blob encoded without the file-size check, so that every element
// kind can be written. Elements are added the library's way, so they come
// out sorted by name (as every blob the library writes).
class CToolBlob : public CKBlobMemory {
public:
  void Append(const CKBlobElement& e) {
    CKBlobElement* p = BlobElementAdd(e.m_strName);
    if (!p || !p->Copy(const_cast<CKBlobElement&>(e))) throw Failure("the library could not add an element");
  }
  std::string EncodeBytes() {
    if (!BlobElementCount()) return std::string();
    CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
    CKByteStream bs;
    if (!bs.InitWrite(&f, EncodedSize(), -1)) return std::string();
    const int bOk = Encode(bs);
    if (!bs.TermWrite() || !bOk) throw Failure("the library could not encode the elements in this form");
    const __int64 n = bs.GetSize();
    f.SetSize((unsigned __int64)n);
    if (n <= 0 || f.MemRoom() < n) throw Failure("encoding failed");
    return std::string((const char*)f.MemData(), (size_t)n);
  }
};

// ---------------------------------------------------------------- show
enum class Form { Binary, Zip, Text };

const char* FormName(Form f) { return f == Form::Zip ? "zip" : f == Form::Text ? "text" : "binary"; }

Form DetectForm(const std::string& s) {
  // Text: "IQ01" FF 00 and the count's first digit. A binary count of 255
  // also starts FF 00, but its next byte is 00.
  if (s.size() >= 7 && s[0] == 'I' && s[1] == 'Q' && (unsigned char)s[4] == 0xFF && s[5] == 0 && s[6] >= '0' &&
      s[6] <= '9')
    return Form::Text;
  if (s.size() >= 2 && s[0] == 'I' && s[1] == 'Q') return Form::Binary;
  if (s.size() >= 2 && (unsigned char)s[0] == 0x78) return Form::Zip;
  return Form::Binary;  // the decoder names what is wrong
}

void Load(CToolBlob& blob, const std::string& strFile, const std::string& strBytes, Form form) {
  if (strBytes.empty()) return;  // the library writes an empty blob as no bytes at all
  CKMem mem;
  if ( !mem.Set(const_cast<char*>(strBytes.data()), (unsigned)strBytes.size()))
    Fail(strFile, "too large");
  blob.SetTextMode(form == Form::Text);
  blob.SetZipped(form == Form::Zip);
  if (!blob.FromMem(mem)) Fail(strFile, "cannot hold the bytes");
  TakeLibraryMessage();
  blob.BlobElementCount();
  if (blob.GetStatus() == -1) {
    std::string strWhy = "not a blob (";
    strWhy += FormName(form);
    strWhy += " form): ";
    if (strBytes.size() < 8 && form == Form::Binary)
      strWhy += "truncated header";
    else if (form == Form::Binary && strBytes.compare(0, 4, "IQ01") != 0)
      strWhy += "wrong magic or version";
    else
      strWhy += "malformed or truncated elements";
    Fail(strFile, strWhy);
  }
}

std::string Listing(const json& v) {
  std::string s = v.is_string() ? v.get<std::string>() : v.dump();
  return s;
}

void ShowBlob(const std::string& strFile, bool bJson) {
  const std::string strBytes = ReadAll(strFile);
  const Form form = DetectForm(strBytes);
  CToolBlob blob;
  Load(blob, strFile, strBytes, form);
  const int n = blob.BlobElementCount();
  json j;
  j["form"] = FormName(form);
  j["elements"] = json::array();
  for (int i = 0; i < n; ++i) {
    CKBlobElement* p = blob.BlobElementGet(i);
    if (!p) continue;
    json e = VariantToJson(*p, 0);
    e["name"] = Text(p->m_strName);
    j["elements"].push_back(e);
  }
  if (bJson) {
    std::cout << j.dump(2) << "\n";
    return;
  }
  std::cout << strFile << ": " << FormName(form) << " blob, " << n << (n == 1 ? " element" : " elements")
            << ", " << strBytes.size() << " bytes\n";
  for (const json& e : j["elements"]) {
    std::cout << "  " << e["name"].get<std::string>() << "  " << e["kind"].get<std::string>();
    const json& v = e["value"];
    if (v.is_array()) {
      std::cout << "[" << v.size() << "]";
      for (const json& x : v) std::cout << "\n      " << Listing(x);
      std::cout << "\n";
    } else {
      std::cout << "  " << Listing(v) << "\n";
    }
  }
}

// ---------------------------------------------------------------- make
void MakeBlob(const std::string& strFile, bool bZip, bool bText) {
  json j;
  try {
    j = json::parse(ReadAll("-"));
  } catch (const json::parse_error& e) {
    throw Failure(std::string("standard input: not JSON: ") + e.what());
  }
  const json* pElements = j.is_array() ? &j : j.is_object() && j.contains("elements") ? &j["elements"] : nullptr;
  if (!pElements || !pElements->is_array())
    throw Failure("standard input: expected {\"elements\": [...]} or an array of elements");
  CToolBlob blob;
  blob.SetZipped(bZip);
  blob.SetTextMode(bText);
  g_bBinary = !bText;
  int i = 0;
  for (const json& e : *pElements) {
    Where w{"standard input: element " + std::to_string(i++)};
    if (!e.is_object() || !e.contains("name") || !e.contains("kind")) w.Bad("{\"name\", \"kind\", \"value\"} expected");
    const int nTag = e["kind"].is_string() ? KindTag(e["kind"].get<std::string>()) : -1;
    if (nTag < 0) w.Bad("unknown kind " + e["kind"].dump());
    std::unique_ptr<CKBlobElement> p(new CKBlobElement);
    p->m_strName = MakeText(e["name"], w);
    if (!p->m_strName.GetLength()) w.Bad("an element needs a name");
    if (blob.BlobElementExist(p->m_strName)) w.Bad("a second element named " + std::string(p->m_strName.GetString()));
    if (!bText && (nTag == KVT_LISTGUID))
      w.Bad("a GUID list has no binary form (use --text)");
    FillVariant(*p, nTag, e.contains("value") ? e["value"] : json(nullptr), w, 0);
    blob.Append(*p);
  }
  WriteAll(strFile, blob.EncodeBytes());
}

}  // namespace

void AddBlobCommands(CLI::App& app) {
  CLI::App* blob = app.add_subcommand("blob", "Show a blob file, or make one from JSON");
  blob->require_subcommand(1);
  blob->footer(
      "JSON layout: {\"form\": ..., \"elements\": [{\"name\": N, \"kind\": K, \"value\": V}, ...]}\n"
      "Kinds and values: empty null; raw: the bytes in upper-case hex; text: a string (null for\n"
      "a null text); list, fastlist: strings; int, uint32, int64, uint64: integers; listint,\n"
      "listint64, listuint64: integers; double, float: numbers (NaN, infinities as \"0x\" and the\n"
      "IEEE bits in hex); datetime: \"yyyy-mm-dd hh:mm:ss\"; listdatetime: such strings;\n"
      "listguid: braced GUIDs; listlist: arrays of strings; langlist: {\"code\": 1-255,\n"
      "\"texts\": [...]}; listvariant: {\"kind\", \"value\"} without a name. Texts are the\n"
      "library's ISO-8859-1, written as UTF-8 in JSON.");

  CLI::App* show = blob->add_subcommand("show", "Print a blob file (binary, zipped or text form, detected)");
  static std::string s_strShowFile;
  static bool s_bJson = false;
  show->add_option("FILE", s_strShowFile, "Blob file (- for standard input)")->required();
  show->add_flag("--json", s_bJson, "Print JSON (the layout blob make reads)");
  show->callback([] { ShowBlob(s_strShowFile, s_bJson); });

  CLI::App* make = blob->add_subcommand("make", "Write a blob file from JSON on standard input");
  static std::string s_strMakeFile;
  static bool s_bZip = false, s_bText = false;
  make->add_option("FILE", s_strMakeFile, "Blob file to write (- for standard output)")->required();
  auto* z = make->add_flag("--zip", s_bZip, "Zipped binary form (zlib)");
  auto* t = make->add_flag("--text", s_bText, "Text form");
  z->excludes(t);
  make->footer("Elements are written in the order given. See 'kelvor blob --help' for the JSON layout.");
  make->callback([] { MakeBlob(s_strMakeFile, s_bZip, s_bText); });
}

}  // namespace ktool
