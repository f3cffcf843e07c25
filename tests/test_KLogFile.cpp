#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KLogFile.h>

namespace {
std::vector<std::string> ReadLines(const std::string& path, std::string* pRaw = nullptr) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  if (pRaw) *pRaw = ss.str();
  std::vector<std::string> lines;
  std::string line;
  std::istringstream is(ss.str());
  while (std::getline(is, line)) lines.push_back(line);
  return lines;
}
}  // namespace

TEST(KLogFile, LineLayoutAndAppend) {
  std::string path = testing::TempDir() + "klogfile_layout.log";
  std::remove(path.c_str());
  CKLogFile log;
  log.SetFileName(path.c_str());
  log.Log("value=%d %s", 42, "ok");
  log.LogNoCR("no newline");
  log.LogNoCRWithThreadID("tid");
  CKLogFile copy(log);  // same file, lock of its own
  copy.Log("%s", "");
  std::string raw;
  std::vector<std::string> lines = ReadLines(path, &raw);
  ASSERT_EQ(2u, lines.size()) << raw;
  // day/month/year hour:minute.second, unpadded, then ": ".
  const std::string stamp = "\\d{1,2}/\\d{1,2}/\\d{4} \\d{1,2}:\\d{1,2}\\.\\d{1,2}: ";
  EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "value=42 ok"))) << lines[0];
  EXPECT_TRUE(std::regex_match(
      lines[1], std::regex(stamp + "no newline" + stamp + "\\([0-9A-F]{8}\\) tid" + stamp)))
      << lines[1];
  std::remove(path.c_str());

  // An unopenable file is a silent no-op.
  CKLogFile bad;
  bad.SetFileName("/nonexistent-dir/x.log");
  bad.Log("lost");
  CKLogFile unnamed;
  unnamed.Log("lost too");
}

TEST(KLogFile, ConcurrentWritersKeepLinesWhole) {
  std::string path = testing::TempDir() + "klogfile_threads.log";
  std::remove(path.c_str());
  CKLogFile log;
  log.SetFileName(path.c_str());
  const int nThreads = 4, nLines = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < nThreads; ++t)
    threads.emplace_back([&log, t] {
      for (int i = 0; i < nLines; ++i) log.Log("thread %d line %d %s", t, i, "payload-payload");
    });
  for (auto& th : threads) th.join();
  std::vector<std::string> lines = ReadLines(path);
  ASSERT_EQ((size_t)(nThreads * nLines), lines.size());
  std::regex re(".*: thread \\d line \\d+ payload-payload");
  for (const auto& l : lines) ASSERT_TRUE(std::regex_match(l, re)) << l;
  std::remove(path.c_str());
}
