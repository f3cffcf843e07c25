// Header blocks (CKHttpRequest::ParseHeaders): the input's lines (at LF)
// give exactly the pairs the rule written out here gives - cut at the first
// ": ", both sides non-empty - and the cookie table holds what the last
// "Cookie" line names.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <base/classes/list/KList.h>
#include <base/tools/KHttpRequest.h>
#include <base/tools/KStr.h>

#include "KFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strIn((const char*)data, size);
  const std::string strText = strIn.substr(0, strIn.find('\0'));
  CKList lines;
  std::vector<std::string> model;
  std::string strCookie;
  bool bCookie = false;
  size_t nStart = 0;
  for (;;) {
    const size_t e = strText.find('\n', nStart);
    const std::string strLine = strText.substr(nStart, e == std::string::npos ? e : e - nStart);
    lines.Add(strLine.c_str());
    const size_t c = strLine.find(": ");
    if (c != std::string::npos && c > 0 && c + 2 < strLine.size()) {
      const std::string strName = strLine.substr(0, c);
      model.push_back(strName + "=" + strLine.substr(c + 2));
      if (strName.size() == 6 && KStrICmp(strName.c_str(), "Cookie") == 0) {
        bCookie = true;
        strCookie = strLine.substr(c + 2);
      }
    }
    if (e == std::string::npos) break;
    nStart = e + 1;
  }
  CKHttpRequest r("GET /");
  KFUZZ_CHECK(r.ParseHeaders(lines) == TRUE);
  std::string strGot, strWant;
  for (int i = 0; i < r.Headers().Count(); ++i)
    strGot += KFuzzStr(r.Headers().GetParam(i)) + "=" + KFuzzStr(r.Headers().GetValue(i)) + "\n";
  for (const std::string& s : model) strWant += s + "\n";
  KFUZZ_EQ(strGot, strWant);
  if (bCookie) {
    CKListParamValue cookies;
    cookies.FromString(strCookie.c_str(), "=", "; ");
    KFUZZ_EQ(KFuzzStr(r.Cookies().ToString("=", "; ")), KFuzzStr(cookies.ToString("=", "; ")));
  }
  return 0;
}
