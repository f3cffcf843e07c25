// Message targets: the portable form of a window that receives messages.
//
// A target belongs to the thread that created it. KSendMessage from that
// thread calls the target's procedure at once; from any other thread it
// queues the message, like KPostMessage, so that a worker never blocks on
// the owner. Queued messages are delivered when the owner calls
// KMessagePump. The library sends these numbers:
#ifndef KELVOR_KMESSAGE_H
#define KELVOR_KMESSAGE_H

#include <base/tools/KDefs.h>

enum {
  KWM_LOG = 3025,         // wParam = type, lParam = CKLogMsg* (the target deletes it)
  KWM_THREAD_END = 3026,  // wParam = CKThread*, lParam = 0
  KWM_LOG_CLEAR = 3061,   // wParam = type, lParam = 1
  KWM_LOG_SWITCH = 3062   // wParam = type, lParam = 0
};

typedef LRESULT (*KMessageProc)(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam,
                                void* pContext);

// Creates a target owned by the calling thread; null on failure.
KELVOR_API HWND KMessageTargetCreate(KMessageProc pProc, void* pContext);
// Destroys the target; queued log records (KWM_LOG) still pending are freed.
// Owner thread only: FALSE (and an error line) from any other thread, FALSE
// for an unknown target.
KELVOR_API BOOL KMessageTargetDestroy(HWND hWnd);
KELVOR_API BOOL KIsMessageTarget(HWND hWnd);
KELVOR_API BOOL KMessageIsOwnerThread(HWND hWnd);

// Synchronous on the owner thread (returns the procedure's result), queued
// elsewhere (returns 0). FALSE-like 0 also for an unknown target.
KELVOR_API LRESULT KSendMessage(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam);
// Always queued; FALSE for an unknown target.
KELVOR_API BOOL KPostMessage(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam);
// Owner thread only: waits up to nTimeoutMs for a first message when the
// queue is empty, then delivers every queued message in order. Returns the
// number delivered (-1 when called from another thread or for a bad target).
KELVOR_API int KMessagePump(HWND hWnd, DWORD nTimeoutMs = 0);

#endif  // KELVOR_KMESSAGE_H
