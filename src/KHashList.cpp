#define KSRC_PATH "src/KHashList"

#include <base/classes/hash/KHashList.h>
#include <base/classes/hash/KHashStringToString.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>

#include "KListUtil.h"

CKHashList::CKHashList()
    : m_pHashTable(nullptr),
      m_pFreeList(nullptr),
      m_pElts(nullptr),
      m_nPas(DEFAULT_STEP),
      m_nAllocated(0),
      m_nTableSize(DEFAULT_TABLE_SIZE),
      m_nCount(0),
      m_pDummy(nullptr) {}

CKHashList::CKHashList(const CKHashList&) : CKHashList() {}

// Subclasses destruct their elements (DeleteAll) in their own destructor;
// here only the storage is released.
CKHashList::~CKHashList() {
  free(m_pElts);
  free(m_pHashTable);
}

void CKHashList::Reset() {
  m_pHashTable = nullptr;
  m_pFreeList = nullptr;
  m_pElts = nullptr;
  m_nPas = DEFAULT_STEP;
  m_nAllocated = 0;
  m_nTableSize = DEFAULT_TABLE_SIZE;
  m_nCount = 0;
  m_pDummy = nullptr;
}

void CKHashList::Detach(CKHashList& target) {
  if (&target == this) return;
  target.DeleteAll();
  target.m_pHashTable = m_pHashTable;
  target.m_pFreeList = m_pFreeList;
  target.m_pElts = m_pElts;
  target.m_nPas = m_nPas;
  target.m_nAllocated = m_nAllocated;
  target.m_nTableSize = m_nTableSize;
  target.m_nCount = m_nCount;
  target.m_pDummy = nullptr;
  Reset();
}

CKHashList& CKHashList::operator=(const CKHashList& src) {
  if (&src == this) return *this;
  DeleteAll();
  if (!src.m_pHashTable) return *this;
  InitHashTable((int)src.m_nTableSize, src.m_nPas);
  for (unsigned int b = 0; b < src.m_nTableSize; ++b) {
    for (KHashElt* pSrc = src.m_pHashTable[b]; pSrc; pSrc = pSrc->pNextElt) {
      void* pKey = nullptr;
      void* pValue = nullptr;
      CopyElement(pKey, pValue, pSrc->pKey, pSrc->pValue);
      try {
        InsertElt(HashKey(pKey), pKey)->pValue = pValue;
      } catch (...) {
        // The pool could not grow: the copies are not in the map yet.
        DestructElement(pKey, pValue);
        throw;
      }
    }
  }
  return *this;
}

void CKHashList::InitHashTable(int nTableSize, int nPas) {
  KASSERT_RET_AT(nTableSize>1, "nTableSize>1", KSRC_PATH, 100);
  KASSERT_RET_AT(nPas>1, "nPas>1", KSRC_PATH, 101);
  m_nPas = nPas;
  // Blocks stay below 2 GiB, the most a 32-bit heap could ever give.
  KHashElt** pTable = (size_t)nTableSize * sizeof(KHashElt*) <= (size_t)INT_MAX
                          ? (KHashElt**)calloc((size_t)nTableSize, sizeof(KHashElt*))
                          : nullptr;
  if (!pTable) throw CKMemoryException(KSRC_PATH, 104);
  KHashElt** pOld = m_pHashTable;
  unsigned int nOldSize = m_nTableSize;
  m_pHashTable = pTable;
  m_nTableSize = (unsigned int)nTableSize;
  if (!pOld) return;
  // A second call must not orphan the elements: move them to the new table.
  for (unsigned int b = 0; b < nOldSize; ++b) {
    KHashElt* pElt = pOld[b];
    while (pElt) {
      KHashElt* pNext = pElt->pNextElt;
      unsigned int nBucket = HashKey(pElt->pKey) % m_nTableSize;
      pElt->pNextElt = m_pHashTable[nBucket];
      m_pHashTable[nBucket] = pElt;
      pElt = pNext;
    }
  }
  free(pOld);
}

// Adds nAdd zeroed elements to the pool and pushes them on the free list,
// the lowest on top. Only called with an empty free list, so every existing
// element sits in a chain: those links and the bucket heads are the only
// pointers into the pool that a move has to rewrite.
void CKHashList::GrowPool(int nAdd) {
  if (nAdd <= 0 || m_nAllocated > INT_MAX - nAdd) throw CKMemoryException(KSRC_PATH, 225);
  int nOld = m_nAllocated;
  int nNew = nOld + nAdd;
  // The 2 GiB bound of the piles: a wild step fails at once, whatever the
  // system's overcommit policy, instead of zeroing gigabytes.
  if ((size_t)nNew * sizeof(KHashElt) > (size_t)INT_MAX) throw CKMemoryException(KSRC_PATH, 225);
  uintptr_t nOldBase = (uintptr_t)m_pElts;
  // The count of elements grows by the step; the block itself geometrically,
  // so that the pool rarely moves (each move rewrites every link).
  KHashElt* pPool =
      (KHashElt*)klist::GrowBlock(m_pElts, (size_t)nNew * sizeof(KHashElt), (size_t)INT_MAX);
  if (!pPool) throw CKMemoryException(KSRC_PATH, 225);
  m_pElts = pPool;
  m_nAllocated = nNew;
  if (nOldBase && (uintptr_t)pPool != nOldBase) {
    auto rebase = [pPool, nOldBase](KHashElt* p) -> KHashElt* {
      if (!p) return nullptr;
      return pPool + ((uintptr_t)p - nOldBase) / sizeof(KHashElt);
    };
    if (m_pHashTable)
      for (unsigned int b = 0; b < m_nTableSize; ++b) m_pHashTable[b] = rebase(m_pHashTable[b]);
    for (int i = 0; i < nOld; ++i) pPool[i].pNextElt = rebase(pPool[i].pNextElt);
  }
  memset((void*)(pPool + nOld), 0, (size_t)nAdd * sizeof(KHashElt));
  for (int i = nNew - 1; i >= nOld; --i) {
    KHashElt* pElt = pPool + i;
    pElt->pNextElt = m_pFreeList;
    KASSERT_AT(pElt!=pElt->pNextElt, "pElt!=pElt->pNextElt", KSRC_PATH, 233);
    m_pFreeList = pElt;
  }
}

KHashElt* CKHashList::GetFreeElement() {
  if (!m_pFreeList) GrowPool(m_nPas);
  KHashElt* pElt = m_pFreeList;
  m_pFreeList = pElt->pNextElt;
  pElt->pNextElt = nullptr;
  ++m_nCount;
  return pElt;
}

KHashElt** CKHashList::FindLink(unsigned int nHash, const void* pProbe,
                                KHashEqualFunc pfEqual) const {
  if (!m_pHashTable) return nullptr;
  KHashElt** ppLink = &m_pHashTable[nHash % m_nTableSize];
  for (; *ppLink; ppLink = &(*ppLink)->pNextElt)
    if (pfEqual((*ppLink)->pKey, pProbe)) return ppLink;
  return nullptr;
}

KHashElt** CKHashList::FindLink(void* pKey) const {
  return m_pHashTable ? FindLinkHashed(HashKey(pKey), pKey) : nullptr;
}

KHashElt** CKHashList::FindLinkHashed(unsigned int nHash, void* pKey) const {
  if (!m_pHashTable) return nullptr;
  KHashElt** ppLink = &m_pHashTable[nHash % m_nTableSize];
  for (; *ppLink; ppLink = &(*ppLink)->pNextElt)
    if (CompareKey((*ppLink)->pKey, pKey)) return ppLink;
  return nullptr;
}

KHashElt* CKHashList::InsertElt(unsigned int nHash, void* pKey) {
  if (!m_pHashTable) InitHashTable((int)m_nTableSize, DEFAULT_STEP);
  KHashElt* pElt = GetFreeElement();
  pElt->pKey = pKey;
  KHashElt** ppHead = &m_pHashTable[nHash % m_nTableSize];
  pElt->pNextElt = *ppHead;
  *ppHead = pElt;
  return pElt;
}

void CKHashList::RemoveLink(KHashElt** ppLink) {
  KHashElt* pElt = *ppLink;
  *ppLink = pElt->pNextElt;
  DestructElement(pElt->pKey, pElt->pValue);
  pElt->pKey = nullptr;
  pElt->pValue = nullptr;
  pElt->pNextElt = m_pFreeList;
  m_pFreeList = pElt;
  --m_nCount;
}

void CKHashList::Set(void* pKey, void* pValue) {
  const unsigned int nHash = HashKey(pKey);
  KHashElt** ppLink = FindLinkHashed(nHash, pKey);
  KHashElt* pElt = ppLink ? *ppLink : InsertElt(nHash, pKey);
  DestructValue(pElt->pValue, pValue);
  pElt->pValue = pValue;
}

void*& CKHashList::Get(void* pKey, int bCreate, int* pbFound) {
  const unsigned int nHash = HashKey(pKey);
  KHashElt** ppLink = FindLinkHashed(nHash, pKey);
  KHashElt* pElt = ppLink ? *ppLink : nullptr;
  if (!pElt && bCreate) pElt = InsertElt(nHash, pKey);
  if (pbFound) *pbFound = pElt ? 1 : 0;
  if (pElt) return pElt->pValue;
  m_pDummy = nullptr;
  return m_pDummy;
}

void* CKHashList::Get(void* pKey) const {
  KHashElt** ppLink = FindLink(pKey);
  return ppLink ? (*ppLink)->pValue : nullptr;
}

void* CKHashList::Get(void* pKey, int* pbFound) const {
  KHashElt** ppLink = FindLink(pKey);
  if (pbFound) *pbFound = ppLink ? 1 : 0;
  return ppLink ? (*ppLink)->pValue : nullptr;
}

int CKHashList::Exist(void* pKey) const { return FindLink(pKey) ? 1 : 0; }

// The nIndex-th element in iteration order, with the link pointing to it;
// null when the walk ends first.
KHashElt* CKHashList::EltAt(unsigned int nIndex, KHashElt*** pppLink) const {
  for (unsigned int b = 0; b < m_nTableSize; ++b) {
    for (KHashElt** ppLink = &m_pHashTable[b]; *ppLink; ppLink = &(*ppLink)->pNextElt) {
      if (nIndex-- == 0) {
        if (pppLink) *pppLink = ppLink;
        return *ppLink;
      }
    }
  }
  return nullptr;
}

// The element that Get(index) and GetKey(index) read, or null after their
// reports.
KHashElt* CKHashList::EltReported(unsigned int nIndex) const {
  KASSERT_RETV_AT(nIndex<m_nCount, "nIndex<m_nCount", KSRC_PATH, 153, nullptr);
  KASSERT_RETV_AT(m_pHashTable, "m_pHashTable", KSRC_PATH, 154, nullptr);
  KHashElt* pElt = EltAt(nIndex, nullptr);
  KASSERT_RETV_AT(pElt, "FALSE", KSRC_PATH, 165, nullptr);
  return pElt;
}

void* CKHashList::Get(unsigned int nIndex) const {
  const KHashElt* pElt = EltReported(nIndex);
  return pElt ? pElt->pValue : nullptr;
}

void* CKHashList::GetKey(unsigned int nIndex) const {
  const KHashElt* pElt = EltReported(nIndex);
  return pElt ? pElt->pKey : nullptr;
}

void CKHashList::Delete(void* pKey) {
  KHashElt** ppLink = FindLink(pKey);
  if (ppLink) RemoveLink(ppLink);
}

void CKHashList::Delete(unsigned int nIndex) {
  // Reported on the lines these checks have always named.
  KASSERT_RET_AT(nIndex<m_nCount, "nIndex<m_nCount", KSRC_PATH, 260);
  KASSERT_RET_AT(m_pHashTable, "m_pHashTable", KSRC_PATH, 261);
  KHashElt** ppLink = nullptr;
  KASSERT_RET_AT(EltAt(nIndex, &ppLink), "FALSE", KSRC_PATH, 263);
  RemoveLink(ppLink);
}

void CKHashList::DeleteAll() {
  if (m_pHashTable) {
    for (unsigned int b = 0; b < m_nTableSize; ++b)
      for (KHashElt* pElt = m_pHashTable[b]; pElt; pElt = pElt->pNextElt)
        DestructElement(pElt->pKey, pElt->pValue);
  }
  free(m_pElts);
  free(m_pHashTable);
  m_pElts = nullptr;
  m_pHashTable = nullptr;
  m_pFreeList = nullptr;
  m_nAllocated = 0;
  m_nCount = 0;
}

int CKHashList::GetCollisions() const {
  KASSERT_RETV_AT(m_pHashTable, "m_pHashTable", KSRC_PATH, 273, 0);
  unsigned int nHeads = 0;
  for (unsigned int b = 0; b < m_nTableSize; ++b)
    if (m_pHashTable[b]) ++nHeads;
  return (int)(m_nCount - nHeads);
}

int CKHashList::First(KHashPos& pos) const {
  pos.nBucket = 0;
  pos.pElt = nullptr;
  if (!m_pHashTable) return FALSE;
  for (; pos.nBucket < m_nTableSize; ++pos.nBucket)
    if ((pos.pElt = m_pHashTable[pos.nBucket]) != nullptr) return TRUE;
  return FALSE;
}

int CKHashList::Next(KHashPos& pos) const {
  if (!pos.pElt || !m_pHashTable) return FALSE;
  if ((pos.pElt = pos.pElt->pNextElt) != nullptr) return TRUE;
  while (++pos.nBucket < m_nTableSize)
    if ((pos.pElt = m_pHashTable[pos.nBucket]) != nullptr) return TRUE;
  return FALSE;
}

// The text-to-text map's element hooks live here so that its vtable and
// destructor are emitted once, in the library.
CKHashStringToString::~CKHashStringToString() { DeleteAll(); }

void CKHashStringToString::DestructElement(void* pKey, void* pValue) {
  delete (CKString*)pKey;
  delete (CKString*)pValue;
}

void CKHashStringToString::DestructValue(void* pOldValue, void* pNewValue) {
  if (pOldValue != pNewValue) delete (CKString*)pOldValue;
}

void CKHashStringToString::CopyElement(void*& pKeyOut, void*& pValueOut, void* pKey,
                                       void* pValue) {
  CKString* pKeyCopy = pKey ? new CKString(*(const CKString*)pKey) : nullptr;
  try {
    pValueOut = pValue ? new CKString(*(const CKString*)pValue) : nullptr;
  } catch (...) {
    delete pKeyCopy;
    throw;
  }
  pKeyOut = pKeyCopy;
}
