#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <base/tools/KLogFile.h>

#include "KTestTemp.h"

namespace {
// The log is a text file: lines end in CR LF on Windows, LF elsewhere.
#if defined(_WIN32)
const char* const kEol = "\r\n";
#else
const char* const kEol = "\n";
#endif

// The file's lines; a line end other than the system's is kept in the line.
std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::string> lines;
  for (size_t i = 0, n; i < text.size(); i = n + strlen(kEol)) {
    n = text.find(kEol, i);
    if (n == std::string::npos) n = text.size();
    lines.push_back(text.substr(i, n - i));
  }
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

  // Zero bytes from the caller's conversions are written, as vfprintf does.
  CKLogFile zero;
  const std::string zeroPath = dir.Path("zero.log");
  zero.SetFileName(zeroPath.c_str());
  zero.Log("a%cb", 0);
  lines = ReadLines(zeroPath);
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(std::string("a\0b", 3), lines[0].substr(lines[0].size() - 3));

  // An unopenable file is a silent no-op.
  CKLogFile bad;
  bad.SetFileName(dir.Path("no-such-dir/x.log").c_str());
  bad.Log("lost");
  CKLogFile unnamed;
  unnamed.Log("lost too");
}
