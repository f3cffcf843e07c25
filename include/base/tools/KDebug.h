// Diagnostics and log: the assertion reporter, the KLog family that routes
// lines to the process-wide tools object, the debug helpers and the leak
// tracker.
#ifndef KELVOR_KDEBUG_H
#define KELVOR_KDEBUG_H

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

class CKList;

// Log types the library uses.
enum {
  KLOG_DEFAULT = 1,
  KLOG_OBJ = 4,
  KLOG_ASSERT = 8,
  KLOG_ERROR = 10,
  KLOG_DEBUG = 24,
  KLOG_OBJ_TRACE = 512,
  KLOG_SEPARATOR = 1024
};

// ---------------------------------------------------------------- assertions
// The three reporting variants of a failed check.
enum { KASSERT_CONTINUE = 0, KASSERT_RETURN_VALUE = 1, KASSERT_RETURN = 2 };

// Logs, with type 8:
//   continue:      "Assertion failed (" cond ") in " path " on line " N ". Continue..."
//   return value:  "Assertion failed (" cond ") in " path " on line " N ". Returning value..."
//   return:        "Assertion failed (" cond " in " path " on line " N ". Returning"
KELVOR_API void KAssertReport(const char* szCond, const char* szPath, int nLine, int nVariant);

// Explicit forms: condition text, source path and line given by the caller
// (for checks whose reported path and line are fixed).
#define KASSERT_AT(cond, text, path, line)                                   \
  do {                                                                       \
    if (!(cond)) KAssertReport(text, path, line, KASSERT_CONTINUE);          \
  } while (0)
#define KASSERT_RETV_AT(cond, text, path, line, value)                       \
  do {                                                                       \
    if (!(cond)) {                                                           \
      KAssertReport(text, path, line, KASSERT_RETURN_VALUE);                 \
      return value;                                                          \
    }                                                                        \
  } while (0)
#define KASSERT_RET_AT(cond, text, path, line)                               \
  do {                                                                       \
    if (!(cond)) {                                                           \
      KAssertReport(text, path, line, KASSERT_RETURN);                       \
      return;                                                                \
    }                                                                        \
  } while (0)

// Module forms: the checked expression's own text, the module path that the
// source file defines as KSRC_PATH (for example "src/KMem"), and the real line.
#define KASSERT(cond) KASSERT_AT(cond, #cond, KSRC_PATH, __LINE__)
#define KASSERT_RETV(cond, value) KASSERT_RETV_AT(cond, #cond, KSRC_PATH, __LINE__, value)
#define KASSERT_RET(cond) KASSERT_RET_AT(cond, #cond, KSRC_PATH, __LINE__)
// Same with a condition text that differs from the code's expression.
#define KASSERT_T(cond, text) KASSERT_AT(cond, text, KSRC_PATH, __LINE__)
#define KASSERT_RETV_T(cond, text, value) KASSERT_RETV_AT(cond, text, KSRC_PATH, __LINE__, value)
#define KASSERT_RET_T(cond, text) KASSERT_RET_AT(cond, text, KSRC_PATH, __LINE__)

// ---------------------------------------------------------------- log
// Hand a line to the tools object when logging is on (tools flag 8); type 1
// becomes the default type. The multi-text forms join their texts with KAnd
// (null pointers skipped).
KELVOR_API void KLog(const char* szText);
KELVOR_API void KLog(int nType, const char* szText);
KELVOR_API void KLog(const char* s1, const char* s2, const char* s3 = nullptr,
                     const char* s4 = nullptr, const char* s5 = nullptr);
KELVOR_API void KLog(const char* s1, const char* s2, const char* s3, const char* s4,
                     const char* s5, const char* s6, const char* s7 = nullptr,
                     const char* s8 = nullptr, const char* s9 = nullptr,
                     const char* s10 = nullptr, const char* s11 = nullptr,
                     const char* s12 = nullptr, const char* s13 = nullptr,
                     const char* s14 = nullptr, const char* s15 = nullptr);
KELVOR_API void KLog(int nType, const char* s1, const char* s2, const char* s3 = nullptr,
                     const char* s4 = nullptr, const char* s5 = nullptr);
KELVOR_API void KLog(int nType, const char* s1, const char* s2, const char* s3,
                     const char* s4, const char* s5, const char* s6,
                     const char* s7 = nullptr, const char* s8 = nullptr,
                     const char* s9 = nullptr, const char* s10 = nullptr,
                     const char* s11 = nullptr, const char* s12 = nullptr,
                     const char* s13 = nullptr, const char* s14 = nullptr,
                     const char* s15 = nullptr);
// One log line per line of szText (KStrTextToList).
KELVOR_API void KLogText(int nType, const char* szText);
// One log line per element.
KELVOR_API void KLogList(int nType, CKList* pLines);
// Whether logging is on (tools flag 8).
KELVOR_API int KLogEnabled();
// nType, with 1 replaced by the default type.
KELVOR_API int KLogType(int nType);
// The type that type 1 stands for.
KELVOR_API void KSetDefaultLogType(int nType);
// Ask the main window to clear (KWM_LOG_CLEAR) or switch to (KWM_LOG_SWITCH)
// the log of a type; bPost queues the message instead of sending it.
KELVOR_API void KLogClear(int nType, int bPost);
KELVOR_API void KLogSwitch(int nType, int bPost);
// A status text for the tools object, when status messages are on (flag 16).
KELVOR_API void KStatus(const char* szText, const char* szText2, int n);

// The record that carries one log line to the main window (message 3025);
// the receiving target owns it and deletes it.
class KELVOR_API CKLogMsg {
public:
  CKLogMsg();
  CKLogMsg(const CKLogMsg& m) = default;
  CKLogMsg& operator=(const CKLogMsg& m) = default;

  int m_nReserved;  // set to 0 by the sink
  CKString m_strText;
  int m_nType;
  int m_nParam;
};

// ---------------------------------------------------------------- debug helpers
// szText logged line by line with the debug type (24).
KELVOR_API void KDbg(const char* szText);
// A banner line and "<date> : VBDLL Assertion in File = ..." (type 24).
KELVOR_API void KDbgReport(const char* szFile, int nLine);
// Deliberate failures for debugging: KDbgAssert1 reports, then throws like
// KDbgThrow (the library's one deliberate throw); KDbgAssert2 writes through
// a null pointer.
[[noreturn]] KELVOR_API void KDbgAssert1();
[[noreturn]] KELVOR_API void KDbgAssert2();
[[noreturn]] KELVOR_API void KDbgThrow();
// A process-wide counter for ad-hoc debugging.
KELVOR_API void KDbgInc();
KELVOR_API void KDbgClear();
KELVOR_API int KDbgCount();
// Debug mode of the tools object (non-zero: debug output is written).
KELVOR_API void KSetDebugMode(int nMode);

// ---------------------------------------------------------------- leak tracker
// Leak tracker: classes report each object made (KDebugAlloc) and freed
// (KDebugFree); KDebugDisplay logs every class whose count is not 0 ("=== name
// : n not released", or "=== No Leak") and calls the callback for each live
// object.
typedef void (*KDebugTermFunc)(const char* szClassName, void* pObject);
extern KELVOR_API KDebugTermFunc gpFuncDebugTerm;

KELVOR_API void KDebugAlloc(const char* szClassName, void* pObject);
KELVOR_API void KDebugFree(const char* szClassName, void* pObject);
KELVOR_API void KDebugDisplay(KDebugTermFunc pCallback);
// Forgets every record (for tests and for applications that restart).
KELVOR_API void KDebugReset();

// Start-up check: reads "KELVOR_DEBUG" and switches to debug mode when it is
// set. Runs once when the library is loaded; callable again by applications.
KELVOR_API void KDebugStartupCheck();

#endif  // KELVOR_KDEBUG_H
