#define KSRC_PATH "src/KBlobElement"

#include <base/tools/KBlob.h>

#include <base/tools/KDebug.h>

#include "KVariantImpl.h"

CKBlobElement::CKBlobElement() {}
CKBlobElement::~CKBlobElement() {}

int CKBlobElement::Copy(CKBlobElement& src) {
  if (&src == this) return 1;
  m_strName = src.m_strName;
  VariantCopy(src);
  return 1;
}

__int64 CKBlobElement::StringEncodedSize(const CKString& s, int bWide) {
  const __int64 n = (__int64)s.GetLength() + 1;
  return (bWide ? 2 * n : n) + 4;
}

static __int64 ListSize(const CKList* l) {
  __int64 n = 4;
  if (l)
    for (int i = 0; i < l->Count(); i++) n += (__int64)kvariant::ListStr(*l, i)->GetLength() + 5;
  return n;
}

// Expected bytes of this element in the binary form. Dates count 8 and the
// kinds 23 to 26 count nothing: the blob's size check relies on exactly
// these figures.
__int64 CKBlobElement::GetEncodedSize() const {
  const __int64 h = 4 + ((__int64)m_strName.GetLength() + 5);
  const void* p = Ptr();
  switch (m_nType) {
    case KVT_EMPTY: return h;
    case KVT_FILE: return h + 8 + GetRawSize();
    case KVT_STRING: return h + (p ? (__int64)((const CKString*)p)->GetLength() : 0) + 5;
    case KVT_LIST: return h + ListSize((const CKList*)p);
    case KVT_INT:
    case KVT_FLOAT:
      return h + 4;
    case KVT_LISTINT: return h + 4 + 4 * (__int64)(p ? ((const CKListTyped<int>*)p)->Count() : 0);
    case 7: return h + 16;
    case KVT_DOUBLE:
    case KVT_DATETIME:
    case KVT_UINT64:
      return h + 8;
    case KVT_LISTDATETIME: return h + 4 + 7 * (__int64)(p ? ((const CKListDateTime*)p)->Count() : 0);
    case KVT_LISTUINT64: return h + 4 + 8 * (__int64)(p ? ((const CKListUINT64*)p)->Count() : 0);
    case KVT_LISTLIST: {
      __int64 n = h + 4;
      const CKListList* l = (const CKListList*)p;
      for (int i = 0; l && i < l->Count(); i++) n += ListSize(l->GetAt(i));
      return n;
    }
    case KVT_LANGLIST: {
      __int64 n = h + 4;
      const CKLangList* l = (const CKLangList*)p;
      for (int i = 0; l && i < l->Count(); i++) n += 1 + ListSize(l->GetAt(i));
      return n;
    }
    default:
      KASSERT_RETV_AT(FALSE, "FALSE", KSRC_PATH, 587, 0);
      return 0;
  }
}
