// kelvor xml show / check: object XML documents (as CKObj::ToXml writes them)
// as an indented tree, and a well-formedness check with the error's place.
#include <iostream>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "Tool.h"

namespace ktool {
namespace {

const char* const kMember = "XMLOBJMEMBER_";
const int kTypeLink = -100;

std::string Decoded(const CKString& s) {
  const CKString d = CKObj::XmlDecode(s.GetString());
  return Latin1ToUtf8(d.GetString(), d.GetLength());
}

std::string Member(const CKXmlTreeNode* pEntry, const char* szName) {
  const CKXmlTreeNode* p = pEntry->GetChild((std::string(kMember) + szName).c_str());
  return p ? Decoded(p->GetValue()) : std::string();
}

// Parses a file; on failure throws with the parser's line and column.
void Parse(CKXmlParserDOM& parser, const std::string& strFile) {
  parser.SetTagUpCase(FALSE);
  const std::string strText = ReadAll(strFile);
  if (strText.empty()) Fail(strFile, "empty document");
  if (!parser.Parse(strText.data(), (unsigned)strText.size())) {
    std::string s = std::to_string(parser.GetErrorLine()) + ":" + std::to_string(parser.GetErrorColumn()) + ": ";
    std::string strWhy = parser.GetErrorText().GetLength() ? parser.GetErrorText().GetString() : "not well-formed";
    if (strWhy.compare(0, 5, "line ") == 0 && strWhy.find(": ") != std::string::npos)
      strWhy.erase(0, strWhy.find(": ") + 2);  // the place is already in front
    s += strWhy;
    TakeLibraryMessage();
    throw Failure(strFile + ":" + s);
  }
}

void CollectKeys(const CKXmlTreeNode* pEntry, std::map<std::string, std::string>& keys) {
  keys[Member(pEntry, "HID")] = Member(pEntry, "NAME");
  const CKXmlTreeNode* pChildren = pEntry->GetChild("XMLOBJ_CHILDREN");
  for (int i = 0; pChildren && i < pChildren->GetChildrenCount(); ++i)
    CollectKeys(pChildren->GetChildAt(i), keys);
}

void PrintEntry(const CKXmlTreeNode* pEntry, const std::map<std::string, std::string>& keys, int nDepth,
                const std::string& strFile) {
  if (nDepth > 1000) Fail(strFile, "objects nested too deeply");
  if (pEntry->GetName().Compare("XMLOBJ_ENTRY") != 0)
    Fail(strFile, std::string("unexpected element ") + pEntry->GetName().GetString() + " among the objects");
  const std::string strPad(2 * (size_t)nDepth, ' ');
  const std::string strType = Member(pEntry, "TYPE");
  std::cout << strPad << "[" << strType << "] \"" << Member(pEntry, "NAME") << "\" " << Member(pEntry, "HID");
  const std::string strDisplay = Member(pEntry, "DISPLAYNAME");
  if (!strDisplay.empty()) std::cout << " display=\"" << strDisplay << "\"";
  std::cout << "\n";
  const CKXmlTreeNode* pProps = pEntry->GetChild("XMLOBJ_PROPS");
  std::string strLinkedKey, strLinkedName;
  for (int i = 0; pProps && i < pProps->GetChildrenCount(); ++i) {
    const CKXmlTreeNode* p = pProps->GetChildAt(i);
    const std::string strName = Decoded(p->GetName()), strValue = Decoded(p->GetValue());
    if (strName == "LINKEDKEY") strLinkedKey = strValue;
    if (strName == "LINKEDNAME") strLinkedName = strValue;
    std::cout << strPad << "  . " << strName << " = \"" << strValue << "\"\n";
  }
  if (std::atoi(strType.c_str()) == kTypeLink) {
    const auto it = keys.find(strLinkedKey);
    std::cout << strPad << "  -> " << strLinkedKey << " \"" << strLinkedName << "\" "
              << (it != keys.end() && !strLinkedKey.empty() ? "(resolved in this document)" : "(broken: target not in this document)")
              << "\n";
  }
  const CKXmlTreeNode* pChildren = pEntry->GetChild("XMLOBJ_CHILDREN");
  for (int i = 0; pChildren && i < pChildren->GetChildrenCount(); ++i)
    PrintEntry(pChildren->GetChildAt(i), keys, nDepth + 1, strFile);
}

void ShowXml(const std::string& strFile) {
  CKXmlParserDOM parser;
  Parse(parser, strFile);
  CKXmlTree* pTree = parser.GetTree();
  const CKXmlTreeNode* pRoot = pTree->GetChild("XMLOBJ_ROOT");
  if (!pRoot) Fail(strFile, "not an object document (no XMLOBJ_ROOT element)");
  if (!pRoot->GetChildrenCount()) Fail(strFile, "the document holds no object");
  std::map<std::string, std::string> keys;
  CollectKeys(pRoot->GetChildAt(0), keys);
  PrintEntry(pRoot->GetChildAt(0), keys, 0, strFile);
}

}  // namespace

void AddXmlCommands(CLI::App& app) {
  CLI::App* xml = app.add_subcommand("xml", "Show or check an object XML document");
  xml->require_subcommand(1);
  CLI::App* show = xml->add_subcommand("show", "Print the objects as an indented tree");
  static std::string s_strShow;
  show->add_option("FILE", s_strShow, "Object XML document (- for standard input)")->required();
  show->footer("Each object: [type] \"name\" key, its properties (. name = \"value\") and, for a\n"
               "link (type -100), its target (-> key \"name\") and whether the target is in the file.");
  show->callback([] { ShowXml(s_strShow); });
  CLI::App* check = xml->add_subcommand("check", "Report whether the document parses");
  static std::string s_strCheck;
  check->add_option("FILE", s_strCheck, "XML document (- for standard input)")->required();
  check->footer("Prints \"FILE: ok\", or fails with \"FILE:LINE:COLUMN: reason\".");
  check->callback([] {
    CKXmlParserDOM parser;
    Parse(parser, s_strCheck);
    std::cout << s_strCheck << ": ok\n";
  });
}

}  // namespace ktool
