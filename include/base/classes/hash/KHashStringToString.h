// CKHashStringToString: hash map from a text key to a text value, on the
// CKHashList machinery. The map owns both texts (heap CKString copies made by
// Set); callers never hand strings over and never free anything the map
// gives them. Lookups by text do not allocate.
#ifndef KELVOR_KHASHSTRINGTOSTRING_H
#define KELVOR_KHASHSTRINGTOSTRING_H

#include <base/classes/hash/KHashList.h>
#include <base/tools/KDebug.h>
#include <base/tools/KString.h>

class KELVOR_API CKHashStringToString : public CKHashList {
public:
  CKHashStringToString() {}
  CKHashStringToString(const CKHashStringToString& src) : CKHashList() {
    CKHashList::operator=(src);
  }
  CKHashStringToString& operator=(const CKHashStringToString& src) {
    CKHashList::operator=(src);
    return *this;
  }
  // Assignment through a CKHashList reference: a source that is not one of
  // these maps is refused (its keys and values need not be owned texts).
  CKHashStringToString& operator=(const CKHashList& src) override {
    const CKHashStringToString* pSrc = dynamic_cast<const CKHashStringToString*>(&src);
    KASSERT_RETV_AT(pSrc, "pSrc", "include/base/classes/hash/KHashStringToString", __LINE__,
                    *this);
    CKHashList::operator=(*pSrc);
    return *this;
  }
  ~CKHashStringToString() override { DeleteAll(); }
  // Moves everything to target, which must be one of these maps too.
  void Detach(CKHashList& target) override {
    KASSERT_RET_AT(dynamic_cast<CKHashStringToString*>(&target), "pTarget",
                   "include/base/classes/hash/KHashStringToString", __LINE__);
    CKHashList::Detach(target);
  }

  // Stores a copy of szValue (null: the empty text) under szKey; an existing
  // value is overwritten in place.
  void Set(const char* szKey, const char* szValue) {
    KASSERT_RET_AT(szKey, "szKey", "include/base/classes/hash/KHashStringToString", __LINE__);
    unsigned int nHash = HashString(szKey);
    KHashElt** ppLink = FindLink(nHash, szKey, &EqualText);
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
    KHashElt** ppLink = szKey ? FindLink(HashString(szKey), szKey, &EqualText) : nullptr;
    if (!ppLink) return nullptr;
    static const CKString s_strEmpty;
    const CKString* pValue = (const CKString*)(*ppLink)->pValue;
    return pValue ? pValue : &s_strEmpty;
  }
  int Exist(const char* szKey) const {
    return szKey && FindLink(HashString(szKey), szKey, &EqualText) ? 1 : 0;
  }
  void Delete(const char* szKey) {
    KHashElt** ppLink = szKey ? FindLink(HashString(szKey), szKey, &EqualText) : nullptr;
    if (ppLink) RemoveLink(ppLink);
  }

  void DeleteAt(unsigned int nIndex) { CKHashList::Delete(nIndex); }

  // Value and key of the nIndex-th element in iteration order.
  CKString GetAt(unsigned int nIndex) const {
    const CKString* p = (const CKString*)CKHashList::Get(nIndex);
    return p ? *p : CKString();
  }
  CKString GetKeyAt(unsigned int nIndex) const {
    const CKString* p = (const CKString*)CKHashList::GetKey(nIndex);
    return p ? *p : CKString();
  }

protected:
  unsigned int HashKey(void* pKey) const override {
    return pKey ? HashString(*(const CKString*)pKey) : 0;
  }
  int CompareKey(void* pStoredKey, void* pKey) const override {
    if (!pStoredKey || !pKey) return !pStoredKey && !pKey;
    return ((const CKString*)pStoredKey)->Compare(*(const CKString*)pKey) == 0;
  }
  void DestructElement(void* pKey, void* pValue) override {
    delete (CKString*)pKey;
    delete (CKString*)pValue;
  }
  void DestructValue(void* pOldValue, void* pNewValue) override {
    if (pOldValue != pNewValue) delete (CKString*)pOldValue;
  }
  void CopyElement(void*& pKeyOut, void*& pValueOut, void* pKey, void* pValue) override {
    CKString* pKeyCopy = pKey ? new CKString(*(const CKString*)pKey) : nullptr;
    try {
      pValueOut = pValue ? new CKString(*(const CKString*)pValue) : nullptr;
    } catch (...) {
      delete pKeyCopy;
      throw;
    }
    pKeyOut = pKeyCopy;
  }

private:
  static int EqualText(const void* pStoredKey, const void* pProbe) {
    return pStoredKey && ((const CKString*)pStoredKey)->Compare((const char*)pProbe) == 0;
  }
};

#endif  // KELVOR_KHASHSTRINGTOSTRING_H
