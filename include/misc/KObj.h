// The object tree: CKObj (named, typed nodes with children, a flag word,
// properties and a process-wide GUID identity), CProp (a named text
// property) and CObjLink (a node standing for another object).
//
// Objects are registered by GUID in a process-wide registry guarded by one
// critical section; ObjByKey finds any live object from any thread. The
// trees themselves are not locked.
#ifndef KELVOR_KOBJ_H
#define KELVOR_KOBJ_H
#include <base/classes/list/KPtrList.h>
#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KDebug.h>
#include <base/tools/KDefs.h>
#include <base/tools/KGuid.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KString.h>

#define KOBJ_HEADER_PATH "include/misc/KObj"

#define KOBJ_MSELECTED 0x00000001
#define KOBJ_LOADABLE 0x00000002
#define KOBJ_LOADED 0x00000004
#define KOBJ_READONLY 0x00000008
#define KOBJ_HASPROPS 0x00000010
#define KOBJ_PROPSLOADED 0x00000020
#define KOBJ_NOPLUS 0x00000080
#define KOBJ_SORTBYDISPLAYNAME 0x00000100
#define KOBJ_SAVEDMSELECTED 0x10000000
#define KOBJ_SAVEDSELECTED 0x20000000

// Type of a link node.
#define KOBJ_TYPE_LINK (-100)
// The OLE VARTYPE of a text property.
enum { KPROP_VT_BSTR = 8 };

class CKObj;
class CObjLink;
class CKXmlTree;

// ---------------------------------------------------------------- CProp
class KELVOR_API CProp {
public:
  explicit CProp(CKObj* pFather);
  CProp(CProp* pSource, CKObj* pFather);
  CProp(const CProp& p);
  CProp& operator=(const CProp& p);
  virtual ~CProp();

  void SetName(const char* sz) { m_strName = sz; }
  CKString GetName() const { return m_strName; }
  void SetValueStr(const char* sz) { m_strValue = sz; }
  CKString GetValueStr() const { return m_strValue; }
  void SetValueInt(int n);
  int GetValueInt() const;
  // A new type empties the value; the current type changes nothing.
  void SetType(int n) {
    if (n == m_nType) return;
    m_nType = n;
    m_strValue.Empty();
  }
  int GetType() const { return m_nType; }
  // Read-only is set once and for good.
  void SetReadOnly(int b) {
    KASSERT_RET_AT(!m_bIsReadOnly, "!m_bIsReadOnly", KOBJ_HEADER_PATH, __LINE__);
    m_bIsReadOnly = b;
  }
  int IsReadOnly() const { return m_bIsReadOnly; }
  CKObj* GetFather() const { return m_pFather; }
  CKString GetIcon() const { return CKString(); }

protected:
  int m_bIsReadOnly;
  CKString m_strName;
  CKString m_strValue;
  CKObj* m_pFather;
  int m_nType;
};

// ---------------------------------------------------------------- hooks
typedef CKObj* (*KObjNewFunc)(int nType);
typedef CKObj* (*KObjNewLink1Func)(CKObj*);
typedef CKObj* (*KObjNewLink2Func)(CObjLink*);
typedef CKString (*KObjTypeFunc)(int nType);
typedef void (*KObjRefreshFunc)(CKObj*, int);
typedef void (*KObjVoidFunc)(void);

// Process-wide hooks the application installs.
extern KELVOR_API KObjNewFunc ObjNew;
extern KELVOR_API KObjNewLink1Func ObjNewLink1;
extern KELVOR_API KObjNewLink2Func ObjNewLink2;
extern KELVOR_API KObjTypeFunc ObjType;
extern KELVOR_API KObjRefreshFunc ObjRefresh;
extern KELVOR_API KObjVoidFunc ObjInit;
extern KELVOR_API KObjVoidFunc ObjTerm;

KELVOR_API CKObj* ObjRoot();
KELVOR_API void SetObjRoot(CKObj* p);
// Any live object by its key (braced GUID text); null when none. Any thread.
KELVOR_API CKObj* ObjByKey(const char* szKey);
KELVOR_API CKObj* ObjCopy(CKObj* pSource, int bResolveLinks);
// Number of live objects in the registry.
KELVOR_API int ObjCount();

// ---------------------------------------------------------------- CKObj
class KELVOR_API CKObj {
public:
  CKObj();
  CKObj(const CKObj&) = delete;
  CKObj& operator=(const CKObj&) = delete;

  // Virtual operations, in their slot order.
  virtual ~CKObj();
  virtual void AddFlag(int nFlag) { m_nFlags |= nFlag; }
  virtual void RemoveFlag(int nFlag) { m_nFlags &= ~nFlag; }
  virtual void SetFlag(int bSet, int nFlag) {
    if (bSet)
      AddFlag(nFlag);
    else
      RemoveFlag(nFlag);
  }
  virtual int GetFlag() { return m_nFlags; }
  virtual int HasFlag(int nFlag) { return m_nFlags & nFlag; }
  virtual int IsModified() { return m_bModified; }
  virtual void SetModified(int b) { m_bModified = b; }
  virtual void SetName(const char* sz);
  virtual int Rename(const char* sz) {
    m_strName = sz;
    return TRUE;
  }
  virtual int OnLoad() { return TRUE; }
  virtual int OnReload();
  virtual int CanSuppress() { return FALSE; }
  virtual int OnObjCopy(CKObj*) { return TRUE; }
  virtual void OnFree() {}
  virtual int OnSuppress(CKPtrList<CKObj>&) { return TRUE; }
  virtual int OnSuppress() { return TRUE; }
  virtual int OnExecuted() { return FALSE; }
  virtual int OnUpdate() { return TRUE; }
  virtual void OnSelected() {}
  virtual void OnUnselected() {}
  virtual CKString Name() { return m_strName; }
  virtual CKString DisplayName() { return m_strDisplayName; }
  virtual CKString Icon() { return m_strIcon; }
  virtual CKString Path() { return m_strPath; }
  virtual CKString Descr() { return m_strDescr; }
  virtual void SetDescr(const char* sz) { m_strDescr = sz; }
  virtual CKString TypeStr();
  virtual CKString Param1() { return m_strParam1; }
  virtual CKString Param2() { return m_strParam2; }
  virtual CKObj* FindByKey(const char* szKey);
  virtual int Type() { return m_nType; }
  virtual void Sort();
  virtual void SortRec();
  virtual int Compare(CKObj* p);
  virtual int Save() { return FALSE; }
  virtual int Count() { return m_Children.Count(); }
  virtual int CountTypedR(int nType, int bRec);
  virtual int Exist(CKObj* p);
  virtual int ExistInTree(CKObj* p);
  virtual CKObj* Get(int nIndex) { return m_Children.Get(nIndex); }
  virtual int Init(const char* szName) {
    SetName(szName);
    return TRUE;
  }
  virtual int HasPlus();
  virtual CObjLink* ObjLink() { return nullptr; }
  virtual int OnLoadProp() { return TRUE; }
  virtual int OnSaveProp() { return TRUE; }
  virtual int OnWriteXmlProp(CKString&, CKString&) { return TRUE; }
  virtual int OnWriteXmlMember(CKString&, CKString&) { return TRUE; }
  virtual int OnWriteXmlChild(CKObj*) { return TRUE; }
  virtual int OnWriteXmlSpecificMembers(CKXmlTree*) { return TRUE; }
  virtual int OnReadXmlProp(CKString&, CKString&) { return TRUE; }
  virtual int OnReadXmlMember(CKString&, CKString&) { return TRUE; }
  virtual int OnReadXmlChild(CKObj*) { return TRUE; }
  virtual void MarkSort(int bMark) { m_bMarkSort = bMark; }
  virtual int OnReadXmlSpecificMembers(CKXmlTree*) { return TRUE; }

  // Identity.
  CKString Key() const;
  const CKGuid& Guid() const { return m_Guid; }
  void SetType(int n) { m_nType = n; }
  const char* NamePtr() const { return m_strName; }
  // strName, or strName + " (n)" with the smallest n >= 2 no sibling uses
  // when a sibling already carries strName.
  CKString CheckNameDuplicate(CKString& strName);

  // Display strings.
  void SetPath(const char* sz) { m_strPath = sz; }
  void SetIcon(const char* sz) { m_strIcon = sz; }
  void SetParam1(const char* sz) { m_strParam1 = sz; }
  void SetParam1(int n) { m_nParam1 = n; }
  void SetParam2(const char* sz) { m_strParam2 = sz; }
  void SetDisplayName(const char* sz) { m_strDisplayName = sz; }
  int GetParam1Int() const { return m_nParam1; }
  int GetRefs() const { return m_nRefs; }

  // Children. A child may have several fathers: each holding counts one ref
  // (GetRefs), and the first father to take it is its main father
  // (GetFather). Delete deletes the child even when others still hold it;
  // Detach and DetachAll only let go of it; SetCount cuts or pads with null
  // entries and deletes nothing. Free also drops the properties and display
  // texts (the name stays) and clears every flag.
  // Appends (nIndex -1) or inserts p, null allowed; the index used.
  int Add(CKObj* p, int nIndex = -1, int bNoFather = FALSE);
  void Set(int nIndex, CKObj* p);
  void SetCount(int n);
  int Delete(CKObj* p);
  void Delete(int nIndex);
  void DeleteAll();
  CKObj* Detach(int nIndex);
  // With bRec also from every subtree (bFirstOnly: the first one holding p).
  CKObj* Detach(CKObj* p, int bRec, int bFirstOnly);
  void DetachAll(int bKeepFather);
  void FreeChildren();
  void Free();
  void Unload() { FreeChildren(); }
  void Swap(int i, int j) { m_Children.Swap(i, j); }
  void Swap(CKObj* p1, CKObj* p2);
  int HasChildren() { return Count() > 0; }
  int CountRec();

  // Fathers (main-father chain).
  int GetFatherCount();
  // nLevel steps up the main-father chain; null past the top.
  CKObj* GetFather(int nLevel = 0);
  CKObj* GetFatherOfType(int nType);
  int HasFather(CKObj* p);
  CKObj* GetRoot();
  int IsRoot();
  // Adds every object of the subtree that holds p as a direct child.
  void FindParents(CKObj* p, CKPtrList<CKObj>& list, int bRec, int bClear);

  // Find family: children in index order, with bRec depth-first pre-order;
  // names match with the exact length, case-sensitively unless bNoCase (a
  // null or empty name matches only an empty name). The list forms append
  // and return the list's count. Find(p, pFather) gives p's index and the
  // object holding it (this or the first descendant found), or -1.
  CKObj* Find(int nType, int bRec);
  int Find(int nType, CKPtrList<CKObj>& list, int bRec, int bClear);
  CKObj* Find(const char* szName, int bNoCase);
  CKObj* Find(int nType, const char* szName, int bNoCase);
  int Find(const char* szName, CKPtrList<CKObj>& list, int bRec);
  CKObj* FindRec(const char* szName, int bNoCase);
  CKObj* FindRec(int nType, const char* szName, int bNoCase);
  int Find(CKObj* p) { return m_Children.Find(p); }
  int FindRec(CKObj* p);
  int Find(CKObj* p, CKObj*& pFather);
  int CountType(int nType, int bRec);
  int CountTyped(int nType);
  CKObj* GetTyped(int nType, int n);

  // Sorting.
  void __Qsort(int lo, int hi);
  int __Partition(int lo, int hi);
  // Sorts the children of this object if it is marked with MarkSort and,
  // with bRec, of every marked object below (Sort clears the children's
  // marks as it goes); with bRec frames the run with separator lines and
  // its timing at level 1024.
  void SortMarked(int bRec);
  void _SortMarked(int bRec);

  // Single selection (per set of siblings).
  void Select(int nIndex);
  void SetSelected();
  void Selected();
  void Unselect();
  int IsSelected();
  int IsSelected(int nIndex);
  int GetSelected() { return FindSelected(); }
  int FindSelected();
  CKObj* GetSelectedObj(int bRec);
  void ClearSelection();
  // Copies each child's single and multi selection into the
  // KOBJ_SAVEDSELECTED / KOBJ_SAVEDMSELECTED flags.
  void SaveSelections();
  // Multi-selection (KOBJ_MSELECTED on the children).
  int IsMSelected() { return HasFlag(KOBJ_MSELECTED) ? TRUE : FALSE; }
  int IsMSelected(int nIndex);
  void MSelect(int nIndex);
  void MUnselect(int nIndex);
  void MSelectReverse(int nIndex);
  void MSelectAll();
  void MUnselectAll();
  int GetMSelectedCount();
  int GetMSelected(int n);
  CKObj* GetMSelectedObj(int n);

  // View state.
  void SetExpanded(int b) { m_bExpanded = b; }
  int IsExpanded() const { return m_bExpanded; }
  void SetGridExpanded(int b) { m_bGridExpanded = b; }
  int IsGridExpanded() const { return m_bGridExpanded; }
  void SetDragable(int b) { m_bDragable = b; }
  int IsDragable() const { return m_bDragable; }
  void SetUpdated(int b) { m_bUpdated = b; }
  int IsUpdated() const { return m_bUpdated; }
  void SetReadOnly(int b) { SetFlag(b, KOBJ_READONLY); }
  int IsReadOnly() { return HasFlag(KOBJ_READONLY) ? TRUE : FALSE; }
  void SetKeepLinkInfo(int b) { m_bKeepLinkInfo = b; }
  int IsMarkSort() const { return m_bMarkSort; }
  void SetFirstVisible(CKObj* p);
  CKObj* GetFirstVisible();
  int IsFirstVisible() const { return m_bFirstVisible; }
  void ClearFirstVisible();
  void ClearModified(int bRec);

  // On-demand content: Load calls OnLoad once for a KOBJ_LOADABLE object
  // (KOBJ_LOADED then set), Update loads first when not loaded yet and
  // otherwise calls OnUpdate, Reload frees the children and loads again;
  // each success calls the ObjRefresh hook.
  int Load(int n);
  int Update(int n);
  int Reload(int n);
  int Executed();

  // Copy.
  // Copies members, properties and children (new keys); with bResolveLinks
  // a link is copied as the object it points at. OnObjCopy may refuse a child.
  void CopyFrom(CKObj* pSource, int bResolveLinks);

  // Links pointing at this object.
  void RegisterLink(CObjLink* p) { m_Links.Add(p); }
  void RevokeLink(CObjLink* p) { m_Links.Remove(p); }
  int LinkCount() const { return m_Links.Count(); }
  // Re-attaches every link among the children (with bRec in the subtree) to
  // the live object its stored key names.
  void ResolveLinks(int bRec);

  // Properties.
  int PropCount() const { return m_Props.Count(); }
  void PropSetCount(int n);
  CProp* Prop(int nIndex);
  CProp* Prop(const char* szName) const;
  CProp* PropAdd(const char* szName, const char* szValue, int bReadOnly = FALSE);
  CProp* PropAddUnique(const char* szName, const char* szValue, int bOverwrite = TRUE);
  CKString PropValue(const char* szName) const;
  void PropSet(CKListParamValue& list);
  void PropCopy(CKObj* pSource);
  void PropFree();
  void PropUnload() { PropFree(); }
  int PropLoad();
  int PropSave();

  // XML persistence.
  int ToXmlString(CKString& strXml);
  int ToXml(const char* szFile);
  int LoadFromXml(const char* szFile);
  static CKObj* CreateFromXml(const char* szFile);
  // CreateFromXml on a document held in memory (no file).
  static CKObj* CreateFromXmlText(const char* pText, unsigned nLength);
  int FromXml(CKXmlTree* pTree);
  // Member element names and values, property names and values.
  static CKString XmlEncode(const char* sz);
  static CKString XmlDecode(const char* sz);

protected:
  void WriteXmlMember(CKXmlTree* pTree, const char* szName, const char* szValue);
  static int ReadXmlMember(CKXmlTree* pTree, const char* szName, CKString& strValue);
  int ReadXmlMember(CKXmlTree* pTree, int nIndex, CKString& strName, CKString& strValue);

  // Fields in their declared order.
  int m_nRefs;
  int m_nType;
  CKString m_strName;
  CKString m_strDisplayName;
  CKString m_strDescr;
  CKString m_strIcon;
  CKString m_strParam1;
  CKString m_strParam2;
  CKString m_strPath;
  int m_nParam1;
  int m_nFlags;
  CKObj* m_pFather;
  CKPtrList<CKObj> m_Children;
  int m_bSelected;
  int m_bFirstVisible;
  CKPtrListOwned<CProp> m_Props;
  int m_bDragable;
  int m_bExpanded;
  int m_bGridExpanded;
  int m_bUpdated;
  int m_bModified;
  int m_bKeepLinkInfo;
  int m_bMarkSort;
  CKPtrList<CObjLink> m_Links;
  CKGuid m_Guid;

  // Replaces the identity, in the registry too (XML loading).
  int SetKeyIdentity(const CKGuid& g);

private:
  int ObjToXml(CKXmlTree* pTree);
  static CKObj* CreateFromTree(CKXmlTree* pTree, const char* szFile);
  // The object of the entry under the cursor, made by ObjNew and filled;
  // szWhat names it in the unknown-type line ("obj" or "root").
  static CKObj* NewFromEntry(CKXmlTree* pTree, const char* szWhat);
  // Takes p as a child: refs + 1, main father when it is its first.
  void Take(CKObj* p);
  void Release(CKObj* p);
  CKObj* FindRecName(int nType, int bTyped, const char* szName, int bNoCase);
  int IsNamed(const char* szName, int bNoCase);
  friend class CObjLink;
};

// ---------------------------------------------------------------- CObjLink
// A node of type -100 answering for another object.
class KELVOR_API CObjLink : public CKObj {
public:
  explicit CObjLink(CKObj* pLinked);
  explicit CObjLink(CObjLink* pObjLink);
  ~CObjLink() override;

  void AddFlag(int nFlag) override;
  void RemoveFlag(int nFlag) override;
  void SetFlag(int bSet, int nFlag) override;
  int GetFlag() override;
  int HasFlag(int nFlag) override;
  int IsModified() override;
  void SetModified(int b) override;
  void SetName(const char* sz) override;
  int Rename(const char* sz) override;
  int OnLoad() override;
  int OnReload() override;
  int OnExecuted() override;
  int OnUpdate() override;
  void OnSelected() override;
  CKString Name() override;
  CKString DisplayName() override;
  CKString Icon() override;
  CKString Path() override;
  CKString Descr() override;
  CKString TypeStr() override;
  CKString Param1() override;
  CKString Param2() override;
  int Compare(CKObj* p) override;
  int Save() override;
  CObjLink* ObjLink() override { return this; }
  int OnLoadProp() override;
  int OnSaveProp() override;
  int OnWriteXmlProp(CKString& strName, CKString& strValue) override;
  virtual void OnNameUpdate();

  CKObj* GetLinked() const { return m_pLinked; }
  void SetLinked(CKObj* pLinked, int bKeepInfo);
  int ResolveLink();
  void SetIconLinkBreak(const char* szIcon);

protected:
  CKObj* m_pLinked;

private:
  void SetInfoProp(const char* szName, const char* szValue);
};

#endif  // KELVOR_KOBJ_H
