// String utilities: joiners, tests, tokenisers and conversions.
#define KSRC_PATH "src/KStr"

#include <base/tools/KStr.h>

#include <cstring>

#include <base/tools/KDebug.h>

int KIsEmpty(const char* s) { return (!s || !*s) ? 1 : 0; }

int KIsEmpty(const CKString& s) { return s.GetLength() == 0 ? 1 : 0; }

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
  char* p = s.GetBuffer((unsigned)nTotal);
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
