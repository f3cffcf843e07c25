#define KSRC_PATH "src/KListParamValue"

#include <base/tools/KListParamValue.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KListUtil.h"

namespace {

// Text of slot i of a string list without copying; a null slot reads as "".
inline const CKString* Slot(const CKList& l, int i) { return (const CKString*)l.PileGet(i); }
inline const char* SlotText(const CKList& l, int i, unsigned& nLen) {
  const CKString* p = Slot(l, i);
  nLen = p ? p->GetLength() : 0;
  return p ? p->GetString() : "";
}
inline CKString SlotCopy(const CKList& l, int i) {
  const CKString* p = Slot(l, i);
  return p ? *p : CKString();
}

inline char* Put(char* q, const char* s, unsigned n) {
  if (n) memcpy(q, s, n);  // a null separator is an empty one
  return q + n;
}

// Strict integer text without a minus sign, converted with strtoull; FALSE
// when it does not fit nMax.
int ParseUnsigned(const CKString& s, unsigned __int64 nMax, unsigned __int64& nOut) {
  if (!KIsStrictInt(s) || s[0] == '-') return FALSE;
  errno = 0;
  unsigned long long v = strtoull(s, nullptr, 10);
  if (errno == ERANGE || v > nMax) return FALSE;
  nOut = v;
  return TRUE;
}

// Partition step of the pair quicksorts: the median of three goes to nLo as
// the pivot; both scans stop on keys equal to it, so runs of equal keys split
// evenly. Returns the pivot's final index.
template <class TList, class TCompare>
int PartitionPairs(TList& l, int nLo, int nHi, TCompare pfCompare) {
  int nMid = nLo + (nHi - nLo) / 2;
  if (pfCompare(nMid, nLo, l) < 0) l.Swap(nMid, nLo);
  if (pfCompare(nHi, nLo, l) < 0) l.Swap(nHi, nLo);
  if (pfCompare(nHi, nMid, l) < 0) l.Swap(nHi, nMid);
  l.Swap(nLo, nMid);
  int i = nLo, j = nHi + 1;
  for (;;) {
    while (++i <= nHi && pfCompare(i, nLo, l) < 0) {
    }
    // Stops at the pivot itself even for a comparator that does not give 0
    // for a pair compared with itself.
    do {
      --j;
    } while (j > nLo && pfCompare(j, nLo, l) > 0);
    if (i >= j) break;
    l.Swap(i, j);
  }
  l.Swap(nLo, j);
  return j;
}

// Recurses into the smaller part only, so the depth stays logarithmic.
template <class TList, class TCompare>
void QsortPairs(TList& l, int nLo, int nHi, TCompare pfCompare) {
  while (nLo < nHi) {
    int j = PartitionPairs(l, nLo, nHi, pfCompare);
    if (j - nLo < nHi - j) {
      QsortPairs(l, nLo, j - 1, pfCompare);
      nLo = j + 1;
    } else {
      QsortPairs(l, j + 1, nHi, pfCompare);
      nHi = j - 1;
    }
  }
}

}  // namespace

int funcCumpareParam(int i, int j, const CKListParamValue& list) {
  unsigned n;
  int r = strcmp(SlotText(list.GetParamList(), i, n), SlotText(list.GetParamList(), j, n));
  return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int funcCumpareSize(int i, int j, const CKListParamValueInt& list) {
  int a = list.GetValue(i), b = list.GetValue(j);
  return a < b ? -1 : (a > b ? 1 : 0);
}

// ================================================================ CKListParamValue

CKListParamValue::CKListParamValue() {}

CKListParamValue::CKListParamValue(const CKListParamValue& l)
    : m_ListParam(l.m_ListParam), m_ListValue(l.m_ListValue) {}

CKListParamValue::~CKListParamValue() {}

CKListParamValue& CKListParamValue::operator=(const CKListParamValue& l) {
  if (&l != this) {
    m_ListParam = l.m_ListParam;
    m_ListValue = l.m_ListValue;
  }
  return *this;
}

int CKListParamValue::Find(const char* szName, int bNoCase) const {
  return m_ListParam.Find(szName, bNoCase);
}

int CKListParamValue::FindValue(const char* szValue, int bNoCase) const {
  return m_ListValue.Find(szValue, bNoCase);
}

int CKListParamValue::Exist(const char* szName, int bNoCase) const {
  return Find(szName, bNoCase) != -1 ? TRUE : FALSE;
}

CKString CKListParamValue::GetValue(const char* szName, int bNoCase, const char* szDefault) const {
  int i = Find(szName, bNoCase);
  if (i < 0) return CKString(szDefault ? szDefault : "");
  return SlotCopy(m_ListValue, i);
}

int CKListParamValue::GetValueInt(const char* szName, int bNoCase, int nDefault) const {
  int i = Find(szName, bNoCase);
  const CKString* p = i < 0 ? nullptr : Slot(m_ListValue, i);
  return p ? klist::StrictInt(*p, nDefault) : nDefault;
}

unsigned int CKListParamValue::GetValueUINT(const char* szName, int bNoCase,
                                            unsigned int nDefault) const {
  int i = Find(szName, bNoCase);
  const CKString* p = i < 0 ? nullptr : Slot(m_ListValue, i);
  unsigned __int64 v;
  return p && ParseUnsigned(*p, 0xFFFFFFFFu, v) ? (unsigned int)v : nDefault;
}

unsigned __int64 CKListParamValue::GetValueUINT64(const char* szName, int bNoCase,
                                                  unsigned __int64 nDefault) const {
  int i = Find(szName, bNoCase);
  const CKString* p = i < 0 ? nullptr : Slot(m_ListValue, i);
  unsigned __int64 v;
  return p && ParseUnsigned(*p, ~0ull, v) ? v : nDefault;
}

CKString CKListParamValue::GetValue(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListValue, nIndex);
}

CKString CKListParamValue::GetParam(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListParam, nIndex);
}

// Both setters keep the pairs aligned: an index past the end would extend
// one list only.
void CKListParamValue::SetValue(int nIndex, const char* szValue) {
  KASSERT_RET(nIndex>=0&&nIndex<Count());
  m_ListValue.Set(nIndex, szValue);
}

void CKListParamValue::SetParam(int nIndex, const char* szName) {
  KASSERT_RET(nIndex>=0&&nIndex<Count());
  m_ListParam.Set(nIndex, szName);
}

// A value list that cannot grow takes the name back: the pairs stay aligned.
void CKListParamValue::AddValue(const char* szName, const char* szValue) {
  m_ListParam.Add(szName);
  try {
    m_ListValue.Add(szValue);
  } catch (...) {
    m_ListParam.DeleteLast();
    throw;
  }
}

void CKListParamValue::InsertValue(int nIndex, const char* szName, const char* szValue) {
  const int nCount = Count();
  if (nIndex < 0) nIndex = 0;
  if (nIndex > nCount) nIndex = nCount;
  m_ListParam.InsertAt(nIndex, szName);
  try {
    m_ListValue.InsertAt(nIndex, szValue);
  } catch (...) {
    m_ListParam.Delete(nIndex);
    throw;
  }
}

void CKListParamValue::SetValue(const char* szName, const char* szValue, int bNoCase) {
  int i = Find(szName, bNoCase);
  if (i < 0)
    AddValue(szName, szValue);
  else
    m_ListValue.Set(i, szValue);
}

void CKListParamValue::AddUnique(const char* szName, const char* szValue, int bReplace) {
  int i = Find(szName, FALSE);
  if (i < 0)
    AddValue(szName, szValue);
  else if (bReplace)
    m_ListValue.Set(i, szValue);
}

void CKListParamValue::Remove(int nIndex) {
  KASSERT_RET(nIndex>=0&&nIndex<Count());
  m_ListParam.Delete(nIndex);
  m_ListValue.Delete(nIndex);
}

void CKListParamValue::Remove(const char* szName, int bNoCase) {
  int i = Find(szName, bNoCase);
  if (i >= 0) Remove(i);
}

void CKListParamValue::Empty() {
  m_ListParam.Empty();
  m_ListValue.Empty();
}

void CKListParamValue::Swap(int i, int j) {
  m_ListParam.Swap(i, j);
  m_ListValue.Swap(i, j);
}

CKString CKListParamValue::ToString(char cEqual, char cSep) const {
  char szEqual[2] = {cEqual, 0}, szSep[2] = {cSep, 0};
  return ToString(szEqual, szSep);
}

// One block, sized beforehand, for the whole text.
CKString CKListParamValue::ToString(const char* szEqual, const char* szSep) const {
  int n = Count();
  if (n == 0) return CKString();
  unsigned nEqual = szEqual ? (unsigned)strlen(szEqual) : 0;
  unsigned nSep = szSep ? (unsigned)strlen(szSep) : 0;
  unsigned long long nTotal = (unsigned long long)nEqual * n + (unsigned long long)nSep * (n - 1);
  unsigned nLen;
  for (int i = 0; i < n; ++i) {
    SlotText(m_ListParam, i, nLen);
    nTotal += nLen;
    SlotText(m_ListValue, i, nLen);
    nTotal += nLen;
  }
  KASSERT_RETV(nTotal<0x7FFFFFF0u, CKString());
  CKString str;
  char* const pStart = str.GetBuffer((unsigned)nTotal);
  char* q = pStart;
  for (int i = 0; i < n; ++i) {
    if (i) q = Put(q, szSep, nSep);
    const char* s = SlotText(m_ListParam, i, nLen);
    q = Put(q, s, nLen);
    q = Put(q, szEqual, nEqual);
    s = SlotText(m_ListValue, i, nLen);
    q = Put(q, s, nLen);
  }
  str.ReleaseBuffer((unsigned)(q - pStart));
  return str;
}

void CKListParamValue::FromString(const char* szText, char cEqual, char cSep) {
  Empty();
  const char* p = szText;
  while (p && *p) {
    const char* pRest;
    CKString strName = KStrParseToSeparator(p, cEqual, pRest);
    if (strName.GetLength() == 0) break;
    CKString strValue = KStrParseToSeparator(pRest, cSep, p);
    AddValue(strName, strValue);
  }
}

void CKListParamValue::FromString(const char* szText, const char* szEqual, const char* szSep) {
  FromString(szText, szEqual, szSep, nullptr);
}

void CKListParamValue::FromString(const char* szText, const char* szEqual, const char* szSep,
                                  KParamValueTransformFunc pfValue) {
  Empty();
  const char* p = szText;
  while (p && *p) {
    const char* pRest;
    CKString strName = KStrParseToSeparator(p, szEqual, pRest);
    if (strName.GetLength() == 0) break;
    CKString strValue = KStrParseToSeparator(pRest, szSep, p);
    if (pfValue)
      AddValue(strName, pfValue(strValue));
    else
      AddValue(strName, strValue);
  }
}

int CKListParamValue::Save(const char* szFile) const {
  CKString strText = Count() ? ToString("=", "\r\n") + "\r\n" : CKString();
  return KStrTextToFile(szFile, strText);
}

int CKListParamValue::Load(const char* szFile) {
  CKString strText;
  if (!KStrFileToText(szFile, strText)) return FALSE;
  CKList lines;
  KStrTextToList(&lines, strText);
  Empty();
  for (int i = 0; i < lines.Count(); ++i) {
    unsigned nLen;
    const char* szLine = SlotText(lines, i, nLen);
    if (!nLen) continue;
    const char* szValue;
    CKString strName = KStrParseToSeparator(szLine, '=', szValue);
    AddValue(strName, szValue);
  }
  return TRUE;
}

void CKListParamValue::AddList(const CKListParamValue& l, int bUnique, int bReplace) {
  // The count is taken first so that adding a table to itself terminates.
  int n = l.Count();
  for (int i = 0; i < n; ++i) {
    CKString strName = SlotCopy(l.m_ListParam, i);
    CKString strValue = SlotCopy(l.m_ListValue, i);
    if (bUnique)
      AddUnique(strName, strValue, bReplace);
    else
      AddValue(strName, strValue);
  }
}

void CKListParamValue::Sort(KParamValueCompareFunc pfCompare) {
  KASSERT_RET(pfCompare);
  _Qsort(0, Count() - 1, pfCompare);
}

void CKListParamValue::SortByParam() { Sort(&funcCumpareParam); }

void CKListParamValue::_Qsort(int nLo, int nHi, KParamValueCompareFunc pfCompare) {
  QsortPairs(*this, nLo, nHi, pfCompare);
}

int CKListParamValue::_Partition(int nLo, int nHi, KParamValueCompareFunc pfCompare) {
  return PartitionPairs(*this, nLo, nHi, pfCompare);
}

// ================================================================ CKListParamValueInt

CKListParamValueInt::CKListParamValueInt() {}

// The values are copied too: sharing one value array between two owners
// would free it twice.
CKListParamValueInt::CKListParamValueInt(const CKListParamValueInt& l)
    : m_ListParam(l.m_ListParam), m_ListValue(l.m_ListValue) {}

CKListParamValueInt::~CKListParamValueInt() {}

CKListParamValueInt& CKListParamValueInt::operator=(const CKListParamValueInt& l) {
  if (&l != this) {
    m_ListParam = l.m_ListParam;
    m_ListValue = l.m_ListValue;
  }
  return *this;
}

CKListParamValueInt& CKListParamValueInt::operator=(const CKList& l) {
  if (&l != &m_ListParam) m_ListParam = l;
  m_ListValue.PileEmpty();
  m_ListValue.PileSetCount(Count());  // new values read as zero
  return *this;
}

CKListParamValueInt& CKListParamValueInt::operator+=(const CKListParamValueInt& l) {
  int n = l.Count();
  for (int i = 0; i < n; ++i) AddValue(SlotCopy(l.m_ListParam, i), l.GetValue(i), FALSE);
  return *this;
}

int CKListParamValueInt::Find(const char* szName, int bNoCase) const {
  return m_ListParam.Find(szName, bNoCase);
}

CKString CKListParamValueInt::GetParam(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListParam, nIndex);
}

void CKListParamValueInt::AddValue(const char* szName, int n, int bNoCase) {
  int i = Find(szName, bNoCase);
  if (i < 0) {
    EnsureAddValue(szName, n);
    return;
  }
  // Counters wrap rather than overflow.
  m_ListValue.PileSetAt(i, (int)((unsigned)m_ListValue.PileGet(i) + (unsigned)n));
}

void CKListParamValueInt::SetValue(const char* szName, int n, int bNoCase) {
  int i = Find(szName, bNoCase);
  if (i < 0)
    AddValue(szName, n, TRUE);
  else
    m_ListValue.PileSetAt(i, n);
}

void CKListParamValueInt::EnsureAddValue(const char* szName, int n) {
  m_ListParam.Add(szName);
  if (m_ListValue.PileAdd(n) < 0) {
    // The pairs stay aligned: the name goes again.
    m_ListParam.DeleteLast();
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

CKString CKListParamValueInt::GetParamByValue(int n) const {
  int i = FindValue(n);
  return i < 0 ? CKString() : SlotCopy(m_ListParam, i);
}

void CKListParamValueInt::Remove(int nIndex) {
  KASSERT_RET(nIndex>=0&&nIndex<Count());
  m_ListParam.Delete(nIndex);
  m_ListValue.PileRemove(nIndex);
}

void CKListParamValueInt::Remove(const char* szName, int bNoCase) {
  int i = Find(szName, bNoCase);
  if (i >= 0) Remove(i);
}

void CKListParamValueInt::Swap(int i, int j) {
  m_ListParam.Swap(i, j);
  m_ListValue.PileSwap(i, j);
}

void CKListParamValueInt::Empty() {
  m_ListParam.Empty();
  m_ListValue.PileEmpty();
}

void CKListParamValueInt::AddList(const CKListParamValueInt& l, int bUnique, int bReplace) {
  int n = l.Count();
  for (int i = 0; i < n; ++i) {
    CKString strName = SlotCopy(l.m_ListParam, i);
    int v = l.GetValue(i);
    int k = bUnique ? Find(strName, FALSE) : -1;
    if (k < 0)
      EnsureAddValue(strName, v);
    else if (bReplace)
      m_ListValue.PileSetAt(k, v);
  }
}

int CKListParamValueInt::BSearchIndex(KPileSortFunc pfCompare, const void* pKey) const {
  KASSERT_RETV(pfCompare, -1);
  void** pSlots = m_ListParam.PileGetData();
  int nLo = 0, nHi = Count();
  while (nLo < nHi) {
    int nMid = nLo + (nHi - nLo) / 2;  // (lo + hi) / 2 without overflow
    int r = pfCompare(&pKey, &pSlots[nMid]);
    if (r < 0)
      nHi = nMid;
    else if (r > 0)
      nLo = nMid + 1;
    else
      return nMid;
  }
  return -1;
}

void CKListParamValueInt::InsertSorted(KPileSortFunc pfCompare, const char* szName, int n) {
  KASSERT_RET(pfCompare);
  KPileSortFunc CompareFunction = pfCompare;
  CKString strKey(szName);
  const CKString* pKey = &strKey;
  void** pSlots = m_ListParam.PileGetData();
  int nLo = 0, nHi = Count(), nPos = -1;
  while (nLo < nHi && nPos < 0) {
    int nMid = nLo + (nHi - nLo) / 2;
    int r = (*CompareFunction)(&pKey, &pSlots[nMid]);
    if (r < 0)
      nHi = nMid;
    else if (r > 0)
      nLo = nMid + 1;
    else
      nPos = nMid;
  }
  if (nPos < 0) nPos = nLo;
  // A name equal to a neighbour (or a list out of order) is reported; the
  // pair is inserted all the same.
  if (nPos < Count()) {
    const void* pKey2 = pSlots[nPos];
    KASSERT_T((*CompareFunction)(&pKey, &pKey2) < 0, "(*CompareFunction) (&pKey, &pKey2) < 0");
  }
  if (nPos > 0) {
    const void* pKey2 = pSlots[nPos - 1];
    KASSERT_T((*CompareFunction)(&pKey, &pKey2) > 0, "(*CompareFunction) (&pKey, &pKey2) > 0");
  }
  m_ListParam.InsertAt(nPos, strKey);
  if (m_ListValue.PileInsertAt(nPos, n) < 0) {
    m_ListParam.Delete(nPos);
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
}

void CKListParamValueInt::Sort(KParamValueIntCompareFunc pfCompare) {
  KASSERT_RET(pfCompare);
  _Qsort(0, Count() - 1, pfCompare);
}

void CKListParamValueInt::SortByValue() { Sort(&funcCumpareSize); }

void CKListParamValueInt::_Qsort(int nLo, int nHi, KParamValueIntCompareFunc pfCompare) {
  QsortPairs(*this, nLo, nHi, pfCompare);
}

int CKListParamValueInt::_Partition(int nLo, int nHi, KParamValueIntCompareFunc pfCompare) {
  return PartitionPairs(*this, nLo, nHi, pfCompare);
}

// ================================================================ CKListParamParamValue

CKListParamParamValue::CKListParamParamValue() {}

CKListParamParamValue::CKListParamParamValue(const CKListParamParamValue& l)
    : m_ListParam1(l.m_ListParam1), m_ListParam2(l.m_ListParam2), m_ListValue(l.m_ListValue) {}

CKListParamParamValue::~CKListParamParamValue() {}

CKListParamParamValue& CKListParamParamValue::operator=(const CKListParamParamValue& l) {
  if (&l != this) {
    m_ListParam1 = l.m_ListParam1;
    m_ListParam2 = l.m_ListParam2;
    m_ListValue = l.m_ListValue;
  }
  return *this;
}

void CKListParamParamValue::AddValue(const char* szParam1, const char* szParam2,
                                     const char* szValue) {
  m_ListParam1.Add(szParam1);
  m_ListParam2.Add(szParam2);
  m_ListValue.Add(szValue);
}

int CKListParamParamValue::Find(const char* szParam1, const char* szParam2, int bNoCase) const {
  // CKList::Find's equality, on both names.
  const size_t n1 = szParam1 ? strlen(szParam1) : 0, n2 = szParam2 ? strlen(szParam2) : 0;
  for (int i = 0; i < Count(); ++i)
    if (klist::FindMatch(Slot(m_ListParam1, i), szParam1, n1, bNoCase) &&
        klist::FindMatch(Slot(m_ListParam2, i), szParam2, n2, bNoCase))
      return i;
  return -1;
}

CKString CKListParamParamValue::GetValue(const char* szParam1, const char* szParam2, int bNoCase,
                                         const char* szDefault) const {
  int i = Find(szParam1, szParam2, bNoCase);
  if (i < 0) return CKString(szDefault ? szDefault : "");
  return SlotCopy(m_ListValue, i);
}

void CKListParamParamValue::SetValue(const char* szParam1, const char* szParam2,
                                     const char* szValue, int bNoCase) {
  int i = Find(szParam1, szParam2, bNoCase);
  if (i < 0)
    AddValue(szParam1, szParam2, szValue);
  else
    m_ListValue.Set(i, szValue);
}

CKString CKListParamParamValue::GetParam1(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListParam1, nIndex);
}

CKString CKListParamParamValue::GetParam2(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListParam2, nIndex);
}

CKString CKListParamParamValue::GetValue(int nIndex) const {
  KASSERT_RETV(nIndex>=0&&nIndex<Count(), CKString());
  return SlotCopy(m_ListValue, nIndex);
}

void CKListParamParamValue::Remove(int nIndex) {
  KASSERT_RET(nIndex>=0&&nIndex<Count());
  m_ListParam1.Delete(nIndex);
  m_ListParam2.Delete(nIndex);
  m_ListValue.Delete(nIndex);
}

void CKListParamParamValue::Empty() {
  m_ListParam1.Empty();
  m_ListParam2.Empty();
  m_ListValue.Empty();
}

void CKListParamParamValue::ToList(CKList& list) const {
  list.Empty();
  for (int i = 0; i < Count(); ++i) {
    list.Add(SlotCopy(m_ListParam1, i));
    list.Add(SlotCopy(m_ListParam2, i));
    list.Add(SlotCopy(m_ListValue, i));
  }
}

void CKListParamParamValue::FromList(const CKList& list) {
  // Read everything first: list may be one of this table's own lists.
  int n = list.Count();
  KASSERT(n%3==0);
  CKList copy(list);
  Empty();
  for (int i = 0; i < n; i += 3) {
    unsigned nLen;
    const char* s1 = SlotText(copy, i, nLen);
    const char* s2 = i + 1 < n ? SlotText(copy, i + 1, nLen) : "";
    const char* s3 = i + 2 < n ? SlotText(copy, i + 2, nLen) : "";
    AddValue(s1, s2, s3);
  }
}
