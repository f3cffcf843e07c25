// Block buffering shared by the digests (64-byte blocks, Merkle-Damgard
// padding): whole blocks go straight from the caller's memory to the block
// function, only a partial one waits in the state's buffer.
#ifndef KELVOR_KDIGESTBLOCK_H
#define KELVOR_KDIGESTBLOCK_H

#include <cstddef>
#include <cstring>

namespace kdigest {

const size_t kBlock = 64;

// Adds len (> 0) bytes at p; fBlocks(q, n) hashes n whole blocks at q.
template <class F>
void Feed(unsigned char* block, unsigned& index, const unsigned char* p, size_t len, F fBlocks) {
  if (index) {
    size_t n = kBlock - index;
    if (n > len) n = len;
    memcpy(block + index, p, n);
    index += (unsigned)n;
    p += n;
    len -= n;
    if (index < kBlock) return;
    fBlocks(block, 1);
    index = 0;
  }
  if (len >= kBlock) {
    fBlocks(p, len / kBlock);
    p += len & ~(kBlock - 1);
    len &= kBlock - 1;
  }
  // A message of whole blocks leaves nothing: no call for zero bytes.
  if (len) memcpy(block, p, len);
  index = (unsigned)len;
}

// Appends the 0x80 byte and the zeros after the index bytes waiting in
// block, hashing a full block on the way when the length no longer fits;
// the caller writes the 8 length bytes at 56 and hashes the last block.
template <class F>
void Pad(unsigned char* block, unsigned index, F fBlocks) {
  block[index++] = 0x80;
  if (index > kBlock - 8) {
    memset(block + index, 0, kBlock - index);
    fBlocks(block, 1);
    index = 0;
  }
  memset(block + index, 0, kBlock - 8 - index);
}

}  // namespace kdigest

#endif  // KELVOR_KDIGESTBLOCK_H
