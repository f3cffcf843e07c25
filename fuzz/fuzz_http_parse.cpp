// Request lines (CKHttpRequest::Parse): the type, URL, trace text and result
// follow the branches written out here; the parameters are what the
// name/value table reads from the decoded rest, so they are only run.
#include <cstddef>
#include <cstdint>
#include <string>

#include <base/tools/KHttpRequest.h>
#include <base/tools/KStr.h>

#include "KFuzz.h"

namespace {

bool BeginsNoCase(const std::string& s, const char* szPrefix) {
  for (size_t i = 0; szPrefix[i]; ++i) {
    if (i >= s.size()) return false;
    char c = s[i];
    if (c >= 'a' && c <= 'z') c = (char)(c - 'a' + 'A');
    if (c != szPrefix[i]) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strIn((const char*)data, size);
  const std::string strLine = strIn.substr(0, strIn.find('\0'));
  CKHttpRequest r(strLine.c_str());
  const int rc = r.Parse();
  if (strLine.empty()) {
    KFUZZ_CHECK(rc == FALSE);
    return 0;
  }
  std::string strType = BeginsNoCase(strLine, "GET") ? "GET" : BeginsNoCase(strLine, "POST") ? "POST" : "";
  if (strType.empty()) {
    KFUZZ_CHECK(rc == FALSE);
    KFUZZ_EQ(KFuzzStr(r.Error()), "Unknown request type");
    return 0;
  }
  KFUZZ_CHECK(rc == TRUE);
  KFUZZ_EQ(KFuzzStr(r.Type()), strType);
  const std::string strRest = strType.size() + 1 < strLine.size() ? strLine.substr(strType.size() + 1) : "";
  const size_t q = strRest.find('?'), sp = strRest.find(' ');
  if (q == std::string::npos && sp == std::string::npos) {
    KFUZZ_EQ(KFuzzStr(r.Url()), strRest);
    KFUZZ_EQ(KFuzzStr(r.Error()), "DEBUG: after strTmp.Find()");
  } else if (sp == std::string::npos) {
    KFUZZ_EQ(KFuzzStr(r.Url()), strRest.substr(0, q));
    KFUZZ_EQ(KFuzzStr(r.Error()), "DEBUG: after strTmp.Find() 2");
  } else {
    KFUZZ_EQ(KFuzzStr(r.Url()), strRest.substr(0, sp));
    KFUZZ_EQ(KFuzzStr(r.Error()),
             "DEBUG: after m_Params.FromString() " + std::to_string(q == std::string::npos ? -1 : (int)q));
  }
  // A copy parses to the same fields.
  CKHttpRequest copy(r);
  KFUZZ_EQ(KFuzzStr(copy.Url()), KFuzzStr(r.Url()));
  KFUZZ_EQ(KFuzzStr(copy.m_Params.ToString('=', '?')), KFuzzStr(r.m_Params.ToString('=', '?')));
  return 0;
}
