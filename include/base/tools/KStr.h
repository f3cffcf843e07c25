// String utilities: joiners, tests, tokenisers and conversions over 8-bit
// text. Null texts are accepted everywhere unless said otherwise.
#ifndef KELVOR_KSTR_H
#define KELVOR_KSTR_H

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

class CKList;

KELVOR_API int KIsEmpty(const char* s);
KELVOR_API int KIsEmpty(const CKString& s);

// Concatenation of the non-null arguments, in order, with nothing between.
KELVOR_API CKString KAnd(const char* s1);
KELVOR_API CKString KAnd(const CKString& s1);
KELVOR_API CKString KAnd(const char* s1, const char* s2, const char* s3 = nullptr,
                         const char* s4 = nullptr, const char* s5 = nullptr);
KELVOR_API CKString KAnd(const char* s1, const char* s2, const char* s3, const char* s4,
                         const char* s5, const char* s6, const char* s7 = nullptr,
                         const char* s8 = nullptr, const char* s9 = nullptr,
                         const char* s10 = nullptr, const char* s11 = nullptr,
                         const char* s12 = nullptr, const char* s13 = nullptr,
                         const char* s14 = nullptr, const char* s15 = nullptr,
                         const char* s16 = nullptr, const char* s17 = nullptr,
                         const char* s18 = nullptr, const char* s19 = nullptr,
                         const char* s20 = nullptr, const char* s21 = nullptr,
                         const char* s22 = nullptr);
KELVOR_API CKString KAnd(const char* s1, const char* s2, const char* s3, const char* s4,
                         const char* s5, const char* s6, const char* s7, const char* s8,
                         const char* s9, const char* s10, const char* s11, const char* s12,
                         const char* s13, const char* s14, const char* s15, const char* s16,
                         const char* s17, const char* s18, const char* s19, const char* s20,
                         const char* s21, const char* s22, const char* s23,
                         const char* s24 = nullptr, const char* s25 = nullptr,
                         const char* s26 = nullptr, const char* s27 = nullptr,
                         const char* s28 = nullptr, const char* s29 = nullptr,
                         const char* s30 = nullptr, const char* s31 = nullptr,
                         const char* s32 = nullptr, const char* s33 = nullptr,
                         const char* s34 = nullptr, const char* s35 = nullptr,
                         const char* s36 = nullptr, const char* s37 = nullptr,
                         const char* s38 = nullptr, const char* s39 = nullptr,
                         const char* s40 = nullptr);
// Joins n texts (nulls skipped) with one allocation; the engine of KAnd.
KELVOR_API CKString KAndN(const char* const* ppTexts, int n);

// v in base nRadix (2..36; other radixes mean 10), signed in every base: a
// minus sign, then the magnitude. The buffer form needs 66 bytes for base 2.
KELVOR_API CKString KStr(__int64 v, int nRadix = 10);
KELVOR_API char* KStr(__int64 v, char* buf, int nRadix = 10);


// ---------------------------------------------------------------- tests and conversions
// nDefault for a null or empty s, else atoi(s): a non-numeric text gives 0,
// and a number past the int range INT_MIN or INT_MAX.
KELVOR_API int KInt2(const char* s, int nDefault);
// 1 for an optional '-' followed by one or more decimal digits and nothing else.
KELVOR_API int KIsStrictInt(const char* s);
// True for "TRUE", "YES", "OUI", "VRAI" and the current language's words for
// yes and true (any case), else atoi(s) != 0 (as KInt2 reads it, so every
// number past the int range is true). Null or empty gives 0.
KELVOR_API int KBool(const char* s);
// "TRUE" or "FALSE".
KELVOR_API CKString KBool2Str(int b);
// Copy with 'a'..'z' upper-cased (ASCII only).
KELVOR_API CKString KStrUpcase(const char* s);
// Index of the first c in s; -1 when absent, for c = 0 and for a null or empty s.
KELVOR_API int KStrPos(const char* s, char c);
// 1 when s starts with prefix (always for a null or empty prefix); bNoCase
// folds ASCII letters only.
KELVOR_API int KStrBeginWith(const char* s, const char* prefix, int bNoCase = FALSE);
// ASCII case-insensitive comparisons (strcmp-like results, bytes unsigned):
// the portable stand-ins for the code-page comparisons.
KELVOR_API int KStrICmp(const char* a, const char* b);
KELVOR_API int KStrNICmp(const char* a, const char* b, unsigned n);

// ---------------------------------------------------------------- in-place helpers
// Cuts s to its first n characters when it is longer.
KELVOR_API void KTruncate2(CKString& s, unsigned n);
// Reserves room for nSize characters and sets the length to
// min(nLength, nSize); nLength 0xFFFFFFFF keeps the current length (cut to nSize).
KELVOR_API void KStrPreAlloc(CKString& s, unsigned nSize, unsigned nLength = 0xFFFFFFFFu);
// Removes szEnd from the end of s when s ends with it; 1 when removed.
KELVOR_API int KStrRemoveEnd(CKString& s, const char* szEnd, int bNoCase = FALSE);

// ---------------------------------------------------------------- shaping
// Copy of s without leading and trailing space, tab, CR and LF.
KELVOR_API CKString KTrim(const char* s);
// s widened to nWidth characters with cPad, added on the right (text left-
// aligned) or, with bLeft, on the left. Longer texts are returned whole.
KELVOR_API CKString KStrPad(const char* s, unsigned nWidth, char cPad = ' ', int bLeft = FALSE);
// s cut for display to at most nMax characters: when it is longer, the cut
// falls back to the last blank in the second half of the room, and "..."
// marks it. Below 4 characters of room the text is simply cut.
KELVOR_API CKString KStrSmart(const char* s, unsigned nMax);
// Byte count in human units: "512 B", "1.5 KB", "10 MB" (1 KB = 1024 bytes;
// one decimal below 10 units).
KELVOR_API CKString KStrSize(unsigned __int64 nBytes);
// Transfer rate of nBytes in nMilliseconds, same units plus "/s": "1.5 MB/s".
// A duration of 0 counts as 1 ms.
KELVOR_API CKString KStrBytesPerSec(unsigned __int64 nBytes, unsigned nMilliseconds);

// ---------------------------------------------------------------- C string literals
// s as a C string literal: double quotes around, \\ \" \n \r \t escaped, other
// control bytes as three-digit octal escapes; bytes from 0x80 kept as they are.
KELVOR_API CKString KStr2Cstr(const char* s);
// Reads one C string literal at p (leading blanks skipped) into strOut and
// moves p past its closing quote. Understands \n \r \t \a \b \f \v \\ \" \'
// \? octal and \x escapes; others give the escaped character. 0 (p left
// alone, strOut empty) without an opening quote, without a closing one, for
// \x without digits, an octal value above 255 or an escape that makes a zero
// byte.
KELVOR_API int KStrConsumeCstr(const char*& p, CKString& strOut);

// ---------------------------------------------------------------- parsing
// The text before the first sep (whole s when there is none); rest points
// after the separator, or at an empty text. *pFound: 1 when sep was found.
KELVOR_API CKString KStrParseToSeparator(const char* s, char sep, const char*& rest,
                                         int* pFound = nullptr);
// The same with a separator text (matched as a whole).
KELVOR_API CKString KStrParseToSeparator(const char* s, const char* szSep, const char*& rest,
                                         int* pFound = nullptr);
// Splits "key<cSep>value": both sides trimmed, and a value enclosed in one
// pair of double quotes loses them. 1 when the separator was found and the
// key is not empty; without a separator the trimmed text is the key.
KELVOR_API int KStrParseKeyValue(const char* s, CKString& strKey, CKString& strValue,
                                 char cSep = '=');
// Tokens at runs of characters of seps. A leading separator gives no token
// at all. Empties pList first; with no list, counts only.
KELVOR_API int KStrParse(CKList* pList, const char* s, const char* seps);
// Flags of the field-splitting KStrParse: trim each field (KTrim), then
// upper-case it.
enum { KSTR_PARSE_TRIM = 1, KSTR_PARSE_UPCASE = 2 };
// Fields at every sep, empty ones kept; a sep at the end gives an empty last
// field. A null or empty text has no field. With no list, counts only.
KELVOR_API int KStrParse(CKList* pList, const char* s, char sep, int nFlags = 0);
// Token n (0-based, as the run-collapsing KStrParse cuts them) copied into buf
// and cut to nBufSize - 1 characters; buf is empty when there is none.
KELVOR_API char* KStrParseNth(char* buf, int nBufSize, const char* s, const char* seps, int n);
KELVOR_API char* KStrParseNth(char* buf, int nBufSize, const char* s, char sep, int n);
KELVOR_API CKString KStrParseNth(const char* s, const char* seps, int n);
KELVOR_API CKString KStrParseNth(const char* s, char sep, int n);
// Lines at CR, LF or CR LF (LF CR is two breaks); the text after the last
// break is a line even when empty. A null or empty text has no line.
KELVOR_API int KStrTextToList(CKList* pList, const char* s);
// Words at runs of blanks (space, tab, CR, LF), leading blanks skipped; a
// word that begins with a double quote runs to the next one, quotes removed.
KELVOR_API int KStrTextToWords(CKList* pList, const char* s);
// URL decoding: '+' is a space, %HH the byte HH; a '%' without two hex
// digits stays as it is.
KELVOR_API CKString KHttpDecode(const char* s);

// ---------------------------------------------------------------- files
// Writes the text's bytes as they are (binary mode), replacing the file or,
// with bAppend, appending. TRUE on success; a failure is logged.
KELVOR_API int KStrTextToFile(const char* szFile, const char* szText, int bAppend = FALSE);
// Reads the whole file into strText. TRUE on success; on failure strText is
// empty and the failure logged.
KELVOR_API int KStrFileToText(const char* szFile, CKString& strText);
// Replaces every szFind by szReplace in the file (bytes, case-sensitive). The
// file is rewritten through a temporary beside it only when something was
// found. Number of replacements, or -1 on failure (logged).
KELVOR_API int KFileStrFindReplace(const char* szFile, const char* szFind, const char* szReplace);

#endif  // KELVOR_KSTR_H
