// Helpers shared by the string lists (CKList, CKFastList): text equality
// rules, joining and string allocation. Private to the library.
#ifndef KELVOR_KLISTUTIL_H
#define KELVOR_KLISTUTIL_H

#include <cstring>
#include <new>

#include <base/classes/list/KPile.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>
#include <base/tools/KString.h>

namespace klist {

// At most n bytes, stopping at a zero byte; negative, 0 or positive.
inline int NCompare(const char* a, const char* b, size_t n, int bNoCase) {
  return bNoCase ? KStrNICmp(a, b, (unsigned)n) : std::strncmp(a, b, n);
}

// Whole zero-terminated texts.
inline int Compare(const char* a, const char* b, int bNoCase) {
  return bNoCase ? KStrICmp(a, b) : std::strcmp(a, b);
}

// The element equality of Find: an empty searched text matches an empty
// element; otherwise the text must have the element's length and bytes.
// nLen is strlen(sz), computed once by the caller.
inline bool FindMatch(const CKString* e, const char* sz, size_t nLen, int bNoCase) {
  const size_t L = e ? e->GetLength() : 0;
  if (nLen == 0) return L == 0;
  return L == nLen && NCompare(*e, sz, L, bNoCase) == 0;
}

inline CKString* NewString(const char* sz, const char* szPath, unsigned nLine) {
  CKString* p = new (std::nothrow) CKString(sz);
  if (!p) throw CKMemoryException(szPath, nLine);
  return p;
}

inline CKString* NewString(const CKString& s, const char* szPath, unsigned nLine) {
  CKString* p = new (std::nothrow) CKString(s);
  if (!p) throw CKMemoryException(szPath, nLine);
  return p;
}

inline const CKString* Slot(const KPile& d, int i) {
  return (i >= 0 && i < d.elts && d.ptr) ? (const CKString*)d.ptr[i] : nullptr;
}

inline int TotalChars(const KPile& d) {
  int n = 0;
  for (int i = 0; i < d.elts; i++)
    if (const CKString* s = Slot(d, i)) n += (int)s->GetLength();
  return n;
}

// The elements joined with sep between neighbours, in one block.
inline CKString Join(const KPile& d, const char* sep, size_t nSep) {
  CKString r;
  const int n = d.elts;
  if (n <= 0) return r;
  const size_t nTotal = (size_t)TotalChars(d) + (size_t)(n - 1) * nSep;
  if (nTotal == 0) return r;
  char* p = r.GetBuffer((unsigned)nTotal);
  for (int i = 0; i < n; i++) {
    if (i > 0 && nSep) {
      std::memcpy(p, sep, nSep);
      p += nSep;
    }
    if (const CKString* s = Slot(d, i)) {
      std::memcpy(p, s->GetString(), s->GetLength());
      p += s->GetLength();
    }
  }
  r.ReleaseBuffer((unsigned)nTotal);
  return r;
}

}  // namespace klist

#endif  // KELVOR_KLISTUTIL_H
