// The object tree: registry, children, find family, sorting, selection,
// on-demand content, copying and properties.
#define KSRC_PATH "src/KObj"

#include <misc/KObj.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <base/tools/KDateTime.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>
#include <base/tools/KSync.h>

// ---------------------------------------------------------------- hooks
namespace {

void RefreshNothing(CKObj*, int) {}
CKObj* g_pRoot = nullptr;
void TermDeleteRoot() {
  CKObj* p = g_pRoot;
  g_pRoot = nullptr;
  delete p;
}

}  // namespace

KObjNewFunc ObjNew = nullptr;
KObjNewLink1Func ObjNewLink1 = nullptr;
KObjNewLink2Func ObjNewLink2 = nullptr;
KObjTypeFunc ObjType = nullptr;
KObjRefreshFunc ObjRefresh = RefreshNothing;
KObjVoidFunc ObjInit = nullptr;
KObjVoidFunc ObjTerm = TermDeleteRoot;

CKObj* ObjRoot() { return g_pRoot; }
void SetObjRoot(CKObj* p) { g_pRoot = p; }

// ---------------------------------------------------------------- registry
namespace {

struct GuidHash {
  size_t operator()(const CKGuid& g) const {
    uint64_t a, b;
    std::memcpy(&a, &g, 8);
    std::memcpy(&b, reinterpret_cast<const unsigned char*>(&g) + 8, 8);
    uint64_t h = a * 0x9E3779B97F4A7C15ull ^ (b + 0x632BE59BD9B4E019ull + (a << 6) + (a >> 2));
    h ^= h >> 29;
    return (size_t)(h * 0xBF58476D1CE4E5B9ull);
  }
};
struct GuidEq {
  bool operator()(const CKGuid& a, const CKGuid& b) const {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
  }
};

// GUID -> live objects. A multimap because loading a document twice gives
// two objects the same identity; both stay findable until one dies.
struct Registry {
  CKCriticalSection cs;
  std::unordered_multimap<CKGuid, CKObj*, GuidHash, GuidEq> map;
};

// Never destroyed: objects that outlive static destruction still unregister.
Registry& Reg() {
  static Registry* p = new Registry;
  return *p;
}

// Index of the entry (g, p): 1 when found, then erased.
bool RegErase(Registry& r, const CKGuid& g, const CKObj* p) {
  auto range = r.map.equal_range(g);
  for (auto it = range.first; it != range.second; ++it)
    if (it->second == p) {
      r.map.erase(it);
      return true;
    }
  return false;
}

}  // namespace

CKObj* ObjByKey(const char* szKey) {
  const CKGuid g(szKey);
  Registry& r = Reg();
  CKCriticalSectionLock lock(&r.cs);
  auto it = r.map.find(g);
  return it == r.map.end() ? nullptr : it->second;
}

int ObjCount() {
  Registry& r = Reg();
  CKCriticalSectionLock lock(&r.cs);
  return (int)r.map.size();
}

int CKObj::SetKeyIdentity(const CKGuid& g) {
  Registry& r = Reg();
  CKCriticalSectionLock lock(&r.cs);
  const bool bFound = RegErase(r, m_Guid, this);
  KASSERT_T(bFound, "o==this");
  m_Guid = g;
  r.map.emplace(m_Guid, this);
  return bFound ? TRUE : FALSE;
}

// ---------------------------------------------------------------- CProp
CProp::CProp(CKObj* pFather)
    : m_bIsReadOnly(0), m_pFather(pFather), m_nType(KPROP_VT_BSTR) {}

CProp::CProp(CProp* pSource, CKObj* pFather)
    : m_bIsReadOnly(pSource ? pSource->m_bIsReadOnly : 0),
      m_strName(pSource ? pSource->m_strName : CKString()),
      m_strValue(pSource ? pSource->m_strValue : CKString()),
      m_pFather(pFather),
      m_nType(pSource ? pSource->m_nType : (int)KPROP_VT_BSTR) {}

CProp::CProp(const CProp& p) = default;
CProp& CProp::operator=(const CProp& p) = default;
CProp::~CProp() {}

void CProp::SetValueInt(int n) { m_strValue = KStr(n); }
int CProp::GetValueInt() const { return atoi(m_strValue); }

// ---------------------------------------------------------------- construction
// Deleting an object that this list holds twice would leave the second
// entry dangling: every entry of it goes.
static void DropOthers(CKPtrList<CKObj>& list, CKObj* p) {
  for (int i = list.Count() - 1; i >= 0; i--)
    if (list.Get(i) == p) list.RemoveAt(i);
}

CKObj::CKObj()
    : m_nRefs(0),
      m_nType(0),
      m_strName("Unknown"),
      m_nParam1(0),
      m_nFlags(0),
      m_pFather(nullptr),
      m_bSelected(0),
      m_bFirstVisible(0),
      m_bDragable(0),
      m_bExpanded(0),
      m_bGridExpanded(0),
      m_bUpdated(0),
      m_bModified(0),
      m_bKeepLinkInfo(1),
      m_bMarkSort(0),
      m_Guid(TRUE) {
  Registry& r = Reg();
  CKCriticalSectionLock lock(&r.cs);
  r.map.emplace(m_Guid, this);
}

CKObj::~CKObj() {
  {
    Registry& r = Reg();
    CKCriticalSectionLock lock(&r.cs);
    if (!RegErase(r, m_Guid, this)) {
      KAssertReport("nIndex!=-1", KSRC_PATH, __LINE__, KASSERT_CONTINUE);
      return;
    }
  }
  if (m_nRefs != 0)
    KLog(4, "CKObj::Delete:Deleting CKObj(", m_strName, ") with (refs==", KStr(m_nRefs), ")");
  Free();
  if (m_pFather) {
    CKObj* pFather = m_pFather;
    pFather->Detach(this, FALSE, FALSE);
    DropOthers(pFather->m_Children, this);
    m_pFather = nullptr;
  }
  while (m_Links.Count()) {
    CObjLink* pLink = m_Links.Get(0);
    if (!pLink) {
      KAssertReport("pLink", KSRC_PATH, __LINE__, KASSERT_CONTINUE);
      m_Links.RemoveAt(0);
      continue;
    }
    pLink->SetLinked(nullptr, m_bKeepLinkInfo);
    if (m_Links.Find(pLink) != -1) {
      KAssertReport("-1 == m_Links.Find(pLink)", KSRC_PATH, __LINE__, KASSERT_CONTINUE);
      m_Links.Remove(pLink);
    }
  }
}

CKString CKObj::Key() const { return CKString(m_Guid); }

void CKObj::SetName(const char* sz) {
  m_strName = sz;
  for (int i = 0; i < m_Links.Count(); i++)
    if (CObjLink* p = m_Links.Get(i)) p->OnNameUpdate();
}

int CKObj::OnReload() {
  FreeChildren();
  return Load(FALSE);
}

CKString CKObj::TypeStr() { return ObjType ? ObjType(m_nType) : CKString(); }

// ---------------------------------------------------------------- children
void CKObj::Take(CKObj* p) {
  if (!p) return;
  if (++p->m_nRefs < 2) p->m_pFather = this;
}

void CKObj::Release(CKObj* p) {
  if (!p) return;
  p->m_nRefs--;
  if (p->m_pFather == this) p->m_pFather = nullptr;
}

int CKObj::Add(CKObj* p, int nIndex, int bNoFather) {
  if (p) p->m_nRefs++;
  const int i = nIndex == -1 ? m_Children.Add(p) : m_Children.InsertAt(nIndex, p);
  if (!bNoFather && p && p->m_nRefs < 2) p->m_pFather = this;
  return i;
}

void CKObj::Set(int nIndex, CKObj* p) {
  if (nIndex < 0) return;
  if (nIndex >= m_Children.Count()) SetCount(nIndex + 1);
  if (p) {
    p->m_nRefs++;
    p->m_pFather = this;
  }
  if (CKObj* pOld = m_Children.Get(nIndex)) pOld->m_nRefs--;
  m_Children.Set(nIndex, p);
}

void CKObj::SetCount(int n) {
  if (n < 0) n = 0;
  for (int i = n; i < m_Children.Count(); i++) {
    CKObj* o = m_Children.Get(i);
    KASSERT(o);
    if (o) o->m_nRefs--;
  }
  m_Children.SetCount(n);
}

int CKObj::Delete(CKObj* p) {
  if (!p) return -1;
  if (p->m_pFather == this) p->m_pFather = nullptr;
  p->m_nRefs--;
  const int i = m_Children.Find(p);
  if (i < 0) return -1;
  m_Children.RemoveAt(i);
  DropOthers(m_Children, p);
  delete p;
  return i;
}

void CKObj::Delete(int nIndex) {
  if (nIndex < 0 || nIndex >= m_Children.Count()) return;
  CKObj* p = m_Children.RemoveAt(nIndex);
  if (!p) return;
  p->m_pFather = nullptr;
  p->m_nRefs--;
  DropOthers(m_Children, p);
  delete p;
}

void CKObj::DeleteAll() {
  for (int i = m_Children.Count() - 1; i >= 0; i--) {
    if (i >= m_Children.Count()) continue;  // duplicates already went
    if (!m_Children.Get(i)) {
      m_Children.RemoveAt(i);
      continue;
    }
    Delete(i);
  }
}

CKObj* CKObj::Detach(int nIndex) {
  if (nIndex < 0 || nIndex >= m_Children.Count()) return nullptr;
  CKObj* p = m_Children.RemoveAt(nIndex);
  Release(p);
  return p;
}

CKObj* CKObj::Detach(CKObj* p, int bRec, int bFirstOnly) {
  CKObj* pFound = nullptr;
  const int i = p ? m_Children.Find(p) : -1;
  if (i >= 0) {
    m_Children.RemoveAt(i);
    Release(p);
    pFound = p;
  }
  if (!bRec || bFirstOnly) {
    if (pFound || !bRec) return pFound;
  }
  for (int n = 0; n < m_Children.Count(); n++) {
    CKObj* o = m_Children.Get(n);
    if (!o) {
      KASSERT(o);
      continue;
    }
    CKObj* r = o->Detach(p, TRUE, FALSE);
    if (r) {
      pFound = r;
      if (bFirstOnly) break;
    }
  }
  return pFound;
}

void CKObj::DetachAll(int bKeepFather) {
  while (m_Children.Count()) {
    CKObj* p = m_Children.RemoveAt(0);
    if (!p) continue;
    p->m_nRefs--;
    if (!bKeepFather) p->m_pFather = nullptr;
  }
}

void CKObj::FreeChildren() {
  for (int i = m_Children.Count() - 1; i >= 0; i--) {
    CKObj* p = m_Children.Get(i);
    if (!p)
      m_Children.RemoveAt(i);
    else
      p->m_nRefs--;
  }
  // Delete each object once even when the list holds it twice.
  const int n = m_Children.Count();
  std::vector<CKObj*> v((size_t)n);
  for (int i = 0; i < n; i++) v[(size_t)i] = m_Children.Get(i);
  m_Children.Empty();
  std::vector<CKObj*> sorted(v);
  std::sort(sorted.begin(), sorted.end());
  if (std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end()) {
    for (CKObj* p : v) delete p;
  } else {
    std::unordered_set<CKObj*> done;
    for (CKObj* p : v)
      if (done.insert(p).second) delete p;
  }
  RemoveFlag(KOBJ_LOADED);
}

void CKObj::Free() {
  FreeChildren();
  m_Props.DeleteAll();
  RemoveFlag(KOBJ_PROPSLOADED);
  m_strDisplayName.Empty();
  m_strDescr.Empty();
  m_strIcon.Empty();
  m_strParam1.Empty();
  m_strParam2.Empty();
  m_strPath.Empty();
  m_nParam1 = 0;
  m_nFlags = 0;
  m_bSelected = 0;
  OnFree();
}

void CKObj::Swap(CKObj* p1, CKObj* p2) {
  const int i = m_Children.Find(p1), j = m_Children.Find(p2);
  if (i >= 0 && j >= 0) m_Children.Swap(i, j);
}

int CKObj::CountRec() {
  int n = Count();
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) n += o->CountRec();
  return n;
}

// ---------------------------------------------------------------- fathers
int CKObj::GetFatherCount() {
  int n = 0;
  for (CKObj* p = m_pFather; p; p = p->m_pFather) n++;
  return n;
}

CKObj* CKObj::GetFather(int nLevel) {
  if (nLevel < 0) return nullptr;
  CKObj* p = m_pFather;
  while (p && nLevel-- > 0) p = p->m_pFather;
  return p;
}

CKObj* CKObj::GetFatherOfType(int nType) {
  for (CKObj* p = m_pFather; p; p = p->m_pFather)
    if (p->m_nType == nType) return p;
  return nullptr;
}

int CKObj::HasFather(CKObj* p) {
  for (CKObj* f = m_pFather; f; f = f->m_pFather)
    if (f == p) return TRUE;
  return FALSE;
}

CKObj* CKObj::GetRoot() {
  CKObj* p = this;
  while (p->m_pFather) p = p->m_pFather;
  return p;
}

int CKObj::IsRoot() { return this == g_pRoot ? TRUE : FALSE; }

void CKObj::FindParents(CKObj* p, CKPtrList<CKObj>& list, int bRec, int bClear) {
  if (bClear) list.Empty();
  if (m_Children.Find(p) >= 0) list.Add(this);
  if (!bRec) return;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) o->FindParents(p, list, TRUE, FALSE);
}

// ---------------------------------------------------------------- find family
int CKObj::IsNamed(const char* szName, int bNoCase) {
  const CKString s = Name();
  if (!szName || !*szName) return s.GetLength() == 0;
  if (s.GetLength() != strlen(szName)) return FALSE;
  return bNoCase ? KStrICmp(s, szName) == 0 : std::memcmp((const char*)s, szName, s.GetLength()) == 0;
}

CKObj* CKObj::Find(int nType, int bRec) {
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if (o->m_nType == nType) return o;
    if (bRec)
      if (CKObj* r = o->Find(nType, TRUE)) return r;
  }
  return nullptr;
}

int CKObj::Find(int nType, CKPtrList<CKObj>& list, int bRec, int bClear) {
  if (bClear) list.Empty();
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if (o->Type() == nType) list.Add(o);
    if (bRec) o->Find(nType, list, TRUE, FALSE);
  }
  return list.Count();
}

int CKObj::CountTypedR(int nType, int bRec) {
  CKPtrList<CKObj> list;
  return Find(nType, list, bRec, TRUE);
}

CKObj* CKObj::Find(const char* szName, int bNoCase) {
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (o && o->IsNamed(szName, bNoCase)) return o;
  }
  return nullptr;
}

CKObj* CKObj::Find(int nType, const char* szName, int bNoCase) {
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (o && o->Type() == nType && o->IsNamed(szName, bNoCase)) return o;
  }
  return nullptr;
}

CKObj* CKObj::FindRecName(int nType, int bTyped, const char* szName, int bNoCase) {
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if ((!bTyped || o->Type() == nType) && o->IsNamed(szName, bNoCase)) return o;
    if (CKObj* r = o->FindRecName(nType, bTyped, szName, bNoCase)) return r;
  }
  return nullptr;
}

CKObj* CKObj::FindRec(const char* szName, int bNoCase) {
  return FindRecName(0, FALSE, szName, bNoCase);
}

CKObj* CKObj::FindRec(int nType, const char* szName, int bNoCase) {
  return FindRecName(nType, TRUE, szName, bNoCase);
}

int CKObj::Find(const char* szName, CKPtrList<CKObj>& list, int bRec) {
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if (o->IsNamed(szName, FALSE)) list.Add(o);
    if (bRec) o->Find(szName, list, TRUE);
  }
  return list.Count();
}

int CKObj::FindRec(CKObj* p) {
  if (m_Children.Find(p) >= 0) return TRUE;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (o->FindRec(p)) return TRUE;
  return FALSE;
}

int CKObj::Find(CKObj* p, CKObj*& pFather) {
  pFather = nullptr;
  int i = m_Children.Find(p);
  if (i >= 0) {
    pFather = this;
    return i;
  }
  for (int n = 0; n < Count(); n++)
    if (CKObj* o = Get(n)) {
      i = o->Find(p, pFather);
      if (i >= 0) return i;
    }
  pFather = nullptr;
  return -1;
}

int CKObj::CountType(int nType, int bRec) {
  int n = 0;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) {
      if (o->Type() == nType) n++;
      if (bRec) n += o->CountType(nType, TRUE);
    }
  return n;
}

int CKObj::CountTyped(int nType) {
  int n = 0;
  for (int i = 0; i < m_Children.Count(); i++)
    if (CKObj* o = m_Children.Get(i))
      if (o->m_nType == nType) n++;
  return n;
}

CKObj* CKObj::GetTyped(int nType, int n) {
  for (int i = 0; i < m_Children.Count(); i++)
    if (CKObj* o = m_Children.Get(i))
      if (o->m_nType == nType && n-- == 0) return o;
  return nullptr;
}

CKObj* CKObj::FindByKey(const char* szKey) {
  if (!szKey) return nullptr;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (strcmp(o->Key(), szKey) == 0) return o;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (CKObj* r = o->FindByKey(szKey)) return r;
  return nullptr;
}

int CKObj::Exist(CKObj* p) {
  if (p == this) return TRUE;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (o->Exist(p)) return TRUE;
  return FALSE;
}

int CKObj::ExistInTree(CKObj* p) {
  if (p == this) return TRUE;
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) continue;
    if (o->HasPlus() ? o->ExistInTree(p) : o == p) return TRUE;
  }
  return FALSE;
}

int CKObj::HasPlus() {
  if (HasFlag(KOBJ_NOPLUS)) return FALSE;
  if (Count() > 0) return TRUE;
  return (HasFlag(KOBJ_LOADABLE) && !HasFlag(KOBJ_LOADED)) ? TRUE : FALSE;
}

// ---------------------------------------------------------------- names
// Number n of a name "base (n)" whose base is strBase; 0 when it is not one.
static int NameSuffix(const char* szName, const CKString& strBase) {
  KASSERT_RETV_T(!KIsEmpty(szName), "!KIsEmpty(szName)", 0);
  const size_t n = strlen(szName), nBase = strBase.GetLength();
  // base + " (" + at least one digit + ")"
  if (n < nBase + 4 || szName[n - 1] != ')') return 0;
  if (std::memcmp(szName, (const char*)strBase, nBase) != 0) return 0;
  if (szName[nBase] != ' ' || szName[nBase + 1] != '(') return 0;
  for (size_t i = nBase + 2; i < n - 1; i++)
    if (szName[i] < '0' || szName[i] > '9') return 0;
  return atoi(szName + nBase + 2);
}

CKString CKObj::CheckNameDuplicate(CKString& strName) {
  if (!m_pFather) return strName;
  KASSERT_RETV_T(!KIsEmpty(strName), "!KIsEmpty(strName)", CKString());
  CKObj* f = m_pFather;
  bool bTaken = false;
  for (int i = 0; i < f->Count() && !bTaken; i++) {
    CKObj* o = f->Get(i);
    if (o && o != this) {
      const CKString s = o->Name();
      bTaken = s.GetLength() == strName.GetLength() &&
               std::memcmp((const char*)s, (const char*)strName, s.GetLength()) == 0;
    }
  }
  if (!bTaken) return strName;
  std::vector<int> nums;
  for (int i = 0; i < f->Count(); i++) {
    CKObj* o = f->Get(i);
    if (!o || o == this) continue;
    const CKString s = o->Name();
    if (s.GetLength() == 0) continue;
    const int k = NameSuffix(s, strName);
    if (k) nums.push_back(k);
  }
  std::sort(nums.begin(), nums.end());
  int n = 2;
  for (int k : nums)
    if (k == n) n++;
  return KAnd(strName, " (", KStr(n), ")");
}

// ---------------------------------------------------------------- compare, sort
int CKObj::Compare(CKObj* p) {
  if (!p) return 1;
  const CKString a = HasFlag(KOBJ_SORTBYDISPLAYNAME) ? DisplayName() : Name();
  const CKString b = p->HasFlag(KOBJ_SORTBYDISPLAYNAME) ? p->DisplayName() : p->Name();
  return KStrICmp(a, b);
}

// Compare with a null left side ordering first.
static int CompareNull(CKObj* pa, CKObj* pb) {
  if (!pa) return pb ? -1 : 0;
  return pa->Compare(pb);
}

static int CompareObjs(const void* a, const void* b) {
  return CompareNull(*(CKObj* const*)a, *(CKObj* const*)b);
}

void CKObj::Sort() {
  const int n = Count();
  if (n <= 0) return;
  CKObj** arr = (CKObj**)malloc(sizeof(CKObj*) * (size_t)n);
  if (!arr) throw CKMemoryException(KSRC_PATH, __LINE__);
  for (int i = 0; i < n; i++) arr[i] = Get(i);
  qsort(arr, (size_t)n, sizeof(CKObj*), CompareObjs);
  for (int i = 0; i < n; i++) {
    m_Children.Set(i, arr[i]);
    if (arr[i]) arr[i]->MarkSort(FALSE);
  }
  free(arr);
}

void CKObj::SortRec() {
  if (Count() > 1) Sort();
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    KASSERT(o);
    if (o) o->SortRec();
  }
}

void CKObj::_SortMarked(int bRec) {
  if (m_bMarkSort && Count() >= 2) Sort();
  if (!bRec) return;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) o->_SortMarked(TRUE);
}

void CKObj::SortMarked(int bRec) {
  const unsigned long nStart = KTimerStart();
  if (bRec) KLog(KLOG_SEPARATOR, "--------------------------------");
  _SortMarked(bRec);
  if (bRec) {
    KLog(KLOG_SEPARATOR, "--------------------------------");
    KTimerTrace2(KLOG_SEPARATOR, "Sort marked done in ", nStart);
  }
}

int CKObj::__Partition(int lo, int hi) {
  CKObj* pivot = Get(lo);
  int i = lo - 1, j = hi + 1;
  for (;;) {
    do i++; while (CompareNull(Get(i), pivot) < 0);
    do j--; while (CompareNull(Get(j), pivot) > 0);
    if (i >= j) return j;
    m_Children.Swap(i, j);
  }
}

void CKObj::__Qsort(int lo, int hi) {
  while (lo < hi) {
    const int p = __Partition(lo, hi);
    if (p - lo > hi - p - 1) {
      __Qsort(p + 1, hi);
      hi = p;
    } else {
      __Qsort(lo, p);
      lo = p + 1;
    }
  }
}

// ---------------------------------------------------------------- selection
void CKObj::Select(int nIndex) {
  CKObj* o = Get(nIndex);
  KASSERT_RET(o);
  o->SetSelected();
}

void CKObj::SetSelected() {
  if (m_pFather) m_pFather->ClearSelection();
  m_bSelected = TRUE;
}

void CKObj::Selected() {
  if (m_pFather) m_pFather->ClearSelection();
  m_bSelected = TRUE;
  OnSelected();
}

void CKObj::Unselect() {
  m_bSelected = FALSE;
  OnUnselected();
}

int CKObj::IsSelected() {
  return (m_pFather && m_pFather->GetSelectedObj(FALSE) == this) ? TRUE : FALSE;
}

int CKObj::IsSelected(int nIndex) {
  CKObj* o = Get(nIndex);
  return o ? o->m_bSelected : FALSE;
}

int CKObj::FindSelected() {
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (o->m_bSelected) return i;
  return -1;
}

CKObj* CKObj::GetSelectedObj(int bRec) {
  const int nIndex = FindSelected();
  if (nIndex >= 0) {
    KASSERT_RETV(Get(nIndex), nullptr);
    return Get(nIndex);
  }
  if (!bRec) return nullptr;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (CKObj* r = o->GetSelectedObj(TRUE)) return r;
  return nullptr;
}

void CKObj::ClearSelection() {
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) o->m_bSelected = FALSE;
}

void CKObj::SaveSelections() {
  const int nSel = FindSelected();
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) continue;
    o->RemoveFlag(KOBJ_SAVEDMSELECTED | KOBJ_SAVEDSELECTED);
    if (i == nSel) o->AddFlag(KOBJ_SAVEDSELECTED);
    if (o->HasFlag(KOBJ_MSELECTED)) o->AddFlag(KOBJ_SAVEDMSELECTED);
  }
}

int CKObj::IsMSelected(int nIndex) {
  CKObj* o = Get(nIndex);
  return o ? o->IsMSelected() : FALSE;
}

void CKObj::MSelect(int nIndex) {
  if (CKObj* o = Get(nIndex)) o->AddFlag(KOBJ_MSELECTED);
}

void CKObj::MUnselect(int nIndex) {
  if (CKObj* o = Get(nIndex)) o->RemoveFlag(KOBJ_MSELECTED);
}

void CKObj::MSelectReverse(int nIndex) {
  if (CKObj* o = Get(nIndex)) o->SetFlag(!o->IsMSelected(), KOBJ_MSELECTED);
}

void CKObj::MSelectAll() {
  for (int i = 0; i < Count(); i++) MSelect(i);
}

void CKObj::MUnselectAll() {
  for (int i = 0; i < Count(); i++) MUnselect(i);
}

int CKObj::GetMSelectedCount() {
  int n = 0;
  for (int i = 0; i < Count(); i++) n += IsMSelected(i);
  return n;
}

int CKObj::GetMSelected(int n) {
  if (n < 0) return -1;
  for (int i = 0; i < Count(); i++)
    if (IsMSelected(i) && n-- == 0) return i;
  return -1;
}

CKObj* CKObj::GetMSelectedObj(int n) { return Get(GetMSelected(n)); }

// ---------------------------------------------------------------- view state
void CKObj::ClearFirstVisible() {
  m_bFirstVisible = FALSE;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) o->ClearFirstVisible();
}

void CKObj::SetFirstVisible(CKObj* p) {
  ClearFirstVisible();
  if (p) p->m_bFirstVisible = TRUE;
}

CKObj* CKObj::GetFirstVisible() {
  if (m_bFirstVisible) return this;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i))
      if (CKObj* r = o->GetFirstVisible()) return r;
  return nullptr;
}

void CKObj::ClearModified(int bRec) {
  m_bModified = FALSE;
  if (!bRec) return;
  for (int i = 0; i < Count(); i++)
    if (CKObj* o = Get(i)) o->ClearModified(TRUE);
}

// ---------------------------------------------------------------- on demand
int CKObj::Load(int n) {
  if (!HasFlag(KOBJ_LOADABLE) || HasFlag(KOBJ_LOADED)) return TRUE;
  const int r = OnLoad();
  if (r) {
    AddFlag(KOBJ_LOADED);
    ObjRefresh(this, n);
  }
  return r;
}

int CKObj::Update(int n) {
  if (!HasFlag(KOBJ_LOADABLE)) return TRUE;
  if (!HasFlag(KOBJ_LOADED)) return Load(n);
  const int r = OnUpdate();
  if (r) ObjRefresh(this, n);
  return r;
}

int CKObj::Reload(int n) {
  if (!HasFlag(KOBJ_LOADABLE)) return TRUE;
  if (!HasFlag(KOBJ_LOADED)) return Load(n);
  const int r = OnReload();
  if (r) {
    AddFlag(KOBJ_LOADED);
    ObjRefresh(this, n);
  }
  return r;
}

int CKObj::Executed() {
  return OnExecuted();
}

// ---------------------------------------------------------------- copy
void CKObj::CopyFrom(CKObj* pSource, int bResolveLinks) {
  if (!pSource || pSource == this) return;
  PropCopy(pSource);
  m_strName = pSource->m_strName;
  m_strDisplayName = pSource->m_strDisplayName;
  m_strDescr = pSource->m_strDescr;
  m_nFlags = pSource->m_nFlags;
  m_bSelected = pSource->m_bSelected;
  m_bDragable = pSource->m_bDragable;
  m_bExpanded = pSource->m_bExpanded;
  m_bFirstVisible = pSource->m_bFirstVisible;
  m_strParam1 = pSource->m_strParam1;
  m_strParam2 = pSource->m_strParam2;
  m_nParam1 = pSource->m_nParam1;
  const int n = pSource->Count();
  for (int i = 0; i < n; i++) {
    CKObj* c = pSource->Get(i);
    if (!c) {
      m_Children.Add(nullptr);
      continue;
    }
    if (bResolveLinks && c->ObjLink()) {
      CKObj* o2 = c->ObjLink()->GetLinked();
      KASSERT_RET(o2);
      c = o2;
    }
    CKObj* pNew = ObjNew ? ObjNew(c->Type()) : nullptr;
    if (!pNew) {
      // No factory for that type: the slot stays empty rather than crash.
      KLog(10, "ERROR => CKObj::CopyFrom(): no object for type ", KStr(c->Type()));
      m_Children.Add(nullptr);
      continue;
    }
    pNew->CopyFrom(c, bResolveLinks);
    if (!pNew->OnObjCopy(c)) {
      delete pNew;
      m_Children.Add(nullptr);
      continue;
    }
    m_Children.Add(pNew);
    Take(pNew);
  }
}

CKObj* ObjCopy(CKObj* pSource, int bResolveLinks) {
  if (!pSource) return nullptr;
  CKObj* p = ObjNew ? ObjNew(pSource->Type()) : nullptr;
  if (!p) {
    KLog(10, "ERROR => ObjCopy(): no object for type ", KStr(pSource->Type()));
    return nullptr;
  }
  p->CopyFrom(pSource, bResolveLinks);
  if (!p->OnObjCopy(pSource)) {
    delete p;
    return nullptr;
  }
  return p;
}

// ---------------------------------------------------------------- links
void CKObj::ResolveLinks(int bRec) {
  KASSERT_RET(!ObjLink());
  for (int i = 0; i < Count(); i++) {
    CKObj* o = Get(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    if (CObjLink* l = o->ObjLink())
      l->ResolveLink();
    else if (bRec)
      o->ResolveLinks(TRUE);
  }
}

// ---------------------------------------------------------------- properties
void CKObj::PropSetCount(int n) {
  if (n < 0) n = 0;
  // Entries cut off are deleted (dropping them unowned would leak them).
  while (m_Props.Count() > n) delete m_Props.RemoveAt(m_Props.Count() - 1);
  while (m_Props.Count() < n) m_Props.Add(nullptr);
}

CProp* CKObj::Prop(int nIndex) {
  if (nIndex < 0 || nIndex >= m_Props.Count()) return nullptr;
  CProp* p = m_Props.Get(nIndex);
  if (p) return p;
  p = new (std::nothrow) CProp(this);
  if (p) m_Props.Set(nIndex, p);
  return p;
}

CProp* CKObj::Prop(const char* szName) const {
  if (!szName || !*szName) return nullptr;
  for (int i = 0; i < m_Props.Count(); i++) {
    CProp* p = m_Props.Get(i);
    if (p && KStrICmp(p->GetName(), szName) == 0) return p;
  }
  return nullptr;
}

CProp* CKObj::PropAdd(const char* szName, const char* szValue, int bReadOnly) {
  CProp* pProp = Prop(szName);
  if (pProp) {
    KASSERT_RETV(!pProp->IsReadOnly(), nullptr);
    pProp->SetValueStr(szValue);
    return pProp;
  }
  pProp = new CProp(this);
  m_Props.Add(pProp);
  pProp->SetName(szName);
  pProp->SetValueStr(szValue);
  pProp->SetReadOnly(bReadOnly);
  return pProp;
}

CProp* CKObj::PropAddUnique(const char* szName, const char* szValue, int bOverwrite) {
  if (!szName || !*szName) return nullptr;
  CProp* pProp = Prop(szName);
  if (!pProp) return PropAdd(szName, szValue, FALSE);
  if (bOverwrite) pProp->SetValueStr(szValue);
  return pProp;
}

CKString CKObj::PropValue(const char* szName) const {
  CProp* p = Prop(szName);
  return p ? p->GetValueStr() : CKString();
}

void CKObj::PropSet(CKListParamValue& list) {
  for (int i = 0; i < list.Count(); i++) {
    const CKString strParam = list.GetParam(i);
    if (KIsEmpty(strParam)) {
      KASSERT(!KIsEmpty(strParam));
      continue;
    }
    PropAdd(strParam, list.GetValue(i), FALSE);
  }
}

void CKObj::PropCopy(CKObj* pSource) {
  m_Props.DeleteAll();
  if (!pSource || pSource == this) return;
  for (int i = 0; i < pSource->PropCount(); i++) {
    CProp* o = pSource->Prop(i);
    if (!o) {
      KASSERT(o);
      continue;
    }
    m_Props.Add(new CProp(o, this));
  }
}

void CKObj::PropFree() {
  m_Props.DeleteAll();
  RemoveFlag(KOBJ_PROPSLOADED);
}

int CKObj::PropLoad() {
  if (!HasFlag(KOBJ_HASPROPS) || HasFlag(KOBJ_PROPSLOADED)) return TRUE;
  const int r = OnLoadProp();
  if (r) {
    AddFlag(KOBJ_PROPSLOADED);
    ObjRefresh(this, 1);
  }
  return r;
}

int CKObj::PropSave() {
  if (!HasFlag(KOBJ_HASPROPS) || !HasFlag(KOBJ_PROPSLOADED)) return TRUE;
  return OnSaveProp();
}
