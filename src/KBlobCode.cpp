// The blob's encoded forms: binary (optionally zlib level 9) and text.
#define KSRC_PATH "src/KBlob"

#include <base/tools/KBlob.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <base/tools/KByteStream.h>
#include <base/tools/KDebug.h>
#include <base/tools/KFile.h>
#include <base/tools/KStr.h>

#include "KAlloc.h"
#include "KBlobStore.h"
#include "KStringPool.h"
#include "KVariantImpl.h"

// The separator of the text form's header lines and fields.
static const char kSep = (char)0xFF;
// Nested variant lists deeper than this are refused in the text form.
static const int kMaxDepth = 64;

// ---------------------------------------------------------------- binary form
// Kinds whose expected size reports nothing and whose encoding logs nothing
// on success: the sizes of a run of these may be summed while writing.
static bool Quiet(int t) { return t >= 0 && t <= 21 && t != 5 && (t < 7 || t > 12) && t != 17; }

// The record of an element of a common quiet kind, written with its
// expected size added to nSize in the same visit (the figures of
// GetEncodedSize, the bytes of VariantEncode); -1 for the other kinds.
static int EncodeCommon(CKByteStream& bs, const CKBlobElement& e, __int64& nSize) {
  const char t = e.Type();
  if (t != KVT_EMPTY && t != KVT_STRING && t != KVT_LIST && t != KVT_INT && t != KVT_DOUBLE &&
      t != KVT_FLOAT && t != KVT_UINT64)
    return -1;
  __int64 n = 4 + ((__int64)e.m_strName.GetLength() + 5);
  if (!bs.Put((int)t) || !bs.Put(e.m_strName.GetString())) return 0;
  int bOk = 1;
  if (const CKString* s = e.GetString()) {
    n += (__int64)s->GetLength() + 5;
    bOk = bs.Put(s->GetString());
  } else if (const CKList* l = e.GetList()) {
    const int nItems = l->Count();
    n += 4;
    bOk = bs.Put(nItems);
    for (int i = 0; bOk && i < nItems; i++) {
      const CKString* q = kvariant::ListStr(*l, i);
      n += (__int64)q->GetLength() + 5;
      bOk = bs.Put(q->GetString());
    }
  } else if (t == KVT_STRING) {
    n += 5;  // a text variant without its object counts as empty, writes a 0 length
    bOk = bs.Put((int)0);
  } else if (t == KVT_LIST) {
    n += 4;
    bOk = bs.Put((int)0);
  } else if (t == KVT_INT) {
    n += 4;
    bOk = bs.Put(e.GetInt32());
  } else if (t == KVT_FLOAT) {
    n += 4;
    float f = 0;  // copied bytewise: no FPU load may quiet a NaN's payload
    e.Get(f);
    bOk = bs.Put(&f, 4);
  } else if (t == KVT_DOUBLE) {
    n += 8;
    double d = 0;
    e.Get(d);
    bOk = bs.Put(&d, 8);
  } else if (t == KVT_UINT64) {
    n += 8;
    unsigned __int64 u = 0;
    e.Get(u);
    bOk = bs.PutINT64((__int64)u);
  }
  nSize += n;
  return bOk;
}

int CKBlob::Encode(CKByteStream& bs) {
  __int64 fullsize = -1;
  return EncodeSized(bs, fullsize);
}

// fullsize: EncodedSize() if known, else -1; it is set to EncodedSize()
// either way. The binary form sums the expected sizes while writing, one
// visit to each element's blocks instead of two; the first kind that would
// report (or fail with a report) makes it sum them all there, so the log
// lines come in the order of a separate first pass.
int CKBlob::EncodeSized(CKByteStream& bs, __int64& fullsize) {
  if (!m_pElements) return 0;
  bool bSumming = fullsize < 0 && !IsText();
  if (fullsize < 0) fullsize = bSumming ? (m_pElements->Count() ? 8 : 0) : EncodedSize();
  if (fullsize == 0) return 1;
  if (IsText()) return EncodeText(bs);
  const int bStreamZip = bs.File() == nullptr;  // a gzip stream compresses itself
  const auto fail = [&]() {
    if (bSumming) fullsize = EncodedSize();
    return 0;
  };
  if (!bs.Put('I') || !bs.Put('Q') || !bs.Put('0') || !bs.Put('1')) return fail();
  m_pElements->Place();
  if (!bs.Put((int)m_pElements->v.size())) return fail();
  const std::vector<CKBlobElement*>& v = m_pElements->v;
  for (size_t i = 0; i < v.size(); i++) {
    kblob::Ahead(v, i);
    const CKBlobElement* p = v[i];
    __int64 nUnused = 0;
    const int r = EncodeCommon(bs, *p, bSumming ? fullsize : nUnused);
    if (r == 1) continue;
    if (r == 0) return fail();
    if (bSumming) {
      if (Quiet(p->Type())) {
        fullsize += p->GetEncodedSize();
      } else {
        bSumming = false;
        fullsize = EncodedSize();
      }
    }
    if (!p->VariantEncode(bs, p->m_strName.GetString())) return fail();
  }
  if (!bStreamZip) {
    const __int64 nStreamSize = bs.UpdateSize();
    m_pElements->nSizeHint = nStreamSize;
    KASSERT_AT(nStreamSize == fullsize, "nStreamSize==fullsize", KSRC_PATH, 323);
  }
  if (!m_bZip || bStreamZip) return 1;
  return bs.Zip(9);
}

int CKBlob::Encode(CKFile& file) {
  // The binary form learns its expected size as it writes; the stream is
  // pre-sized from the last encoding instead.
  const bool bSum = m_pElements && !IsText();
  __int64 nExpected = bSum ? -1 : EncodedSize();
  CKByteStream bs;
  if (!bs.InitWrite(&file, bSum ? m_pElements->nSizeHint : nExpected, -1)) return 0;
  const int bOk = EncodeSized(bs, nExpected);
  const int bTerm = bs.TermWrite();
  if (!bOk || !bTerm) return 0;
  const __int64 nSize = bs.GetSize();
  if (!IsText() && !m_bZip && nSize != nExpected) {
    KLog("CKBlob::Encode: Wrong Size fullsize=", KStr(nExpected),
         " bs.GetSize()=", KStr(nSize));
    return 0;
  }
  file.SetSize((unsigned __int64)nSize);
  return 1;
}

int CKBlob::BlobVersion(CKByteStream& bs) {
  char c[4] = {0, 0, 0, 0};
  for (char& x : c)
    if (!bs.Get(x)) return 0;
  if (c[0] != 'I' || c[1] != 'Q') return 0;
  return 10 * (c[2] - '0') + (c[3] - '0');
}

int CKBlob::Decode(CKByteStream& bs) {
  BlobDecodedDelete();
  if (IsText()) return DecodeText(bs);
  if (m_bZip && bs.File() != nullptr && !bs.Unzip()) return 0;
  if (BlobVersion(bs) != 1) return 0;
  int n = 0;
  if (!bs.Get(n) || n < 0) return 0;
  m_pElements = KMEM_TRY(new KBlobElements);
  KBlobElements& x = *m_pElements;
  // A record takes 8 bytes at least (tag and name length): room for no more
  // than the data can back; beyond that, elements arrive one by one and a
  // count the data cannot back fails at the first missing record.
  const __int64 nLeft = bs.File() ? (bs.GetSize() - bs.GetPosition()) / 8 : 4096;
  const size_t nRoom = (size_t)(nLeft < n ? (nLeft < 0 ? 0 : nLeft) : n);
  x.Reserve(nRoom);
  KMEM_TRY((x.v.reserve(nRoom), 0));
  // Texts are pooled only where their lengths can be checked first.
  if (bs.File() && n > 0) x.pStrings = kstr::PoolNew();
  for (int i = 0; i < n; i++) {
    CKBlobElement* p = x.NewPooled();
    KMEM_TRY((x.v.push_back(p), 0));
    if (!p->DecodeRecord(bs, x.pStrings)) {
      BlobDecodedDelete();
      return 0;
    }
  }
  return 1;
}

int CKBlob::Decode(CKFile& file) {
  CKByteStream bs;
  if (!bs.InitRead(&file)) return 0;
  const int bOk = Decode(bs);
  const int bTerm = bs.TermRead();
  return bOk && bTerm;
}

int CKBlob::DecodeImage(CKFile*& pImage) {
  CKFile* f = pImage;
  pImage = nullptr;
  const int r = f && Decode(*f);
  delete f;
  return r;
}

// ---------------------------------------------------------------- text form
int CKBlob::EncodeText(CKByteStream& bs) {
  m_pElements->Place();
  if (!bs.PutNL(CKString("IQ01") + CKString(kSep))) return 0;
  if (!bs.PutNL(KStr((int)m_pElements->v.size()) + CKString(kSep))) return 0;
  for (CKBlobElement* p : m_pElements->v)
    if (!p->EncodeElementText(bs)) return 0;
  return 1;
}

int CKBlob::DecodeText(CKByteStream& bs) {
  CKString s;
  if (!bs.GetNL(s)) return 0;
  if (s.GetLength() && s[(int)s.GetLength() - 1] == kSep) s = s.Left(s.GetLength() - 1);
  if (s.GetLength() < 2 || CKString(s.Left(2)).CompareNoCase("IQ") != 0) return 0;
  if (std::atoi(s.GetString() + 2) != 1) return 0;
  if (!bs.GetNL(s)) return 0;
  const int n = std::atoi(s.GetString());
  if (n < 0) return 0;
  m_pElements = KMEM_TRY(new KBlobElements);
  for (int i = 0; i < n; i++) {
    CKBlobElement* p = m_pElements->NewPooled();
    KMEM_TRY((m_pElements->v.push_back(p), 0));
    if (!p->DecodeElementText(bs, 1)) {
      BlobDecodedDelete();
      return 0;
    }
  }
  return 1;
}

// ---------------------------------------------------------------- element text
// An element is one zero-terminated line of fields separated by 0xFF: the
// tag, the name, then the value's fields (docs/formats.md lists them per
// kind). In a field, '\' is written "\\", a zero byte "\0" and 0xFF "\F";
// every other byte, line ends included, stands for itself.
namespace {

class CTextOut {
public:
  void Field(const char* p, size_t n) {
    if (!m_s.empty() || m_bAny) m_s += kSep;
    m_bAny = true;
    for (size_t i = 0; i < n; i++) {
      const char c = p[i];
      if (c == '\\')
        m_s += "\\\\";
      else if (c == 0)
        m_s += "\\0";
      else if (c == kSep)
        m_s += "\\F";
      else
        m_s += c;
    }
  }
  void Text(const CKString& s) { Field(s.GetString(), s.GetLength()); }
  void Int(__int64 n) { Text(KStr(n)); }
  void UInt(unsigned __int64 n) {
    char b[24];
    int i = 23;
    b[i] = 0;
    do {
      b[--i] = (char)('0' + n % 10);
      n /= 10;
    } while (n);
    Field(b + i, (size_t)(23 - i));
  }
  void Hex(const void* p, size_t n) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string h;
    h.reserve(2 * n);
    for (size_t i = 0; i < n; i++) {
      const unsigned char c = ((const unsigned char*)p)[i];
      h += kDigits[c >> 4];
      h += kDigits[c & 15];
    }
    Field(h.data(), h.size());
  }
  void Date(const CKDateTime& d) {
    Int(d.GetYear());
    Int(d.GetMonth());
    Int(d.GetDay());
    Int(d.GetHour());
    Int(d.GetMinute());
    Int(d.GetSecond());
  }
  void List(const CKList* l) {
    Int(l ? l->Count() : 0);
    for (int i = 0; l && i < l->Count(); i++) Text(l->Get(i));
  }
  const std::string& Line() const { return m_s; }

private:
  std::string m_s;
  bool m_bAny = false;
};

class CTextIn {
public:
  explicit CTextIn(const CKString& s) {
    std::string f;
    const char* p = s.GetString();
    const unsigned n = s.GetLength();
    for (unsigned i = 0; i <= n; i++) {
      if (i == n || p[i] == kSep) {
        m_fields.push_back(f);
        f.clear();
      } else if (p[i] == '\\') {
        const char e = i + 1 < n ? p[++i] : 'x';
        if (e == '\\')
          f += '\\';
        else if (e == '0')
          f += '\0';
        else if (e == 'F')
          f += kSep;
        else
          m_bBad = true;
      } else {
        f += p[i];
      }
    }
  }
  bool Bad() const { return m_bBad; }
  bool Done() const { return m_nAt == m_fields.size(); }
  size_t Left() const { return m_fields.size() - m_nAt; }
  bool Text(CKString& s) {
    if (m_nAt >= m_fields.size()) return false;
    const std::string& f = m_fields[m_nAt++];
    char* p = s.GetBufferSetLength((unsigned)f.size());
    if (!f.empty()) std::memcpy(p, f.data(), f.size());
    return true;
  }
  bool UInt(unsigned __int64& n, unsigned __int64 nMax) {
    if (m_nAt >= m_fields.size()) return false;
    const std::string& f = m_fields[m_nAt++];
    if (f.empty() || f.size() > 20) return false;
    unsigned __int64 v = 0;
    for (char c : f) {
      if (c < '0' || c > '9') return false;
      const unsigned d = (unsigned)(c - '0');
      if (v > (nMax - d) / 10) return false;
      v = v * 10 + d;
    }
    n = v;
    return true;
  }
  bool Int(__int64& n, __int64 nMin, __int64 nMax) {
    if (m_nAt >= m_fields.size()) return false;
    const bool bNeg = !m_fields[m_nAt].empty() && m_fields[m_nAt][0] == '-';
    if (bNeg) m_fields[m_nAt].erase(0, 1);
    unsigned __int64 v = 0;
    const unsigned __int64 nLimit = bNeg ? (unsigned __int64)(-(nMin + 1)) + 1 : (unsigned __int64)nMax;
    if (!UInt(v, nLimit)) return false;
    n = bNeg ? (__int64)(0 - v) : (__int64)v;
    return true;
  }
  bool Int32(int& n) {
    __int64 v = 0;
    if (!Int(v, INT32_MIN, INT32_MAX)) return false;
    n = (int)v;
    return true;
  }
  // A count of items of at least one field each, no more than remain.
  bool Count(int& n) {
    __int64 v = 0;
    if (!Int(v, 0, INT32_MAX) || (unsigned __int64)v > Left()) return false;
    n = (int)v;
    return true;
  }
  bool Hex(void* p, size_t n, std::string* pAny = nullptr) {
    if (m_nAt >= m_fields.size()) return false;
    const std::string& f = m_fields[m_nAt++];
    if (pAny) n = f.size() / 2;
    if (f.size() != 2 * n) return false;
    std::string tmp;
    unsigned char* q = (unsigned char*)p;
    if (pAny) {
      pAny->resize(n);
      q = (unsigned char*)&(*pAny)[0];
    }
    for (size_t i = 0; i < n; i++) {
      const int a = Digit(f[2 * i]), b = Digit(f[2 * i + 1]);
      if (a < 0 || b < 0) return false;
      q[i] = (unsigned char)(a * 16 + b);
    }
    return true;
  }
  bool Date(CKDateTime& d) {
    __int64 v[6];
    if (!Int(v[0], -32768, 32767)) return false;
    for (int i = 1; i < 6; i++)
      if (!Int(v[i], -128, 127)) return false;
    d.SetDateTime((int)v[0], (int)v[1], (int)v[2], (int)v[3], (int)v[4], (int)v[5]);
    return true;
  }
  bool List(CKList& l) {
    int n = 0;
    if (!Count(n)) return false;
    CKString s;
    for (int i = 0; i < n; i++) {
      if (!Text(s)) return false;
      l.Add(s);
    }
    return true;
  }

private:
  static int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }
  std::vector<std::string> m_fields;
  size_t m_nAt = 0;
  bool m_bBad = false;
};

bool PutValue(CTextOut& o, const CKVariant& v, int nDepth);

// The value fields of v, after its tag.
bool PutPayload(CTextOut& o, const CKVariant& v, int nDepth) {
  switch (v.Type()) {
    case KVT_EMPTY: return true;
    case KVT_FILE: {
      const CKFile* f = v.GetFile();
      const __int64 n = f ? (f->Size() < f->MemRoom() ? f->Size() : f->MemRoom()) : 0;
      o.Hex(f ? f->MemData() : nullptr, (size_t)n);
      return true;
    }
    case KVT_STRING: o.Text(v.GetText()); return true;
    case KVT_LIST: o.List(v.GetList()); return true;
    case KVT_FASTLIST: {
      const CKFastList* l = v.GetFastList();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.Text(l->Get(i));
      return true;
    }
    case KVT_INT: o.Int(v.GetInt32()); return true;
    case KVT_UINT32: o.UInt(v.GetUInt32()); return true;
    case KVT_INT64: o.Int(v.GetInt64()); return true;
    case KVT_UINT64: o.UInt(v.GetUInt64()); return true;
    case KVT_DOUBLE: { const double d = v.GetDouble(); o.Hex(&d, 8); return true; }
    case KVT_FLOAT: { const float f = v.GetFloat(); o.Hex(&f, 4); return true; }
    case KVT_DATETIME: o.Date(v.GetDateTime() ? *v.GetDateTime() : CKDateTime()); return true;
    case KVT_LISTINT: {
      const CKListTyped<int>* l = v.GetListInt();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.Int(l->Get(i));
      return true;
    }
    case KVT_LISTGUID: {
      const CKListGuid* l = v.GetListGuid();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) {
        const CKGuid g = l->Get(i);
        o.Hex(static_cast<const GUID*>(&g), sizeof(GUID));
      }
      return true;
    }
    case KVT_LISTDATETIME: {
      const CKListDateTime* l = v.GetListDateTime();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.Date(l->Get(i));
      return true;
    }
    case KVT_LISTUINT64: {
      const CKListUINT64* l = v.GetListUINT64();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.UInt(l->Get(i));
      return true;
    }
    case KVT_LISTINT64: {
      const CKPileT<__int64>* l = v.GetListINT64();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.Int(l->Get(i));
      return true;
    }
    case KVT_LISTLIST: {
      const CKListList* l = v.GetListList();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) o.List(l->GetAt(i));
      return true;
    }
    case KVT_LANGLIST: {
      const CKLangList* l = v.GetLangList();
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++) {
        o.Int((unsigned char)l->GetCode(i));
        o.List(l->GetAt(i));
      }
      return true;
    }
    case KVT_LISTVARIANT: {
      const CKVariant::CKListVariant* l = v.GetListVariant();
      if (nDepth >= kMaxDepth) return false;
      o.Int(l ? l->Count() : 0);
      for (int i = 0; l && i < l->Count(); i++)
        if (!l->GetAt(i) || !PutValue(o, *l->GetAt(i), nDepth + 1)) return false;
      return true;
    }
    default:
      return false;  // a boxed variant has no text form either
  }
}

bool PutValue(CTextOut& o, const CKVariant& v, int nDepth) {
  o.Int(v.Type());
  return PutPayload(o, v, nDepth);
}

template <class L, class F>
bool GetItems(CTextIn& in, CKVariant& v, F get) {
  int n = 0;
  if (!in.Count(n)) return false;
  std::unique_ptr<L> l(new L);
  for (int i = 0; i < n; i++)
    if (!get(*l)) return false;
  v.Set(l.release());
  return true;
}

bool GetValue(CTextIn& in, CKVariant& v, int nDepth);

// The value of tag nTag from its fields.
bool GetPayload(CTextIn& in, CKVariant& v, int nTag, int nDepth) {
  switch (nTag) {
    case KVT_EMPTY: return true;
    case KVT_FILE: {
      std::string b;
      if (!in.Hex(nullptr, 0, &b)) return false;
      if (b.empty()) return true;  // as in the binary form: no image, no value
      std::unique_ptr<CKFile> f(new CKFile(nullptr, 67));
      f->SetSize(b.size());
      if (f->MemRoom() < (__int64)b.size()) return false;
      std::memcpy(f->MemData(), b.data(), b.size());
      v.Set(f.release());
      return true;
    }
    case KVT_STRING: {
      std::unique_ptr<CKString> s(new CKString);
      if (!in.Text(*s)) return false;
      v.Set(s.release());
      return true;
    }
    case KVT_LIST:
    case KVT_FASTLIST: {  // a fast list comes back as a list, as in binary
      std::unique_ptr<CKList> l(new CKList);
      if (!in.List(*l)) return false;
      v.Set(l.release());
      return true;
    }
    case KVT_INT: { int n = 0; if (!in.Int32(n)) return false; v.Set(n); return true; }
    case KVT_UINT32: {
      unsigned __int64 n = 0;
      if (!in.UInt(n, 0xFFFFFFFFu)) return false;
      v.Set((unsigned int)n);
      return true;
    }
    case KVT_INT64: {
      __int64 n = 0;
      if (!in.Int(n, INT64_MIN, INT64_MAX)) return false;
      v.Set(n);
      return true;
    }
    case KVT_UINT64: {
      unsigned __int64 n = 0;
      if (!in.UInt(n, UINT64_MAX)) return false;
      v.Set(n);
      return true;
    }
    case KVT_DOUBLE: { double d = 0; if (!in.Hex(&d, 8)) return false; v.Set(d); return true; }
    case KVT_FLOAT: { float f = 0; if (!in.Hex(&f, 4)) return false; v.Set(f); return true; }
    case KVT_DATETIME: {
      std::unique_ptr<CKDateTime> d(new CKDateTime);
      if (!in.Date(*d)) return false;
      v.Set(d.release());
      return true;
    }
    case KVT_LISTINT:
      return GetItems<CKListTyped<int>>(in, v, [&](CKListTyped<int>& l) {
        int n = 0;
        if (!in.Int32(n)) return false;
        l.Add(n);
        return true;
      });
    case KVT_LISTGUID:
      return GetItems<CKListGuid>(in, v, [&](CKListGuid& l) {
        CKGuid g;
        if (!in.Hex(static_cast<GUID*>(&g), sizeof(GUID))) return false;
        l.Add(g);
        return true;
      });
    case KVT_LISTDATETIME:
      return GetItems<CKListDateTime>(in, v, [&](CKListDateTime& l) {
        CKDateTime d;
        if (!in.Date(d)) return false;
        l.Add(d);
        return true;
      });
    case KVT_LISTUINT64:
      return GetItems<CKListUINT64>(in, v, [&](CKListUINT64& l) {
        unsigned __int64 n = 0;
        if (!in.UInt(n, UINT64_MAX)) return false;
        l.Add(n);
        return true;
      });
    case KVT_LISTINT64:
      return GetItems<CKPileT<__int64>>(in, v, [&](CKPileT<__int64>& l) {
        __int64 n = 0;
        if (!in.Int(n, INT64_MIN, INT64_MAX)) return false;
        l.Add(n);
        return true;
      });
    case KVT_LISTLIST:
      return GetItems<CKListList>(in, v, [&](CKListList& l) {
        CKList* p = new CKList;
        l.Add(p);
        return in.List(*p);
      });
    case KVT_LANGLIST:
      return GetItems<CKLangList>(in, v, [&](CKLangList& l) {
        __int64 c = 0;
        if (!in.Int(c, 1, 255)) return false;
        CKList* p = l.Add((char)c);
        CKList tmp;
        return in.List(p ? *p : tmp);
      });
    case KVT_LISTVARIANT:
      if (nDepth >= kMaxDepth) return false;
      return GetItems<CKVariant::CKListVariant>(in, v, [&](CKVariant::CKListVariant& l) {
        CKVariant* p = new CKVariant;
        l.Add(p);
        return GetValue(in, *p, nDepth + 1);
      });
    default:
      return false;
  }
}

bool GetValue(CTextIn& in, CKVariant& v, int nDepth) {
  int nTag = 0;
  return in.Int32(nTag) && GetPayload(in, v, nTag, nDepth);
}

}  // namespace

int CKBlobElement::EncodeElementText(CKByteStream& bs) {
  CTextOut o;
  o.Int(Type());
  o.Text(m_strName);
  if (!PutPayload(o, *this, 0)) return 0;
  const std::string& line = o.Line();
  CKString s;
  char* p = s.GetBufferSetLength((unsigned)line.size());
  if (!line.empty()) std::memcpy(p, line.data(), line.size());
  return bs.PutNL(s);
}

int CKBlobElement::DecodeElementText(CKByteStream& bs, int bWithName) {
  VariantDelete();
  CKString s;
  if (!bs.GetNL(s)) return 0;
  CTextIn in(s);
  int nTag = 0;
  if (in.Bad() || !in.Int32(nTag)) return 0;
  if (bWithName && !in.Text(m_strName)) return 0;
  if (!GetPayload(in, *this, nTag, 0) || !in.Done()) {
    VariantDelete();
    return 0;
  }
  return 1;
}
