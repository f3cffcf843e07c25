// Kelvor basic definitions: export macro, Windows-style scalar types and the
// small portable stand-ins for the Windows and framework types that the
// library's interface names. This is the only header that defines them.
#ifndef KELVOR_KDEFS_H
#define KELVOR_KDEFS_H

#include <cstddef>
#include <cstdint>
#include <string>

// Every public class and free function carries KELVOR_API, as a DLL exports.
#if defined(_WIN32)
#  if defined(KELVOR_BUILDING)
#    define KELVOR_API __declspec(dllexport)
#  else
#    define KELVOR_API __declspec(dllimport)
#  endif
#else
#  define KELVOR_API __attribute__((visibility("default")))
#endif

// printf-style checking of the library's formatting functions. On MinGW the
// library formats with the C99 printf family (it is built with
// __USE_MINGW_ANSI_STDIO), so %lld, %zu and long doubles are checked as GNU.
#if defined(__MINGW32__)
#  define KELVOR_PRINTF(fmt, first) __attribute__((format(gnu_printf, fmt, first)))
#elif defined(__GNUC__)
#  define KELVOR_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#  define KELVOR_PRINTF(fmt, first)
#endif

// Class templates live wholly in the headers and are instantiated in each
// module that uses them. On ELF they keep default visibility so that their
// type information is one across the library boundary; a DLL cannot import
// what it never instantiated, so on Windows they carry no attribute.
#if defined(_WIN32)
#  define KELVOR_TEMPLATE_API
#else
#  define KELVOR_TEMPLATE_API KELVOR_API
#endif

#if defined(_WIN32)
// The system's own definitions of the scalar types, FILETIME, SYSTEMTIME and
// HWND, without the API declarations (and their A/W renaming macros).
#  ifndef NOMINMAX
#    define NOMINMAX
#  endif
#  include <windef.h>
#  include <minwinbase.h>
#  include <basetsd.h>
// The Windows Sockets handle type, as winsock2.h declares it.
typedef UINT_PTR SOCKET;
#  ifndef INVALID_SOCKET
#    define INVALID_SOCKET (SOCKET)(~0)
#  endif
#  ifndef SOCKET_ERROR
#    define SOCKET_ERROR (-1)
#  endif
#  ifndef INFINITE
#    define INFINITE 0xffffffff  // as winbase.h spells it
#  endif
#else
// A macro rather than a typedef so that "unsigned __int64" stays valid.
#  ifndef __int64
#    define __int64 long long
#  endif

typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef unsigned int UINT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef const char* LPCSTR;
typedef const char* LPCTSTR;
typedef char* LPSTR;
typedef void* LPVOID;
typedef uintptr_t WPARAM;
typedef intptr_t LPARAM;
typedef intptr_t LRESULT;

#  ifndef TRUE
#    define TRUE 1
#  endif
#  ifndef FALSE
#    define FALSE 0
#  endif
#  ifndef INFINITE
#    define INFINITE 0xFFFFFFFFu
#  endif

// 100-nanosecond intervals since 1 January 1601 (UTC), split in two halves.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

// A window handle is an opaque message-target handle here (see KMessage.h).
struct KHWND__;
typedef KHWND__* HWND;

// Sockets are file descriptors on POSIX, kept in the Windows-sized slot.
typedef uintptr_t SOCKET;
#  define INVALID_SOCKET (~(SOCKET)0)
#  define SOCKET_ERROR (-1)
#endif  // !_WIN32

// The framework string: list overloads that take it accept std::string.
typedef std::string CString;
typedef std::string CStringT;

// Root of the framework's object hierarchy: only a virtual destructor.
class KELVOR_API CObject {
public:
  virtual ~CObject();
};

// The framework's "not supported" exception, thrown by KDbgThrow.
class KELVOR_API CNotSupportedException : public CObject {
public:
  CNotSupportedException() {}
};

// Window and view stand-ins: a message-target handle, nothing more.
class KELVOR_API CWnd : public CObject {
public:
  CWnd() : m_hWnd(nullptr) {}
  explicit CWnd(HWND h) : m_hWnd(h) {}
  HWND GetSafeHwnd() const { return m_hWnd; }
  HWND m_hWnd;
};

class KELVOR_API CView : public CWnd {
public:
  CView() {}
};

// OLE automation date: days since 30 December 1899 (fraction = time of day)
// plus a valid/invalid status. Enough for the date conversions.
class KELVOR_API COleDateTime {
public:
  enum DateTimeStatus { valid = 0, invalid = 1, null = 2 };

  COleDateTime() : m_dt(0.0), m_status(valid) {}
  COleDateTime(double dt) : m_dt(dt), m_status(valid) {}
  COleDateTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec);

  // 0 when the fields are a date of years 100..9999; otherwise 1, the value
  // becomes 0 and the status invalid.
  int SetDateTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec);
  DateTimeStatus GetStatus() const { return m_status; }
  void SetStatus(DateTimeStatus s) { m_status = s; }
  operator double() const { return m_dt; }

  // Broken-down fields; -1 when the value is not valid.
  int GetYear() const;
  int GetMonth() const;
  int GetDay() const;
  int GetHour() const;
  int GetMinute() const;
  int GetSecond() const;
  int GetDayOfWeek() const;  // 1 = Sunday ... 7 = Saturday
  int GetDayOfYear() const;  // 1 = 1 January

  double m_dt;
  DateTimeStatus m_status;
};

// Portable stand-in for the automation variant, as far as GUID text
// conversion needs it: either empty or holding a text.
class KELVOR_API _variant_t {
public:
  enum { VT_EMPTY = 0, VT_BSTR = 8 };
  _variant_t() : vt(VT_EMPTY) {}
  _variant_t(const char* s) : vt(s ? VT_BSTR : VT_EMPTY), strVal(s ? s : "") {}
  _variant_t(const std::string& s) : vt(VT_BSTR), strVal(s) {}
  unsigned short vt;
  std::string strVal;
};

#endif  // KELVOR_KDEFS_H
