// CKGuid: the 16-byte GUID with its three text forms, parsing, byte-order
// conversion and hashing; CKListGuid: an owning list of them.
//
// Text forms (upper-case hex on output, either case on input):
//   braced   {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}   (38 characters)
//   plain    XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX         (32 characters)
//   numeric  the four 32-bit words, signed, in a radix, concatenated
// A text that does not yield all eleven fields parses as the empty GUID.
#ifndef KELVOR_KGUID_H
#define KELVOR_KGUID_H

#include <cstdint>

#include <base/classes/list/KPile.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

#if !defined(GUID_DEFINED)
#  define GUID_DEFINED
// The Windows GUID in its in-memory layout.
typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
#endif

class KELVOR_API CKGuid : public GUID {
public:
  // The empty GUID.
  CKGuid() { Empty(); }
  // Every byte = b.
  explicit CKGuid(unsigned char b) { Fill(b); }
  // A new random GUID when bNew, else (or when no random source) empty.
  explicit CKGuid(int bNew);
  // Parses sz in the braced form when bBraced, else in the plain form.
  CKGuid(const char* sz, int bBraced = TRUE);
  CKGuid(const GUID& g) : GUID(g) {}
  // A text variant parses in the plain form; anything else is empty.
  explicit CKGuid(const _variant_t& v);

  CKGuid& operator=(const GUID& g);
  CKGuid& operator=(const _variant_t& v);
  // Parses in the braced form.
  CKGuid& operator=(const char* sz);

  // A new random GUID (version 4, RFC 4122 variant); empty, and logged, when
  // the system has no random source.
  void New();
  void Fill(unsigned char b);
  void Empty() { Fill(0); }
  int IsEmpty() const;

  // Braced, plain, or (Ex) braced when sz starts with '{' and plain else.
  CKGuid* FromStr(const char* sz);
  CKGuid* FromStr2(const char* sz);
  CKGuid* FromStrEx(const char* sz);

  operator CKString() const;  // braced
  CKString Str2() const;      // plain
  CKString Str3(int nRadix) const;

  // The text parses in the braced form (malformed = empty) and all 16 bytes
  // are compared.
  int operator==(const char* sz) const;
  int operator==(const CKString& s) const;
  int operator==(const GUID& g) const;
  int operator!=(const GUID& g) const { return !(*this == g); }

  // Stable 16-bit hash of the 16 bytes.
  unsigned int HashKey() const;

  // out[i] = in-memory byte 15 - i.
  void ToLittleEndian(unsigned char* out) const;
  // Reads the reversal of the big-endian (RFC 4122) order. Not the inverse
  // of ToLittleEndian: Data1..Data3 come back byte-swapped. Callers pair
  // each with the byte order of their peer.
  void FromLittleEndian(const unsigned char* in);
};

// Text conversions on plain GUIDs. The parsers zero g unless sz is not null
// and all eleven fields are read.
KELVOR_API void __CLSIDFromString(const char* sz, GUID& g);
KELVOR_API GUID __CLSIDFromString(const char* sz);
KELVOR_API void __CLSIDFromString2(const char* sz, GUID& g);
KELVOR_API GUID __CLSIDFromString2(const char* sz);
KELVOR_API void __CLSIDFromStringEx(const char* sz, GUID& g);
KELVOR_API GUID __CLSIDFromStringEx(const char* sz);
// buf holds at least 39 bytes.
KELVOR_API char* __StringFromCLSID(char* buf, const GUID& g);
KELVOR_API CKString __StringFromCLSID(const GUID& g);
KELVOR_API CKString __String2FromCLSID(const GUID& g);
KELVOR_API CKString __String3FromCLSID(const GUID& g, int nRadix);

// A pile of individually allocated GUIDs that the list owns.
class KELVOR_API CKListGuid : public CKPile {
public:
  CKListGuid() {}
  // Copies are deep: each list owns its own elements.
  CKListGuid(const CKListGuid& l);
  CKListGuid& operator=(const CKListGuid& l);
  ~CKListGuid() override;

  // Appends a heap copy; the pile's index (a failed allocation appends null).
  int Add(const CKGuid& g);
  // Stores a heap copy at i; the element it replaces is not freed here (a
  // caller that holds it from GetData keeps it valid and frees it).
  void Set(int i, const CKGuid& g);
  // A copy; the empty GUID for a bad index or a null element.
  CKGuid Get(int i) const;
  CKGuid* GetData(int i) const;
  // First index equal to g, or -1. The search always starts at 0: nStart is
  // accepted for compatibility and ignored.
  int Find(const CKGuid& g, int nStart = 0) const;
  // Removes and frees the first element equal to g; its index, or -1.
  int Remove(const CKGuid& g);
  void RemoveAt(int i);
  void DeleteAll();
  // TRUE when both lists hold as many elements. The elements themselves are
  // not matched against the other list's.
  int IsEqual(CKListGuid& other);
  // Takes over other's elements (this list's own are freed first); other is
  // left empty.
  void Detach(CKListGuid& other);
};

#endif  // KELVOR_KGUID_H
