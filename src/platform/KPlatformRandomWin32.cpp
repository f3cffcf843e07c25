// Random bytes on Win32.
#if defined(_WIN32)
#include "platform/KPlatformRandom.h"

#include <windows.h>
#include <bcrypt.h>

#include "platform/KPlatformEnv.h"

namespace kplat {

bool RandomBytes(void* pBuffer, size_t nLen) {
  unsigned char* p = (unsigned char*)pBuffer;
  while (nLen > 0) {
    const ULONG n = nLen > 0x10000000u ? 0x10000000u : (ULONG)nLen;
    const NTSTATUS st = BCryptGenRandom(nullptr, p, n, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (st < 0) {
      ReportError("BCryptGenRandom", (int)st);
      return false;
    }
    p += n;
    nLen -= n;
  }
  return true;
}

}  // namespace kplat

#endif  // _WIN32
