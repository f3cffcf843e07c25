// The tree built by CKXmlParserDOM and its cursor. The first line of the
// input is a path, the rest the document. Properties: SetNewCurrentNode
// succeeds exactly when every element of the path names a child by the
// upper-case rule (modelled here on the dump), and stops on the last node it
// reached; a deep copy renders and describes like its source, cursor
// included; Find finds every descendant; removing every child of the root
// leaves an empty tree.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <base/classes/list/KList.h>
#include <base/tools/KXml.h>

#include "KFuzz.h"
#include "KFuzzXml.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  const std::string in((const char*)data, size);
  const size_t nl = in.find('\n');
  const std::string path = nl == std::string::npos ? std::string() : in.substr(0, nl);
  const std::string doc = nl == std::string::npos ? in : in.substr(nl + 1);
  CKXmlParserDOM dom;
  dom.SetTagUpCase(size & 1);
  dom.Parse(doc.data(), (unsigned)doc.size());
  CKXmlTree* t = dom.GetTree();
  KFUZZ_CHECK(t->GetCurrentNode() == t);

  // The walk, modelled: "ROOT" first starts at the root, each element must
  // match a child's stored name once upper-cased.
  CKList parts;
  parts.FromString(path.c_str(), '/');
  const CKXmlTreeNode* pWant = t;
  bool bWant = true;
  for (int k = 0; k < parts.Count() && bWant; ++k) {
    if (k == 0 && parts.Get(0) == "ROOT") continue;
    CKString strUp = parts.Get(k);
    strUp.MakeUpper();
    const CKXmlTreeNode* pNext = nullptr;
    for (int i = 0; i < pWant->GetChildrenCount() && !pNext; ++i)
      if (pWant->GetChildAt(i)->GetName() == strUp) pNext = pWant->GetChildAt(i);
    if (pNext) pWant = pNext; else bWant = false;
  }
  KFUZZ_CHECK(t->SetNewCurrentNode(path.c_str()) == (bWant ? 1 : 0));
  KFUZZ_CHECK(t->GetCurrentNode() == pWant);
  KFUZZ_CHECK(pWant == t || t->Find(const_cast<CKXmlTreeNode*>(pWant), TRUE));

  {
    CKXmlTree copy(*t);
    KFUZZ_EQ(KFuzzStr(copy.GetXmlString()), KFuzzStr(t->GetXmlString()));
    KFUZZ_EQ(KFuzzStr(copy.GetStringDescription("-")), KFuzzStr(t->GetStringDescription("-")));
    copy.SetRootAsCurrentNode();
    t->SetRootAsCurrentNode();
    KFUZZ_EQ(KFuzzTreeDump(&copy), KFuzzTreeDump(t));
  }
  const CKString strDoc = dom.GetXmlString();
  KFUZZ_CHECK(strncmp(strDoc, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n", 45) == 0);
  t->SetRootAsCurrentNode();
  while (t->GetChildrenCount()) KFUZZ_CHECK(t->RemoveChild(0));
  KFUZZ_EQ(KFuzzStr(t->GetXmlString()), std::string());
  return 0;
}
