// XML persistence of object trees: one "XMLOBJ_ENTRY" per object with its
// members, properties and children, through the library's XML tree.
#define KSRC_PATH "src/KObjXml"

#include <misc/KObj.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDateTime.h>
#include <base/tools/KStr.h>
#include <base/tools/KXml.h>

#include "KAlloc.h"
#include "KXmlNodePool.h"
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

// What one ToXmlString shares among the elements it writes: a node pool and
// the texts that repeat (element names, marks, small numbers). Only the
// library's own additions to that tree use them; nodes a hook adds come from
// the heap. Nested writes (a hook writing another object) stack.
struct CWriteScope {
  CKXmlTree* pTree = nullptr;
  CWriteScope* pPrev = nullptr;
  CKXmlNodePool pool;
  static const unsigned kSlots = 256;
  static const unsigned kMaxLength = 40;
  CKString texts[kSlots];
};
thread_local CWriteScope* t_pWrite = nullptr;

class CWriteGuard {
public:
  CWriteGuard(CWriteScope& w, CKXmlTree* pTree) : m_w(w) {
    w.pTree = pTree;
    w.pPrev = t_pWrite;
    t_pWrite = &w;
  }
  ~CWriteGuard() { t_pWrite = m_w.pPrev; }
  CWriteGuard(const CWriteGuard&) = delete;
  CWriteGuard& operator=(const CWriteGuard&) = delete;

private:
  CWriteScope& m_w;
};

CWriteScope* ScopeOf(CKXmlTree* pTree) { return t_pWrite && t_pWrite->pTree == pTree ? t_pWrite : nullptr; }

// The n bytes at p (p[n] is 0) as a string; a short one shares the block of
// the last equal text of the scope.
CKString Shared(CWriteScope* w, const char* p, unsigned n) {
  if (!w || n > CWriteScope::kMaxLength) {
    CKString s;
    s.KConcatInPlace(n, p);
    return s;
  }
  // The length and the first and last eight bytes pick the slot.
  uint64_t a = 0, b = 0;
  memcpy(&a, p, n < 8 ? n : 8);
  if (n > 8) memcpy(&b, p + n - 8, 8);
  const uint64_t h = (a * 0x9E3779B97F4A7C15ull) ^ (b * 0xC2B2AE3D27D4EB4Full) ^ n;
  static_assert(CWriteScope::kSlots == 256, "the top byte of the hash picks the slot");
  CKString& s = w->texts[(unsigned)(h >> 56)];
  if (s.GetLength() != n || memcmp(s.GetString(), p, n) != 0) {
    CKString t;  // p may lie in the block s lets go of
    t.KConcatInPlace(n, p);
    s = t;
  }
  return s;
}

// Appends the escaped form of sz to s.
void PutEncoded(CKString& s, const char* sz) {
  for (const char* p = sz; *p;) {
    const size_t nPlain = strcspn(p, "=&$<>");
    s.KConcatInPlace((unsigned)nPlain, p);
    p += nPlain;
    if (!*p) break;
    for (const Tag& t : kTags)
      if (t.c == *p) s.KConcatInPlace(t.n, t.word);
    p++;
  }
}

// The escaped form of s; s itself (its block shared) when nothing needs it.
CKString Encoded(CWriteScope* w, const CKString& s) {
  const char* sz = s.GetString();
  if (!sz[strcspn(sz, "=&$<>")]) return w ? Shared(w, sz, s.GetLength()) : s;
  CKString r;
  PutEncoded(r, sz);
  return r;
}

// The decoded form of s; s itself (its block shared) when it holds no tag.
CKString Decoded(const CKString& s) {
  return strstr(s.GetString(), "XMLOBJ_TAG") ? CKObj::XmlDecode(s) : s;
}

// Appends the element (name, text) under the tree's current node.
CKXmlTreeNode* AddElement(CKXmlTree* pTree, CWriteScope* w, const CKString& strName, const CKString& strValue) {
  if (!w) return pTree->AddChild(strName, strValue);
  CKXmlTreeNode* p = KMEM_TRY(new (&w->pool) CKXmlTreeNode(strName, strValue));
  return pTree->GetCurrentNode()->AddChildNode(p);
}

CKXmlTreeNode* AddElement(CKXmlTree* pTree, CWriteScope* w, const char* szName) {
  return AddElement(pTree, w, Shared(w, szName, (unsigned)strlen(szName)), CKString());
}

}  // namespace

// One pass each way. The tag words hold none of the five characters and
// cannot overlap, so this gives what replacing them one kind after the other
// gives.
CKString CKObj::XmlEncode(const char* sz) {
  if (!sz || !sz[strcspn(sz, "=&$<>")]) return CKString(sz);
  CKString s;
  PutEncoded(s, sz);
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
  CWriteScope* w = ScopeOf(pTree);
  if (!szName) szName = "";
  if (!szValue) szValue = "";
  CKString strName = Shared(w, szName, (unsigned)strlen(szName));
  CKString strValue = Shared(w, szValue, (unsigned)strlen(szValue));
  if (!OnWriteXmlMember(strName, strValue)) return;
  // The element name in a stack buffer when it fits, then shared.
  char buf[64];
  const unsigned nName = strName.GetLength();
  if (w && nName + sizeof(kMember) <= sizeof(buf) && !strName.GetString()[strcspn(strName, "=&$<>")]) {
    memcpy(buf, kMember, sizeof(kMember) - 1);
    memcpy(buf + sizeof(kMember) - 1, strName.GetString(), nName + 1);
    AddElement(pTree, w, Shared(w, buf, (unsigned)(sizeof(kMember) - 1 + nName)), Encoded(w, strValue));
    return;
  }
  CKString strElement(kMember);
  PutEncoded(strElement, strName);
  AddElement(pTree, w, strElement, Encoded(w, strValue));
}

int CKObj::ReadXmlMember(CKXmlTree* pTree, const char* szName, CKString& strValue) {
  strValue.Empty();
  // The element name in a stack buffer when it needs no escape and fits.
  char buf[64];
  const size_t n = szName ? strlen(szName) : 0;
  CKXmlTreeNode* p;
  if (n + sizeof(kMember) <= sizeof(buf) && !szName[strcspn(szName, "=&$<>")]) {
    memcpy(buf, kMember, sizeof(kMember) - 1);
    memcpy(buf + sizeof(kMember) - 1, szName, n + 1);
    p = pTree->Child(buf);
  } else {
    p = pTree->Child(KAnd(kMember, XmlEncode(szName)));
  }
  if (!p) {
    KLog(10, "ERROR (1) => CKObj.ReadXmlMember(): Requested member not found (", szName, ")");
    return FALSE;
  }
  strValue = Decoded(p->GetValue());
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
  CWriteScope* w = ScopeOf(pTree);
  CKXmlTreeNode* pEntry = AddElement(pTree, w, "XMLOBJ_ENTRY");
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

  pTree->SetAsCurrentNode(AddElement(pTree, w, "XMLOBJ_SPECIFIC"));
  if (!OnWriteXmlSpecificMembers(pTree)) {
    KLog(10, "ERROR => CKObj.ObjToXml(): Stoped by a call to OnWriteXmlSpecificMembers");
    return FALSE;
  }

  pTree->SetAsCurrentNode(pEntry);
  pTree->SetAsCurrentNode(AddElement(pTree, w, "XMLOBJ_PROPS"));
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
    AddElement(pTree, w, Encoded(w, strName), Encoded(w, strValue));
  }

  pTree->SetAsCurrentNode(pEntry);
  CKXmlTreeNode* pChildren = AddElement(pTree, w, "XMLOBJ_CHILDREN");
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
  CWriteScope scope;  // outlives the tree, whose nodes go back to its pool
  CKXmlParserDOM dom;
  dom.SetTagUpCase(FALSE);
  CKXmlTree* pTree = dom.GetTree();
  CWriteGuard guard(scope, pTree);
  pTree->AddChild("XMLOBJ_ROOT");
  KASSERT_RETV_T(pTree->SetChildAsCurrentNode(0), "pTree->SetChildAsCurrentNode(0)", FALSE);
  ObjToXml(pTree);
  pTree->SetRootAsCurrentNode();
  CKString strText(kDecl);
  const unsigned nDecl = strText.GetLength();
  pTree->AppendXmlString(strText);
  if (strText.GetLength() == nDecl) {
    KLog(10, "ERROR => while generating xml string for obj named '", Name(), "'");
    return FALSE;
  }
  strXml = strText;
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
      CKString strName = Decoded(pNode->GetChildName(i));
      CKString strValue = Decoded(pNode->GetChildValue(i));
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
