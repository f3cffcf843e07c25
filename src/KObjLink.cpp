// CObjLink: a node that answers for its target and remembers the target's
// name and key in two properties, so that it survives the target's death
// and can be re-attached through the registry.
#define KSRC_PATH "src/KObjLink"

#include <misc/KObj.h>

#include <cstring>

#include <base/tools/KStr.h>

CObjLink::CObjLink(CKObj* pLinked) : m_pLinked(nullptr) {
  m_nType = KOBJ_TYPE_LINK;
  SetLinked(pLinked, TRUE);
}

CObjLink::CObjLink(CObjLink* pObjLink) : m_pLinked(nullptr) {
  m_nType = KOBJ_TYPE_LINK;
  KASSERT_RET_T(pObjLink != nullptr, "pObjLink!=NULL");
  SetLinked(pObjLink->m_pLinked, TRUE);
  PropCopy(pObjLink);
}

CObjLink::~CObjLink() {
  if (m_pLinked) m_pLinked->RevokeLink(this);
  m_pLinked = nullptr;
}

void CObjLink::SetInfoProp(const char* szName, const char* szValue) {
  if (CProp* p = Prop(szName))
    p->SetValueStr(szValue);
  else
    PropAdd(szName, szValue, FALSE);
}

void CObjLink::SetLinked(CKObj* pLinked, int bKeepInfo) {
  // A chain of links that comes back here would forward for ever.
  for (CKObj* p = pLinked; p && p->ObjLink(); p = p->ObjLink()->m_pLinked)
    if (p == this) {
      KLog(10, "ERROR => CObjLink::SetLinked(): link cycle on ", NamePtr());
      return;
    }
  if (m_pLinked) m_pLinked->RevokeLink(this);
  m_pLinked = pLinked;
  if (pLinked) {
    pLinked->RegisterLink(this);
    SetInfoProp("LINKEDNAME", pLinked->Name());
    SetInfoProp("LINKEDKEY", pLinked->Key());
  } else if (!bKeepInfo) {
    SetInfoProp("LINKEDNAME", "");
    SetInfoProp("LINKEDKEY", "");
  }
}

void CObjLink::OnNameUpdate() {
  KASSERT_RET(m_pLinked);
  SetInfoProp("LINKEDNAME", m_pLinked->Name());
  SetInfoProp("LINKEDKEY", m_pLinked->Key());
}

int CObjLink::ResolveLink() {
  const CKString strKey = PropValue("LINKEDKEY");
  KASSERT_RETV(!KIsEmpty(strKey), FALSE);
  CKObj* p = ObjByKey(strKey);
  if (p && p != this) {
    SetLinked(p, TRUE);
    if (m_pLinked == p) return TRUE;
  }
  KLog(10, "ERROR => Broken link on ", Name(), " with key=", strKey);
  return FALSE;
}

void CObjLink::SetIconLinkBreak(const char* szIcon) { SetInfoProp("ICONLINKBREAK", szIcon); }

int CObjLink::OnWriteXmlProp(CKString& strName, CKString& strValue) {
  if (m_pLinked) {
    if (strcmp(strName, "LINKEDNAME") == 0)
      strValue = m_pLinked->Name();
    else if (strcmp(strName, "LINKEDKEY") == 0)
      strValue = m_pLinked->Key();
  }
  return TRUE;
}

// ---------------------------------------------------------------- forwarding
CKString CObjLink::Name() {
  if (m_pLinked) return m_pLinked->Name();
  if (CProp* p = Prop("LINKEDNAME")) return p->GetValueStr();
  return CKString("Broken Link");
}

CKString CObjLink::Icon() {
  if (!m_pLinked) return PropValue("ICONLINKBREAK");
  const CKString s = m_pLinked->Icon();
  return s.GetLength() ? KAnd(s, "LINKED") : CKString();
}

CKString CObjLink::DisplayName() { return m_pLinked ? m_pLinked->DisplayName() : CKString(); }
CKString CObjLink::Path() { return m_pLinked ? m_pLinked->Path() : CKString(); }
CKString CObjLink::Descr() { return m_pLinked ? m_pLinked->Descr() : CKString(); }
CKString CObjLink::TypeStr() { return m_pLinked ? m_pLinked->TypeStr() : CKString(); }
CKString CObjLink::Param1() { return m_pLinked ? m_pLinked->Param1() : CKString(); }
CKString CObjLink::Param2() { return m_pLinked ? m_pLinked->Param2() : CKString(); }

int CObjLink::GetFlag() { return m_pLinked ? m_pLinked->GetFlag() : 0; }
int CObjLink::HasFlag(int nFlag) { return m_pLinked ? m_pLinked->HasFlag(nFlag) : 0; }
int CObjLink::IsModified() { return m_pLinked ? m_pLinked->IsModified() : 0; }
int CObjLink::Rename(const char* sz) { return m_pLinked ? m_pLinked->Rename(sz) : 0; }
int CObjLink::OnUpdate() { return m_pLinked ? m_pLinked->OnUpdate() : 0; }
int CObjLink::OnLoad() { return m_pLinked ? m_pLinked->OnLoad() : 0; }
int CObjLink::OnReload() { return m_pLinked ? m_pLinked->OnReload() : 0; }
int CObjLink::OnLoadProp() { return m_pLinked ? m_pLinked->OnLoadProp() : 0; }
int CObjLink::OnSaveProp() { return m_pLinked ? m_pLinked->OnSaveProp() : 0; }
int CObjLink::OnExecuted() { return m_pLinked ? m_pLinked->OnExecuted() : 0; }
int CObjLink::Compare(CKObj* p) { return m_pLinked ? m_pLinked->Compare(p) : 0; }
int CObjLink::Save() { return m_pLinked ? m_pLinked->Save() : 0; }

void CObjLink::SetName(const char* sz) {
  if (m_pLinked) m_pLinked->SetName(sz);
}
void CObjLink::SetModified(int b) {
  if (m_pLinked) m_pLinked->SetModified(b);
}
void CObjLink::AddFlag(int nFlag) {
  if (m_pLinked) m_pLinked->AddFlag(nFlag);
}
void CObjLink::RemoveFlag(int nFlag) {
  if (m_pLinked) m_pLinked->RemoveFlag(nFlag);
}
void CObjLink::SetFlag(int bSet, int nFlag) {
  if (m_pLinked) m_pLinked->SetFlag(bSet, nFlag);
}
void CObjLink::OnSelected() {
  if (m_pLinked) m_pLinked->OnSelected();
}
