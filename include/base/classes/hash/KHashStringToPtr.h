// CKHashStringToPtr<T>: hash map from a text key to an object the map owns.
// Keys are stored as heap CKString copies; values are T objects handed over
// by Set and deleted when they leave the map or are replaced. Lookups by text
// do not allocate. T needs a default constructor and an assignment (used by
// the map's copy); by default it is the string list CKList.
#ifndef KELVOR_KHASHSTRINGTOPTR_H
#define KELVOR_KHASHSTRINGTOPTR_H

#include <new>

#include <base/classes/hash/KHashStringKeyed.h>
#include <base/tools/KDebug.h>
#include <base/tools/KString.h>

class CKList;

template <class T = CKList>
class KELVOR_TEMPLATE_API CKHashStringToPtr : public CKHashStringKeyed<CKHashStringToPtr<T>> {
  typedef CKHashStringKeyed<CKHashStringToPtr<T>> Base;

public:
  // Where the refusals of assignment and Detach are reported.
  static constexpr const char* kAssertPath = "include/base/classes/hash/KHashStringToPtr";
  static constexpr int kAssignLine = 30;
  static constexpr int kDetachLine = 39;

  CKHashStringToPtr() {}
  CKHashStringToPtr(const CKHashStringToPtr& src) : Base() { CKHashList::operator=(src); }
  CKHashStringToPtr& operator=(const CKHashStringToPtr& src) {
    CKHashList::operator=(src);
    return *this;
  }
  // A source that is not one of these maps is reported and refused.
  CKHashStringToPtr& operator=(const CKHashList& src) override {
    this->AssignChecked(src);
    return *this;
  }
  ~CKHashStringToPtr() override { this->DeleteAll(); }

  // Takes ownership of pObject. A value already stored under szKey is
  // deleted (unless it is pObject itself); the stored key is kept. With a
  // null key nothing is stored and pObject stays the caller's.
  void Set(const char* szKey, T* pObject) {
    KASSERT_RET_AT(szKey, "szKey", kAssertPath, 265);
    size_t nLen;
    const unsigned int nHash = CKHashList::HashText(szKey, nLen);
    KHashElt** ppLink = this->FindText(nHash, szKey, nLen);
    KHashElt* pElt;
    if (ppLink) {
      pElt = *ppLink;
    } else {
      CKString* pStr = new (std::nothrow) CKString(szKey);
      KASSERT_RET_AT(pStr, "pStr", kAssertPath, 268);
      try {
        pElt = this->InsertElt(nHash, pStr);
      } catch (...) {
        delete pStr;
        throw;
      }
    }
    this->DestructValue(pElt->pValue, pObject);
    pElt->pValue = pObject;
  }

  // The object stored under szKey, or null.
  T* Get(const char* szKey) const {
    KHashElt** ppLink = this->FindText(szKey);
    return ppLink ? (T*)(*ppLink)->pValue : nullptr;
  }
  T* Get(const char* szKey, int* pbFound) const {
    KHashElt** ppLink = this->FindText(szKey);
    if (pbFound) *pbFound = ppLink ? 1 : 0;
    return ppLink ? (T*)(*ppLink)->pValue : nullptr;
  }

  // Object of the nIndex-th element in iteration order.
  T* GetAt(unsigned int nIndex) const { return (T*)CKHashList::Get(nIndex); }
  static T* ValueOf(const KHashPos& pos) { return (T*)pos.pElt->pValue; }
  static const CKString& KeyOf(const KHashPos& pos) { return *(const CKString*)pos.pElt->pKey; }

protected:
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
};

#endif  // KELVOR_KHASHSTRINGTOPTR_H
