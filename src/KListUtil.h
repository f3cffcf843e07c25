// Helpers shared by the containers: block growth for piles and hash pools,
// and for the string lists (CKList, CKFastList) the text equality rules,
// joining, string allocation and the algorithms both lists run alike.
// Private to the library.
#ifndef KELVOR_KLISTUTIL_H
#define KELVOR_KLISTUTIL_H

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include <base/classes/list/KPile.h>
#include <base/tools/KDebug.h>
#include <base/tools/KException.h>

#include "platform/KPlatformMemory.h"
#include <base/tools/KStr.h>
#include <base/tools/KString.h>

namespace klist {

// Grows p (null: a new block) to hold at least nNeed bytes, as realloc does,
// for arrays that grow by a fixed step: a block that already has the room is
// kept, and a moved block is asked for twice its old room (at most nMax
// bytes), so a run of small growths moves and copies the array only a
// logarithmic number of times. errno is left as realloc would leave it.
inline void* GrowBlock(void* p, size_t nNeed, size_t nMax) {
  const size_t nRoom = kplat::HeapBlockSize(p);  // 0: the heap does not tell
  if (nRoom >= nNeed) return p;
  const size_t nWant = nRoom * 2 > nNeed ? (nRoom * 2 < nMax ? nRoom * 2 : nMax) : nNeed;
  if (nWant > nNeed) {
    const int nErr = errno;
    if (void* q = std::realloc(p, nWant)) return q;
    errno = nErr;  // the generous size failed; the exact one decides
  }
  return std::realloc(p, nNeed);
}

// At most n bytes, stopping at a zero byte; negative, 0 or positive.
inline int NCompare(const char* a, const char* b, size_t n, int bNoCase) {
  return bNoCase ? KStrNICmp(a, b, (unsigned)n) : std::strncmp(a, b, n);
}

// Whole zero-terminated texts.
inline int Compare(const char* a, const char* b, int bNoCase) {
  return bNoCase ? KStrICmp(a, b) : std::strcmp(a, b);
}

// n bytes equal once ASCII letters are folded to lower case.
inline bool FoldEqual(const char* a, const char* b, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    const unsigned char x = (unsigned char)a[i], y = (unsigned char)b[i];
    if (x == y) continue;
    // Only a letter and the same letter in the other case fold together.
    const unsigned char lx = (unsigned char)(x | 0x20);
    if (lx != (unsigned char)(y | 0x20) || lx < 'a' || lx > 'z') return false;
  }
  return true;
}

// The element equality of Find: an empty searched text matches an empty
// element; otherwise the text must have the element's length and bytes
// (sz, of nLen = strlen(sz) bytes, has no zero byte before its end, so a
// comparison stopping at zeros and one that does not agree).
inline bool FindMatch(const CKString* e, const char* sz, size_t nLen, int bNoCase) {
  const size_t L = e ? e->GetLength() : 0;
  if (L != nLen) return false;
  if (nLen == 0) return true;
  return bNoCase ? FoldEqual(*e, sz, nLen) : std::memcmp(e->GetString(), sz, nLen) == 0;
}

// Index of the first element of s[0 .. n - 1] that match(element) accepts,
// else -1.
template <class TMatch>
int Scan(const CKString* const* s, int n, TMatch match) {
  for (int i = 0; i < n; i++)
    if (match(s[i])) return i;
  return -1;
}

// Index of the first element of d that FindMatch accepts, else -1: lengths
// first, bytes only for equal lengths.
inline int FindText(const KPile& d, const char* sz, int bNoCase) {
  const CKString* const* s = (const CKString* const*)d.ptr;
  if (!s) return -1;
  const size_t nLen = sz ? std::strlen(sz) : 0;
  if (nLen == 0) return Scan(s, d.elts, [](const CKString* e) { return !e || !e->GetLength(); });
  if (bNoCase)
    return Scan(s, d.elts, [sz, nLen](const CKString* e) {
      return e && e->GetLength() == nLen && FoldEqual(*e, sz, nLen);
    });
  return Scan(s, d.elts, [sz, nLen](const CKString* e) {
    return e && e->GetLength() == nLen && std::memcmp(e->GetString(), sz, nLen) == 0;
  });
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

// Copy of element i; a null slot reads as the empty string.
inline CKString TextAt(const KPile& d, int i) {
  const CKString* s = Slot(d, i);
  return s ? *s : CKString();
}

// Sum of the element lengths (it may pass INT_MAX: elements share blocks).
inline long long TotalChars(const KPile& d) {
  long long n = 0;
  for (int i = 0; i < d.elts; i++)
    if (const CKString* s = Slot(d, i)) n += s->GetLength();
  return n;
}

// TotalCharCount's int: a sum past INT_MAX is given as INT_MAX.
inline int TotalCharsInt(const KPile& d) {
  const long long n = TotalChars(d);
  return n > INT_MAX ? INT_MAX : (int)n;
}

// The elements joined with sep between neighbours, in one block. A text too
// long for a string throws CKMemoryException, as CKString itself does.
inline CKString Join(const KPile& d, const char* sep, size_t nSep) {
  CKString r;
  const int n = d.elts;
  if (n <= 0) return r;
  const unsigned long long nTotal =
      (unsigned long long)TotalChars(d) + (unsigned long long)(n - 1) * nSep;
  if (nTotal == 0) return r;
  // GetBuffer refuses any size past the longest string; no wrap below it.
  char* p = r.GetBuffer(nTotal > UINT_MAX ? UINT_MAX : (unsigned)nTotal);
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

// atoi's value for texts whose number an int holds; past that, INT_MAX or
// INT_MIN (atoi itself is undefined there).
inline int AtoiSaturated(const char* sz) {
  const long v = std::strtol(sz, nullptr, 10);
  return v > INT_MAX ? INT_MAX : (v < INT_MIN ? INT_MIN : (int)v);
}

// The value of a strict integer text (KIsStrictInt) that an int holds;
// nDefault for any other text, a number out of range included.
inline int StrictInt(const char* sz, int nDefault) {
  if (!KIsStrictInt(sz)) return nDefault;
  const int nErr = errno;
  errno = 0;
  const long long v = std::strtoll(sz, nullptr, 10);
  const bool bRange = errno != ERANGE && v >= INT_MIN && v <= INT_MAX;
  errno = nErr;
  return bRange ? (int)v : nDefault;
}

// ---------------------------------------------------------------- list algorithms
// CKList and CKFastList run these alike, each through its own (virtual)
// Add, InsertAt and Delete.

// Index of the first element that begins with sz (KStrBeginWith), else -1.
inline int FindPrefix(const KPile& d, const char* sz, int bNoCase) {
  for (int i = 0; i < d.elts; i++) {
    const CKString* s = Slot(d, i);
    if (KStrBeginWith(s ? s->GetString() : "", sz, bNoCase)) return i;
  }
  return -1;
}

// atoi of element i (0 for a null slot or a bad index), saturated.
inline int IntAt(const KPile& d, int i) {
  const CKString* s = Slot(d, i);
  return s ? AtoiSaturated(*s) : 0;
}

// nDefault outside the list, else KInt2 of element i.
inline int IntAt(const KPile& d, int i, int nDefault) {
  if (i < 0 || i >= d.elts) return nDefault;
  const CKString* s = Slot(d, i);
  return KInt2(s ? s->GetString() : nullptr, nDefault);
}

// Deletes the last elements or adds empty ones until the count is n (at
// least 0); stops if the list will not grow (a bounded list).
template <class TList>
void SetCount(TList& l, int n) {
  if (n < 0) n = 0;
  while (l.Count() > n) l.Delete(l.Count() - 1);
  while (l.Count() < n) {
    const int nBefore = l.Count();
    l.Add("");
    if (l.Count() == nBefore) break;
  }
}

// Removes every element equal to sz (whole texts, case folded when asked),
// moving nIndex back for each one removed before it, then puts sz at
// nIndex (appended when past the end). The index sz ends at, -1 for null.
template <class TList>
int InsertUnique(TList& l, int nIndex, const char* sz, int bNoCase) {
  if (!sz) return -1;
  for (int i = l.Count() - 1; i >= 0; i--) {
    const CKString* p = Slot(l.data, i);
    if (Compare(p ? p->GetString() : "", sz, bNoCase) == 0) {
      l.Delete(i);
      if (i < nIndex) nIndex--;
    }
  }
  if (nIndex < 0) nIndex = 0;
  if (nIndex < l.Count()) {
    l.InsertAt(nIndex, sz);
    return nIndex;
  }
  return l.Add(sz);
}

// Keeps the first occurrence of each text, in place (equal: same length and
// the same bytes up to it, case folded when asked). A null element is
// reported as "pStr1" or "pStr2" on the given lines of szPath and skipped.
template <class TList>
void RemoveDuplicates(TList& l, int bNoCase, const char* szPath, int nLine1, int nLine2) {
  for (int p = 0; p < l.Count() - 1; p++) {
    const CKString* s1 = Slot(l.data, p);
    KASSERT_AT(s1, "pStr1", szPath, nLine1);
    if (!s1) continue;
    const unsigned nLen = s1->GetLength();
    for (int q = p + 1; q < l.Count(); q++) {
      const CKString* s2 = Slot(l.data, q);
      KASSERT_AT(s2, "pStr2", szPath, nLine2);
      if (!s2) continue;
      if (s2->GetLength() == nLen && NCompare(*s1, *s2, nLen, bNoCase) == 0) {
        l.Delete(q);
        q--;
      }
    }
  }
}

}  // namespace klist

#endif  // KELVOR_KLISTUTIL_H
