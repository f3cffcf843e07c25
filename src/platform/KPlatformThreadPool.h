// Platform area: threads, the OS-independent part of the pool of parked
// workers that both implementations keep (KPlatformThreadPosix.cpp and
// KPlatformThreadWin32.cpp; internal, included only by them). The caller
// holds the pool's lock around every operation.
#ifndef KELVOR_KPLATFORMTHREADPOOL_H
#define KELVOR_KPLATFORMTHREADPOOL_H

#include <cstdint>

namespace kplat {
namespace pool {

// At most this many idle workers; each leaves after this long without a job.
const unsigned kMaxParked = 64;
const uint32_t kParkMs = 2000;

// The parked workers, most recently parked first (its stack is warm). W has
// the links pPrev and pNext; the workers live on their own stacks.
template <class W>
class Parked {
public:
  // False when the pool is full: the worker is not listed.
  bool Push(W* w) {
    if (m_n >= kMaxParked) return false;
    w->pPrev = nullptr;
    w->pNext = m_pFirst;
    if (m_pFirst) m_pFirst->pPrev = w;
    m_pFirst = w;
    ++m_n;
    return true;
  }
  // The most recently parked worker, unlisted; null when none is parked.
  W* Pop() {
    W* w = m_pFirst;
    if (w) Remove(w);
    return w;
  }
  void Remove(W* w) {
    if (w->pPrev) w->pPrev->pNext = w->pNext; else m_pFirst = w->pNext;
    if (w->pNext) w->pNext->pPrev = w->pPrev;
    --m_n;
  }

private:
  // Zero-initialised static data: no constructor runs, no destructor ever.
  W* m_pFirst;
  unsigned m_n;
};

}  // namespace pool
}  // namespace kplat

#endif  // KELVOR_KPLATFORMTHREADPOOL_H
