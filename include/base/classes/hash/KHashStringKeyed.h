// CKHashStringKeyed<TMap>: what the string-keyed maps (CKHashStringToPtr,
// CKHashStringToString) share. Keys are heap CKString copies hashed with
// HashString and compared like strcmp; look-ups by text walk the chain
// without allocating or calling through the virtual key operations, and
// compare lengths before bytes.
//
// TMap is the map class itself. It names the source its reports carry
// (kAssertPath) and the lines of its assignment and Detach refusals
// (kAssignLine, kDetachLine), and it copies in its own copy constructor: its
// CopyElement does not exist yet while this base is being built.
#ifndef KELVOR_KHASHSTRINGKEYED_H
#define KELVOR_KHASHSTRINGKEYED_H

#include <cstring>

#include <base/classes/hash/KHashList.h>
#include <base/tools/KDebug.h>
#include <base/tools/KString.h>

template <class TMap>
class KELVOR_TEMPLATE_API CKHashStringKeyed : public CKHashList {
public:
  using CKHashList::operator=;

  int Exist(const char* szKey) const { return FindText(szKey) ? 1 : 0; }
  // Removes the element; the map releases what it owned.
  void Delete(const char* szKey) {
    if (KHashElt** ppLink = FindText(szKey)) RemoveLink(ppLink);
  }
  void DeleteAt(unsigned int nIndex) { CKHashList::Delete(nIndex); }
  // Key text of the nIndex-th element in iteration order.
  CKString GetKeyAt(unsigned int nIndex) const {
    const CKString* pKey = (const CKString*)CKHashList::GetKey(nIndex);
    return pKey ? *pKey : CKString();
  }

  // Moves everything to target, which must be a TMap too.
  void Detach(CKHashList& target) override {
    KASSERT_RET_AT(dynamic_cast<TMap*>(&target), "pTarget", TMap::kAssertPath,
                   TMap::kDetachLine);
    CKHashList::Detach(target);
  }

protected:
  CKHashStringKeyed() {}
  CKHashStringKeyed(const CKHashStringKeyed&) : CKHashList() {}

  // Assignment through a CKHashList reference: a source that is not a TMap
  // is refused (its elements need not be texts and owned values).
  void AssignChecked(const CKHashList& src) {
    const TMap* pSrc = dynamic_cast<const TMap*>(&src);
    if (!pSrc) {
      KAssertReport("pSrc", TMap::kAssertPath, TMap::kAssignLine, KASSERT_RETURN_VALUE);
      return;
    }
    CKHashList::operator=(*pSrc);
  }

  // The link to the element whose key is szKey (nLen bytes, hashing to
  // nHash); null when absent or without a table.
  KHashElt** FindText(unsigned int nHash, const char* szKey, size_t nLen) const {
    KHashElt** ppLink = BucketLink(nHash);
    if (ppLink)
      for (; *ppLink; ppLink = &(*ppLink)->pNextElt)
        if (KeyIs((*ppLink)->pKey, szKey, nLen)) return ppLink;
    return nullptr;
  }
  KHashElt** FindText(const char* szKey) const {
    if (!szKey) return nullptr;
    size_t nLen;
    const unsigned int nHash = HashText(szKey, nLen);
    return FindText(nHash, szKey, nLen);
  }

  unsigned int HashKey(void* pKey) const override {
    return pKey ? HashString(*(const CKString*)pKey) : 0;
  }
  int CompareKey(void* pStoredKey, void* pKey) const override {
    if (!pStoredKey || !pKey) return !pStoredKey && !pKey;
    return ((const CKString*)pStoredKey)->Compare(*(const CKString*)pKey) == 0;
  }

private:
  // strcmp equality of a stored key with a text of nLen bytes: equal lengths
  // and bytes, or a stored text that ends early at a zero byte.
  static bool KeyIs(const void* pKey, const char* szKey, size_t nLen) {
    if (!pKey) return false;
    const CKString& strKey = *(const CKString*)pKey;
    const size_t nKeyLen = strKey.GetLength();
    const char* s = strKey.GetString();
    return (nKeyLen == nLen || (nKeyLen > nLen && s[nLen] == 0)) &&
           std::memcmp(s, szKey, nLen) == 0;
  }
};

#endif  // KELVOR_KHASHSTRINGKEYED_H
