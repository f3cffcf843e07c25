// String lists on the pile.
//
// CKList owns one heap CKString per slot. CKFastList keeps the string objects
// it has made for reuse and shares its storage with its copies: its owner
// calls RealDeleteAll exactly once to release it. CKListList owns CKList
// objects. CKCircularList is a CKList of bounded length that recycles its
// oldest entry.
#ifndef KELVOR_KLIST_H
#define KELVOR_KLIST_H

#include <base/classes/list/KPile.h>
#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

// Slots hold CKString pointers; null slots sort after every string; texts
// compare as unsigned bytes (strcmp order), giving -1, 0 or 1.
KELVOR_API int kelvor_comp_func_string(const void* a, const void* b);
// Compares the two slot addresses, not their contents: 1 when b is the
// higher address, -1 when it is the lower, 0 when they are the same.
KELVOR_API int kelvor_comp_func_int_32(const void* a, const void* b);

// ---------------------------------------------------------------- CKList
class KELVOR_API CKList : public CKPile {
public:
  CKList();
  CKList(const CKList& l);
  // Empties this list, then copies every element of l (so a = a empties a).
  CKList& operator=(const CKList& l);

  ~CKList() override;
  virtual CKString GetLast() const;
  virtual void DeleteLast();
  virtual int Add(const char* sz);
  // Index of an equal element, or of the one appended.
  virtual int AddUnique(const CKString& s, int bNoCase = FALSE);
  virtual int AddUnique(const char* sz, int bNoCase = FALSE);
  virtual void InsertAt(int nIndex, const CString& s);
  virtual void InsertAt(int nIndex, const CKString& s);
  virtual void InsertAt(int nIndex, const char* sz);
  virtual CKString Get(const int& nIndex) const;
  // Deletes the first element equal to sz (case-sensitive), if any.
  virtual void Delete(const char* sz);
  virtual void Delete(const int& nIndex);
  virtual void Empty();
  virtual void DeleteAll();
  virtual int Find(const char* sz, int bNoCase = FALSE) const;
  // First element that starts with sz, or -1.
  virtual int FindBeginWith(const char* sz, int bNoCase = FALSE, int nUnused = 0) const;
  virtual void operator+=(const CKList& l);
  // Deletes, for each element of l, the first equal element of this list.
  virtual void operator-=(const CKList& l);
  // Same count and the same texts in the same order (null slots read as "").
  virtual int operator==(const CKList& l) const;
  virtual int operator!=(const CKList& l) const;
  virtual CKString operator[](const int& nIndex) const;
  virtual int Set(int nIndex, const CKString& s);
  virtual int Set(int nIndex, const char* sz);
  // Empties the list, then KStrParse: tokens at runs of any of szSeparators,
  // or fields at each cSeparator (nFlags: KSTR_PARSE_TRIM, KSTR_PARSE_UPCASE).
  virtual void FromString(const char* szText, const char* szSeparators, int nUnused = 0);
  virtual void FromString(const char* szText, char cSeparator, int nFlags = 0);
  virtual CKString ToString(const char* szSeparator) const;
  virtual CKString ToString(char cSeparator) const;
  virtual void Swap(int i, int j);
  // Trims every element and deletes those left empty.
  virtual void StripEmptyStrings(int nUnused = 0);
  virtual void Sort();
  // Empties this list, then copies l (copying a list into itself empties it).
  virtual void Copy(const CKList& l);
  // Moves the first n elements to the end of target (emptied first with
  // bEmptyTarget).
  virtual void CopyAndRemove(CKList& target, int n, int bEmptyTarget);
  // Deletes the last elements or appends empty ones until there are n.
  virtual void SetCount(int n);
  // Sum of the lengths (saturated at INT_MAX).
  virtual int TotalCharCount() const;
  // Element nIndex read as an int: iGet by atoi (0 outside the list), iGet2
  // by KInt2 (nDefault outside the list or for an empty text).
  virtual int iGet(int nIndex) const;
  virtual int iGet2(int nIndex, int nDefault) const;
  // Deletes every element equal to the text, then inserts it at nIndex
  // (shifted back for each deletion before it); the index it ends at.
  virtual int InsertUniqueAt(int nIndex, CKString& s, int bNoCase);
  virtual int InsertUniqueAt(int nIndex, const char* sz, int bNoCase);
  // Replaces the content with n empty strings.
  virtual int PreAlloc(int n);
  // Deletes every element equal to an earlier one; the order is kept.
  virtual void RemoveDuplicates(int bNoCase);

  int Add(const CKString& s);
  int Add(const CString& s);
  // target deletes its strings, then takes this list's array, count, size
  // and step; this list is left empty.
  void Detach(CKList& target);

protected:
  // The string in slot nIndex (null for a null slot or a bad index).
  CKString* GetPtr(int nIndex) const { return (CKString*)PileGet(nIndex); }
  // Appends an owned string; throws CKMemoryException when the pile is full.
  int AddPtr(CKString* p);
};

// ---------------------------------------------------------------- CKFastList
class KELVOR_API CKFastList : public CKPileFast {
public:
  CKFastList();
  // Shallow: shares the slot array and the string objects with l.
  CKFastList(const CKFastList& l);

  // Frees nothing; see RealDeleteAll.
  ~CKFastList() override;
  void SetStep(int nStep) override;
  virtual CKString GetLast() const;
  virtual int Add(const CKString& s);
  virtual int Add(const char* sz);
  virtual int AddUnique(const CKString& s);
  virtual int AddUnique(const char* sz);
  virtual void InsertAt(int nIndex, const CKString& s);
  virtual void InsertAt(int nIndex, const char* sz);
  virtual CKString Get(const int& nIndex) const;
  virtual void Delete(const char* sz);
  virtual void Delete(const int& nIndex);
  virtual void Empty();
  virtual void DeleteAll();
  virtual int Find(const char* sz, int bNoCase = FALSE) const;
  virtual int FindBeginWith(const char* sz, int bNoCase = FALSE, int nUnused = 0) const;
  virtual void operator+=(const CKFastList& l);
  virtual CKString operator[](const int& nIndex) const;
  // Shallow, like the copy constructor; assigning to itself does nothing.
  virtual void operator=(const CKFastList& l);
  virtual int Set(int nIndex, const CKString& s);
  virtual int Set(int nIndex, const char* sz);
  virtual CKString ToString(char cSeparator) const;
  virtual void Swap(int i, int j);
  virtual void StripEmptyStrings();
  virtual void Sort();
  virtual void Copy(const CKFastList& l);
  virtual void CopyAndRemove(CKFastList& target, int n, int bEmptyTarget);
  virtual void SetCount(int n);
  virtual int TotalCharCount() const;
  virtual int iGet(int nIndex) const;
  virtual int iGet2(int nIndex, int nDefault) const;
  virtual int InsertUniqueAt(int nIndex, CKString& s, int bNoCase);
  virtual int InsertUniqueAt(int nIndex, const char* sz, int bNoCase);
  virtual int PreAlloc(int n);
  virtual void RemoveDuplicates(int bNoCase);
  // target takes a shallow copy of this list's storage (nothing is freed).
  virtual void Detach(CKFastList& target);

  // Deletes every string object in every allocated slot and frees the slot
  // array; count and size are left as they were. Called once by the owner
  // of a storage that may be shared by several copies.
  void RealDeleteAll();

protected:
  CKString* GetPtr(int nIndex) const { return (CKString*)PileGet(nIndex); }
  // Makes sure a slot exists at the count (the next one to fill).
  void Reserve();
  // Stores sz in the slot at the count (reusing a parked object), count + 1.
  int Append(const char* sz, unsigned nLen);
  // Moves the element at nIndex behind the last one and drops it from the
  // count (nothing is freed).
  void Park(int nIndex);
};

// ---------------------------------------------------------------- CKListList
class KELVOR_API CKListList : public CKPtrListOwnedC<CKList> {
public:
  CKListList();
  // Shares the source's slot array and CKList objects.
  CKListList(const CKListList& l);
  // Deep: deletes the owned lists, then a new CKList per source slot.
  CKListList& operator=(const CKListList& l);
  // Size for n slots, then a new empty CKList in each of slots 0 .. n - 1.
  int PreAlloc(int n);
  ~CKListList() override;
};

// ---------------------------------------------------------------- CKCircularList
// A history of at most m_nCapacity texts; index 0 is the oldest.
class KELVOR_API CKCircularList : public CKList {
public:
  explicit CKCircularList(int nCapacity = 30);
  CKCircularList(const CKCircularList& l);
  CKCircularList& operator=(const CKCircularList& l);
  ~CKCircularList() override;

  // Appends sz; when full, the oldest entry's string is recycled to hold sz
  // at the last index (capacity - 1).
  int Add(const char* sz) override;
  // Removes and returns the newest entry ("" when empty).
  CKString RemoveLast();
  int GetCapacity() const { return m_nCapacity; }

protected:
  int m_nCapacity;
};

#endif  // KELVOR_KLIST_H
