// Shared helpers of the fuzz targets: a failed property prints what differed
// and aborts, which libFuzzer records as a finding with its input.
#ifndef KELVOR_KFUZZ_H
#define KELVOR_KFUZZ_H

#include <cstdio>
#include <cstdlib>
#include <string>

#include <base/tools/KString.h>

[[noreturn]] inline void KFuzzFail(const char* szWhat, const std::string& strGot,
                                   const std::string& strWant, const char* szFile, int nLine) {
  fprintf(stderr, "%s:%d: property failed: %s\n  got:  [%s]\n  want: [%s]\n", szFile, nLine,
          szWhat, strGot.c_str(), strWant.c_str());
  abort();
}

#define KFUZZ_CHECK(cond)                                           \
  do {                                                              \
    if (!(cond)) KFuzzFail(#cond, "", "", __FILE__, __LINE__);      \
  } while (0)

// Two texts that must be equal, shown when they are not.
#define KFUZZ_EQ(got, want)                                                   \
  do {                                                                        \
    const std::string strGot_((got)), strWant_((want));                       \
    if (strGot_ != strWant_) KFuzzFail(#got " == " #want, strGot_, strWant_,  \
                                       __FILE__, __LINE__);                   \
  } while (0)

// A CKString's whole text, embedded zeros included.
inline std::string KFuzzStr(const CKString& s) { return std::string(s.GetString(), s.GetLength()); }

#endif  // KELVOR_KFUZZ_H
