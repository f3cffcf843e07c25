// CKHashStringToPtr<T>: hash map from a text key to an object the map owns.
// Keys are stored as heap CKString copies; values are T objects handed over
// by Set and deleted when they leave the map or are replaced. Lookups by text
// do not allocate. T needs a default constructor and an assignment (used by
// the map's copy); by default it is the string list CKList.
#ifndef KELVOR_KHASHSTRINGTOPTR_H
#define KELVOR_KHASHSTRINGTOPTR_H

#include <new>

#include <base/classes/hash/KHashList.h>
#include <base/tools/KDebug.h>
#include <base/tools/KString.h>

class CKList;

template <class T = CKList>
class KELVOR_API CKHashStringToPtr : public CKHashList {
public:
  CKHashStringToPtr() {}
  CKHashStringToPtr(const CKHashStringToPtr& src) : CKHashList() { CKHashList::operator=(src); }
  CKHashStringToPtr& operator=(const CKHashStringToPtr& src) {
    CKHashList::operator=(src);
    return *this;
  }
  // Assignment through a CKHashList reference: a source that is not one of
  // these maps is refused (its elements are not texts and owned objects).
  CKHashStringToPtr& operator=(const CKHashList& src) override {
    const CKHashStringToPtr* pSrc = dynamic_cast<const CKHashStringToPtr*>(&src);
    KASSERT_RETV_AT(pSrc, "pSrc", "include/base/classes/hash/KHashStringToPtr", __LINE__,
                    *this);
    CKHashList::operator=(*pSrc);
    return *this;
  }
  ~CKHashStringToPtr() override { DeleteAll(); }
  // Moves everything to target, which must be one of these maps too.
  void Detach(CKHashList& target) override {
    KASSERT_RET_AT(dynamic_cast<CKHashStringToPtr*>(&target), "pTarget",
                   "include/base/classes/hash/KHashStringToPtr", __LINE__);
    CKHashList::Detach(target);
  }

  // Takes ownership of pObject. A value already stored under szKey is
  // deleted (unless it is pObject itself); the stored key is kept. With a
  // null key nothing is stored and pObject stays the caller's.
  void Set(const char* szKey, T* pObject) {
    KASSERT_RET_AT(szKey, "szKey", "include/base/classes/hash/KHashStringToPtr", 265);
    unsigned int nHash = HashString(szKey);
    KHashElt** ppLink = FindLink(nHash, szKey, &EqualText);
    KHashElt* pElt;
    if (ppLink) {
      pElt = *ppLink;
    } else {
      CKString* pStr = new (std::nothrow) CKString(szKey);
      KASSERT_RET_AT(pStr, "pStr", "include/base/classes/hash/KHashStringToPtr", 268);
      try {
        pElt = InsertElt(nHash, pStr);
      } catch (...) {
        delete pStr;
        throw;
      }
    }
    DestructValue(pElt->pValue, pObject);
    pElt->pValue = pObject;
  }

  // The object stored under szKey, or null.
  T* Get(const char* szKey) const {
    KHashElt** ppLink = szKey ? FindLink(HashString(szKey), szKey, &EqualText) : nullptr;
    return ppLink ? (T*)(*ppLink)->pValue : nullptr;
  }
  T* Get(const char* szKey, int* pbFound) const {
    KHashElt** ppLink = szKey ? FindLink(HashString(szKey), szKey, &EqualText) : nullptr;
    if (pbFound) *pbFound = ppLink ? 1 : 0;
    return ppLink ? (T*)(*ppLink)->pValue : nullptr;
  }
  int Exist(const char* szKey) const {
    return szKey && FindLink(HashString(szKey), szKey, &EqualText) ? 1 : 0;
  }
  // Removes the element and deletes its key and object.
  void Delete(const char* szKey) {
    KHashElt** ppLink = szKey ? FindLink(HashString(szKey), szKey, &EqualText) : nullptr;
    if (ppLink) RemoveLink(ppLink);
  }

  void DeleteAt(unsigned int nIndex) { CKHashList::Delete(nIndex); }

  // Object and key text of the nIndex-th element in iteration order.
  T* GetAt(unsigned int nIndex) const { return (T*)CKHashList::Get(nIndex); }
  CKString GetKeyAt(unsigned int nIndex) const {
    const CKString* pKey = (const CKString*)CKHashList::GetKey(nIndex);
    return pKey ? *pKey : CKString();
  }
  static T* ValueOf(const KHashPos& pos) { return (T*)pos.pElt->pValue; }
  static const CKString& KeyOf(const KHashPos& pos) { return *(const CKString*)pos.pElt->pKey; }

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
    delete (T*)pValue;
  }
  void DestructValue(void* pOldValue, void* pNewValue) override {
    if (pOldValue != pNewValue) delete (T*)pOldValue;
  }
  void CopyElement(void*& pKeyOut, void*& pValueOut, void* pKey, void* pValue) override {
    CKString* pKeyCopy = pKey ? new CKString(*(const CKString*)pKey) : nullptr;
    T* pCopy = nullptr;
    if (pValue) {
      try {
        pCopy = new T;
        *pCopy = *(const T*)pValue;
      } catch (...) {
        delete pCopy;
        delete pKeyCopy;
        throw;
      }
    }
    pKeyOut = pKeyCopy;
    pValueOut = pCopy;
  }

private:
  static int EqualText(const void* pStoredKey, const void* pProbe) {
    return pStoredKey && ((const CKString*)pStoredKey)->Compare((const char*)pProbe) == 0;
  }
};

#endif  // KELVOR_KHASHSTRINGTOPTR_H
