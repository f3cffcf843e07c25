// CKString: the library's 8-bit, reference-counted, copy-on-write string.
//
// The object is one pointer to the characters. In front of them lies a
// 12-byte header: length, capacity (bytes of the character array, terminator
// included) and reference count, all unsigned 32-bit. Every empty string
// points at one shared static representation (0, 0, 1) that is never freed.
// A count of 0 marks a block carved from a decoder's pool (src/KStringPool.h):
// never shared, copied on copy and before any write.
#ifndef KELVOR_KSTRING_H
#define KELVOR_KSTRING_H

#include <cstdarg>
#include <cstdint>

#include <base/tools/KDefs.h>

struct KStringData {
  uint32_t nDataLength;  // characters, terminator excluded
  uint32_t nAllocLength; // bytes of the character array; 0 for the empty rep
  uint32_t nRefs;        // plain count: a string and its copies share one thread; 0: pooled
  char* data() { return (char*)(this + 1); }
};

class KELVOR_API CKString {
public:
  // Construction, assignment, conversion
  CKString();
  CKString(const CKString& s);
  CKString(const char* s);
  CKString(const unsigned char* s);
  CKString(const CString& s);
  CKString(char c);
  ~CKString();

  CKString& operator=(const CKString& s);
  CKString& operator=(const char* s);
  CKString& operator=(const unsigned char* s);
  CKString& operator=(char c);
  CKString& operator=(const CString& s);

  operator const char*() const { return m_pchData; }
  operator CString() const;
  const char* GetString() const { return m_pchData; }

  // Concatenation
  CKString& operator+=(const CKString& s);
  CKString& operator+=(const char* s);
  CKString& operator+=(char c);
  CKString& operator+=(const CString& s);
  // Appends exactly n characters of p; p[n] must be the terminator.
  void KConcatInPlace(unsigned n, const char* p);
  void KConcatInPlace(char c);

  // Comparison
  int Compare(const char* s) const;
  int CompareNoCase(const char* s) const;
  bool operator==(char c) const;
  bool operator!=(char c) const;
  bool operator!=(unsigned char* s) const;

  // Access and buffer
  unsigned GetLength() const { return GetData()->nDataLength; }
  // True only for the shared empty representation, not for length 0.
  BOOL IsEmpty() const { return GetData()->nAllocLength == 0; }
  void Empty();
  // Index 0 to the length (the terminator); past it: logged, and 0.
  char GetAt(unsigned i) const { return i <= GetLength() ? m_pchData[i] : OutOfRange(); }
  char operator[](int i) const { return (unsigned)i <= GetLength() ? m_pchData[i] : OutOfRange(); }
  void SetAt(unsigned i, char c);
  // Direct access: GetBuffer gives a private block with room for n characters
  // (or the current length, when longer); GetBufferSetLength also sets the
  // length to n. ReleaseBuffer ends the access: the length becomes n, or the
  // position of the first zero byte (no argument or 0xFFFFFFFF).
  char* GetBuffer(unsigned n);
  char* GetBufferSetLength(unsigned n);
  void ReleaseBuffer();
  void ReleaseBuffer(unsigned n);
  unsigned GetAllocLength() const { return GetData()->nAllocLength; }
  // A pooled block is never shared: it counts as one.
  unsigned GetRefCount() const { return GetData()->nRefs ? GetData()->nRefs : 1; }

  // Sub-strings and search
  CKString Mid(unsigned nFirst, unsigned nCount) const;
  CKString Mid(unsigned nFirst) const;
  CKString Left(unsigned n) const;
  CKString Right(unsigned n) const;
  int Find(char c) const;
  int Find(char c, unsigned nStart) const;
  int Find(const char* s) const;
  int Find(const char* s, unsigned nStart) const;
  // Last c (at or before nStart), or -1.
  int ReverseFind(char c) const;
  int ReverseFind(char c, unsigned nStart) const;
  // First character that is in szSet, or -1.
  int FindOneOf(const char* szSet) const;

  // Modification
  // Inserts at i (past the end: appends); the new length.
  int Insert(unsigned i, char c);
  int Insert(unsigned i, const char* s);
  // Returns the length before the deletion (callers rely on it). A count
  // past the end is reported and cut there.
  int Delete(unsigned i, unsigned n = 1);
  // Every occurrence; the number replaced.
  int Replace(char cOld, char cNew);
  int Replace(const char* szOld, const char* szNew);
  // Without an argument: blanks (space, tab, CR, LF); with c: that character.
  void TrimLeft();
  void TrimRight();
  void TrimLeft(char c);
  void TrimRight(char c);
  void MakeUpper();
  void MakeLower();
  void Format(const char* szFormat, ...) KELVOR_PRINTF(2, 3);
  void FormatV(const char* szFormat, va_list args) KELVOR_PRINTF(2, 0);
  // The text of string nID from the string table (KSetStringLoader); FALSE, and
  // empty, when there is none.
  BOOL LoadString(unsigned nID);

  // Capacity of a block made for n characters: 32, 64 ... 1024, then n + 1
  // rounded up to a multiple of 1024.
  static uint32_t CapacityFor(uint32_t n);

private:
  friend struct KStringPoolAccess;
  static char OutOfRange();
  KStringData* GetData() const { return ((KStringData*)m_pchData) - 1; }
  bool IsStaticEmpty() const;
  void Init();
  void Release();
  void AllocBuffer(uint32_t n);
  void CopyBeforeWrite();
  // Private block with room for n characters, text and length kept.
  void Reserve(uint32_t n);
  void AssignCopy(uint32_t n, const char* p);
  void Append(uint32_t n, const char* p);

  char* m_pchData;
};

KELVOR_API bool operator==(const CKString& a, const CKString& b);
KELVOR_API bool operator==(const CKString& a, const char* b);
KELVOR_API bool operator==(const char* a, const CKString& b);
KELVOR_API bool operator!=(const CKString& a, const CKString& b);
KELVOR_API bool operator!=(const CKString& a, const char* b);
KELVOR_API bool operator!=(const char* a, const CKString& b);

KELVOR_API CKString operator+(const CKString& a, const CKString& b);
KELVOR_API CKString operator+(const CKString& a, const char* b);
KELVOR_API CKString operator+(const char* a, const CKString& b);
KELVOR_API CKString operator+(const CKString& a, char c);
KELVOR_API CKString operator+(char c, const CKString& b);
KELVOR_API CKString operator+(const CKString& a, const CString& b);

// Three-way comparison by length first: a shorter string is smaller; equal
// lengths compare with strcmp (or case-insensitively). Not lexicographic.
KELVOR_API int KStrCompareLengthFirst(const CKString& a, const CKString& b, int bNoCase = FALSE);

// out := field n (0-based) of szFull split at cSep; 0 and an empty out when
// szFull is null or has fewer than n separators.
KELVOR_API BOOL AfxExtractSubString(CKString& out, const char* szFull, int n, char cSep);

// String table for LoadString. The loader copies the text of nID into buf
// (at most nBufMax - 1 characters plus a terminator) and returns the number
// of characters copied, 0 when there is no such string.
typedef int (*KStringLoader)(unsigned nID, char* buf, int nBufMax);
KELVOR_API void KSetStringLoader(KStringLoader pLoader);  // null: built-in table
KELVOR_API void KStringTableSet(unsigned nID, const char* szText);  // null removes
KELVOR_API void KStringTableClear();

#endif  // KELVOR_KSTRING_H
