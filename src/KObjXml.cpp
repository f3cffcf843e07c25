// XML persistence of object trees: one "XMLOBJ_ENTRY" per object with its
// members, properties and children, through the library's XML tree.
#define KSRC_PATH "src/KObjXml"

#include <misc/KObj.h>

#include <cstdlib>
#include <cstring>

#include <base/tools/KDateTime.h>
#include <base/tools/KStr.h>
#include <base/tools/KXml.h>

#include "platform/KPlatformFile.h"

namespace {

const char kMember[] = "XMLOBJMEMBER_";
const char kDecl[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n";
// Element nesting allowed when reading objects: bounds the recursion of
// FromXml (two elements per object level) well inside a thread's stack.
const int kMaxXmlDepth = 1024;

struct Tag {
  char c;
  const char* word;
  unsigned n;
};
const Tag kTags[] = {{'=', "XMLOBJ_TAGEQ", 12},
                     {'&', "XMLOBJ_TAGAND", 13},
                     {'$', "XMLOBJ_TAGDOL", 13},
                     {'<', "XMLOBJ_TAGINF", 13},
                     {'>', "XMLOBJ_TAGSUP", 13}};

// Moves the tree's cursor back where it was when the scope ends.
class CCursor {
public:
  explicit CCursor(CKXmlTree* p) : m_pTree(p), m_pNode(p->GetCurrentNode()) {}
  ~CCursor() { m_pTree->SetAsCurrentNode(m_pNode); }
  CCursor(const CCursor&) = delete;
  CCursor& operator=(const CCursor&) = delete;

private:
  CKXmlTree* m_pTree;
  CKXmlTreeNode* m_pNode;
};

}  // namespace

// One pass each way. The tag words hold none of the five characters and
// cannot overlap, so this gives what replacing them one kind after the other
// gives.
CKString CKObj::XmlEncode(const char* sz) {
  if (!sz || !sz[strcspn(sz, "=&$<>")]) return CKString(sz);
  CKString s;
  for (const char* p = sz; *p;) {
    const size_t nPlain = strcspn(p, "=&$<>");
    s.KConcatInPlace((unsigned)nPlain, p);
    p += nPlain;
    if (!*p) break;
    for (const Tag& t : kTags)
      if (t.c == *p) s.KConcatInPlace(t.n, t.word);
    p++;
  }
  return s;
}

CKString CKObj::XmlDecode(const char* sz) {
  if (!sz || !strstr(sz, "XMLOBJ_TAG")) return CKString(sz);
  CKString s;
  for (const char* p = sz; *p;) {
    const char* q = strstr(p, "XMLOBJ_TAG");
    if (!q) {
      s += p;
      break;
    }
    s.KConcatInPlace((unsigned)(q - p), p);
    bool bTag = false;
    for (const Tag& t : kTags)
      if (strncmp(q, t.word, t.n) == 0) {
        s.KConcatInPlace(t.c);
        p = q + t.n;
        bTag = true;
        break;
      }
    if (!bTag) {
      s.KConcatInPlace(10, q);
      p = q + 10;
    }
  }
  return s;
}

// ---------------------------------------------------------------- members
void CKObj::WriteXmlMember(CKXmlTree* pTree, const char* szName, const char* szValue) {
  CKString strName(szName), strValue(szValue);
  if (!OnWriteXmlMember(strName, strValue)) return;
  pTree->AddChild(KAnd(kMember, XmlEncode(strName)), XmlEncode(strValue));
}

int CKObj::ReadXmlMember(CKXmlTree* pTree, const char* szName, CKString& strValue) {
  strValue.Empty();
  CKXmlTreeNode* p = pTree->Child(KAnd(kMember, XmlEncode(szName)));
  if (!p) {
    KLog(10, "ERROR (1) => CKObj.ReadXmlMember(): Requested member not found (", szName, ")");
    return FALSE;
  }
  strValue = XmlDecode(p->GetValue());
  return TRUE;
}

int CKObj::ReadXmlMember(CKXmlTree* pTree, int nIndex, CKString& strName, CKString& strValue) {
  strName.Empty();
  strValue.Empty();
  if (nIndex < 0 || nIndex >= pTree->GetChildrenCount()) {
    KLog(10, "ERROR (2) => CKObj.ReadXmlMember(): Requested member not found (", KStr(nIndex), ")");
    return FALSE;
  }
  CKString s = pTree->GetChildName(nIndex);
  if (KStrBeginWith(s, kMember)) s = s.Mid(sizeof(kMember) - 1);
  strName = XmlDecode(s);
  strValue = XmlDecode(pTree->GetChildValue(nIndex));
  return TRUE;
}

// ---------------------------------------------------------------- writing
int CKObj::ObjToXml(CKXmlTree* pTree) {
  CCursor keep(pTree);
  CKXmlTreeNode* pEntry = pTree->AddChild("XMLOBJ_ENTRY");
  pTree->SetAsCurrentNode(pEntry);
  WriteXmlMember(pTree, "TYPE", KStr(m_nType));
  WriteXmlMember(pTree, "HID", Key());
  WriteXmlMember(pTree, "NAME", m_strName);
  WriteXmlMember(pTree, "DISPLAYNAME", m_strDisplayName);
  WriteXmlMember(pTree, "DESCR", m_strDescr);
  WriteXmlMember(pTree, "ICON", m_strIcon);
  WriteXmlMember(pTree, "STRPARAM1", m_strParam1);
  WriteXmlMember(pTree, "STRPARAM2", m_strParam2);
  WriteXmlMember(pTree, "PATH", m_strPath);
  WriteXmlMember(pTree, "INTPARAM1", KStr(m_nParam1));
  WriteXmlMember(pTree, "FLAGS", KStr(m_nFlags));
  WriteXmlMember(pTree, "SELECTED", KBool2Str(m_bSelected));
  WriteXmlMember(pTree, "FIRSTVISIBLE", KBool2Str(m_bFirstVisible));
  WriteXmlMember(pTree, "DRAGABLE", KBool2Str(m_bDragable));
  WriteXmlMember(pTree, "EXPANDED", KBool2Str(m_bExpanded));
  WriteXmlMember(pTree, "UPDATED", KBool2Str(m_bUpdated));

  pTree->SetAsCurrentNode(pTree->AddChild("XMLOBJ_SPECIFIC"));
  if (!OnWriteXmlSpecificMembers(pTree)) {
    KLog(10, "ERROR => CKObj.ObjToXml(): Stoped by a call to OnWriteXmlSpecificMembers");
    return FALSE;
  }

  pTree->SetAsCurrentNode(pEntry);
  pTree->SetAsCurrentNode(pTree->AddChild("XMLOBJ_PROPS"));
  for (int i = 0; i < PropCount(); i++) {
    CProp* pProp = Prop(i);
    if (!pProp) {
      KASSERT(pProp);
      continue;
    }
    if (pProp->GetType() != KPROP_VT_BSTR) {
      KASSERT_T(pProp->GetType() == KPROP_VT_BSTR, "pProp->GetType()==VT_BSTR");
      continue;
    }
    CKString strName = pProp->GetName(), strValue = pProp->GetValueStr();
    if (!OnWriteXmlProp(strName, strValue)) continue;
    pTree->AddChild(XmlEncode(strName), XmlEncode(strValue));
  }

  pTree->SetAsCurrentNode(pEntry);
  CKXmlTreeNode* pChildren = pTree->AddChild("XMLOBJ_CHILDREN");
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if (!OnWriteXmlChild(o)) continue;
    if (o->HasFlag(KOBJ_LOADABLE) && !o->HasFlag(KOBJ_LOADED) && o->OnLoad()) {
      o->AddFlag(KOBJ_LOADED);
      ObjRefresh(o, 0);
    }
    pTree->SetAsCurrentNode(pChildren);
    o->ObjToXml(pTree);
  }
  return TRUE;
}

int CKObj::ToXmlString(CKString& strXml) {
  CKXmlParserDOM dom;
  dom.SetTagUpCase(FALSE);
  CKXmlTree* pTree = dom.GetTree();
  pTree->AddChild("XMLOBJ_ROOT");
  KASSERT_RETV_T(pTree->SetChildAsCurrentNode(0), "pTree->SetChildAsCurrentNode(0)", FALSE);
  ObjToXml(pTree);
  pTree->SetRootAsCurrentNode();
  const CKString strText = pTree->GetXmlString();
  if (strText.GetLength() == 0) {
    KLog(10, "ERROR => while generating xml string for obj named '", Name(), "'");
    return FALSE;
  }
  strXml = KAnd(kDecl, strText);
  return TRUE;
}

int CKObj::ToXml(const char* szFile) {
  CKString strXml;
  if (!ToXmlString(strXml)) return FALSE;
  if (!kplat::FileSaveReplace(szFile, strXml, strXml.GetLength())) {
    KLog(10, "ERROR => CKObj.ToXml(): Unable to write file ", szFile);
    return FALSE;
  }
  return TRUE;
}

// ---------------------------------------------------------------- reading
int CKObj::FromXml(CKXmlTree* pTree) {
  if (!pTree) return FALSE;
  KASSERT_RETV_T(strcmp(pTree->GetName(), "XMLOBJ_ENTRY") == 0,
                 "EQ(pTree->GetName(), _T(\"XMLOBJ_ENTRY\"))", FALSE);
  CCursor keep(pTree);
  CKXmlTreeNode* pEntry = pTree->GetCurrentNode();
  CKString s;
  if (!ReadXmlMember(pTree, "TYPE", s)) return FALSE;
  if (atoi(s) != m_nType) {
    KLog(10, "ERROR => CKObj.FromXml(): Types are unrelated '", s, "' & '", KStr(m_nType), "'");
    return FALSE;
  }
  if (!ReadXmlMember(pTree, "NAME", s)) return FALSE;
  m_strName = s;
  if (!ReadXmlMember(pTree, "HID", s)) return FALSE;
  SetKeyIdentity(CKGuid((const char*)s));

  CKString* const texts[] = {&m_strDisplayName, &m_strDescr, &m_strIcon,
                             &m_strParam1,      &m_strParam2, &m_strPath};
  const char* const textNames[] = {"DISPLAYNAME", "DESCR", "ICON", "STRPARAM1", "STRPARAM2", "PATH"};
  for (int i = 0; i < 6; i++) {
    if (!ReadXmlMember(pTree, textNames[i], s)) return FALSE;
    *texts[i] = s;
  }
  if (!ReadXmlMember(pTree, "INTPARAM1", s)) return FALSE;
  m_nParam1 = atoi(s);
  if (!ReadXmlMember(pTree, "FLAGS", s)) return FALSE;
  m_nFlags = atoi(s);
  int* const marks[] = {&m_bSelected, &m_bFirstVisible, &m_bDragable, &m_bExpanded, &m_bUpdated};
  const char* const markNames[] = {"SELECTED", "FIRSTVISIBLE", "DRAGABLE", "EXPANDED", "UPDATED"};
  for (int i = 0; i < 5; i++) {
    if (!ReadXmlMember(pTree, markNames[i], s)) return FALSE;
    *marks[i] = KBool(s);
  }

  CKXmlTreeNode* pNode = pTree->Child("XMLOBJ_SPECIFIC");
  if (!pNode) {
    KLog(10, "ERROR => CKObj.FromXml(): Cannot find XMLOBJ_SPECIFIC tag");
    return FALSE;
  }
  pTree->SetAsCurrentNode(pNode);
  if (!OnReadXmlSpecificMembers(pTree)) {
    KLog(10, "ERROR => CKObj.FromXml(): Stoped by a call to OnReadXmlSpecificMembers");
    return FALSE;
  }

  pTree->SetAsCurrentNode(pEntry);
  PropFree();
  if ((pNode = pTree->Child("XMLOBJ_PROPS")) != nullptr) {
    for (int i = 0; i < pNode->GetChildrenCount(); i++) {
      CKString strName = XmlDecode(pNode->GetChildName(i));
      CKString strValue = XmlDecode(pNode->GetChildValue(i));
      if (OnReadXmlProp(strName, strValue)) PropAdd(strName, strValue, FALSE);
    }
  }

  CKXmlTreeNode* pChildren = pTree->Child("XMLOBJ_CHILDREN");
  if (!pChildren) {
    KLog(10, "ERROR => CKObj.FromXml(): Cannot find XMLOBJ_CHILDREN tag");
    return FALSE;
  }
  for (int i = 0; i < pChildren->GetChildrenCount(); i++) {
    CKXmlTreeNode* pChild = pChildren->GetChildAt(i);
    pTree->SetAsCurrentNode(pChild);
    KASSERT_RETV_T(pChild && strcmp(pChild->GetName(), "XMLOBJ_ENTRY") == 0,
                   "EQ(pTree->GetName(), _T(\"XMLOBJ_ENTRY\"))", FALSE);
    CKObj* pNew = NewFromEntry(pTree, "obj");
    if (!pNew) return FALSE;
    m_Children.Add(pNew);
    Take(pNew);
  }
  if (HasFlag(KOBJ_LOADABLE)) AddFlag(KOBJ_LOADED);
  return TRUE;
}

namespace {

enum { LOAD_FILL, LOAD_CREATE };

// Steps shared by the three loaders: the cursor on the entry, or a logged
// failure. nWho picks the texts of the member that loads.
int FindEntry(CKXmlTree* pTree, const char* szFile, int nWho) {
  const char* szWho = nWho == LOAD_FILL ? "LoadFromXml" : "FromXml";
  pTree->SetRootAsCurrentNode();
  if (!pTree->SetChildAsCurrentNode("XMLOBJ_ROOT")) {
    KLog(10, "ERROR =>  CKObj.", szWho, "(): Invalid file format (", szFile, ")");
    return FALSE;
  }
  if (!pTree->SetChildAsCurrentNode(0)) {
    KLog(10, "ERROR =>  CKObj.", szWho, "(): file is empty (no CKObj) (", szFile, ")");
    return FALSE;
  }
  return TRUE;
}

// The DOM parser the loaders use: element names as written, bounded nesting.
void PrepareDom(CKXmlParserDOM& dom) {
  dom.SetTagUpCase(FALSE);
  dom.SetMaxDepth(kMaxXmlDepth);
}

// Parses szFile; a failure logs the loader's line.
int ParseDocFile(CKXmlParserDOM& dom, const char* szFile, int nWho) {
  PrepareDom(dom);
  if (dom.ParseFile(szFile)) return TRUE;
  KLog(10, "ERROR (2) => CKObj.", nWho == LOAD_FILL ? "LoadFromXml" : "FromXml",
       "(): Unable to parse file ", szFile);
  return FALSE;
}

}  // namespace

int CKObj::LoadFromXml(const char* szFile) {
  const unsigned long nStart = KTimerStart();
  CKXmlParserDOM dom;
  if (!ParseDocFile(dom, szFile, LOAD_FILL)) return FALSE;
  CKXmlTree* pTree = dom.GetTree();
  KASSERT_RETV(pTree, FALSE);
  if (!FindEntry(pTree, szFile, LOAD_FILL)) return FALSE;
  if (!FromXml(pTree)) return FALSE;
  KTimerTrace2(512, "CKObj::FromXml => ", nStart);
  return TRUE;
}

CKObj* CKObj::CreateFromTree(CKXmlTree* pTree, const char* szFile) {
  KASSERT_RETV(pTree, nullptr);
  if (!FindEntry(pTree, szFile, LOAD_CREATE)) return nullptr;
  return NewFromEntry(pTree, "root");
}

CKObj* CKObj::NewFromEntry(CKXmlTree* pTree, const char* szWhat) {
  CKString strType;
  ReadXmlMember(pTree, "TYPE", strType);
  CKObj* p = ObjNew ? ObjNew(atoi(strType)) : nullptr;
  if (!p) {
    KLog(24, "ERROR =>  CKObj.FromXml(): Unable to create ", szWhat,
         " cause type is unknown by ObjNew (", strType, ")");
    return nullptr;
  }
  if (!p->FromXml(pTree)) {
    delete p;
    return nullptr;
  }
  return p;
}

CKObj* CKObj::CreateFromXml(const char* szFile) {
  const unsigned long nStart = KTimerStart();
  CKXmlParserDOM dom;
  if (!ParseDocFile(dom, szFile, LOAD_CREATE)) return nullptr;
  CKObj* p = CreateFromTree(dom.GetTree(), szFile);
  if (p) KTimerTrace2(512, "CKObj::FromXml => ", nStart);
  return p;
}

CKObj* CKObj::CreateFromXmlText(const char* pText, unsigned nLength) {
  CKXmlParserDOM dom;
  PrepareDom(dom);
  if (!pText || !dom.Parse(pText, nLength)) {
    KLog(10, "ERROR (2) => CKObj.FromXml(): Unable to parse text");
    return nullptr;
  }
  return CreateFromTree(dom.GetTree(), "text");
}
