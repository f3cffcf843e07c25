// Sequences of CKString operations on three strings that share blocks as
// they are copied, checked after every step against a std::string model.
// Properties: every text, length and result equals the model's; a copy never
// changes when another string sharing its block is written; a block always
// has room for its text and terminator.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <base/tools/KStr.h>
#include <base/tools/KString.h>

#include "KFuzz.h"

namespace {

bool IsWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int Sign(int n) { return n < 0 ? -1 : n > 0 ? 1 : 0; }

int Fold(unsigned char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

int CompareNoCase(const std::string& a, const std::string& b) {
  for (size_t i = 0;; ++i) {
    const int ca = i < a.size() ? Fold((unsigned char)a[i]) : 0;
    const int cb = i < b.size() ? Fold((unsigned char)b[i]) : 0;
    if (ca != cb || !ca) return Sign(ca - cb);
  }
}

// A text without zero bytes (a string's text ends at its first zero).
std::string Text(FuzzedDataProvider& fdp, size_t nMax) {
  std::string s = fdp.ConsumeRandomLengthString(nMax);
  for (char& c : s)
    if (!c) c = 'z';
  return s;
}

char Char(FuzzedDataProvider& fdp) {
  // Mostly from a small alphabet, so that searches find something.
  static const char s_szAlphabet[] = "ab \t\r\nAB";
  const uint8_t b = fdp.ConsumeIntegral<uint8_t>();
  const char c = b < 192 ? s_szAlphabet[b % 8] : (char)b;
  return c ? c : 'z';
}

void CheckSame(const CKString& s, const std::string& m) {
  KFUZZ_EQ(KFuzzStr(s), m);
  KFUZZ_CHECK(strlen(s) == m.size());
  KFUZZ_CHECK(s.GetAllocLength() == 0 ? s.GetLength() == 0 : s.GetAllocLength() > s.GetLength());
  KFUZZ_CHECK(s.GetRefCount() >= 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider fdp(data, size);
  CKString s[3];
  std::string m[3];
  for (int nStep = 0; nStep < 64 && fdp.remaining_bytes() > 0; ++nStep) {
    const int a = fdp.ConsumeIntegralInRange(0, 2), b = fdp.ConsumeIntegralInRange(0, 2);
    CKString& x = s[a];
    std::string& mx = m[a];
    const std::string t = Text(fdp, 40);
    const char c = Char(fdp), c2 = Char(fdp);
    const unsigned i = fdp.ConsumeIntegralInRange<unsigned>(0, 48);
    const unsigned n = fdp.ConsumeIntegralInRange<unsigned>(0, 48);
    const size_t nLen = mx.size();
    switch (fdp.ConsumeIntegralInRange(0, 29)) {
      case 0: x = t.c_str(); mx = t; break;
      case 1: x = s[b]; mx = m[b]; break;  // shares the block
      case 2: x += s[b]; mx += m[b]; break;  // may append a string to itself
      case 3: x += t.c_str(); mx += t; break;
      case 4: x += c; mx += c; break;
      case 5: x.KConcatInPlace((unsigned)t.size(), t.c_str()); mx += t; break;
      case 6: {
        const size_t nAt = i > nLen ? nLen : i;
        KFUZZ_CHECK(x.Insert(i, c) == (int)nLen + 1);
        mx.insert(nAt, 1, c);
        break;
      }
      case 7: {
        const size_t nAt = i > nLen ? nLen : i;
        KFUZZ_CHECK(x.Insert(i, t.c_str()) == (int)(nLen + t.size()));
        mx.insert(nAt, t);
        break;
      }
      case 8:
        KFUZZ_CHECK(x.Delete(i, n) == (int)nLen);
        if (n > 0 && i < nLen) mx.erase(i, n);  // a count past the end stops there
        break;
      case 9: {
        int nCount = 0;
        if (c != c2)
          for (char& ch : mx)
            if (ch == c) ch = c2, ++nCount;
        KFUZZ_CHECK(x.Replace(c, c2) == nCount);
        break;
      }
      case 10: {
        // Occurrences left to right, the inserted text never searched again.
        const size_t nSplit = n % 4 < t.size() ? n % 4 : t.size();
        const std::string strOld = t.substr(0, nSplit), strNew = t.substr(nSplit);
        int nCount = 0;
        if (!strOld.empty())
          for (size_t p = 0; (p = mx.find(strOld, p)) != std::string::npos; ++nCount) {
            mx.replace(p, strOld.size(), strNew);
            p += strNew.size();
          }
        KFUZZ_CHECK(x.Replace(strOld.c_str(), strNew.c_str()) == nCount);
        break;
      }
      case 11: {
        size_t p = 0;
        while (p < mx.size() && IsWhite(mx[p])) ++p;
        mx.erase(0, p);
        x.TrimLeft();
        break;
      }
      case 12:
        while (!mx.empty() && IsWhite(mx.back())) mx.pop_back();
        x.TrimRight();
        break;
      case 13: {
        size_t p = 0;
        while (p < mx.size() && mx[p] == c) ++p;
        mx.erase(0, p);
        x.TrimLeft(c);
        break;
      }
      case 14: {
        // Cuts after the last character that differs from c, unless that is
        // the first character; an all-c text becomes empty.
        const size_t p = mx.find_last_not_of(c);
        if (p == std::string::npos)
          mx.clear();
        else if (p != 0)
          mx.erase(p + 1);
        x.TrimRight(c);
        break;
      }
      case 15:
        for (char& ch : mx)
          if (ch >= 'a' && ch <= 'z') ch = (char)(ch - 32);
        x.MakeUpper();
        break;
      case 16:
        for (char& ch : mx)
          if (ch >= 'A' && ch <= 'Z') ch = (char)(ch + 32);
        x.MakeLower();
        break;
      case 17:
        s[b] = x.Mid(i, n);
        m[b] = i < nLen ? mx.substr(i, n) : "";
        break;
      case 18:
        s[b] = x.Mid(i);
        m[b] = i < nLen ? mx.substr(i) : "";
        break;
      case 19:
        s[b] = x.Left(n);
        m[b] = mx.substr(0, n);
        break;
      case 20:
        s[b] = x.Right(n);
        m[b] = n >= nLen ? mx : mx.substr(nLen - n);
        break;
      case 21: {
        const size_t p = i < nLen ? mx.find(c, i) : std::string::npos;
        KFUZZ_CHECK(x.Find(c, i) == (p == std::string::npos ? -1 : (int)p));
        const size_t q = mx.find(c);
        KFUZZ_CHECK(x.Find(c) == (q == std::string::npos ? -1 : (int)q));
        break;
      }
      case 22: {
        const std::string strWhat = t.substr(0, n % 3);
        const size_t p = i <= nLen ? mx.find(strWhat, i) : std::string::npos;
        KFUZZ_CHECK(x.Find(strWhat.c_str(), i) == (p == std::string::npos ? -1 : (int)p));
        const size_t q = mx.find_first_of(t);
        KFUZZ_CHECK(x.FindOneOf(t.c_str()) == (q == std::string::npos ? -1 : (int)q));
        break;
      }
      case 23: {
        const size_t p = nLen ? mx.rfind(c, i) : std::string::npos;
        KFUZZ_CHECK(x.ReverseFind(c, i) == (p == std::string::npos ? -1 : (int)p));
        const size_t q = mx.rfind(c);
        KFUZZ_CHECK(x.ReverseFind(c) == (q == std::string::npos ? -1 : (int)q));
        break;
      }
      case 24:
        if (i < nLen) mx[i] = c;
        x.SetAt(i, c);  // past the text: reported, nothing written
        break;
      case 25: {
        // Written through the buffer, then released at a length.
        char* p = x.GetBuffer(n);
        const size_t nRoom = nLen > n ? nLen : n;
        if (nRoom == 0) break;  // the shared empty text: nothing to write
        KFUZZ_CHECK(x.GetAllocLength() > nRoom);
        memset(p, c, nRoom);
        p[nRoom] = 0;
        const unsigned nKeep = i % (unsigned)(nRoom + 1);
        x.ReleaseBuffer(nKeep);
        mx.assign(nKeep, c);
        break;
      }
      case 26: {
        char* p = x.GetBufferSetLength(n);
        if (n > nLen) memset(p + nLen, c, n - nLen);
        mx.resize(n, c);
        break;
      }
      case 27:
        x.Format("%s|%d|%s", t.c_str(), (int)i, (const char*)s[b]);
        mx = t + "|" + std::to_string(i) + "|" + m[b];
        break;
      case 28:
        s[b] = x + t.c_str();
        m[b] = mx + t;
        s[(b + 1) % 3] = c + x;
        m[(b + 1) % 3] = c + mx;
        break;
      default: {
        KFUZZ_CHECK((x == s[b]) == (mx == m[b]) && (x != t.c_str()) == (mx != t));
        KFUZZ_CHECK(Sign(x.Compare(s[b])) == Sign(strcmp(mx.c_str(), m[b].c_str())));
        KFUZZ_CHECK(Sign(x.CompareNoCase(s[b])) == CompareNoCase(mx, m[b]));
        const int nByLength = mx.size() != m[b].size() ? (mx.size() < m[b].size() ? -1 : 1)
                                                       : Sign(strcmp(mx.c_str(), m[b].c_str()));
        KFUZZ_CHECK(Sign(KStrCompareLengthFirst(x, s[b])) == nByLength);
        CKString field = "stale";
        const int nField = (int)(n % 4);
        size_t p = 0;
        bool bHas = true;
        for (int k = 0; k < nField && bHas; ++k) {
          p = mx.find(c, p);
          bHas = p != std::string::npos;
          if (bHas) ++p;
        }
        KFUZZ_CHECK(AfxExtractSubString(field, x, nField, c) == (bHas ? TRUE : FALSE));
        KFUZZ_EQ(KFuzzStr(field), bHas ? mx.substr(p, mx.find(c, p) - p) : "");
        break;
      }
    }
    for (int k = 0; k < 3; ++k) {
      CheckSame(s[k], m[k]);
      // Appending a string to itself doubles it: keep the texts short.
      if (m[k].size() > 2000) {
        s[k] = s[k].Left(1000);
        m[k].resize(1000);
      }
    }
  }
  return 0;
}
