// Localisation: language tables of translated user-interface strings and the
// per-thread current language.
//
// A language is a one-character code (for example 'E', 'F') with a CKList of
// strings indexed by string id. The languages of a CKLangList keep the order
// in which they were added; that order is the table's stable shape (it is
// the order of the variant encoding).
//
// The process has one current table (KLangSetTable) that KLangString reads
// for the calling thread's language. The current table is guarded by a lock
// and hands out private copies of its strings, so every thread may call the
// look-ups.
#ifndef KELVOR_KLANGLIST_H
#define KELVOR_KLANGLIST_H

#include <base/classes/hash/KHashStringToPtr.h>
#include <base/classes/list/KList.h>
#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

// String ids that every language reserves: its words for yes and true (read
// by KBool). Applications number their own strings from KLANG_STR_FIRST.
enum { KLANG_STR_YES = 0, KLANG_STR_TRUE = 1, KLANG_STR_FIRST = 2 };

class KELVOR_API CKLangList {
public:
  CKLangList();
  // Deep copies.
  CKLangList(const CKLangList& src);
  CKLangList& operator=(const CKLangList& src);
  virtual ~CKLangList();

  // The string list of language cCode; a new language is appended with an
  // empty list. Null (and a failure report) for the code 0.
  CKList* Add(char cCode);
  // Language cCode with the strings of list: copied, or moved when bDetach is
  // non-zero (list is then empty). An existing language keeps its place and
  // loses its former strings.
  CKList* Add(char cCode, CKList& list, int bDetach);
  // The string list of cCode, or null.
  CKList* Get(char cCode) const;
  // The string list and code of the nIndex-th language; null and 0 outside.
  CKList* GetAt(int nIndex) const;
  char GetCode(int nIndex) const;
  // Position of cCode, or -1.
  int Find(char cCode) const;
  int Count() const { return (int)m_strCodes.GetLength(); }
  // Removes a language and its strings; 1 when it was there.
  int Delete(char cCode);
  void DeleteAll();
  void Empty() { DeleteAll(); }
  // Empties this table, then copies every language of src in order.
  void Copy(const CKLangList& src);
  // target loses its languages and takes this table's; this one is left empty.
  void Detach(CKLangList& target);
  // Same codes in the same order with equal string lists.
  int operator==(const CKLangList& other) const;
  int operator!=(const CKLangList& other) const { return !(*this == other); }

  // String nId of language cCode; empty when either is missing.
  CKString GetString(char cCode, int nId) const;

private:
  CKHashStringToPtr<CKList> m_Langs;  // code (one-character key) -> strings
  CKString m_strCodes;                // codes in the order of addition
};

// ---------------------------------------------------------------- current table
// Installs the process's table: a private copy of table's strings; with
// bDetach non-zero, table is emptied as well.
KELVOR_API void KLangSetTable(CKLangList& table, int bDetach);
// A copy of the process's table.
KELVOR_API void KLangGetTable(CKLangList& target);

// ---------------------------------------------------------------- per thread
// The calling thread's language code; 0 (the default) means the first
// language of the table.
KELVOR_API char KLangGet();
KELVOR_API void KLangSetThreadLang(char cLang);
// The calling thread's language extension name ("" by default). The result
// is a private copy, safe to hand to another thread.
KELVOR_API CKString KLangExtGet();
KELVOR_API void KLangExtSetThreadLang(const char* szExt);

// ---------------------------------------------------------------- look-ups
// String nId in the calling thread's language. When that language is not in
// the table, or its text for nId is missing or empty, the first language's
// text is used. Empty when there is none.
KELVOR_API CKString KLangString(int nId);
// String nId of language cLang exactly; empty when missing.
KELVOR_API CKString KLangString(int nId, char cLang);
// The current language's words for yes and true; empty when none.
KELVOR_API CKString KLangYes();
KELVOR_API CKString KLangTrue();

#endif  // KELVOR_KLANGLIST_H
