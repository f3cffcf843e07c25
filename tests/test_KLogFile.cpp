#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <base/tools/KLogFile.h>

#include "KTestTemp.h"

namespace {
std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Whether a whole line fits a pattern in which '#' stands for one or two
// digits, '*' for one or more, '@' for four and '^' for eight upper-case hex
// digits; any other character stands for itself.
bool Match(const std::string& s, const char* p) {
  size_t i = 0;
  for (; *p; ++p) {
    if (!strchr("#*@^", *p)) {
      if (i >= s.size() || s[i++] != *p) return false;
      continue;
    }
    const size_t nMin = *p == '@' ? 4 : *p == '^' ? 8 : 1;
    const size_t nMax = *p == '#' ? 2 : *p == '*' ? s.size() : nMin;
    size_t n = 0;
    for (; i < s.size() && n < nMax; ++i, ++n)
      if (!isdigit((unsigned char)s[i]) && !(*p == '^' && s[i] >= 'A' && s[i] <= 'F')) break;
    if (n < nMin) return false;
  }
  return i == s.size();
}

// day/month/year hour:minute.second, unpadded, then ": ".
#define STAMP "#/#/@ #:#.#: "
}  // namespace

TEST(KLogFile, LineLayoutAndAppend) {
  CKTestTempDir dir;
  const std::string path = dir.Path("layout.log");
  CKLogFile log;
  log.SetFileName(path.c_str());
  log.Log("value=%d %s", 42, "ok");
  log.LogNoCR("no newline");
  log.LogNoCRWithThreadID("tid");
  CKLogFile copy(log);  // same file, lock of its own
  copy.Log("%s", "");
  std::vector<std::string> lines = ReadLines(path);
  ASSERT_EQ(2u, lines.size()) << ::testing::PrintToString(lines);
  EXPECT_TRUE(Match(lines[0], STAMP "value=42 ok")) << lines[0];
  EXPECT_TRUE(Match(lines[1], STAMP "no newline" STAMP "(^) tid" STAMP)) << lines[1];
  EXPECT_STREQ(path.c_str(), copy.GetFileName());

  // An unopenable file is a silent no-op.
  CKLogFile bad;
  bad.SetFileName(dir.Path("no-such-dir/x.log").c_str());
  bad.Log("lost");
  CKLogFile unnamed;
  unnamed.Log("lost too");
}
