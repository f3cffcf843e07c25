// CKString::Format under a table of fixed formats, with fuzzed arguments
// (integers, doubles of any bit pattern, long doubles made from them, texts,
// wide texts, widths and precisions). Properties: the text is the C library's for the
// same call, cut at its first zero; a width, or a number's precision, past
// what a string can hold is refused (empty text) without formatting; a
// format whose arguments are the string's own text gives the same text as
// with a copy of it.
#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <deque>
#include <string>

#include <base/tools/KString.h>

#include "KFuzz.h"

namespace {

// The C library's text, cut at its first zero; "" when it fails.
std::string CText(const char* szFormat, ...) {
  va_list args, args2;
  va_start(args, szFormat);
  va_copy(args2, args);
  int n = vsnprintf(nullptr, 0, szFormat, args);
  std::string s;
  if (n > 0) {
    s.assign((size_t)n, '\0');
    vsnprintf(&s[0], s.size() + 1, szFormat, args2);
  }
  va_end(args2);
  va_end(args);
  return std::string(s.c_str());
}

// Arguments drawn from the fuzzer's bytes; the texts live as long as this.
struct Args {
  explicit Args(FuzzedDataProvider& f) : fdp(f) {}
  FuzzedDataProvider& fdp;
  bool bHuge = false;  // a count that the string must refuse was handed out
  std::deque<std::string> texts;
  std::deque<std::wstring> wides;

  int Int() { return fdp.ConsumeIntegral<int>(); }
  long long LongLong() { return fdp.ConsumeIntegral<long long>(); }
  double Double() {
    uint64_t n = fdp.ConsumeIntegral<uint64_t>();
    double d;
    memcpy(&d, &n, sizeof(d));
    return d;
  }
  long double LongDouble() { return (long double)Double() * (fdp.ConsumeBool() ? 1e300L : 1.0L); }
  // A width, or with bPrecision a precision, mostly small; now and then one
  // past the largest string.
  int Count(bool bPrecision = false) {
    if (fdp.ConsumeIntegralInRange(0, 31) == 0) {
      bHuge = true;
      static const int s_anHuge[] = {INT_MAX, 0x7FFFF001, INT_MIN, -0x7FFFF001};
      return s_anHuge[fdp.ConsumeIntegralInRange(0, bPrecision ? 1 : 3)];
    }
    return SmallCount();
  }
  int SmallCount() { return fdp.ConsumeIntegralInRange(-300, 300); }
  const char* Str() {
    texts.push_back(fdp.ConsumeRandomLengthString(400));
    return texts.back().c_str();
  }
  // Mostly ASCII; a byte with its top and bottom bits set stays above 0x7F,
  // which the C locale cannot narrow (both sides then fail alike).
  const wchar_t* WStr() {
    std::string s = fdp.ConsumeRandomLengthString(100);
    std::wstring w;
    for (unsigned char b : s) w += (wchar_t)((b & 0x81) == 0x81 ? b : (b & 0x7F));
    wides.push_back(w);
    return wides.back().c_str();
  }
};

const int kErrno = EDOM;  // %m prints its text

template <typename... A>
void Check(const Args& a, const char* szFormat, A... args) {
  CKString s("text from before");
  errno = kErrno;
  s.Format(szFormat, args...);
  if (a.bHuge) {
    KFUZZ_CHECK(s.GetLength() == 0);
    return;
  }
  errno = kErrno;
  KFUZZ_EQ(KFuzzStr(s), CText(szFormat, args...));
}

void Run(int nCase, Args& a) {
  switch (nCase) {
    case 0: {
      int i1 = a.Int(), i2 = a.Int(), i3 = a.Int(), i4 = a.Int(), i5 = a.Int(), i6 = a.Int();
      Check(a, "%d|%i|%u|%x|%X|%o|%s", i1, i2, i3, i4, i5, i6, a.Str());
      break;
    }
    case 1: {
      int i1 = a.Int(), i2 = a.Int();
      double d = a.Double();
      Check(a, "%'d|%'i|%'.3f|%s", i1, i2, d, a.Str());
      break;
    }
    case 2: {
      int i1 = a.Int(), i2 = a.Int(), i3 = a.Int();
      Check(a, "%I32d|%I64d|%Id|%s", i1, i2, i3, a.Str());
      break;
    }
    case 3: {
      int w1 = a.Count(), i1 = a.Int(), w2 = a.Count(), p2 = a.Count(true), i2 = a.Int();
      int p3 = a.Count(true), i3 = a.Int();
      Check(a, "%*d|%-*.*x|%+.*i|%s", w1, i1, w2, p2, i2, p3, i3, a.Str());
      break;
    }
    case 4: {
      int i1 = a.Int(), i2 = a.Int();
      long l = (long)a.LongLong();
      long long ll = a.LongLong(), q = a.LongLong(), L = a.LongLong();
      size_t z = (size_t)a.LongLong();
      intmax_t j = a.LongLong();
      ptrdiff_t t = (ptrdiff_t)a.LongLong();
      Check(a, "%hhd|%hd|%ld|%lld|%zu|%jd|%td|%qd|%Ld|%s", i1, i2, l, ll, z, j, t, q, L, a.Str());
      break;
    }
    case 5: {
      double d[8];
      for (double& x : d) x = a.Double();
      Check(a, "%f|%e|%g|%a|%E|%G|%A|%F|%s", d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7],
            a.Str());
      break;
    }
    case 6: {
      int p1 = a.Count(true);
      double d1 = a.Double();
      if (a.bHuge && !std::isfinite(d1)) d1 = 1.0;  // inf and nan ignore a precision
      int w2 = a.Count(), p2 = a.Count(true);
      double d2 = a.Double(), d3 = a.Double(), d4 = a.Double();
      Check(a, "%.*f|%*.*e|%#g|%#.0f|%s", p1, d1, w2, p2, d2, d3, d4, a.Str());
      break;
    }
    case 7: {
      long double x[5];
      for (long double& v : x) v = a.LongDouble();
      Check(a, "%Lf|%Le|%llf|%qg|%La|%s", x[0], x[1], x[2], x[3], x[4], a.Str());
      break;
    }
    case 8: {
      int c1 = a.Int(), c2 = a.Int(), c3 = a.Int();
      Check(a, "%c|%5c|%-3c|%s", c1, c2, c3, a.Str());
      break;
    }
    case 9: {
      const char* s1 = a.Str();
      int p2 = a.SmallCount();
      const char* s2 = a.Str();
      int w3 = a.SmallCount();
      const char* s3 = a.Str();
      const char* s4 = a.Str();
      Check(a, "%s|%.*s|%-*s|%10.3s|%.0s", s1, p2, s2, w3, s3, s4, a.Str());
      break;
    }
    case 10: {
      void* p = (void*)(uintptr_t)a.LongLong();
      int i1 = a.Int(), i2 = a.Int(), i3 = a.Int(), i4 = a.Int(), i5 = a.Int(), i6 = a.Int();
      Check(a, "%p|%#x|%#o|%+d|% d|%05d|%-05d|%s", p, i1, i2, i3, i4, i5, i6, a.Str());
      break;
    }
    case 11: {
      int i1 = a.Int(), w2 = a.Count();
      const char* s3 = a.Str();
      double d4 = a.Double();
      Check(a, "%3$s|%1$*2$d|%2$d|%4$.*2$f|%3$.5s", i1, w2, s3, d4);
      break;
    }
    case 12: {
      int w1 = a.Count(), p2 = a.SmallCount();
      Check(a, "%y|%5y|%*y|%-.*y|%s|%m", w1, p2, a.Str());
      break;
    }
    case 13: {
      int i1 = a.Int(), i2 = a.Int(), i3 = a.Int();
      Check(a, "%b|%#B|%10b|%s", i1, i2, i3, a.Str());
      break;
    }
    case 14: {
      const wchar_t* w1 = a.WStr();
      wint_t c2 = (wint_t)(a.Int() & 0xFF);
      const wchar_t* w3 = a.WStr();
      wint_t c4 = (wint_t)(a.Int() & 0xFF);
      const wchar_t* w5 = a.WStr();
      Check(a, "%ls|%lc|%S|%C|%.3ls|%s", w1, c2, w3, c4, w5, a.Str());
      break;
    }
    case 15:
      Check(a, "%%|%5%|%-3%|%s", a.Str());
      break;
    case 16: {
      // %n: both sides count the same characters.
      const char* s1 = a.Str();
      int i2 = a.Int();
      const char* s3 = a.Str();
      int nK = -1, nC = -2;
      signed char hK = -1, hC = -2;
      CKString s;
      s.Format("%s%n|%d|%hhn%s", s1, &nK, i2, &hK, s3);
      KFUZZ_EQ(KFuzzStr(s), CText("%s%n|%d|%hhn%s", s1, &nC, i2, &hC, s3));
      KFUZZ_CHECK(nK == nC && hK == hC);
      break;
    }
    case 17: {
      // The string's own text as the arguments.
      CKString s = a.Str();
      const std::string strCopy = KFuzzStr(s);
      int i = a.Int();
      const char* s2 = a.Str();
      s.Format("%s|%d|%s|%.3s", (const char*)s, i, s2, (const char*)s);
      KFUZZ_EQ(KFuzzStr(s), CText("%s|%d|%s|%.3s", strCopy.c_str(), i, s2, strCopy.c_str()));
      break;
    }
    case 18: {
      const char* s[8];
      for (const char*& x : s) x = a.Str();
      Check(a, "%s%s%s%s%s%s%s%s", s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7]);
      break;
    }
    case 19: {
      int p1 = a.Count(true), i1 = a.Int(), p2 = a.Count(true), i2 = a.Int();
      int p3 = a.Count(true), i3 = a.Int();
      Check(a, "%.*d|%.*x|%.*o", p1, i1, p2, i2, p3, i3);
      break;
    }
    default: {
      int w1 = a.Count(), c1 = a.Int(), w2 = a.Count();
      const char* s2 = a.Str();
      int w3 = a.Count();
      void* p3 = (void*)(uintptr_t)a.LongLong();
      Check(a, "%*c|%*s|%*p", w1, c1, w2, s2, w3, p3);
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider fdp(data, size);
  Args a(fdp);
  Run(fdp.ConsumeIntegralInRange(0, 20), a);
  return 0;
}
