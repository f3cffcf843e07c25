// Name/value tables: FromString (separator characters, separator texts, a
// value decoder) and Load. Properties: FromString follows its rule (written
// out here); with separator characters, ToString of the table reads back to
// the same table; the decoder variant gives the plain variant's table with
// decoded values; Load reads a
// file as the line rules say (breaks at CR LF, LF or CR, empty lines skipped,
// each line cut at its first '='), and Save then Load gives the table back.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <base/tools/KListParamValue.h>
#include <base/tools/KStr.h>

#include "KFuzz.h"

namespace {

typedef std::vector<std::pair<std::string, std::string>> Pairs;

Pairs PairsOf(const CKListParamValue& l) {
  Pairs v;
  for (int i = 0; i < l.Count(); ++i)
    v.emplace_back(KFuzzStr(l.GetParam(i)), KFuzzStr(l.GetValue(i)));
  return v;
}

std::string Show(const Pairs& v) {
  std::string s;
  for (const auto& p : v) s += "(" + p.first + "|" + p.second + ")";
  return s;
}

// The line rules of Load, written out on std::string.
Pairs LoadModel(const std::string& strFile) {
  const std::string s = strFile.substr(0, strFile.find('\0'));  // the text ends at a zero
  Pairs v;
  std::vector<std::string> lines;
  size_t nStart = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\r' && s[i] != '\n') continue;
    lines.push_back(s.substr(nStart, i - nStart));
    if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') ++i;
    nStart = i + 1;
  }
  lines.push_back(s.substr(nStart));
  for (const std::string& line : lines) {
    if (line.empty()) continue;
    size_t nEq = line.find('=');
    if (nEq == std::string::npos)
      v.emplace_back(line, "");
    else
      v.emplace_back(line.substr(0, nEq), line.substr(nEq + 1));
  }
  return v;
}

// FromString's rule written out: the name runs to the first separator text
// (the whole rest when there is none), the value to the first pair
// separator; an empty name ends the table, and so does an empty separator.
Pairs FromStringModel(const std::string& s, const std::string& strEqual,
                      const std::string& strSep) {
  Pairs v;
  for (size_t p = 0; p < s.size() && !strEqual.empty();) {
    const size_t e = s.find(strEqual, p);
    const std::string strName = s.substr(p, e == std::string::npos ? e : e - p);
    if (strName.empty()) break;
    if (e == std::string::npos || strSep.empty()) {
      v.emplace_back(strName, "");
      break;
    }
    const size_t q = e + strEqual.size(), f = s.find(strSep, q);
    v.emplace_back(strName, s.substr(q, f == std::string::npos ? f : f - q));
    if (f == std::string::npos) break;
    p = f + strSep.size();
  }
  return v;
}

// A scratch directory of this process, removed at exit.
std::string g_strDir;
void RemoveDir() {
  std::remove((g_strDir + "/in.txt").c_str());
  std::remove((g_strDir + "/out.txt").c_str());
  rmdir(g_strDir.c_str());
}

const std::string& ScratchDir() {
  if (g_strDir.empty()) {
    // In memory where the system offers it: a file is written for every input.
    char szShm[] = "/dev/shm/kelvor_fuzz_XXXXXX", szTmp[] = "/tmp/kelvor_fuzz_XXXXXX";
    char* szTemplate = mkdtemp(szShm) ? szShm : mkdtemp(szTmp);
    if (!szTemplate) abort();
    g_strDir = szTemplate;
    atexit(RemoveDir);
  }
  return g_strDir;
}

void CheckText(const std::string& strText, char cEqual, char cSep, const std::string& strEqual,
               const std::string& strSep) {
  const char* sz = strText.c_str();
  const std::string s = sz;  // the text ends at a zero
  CKListParamValue l;
  l.FromString(sz, cEqual, cSep);
  const Pairs pairs = PairsOf(l);
  KFUZZ_EQ(Show(pairs), Show(FromStringModel(s, std::string(cEqual ? 1 : 0, cEqual),
                                              std::string(cSep ? 1 : 0, cSep))));
  // With separator characters the text form reads back to the same table (a
  // name never holds cEqual, a value never cSep).
  CKListParamValue back;
  back.FromString(l.ToString(cEqual, cSep), cEqual, cSep);
  KFUZZ_EQ(Show(PairsOf(back)), Show(pairs));

  // Separator texts can overlap what surrounds them, so only the rule holds.
  l.FromString(sz, strEqual.c_str(), strSep.c_str());
  const Pairs pairs2 = PairsOf(l);
  KFUZZ_EQ(Show(pairs2), Show(FromStringModel(s, strEqual, strSep)));

  CKListParamValue decoded;
  decoded.FromString(sz, strEqual.c_str(), strSep.c_str(), KHttpDecode);
  Pairs want = pairs2;
  for (auto& p : want) p.second = KFuzzStr(KHttpDecode(p.second.c_str()));
  KFUZZ_EQ(Show(PairsOf(decoded)), Show(want));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  // Two separator characters, then two short separator texts, then the text.
  const char cEqual = (char)data[0], cSep = (char)data[1];
  const size_t nEq = data[2] % 4, nSep = data[3] % 4;
  data += 4;
  size -= 4;
  if (size < nEq + nSep) return 0;
  const std::string strEqual((const char*)data, nEq), strSep((const char*)data + nEq, nSep);
  const std::string strText((const char*)data + nEq + nSep, size - nEq - nSep);
  CheckText(strText, cEqual, cSep, strEqual.c_str(), strSep.c_str());

  // The whole input is also a file to load.
  const std::string strIn = ScratchDir() + "/in.txt", strOut = ScratchDir() + "/out.txt";
  const std::string strFile((const char*)data - 4, size + 4);
  FILE* f = fopen(strIn.c_str(), "wb");
  if (!f) abort();
  fwrite(strFile.data(), 1, strFile.size(), f);
  fclose(f);
  CKListParamValue l;
  l.AddValue("left", "over");  // Load replaces what was there
  KFUZZ_CHECK(l.Load(strIn.c_str()) == TRUE);
  const Pairs loaded = PairsOf(l);
  KFUZZ_EQ(Show(loaded), Show(LoadModel(strFile)));
  KFUZZ_CHECK(l.Save(strOut.c_str()) == TRUE);
  CKListParamValue again;
  KFUZZ_CHECK(again.Load(strOut.c_str()) == TRUE);
  KFUZZ_EQ(Show(PairsOf(again)), Show(loaded));
  return 0;
}
