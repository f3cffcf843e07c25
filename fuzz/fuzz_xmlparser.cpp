// The XML event parser, read through the tree builder. Properties: a parse
// ends with OnEnd exactly once, after OnStart, with balanced tags when it
// succeeds and an error text naming a line and column when it fails; with
// tag upper-casing on and off the same document gives the same outcome; a
// document that parses, written by the tree and parsed again, gives the
// same first element (when its texts can be written unescaped).
#include <cstddef>
#include <cstdint>
#include <string>

#include <base/tools/KXml.h>

#include "KFuzz.h"
#include "KFuzzXml.h"

namespace {

class CCounting : public CKXmlParserDOM {
public:
  int nStart = 0, nEnd = 0, nOpen = 0, nErrors = 0;
  bool bBalanced = true;
  int OnStart() override {
    ++nStart;
    return CKXmlParserDOM::OnStart();
  }
  int OnEnd() override {
    ++nEnd;
    return CKXmlParserDOM::OnEnd();
  }
  int OnStartTag(const char* n, CKListParamValue* a) override {
    ++nOpen;
    return CKXmlParserDOM::OnStartTag(n, a);
  }
  int OnEndTag(const char* n) override {
    if (--nOpen < 0) bBalanced = false;
    return CKXmlParserDOM::OnEndTag(n);
  }
  int OnError() override {
    ++nErrors;
    return CKXmlParserDOM::OnError();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  CCounting p;
  const int bOk = p.Parse((const char*)data, (unsigned)size);
  KFUZZ_CHECK(p.nStart == 1 && p.nEnd == 1);
  if (bOk) {
    KFUZZ_CHECK(p.nErrors == 0 && p.nOpen == 0 && p.bBalanced);
    KFUZZ_CHECK(p.GetErrorText().GetLength() == 0);
  } else {
    KFUZZ_CHECK(p.nErrors == 1 && p.GetErrorCode() != KXML_OK);
    KFUZZ_CHECK(strncmp(p.GetErrorText(), "line ", 5) == 0 && p.GetErrorLine() >= 1 &&
                p.GetErrorColumn() >= 1);
  }
  CKXmlParserDOM lower;
  lower.SetTagUpCase(FALSE);
  KFUZZ_CHECK(lower.Parse((const char*)data, (unsigned)size) == bOk);
  KFUZZ_CHECK(lower.GetErrorCode() == p.GetErrorCode());
  if (!bOk) return 0;

  CKXmlTree* t = p.GetTree();
  if (!t->GetChildrenCount() || !KFuzzWritable(t->GetChildAt(0))) return 0;
  const CKString strText = p.GetXmlString();
  CKXmlParserDOM again;
  if (!again.Parse(strText)) KFuzzFail("re-parse", KFuzzStr(again.GetErrorText()), KFuzzStr(strText), __FILE__, __LINE__);
  KFUZZ_EQ(KFuzzTreeDump(again.GetTree()->GetChildAt(0)), KFuzzTreeDump(t->GetChildAt(0)));
  KFUZZ_EQ(KFuzzStr(again.GetXmlString()), KFuzzStr(strText));
  return 0;
}
