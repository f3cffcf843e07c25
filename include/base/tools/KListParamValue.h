// Parameter/value tables.
//
// CKListParamValue: ordered name/value pairs of strings kept in two parallel
// lists (pair i is names[i], values[i]). Insertion order is kept, duplicate
// names are allowed except through the unique forms, and look-ups compare
// names case-sensitively or not as the caller asks. The table converts to and
// from one-line texts ("a=1;b=2") and to and from files of name=value lines.
//
// CKListParamValueInt: the same with an integer per name (counting tables).
// CKListParamParamValue: name/name/value triples.
#ifndef KELVOR_KLISTPARAMVALUE_H
#define KELVOR_KLISTPARAMVALUE_H

#include <base/classes/list/KList.h>
#include <base/classes/list/KPile.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

class CKListParamValue;
class CKListParamValueInt;

// Pair comparators for the index quicksorts: negative, zero or positive as
// pair i sorts before, with or after pair j.
typedef int (*KParamValueCompareFunc)(int i, int j, const CKListParamValue& list);
typedef int (*KParamValueIntCompareFunc)(int i, int j, const CKListParamValueInt& list);
// Transforms a value text read by FromString (a decoder such as KHttpDecode).
typedef CKString (*KParamValueTransformFunc)(const char* szValue);

// Names in byte order (case-sensitive, strcmp rules).
KELVOR_API int funcCumpareParam(int i, int j, const CKListParamValue& list);
// Values in ascending numeric order.
KELVOR_API int funcCumpareSize(int i, int j, const CKListParamValueInt& list);

// ---------------------------------------------------------------- CKListParamValue
class KELVOR_API CKListParamValue {
public:
  CKListParamValue();
  CKListParamValue(const CKListParamValue& l);
  virtual ~CKListParamValue();
  // Copies both lists; assigning a table to itself changes nothing.
  CKListParamValue& operator=(const CKListParamValue& l);

  int Count() const { return m_ListParam.Count(); }
  // Index of the first pair with that name (or value), else -1.
  int Find(const char* szName, int bNoCase = FALSE) const;
  int FindValue(const char* szValue, int bNoCase = FALSE) const;
  int Exist(const char* szName, int bNoCase = FALSE) const;

  // The first value of szName; szDefault (null: the empty text) when absent.
  CKString GetValue(const char* szName, int bNoCase = FALSE, const char* szDefault = nullptr) const;
  // Numeric values: the default unless the value is a strict integer
  // (KIsStrictInt); the unsigned forms also refuse a minus sign.
  int GetValueInt(const char* szName, int bNoCase = FALSE, int nDefault = 0) const;
  unsigned int GetValueUINT(const char* szName, int bNoCase = FALSE, unsigned int nDefault = 0) const;
  unsigned __int64 GetValueUINT64(const char* szName, int bNoCase = FALSE,
                                  unsigned __int64 nDefault = 0) const;

  // Pair i (0 <= i < Count(); otherwise reported, and the empty text).
  CKString GetValue(int nIndex) const;
  CKString GetParam(int nIndex) const;
  void SetValue(int nIndex, const char* szValue);
  void SetParam(int nIndex, const char* szName);

  // Appends the pair even if the name exists already.
  void AddValue(const char* szName, const char* szValue);
  void InsertValue(int nIndex, const char* szName, const char* szValue);
  // Replaces the value of the first pair named szName, or appends the pair.
  void SetValue(const char* szName, const char* szValue, int bNoCase = FALSE);
  // Case-sensitive look-up: appends when absent; when present, replaces the
  // value only if bReplace is non-zero.
  void AddUnique(const char* szName, const char* szValue, int bReplace = FALSE);

  void Remove(int nIndex);
  void Remove(const char* szName, int bNoCase = FALSE);
  void Empty();
  void Swap(int i, int j);

  // name cEqual value, pairs joined by cSep; "" for an empty table.
  CKString ToString(char cEqual = '=', char cSep = ';') const;
  CKString ToString(const char* szEqual, const char* szSep) const;
  // Empties the table, then reads name<cEqual>value<cSep>... until the text
  // ends or a name comes out empty.
  void FromString(const char* szText, char cEqual = '=', char cSep = ';');
  void FromString(const char* szText, const char* szEqual, const char* szSep);
  // pfValue (when not null) is applied to each value text.
  void FromString(const char* szText, const char* szEqual, const char* szSep,
                  KParamValueTransformFunc pfValue);

  // One line per pair: name "=" value CR LF. The result of KStrTextToFile.
  int Save(const char* szFile) const;
  // Reads a file of such lines (CR LF, LF or CR breaks): each non-empty line
  // is split at its first "=", so values may contain "=" and a line without
  // one is a name with an empty value. On failure the table is unchanged.
  int Load(const char* szFile);

  // bUnique 0: appends every pair of l. Otherwise merges like AddUnique
  // (bReplace decides whether values of names already present are replaced).
  void AddList(const CKListParamValue& l, int bUnique = FALSE, int bReplace = FALSE);

  // Index quicksort: compare is called with two pair indexes of this table.
  void Sort(KParamValueCompareFunc pfCompare);
  void SortByParam();

  const CKList& GetParamList() const { return m_ListParam; }
  const CKList& GetValueList() const { return m_ListValue; }

protected:
  void _Qsort(int nLo, int nHi, KParamValueCompareFunc pfCompare);
  int _Partition(int nLo, int nHi, KParamValueCompareFunc pfCompare);

  CKList m_ListParam;
  CKList m_ListValue;
};

// ---------------------------------------------------------------- CKListParamValueInt
class KELVOR_API CKListParamValueInt {
public:
  CKListParamValueInt();
  CKListParamValueInt(const CKListParamValueInt& l);
  virtual ~CKListParamValueInt();
  CKListParamValueInt& operator=(const CKListParamValueInt& l);
  // Every element of l becomes a name with the value 0, in order.
  CKListParamValueInt& operator=(const CKList& l);
  // Adds the values of l to this table's, name by name (AddValue).
  CKListParamValueInt& operator+=(const CKListParamValueInt& l);

  int Count() const { return m_ListParam.Count(); }
  int Find(const char* szName, int bNoCase = FALSE) const;
  CKString GetParam(int nIndex) const;

  // Adds n to the value of szName (values accumulate), or appends (name, n).
  void AddValue(const char* szName, int n, int bNoCase = FALSE);
  // Replaces the value of szName, or appends (name, n).
  void SetValue(const char* szName, int n, int bNoCase = FALSE);
  // Appends without looking the name up.
  void EnsureAddValue(const char* szName, int n);
  // Value at nIndex (0 out of range); SetValue(int) ignores a bad index.
  int GetValue(int nIndex) const { return m_ListValue.PileGet(nIndex); }
  void SetValue(int nIndex, int n) { m_ListValue.PileSetAt(nIndex, n); }
  int FindValue(int n) const { return m_ListValue.PileFind(n, 0); }
  CKString GetParamByValue(int n) const;

  void Remove(int nIndex);
  void Remove(const char* szName, int bNoCase = FALSE);
  void Swap(int i, int j);
  void Empty();
  // As CKListParamValue::AddList; merged values are replaced, not summed.
  void AddList(const CKListParamValueInt& l, int bUnique = FALSE, int bReplace = FALSE);

  // Binary search over the names (sorted in compare's order); compare gets
  // &key and the address of a name slot. -1 when absent.
  int BSearchIndex(KPileSortFunc pfCompare, const void* pKey) const;
  // Inserts the pair where the names stay sorted in compare's order.
  void InsertSorted(KPileSortFunc pfCompare, const char* szName, int n);

  void Sort(KParamValueIntCompareFunc pfCompare);
  void SortByValue();

  const CKList& GetParamList() const { return m_ListParam; }

protected:
  void _Qsort(int nLo, int nHi, KParamValueIntCompareFunc pfCompare);
  int _Partition(int nLo, int nHi, KParamValueIntCompareFunc pfCompare);

  CKList m_ListParam;
  CKPileT<int> m_ListValue;
};

// ---------------------------------------------------------------- CKListParamParamValue
// Triples (name1, name2, value) in three parallel lists.
class KELVOR_API CKListParamParamValue {
public:
  CKListParamParamValue();
  CKListParamParamValue(const CKListParamParamValue& l);
  virtual ~CKListParamParamValue();
  CKListParamParamValue& operator=(const CKListParamParamValue& l);

  int Count() const { return m_ListParam1.Count(); }
  void AddValue(const char* szParam1, const char* szParam2, const char* szValue);
  // Index of the first triple with both names, else -1.
  int Find(const char* szParam1, const char* szParam2, int bNoCase = FALSE) const;
  CKString GetValue(const char* szParam1, const char* szParam2, int bNoCase = FALSE,
                    const char* szDefault = nullptr) const;
  // Replaces the value of the first matching triple, or appends one.
  void SetValue(const char* szParam1, const char* szParam2, const char* szValue,
                int bNoCase = FALSE);
  CKString GetParam1(int nIndex) const;
  CKString GetParam2(int nIndex) const;
  CKString GetValue(int nIndex) const;
  void Remove(int nIndex);
  void Empty();

  // Flat form: name1, name2, value of each triple in order (3 x Count()
  // elements). ToList replaces the list's content.
  void ToList(CKList& list) const;
  // Rebuilds the table from a flat list; an incomplete last triple is
  // reported and completed with empty texts.
  void FromList(const CKList& list);

protected:
  CKList m_ListParam1;
  CKList m_ListParam2;
  CKList m_ListValue;
};

#endif  // KELVOR_KLISTPARAMVALUE_H
