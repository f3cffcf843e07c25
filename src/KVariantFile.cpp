// The variant's file images (tag 1): in-memory CKFile objects.
#define KSRC_PATH "src/KVariant"

#include <base/tools/KBlob.h>
#include <base/tools/KDebug.h>
#include <base/tools/KFile.h>

#include "KVariantImpl.h"

namespace kvariant {

template <> struct Traits<CKFile> : TraitsBase<CKFile, KVT_FILE> {};

void* FileCopyOf(const void* pFile) { return NewCopy<CKFile>(*(const CKFile*)pFile); }
void FileRelease(void* pFile) { delete (CKFile*)pFile; }

}  // namespace kvariant

using namespace kvariant;

CKVariant::CKVariant(const CKFile& x) : m_nValue(0), m_nType(0) {
  void* p = NewCopy<CKFile>(x);
  m_nType = KVT_FILE;
  KASSERT_RET_AT(p, "m_pValue", KSRC_PATH, 86);
  SetPtr(p);
}

void CKVariant::Set(CKFile& x, int bDetach) {
  CKFile* p = new CKFile;
  if (bDetach)
    x.Detach(*p);
  else
    *p = x;
  VariantDelete();
  Store(p, KVT_FILE);
}

void CKVariant::Set(CKFile* p) {
  if (m_nType == KVT_FILE && p == Ptr()) return;
  VariantDelete();
  Store(p, KVT_FILE);
}

CKVariant& CKVariant::operator=(const CKFile& x) {
  CKVariant tmp(x);
  Box(tmp);
  return *this;
}

CKFile* CKVariant::GetFile() const { return m_nType == KVT_FILE ? (CKFile*)Ptr() : nullptr; }
CKFile* CKVariant::GetFile(int bDetach) { return (CKFile*)Take(KVT_FILE, bDetach); }

int CKVariant::Get(CKFile& out, int bDetach) const {
  CKFile* p = GetFile();
  if (!p) return 0;
  if (bDetach)
    p->Detach(out);
  else if (p != &out)
    out = *p;
  return 1;
}

__int64 CKBlobElement::GetRawSize() const {
  const CKFile* p = GetFile();
  return p ? p->Size() : 0;
}

int CKBlob::SetElementRaw(const char* szName, CKFile& file, int bDetach) {
  CKBlobElement* p = BlobElementAdd(szName);
  if (!p) return 0;
  p->Set(file, bDetach);
  return OnBlobElementSetValue(p);
}

CKFile* CKBlob::GetElementRaw(const char* szName, int bDetach, int bCreate) {
  CKBlobElement* p = bCreate ? BlobElementAdd(szName) : BlobElementGet(szName);
  return p ? p->GetFile(bDetach) : nullptr;
}
