// The heap on POSIX.
#if !defined(_WIN32)
#include "platform/KPlatformMemory.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace kplat {

size_t HeapBlockSize(void* p) {
#if defined(__GLIBC__)
  return p ? malloc_usable_size(p) : 0;
#else
  (void)p;
  return 0;
#endif
}

}  // namespace kplat

#endif  // !_WIN32
