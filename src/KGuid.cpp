// GUIDs: creation, text forms, parsing, byte order, hashing, and their list.
#define KSRC_PATH "src/KGuid"

#include <base/tools/KGuid.h>

#include <cstdio>
#include <cstring>
#include <new>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>
#include "platform/KPlatform.h"

static_assert(sizeof(GUID) == 16, "GUID is 16 bytes");
static_assert(sizeof(CKGuid) == 16, "CKGuid adds nothing to GUID");

namespace {

// The two text forms; the formats stay literal so that their arguments are checked.
enum Form { kBraced, kPlain };

// sscanf reads each field with a width and no flag.
void Parse(const char* sz, Form eForm, GUID& g) {
  unsigned int f[11];
  int n = 0;
  if (sz)
    n = eForm == kBraced
            ? sscanf(sz, "{%8X-%4X-%4X-%2X%2X-%2X%2X%2X%2X%2X%2X}", &f[0], &f[1], &f[2], &f[3],
                     &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10])
            : sscanf(sz, "%8X%4X%4X%2X%2X%2X%2X%2X%2X%2X%2X", &f[0], &f[1], &f[2], &f[3], &f[4],
                     &f[5], &f[6], &f[7], &f[8], &f[9], &f[10]);
  if (n == 11) {
    g.Data1 = f[0];
    g.Data2 = (uint16_t)f[1];
    g.Data3 = (uint16_t)f[2];
    for (int i = 0; i < 8; ++i) g.Data4[i] = (uint8_t)f[3 + i];
  } else {
    memset(&g, 0, sizeof(g));
  }
}

inline Form FormEx(const char* sz) { return (sz && sz[0] == '{') ? kBraced : kPlain; }

// buf holds at least 39 bytes.
void Print(char* buf, Form eForm, const GUID& g) {
  const unsigned d1 = (unsigned)g.Data1, d2 = g.Data2, d3 = g.Data3;
  const unsigned char* b = g.Data4;
  if (eForm == kBraced)
    snprintf(buf, 39, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", d1, d2, d3, b[0], b[1],
             b[2], b[3], b[4], b[5], b[6], b[7]);
  else
    snprintf(buf, 39, "%08X%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X", d1, d2, d3, b[0], b[1], b[2],
             b[3], b[4], b[5], b[6], b[7]);
}

inline const unsigned char* Raw(const GUID& g) { return (const unsigned char*)&g; }

// nIndex, or -1 after freeing p and logging when the pile could not take it.
int Kept(int nIndex, CKGuid* p) {
  if (nIndex >= 0) return nIndex;
  delete p;
  KLog(KLOG_ERROR, "ERROR => CKListGuid: the list cannot grow");
  return -1;
}

}  // namespace

// ---------------------------------------------------------------- free functions
void __CLSIDFromString(const char* sz, GUID& g) { Parse(sz, kBraced, g); }

GUID __CLSIDFromString(const char* sz) {
  GUID g;
  Parse(sz, kBraced, g);
  return g;
}

void __CLSIDFromString2(const char* sz, GUID& g) { Parse(sz, kPlain, g); }

GUID __CLSIDFromString2(const char* sz) {
  GUID g;
  Parse(sz, kPlain, g);
  return g;
}

void __CLSIDFromStringEx(const char* sz, GUID& g) { Parse(sz, FormEx(sz), g); }

GUID __CLSIDFromStringEx(const char* sz) {
  GUID g;
  Parse(sz, FormEx(sz), g);
  return g;
}

char* __StringFromCLSID(char* buf, const GUID& g) {
  if (buf) Print(buf, kBraced, g);
  return buf;
}

CKString __StringFromCLSID(const GUID& g) {
  char buf[40];
  Print(buf, kBraced, g);
  return CKString(buf);
}

CKString __String2FromCLSID(const GUID& g) {
  char buf[40];
  Print(buf, kPlain, g);
  return CKString(buf);
}

// The four 32-bit little-endian words of the in-memory bytes, each as a
// signed number in nRadix, concatenated and upper-cased.
CKString __String3FromCLSID(const GUID& g, int nRadix) {
  const unsigned char* b = Raw(g);
  char buf[4][72];
  const char* parts[4];
  for (int w = 0; w < 4; ++w) {
    const unsigned char* p = b + 4 * w;
    uint32_t u = (uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)p[2] << 16) |
                 ((uint32_t)p[3] << 24);
    parts[w] = KStr((__int64)(int32_t)u, buf[w], nRadix);
  }
  CKString s = KAndN(parts, 4);
  s.MakeUpper();
  return s;
}

// ---------------------------------------------------------------- CKGuid
CKGuid::CKGuid(int bNew) {
  Empty();
  if (bNew) New();
}

CKGuid::CKGuid(const char* sz, int bBraced) { Parse(sz, bBraced ? kBraced : kPlain, *this); }

CKGuid::CKGuid(const _variant_t& v) { *this = v; }

CKGuid& CKGuid::operator=(const GUID& g) {
  GUID::operator=(g);
  return *this;
}

CKGuid& CKGuid::operator=(const _variant_t& v) {
  if (v.vt == _variant_t::VT_BSTR)
    Parse(v.strVal.c_str(), kPlain, *this);
  else
    Empty();
  return *this;
}

CKGuid& CKGuid::operator=(const char* sz) {
  Parse(sz, kBraced, *this);
  return *this;
}

// A random (version 4, RFC 4122 variant) GUID. Without a random source the
// GUID is left empty and the failure is logged.
void CKGuid::New() {
  unsigned char b[16];
  if (!kplat::RandomBytes(b, sizeof(b))) {
    Empty();
    KLog(KLOG_ASSERT, "CKGuid::New: no random source, GUID left empty");
    return;
  }
  memcpy((GUID*)this, b, sizeof(b));
  Data3 = (uint16_t)((Data3 & 0x0FFF) | 0x4000);
  Data4[0] = (uint8_t)((Data4[0] & 0x3F) | 0x80);
}

void CKGuid::Fill(unsigned char b) { memset((GUID*)this, b, sizeof(GUID)); }

int CKGuid::IsEmpty() const {
  static const GUID kEmpty = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
  return memcmp((const GUID*)this, &kEmpty, sizeof(GUID)) == 0 ? TRUE : FALSE;
}

CKGuid* CKGuid::FromStr(const char* sz) {
  Parse(sz, kBraced, *this);
  return this;
}

CKGuid* CKGuid::FromStr2(const char* sz) {
  Parse(sz, kPlain, *this);
  return this;
}

CKGuid* CKGuid::FromStrEx(const char* sz) {
  Parse(sz, FormEx(sz), *this);
  return this;
}

CKGuid::operator CKString() const { return __StringFromCLSID(*this); }

CKString CKGuid::Str2() const { return __String2FromCLSID(*this); }

CKString CKGuid::Str3(int nRadix) const { return __String3FromCLSID(*this, nRadix); }

int CKGuid::operator==(const char* sz) const { return *this == __CLSIDFromString(sz); }

int CKGuid::operator==(const CKString& s) const { return *this == __CLSIDFromString(s); }

int CKGuid::operator==(const GUID& g) const {
  return memcmp((const GUID*)this, &g, sizeof(GUID)) == 0 ? TRUE : FALSE;
}

// FNV-1a over the 16 bytes, folded to 16 bits: stable across runs and builds.
unsigned int CKGuid::HashKey() const {
  const unsigned char* b = Raw(*this);
  uint32_t h = 2166136261u;
  for (int i = 0; i < 16; ++i) {
    h ^= b[i];
    h *= 16777619u;
  }
  return (h >> 16) ^ (h & 0xFFFFu);
}

void CKGuid::ToLittleEndian(unsigned char* out) const {
  const unsigned char* b = Raw(*this);
  for (int i = 0; i < 16; ++i) out[i] = b[15 - i];
}

void CKGuid::FromLittleEndian(const unsigned char* in) {
  for (int i = 0; i < 8; ++i) Data4[7 - i] = in[i];
  Data3 = (uint16_t)(in[8] | (in[9] << 8));
  Data2 = (uint16_t)(in[10] | (in[11] << 8));
  Data1 = (uint32_t)in[12] | ((uint32_t)in[13] << 8) | ((uint32_t)in[14] << 16) |
          ((uint32_t)in[15] << 24);
}

// ---------------------------------------------------------------- CKListGuid
CKListGuid::CKListGuid(const CKListGuid& l) : CKPile() { *this = l; }

CKListGuid& CKListGuid::operator=(const CKListGuid& l) {
  if (&l == this) return *this;
  DeleteAll();
  data.step = l.data.step;
  for (int i = 0; i < l.Count(); ++i) {
    CKGuid* p = l.GetData(i);
    CKGuid* pCopy = p ? new (std::nothrow) CKGuid(*p) : nullptr;
    if (Kept(PileAdd(pCopy), pCopy) < 0) break;
  }
  return *this;
}

CKListGuid::~CKListGuid() { DeleteAll(); }

int CKListGuid::Add(const CKGuid& g) {
  CKGuid* p = new (std::nothrow) CKGuid(g);
  return Kept(PileAdd(p), p);
}

void CKListGuid::Set(int i, const CKGuid& g) {
  CKGuid* p = new (std::nothrow) CKGuid(g);
  const int nOld = Count();
  const int n = Kept(PileSet(i, p), p);
  if (n < 0) return;
  // Slots the pile opened may hold stale pointers of removed elements.
  for (int k = nOld; k < n; ++k) data.ptr[k] = nullptr;
}

CKGuid CKListGuid::Get(int i) const {
  CKGuid* p = GetData(i);
  return p ? *p : CKGuid();
}

CKGuid* CKListGuid::GetData(int i) const { return (CKGuid*)PileGet(i); }

int CKListGuid::Find(const CKGuid& g, int nStart) const {
  (void)nStart;  // the search always starts at 0
  for (int i = 0; i < Count(); ++i) {
    CKGuid* p = (CKGuid*)data.ptr[i];
    if (p && *p == g) return i;
  }
  return -1;
}

int CKListGuid::Remove(const CKGuid& g) {
  int i = Find(g, 0);
  if (i >= 0) delete (CKGuid*)PileRemove(i);
  return i;
}

void CKListGuid::RemoveAt(int i) {
  KASSERT_RET(i>=0 && i<Count());
  delete (CKGuid*)PileRemove(i);
}

void CKListGuid::DeleteAll() {
  for (int i = 0; i < Count(); ++i) {
    delete (CKGuid*)data.ptr[i];
    data.ptr[i] = nullptr;
  }
  PileEmpty();
}

// Each element is compared with itself, so equal counts decide: kept so for
// the callers that rely on it.
int CKListGuid::IsEqual(CKListGuid& other) {
  if (Count() != other.Count()) return FALSE;
  for (int i = 0; i < Count(); ++i) {
    const CKGuid g = Get(i);
    if (!(g == Get(i))) return FALSE;
  }
  return TRUE;
}

void CKListGuid::Detach(CKListGuid& other) {
  if (&other == this) return;
  DeleteAll();
  other.PileDetach(*this);
}
