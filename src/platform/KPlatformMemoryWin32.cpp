// The heap on Win32.
#if defined(_WIN32)
#include "platform/KPlatformMemory.h"

#include <malloc.h>

namespace kplat {

size_t HeapBlockSize(void* p) {
  if (!p) return 0;
  const size_t n = _msize(p);
  return n == (size_t)-1 ? 0 : n;
}

}  // namespace kplat

#endif  // _WIN32
