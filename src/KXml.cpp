#define KSRC_PATH "src/KXml"

#include <base/tools/KXml.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include <base/classes/list/KList.h>
#include <base/tools/KDebug.h>

#include "KAlloc.h"
#include "KXmlNodePool.h"

namespace {

// Same length, same bytes ignoring ASCII case.
bool SameNoCase(const CKString& s, const char* sz, unsigned n) {
  if (s.GetLength() != n) return false;
  const char* p = s.GetString();
  for (unsigned i = 0; i < n; ++i) {
    char a = p[i], b = sz[i];
    if (a >= 'a' && a <= 'z') a = (char)(a - 32);
    if (b >= 'a' && b <= 'z') b = (char)(b - 32);
    if (a != b) return false;
  }
  return true;
}

CKString UpperAscii(const char* sz) {
  CKString s(sz ? sz : "");
  const unsigned n = s.GetLength();
  if (!n) return s;
  char* p = s.GetBuffer(n);
  for (unsigned i = 0; i < n; ++i)
    if (p[i] >= 'a' && p[i] <= 'z') p[i] = (char)(p[i] - 32);
  s.ReleaseBuffer(n);
  return s;
}

inline void Put(CKString& s, const CKString& t) { s.KConcatInPlace(t.GetLength(), t.GetString()); }
inline void Put(CKString& s, const char* sz) { s.KConcatInPlace((unsigned)strlen(sz), sz); }

// Growth steps of a node's piles. Most elements have a few children and
// attributes; the default step would give each one a 1 KB array. The arrays
// themselves still grow geometrically.
const int kChildStep = 8;
const int kParamStep = 4;

// One element of a depth-first walk that needs a closing step.
struct Frame {
  const CKXmlTreeNode* pNode;
  int nNext;  // next child to visit
};

}  // namespace

// ---------------------------------------------------------------- CKXmlTreeNode
CKXmlTreeNode::CKXmlTreeNode() : m_nData(0), m_pFather(nullptr) { SmallSteps(); }

CKXmlTreeNode::CKXmlTreeNode(const char* szName, const char* szValue)
    : m_nData(0), m_pFather(nullptr), m_strName(szName ? szName : ""), m_strValue(szValue ? szValue : "") {
  SmallSteps();
}

CKXmlTreeNode::CKXmlTreeNode(const CKString& strName, const CKString& strValue)
    : m_nData(0), m_pFather(nullptr), m_strName(strName), m_strValue(strValue) {
  SmallSteps();
}

void CKXmlTreeNode::SmallSteps() {
  m_Children.data.step = kChildStep;
  m_ListParam.data.step = kParamStep;
  m_ListValue.data.step = kParamStep;
}

CKXmlTreeNode::CKXmlTreeNode(const CKXmlTreeNode& n)
    : CKListParamValue(n), m_nData(n.m_nData), m_pFather(nullptr), m_strName(n.m_strName),
      m_strValue(n.m_strValue) {
  SmallSteps();
  // Level by level, without recursion: pairs of (source, copy).
  std::vector<std::pair<const CKXmlTreeNode*, CKXmlTreeNode*>> work;
  work.emplace_back(&n, this);
  while (!work.empty()) {
    const CKXmlTreeNode* pSrc = work.back().first;
    CKXmlTreeNode* pDst = work.back().second;
    work.pop_back();
    for (int i = 0; i < pSrc->m_Children.Count(); ++i) {
      const CKXmlTreeNode* c = pSrc->m_Children.Get(i);
      if (!c) continue;
      CKXmlTreeNode* d = new CKXmlTreeNode(c->m_strName, c->m_strValue);
      pDst->AddChildNode(d);
      d->CKListParamValue::operator=(*c);
      d->m_nData = c->m_nData;
      work.emplace_back(c, d);
    }
  }
}

CKXmlTreeNode::~CKXmlTreeNode() { RemoveAllChildNodes(); }

CKString CKXmlTreeNode::GetParamName(int i) const {
  return i >= 0 && i < Count() ? GetParam(i) : CKString();
}
CKString CKXmlTreeNode::GetParamValue(int i) const {
  return i >= 0 && i < Count() ? CKListParamValue::GetValue(i) : CKString();
}
CKString CKXmlTreeNode::GetParamValue(const char* szName) const {
  return CKListParamValue::GetValue(szName, TRUE, nullptr);
}

CKString CKXmlTreeNode::GetChildName(int i) const {
  const CKXmlTreeNode* p = m_Children.Get(i);
  return p ? p->m_strName : CKString();
}
CKString CKXmlTreeNode::GetChildValue(int i) const {
  const CKXmlTreeNode* p = m_Children.Get(i);
  return p ? p->m_strValue : CKString();
}

CKXmlTreeNode* CKXmlTreeNode::GetChild(const char* szPath) const {
  if (!szPath || !*szPath) return nullptr;
  CKList parts;
  if (strchr(szPath, '/'))
    parts.FromString(szPath, '/');
  else
    parts.Add(szPath);
  const CKXmlTreeNode* pNode = this;
  for (int k = 0; k < parts.Count(); ++k) {
    const CKString strName = parts.Get(k);
    const CKXmlTreeNode* pNext = nullptr;
    for (int i = 0; i < pNode->m_Children.Count() && !pNext; ++i) {
      const CKXmlTreeNode* c = pNode->m_Children.Get(i);
      if (c && SameNoCase(c->m_strName, strName, strName.GetLength())) pNext = c;
    }
    if (!pNext) return nullptr;
    pNode = pNext;
  }
  return const_cast<CKXmlTreeNode*>(pNode);
}

CKString CKXmlTreeNode::GetChildValue(const char* szPath) const {
  const CKXmlTreeNode* p = GetChild(szPath);
  return p ? p->m_strValue : CKString();
}

int CKXmlTreeNode::Find(CKXmlTreeNode* p, int bRec) const {
  // Depth first, in child order, with an explicit stack.
  std::vector<Frame> stack;
  stack.push_back({this, 0});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.nNext >= f.pNode->m_Children.Count()) {
      stack.pop_back();
      continue;
    }
    const CKXmlTreeNode* pCurrentNode = f.pNode->m_Children.Get(f.nNext++);
    KASSERT_AT(pCurrentNode, "pCurrentNode", "src/KXml", 923);
    if (!pCurrentNode) continue;
    if (pCurrentNode == p) return TRUE;
    if (bRec) stack.push_back({pCurrentNode, 0});
  }
  return FALSE;
}

CKXmlTreeNode* CKXmlTreeNode::AddChildNode(CKXmlTreeNode* p) {
  m_Children.Add(p);  // deletes p and throws when the list cannot grow
  p->m_pFather = this;
  return p;
}

int CKXmlTreeNode::RemoveChildAt(int i) {
  if (i < 0 || i >= m_Children.Count()) return FALSE;
  m_Children.Delete(i);
  return TRUE;
}

void CKXmlTreeNode::RemoveAllChildNodes() {
  FreeChildren();
  m_Children.PileEmpty();
}

void CKXmlTreeNode::FreeChildren() {
  if (!m_Children.data.elts) return;  // most nodes are leaves
  // Last child first, down to the leaves: every node is deleted once its
  // own children are gone, so no delete recurses, and the only stack is the
  // path from this node, as long as the tree is deep.
  std::vector<CKXmlTreeNode*> path;
  CKXmlTreeNode* n = this;
  for (;;) {
    KPile& d = n->m_Children.data;
    if (d.elts > 0 && d.ptr) {
      CKXmlTreeNode* c = (CKXmlTreeNode*)d.ptr[--d.elts];
      d.ptr[d.elts] = nullptr;
      if (!c) continue;
      if (c->m_Children.data.elts > 0) {
        path.push_back(n);
        n = c;
      } else {
        delete c;
      }
      continue;
    }
    if (n == this) break;
    CKXmlTreeNode* pDone = n;
    n = path.back();
    path.pop_back();
    delete pDone;
  }
}

// ---------------------------------------------------------------- CKXmlTree
CKXmlTree::CKXmlTree() : m_pCurrent(this) {}

CKXmlTree::CKXmlTree(const CKXmlTree& t) : CKXmlTreeNode(t), m_pCurrent(this) {
  // The path of child indexes from the source's root to its cursor.
  std::vector<int> path;
  for (const CKXmlTreeNode* p = t.m_pCurrent; p && p != &t && p->m_pFather; p = p->m_pFather)
    path.push_back(p->m_pFather->m_Children.Find(p));
  for (auto it = path.rbegin(); it != path.rend(); ++it) {
    CKXmlTreeNode* c = m_pCurrent->m_Children.Get(*it);
    if (!c) break;
    m_pCurrent = c;
  }
}

CKXmlTree::~CKXmlTree() {}

int CKXmlTree::SetAsCurrentNode(CKXmlTreeNode* p) {
  m_pCurrent = p;
  return TRUE;
}
int CKXmlTree::SetRootAsCurrentNode() {
  m_pCurrent = this;
  return TRUE;
}
int CKXmlTree::SetFatherAsCurrentNode() {
  if (!m_pCurrent->m_pFather) return FALSE;
  m_pCurrent = m_pCurrent->m_pFather;
  return TRUE;
}
int CKXmlTree::SetChildAsCurrentNode(int i) {
  CKXmlTreeNode* p = m_pCurrent->m_Children.Get(i);
  if (i >= m_pCurrent->m_Children.Count() || !p) return FALSE;
  m_pCurrent = p;
  return TRUE;
}
int CKXmlTree::SetChildAsCurrentNode(const char* szName) {
  CKXmlTreeNode* p = Child(szName);
  if (!p) return FALSE;
  m_pCurrent = p;
  return TRUE;
}

CKXmlTreeNode* CKXmlTree::Child(const char* szName) const {
  // The upper-cased name in a stack buffer when it fits.
  char buf[128];
  const size_t n = szName ? strlen(szName) : 0;
  CKString strLong;
  const char* szUp = buf;
  if (n < sizeof(buf)) {
    for (size_t i = 0; i < n; ++i) buf[i] = (szName[i] >= 'a' && szName[i] <= 'z') ? (char)(szName[i] - 32) : szName[i];
  } else {
    strLong = UpperAscii(szName);
    szUp = strLong.GetString();
  }
  for (int i = 0; i < m_pCurrent->m_Children.Count(); ++i) {
    CKXmlTreeNode* c = m_pCurrent->m_Children.Get(i);
    if (c && c->m_strName.GetLength() == n && !memcmp(c->m_strName.GetString(), szUp, n)) return c;
  }
  return nullptr;
}

int CKXmlTree::SetNewCurrentNode(const char* szPath) {
  CKList parts;
  parts.FromString(szPath ? szPath : "", '/');
  int k = 0;
  if (parts.Count() && parts.Get(0) == "ROOT") {
    m_pCurrent = this;
    k = 1;
  }
  for (; k < parts.Count(); ++k)
    if (!SetChildAsCurrentNode(parts.Get(k))) return FALSE;
  return TRUE;
}

CKString CKXmlTree::GetChildName(int i) const { return m_pCurrent->CKXmlTreeNode::GetChildName(i); }
CKString CKXmlTree::GetChildValue(int i) const { return m_pCurrent->CKXmlTreeNode::GetChildValue(i); }

CKString CKXmlTree::GetChildValue(const char* szName) const {
  const unsigned n = szName ? (unsigned)strlen(szName) : 0;
  for (int i = 0; i < m_pCurrent->m_Children.Count(); ++i) {
    const CKXmlTreeNode* c = m_pCurrent->m_Children.Get(i);
    if (c && SameNoCase(c->m_strName, n ? szName : "", n)) return c->m_strValue;
  }
  return CKString();
}

CKXmlTreeNode* CKXmlTree::AddChild() { return AddChild(nullptr, nullptr); }
CKXmlTreeNode* CKXmlTree::AddChild(const char* szName) { return AddChild(szName, nullptr); }
CKXmlTreeNode* CKXmlTree::AddChild(const char* szName, const char* szValue) {
  return m_pCurrent->AddChildNode(KMEM_TRY(new CKXmlTreeNode(szName, szValue)));
}

int CKXmlTree::RemoveChild(int i) {
  return m_pCurrent->RemoveChildAt(i);
}

void CKXmlTree::RemoveAllChildren() { m_pCurrent->RemoveAllChildNodes(); }

CKString CKXmlTree::GetValueOfParam(const char* szName) const {
  return m_pCurrent->CKListParamValue::GetValue(szName, TRUE, nullptr);
}

void CKXmlTree::AddParamValue(const char* szName, const char* szValue) {
  m_pCurrent->AddValue(szName, szValue);
}

void CKXmlTree::SetParamValue(CKListParamValue* pList) {
  if (!pList) return;
  for (int i = 0; i < pList->Count(); ++i) m_pCurrent->AddValue(pList->GetParam(i), pList->GetValue(i));
}

void CKXmlTree::Init() {
  m_pCurrent = this;
  RemoveAllChildNodes();
  Empty();
  m_strName.Empty();
  m_strValue.Empty();
  m_pFather = nullptr;
}

CKString CKXmlTree::GetXmlString() const {
  CKString s;
  AppendXmlString(s);
  return s;
}

namespace {

// The text of the subtree at pTop, piece by piece, in document order.
template <class Emit>
void Render(const CKXmlTreeNode* pTop, Emit&& emit) {
  auto str = [&](const CKString* p) {
    if (p) emit(p->GetString(), p->GetLength());
  };
  std::vector<Frame> stack;
  stack.push_back({pTop, -1});
  while (!stack.empty()) {
    Frame& f = stack.back();
    const CKXmlTreeNode* n = f.pNode;
    const CKString& name = n->GetNameRef();
    const bool bNamed = name.GetLength() != 0;
    if (f.nNext < 0) {
      f.nNext = 0;
      if (bNamed) {
        emit("\r\n<", 3);
        str(&name);
        const KPile& names = n->GetParamList().data;
        const KPile& values = n->GetValueList().data;
        for (int i = 0; i < names.elts; ++i) {
          emit(" ", 1);
          str((const CKString*)names.ptr[i]);
          emit("=\"", 2);
          if (i < values.elts) str((const CKString*)values.ptr[i]);
          emit("\" ", 2);
        }
        emit(">", 1);
        str(&n->GetValueRef());
      }
    }
    if (f.nNext < n->GetChildrenCount()) {
      const CKXmlTreeNode* c = n->GetChildAt(f.nNext++);
      if (c) stack.push_back({c, -1});
      continue;
    }
    if (bNamed) {
      emit("</", 2);
      str(&name);
      emit(">\r\n", 3);
    }
    stack.pop_back();
  }
}

}  // namespace

void CKXmlTree::AppendXmlString(CKString& s) const {
  // Measured first, then written into one block of the exact size.
  uint64_t nAdd = 0;
  Render(m_pCurrent, [&](const char*, size_t n) { nAdd += n; });
  const uint64_t nOld = s.GetLength();
  if (!nAdd) return;
  if (nOld + nAdd >= 0x7FFFFFFF) {
    // Past what a string holds: the appends refuse it as they always did.
    Render(m_pCurrent, [&](const char* p, size_t n) { s.KConcatInPlace((unsigned)n, p); });
    return;
  }
  char* const pBase = s.GetBuffer((unsigned)(nOld + nAdd));
  char* q = pBase + nOld;
  Render(m_pCurrent, [&](const char* p, size_t n) {
    memcpy(q, p, n);
    q += n;
  });
  s.ReleaseBuffer((unsigned)(q - pBase));
}

CKString CKXmlTree::GetStringDescription(const char* szPrefix) const {
  CKString s;
  CKString strPrefix(szPrefix ? szPrefix : "");
  std::vector<Frame> stack;
  stack.push_back({m_pCurrent, -1});
  while (!stack.empty()) {
    Frame& f = stack.back();
    const CKXmlTreeNode* n = f.pNode;
    if (f.nNext < 0) {
      f.nNext = 0;
      Put(s, strPrefix);
      Put(s, "Name: ");
      Put(s, n->m_strName);
      Put(s, "\r\n");
      const char* v = n->m_strValue.GetString();
      while (*v == ' ') ++v;
      if (*v) {
        Put(s, strPrefix);
        Put(s, "Value: '");
        Put(s, n->m_strValue);
        Put(s, "'\r\n");
      }
    }
    if (f.nNext < n->m_Children.Count()) {
      const CKXmlTreeNode* c = n->m_Children.Get(f.nNext++);
      if (c) {
        stack.push_back({c, -1});
        Put(strPrefix, "---");
      }
      continue;
    }
    stack.pop_back();
    if (!stack.empty()) strPrefix = strPrefix.Left(strPrefix.GetLength() - 3);
  }
  return s;
}

// ---------------------------------------------------------------- CKXmlParserDOM
// Element and attribute names, and many short values, repeat throughout a
// document: equal texts share one string block instead of one copy each.
// Direct-mapped: a miss simply replaces the slot.
struct CKXmlParserDOM::TextCache {
  static const unsigned kSlots = 1024;
  static const unsigned kMaxLength = 32;
  CKString slot[kSlots];
  // Each slot's length and hash, kept beside the slots so that a miss (a
  // unique text) is told without reading the slot's cold string block.
  uint32_t nLength[kSlots] = {};
  uint32_t nHash[kSlots] = {};
};

namespace {

// Word-at-a-time hash of a short text. A tail after whole words is read as
// the last 8 bytes (overlapping), or byte by byte in a text under 8 bytes.
inline uint64_t HashShort(const char* sz, unsigned n) {
  uint64_t h = 0x9E3779B97F4A7C15ull * (n + 1);
  uint64_t w;
  unsigned i = 0;
  for (; i + 8 <= n; i += 8) {
    memcpy(&w, sz + i, 8);
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 29;
  }
  if (i < n) {
    if (n >= 8) {
      memcpy(&w, sz + n - 8, 8);
    } else {
      w = 0;
      for (unsigned k = 0; k < n; ++k) w = (w << 8) | (unsigned char)sz[k];
    }
    h = (h ^ w) * 0xC4CEB9FE1A85EC53ull;
  }
  return h ^ (h >> 32);
}

}  // namespace

CKXmlParserDOM::CKXmlParserDOM() : m_pCache(nullptr), m_pPool(nullptr) {}
CKXmlParserDOM::~CKXmlParserDOM() {
  // The parsed nodes go back to the pool before it goes.
  m_Tree.RemoveAllChildNodes();
  delete m_pPool;
  delete m_pCache;
}

CKString CKXmlParserDOM::Intern(const char* sz, unsigned n) {
  if (n > TextCache::kMaxLength) return CKString(sz);
  if (!m_pCache) m_pCache = KMEM_TRY(new TextCache);
  const uint64_t h = HashShort(sz, n);
  const unsigned i = (unsigned)(h >> 20) & (TextCache::kSlots - 1);
  CKString& s = m_pCache->slot[i];
  if (m_pCache->nLength[i] != n || m_pCache->nHash[i] != (uint32_t)h || memcmp(s.GetString(), sz, n) != 0) {
    s = sz;
    m_pCache->nLength[i] = n;
    m_pCache->nHash[i] = (uint32_t)h;
  }
  return s;
}

CKString CKXmlParserDOM::GetXmlString() {
  CKString s("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n");
  m_Tree.SetRootAsCurrentNode();
  if (m_Tree.GetChildrenCount()) m_Tree.SetChildAsCurrentNode(0);
  m_Tree.AppendXmlString(s);
  return s;
}

void CKXmlParserDOM::InitDOM() {
  m_Tree.Init();
  ResetParser();
}

int CKXmlParserDOM::OnStart() {
  m_Tree.SetRootAsCurrentNode();  // the cursor may be on a node about to go
  m_Tree.RemoveAllChildren();
  return TRUE;
}
int CKXmlParserDOM::OnEnd() {
  m_Tree.SetRootAsCurrentNode();
  return TRUE;
}
int CKXmlParserDOM::OnStartTag(const char* szName, CKListParamValue* pAttributes) {
  if (!m_pPool) m_pPool = KMEM_TRY(new CKXmlNodePool);
  CKXmlTreeNode* p = KMEM_TRY(new (m_pPool) CKXmlTreeNode);
  m_Tree.m_pCurrent->AddChildNode(p);
  m_Tree.m_pCurrent = p;
  if (szName) p->m_strName = Intern(szName, (unsigned)strlen(szName));
  const int n = pAttributes ? pAttributes->Count() : 0;
  if (!n) return TRUE;
  // Arrays of exactly the attributes' size, filled in place.
  KPile& dn = p->m_ListParam.data;
  KPile& dv = p->m_ListValue.data;
  dn.step = dv.step = n;
  // The sizes tell whether the arrays came (a stale errno can make the
  // pile's verdict fail with the arrays in place).
  KPileSetSize(&dn, n);
  KPileSetSize(&dv, n);
  if (dn.size < n || dv.size < n) throw CKMemoryException(KSRC_PATH, __LINE__);
  void* const* names = pAttributes->GetParamList().data.ptr;
  void* const* values = pAttributes->GetValueList().data.ptr;
  const int nValues = pAttributes->GetValueList().Count();
  for (int i = 0; i < n; ++i) {
    const CKString* a = (const CKString*)names[i];
    const CKString* v = i < nValues ? (const CKString*)values[i] : nullptr;
    std::unique_ptr<CKString> pName(KMEM_TRY(new CKString(a ? Intern(*a) : CKString())));
    dv.ptr[i] = KMEM_TRY(new CKString(v ? Intern(*v) : CKString()));
    dn.ptr[i] = pName.release();
    dn.elts = dv.elts = i + 1;  // the two lists stay the same length
  }
  return TRUE;
}
int CKXmlParserDOM::OnEndTag(const char*) {
  m_Tree.SetFatherAsCurrentNode();
  return TRUE;
}
int CKXmlParserDOM::OnValue(const char* szText) {
  m_Tree.SetValue(szText);
  return TRUE;
}
int CKXmlParserDOM::OnText(const char* szText) {
  CKString& s = m_Tree.m_pCurrent->m_strValue;
  if (!szText) return TRUE;
  const unsigned n = (unsigned)strlen(szText);
  if (!s.GetLength())
    s = Intern(szText, n);
  else
    s.KConcatInPlace(n, szText);
  return TRUE;
}
int CKXmlParserDOM::OnProcInstr(const char*, CKListParamValue*) { return TRUE; }
int CKXmlParserDOM::OnError() { return TRUE; }
