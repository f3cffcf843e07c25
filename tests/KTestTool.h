// Running a peer tool (md5sum, python3...) from a test: its first output line,
// or nothing when the tool is missing, so that the test can skip with a reason.
// Peers run on the POSIX build only; under Wine the callers skip.
#ifndef KELVOR_KTESTTOOL_H
#define KELVOR_KTESTTOOL_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

// Whether a command named szTool can be found on PATH.
inline bool KTestHasTool(const std::string& strTool) {
#if defined(_WIN32)
  (void)strTool;
  return false;
#else
  const std::string strCmd = "command -v " + strTool + " >/dev/null 2>&1";
  return std::system(strCmd.c_str()) == 0;
#endif
}

// The command's standard output, trailing line end removed.
inline std::string KTestRun(const std::string& strCmd) {
  std::string strOut;
#if !defined(_WIN32)
  FILE* f = popen(strCmd.c_str(), "r");
  if (!f) return strOut;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), f)) > 0) strOut.append(buf, n);
  pclose(f);
  while (!strOut.empty() && (strOut.back() == '\n' || strOut.back() == '\r')) strOut.pop_back();
#else
  (void)strCmd;
#endif
  return strOut;
}

// Writes bytes to a file, replacing it.
inline bool KTestWriteFile(const std::string& strPath, const std::vector<unsigned char>& v) {
  std::ofstream f(strPath, std::ios::binary | std::ios::trunc);
  f.write((const char*)v.data(), (std::streamsize)v.size());
  return (bool)f;
}

// n pseudo-random bytes, the same for the same seed.
inline std::vector<unsigned char> KTestBytes(size_t n, unsigned nSeed) {
  std::vector<unsigned char> v(n);
  unsigned x = nSeed * 2654435761u + 1;
  for (size_t i = 0; i < n; ++i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    v[i] = (unsigned char)(x >> 3);
  }
  return v;
}

#endif  // KELVOR_KTESTTOOL_H
