// Platform area: random bytes.
//
// POSIX: KPlatformRandomPosix.cpp (getrandom on Linux, /dev/urandom
// elsewhere). Windows counterpart: BCryptGenRandom with the system-preferred
// generator.
#ifndef KELVOR_KPLATFORMRANDOM_H
#define KELVOR_KPLATFORMRANDOM_H

#include <cstddef>

namespace kplat {

// Fills pBuffer with nLen bytes from the operating system's source; false
// (reported) when it cannot.
bool RandomBytes(void* pBuffer, size_t nLen);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMRANDOM_H
