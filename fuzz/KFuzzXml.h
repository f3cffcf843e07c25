// Helpers of the XML fuzz targets: a tree as one comparable text, and
// whether the tree's unescaped rendering can read back to the same tree.
#ifndef KELVOR_KFUZZXML_H
#define KELVOR_KFUZZXML_H

#include <cstring>
#include <string>
#include <vector>

#include <base/tools/KXml.h>

#include "KFuzz.h"

// Names, attributes and values of the subtree of n, depth first.
inline std::string KFuzzTreeDump(const CKXmlTreeNode* n) {
  std::string s;
  std::vector<std::pair<const CKXmlTreeNode*, int>> stack{{n, 0}};
  while (!stack.empty()) {
    auto& f = stack.back();
    if (f.second == 0) {
      s += "<" + KFuzzStr(f.first->GetName());
      for (int i = 0; i < f.first->GetParamCount(); ++i)
        s += "|" + KFuzzStr(f.first->GetParamName(i)) + "=" + KFuzzStr(f.first->GetParamValue(i));
      s += ">" + KFuzzStr(f.first->GetValue());
    }
    if (f.second < f.first->GetChildrenCount()) {
      const CKXmlTreeNode* c = f.first->GetChildAt(f.second++);
      stack.push_back({c, 0});
      continue;
    }
    s += "</>";
    stack.pop_back();
  }
  return s;
}

// An XML name as the parser reads it back ('?' stands for a character the
// 8-bit text cannot hold and is not a name character).
inline bool KFuzzIsName(const char* sz) {
  for (const char* p = sz; *p; ++p) {
    const unsigned char c = (unsigned char)*p;
    const bool bStart = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c >= 0x80;
    if (!bStart && (p == sz || !((c >= '0' && c <= '9') || c == '-' || c == '.'))) return false;
  }
  return *sz != 0;
}

// The tree writes texts as they stand, so only texts without markup
// characters, CR (a reference's), "]]>" and blank-only values read back
// unchanged; attribute values also lose tabs and line feeds.
inline bool KFuzzWritable(const CKXmlTreeNode* n) {
  std::vector<const CKXmlTreeNode*> stack{n};
  while (!stack.empty()) {
    const CKXmlTreeNode* p = stack.back();
    stack.pop_back();
    const CKString v = p->GetValue();
    if (!KFuzzIsName(p->GetName())) return false;
    if (strpbrk(v, "<&\r") || strstr(v, "]]>") || v.GetLength() != strlen(v)) return false;
    if (v.GetLength() && strspn(v, " \t\n") == v.GetLength()) return false;
    for (int i = 0; i < p->GetParamCount(); ++i)
      if (strpbrk(p->GetParamValue(i), "<&\"\r\n\t") || !KFuzzIsName(p->GetParamName(i))) return false;
    for (int i = 0; i < p->GetChildrenCount(); ++i) stack.push_back(p->GetChildAt(i));
  }
  return true;
}

#endif  // KELVOR_KFUZZXML_H
