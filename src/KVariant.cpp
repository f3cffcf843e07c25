#define KSRC_PATH "src/KVariant"

#include <base/tools/KVariant.h>

#include <cstring>
#include <new>

#include <base/tools/KDebug.h>

#include "KVariantImpl.h"

// Fixed report positions of this module's checks.
enum {
  LINE_DELETE = 128,
  LINE_COPY = 162,
  LINE_SIZE_LISTLIST = 207,
  LINE_SIZE_LANG = 214,
  LINE_SIZE_GUID = 238,
  LINE_SIZE_VARIANT = 246,
  LINE_SIZE_OTHER = 252,
  LINE_SET_STRING = 238,
  LINE_SET_LANG = 245
};
#define KVARIANT_INLINE_PATH "src/../src/KVariant"

using namespace kvariant;

// Tags whose value is the slot itself: nothing to copy deeply or release.
static bool IsScalar(char t) {
  return t == KVT_EMPTY || t == KVT_INT || t == KVT_DOUBLE || t == KVT_FLOAT || t == KVT_UINT64 ||
         t == KVT_INT64 || t == KVT_UINT32;
}

// ---------------------------------------------------------------- construction
CKVariant::CKVariant(int n) : m_nValue(0), m_nType(0) { Set(n); }
CKVariant::CKVariant(unsigned int n) : m_nValue(0), m_nType(0) { Set(n); }
CKVariant::CKVariant(__int64 n) : m_nValue(0), m_nType(0) { Set(n); }
CKVariant::CKVariant(unsigned __int64 n) : m_nValue(0), m_nType(0) { Set(n); }
CKVariant::CKVariant(float f) : m_nValue(0), m_nType(0) { Set(f); }
CKVariant::CKVariant(double d) : m_nValue(0), m_nType(0) { Set(d); }
CKVariant::CKVariant(const char* sz) : m_nValue(0), m_nType(0) { Set(sz); }
CKVariant::CKVariant(const CKString& s) : m_nValue(0), m_nType(0) { Set(s); }
CKVariant::CKVariant(const CKDateTime& d) : m_nValue(0), m_nType(0) { Set(d); }


// Per container: copy constructor, Set by copy or move, Set taking ownership,
// the boxing assignment and the getters.
#define KVARIANT_CONTAINER(X, GETTER)                                                   \
  CKVariant::CKVariant(const X& x) : m_nValue(0), m_nType(0) {                          \
    Store(NewCopy<X>(x), Traits<X>::tag);                                               \
  }                                                                                     \
  void CKVariant::Set(X& x, int bDetach) {                                              \
    X* p = new X; /* filled before the release: x may be the held object */             \
    if (bDetach)                                                                        \
      Traits<X>::Move(x, *p);                                                           \
    else                                                                                \
      Traits<X>::Assign(*p, x);                                                         \
    VariantDelete();                                                                    \
    Store(p, Traits<X>::tag);                                                           \
  }                                                                                     \
  void CKVariant::Set(X* p) {                                                           \
    if (m_nType == Traits<X>::tag && p == Ptr()) return;                                \
    VariantDelete();                                                                    \
    Store(p, Traits<X>::tag);                                                           \
  }                                                                                     \
  CKVariant& CKVariant::operator=(const X& x) {                                         \
    CKVariant tmp(x);                                                                   \
    Box(tmp);                                                                           \
    return *this;                                                                       \
  }                                                                                     \
  X* CKVariant::GETTER() const { return m_nType == Traits<X>::tag ? (X*)Ptr() : nullptr; } \
  X* CKVariant::GETTER(int bDetach) { return (X*)Take(Traits<X>::tag, bDetach); }         \
  int CKVariant::Get(X& out, int bDetach) const {                                       \
    X* p = GETTER();                                                                    \
    if (!p) return 0;                                                                   \
    if (bDetach)                                                                        \
      Traits<X>::Move(*p, out);                                                         \
    else if (p != &out)                                                                 \
      Traits<X>::Assign(out, *p);                                                       \
    return 1;                                                                           \
  }

KVARIANT_CONTAINER(CKList, GetList)
KVARIANT_CONTAINER(CKFastList, GetFastList)
KVARIANT_CONTAINER(CKListList, GetListList)
KVARIANT_CONTAINER(CKLangList, GetLangList)
KVARIANT_CONTAINER(CKListTyped<int>, GetListInt)
KVARIANT_CONTAINER(CKListUINT64, GetListUINT64)
KVARIANT_CONTAINER(CKPileT<__int64>, GetListINT64)
KVARIANT_CONTAINER(CKListDateTime, GetListDateTime)
KVARIANT_CONTAINER(CKListGuid, GetListGuid)
KVARIANT_CONTAINER(CKVariant::CKListVariant, GetListVariant)
#undef KVARIANT_CONTAINER

// Copy constructor: a box holding a deep copy of v.
CKVariant::CKVariant(const CKVariant& v) : m_nValue(0), m_nType(0) { Box(v); }

CKVariant::~CKVariant() { VariantDelete(); }

// ---------------------------------------------------------------- scalars
void CKVariant::SetScalar(const void* p, unsigned nSize, char nType) {
  VariantDelete();
  std::memcpy(&m_nValue, p, nSize);  // little-endian: the low bytes
  m_nType = nType;
}

int CKVariant::GetScalar(void* p, unsigned nSize, char nType) const {
  if (m_nType != nType) return 0;
  std::memcpy(p, &m_nValue, nSize);
  return 1;
}

void CKVariant::Set(int n) {
  const __int64 v = n;  // sign-extended
  SetScalar(&v, 8, KVT_INT);
}
void CKVariant::Set(unsigned int n) {
  const unsigned __int64 v = n;  // zero-extended
  SetScalar(&v, 8, KVT_UINT32);
}
void CKVariant::Set(__int64 n) { SetScalar(&n, 8, KVT_INT64); }
void CKVariant::Set(unsigned __int64 n) { SetScalar(&n, 8, KVT_UINT64); }
void CKVariant::Set(float f) { SetScalar(&f, 4, KVT_FLOAT); }
void CKVariant::Set(double d) { SetScalar(&d, 8, KVT_DOUBLE); }
CKVariant& CKVariant::operator=(int n) { Set(n); return *this; }
CKVariant& CKVariant::operator=(unsigned int n) { Set(n); return *this; }
CKVariant& CKVariant::operator=(__int64 n) { Set(n); return *this; }
CKVariant& CKVariant::operator=(unsigned __int64 n) { Set(n); return *this; }
CKVariant& CKVariant::operator=(float f) { Set(f); return *this; }
CKVariant& CKVariant::operator=(double d) { Set(d); return *this; }

int CKVariant::Get(int& n) const { return GetScalar(&n, 4, KVT_INT); }
int CKVariant::Get(unsigned int& n) const { return GetScalar(&n, 4, KVT_UINT32); }
int CKVariant::Get(__int64& n) const { return GetScalar(&n, 8, KVT_INT64); }
int CKVariant::Get(unsigned __int64& n) const { return GetScalar(&n, 8, KVT_UINT64); }
int CKVariant::Get(float& f) const { return GetScalar(&f, 4, KVT_FLOAT); }
int CKVariant::Get(double& d) const { return GetScalar(&d, 8, KVT_DOUBLE); }
int CKVariant::GetInt32() const { int n = 0; Get(n); return n; }
unsigned int CKVariant::GetUInt32() const { unsigned int n = 0; Get(n); return n; }
__int64 CKVariant::GetInt64() const { __int64 n = 0; Get(n); return n; }
unsigned __int64 CKVariant::GetUInt64() const { unsigned __int64 n = 0; Get(n); return n; }
float CKVariant::GetFloat() const { float f = 0; Get(f); return f; }
double CKVariant::GetDouble() const { double d = 0; Get(d); return d; }

// ---------------------------------------------------------------- text, date
void CKVariant::Set(const CKString& s) {
  CKString* p = new (std::nothrow) CKString(s);
  VariantDelete();
  m_nType = KVT_STRING;
  KASSERT_RET_AT(p, "m_pValue", KVARIANT_INLINE_PATH, LINE_SET_STRING);
  SetPtr(p);
}
void CKVariant::Set(const char* sz) { Set(CKString(sz)); }
void CKVariant::Set(CKString* p) {
  if (m_nType == KVT_STRING && p == Ptr()) return;
  VariantDelete();
  Store(p, KVT_STRING);
}
CKVariant& CKVariant::operator=(const CKString& s) { Set(s); return *this; }
CKVariant& CKVariant::operator=(const char* sz) { Set(sz); return *this; }

void CKVariant::Set(const CKDateTime& d) {
  CKDateTime* p = new CKDateTime(d);
  VariantDelete();
  Store(p, KVT_DATETIME);
}
void CKVariant::Set(CKDateTime* p) {
  if (m_nType == KVT_DATETIME && p == Ptr()) return;
  VariantDelete();
  Store(p, KVT_DATETIME);
}
CKVariant& CKVariant::operator=(const CKDateTime& d) { Set(d); return *this; }

CKString* CKVariant::GetString() const { return m_nType == KVT_STRING ? (CKString*)Ptr() : nullptr; }
CKString* CKVariant::GetString(int bDetach) { return (CKString*)Take(KVT_STRING, bDetach); }
CKDateTime* CKVariant::GetDateTime() const {
  return m_nType == KVT_DATETIME ? (CKDateTime*)Ptr() : nullptr;
}
CKDateTime* CKVariant::GetDateTime(int bDetach) { return (CKDateTime*)Take(KVT_DATETIME, bDetach); }
CKVariant* CKVariant::GetVariant() const { return m_nType == KVT_VARIANT ? (CKVariant*)Ptr() : nullptr; }
CKVariant* CKVariant::GetVariant(int bDetach) { return (CKVariant*)Take(KVT_VARIANT, bDetach); }

int CKVariant::Get(CKString& s) const {
  const CKString* p = GetString();
  if (!p) return 0;
  s = *p;
  return 1;
}

int CKVariant::Get(CKDateTime& d) const {
  const CKDateTime* p = GetDateTime();
  if (!p) return 0;
  d = *p;
  return 1;
}

CKString CKVariant::GetText() const {
  const CKString* p = GetString();
  return p ? *p : CKString();
}

CKString CKVariant::GetText(int bDetach) {
  CKString* p = GetString(bDetach);
  if (!p) return CKString();
  CKString s(*p);
  if (bDetach) delete p;
  return s;
}

int CKVariant::Get(CKVariant& out) {
  CKVariant* p = GetVariant();
  if (!p) return 0;
  if (p != &out) {
    CKVariant copy;
    copy.VariantInternalCopy(*p);  // before out's release, which may free *p
    out.VariantDelete();
    copy.Detach(out);
  }
  return 1;
}

// The owned object of tag nType (null on a mismatch); with bDetach the caller
// takes it and this variant becomes empty.
void* CKVariant::Take(char nType, int bDetach) {
  if (m_nType != nType) return nullptr;
  if (bDetach) Unpool();
  void* p = Ptr();
  if (bDetach) {
    m_nValue = 0;
    m_nType = 0;
  }
  return p;
}

// ---------------------------------------------------------------- copies
CKVariant& CKVariant::operator=(const CKVariant& v) {
  if (&v != this) VariantCopy(v);
  return *this;
}

void CKVariant::VariantCopy(const CKVariant& v) {
  if (&v == this) return;
  CKVariant copy;
  copy.VariantInternalCopy(v);  // v may live inside the value released below
  VariantDelete();
  copy.Detach(*this);
}

void CKVariant::Set(const CKVariant& v) { Box(v); }
void CKVariant::VariantAssign(const CKVariant& v) { Box(v); }

// Stores a new heap variant holding a deep copy of v, with tag 22. The old
// value is released after the copy is made (v may be part of it).
void CKVariant::Box(const CKVariant& v) {
  CKVariant* p = new CKVariant;
  p->VariantInternalCopy(v);
  VariantDelete();
  Store(p, KVT_VARIANT);
}

void CKVariant::Detach(CKVariant& target) {
  if (&target == this) return;
  Unpool();
  target.VariantDelete();
  target.m_nValue = m_nValue;
  target.m_nType = m_nType;
  m_nValue = 0;
  m_nType = 0;
}

// Deep copy into an empty variant. The tag is copied even when the value
// could not be (a boxed source gives tag 22 with a null value).
void CKVariant::VariantInternalCopy(const CKVariant& v) {
  m_nValue = 0;
  m_nType = 0;
  const void* src = v.Ptr();
  void* p = nullptr;
  if (IsScalar(v.m_nType)) {
    m_nValue = v.m_nValue;
    m_nType = v.m_nType;
    return;
  }
  switch (v.m_nType) {
#define KVARIANT_COPY(TAG, X, LINE)                                   \
  case TAG:                                                           \
    if (src) {                                                        \
      p = NewCopy<X>(*(const X*)src);                                 \
      KASSERT_RET_AT(p, "m_pValue", KSRC_PATH, LINE);                 \
    }                                                                 \
    break;
      KVARIANT_COPY(KVT_STRING, CKString, 147)
      KVARIANT_COPY(KVT_DATETIME, CKDateTime, 148)
      KVARIANT_COPY(KVT_LIST, CKList, 150)
      KVARIANT_COPY(KVT_FASTLIST, CKFastList, 151)
      KVARIANT_COPY(KVT_LISTLIST, CKListList, 152)
      KVARIANT_COPY(KVT_LANGLIST, CKLangList, 153)
      KVARIANT_COPY(KVT_LISTINT, CKListTyped<int>, 154)
      KVARIANT_COPY(KVT_LISTUINT64, CKListUINT64, 155)
      KVARIANT_COPY(KVT_LISTINT64, CKPileT<__int64>, 156)
      KVARIANT_COPY(KVT_LISTDATETIME, CKListDateTime, 157)
      KVARIANT_COPY(KVT_LISTGUID, CKListGuid, 158)
      KVARIANT_COPY(KVT_LISTVARIANT, CKVariant::CKListVariant, 159)
#undef KVARIANT_COPY
    case KVT_FILE:
      if (src) {
        p = FileCopyOf(src);
        KASSERT_RET_AT(p, "m_pValue", KSRC_PATH, 149);
      }
      break;
    default:
      KASSERT_AT(FALSE, "FALSE", KSRC_PATH, LINE_COPY);
      break;
  }
  if (p) SetPtr(p);
  m_nType = v.m_nType;
}

// A pooled value moves to a heap object of its own (the pool dies with its
// decoder's blob).
void CKVariant::Unpool() {
  if (!m_bPooled) return;
  void* p = Ptr();
  void* q;
  if (m_nType == KVT_STRING) {
    q = new CKString(*(CKString*)p);  // a heap copy of the pooled text
    ((CKString*)p)->~CKString();
  } else {
    CKList* l = new CKList;
    ((CKList*)p)->Detach(*l);
    ((CKList*)p)->~CKList();
    q = l;
  }
  SetPtr(q);
  m_bPooled = 0;
}

void CKVariant::VariantDelete() {
  void* p = Ptr();
  if (m_bPooled) {
    if (m_nType == KVT_STRING)
      ((CKString*)p)->~CKString();
    else
      ((CKList*)p)->~CKList();
    m_bPooled = 0;
    m_nValue = 0;
    m_nType = 0;
    return;
  }
  switch (IsScalar(m_nType) ? (char)KVT_EMPTY : m_nType) {
    case KVT_EMPTY:
      break;
    case KVT_FILE: FileRelease(p); break;
    case KVT_STRING: delete (CKString*)p; break;
    case KVT_DATETIME: delete (CKDateTime*)p; break;
    case KVT_LIST: delete (CKList*)p; break;
    case KVT_FASTLIST: delete (CKFastList*)p; break;
    case KVT_LISTLIST: delete (CKListList*)p; break;
    case KVT_LANGLIST: delete (CKLangList*)p; break;
    case KVT_LISTINT: delete (CKListTyped<int>*)p; break;
    case KVT_LISTUINT64: delete (CKListUINT64*)p; break;
    case KVT_LISTINT64: delete (CKPileT<__int64>*)p; break;
    case KVT_LISTDATETIME: delete (CKListDateTime*)p; break;
    case KVT_LISTGUID: delete (CKListGuid*)p; break;
    case KVT_LISTVARIANT: delete (CKVariant::CKListVariant*)p; break;
    case KVT_VARIANT:
      // The report stays; the boxed variant is released rather than leaked.
      KASSERT_AT(FALSE, "FALSE", KSRC_PATH, LINE_DELETE);
      m_nValue = 0;
      m_nType = 0;
      delete (CKVariant*)p;
      return;
    default:
      KASSERT_AT(FALSE, "FALSE", KSRC_PATH, LINE_DELETE);
      break;
  }
  m_nValue = 0;
  m_nType = 0;
}

// ---------------------------------------------------------------- size
static unsigned int ListChars(const CKList& l) {
  unsigned int n = 0;
  for (int i = 0; i < l.Count(); i++) n += ListStr(l, i)->GetLength() + 1;
  return n;
}

unsigned int CKVariant::VariantSize() const {
  const void* p = Ptr();
  switch (m_nType) {
    case KVT_EMPTY:
    case KVT_FILE:
      return 0;
    case KVT_STRING:
      return p ? ((const CKString*)p)->GetLength() + 1 : 0;
    case KVT_LIST:
      return p ? ListChars(*(const CKList*)p) : 0;
    case KVT_FASTLIST: {
      if (!p) return 0;
      const CKFastList& l = *(const CKFastList*)p;
      unsigned int n = 0;
      for (int i = 0; i < l.Count(); i++) n += ListStr(l, i)->GetLength() + 1;
      return n;
    }
    case KVT_INT:
    case KVT_FLOAT:
    case KVT_UINT32:
      return 4;
    case KVT_DOUBLE:
    case KVT_UINT64:
    case KVT_INT64:
      return 8;
    case KVT_LISTINT:
      return p ? (unsigned)((const CKListTyped<int>*)p)->Count() * 4 : 0;
    case KVT_DATETIME:
      return p ? 7 : 0;
    case KVT_LISTDATETIME:
      return p ? (unsigned)((const CKListDateTime*)p)->Count() * 7 : 0;
    case KVT_LISTUINT64:
      return p ? (unsigned)((const CKListUINT64*)p)->Count() * 8 : 0;
    case KVT_LISTINT64:
      return p ? (unsigned)((const CKPileT<__int64>*)p)->Count() * 8 : 0;
    case KVT_LISTVARIANT: {
      if (!p) return 0;
      const CKListVariant& l = *(const CKListVariant*)p;
      unsigned int n = 0;
      for (int i = 0; i < l.Count(); i++) {
        const CKVariant* pVariant = l.GetAt(i);
        KASSERT_RETV_AT(pVariant, "pVariant", KSRC_PATH, LINE_SIZE_VARIANT, 0);
        n += pVariant->VariantSize();
      }
      return n;
    }
    case KVT_LISTLIST: {
      if (!p) return 0;
      const CKListList& l = *(const CKListList*)p;
      unsigned int n = 0;
      for (int i = 0; i < l.Count(); i++) {
        const CKList* pList = l.GetAt(i);
        KASSERT_RETV_AT(pList, "pList", KSRC_PATH, LINE_SIZE_LISTLIST, 0);
        n += ListChars(*pList);
      }
      return n;
    }
    case KVT_LISTGUID:
      KASSERT_RETV_AT(FALSE, "FALSE", KSRC_PATH, LINE_SIZE_GUID, 0);
      return 0;
    case KVT_LANGLIST:
      KASSERT_RETV_AT(FALSE, "FALSE", KSRC_PATH, LINE_SIZE_LANG, 0);
      return 0;
    default:
      KASSERT_AT(FALSE, "FALSE", KSRC_PATH, LINE_SIZE_OTHER);
      return 0;
  }
}

// ---------------------------------------------------------------- variant list
CKVariant::CKListVariant::CKListVariant() {}
CKVariant::CKListVariant::CKListVariant(const CKListVariant& l) : CKPtrListOwnedC<CKVariant>() {
  CKPtrListOwnedC<CKVariant>::operator=(l);
}
CKVariant::CKListVariant& CKVariant::CKListVariant::operator=(const CKListVariant& l) {
  if (&l != this) CKPtrListOwnedC<CKVariant>::operator=(l);
  return *this;
}
CKVariant::CKListVariant::~CKListVariant() {}
