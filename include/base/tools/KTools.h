// CKTools: the process-wide tools object. For the log family it is the sink
// that every finished line is handed to; applications derive from it and
// override Log, LogClear, LogSwitch, Status or DebugOutput to send lines
// elsewhere, then install their object with KToolsInit.
#ifndef KELVOR_KTOOLS_H
#define KELVOR_KTOOLS_H

#include <atomic>
#include <cstdio>

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

// Tools flags.
enum {
  KTOOLS_FLAG_LOG = 8,     // logging enabled
  KTOOLS_FLAG_STATUS = 16  // status messages enabled
};

class KELVOR_API CKTools {
public:
  CKTools();
  virtual ~CKTools();

  // Cuts a compiled source path to its source-tree form ("src/KList",
  // "include/base/classes/list/KPile"): the leading build-tree part and the
  // extension are removed. nLineOut receives nLine.
  virtual CKString GetFileLocation(const char* szPath, int nLine, int& nLineOut);
  // Receives every log line (type 1 already resolved to the default type).
  virtual void Log(const char* szText, int nType);
  // The default sends (or with bPost posts) KWM_LOG_CLEAR / KWM_LOG_SWITCH to
  // the main window; nothing without one.
  virtual void LogClear(int nType, int bPost);
  virtual void LogSwitch(int nType, int bPost);
  // The default writes szText and CR LF to the debug output.
  virtual void Status(const char* szText, const char* szText2, int n);
  // The debugger-output channel. The default writes to the process's
  // standard error, and only in debug mode (KELVOR_DEBUG or KSetDebugMode).
  virtual void DebugOutput(const char* szText);
  // Every log line is also written to pStream (null: none); the caller keeps
  // the stream open while it is set.
  virtual void SetLogFile(FILE* pStream);

  int GetFlags() const { return m_nFlags; }
  void SetFlags(int nFlags) { m_nFlags = nFlags; }
  int GetDebugMode() const { return m_nDebugMode; }
  void SetDebugMode(int nMode) { m_nDebugMode = nMode; }
  // The main window: a message target (KMessage.h); null for none.
  HWND GetMainWnd() const { return m_hWndMain; }
  void SetMainWnd(HWND hWnd) { m_hWndMain = hWnd; }
  FILE* GetLogFile() const { return m_pLogFile; }

protected:
  // Read by every logging thread while the application may change them.
  std::atomic<int> m_nFlags;
  std::atomic<int> m_nDebugMode;
  std::atomic<HWND> m_hWndMain;
  std::atomic<FILE*> m_pLogFile;
};

// The current tools object (never null: the library's default object when
// none was installed).
KELVOR_API CKTools* KTools();
// Makes p the current tools object; the caller keeps ownership. Null brings
// back the library's default object.
KELVOR_API void KToolsInit(CKTools* p);

// Redirects the default debugger-output channel: every text the default
// DebugOutput receives goes to pFunc, in debug mode or not. Null restores
// the default (standard error, in debug mode only).
typedef void (*KDebugOutputFunc)(const char* szText, void* pContext);
KELVOR_API void KSetDebugOutput(KDebugOutputFunc pFunc, void* pContext);

#endif  // KELVOR_KTOOLS_H
