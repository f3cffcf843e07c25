// Internal: string blocks carved from one pool instead of one heap block
// each, for decoders that make many short texts at once.
//
// A pooled block is a KStringData with a count of 0, preceded by a pointer
// to its pool. The pool counts its owner plus every pooled block still held
// by a string, and frees its chunks with the last of them, so a string that
// leaves its decoder (a list moved out of a blob) stays valid. Strings never
// share a pooled block: a copy gets a heap block of its own, and any write
// moves the text to a heap block first.
#ifndef KELVOR_KSTRINGPOOL_H
#define KELVOR_KSTRINGPOOL_H

#include <cstddef>
#include <cstdint>

#include <base/tools/KString.h>

struct KStringPool;

namespace kstr {
// A new pool, held once by its creator; throws CKMemoryException.
KStringPool* PoolNew();
// Drops one hold; the last one frees the pool and its chunks.
void PoolRelease(KStringPool* pPool);
// s becomes a pooled text of n characters (terminator written, length n);
// the characters to fill in. n must be at least 1.
char* PoolCarve(KStringPool* pPool, CKString& s, uint32_t n);
// n bytes, 8-aligned, that stay until the pool is freed; for objects that
// are destroyed in place before their pool's owner lets it go.
void* PoolRaw(KStringPool* pPool, size_t n);
}  // namespace kstr

#endif  // KELVOR_KSTRINGPOOL_H
