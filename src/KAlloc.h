// Internal: heap exhaustion inside the library surfaces as CKMemoryException,
// whichever allocator refused (operator new, a standard container).
#ifndef KELVOR_KALLOC_H
#define KELVOR_KALLOC_H

#include <new>

#include <base/tools/KException.h>

template <class F>
inline auto KMemGuard(const char* szFile, unsigned nLine, F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const std::bad_alloc&) {
    throw CKMemoryException(szFile, nLine);
  }
}

// KMEM_TRY(expr): evaluates expr; std::bad_alloc becomes CKMemoryException
// naming this source and line.
#define KMEM_TRY(...) KMemGuard(KSRC_PATH, __LINE__, [&]() { return __VA_ARGS__; })

#endif  // KELVOR_KALLOC_H
