// MD5 digests (RFC 1321): of texts, of files, and the HMAC-MD5 value of a
// CRAM-MD5 answer. The incremental KMd5Data interface is what the others are
// built on; it is exported for callers that hash data in pieces.
#ifndef KELVOR_KMD5_H
#define KELVOR_KMD5_H

#include <stddef.h>
#include <stdint.h>

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

#define MD5_DIGEST_SIZE 16
#define MD5_DATA_SIZE 64

// Four 32-bit chaining words, the byte count and a block buffer.
struct KMd5Data {
  uint32_t state[4];
  uint64_t count;          // bytes hashed so far
  unsigned int index;      // bytes waiting in block
  unsigned char block[MD5_DATA_SIZE];
};

KELVOR_API void KMd5Init(KMd5Data* ctx);
KELVOR_API void KMd5Update(KMd5Data* ctx, const void* data, size_t len);
// Pads, writes the 16 digest bytes and leaves ctx reset for reuse.
KELVOR_API void KMd5Final(KMd5Data* ctx, unsigned char digest[MD5_DIGEST_SIZE]);

// MD5 of the bytes of sz (up to its NUL), 32 lower-case hex digits.
KELVOR_API CKString KMd5GetString(const char* sz);
// MD5 of the first nMax bytes of the file (-1: all of it), read in 64 KiB
// blocks. A file that cannot be opened gives 32 characters and no digest.
KELVOR_API CKString KMd5Get(const char* szPath, int nMax = -1);
// HMAC-MD5 of text under key (both NUL-terminated), 32 lower-case hex digits.
KELVOR_API CKString KMd5Cram(unsigned char* text, unsigned char* key);

#endif  // KELVOR_KMD5_H
