// Locks: the re-entrant critical section with its "locked" flag, the
// waitable section (a critical section paired with a manual-reset "free"
// event that waiters block on), the shared/exclusive lock built on it, and
// the process-wide running-object table whose names double as named locks.
#ifndef KELVOR_KSYNC_H
#define KELVOR_KSYNC_H

#include <atomic>

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

namespace kplat {
struct Mutex;
struct Event;
}  // namespace kplat

// Opaque iteration position (null: no more elements).
#ifndef KELVOR_POSITION_DEFINED
#define KELVOR_POSITION_DEFINED
struct KPositionTag;
typedef KPositionTag* POSITION;
#endif

class CKCriticalSection;
class CKCriticalSectionLock;

// The C face of the two critical-section classes; the classes forward here.
extern "C" {
KELVOR_API void TKCriticalSectionInit(CKCriticalSection* cs, int bLock);
KELVOR_API void TKCriticalSectionTerm(CKCriticalSection* cs);
KELVOR_API int TKCriticalSectionLock(CKCriticalSection* cs);
KELVOR_API int TKCriticalSectionUnlock(CKCriticalSection* cs);
KELVOR_API int TKCriticalSectionIsLocked(const CKCriticalSection* cs);
KELVOR_API void TKCriticalSectionLockInit(CKCriticalSectionLock* l, CKCriticalSection* cs,
                                          int bLock);
KELVOR_API void TKCriticalSectionLockTerm(CKCriticalSectionLock* l);
KELVOR_API void TKCriticalSectionLockLock(CKCriticalSectionLock* l);
KELVOR_API void TKCriticalSectionLockUnlock(CKCriticalSectionLock* l);
KELVOR_API int TKCriticalSectionLockIsLocked(const CKCriticalSectionLock* l);
}

// Re-entrant critical section. m_bLocked is a flag, not a count: two Locks
// followed by two Unlocks leave the section entered once, because the second
// Unlock finds the flag already clear. An Unlock from a thread that does not
// hold the section is refused (logged, FALSE) and leaves it as it is.
class KELVOR_API CKCriticalSection {
public:
  explicit CKCriticalSection(int bLock = FALSE);
  // Copies share the source's section (see operator=).
  CKCriticalSection(const CKCriticalSection& o);
  ~CKCriticalSection();

  // Takes over the source's section and flag; no new section is made.
  CKCriticalSection& operator=(const CKCriticalSection& o);

  int Lock();
  // Enters only if no other thread holds the section: TRUE (flag set) when
  // entered, FALSE at once otherwise.
  int TryLock();
  int Unlock();
  int IsLocked() const;

  // Shared, counted holder of the system section (copies share it).
  struct Section;

private:
  // The C functions reach the fields through this (friend functions
  // cannot carry the DLL attributes).
  friend struct KCriticalSectionAccess;

  Section* m_pSection;
  // Written by the holder only; read by any thread (IsLocked).
  std::atomic<int> m_bLocked;
};

// Scoped guard over a CKCriticalSection (which may be null).
class KELVOR_API CKCriticalSectionLock {
public:
  explicit CKCriticalSectionLock(CKCriticalSection* p, int bLock = TRUE);
  ~CKCriticalSectionLock();
  CKCriticalSectionLock(const CKCriticalSectionLock&) = delete;
  CKCriticalSectionLock& operator=(const CKCriticalSectionLock&) = delete;

  void Lock();
  void Unlock();
  int IsLocked() const;

private:
  // The C functions reach the fields through this (friend functions
  // cannot carry the DLL attributes).
  friend struct KCriticalSectionAccess;

  CKCriticalSection* m_pCS;
  int m_bLocked;
};

// A re-entrant section plus a manual-reset event, created non-signalled.
// The event is the "free" signal: a trying operation resets it (reset-wait),
// a releasing one sets it (free-wait) and wakes every waiter.
class KELVOR_API CKWaitableSection {
public:
  CKWaitableSection();
  virtual ~CKWaitableSection();
  CKWaitableSection(const CKWaitableSection&) = delete;
  CKWaitableSection& operator=(const CKWaitableSection&) = delete;

  void Lock(int bResetWait = FALSE);
  void Unlock(int bFreeWait = FALSE);
  // Waits for the event. 0 fails at once; INFINITE waits for ever. On
  // success a finite budget is reduced by the time spent (never below 0).
  int Wait(unsigned long& dwTimeout);
  int ResetWait();
  int FreeWait();

private:
  kplat::Mutex* m_pMutex;
  kplat::Event* m_pEvent;
};

// Scoped hold of a waitable section.
class KELVOR_API CKLockWS {
public:
  // Locks now (resetting the event with bResetWait); the destructor unlocks,
  // setting it with bFreeWait.
  CKLockWS(CKWaitableSection* pWS, int bResetWait, int bFreeWait);
  ~CKLockWS();
  CKLockWS& operator=(const CKLockWS& o) = default;

  CKWaitableSection* m_pWS;
  int m_bFreeWait;
};

// Readers/writer state: 0 free, n > 0 shared holders, -1 one exclusive holder.
class KELVOR_API CKSharedWS : public CKWaitableSection {
public:
  CKSharedWS() : m_nStatus(0) {}
  int32_t m_nStatus;
};

// Shared or exclusive hold of a CKSharedWS. Copying copies the fields.
class KELVOR_API CKLockSWS {
public:
  // Does not lock.
  CKLockSWS(CKSharedWS* pSWS, int bExclusive);
  // Locks with the given time-out; IsLocked tells the outcome.
  CKLockSWS(CKSharedWS* pSWS, int bExclusive, unsigned long dwTimeout);
  ~CKLockSWS();

  int Lock(unsigned long dwTimeout);
  int Unlock();
  int IsLocked() const { return m_bLocked; }
  void SetLocked(int bLocked) { m_bLocked = bLocked; }

protected:
  void Init(CKSharedWS* pSWS, int bExclusive);
  // One attempt under the section; TRUE when the status admitted us.
  int TryLock();

  CKSharedWS* m_pSWS;
  int m_bExclusive;
  int m_bLocked;
};

// Reference-counted object. The creator holds the first reference; the last
// Release deletes the object.
class KELVOR_API CReffedObject : public CObject {
public:
  CReffedObject() : m_lRef(1) {}
  ~CReffedObject() override;

  LONG AddRef();
  LONG Release();
  LONG GetRefCount() const { return m_lRef.load(); }

protected:
  std::atomic<LONG> m_lRef;
};

// Holds one raw pointer so that it can live in the running-object table.
class KELVOR_API CObjectPtrHolder : public CObject {
public:
  CObjectPtrHolder() : m_pPtr(nullptr) {}
  explicit CObjectPtrHolder(void* p) : m_pPtr(p) {}
  ~CObjectPtrHolder() override;

  void* GetPtr() const { return m_pPtr; }
  void SetPtr(void* p) { m_pPtr = p; }

protected:
  void* m_pPtr;
};

// The running-object table: names mapped to objects under a waitable
// section. Registering a name that is taken waits until it is freed.
class KELVOR_API CKRot {
public:
  CKRot();
  virtual ~CKRot();
  CKRot(const CKRot&) = delete;
  CKRot& operator=(const CKRot&) = delete;

  // Stores pObj under key; while another object holds the key, waits up to
  // dwTimeout ms for it to be freed (FALSE on time-out). *ppFound receives the
  // object under the key (pObj on success); bAddRef takes a reference on it.
  // The table does not own pObj.
  int Register(const char* key, CObject* pObj, unsigned long dwTimeout,
               CObject** ppFound = nullptr, int bAddRef = FALSE);
  // The same for a raw pointer, kept in a holder that the table owns;
  // *ppFound receives the pointer found under the key.
  void RegisterPtr(const char* key, void* p, unsigned long dwTimeout, void** ppFound = nullptr);
  // Frees the key (the object itself is not deleted) and wakes the waiters.
  void Unregister(const char* key);
  void Unregister(CObject* pObj);
  void UnregisterPtr(void* p);

  // The object under key, or null; GetWnd and GetView also null when it is of
  // another class.
  CObject* GetObject(const char* key, int bAddRef = FALSE);
  CWnd* GetWnd(const char* key);
  CView* GetView(const char* key);
  void* GetPtr(const char* key);
  // The key of an object (GetKeyPtr: of a raw pointer), empty when absent.
  CKString GetKey(CObject* pObj);
  CKString GetKeyPtr(void* p);
  int ExistKey(const char* key);
  // TRUE when some key starts with szPrefix.
  int ExistBeginKey(const char* szPrefix);

  // Key-to-object map (internal).
  struct Map;

protected:
  // Iteration over the map; call with the table's section held.
  POSITION GetFirstPos();
  CObject* GetNext(POSITION& pos);
  CObject* GetNext(POSITION& pos, CKString& key);
  CKString GetNextKey(POSITION& pos);

  int WaitRot(unsigned long& dwTimeout);
  void RotAddRef(CObject* pObj);
  void RotRelease(CObject* pObj);

private:
  int DoRegister(const char* key, CObject* pObj, unsigned long dwTimeout, CObject** ppFound,
                 int bAddRef, void** ppFoundPtr);

  Map* m_pMap;
  CKWaitableSection m_ws;
};

// The process's table (created on first use, destroyed at library unload).
KELVOR_API CKRot* KRot();

// A name of the table used as a named lock (registered with a null object).
class KELVOR_API CKRotLock {
public:
  CKRotLock() {}
  CKRotLock(const char* key, unsigned long dwTimeout);
  ~CKRotLock();
  CKRotLock(const CKRotLock&) = delete;
  CKRotLock& operator=(const CKRotLock&) = delete;

  int Lock(const char* key, unsigned long dwTimeout);
  void Unlock();
  int IsLocked() const { return m_strKey.GetLength() != 0; }

protected:
  CKString m_strKey;
};

#endif  // KELVOR_KSYNC_H
