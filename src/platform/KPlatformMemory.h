// Platform area: the heap.
//
// POSIX: KPlatformMemoryPosix.cpp (malloc_usable_size with the GNU C library,
// no answer elsewhere). Windows counterpart: _msize.
#ifndef KELVOR_KPLATFORMMEMORY_H
#define KELVOR_KPLATFORMMEMORY_H

#include <cstddef>

namespace kplat {

// The bytes a block from malloc/realloc can really hold (at least what was
// asked for); 0 when the heap does not tell, or for null.
size_t HeapBlockSize(void* p);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMMEMORY_H
