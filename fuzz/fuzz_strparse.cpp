// Tokenisers: KStrParse (field splitting and run-collapsing), KStrParseNth,
// KStrParseToSeparator, KStrTextToList, KStrTextToWords, KStrParseKeyValue.
// Property: each gives what its rule, written out here on std::string, gives;
// the counting forms (no list) count the same tokens.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <base/classes/list/KList.h>
#include <base/tools/KStr.h>

#include "KFuzz.h"

namespace {

typedef std::vector<std::string> Strings;

std::string Show(const Strings& v) {
  std::string s = std::to_string(v.size()) + ":";
  for (const std::string& x : v) s += "[" + x + "]";
  return s;
}

Strings Items(const CKList& l) {
  Strings v;
  for (int i = 0; i < l.Count(); ++i) v.push_back(KFuzzStr(l.Get(i)));
  return v;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string Trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && IsBlank(s[b])) ++b;
  while (e > b && IsBlank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

std::string Upper(std::string s) {
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = (char)(c - 'a' + 'A');
  return s;
}

Strings Fields(const std::string& s, char sep, int nFlags) {
  Strings v;
  if (s.empty()) return v;
  size_t nStart = 0;
  for (size_t i = 0; sep && i < s.size(); ++i)
    if (s[i] == sep) v.push_back(s.substr(nStart, i - nStart)), nStart = i + 1;
  v.push_back(s.substr(nStart));
  for (std::string& x : v) {
    if (nFlags & KSTR_PARSE_TRIM) x = Trim(x);
    if (nFlags & KSTR_PARSE_UPCASE) x = Upper(x);
  }
  return v;
}

// Runs of non-separators; a text that starts with a separator has none.
Strings Tokens(const std::string& s, const std::string& seps) {
  Strings v;
  auto isSep = [&](char c) { return seps.find(c) != std::string::npos; };
  size_t i = 0;
  while (i < s.size() && !isSep(s[i])) {
    size_t j = i;
    while (j < s.size() && !isSep(s[j])) ++j;
    v.push_back(s.substr(i, j - i));
    while (j < s.size() && isSep(s[j])) ++j;
    i = j;
  }
  return v;
}

Strings Lines(const std::string& s) {
  Strings v;
  if (s.empty()) return v;
  size_t nStart = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\r' && s[i] != '\n') continue;
    v.push_back(s.substr(nStart, i - nStart));
    if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') ++i;
    nStart = i + 1;
  }
  v.push_back(s.substr(nStart));
  return v;
}

Strings Words(const std::string& s) {
  Strings v;
  size_t i = 0;
  for (;;) {
    while (i < s.size() && IsBlank(s[i])) ++i;
    if (i == s.size()) return v;
    size_t j = i;
    if (s[i] == '"') {
      j = s.find('"', i + 1);
      if (j == std::string::npos) j = s.size();
      v.push_back(s.substr(i + 1, j - i - 1));
      i = j < s.size() ? j + 1 : j;
    } else {
      while (j < s.size() && !IsBlank(s[j])) ++j;
      v.push_back(s.substr(i, j - i));
      i = j;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  // A separator character, flags and token number, a short separator set,
  // then the text.
  const char sep = (char)data[0];
  const int nFlags = data[1] & 3, nNth = (data[1] >> 2) % 12 - 1;
  const size_t nSeps = data[2] % 5;
  if (size < 3 + nSeps) return 0;
  const std::string strSeps = std::string((const char*)data + 3, nSeps).c_str();
  const std::string strRaw((const char*)data + 3 + nSeps, size - 3 - nSeps);
  const char* sz = strRaw.c_str();
  const std::string s = sz;  // what the functions see: the text ends at a zero

  CKList l;
  l.Add("stale");  // every splitter empties the list first
  const Strings fields = Fields(s, sep, nFlags);
  KFUZZ_CHECK(KStrParse(&l, sz, sep, nFlags) == (int)fields.size());
  KFUZZ_EQ(Show(Items(l)), Show(fields));
  KFUZZ_CHECK(KStrParse(nullptr, sz, sep, nFlags) == (int)fields.size());

  const Strings tokens = s.empty() ? Strings() : Tokens(s, strSeps);
  KFUZZ_CHECK(KStrParse(&l, sz, strSeps.c_str()) == (int)tokens.size());
  KFUZZ_EQ(Show(Items(l)), Show(tokens));
  KFUZZ_CHECK(KStrParse(nullptr, sz, strSeps.c_str()) == (int)tokens.size());
  const std::string strNth = nNth >= 0 && nNth < (int)tokens.size() ? tokens[(size_t)nNth] : "";
  KFUZZ_EQ(KFuzzStr(KStrParseNth(sz, strSeps.c_str(), nNth)), strNth);
  char buf[8];
  KFUZZ_EQ(KStrParseNth(buf, (int)sizeof(buf), sz, strSeps.c_str(), nNth), strNth.substr(0, 7));
  if (sep) {
    const Strings one = s.empty() ? Strings() : Tokens(s, std::string(1, sep));
    const std::string strOne = nNth >= 0 && nNth < (int)one.size() ? one[(size_t)nNth] : "";
    KFUZZ_EQ(KFuzzStr(KStrParseNth(sz, sep, nNth)), strOne);
    KFUZZ_EQ(KStrParseNth(buf, 3, sz, sep, nNth), strOne.substr(0, 2));
  }

  const char* rest = nullptr;
  int bFound = -1;
  const CKString strHead = KStrParseToSeparator(sz, sep, rest, &bFound);
  const size_t nAt = sep ? s.find(sep) : std::string::npos;
  KFUZZ_CHECK(bFound == (nAt != std::string::npos));
  KFUZZ_EQ(KFuzzStr(strHead), sep ? s.substr(0, nAt) : "");
  KFUZZ_EQ(rest, nAt == std::string::npos ? "" : s.substr(nAt + 1));
  const CKString strHead2 = KStrParseToSeparator(sz, strSeps.c_str(), rest, &bFound);
  const size_t nAt2 = strSeps.empty() ? std::string::npos : s.find(strSeps);
  KFUZZ_CHECK(bFound == (nAt2 != std::string::npos));
  KFUZZ_EQ(KFuzzStr(strHead2), strSeps.empty() ? "" : s.substr(0, nAt2));
  KFUZZ_EQ(rest, nAt2 == std::string::npos ? "" : s.substr(nAt2 + strSeps.size()));

  const Strings lines = Lines(s);
  KFUZZ_CHECK(KStrTextToList(&l, sz) == (int)lines.size());
  KFUZZ_EQ(Show(Items(l)), Show(lines));
  const Strings words = Words(s);
  KFUZZ_CHECK(KStrTextToWords(&l, sz) == (int)words.size());
  KFUZZ_EQ(Show(Items(l)), Show(words));

  CKString strKey = "k", strValue = "v";
  const int bPair = KStrParseKeyValue(sz, strKey, strValue, sep);
  if (nAt == std::string::npos) {
    KFUZZ_CHECK(bPair == 0 && strValue.GetLength() == 0);
    KFUZZ_EQ(KFuzzStr(strKey), Trim(s));
  } else {
    std::string strV = Trim(s.substr(nAt + 1));
    if (strV.size() >= 2 && strV.front() == '"' && strV.back() == '"')
      strV = strV.substr(1, strV.size() - 2);
    KFUZZ_EQ(KFuzzStr(strKey), Trim(s.substr(0, nAt)));
    KFUZZ_EQ(KFuzzStr(strValue), strV);
    KFUZZ_CHECK(bPair == !Trim(s.substr(0, nAt)).empty());
  }
  return 0;
}
