// String utilities: joiners, tests, tokenisers and conversions.
#define KSRC_PATH "src/KStr"

#include <base/tools/KStr.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <base/classes/list/KList.h>
#include <base/tools/KDebug.h>
#include <lang/KLangList.h>

#include "platform/KPlatform.h"

int KIsEmpty(const char* s) { return (!s || !*s) ? 1 : 0; }

int KIsEmpty(const CKString& s) { return s.GetLength() == 0 ? 1 : 0; }

namespace {
// Room asked of a string for n characters; sizes past 32 bits stay too large
// (the string refuses them) instead of wrapping to a small block.
inline unsigned Room(size_t n) { return n > 0xFFFFFFFFu ? 0xFFFFFFFFu : (unsigned)n; }
}  // namespace

// Measures every piece once and copies into a single block.
CKString KAndN(const char* const* ppTexts, int n) {
  size_t nTotal = 0;
  size_t aLen[40];
  for (int i = 0; i < n; ++i) {
    size_t l = ppTexts[i] ? strlen(ppTexts[i]) : 0;
    if (i < 40) aLen[i] = l;
    nTotal += l;
  }
  CKString s;
  if (nTotal == 0) return s;
  char* p = s.GetBuffer(Room(nTotal));
  for (int i = 0; i < n; ++i) {
    if (!ppTexts[i]) continue;
    size_t l = i < 40 ? aLen[i] : strlen(ppTexts[i]);
    memcpy(p, ppTexts[i], l);
    p += l;
  }
  s.ReleaseBuffer((unsigned)nTotal);
  return s;
}

CKString KAnd(const char* s1) { return CKString(s1); }

CKString KAnd(const CKString& s1) { return s1; }

CKString KAnd(const char* s1, const char* s2, const char* s3, const char* s4, const char* s5) {
  const char* a[5] = {s1, s2, s3, s4, s5};
  return KAndN(a, 5);
}

CKString KAnd(const char* s1, const char* s2, const char* s3, const char* s4, const char* s5,
              const char* s6, const char* s7, const char* s8, const char* s9, const char* s10,
              const char* s11, const char* s12, const char* s13, const char* s14,
              const char* s15, const char* s16, const char* s17, const char* s18,
              const char* s19, const char* s20, const char* s21, const char* s22) {
  const char* a[22] = {s1,  s2,  s3,  s4,  s5,  s6,  s7,  s8,  s9,  s10, s11,
                       s12, s13, s14, s15, s16, s17, s18, s19, s20, s21, s22};
  return KAndN(a, 22);
}

CKString KAnd(const char* s1, const char* s2, const char* s3, const char* s4, const char* s5,
              const char* s6, const char* s7, const char* s8, const char* s9, const char* s10,
              const char* s11, const char* s12, const char* s13, const char* s14,
              const char* s15, const char* s16, const char* s17, const char* s18,
              const char* s19, const char* s20, const char* s21, const char* s22,
              const char* s23, const char* s24, const char* s25, const char* s26,
              const char* s27, const char* s28, const char* s29, const char* s30,
              const char* s31, const char* s32, const char* s33, const char* s34,
              const char* s35, const char* s36, const char* s37, const char* s38,
              const char* s39, const char* s40) {
  const char* a[40] = {s1,  s2,  s3,  s4,  s5,  s6,  s7,  s8,  s9,  s10, s11, s12, s13, s14,
                       s15, s16, s17, s18, s19, s20, s21, s22, s23, s24, s25, s26, s27, s28,
                       s29, s30, s31, s32, s33, s34, s35, s36, s37, s38, s39, s40};
  return KAndN(a, 40);
}

char* KStr(__int64 v, char* buf, int nRadix) {
  if (!buf) return buf;
  if (nRadix < 2 || nRadix > 36) nRadix = 10;
  char tmp[72];
  int n = 0;
  // Work on the unsigned magnitude so that the smallest value converts too.
  unsigned long long u = v < 0 ? 0ULL - (unsigned long long)v : (unsigned long long)v;
  do {
    int d = (int)(u % (unsigned)nRadix);
    tmp[n++] = (char)(d < 10 ? '0' + d : 'a' + d - 10);
    u /= (unsigned)nRadix;
  } while (u);
  char* p = buf;
  if (v < 0) *p++ = '-';
  while (n) *p++ = tmp[--n];
  *p = 0;
  return buf;
}

CKString KStr(__int64 v, int nRadix) {
  char buf[72];
  return CKString(KStr(v, buf, nRadix));
}

// ---------------------------------------------------------------- helpers
namespace {

const char s_szEmpty[] = "";

// Units of KStrSize and KStrBytesPerSec, by powers of 1024.
const char* const s_aSizeUnits[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
const int s_nSizeUnits = (int)(sizeof(s_aSizeUnits) / sizeof(s_aSizeUnits[0]));

// The white space of CKString::TrimLeft/TrimRight.
inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

inline int FoldAscii(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c; }

inline int HexVal(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A string of the n bytes at p, built in one allocation.
CKString MakeStr(const char* p, size_t n) {
  CKString s;
  if (n) {
    memcpy(s.GetBuffer(Room(n)), p, n);
    s.ReleaseBuffer((unsigned)n);
  }
  return s;
}

// Narrows [p, p + n) to its part without leading and trailing blanks.
void TrimSpan(const char*& p, size_t& n) {
  while (n && IsBlank(*p)) ++p, --n;
  while (n && IsBlank(p[n - 1])) --n;
}

// Membership table of a separator set; the terminator is never a member, so
// scans over members stop at the end of the text by themselves.
struct SepSet {
  bool a[256];
  explicit SepSet(const char* seps) {
    memset(a, 0, sizeof(a));
    if (seps)
      for (const unsigned char* p = (const unsigned char*)seps; *p; ++p) a[*p] = true;
  }
  explicit SepSet(char c) {
    memset(a, 0, sizeof(a));
    a[(unsigned char)c] = true;
    a[0] = false;
  }
  bool Has(char c) const { return a[(unsigned char)c]; }
};

// Walks the run-collapsing tokens of s: a token is a run of non-members, and
// the first one must start at s itself (a leading separator ends the walk).
// f(p, n) returns false to stop. Returns the number of tokens visited.
template <typename F>
int ForEachToken(const char* s, const SepSet& set, F&& f) {
  if (!s) return 0;
  int n = 0;
  for (const char* p = s;;) {
    const char* q = p;
    while (*q && !set.Has(*q)) ++q;
    if (q == p) return n;
    ++n;
    if (!f(p, (size_t)(q - p))) return n;
    for (p = q; set.Has(*p);) ++p;
  }
}

// Token n of s, or false when there is none.
bool FindToken(const char* s, const SepSet& set, int n, const char*& pTok, size_t& nTok) {
  if (n < 0) return false;
  bool bFound = false;
  ForEachToken(s, set, [&](const char* p, size_t l) {
    if (n-- > 0) return true;
    pTok = p;
    nTok = l;
    bFound = true;
    return false;
  });
  return bFound;
}

void AddField(CKList* pList, const char* p, size_t n, int nFlags) {
  if (!pList) return;
  if (nFlags & KSTR_PARSE_TRIM) TrimSpan(p, n);
  CKString s = MakeStr(p, n);
  if (nFlags & KSTR_PARSE_UPCASE) s.MakeUpper();
  pList->Add(s);
}

inline void AddSpan(CKList* pList, const char* p, size_t n) {
  if (pList) pList->Add(MakeStr(p, n));
}

// An amount (bytes or bytes per second) in the unit that keeps it below
// 1024, one decimal below 10 units. Integer formatting keeps the text free
// of the locale's decimal mark.
CKString FormatAmount(double v, const char* szSuffix) {
  int k = 0;
  while (v >= 1024.0 && k < s_nSizeUnits - 1) v /= 1024.0, ++k;
  char buf[64];
  for (;;) {
    if (k > 0 && v < 10.0) {
      long long nTenths = llround(v * 10.0);
      if (nTenths < 100)
        snprintf(buf, sizeof(buf), "%lld.%lld %s%s", nTenths / 10, nTenths % 10,
                 s_aSizeUnits[k], szSuffix);
      else
        snprintf(buf, sizeof(buf), "10 %s%s", s_aSizeUnits[k], szSuffix);
      break;
    }
    unsigned long long n = (unsigned long long)llround(v);
    if (n >= 1024 && k < s_nSizeUnits - 1) {
      // Rounding reached the next unit.
      v /= 1024.0;
      ++k;
      continue;
    }
    snprintf(buf, sizeof(buf), "%llu %s%s", n, s_aSizeUnits[k], szSuffix);
    break;
  }
  return CKString(buf);
}

int WriteBytes(const char* szFile, const char* p, size_t n, const char* szMode,
               const char* szWho) {
  FILE* f = kplat::FileOpen(szFile, szMode);
  if (!f) {
    KLog(KLOG_ASSERT, szWho, ": cannot open file ", szFile);
    return FALSE;
  }
  int bOk = (n == 0 || fwrite(p, 1, n, f) == n) ? TRUE : FALSE;
  if (fclose(f) != 0) bOk = FALSE;
  if (!bOk) KLog(KLOG_ASSERT, szWho, ": cannot write file ", szFile);
  return bOk;
}

// Bytes of the C literal form of c (without the quotes).
inline int CstrWidth(unsigned char c) {
  if (c == '\\' || c == '"' || c == '\n' || c == '\r' || c == '\t') return 2;
  return (c < 0x20 || c == 0x7F) ? 4 : 1;
}

}  // namespace

// ---------------------------------------------------------------- tests and conversions
namespace {
// atoi without its undefined overflow: the same prefix rules (leading blanks,
// one sign, the digits that follow), a number past the int range clamped to
// INT_MIN or INT_MAX.
int AtoiClamped(const char* s) {
  long v = strtol(s, nullptr, 10);
  return v < INT_MIN ? INT_MIN : v > INT_MAX ? INT_MAX : (int)v;
}
}  // namespace

int KInt2(const char* s, int nDefault) { return KIsEmpty(s) ? nDefault : AtoiClamped(s); }

int KIsStrictInt(const char* s) {
  if (!s) return 0;
  if (*s == '-') ++s;
  if (!*s) return 0;
  for (; *s; ++s)
    if (*s < '0' || *s > '9') return 0;
  return 1;
}

int KBool(const char* s) {
  if (KIsEmpty(s)) return 0;
  static const char* const aWords[] = {"TRUE", "YES", "OUI", "VRAI"};
  for (const char* w : aWords)
    if (KStrICmp(s, w) == 0) return 1;
  // Every test left can only say true, so the cheap number test goes before
  // the language's words (a locked look-up each).
  if (AtoiClamped(s) != 0) return 1;
  CKString strWord = KLangYes();
  if (strWord.GetLength() && KStrICmp(s, strWord) == 0) return 1;
  strWord = KLangTrue();
  return (strWord.GetLength() && KStrICmp(s, strWord) == 0) ? 1 : 0;
}

CKString KBool2Str(int b) { return CKString(b ? "TRUE" : "FALSE"); }

CKString KStrUpcase(const char* s) {
  CKString str(s);
  str.MakeUpper();
  return str;
}

int KStrPos(const char* s, char c) {
  if (!s || !c) return -1;
  const char* q = strchr(s, c);
  return q ? (int)(q - s) : -1;
}

int KStrICmp(const char* a, const char* b) {
  const unsigned char* p = (const unsigned char*)(a ? a : s_szEmpty);
  const unsigned char* q = (const unsigned char*)(b ? b : s_szEmpty);
  for (;; ++p, ++q) {
    int ca = FoldAscii(*p), cb = FoldAscii(*q);
    if (ca != cb || !ca) return ca - cb;
  }
}

int KStrNICmp(const char* a, const char* b, unsigned n) {
  const unsigned char* p = (const unsigned char*)(a ? a : s_szEmpty);
  const unsigned char* q = (const unsigned char*)(b ? b : s_szEmpty);
  for (; n; --n, ++p, ++q) {
    int ca = FoldAscii(*p), cb = FoldAscii(*q);
    if (ca != cb || !ca) return ca - cb;
  }
  return 0;
}

int KStrBeginWith(const char* s, const char* prefix, int bNoCase) {
  if (KIsEmpty(prefix)) return 1;
  if (KIsEmpty(s)) return 0;
  size_t n = strlen(prefix);
  int r = bNoCase ? KStrNICmp(s, prefix, (unsigned)n) : strncmp(s, prefix, n);
  return r == 0 ? 1 : 0;
}

// ---------------------------------------------------------------- in-place helpers
void KTruncate2(CKString& s, unsigned n) {
  if (s.GetLength() <= n) return;
  // A shared text is cut by copying only the part kept.
  if (s.GetRefCount() > 1) {
    s = s.Left(n);
    return;
  }
  s.ReleaseBuffer(n);
}

void KStrPreAlloc(CKString& s, unsigned nSize, unsigned nLength) {
  unsigned nLen = nLength == 0xFFFFFFFFu ? s.GetLength() : nLength;
  if (nLen > nSize) nLen = nSize;
  s.GetBuffer(nSize);
  s.ReleaseBuffer(nLen);
}

int KStrRemoveEnd(CKString& s, const char* szEnd, int bNoCase) {
  if (KIsEmpty(szEnd)) return 0;
  unsigned nEnd = (unsigned)strlen(szEnd), nLen = s.GetLength();
  if (nEnd > nLen) return 0;
  const char* pTail = s.GetString() + (nLen - nEnd);
  if ((bNoCase ? KStrNICmp(pTail, szEnd, nEnd) : memcmp(pTail, szEnd, nEnd)) != 0) return 0;
  KTruncate2(s, nLen - nEnd);
  return 1;
}

// ---------------------------------------------------------------- shaping
CKString KTrim(const char* s) {
  if (!s) return CKString();
  size_t nLen = strlen(s), n = nLen;
  const char* p = s;
  TrimSpan(p, n);
  return n == nLen ? CKString(s) : MakeStr(p, n);
}

CKString KStrPad(const char* s, unsigned nWidth, char cPad, int bLeft) {
  size_t n = s ? strlen(s) : 0;
  if (n >= nWidth) return CKString(s);
  KASSERT_RETV(cPad != 0, CKString(s));
  CKString str;
  char* p = str.GetBuffer(nWidth);
  size_t nPad = nWidth - n;
  if (bLeft) {
    memset(p, cPad, nPad);
    if (n) memcpy(p + nPad, s, n);
  } else {
    if (n) memcpy(p, s, n);
    memset(p + n, cPad, nPad);
  }
  str.ReleaseBuffer(nWidth);
  return str;
}

CKString KStrSmart(const char* s, unsigned nMax) {
  size_t n = s ? strlen(s) : 0;
  if (n <= nMax) return CKString(s);
  if (nMax < 4) return MakeStr(s, nMax);
  size_t nRoom = nMax - 3, nCut = nRoom, b = nRoom;
  // Prefer a word boundary, unless it would waste more than half the room.
  while (b > nRoom / 2 && !IsBlank(s[b])) --b;
  if (b > nRoom / 2) nCut = b;
  while (nCut && IsBlank(s[nCut - 1])) --nCut;
  if (!nCut) nCut = nRoom;
  CKString str;
  char* p = str.GetBuffer((unsigned)(nCut + 3));
  memcpy(p, s, nCut);
  memcpy(p + nCut, "...", 3);
  str.ReleaseBuffer((unsigned)(nCut + 3));
  return str;
}

CKString KStrSize(unsigned __int64 nBytes) { return FormatAmount((double)nBytes, ""); }

CKString KStrBytesPerSec(unsigned __int64 nBytes, unsigned nMilliseconds) {
  double dMs = nMilliseconds ? (double)nMilliseconds : 1.0;
  return FormatAmount((double)nBytes * 1000.0 / dMs, "/s");
}

// ---------------------------------------------------------------- C string literals
CKString KStr2Cstr(const char* s) {
  if (!s) s = s_szEmpty;
  size_t n = 2;
  for (const unsigned char* p = (const unsigned char*)s; *p; ++p) n += CstrWidth(*p);
  CKString str;
  char* q = str.GetBuffer((unsigned)n);
  *q++ = '"';
  for (const unsigned char* p = (const unsigned char*)s; *p; ++p) {
    unsigned char c = *p;
    switch (c) {
      case '\\': *q++ = '\\'; *q++ = '\\'; break;
      case '"': *q++ = '\\'; *q++ = '"'; break;
      case '\n': *q++ = '\\'; *q++ = 'n'; break;
      case '\r': *q++ = '\\'; *q++ = 'r'; break;
      case '\t': *q++ = '\\'; *q++ = 't'; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          // Always three digits, so that a following digit is not read into it.
          *q++ = '\\';
          *q++ = (char)('0' + (c >> 6));
          *q++ = (char)('0' + ((c >> 3) & 7));
          *q++ = (char)('0' + (c & 7));
        } else {
          *q++ = (char)c;
        }
    }
  }
  *q = '"';
  str.ReleaseBuffer((unsigned)n);
  return str;
}

namespace {

int ConsumeCstr(const char*& p, CKString& strOut) {
  if (!p) return 0;
  const char* q = p;
  while (IsBlank(*q)) ++q;
  if (*q != '"') return 0;
  const char* pBegin = ++q;
  // Find the closing quote first: the decoded text is never longer.
  for (; *q != '"'; ++q) {
    if (!*q) return 0;
    if (*q == '\\' && !*++q) return 0;
  }
  const char* pEnd = q;
  char* pOut = strOut.GetBuffer((unsigned)(pEnd - pBegin));
  size_t n = 0;
  for (q = pBegin; q < pEnd; ++q) {
    if (*q != '\\') {
      pOut[n++] = *q;
      continue;
    }
    int v;
    switch (*++q) {
      case 'n': v = '\n'; break;
      case 'r': v = '\r'; break;
      case 't': v = '\t'; break;
      case 'a': v = '\a'; break;
      case 'b': v = '\b'; break;
      case 'f': v = '\f'; break;
      case 'v': v = '\v'; break;
      case 'x': {
        v = 0;
        int nDigits = 0;
        for (int d; nDigits < 2 && (d = HexVal(q[1])) >= 0; ++nDigits, ++q) v = v * 16 + d;
        if (!nDigits) v = 0;
        break;
      }
      default:
        if (*q >= '0' && *q <= '7') {
          v = *q - '0';
          for (int i = 1; i < 3 && q[1] >= '0' && q[1] <= '7'; ++i) v = v * 8 + (*++q - '0');
          if (v > 255) v = 0;
        } else {
          v = (unsigned char)*q;  // \\ \" \' \? and unknown escapes
        }
    }
    if (!v) {
      // A text cannot carry a zero byte; refuse rather than cut it short.
      strOut.Empty();
      return 0;
    }
    pOut[n++] = (char)v;
  }
  strOut.ReleaseBuffer((unsigned)n);
  if (!n) strOut.Empty();
  p = pEnd + 1;
  return 1;
}

}  // namespace

int KStrConsumeCstr(const char*& p, CKString& strOut) {
  // Decoded apart: p may point into strOut's own text.
  CKString str;
  int bOk = ConsumeCstr(p, str);
  strOut = str;
  return bOk;
}

// ---------------------------------------------------------------- parsing
CKString KStrParseToSeparator(const char* s, char sep, const char*& rest, int* pFound) {
  if (pFound) *pFound = 0;
  if (!s || !sep) {
    rest = s_szEmpty;
    return CKString();
  }
  const char* q = strchr(s, sep);
  if (!q) {
    rest = s + strlen(s);
    return CKString(s);
  }
  if (pFound) *pFound = 1;
  rest = q + 1;
  return MakeStr(s, (size_t)(q - s));
}

CKString KStrParseToSeparator(const char* s, const char* szSep, const char*& rest, int* pFound) {
  if (pFound) *pFound = 0;
  if (!s || KIsEmpty(szSep)) {
    rest = s_szEmpty;
    return CKString();
  }
  const char* q = strstr(s, szSep);
  if (!q) {
    rest = s + strlen(s);
    return CKString(s);
  }
  if (pFound) *pFound = 1;
  rest = q + strlen(szSep);
  return MakeStr(s, (size_t)(q - s));
}

int KStrParseKeyValue(const char* s, CKString& strKey, CKString& strValue, char cSep) {
  // Both results are written last: s may be the text of either.
  const char* q = (s && cSep) ? strchr(s, cSep) : nullptr;
  if (!q) {
    strKey = KTrim(s);
    strValue.Empty();
    return 0;
  }
  const char* p = s;
  size_t n = (size_t)(q - s);
  TrimSpan(p, n);
  CKString strK = MakeStr(p, n);
  p = q + 1;
  n = strlen(p);
  TrimSpan(p, n);
  if (n >= 2 && p[0] == '"' && p[n - 1] == '"') ++p, n -= 2;
  strValue = MakeStr(p, n);
  strKey = strK;
  return strKey.GetLength() ? 1 : 0;
}

int KStrParse(CKList* pList, const char* s, const char* seps) {
  if (pList) pList->Empty();
  if (KIsEmpty(s)) return 0;
  if (!seps) pList = nullptr;  // count only
  return ForEachToken(s, SepSet(seps), [pList](const char* p, size_t n) {
    AddSpan(pList, p, n);
    return true;
  });
}

int KStrParse(CKList* pList, const char* s, char sep, int nFlags) {
  if (pList) pList->Empty();
  if (KIsEmpty(s)) return 0;
  int n = 1;
  const char* pStart = s;
  if (sep)
    for (const char* q; (q = strchr(pStart, sep)) != nullptr; pStart = q + 1, ++n)
      AddField(pList, pStart, (size_t)(q - pStart), nFlags);
  AddField(pList, pStart, strlen(pStart), nFlags);
  return n;
}

char* KStrParseNth(char* buf, int nBufSize, const char* s, const char* seps, int n) {
  KASSERT_RETV(buf && nBufSize > 0, buf);
  const char* p = nullptr;
  size_t l = 0;
  if (!FindToken(s, SepSet(seps), n, p, l)) l = 0;
  if (l > (size_t)(nBufSize - 1)) l = (size_t)(nBufSize - 1);
  if (l) memmove(buf, p, l);  // s may be buf itself
  buf[l] = 0;
  return buf;
}

char* KStrParseNth(char* buf, int nBufSize, const char* s, char sep, int n) {
  const char seps[2] = {sep, 0};
  return KStrParseNth(buf, nBufSize, s, seps, n);
}

CKString KStrParseNth(const char* s, const char* seps, int n) {
  const char* p = nullptr;
  size_t l = 0;
  return FindToken(s, SepSet(seps), n, p, l) ? MakeStr(p, l) : CKString();
}

CKString KStrParseNth(const char* s, char sep, int n) {
  const char seps[2] = {sep, 0};
  return KStrParseNth(s, seps, n);
}

int KStrTextToList(CKList* pList, const char* s) {
  if (pList) pList->Empty();
  if (KIsEmpty(s)) return 0;
  int n = 1;
  const char* pStart = s;
  for (const char* q; (q = strpbrk(pStart, "\r\n")) != nullptr; pStart = q + 1, ++n) {
    AddSpan(pList, pStart, (size_t)(q - pStart));
    if (q[0] == '\r' && q[1] == '\n') ++q;
  }
  AddSpan(pList, pStart, strlen(pStart));
  return n;
}

int KStrTextToWords(CKList* pList, const char* s) {
  if (pList) pList->Empty();
  if (!s) return 0;
  int n = 0;
  for (const char* p = s;;) {
    while (IsBlank(*p)) ++p;
    if (!*p) return n;
    const char* pStart = p;
    if (*p == '"') {
      for (pStart = ++p; *p && *p != '"';) ++p;
      AddSpan(pList, pStart, (size_t)(p - pStart));
      if (*p) ++p;
    } else {
      while (*p && !IsBlank(*p)) ++p;
      AddSpan(pList, pStart, (size_t)(p - pStart));
    }
    ++n;
  }
}

CKString KHttpDecode(const char* s) {
  size_t n = s ? strlen(s) : 0;
  if (!n) return CKString();
  CKString str;
  char* q = str.GetBuffer((unsigned)n);
  size_t j = 0;
  for (size_t i = 0; i < n; ++i) {
    char c = s[i];
    int hi, lo;
    if (c == '+') {
      c = ' ';
    } else if (c == '%' && (hi = HexVal(s[i + 1])) >= 0 && (lo = HexVal(s[i + 2])) >= 0 &&
               (hi | lo) != 0) {
      // %00 stays as it is: a text cannot carry a zero byte.
      c = (char)(hi * 16 + lo);
      i += 2;
    }
    q[j++] = c;
  }
  str.ReleaseBuffer((unsigned)j);
  return str;
}

// ---------------------------------------------------------------- files
int KStrTextToFile(const char* szFile, const char* szText, int bAppend) {
  KASSERT_RETV(!KIsEmpty(szFile), FALSE);
  return WriteBytes(szFile, szText, szText ? strlen(szText) : 0, bAppend ? "ab" : "wb",
                    "KStrTextToFile");
}

namespace {

int FileToText(const char* szFile, CKString& strText) {
  KASSERT_RETV(!KIsEmpty(szFile), FALSE);
  FILE* f = kplat::FileOpen(szFile, "rb");
  if (!f) {
    KLog(KLOG_ASSERT, "KStrFileToText: cannot open file ", szFile);
    return FALSE;
  }
  // The size, when the file can tell it, lets one read fill the text.
  const size_t nMax = 0x7FFFFFF0u;
  size_t nLen = 0, nRoom = 4096;
  if (fseek(f, 0, SEEK_END) == 0) {
    long nSize = ftell(f);
    if (nSize > 0) nRoom = (size_t)nSize;
    if (fseek(f, 0, SEEK_SET) != 0) nRoom = 0;
  }
  int bOk = nRoom > 0 ? TRUE : FALSE;
  while (bOk) {
    if (nRoom > nMax - nLen) {
      KLog(KLOG_ASSERT, "KStrFileToText: file too large ", szFile);
      bOk = FALSE;
      break;
    }
    char* p = strText.GetBuffer((unsigned)(nLen + nRoom));
    size_t nGot = fread(p + nLen, 1, nRoom, f);
    nLen += nGot;
    strText.ReleaseBuffer((unsigned)nLen);
    if (nGot < nRoom) break;
    // Full: probe for more before growing the block.
    int c = fgetc(f);
    if (c == EOF) break;
    ungetc(c, f);
    nRoom = nLen > 65536 ? nLen : 65536;
  }
  if (bOk && ferror(f)) bOk = FALSE;
  fclose(f);
  if (!bOk) {
    strText.Empty();
    KLog(KLOG_ASSERT, "KStrFileToText: cannot read file ", szFile);
    return FALSE;
  }
  if (!nLen) strText.Empty();
  return TRUE;
}

}  // namespace

int KStrFileToText(const char* szFile, CKString& strText) {
  // Read apart and handed over at the end: szFile may be strText's own text.
  CKString str;
  int bOk = FileToText(szFile, str);
  strText = str;
  return bOk;
}

int KFileStrFindReplace(const char* szFile, const char* szFind, const char* szReplace) {
  KASSERT_RETV(!KIsEmpty(szFile), -1);
  KASSERT_RETV(!KIsEmpty(szFind), -1);
  CKString strIn;
  if (!KStrFileToText(szFile, strIn)) return -1;
  // Byte search over the whole length, so that zero bytes in the file are passed over.
  const char* p = strIn.GetString();
  size_t n = strIn.GetLength(), nFind = strlen(szFind);
  size_t nRepl = szReplace ? strlen(szReplace) : 0;
  auto next = [&](size_t i) -> size_t {
    while (i + nFind <= n) {
      const char* q = (const char*)memchr(p + i, szFind[0], n - nFind + 1 - i);
      if (!q) break;
      i = (size_t)(q - p);
      if (memcmp(q, szFind, nFind) == 0) return i;
      ++i;
    }
    return n;
  };
  size_t nCount = 0;
  for (size_t i = next(0); i < n; i = next(i + nFind)) ++nCount;
  if (!nCount) return 0;
  size_t nOut = n - nCount * nFind + nCount * nRepl;
  if (nOut > 0x7FFFFFF0u || nCount > 0x7FFFFFFFu) {
    KLog(KLOG_ASSERT, "KFileStrFindReplace: result too large ", szFile);
    return -1;
  }
  CKString strOut;
  char* pOut = strOut.GetBuffer((unsigned)nOut);
  size_t j = 0, nFrom = 0;
  for (size_t i = next(0); i < n; i = next(nFrom)) {
    memcpy(pOut + j, p + nFrom, i - nFrom);
    j += i - nFrom;
    if (nRepl) memcpy(pOut + j, szReplace, nRepl);
    j += nRepl;
    nFrom = i + nFind;
  }
  memcpy(pOut + j, p + nFrom, n - nFrom);
  strOut.ReleaseBuffer((unsigned)nOut);
  // Write beside the file, then swap, so that a failed write leaves the original.
  CKString strTmp = KAnd(szFile, ".kfr~");
  if (!WriteBytes(strTmp, strOut.GetString(), nOut, "wb", "KFileStrFindReplace")) {
    std::remove(strTmp);
    return -1;
  }
  if (std::rename(strTmp, szFile) != 0) {
    // Platforms whose rename does not replace an existing file.
    std::remove(szFile);
    if (std::rename(strTmp, szFile) != 0) {
      KLog(KLOG_ASSERT, "KFileStrFindReplace: cannot replace file ", szFile,
           ", new content kept in ", strTmp);
      return -1;
    }
  }
  return (int)nCount;
}
