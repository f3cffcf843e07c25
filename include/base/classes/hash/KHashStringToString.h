// CKHashStringToString: hash map from a text key to a text value, on the
// CKHashList machinery. The map owns both texts (heap CKString copies made by
// Set); callers never hand strings over and never free anything the map
// gives them. Lookups by text do not allocate.
#ifndef KELVOR_KHASHSTRINGTOSTRING_H
#define KELVOR_KHASHSTRINGTOSTRING_H

#include <base/classes/hash/KHashStringKeyed.h>
#include <base/tools/KDebug.h>
#include <base/tools/KString.h>

class KELVOR_API CKHashStringToString : public CKHashStringKeyed<CKHashStringToString> {
  typedef CKHashStringKeyed<CKHashStringToString> Base;

public:
  // Where the refusals of assignment, Detach and Set are reported.
  static constexpr const char* kAssertPath = "include/base/classes/hash/KHashStringToString";
  static constexpr int kAssignLine = 26;
  static constexpr int kDetachLine = 35;
  static constexpr int kSetLine = 42;

  CKHashStringToString() {}
  CKHashStringToString(const CKHashStringToString& src) : Base() { CKHashList::operator=(src); }
  CKHashStringToString& operator=(const CKHashStringToString& src) {
    CKHashList::operator=(src);
    return *this;
  }
  // A source that is not one of these maps is reported and refused.
  CKHashStringToString& operator=(const CKHashList& src) override {
    AssignChecked(src);
    return *this;
  }
  ~CKHashStringToString() override;

  // Stores a copy of szValue (null: the empty text) under szKey; an existing
  // value is overwritten in place.
  void Set(const char* szKey, const char* szValue) {
    KASSERT_RET_AT(szKey, "szKey", kAssertPath, kSetLine);
    size_t nLen;
    const unsigned int nHash = HashText(szKey, nLen);
    KHashElt** ppLink = FindText(nHash, szKey, nLen);
    if (ppLink && (*ppLink)->pValue) {
      *(CKString*)(*ppLink)->pValue = szValue;
      return;
    }
    CKString* pValue = new CKString(szValue);
    if (ppLink) {
      (*ppLink)->pValue = pValue;
      return;
    }
    CKString* pKey = nullptr;
    try {
      pKey = new CKString(szKey);
      InsertElt(nHash, pKey)->pValue = pValue;
    } catch (...) {
      delete pKey;
      delete pValue;
      throw;
    }
  }

  // The value of szKey, or szDefault (the empty text when null).
  CKString Get(const char* szKey, const char* szDefault = nullptr) const {
    const CKString* pValue = Lookup(szKey);
    return pValue ? *pValue : CKString(szDefault);
  }
  // Copies the value into strValue; FALSE (strValue untouched) when absent.
  int Get(const char* szKey, CKString& strValue) const {
    const CKString* pValue = Lookup(szKey);
    if (!pValue) return FALSE;
    strValue = *pValue;
    return TRUE;
  }
  // The stored value itself, valid until the element changes; null if absent.
  const CKString* Lookup(const char* szKey) const {
    KHashElt** ppLink = FindText(szKey);
    if (!ppLink) return nullptr;
    static const CKString s_strEmpty;
    const CKString* pValue = (const CKString*)(*ppLink)->pValue;
    return pValue ? pValue : &s_strEmpty;
  }

  // Value of the nIndex-th element in iteration order.
  CKString GetAt(unsigned int nIndex) const {
    const CKString* p = (const CKString*)CKHashList::Get(nIndex);
    return p ? *p : CKString();
  }

protected:
  void DestructElement(void* pKey, void* pValue) override;
  void DestructValue(void* pOldValue, void* pNewValue) override;
  void CopyElement(void*& pKeyOut, void*& pValueOut, void* pKey, void* pValue) override;
};

#endif  // KELVOR_KHASHSTRINGTOSTRING_H
