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

// v in base nRadix (2..36), signed, at most 31 characters.
KELVOR_API CKString KStr(__int64 v, int nRadix = 10);
KELVOR_API char* KStr(__int64 v, char* buf, int nRadix = 10);

#endif  // KELVOR_KSTR_H
