#define KSRC_PATH "src/KVariant"

#include <base/tools/KVariant.h>

#include <cstring>
#include <memory>
#include <new>

#include <base/tools/KByteStream.h>
#include <base/tools/KDebug.h>
#include <base/tools/KFile.h>

#include "KStringPool.h"
#include "KVariantImpl.h"

// Nested variant lists deeper than this are refused on decode.
static const int kMaxDepth = 64;

namespace kvariant {

// Counts and lengths never size an allocation here: lists grow as their
// elements arrive (the step rule caps the look-ahead at 4096 slots), and
// the stream itself refuses texts and blocks longer than its remaining data.
// The list growth step for a decoded count.
static int StepFor(int n) { return n > 4096 ? 4096 : (n > 1024 ? 1024 : 0); }

// A typed list as its count and each element through put (null: count 0).
template <class L, class Put>
static int WriteCounted(CKByteStream& bs, const L* l, Put put) {
  if (!l) return bs.Put((int)0);
  const int n = l->Count();
  if (!bs.Put(n)) return 0;
  for (int i = 0; i < n; i++)
    if (!put(*l, i)) return 0;
  return 1;
}

static int WriteList(CKByteStream& bs, const CKList* l) {
  return WriteCounted(bs, l, [&](const CKList& x, int i) { return bs.Put(ListStr(x, i)->GetString()); });
}

// The first growth of a decoded list makes room for its whole count, no
// more than the bytes left can back at nMin bytes an item (the step rule's
// look-ahead when that is unknown); the rule's step applies after that.
template <class L>
static void FirstRoom(const CKByteStream& bs, L& l, int n, int nMin) {
  const int nStep = StepFor(n) ? StepFor(n) : l.data.step;
  const __int64 nLeft = bs.File() ? (bs.GetSize() - bs.GetPosition()) / nMin : 4096;
  const __int64 nRoom = n < nLeft ? n : nLeft;
  if (nRoom > 0 && l.data.size == 0) l.SetStep((int)nRoom);  // allocates the room
  l.data.step = nStep;
}

// The stream's longest text: a longer length reads as an empty text and
// leaves the characters unread, as CKByteStream::Get does.
static const int kTextMax = 0x8000000;

// bs.Get(s), the characters carved from pPool when there is one and the
// stream knows how many bytes remain.
static int ReadText(CKByteStream& bs, CKString& s, KStringPool* pPool) {
  if (!pPool || !bs.File()) return bs.Get(s);
  int n = 0;
  s.Empty();
  if (!bs.Get(n)) return 0;
  if (n == 0 || n > kTextMax) return 1;
  if (n < 0 || n > bs.GetSize() - bs.GetPosition()) return 0;
  if (n == 1) {
    char c = 1;
    return bs.Get(c) && c == 0;
  }
  char* p = kstr::PoolCarve(pPool, s, (uint32_t)n - 1);
  if (!bs.Get(p, n) || p[n - 1] != 0) {
    s.Empty();
    return 0;
  }
  return 1;
}

// Appends a string the list then owns (CKList::Add would copy it, and a copy
// of a pooled text is a heap one).
struct KListFill : CKList {
  static int Own(CKList& l, CKString* p) { return (l.*(&KListFill::AddPtr))(p); }
};

static int ReadList(CKByteStream& bs, CKList& l, KStringPool* pPool) {
  int n = 0;
  if (!bs.Get(n)) return 0;
  FirstRoom(bs, l, n, 4);
  if (pPool && bs.File()) {
    for (int i = 0; i < n; i++) {
      std::unique_ptr<CKString> p(new CKString);
      if (!ReadText(bs, *p, pPool)) return 0;
      KListFill::Own(l, p.release());
    }
    return 1;
  }
  CKString s;
  for (int i = 0; i < n; i++) {
    if (!bs.Get(s)) return 0;
    l.Add(s);
  }
  return 1;
}

}  // namespace kvariant

using namespace kvariant;

int CKVariant::VariantEncode(CKByteStream& bs, const char* szName) const {
  return EncodeAt(bs, szName, 0);
}

int CKVariant::EncodeAt(CKByteStream& bs, const char* szName, int nDepth) const {
  if (!bs.Put((int)m_nType)) return 0;
  if (szName && !bs.Put(szName)) return 0;
  const void* p = Ptr();
  switch (m_nType) {
    case KVT_EMPTY:
      return 1;
    case KVT_FILE: {
      const CKFile* f = (const CKFile*)p;
      if (!f) return 0;  // a file variant holds a file when encoded
      const __int64 n = f->Size() < f->MemRoom() ? f->Size() : f->MemRoom();
      if (!bs.PutINT64(n)) return 0;
      return n == 0 || bs.Put(f->MemData(), n);
    }
    case KVT_STRING:
      return p ? bs.Put(((const CKString*)p)->GetString()) : bs.Put((int)0);
    case KVT_LIST:
      return WriteList(bs, (const CKList*)p);
    case KVT_FASTLIST:
      return WriteCounted(bs, (const CKFastList*)p, [&](const CKFastList& l, int i) {
        return bs.Put(ListStr(l, i)->GetString());
      });
    case KVT_INT:
    case KVT_UINT32:
      return bs.Put((int)(m_nValue & 0xFFFFFFFF));
    case KVT_LISTINT:
      return WriteCounted(bs, (const CKListTyped<int>*)p,
                          [&](const CKListTyped<int>& l, int i) { return bs.Put(l.Get(i)); });
    case KVT_LISTVARIANT: {
      const CKListVariant* l = (const CKListVariant*)p;
      if (!l) return bs.Put((int)0);
      if (nDepth >= kMaxDepth || !bs.Put(l->Count())) return 0;
      for (int i = 0; i < l->Count(); i++) {
        const CKVariant* pVariant = l->GetAt(i);
        KASSERT_RETV_AT(pVariant, "pVariant", KSRC_PATH, 423, 0);
        if (!pVariant->EncodeAt(bs, nullptr, nDepth + 1)) return 0;
      }
      return 1;
    }
    case KVT_DOUBLE:
      return bs.Put(&m_nValue, 8);
    case KVT_FLOAT:
      return bs.Put(&m_nValue, 4);
    case KVT_DATETIME:
      return p ? bs.Put(*(const CKDateTime*)p) : 0;
    case KVT_LISTDATETIME:
      return WriteCounted(bs, (const CKListDateTime*)p,
                          [&](const CKListDateTime& l, int i) { return bs.Put(l.Get(i)); });
    case KVT_UINT64:
    case KVT_INT64:
      return bs.PutINT64(m_nValue);
    case KVT_LISTUINT64:
      return WriteCounted(bs, (const CKListUINT64*)p, [&](const CKListUINT64& l, int i) {
        return bs.PutINT64((__int64)l.Get(i));
      });
    case KVT_LISTINT64:
      return WriteCounted(bs, (const CKPileT<__int64>*)p,
                          [&](const CKPileT<__int64>& l, int i) { return bs.PutINT64(l.Get(i)); });
    case KVT_LISTLIST:
      return WriteCounted(bs, (const CKListList*)p,
                          [&](const CKListList& l, int i) { return WriteList(bs, l.GetAt(i)); });
    case KVT_LANGLIST: {
      const CKLangList* l = (const CKLangList*)p;
      if (!l) return bs.Put((int)0);
      if (!bs.Put(l->Count())) return 0;
      for (int i = 0; i < l->Count(); i++)
        if (!bs.Put(l->GetCode(i)) || !WriteList(bs, l->GetAt(i))) return 0;
      return 1;
    }
    default:
      KASSERT_RETV_AT(FALSE, "FALSE", KSRC_PATH, 639, 0);
      return 0;
  }
}

int CKVariant::VariantDecode(CKByteStream& bs, CKString* pName) { return DecodeAt(bs, pName, 0); }

// Containers are built aside and stored only once complete, so any failure
// leaves the variant empty.
int CKVariant::DecodeAt(CKByteStream& bs, CKString* pName, int nDepth, KStringPool* pPool) {
  VariantDelete();
  int nTag = 0;
  if (!bs.Get(nTag)) return 0;
  if (pName && !ReadText(bs, *pName, pPool)) return 0;
  KASSERT_RETV_AT((unsigned)nTag <= KVT_LAST, "FALSE", KSRC_PATH, 1080, 0);
  const char t = (char)nTag;
  switch (t) {
    case KVT_EMPTY:
      return 1;
    case KVT_FILE: {
      __int64 n = 0;
      if (!bs.GetINT64(n)) return 0;
      if (n == 0) return 1;
      // Read first: the stream refuses a size its data cannot back.
      CKMem mem;
      if (!bs.Get(mem, n)) return 0;
      std::unique_ptr<CKFile> f(new CKFile(nullptr, 67));
      f->SetSize((unsigned __int64)n);
      if (f->MemRoom() < n) return 0;
      std::memcpy(f->MemData(), mem.m_pMemRef->pData + mem.m_nStartOffset, (size_t)n);
      Store(f.release(), t);
      return 1;
    }
    case KVT_STRING: {
      if (nDepth == 0 && pPool && bs.File()) {
        Store(new (kstr::PoolRaw(pPool, sizeof(CKString))) CKString, t);
        m_bPooled = 1;
        if (ReadText(bs, *(CKString*)Ptr(), pPool)) return 1;
        VariantDelete();
        return 0;
      }
      std::unique_ptr<CKString> s(new CKString);
      if (!ReadText(bs, *s, pPool)) return 0;
      Store(s.release(), t);
      return 1;
    }
    case KVT_LIST:
    case KVT_FASTLIST: {
      // A fast list comes back as a list.
      if (nDepth == 0 && pPool && bs.File()) {
        Store(new (kstr::PoolRaw(pPool, sizeof(CKList))) CKList, KVT_LIST);
        m_bPooled = 1;
        if (ReadList(bs, *(CKList*)Ptr(), pPool)) return 1;
        VariantDelete();
        return 0;
      }
      std::unique_ptr<CKList> l(new CKList);
      if (!ReadList(bs, *l, pPool)) return 0;
      Store(l.release(), KVT_LIST);  // a fast list comes back as a list
      return 1;
    }
    case KVT_INT:
    case KVT_UINT32: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      if (t == KVT_INT)
        Set(n);
      else
        Set((unsigned int)n);
      return 1;
    }
    case KVT_INT64:
    case KVT_UINT64: {
      __int64 n = 0;
      if (!bs.GetINT64(n)) return 0;
      m_nValue = n;
      m_nType = t;
      return 1;
    }
    case KVT_DOUBLE:
    case KVT_FLOAT: {
      __int64 n = 0;
      if (!bs.Get(&n, t == KVT_DOUBLE ? 8 : 4)) return 0;
      m_nValue = n;
      m_nType = t;
      return 1;
    }
    case KVT_DATETIME: {
      std::unique_ptr<CKDateTime> d(new CKDateTime);
      if (!bs.Get(*d)) return 0;
      Store(d.release(), t);
      return 1;
    }
    case KVT_LISTINT: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKListTyped<int>> l(new CKListTyped<int>);
      if (StepFor(n)) l->SetStep(StepFor(n));
      for (int i = 0, x = 0; i < n; i++) {
        if (!bs.Get(x)) return 0;
        l->Add(x);
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LISTUINT64: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKListUINT64> l(new CKListUINT64);
      if (StepFor(n)) l->SetStep(StepFor(n));
      __int64 x = 0;
      for (int i = 0; i < n; i++) {
        if (!bs.GetINT64(x)) return 0;
        l->Add((unsigned __int64)x);
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LISTINT64: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKPileT<__int64>> l(new CKPileT<__int64>);
      if (StepFor(n)) l->data.step = StepFor(n);
      __int64 x = 0;
      for (int i = 0; i < n; i++) {
        if (!bs.GetINT64(x)) return 0;
        l->Add(x);
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LISTDATETIME: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKListDateTime> l(new CKListDateTime);
      if (StepFor(n)) l->SetStep(StepFor(n));
      CKDateTime d;
      for (int i = 0; i < n; i++) {
        if (!bs.Get(d)) return 0;
        l->Add(d);
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LISTVARIANT: {
      int n = 0;
      if (nDepth >= kMaxDepth || !bs.Get(n)) return 0;
      std::unique_ptr<CKListVariant> l(new CKListVariant);
      if (StepFor(n)) l->SetStep(StepFor(n));
      for (int i = 0; i < n; i++) {
        CKVariant* v = new CKVariant;
        l->Add(v);
        if (!v->DecodeAt(bs, nullptr, nDepth + 1, pPool)) return 0;
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LISTLIST: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKListList> l(new CKListList);
      if (StepFor(n)) l->SetStep(StepFor(n));
      for (int i = 0; i < n; i++) {
        CKList* pList = new CKList;
        l->Add(pList);
        if (!ReadList(bs, *pList, pPool)) return 0;
      }
      Store(l.release(), t);
      return 1;
    }
    case KVT_LANGLIST: {
      int n = 0;
      if (!bs.Get(n)) return 0;
      std::unique_ptr<CKLangList> l(new CKLangList);
      for (int i = 0; i < n; i++) {
        char c = 0;
        if (!bs.Get(c)) return 0;
        CKList* pList = l->Add(c);
        CKList tmp;
        if (!ReadList(bs, pList ? *pList : tmp, pPool)) return 0;
      }
      Store(l.release(), t);
      return 1;
    }
    default:
      KASSERT_RETV_AT(FALSE, "FALSE", KSRC_PATH, 1080, 0);
      return 0;
  }
}
