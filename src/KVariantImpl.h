// Internal: per-container traits of the variant (tag, copy, move) shared by
// the variant's sources.
#ifndef KELVOR_KVARIANTIMPL_H
#define KELVOR_KVARIANTIMPL_H

#include <new>

#include <base/tools/KVariant.h>

namespace kvariant {

template <class X>
struct Traits;

// Most containers move with src.Detach(dst) and copy with their assignment.
template <class X, char T>
struct TraitsBase {
  enum : char { tag = T };
  static void Assign(X& dst, const X& src) { dst = src; }
  static void Move(X& src, X& dst) { src.Detach(dst); }
};

template <> struct Traits<CKList> : TraitsBase<CKList, KVT_LIST> {};
template <> struct Traits<CKFastList> : TraitsBase<CKFastList, KVT_FASTLIST> {};
template <> struct Traits<CKListList> : TraitsBase<CKListList, KVT_LISTLIST> {};
template <> struct Traits<CKLangList> : TraitsBase<CKLangList, KVT_LANGLIST> {};
template <> struct Traits<CKListTyped<int>> : TraitsBase<CKListTyped<int>, KVT_LISTINT> {};
template <> struct Traits<CKListUINT64> : TraitsBase<CKListUINT64, KVT_LISTUINT64> {};
template <> struct Traits<CKPileT<__int64>> : TraitsBase<CKPileT<__int64>, KVT_LISTINT64> {};
template <> struct Traits<CKListDateTime> : TraitsBase<CKListDateTime, KVT_LISTDATETIME> {};
template <> struct Traits<CKVariant::CKListVariant>
    : TraitsBase<CKVariant::CKListVariant, KVT_LISTVARIANT> {};
// The GUID list's Detach pulls: dst.Detach(src) moves src's elements into dst.
template <> struct Traits<CKListGuid> : TraitsBase<CKListGuid, KVT_LISTGUID> {
  static void Move(CKListGuid& src, CKListGuid& dst) { dst.Detach(src); }
};

// A heap copy made with X's assignment; null when the heap refuses.
template <class X>
X* NewCopy(const X& src) {
  X* p = new (std::nothrow) X;
  if (p) *p = src;
  return p;
}
template <>
inline CKString* NewCopy<CKString>(const CKString& src) {
  return new (std::nothrow) CKString(src);
}
template <>
inline CKDateTime* NewCopy<CKDateTime>(const CKDateTime& src) {
  return new (std::nothrow) CKDateTime(src);
}

// The text in slot i of a string list without copying it (null slots and
// bad indexes read as the empty text).
inline const CKString* ListStr(const CKPileFast& l, int i) {
  static const CKString s_empty;
  const CKString* p = (const CKString*)l.PileGet(i);
  return p ? p : &s_empty;
}

// File images live with the file module; these keep it out of this header.
void* FileCopyOf(const void* pFile);
void FileRelease(void* pFile);

}  // namespace kvariant

#endif  // KELVOR_KVARIANTIMPL_H
