// MD5 (RFC 1321) and HMAC-MD5 (RFC 2104). One pass over the data: whole
// blocks are hashed straight from the caller's memory, only the tail is
// buffered.
#define KSRC_PATH "src/KMd5"

#include <base/tools/KMd5.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDebug.h>
#include "KDigestBlock.h"
#include "platform/KPlatformFile.h"

namespace {

inline uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

[[maybe_unused]] inline uint32_t LoadLE32(const unsigned char* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
#else
  return (uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)p[2] << 16) | ((uint32_t)p[3] << 24);
#endif
}

inline void StoreLE32(unsigned char* p, uint32_t v) {
  p[0] = (unsigned char)v;
  p[1] = (unsigned char)(v >> 8);
  p[2] = (unsigned char)(v >> 16);
  p[3] = (unsigned char)(v >> 24);
}

// The round functions in their cheapest forms, with the terms that do not
// wait for the previous step (a, the word, the constant; G's half without b)
// summed first: only the last add and the rotation sit on the dependency
// chain. G's two halves never share a bit, so they can be added.
#if defined(__clang__)
// Clang re-associates the sum and puts the function back first on the chain;
// an empty asm makes the early sum a value it cannot take apart.
inline uint32_t Early(uint32_t v) {
  __asm__("" : "+r"(v));
  return v;
}
#else
inline uint32_t Early(uint32_t v) { return v; }
#endif
#define KF(a, b, c, d, x, s, t) a = b + Rotl(Early(a + x + t) + (d ^ (b & (c ^ d))), s)
#define KG(a, b, c, d, x, s, t) a = b + Rotl(Early(a + x + t + (c & ~d)) + (b & d), s)
#define KH(a, b, c, d, x, s, t) a = b + Rotl(Early(a + x + t) + (b ^ c ^ d), s)
#define KI(a, b, c, d, x, s, t) a = b + Rotl(Early(a + x + t) + (c ^ (b | ~d)), s)

// Words are read from the block where they are used: a copy would only
// compete with the state for registers. Clang merges the four reads of each
// word and then spills them; a volatile read (byte-aligned type) keeps each
// one where it is used.
#if defined(__clang__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
typedef uint32_t __attribute__((aligned(1), may_alias)) KU32Any;
#  define W(i) (*(const volatile KU32Any*)(const void*)(p + 4 * (i)))
#else
#  define W(i) LoadLE32(p + 4 * (i))
#endif

void Blocks(uint32_t h[4], const unsigned char* p, size_t nBlocks) {
  uint32_t a = h[0], b = h[1], c = h[2], d = h[3];
  for (; nBlocks; --nBlocks, p += MD5_DATA_SIZE) {
    const uint32_t a0 = a, b0 = b, c0 = c, d0 = d;
    KF(a, b, c, d, W(0), 7, 0xd76aa478u);
    KF(d, a, b, c, W(1), 12, 0xe8c7b756u);
    KF(c, d, a, b, W(2), 17, 0x242070dbu);
    KF(b, c, d, a, W(3), 22, 0xc1bdceeeu);
    KF(a, b, c, d, W(4), 7, 0xf57c0fafu);
    KF(d, a, b, c, W(5), 12, 0x4787c62au);
    KF(c, d, a, b, W(6), 17, 0xa8304613u);
    KF(b, c, d, a, W(7), 22, 0xfd469501u);
    KF(a, b, c, d, W(8), 7, 0x698098d8u);
    KF(d, a, b, c, W(9), 12, 0x8b44f7afu);
    KF(c, d, a, b, W(10), 17, 0xffff5bb1u);
    KF(b, c, d, a, W(11), 22, 0x895cd7beu);
    KF(a, b, c, d, W(12), 7, 0x6b901122u);
    KF(d, a, b, c, W(13), 12, 0xfd987193u);
    KF(c, d, a, b, W(14), 17, 0xa679438eu);
    KF(b, c, d, a, W(15), 22, 0x49b40821u);
    KG(a, b, c, d, W(1), 5, 0xf61e2562u);
    KG(d, a, b, c, W(6), 9, 0xc040b340u);
    KG(c, d, a, b, W(11), 14, 0x265e5a51u);
    KG(b, c, d, a, W(0), 20, 0xe9b6c7aau);
    KG(a, b, c, d, W(5), 5, 0xd62f105du);
    KG(d, a, b, c, W(10), 9, 0x02441453u);
    KG(c, d, a, b, W(15), 14, 0xd8a1e681u);
    KG(b, c, d, a, W(4), 20, 0xe7d3fbc8u);
    KG(a, b, c, d, W(9), 5, 0x21e1cde6u);
    KG(d, a, b, c, W(14), 9, 0xc33707d6u);
    KG(c, d, a, b, W(3), 14, 0xf4d50d87u);
    KG(b, c, d, a, W(8), 20, 0x455a14edu);
    KG(a, b, c, d, W(13), 5, 0xa9e3e905u);
    KG(d, a, b, c, W(2), 9, 0xfcefa3f8u);
    KG(c, d, a, b, W(7), 14, 0x676f02d9u);
    KG(b, c, d, a, W(12), 20, 0x8d2a4c8au);
    KH(a, b, c, d, W(5), 4, 0xfffa3942u);
    KH(d, a, b, c, W(8), 11, 0x8771f681u);
    KH(c, d, a, b, W(11), 16, 0x6d9d6122u);
    KH(b, c, d, a, W(14), 23, 0xfde5380cu);
    KH(a, b, c, d, W(1), 4, 0xa4beea44u);
    KH(d, a, b, c, W(4), 11, 0x4bdecfa9u);
    KH(c, d, a, b, W(7), 16, 0xf6bb4b60u);
    KH(b, c, d, a, W(10), 23, 0xbebfbc70u);
    KH(a, b, c, d, W(13), 4, 0x289b7ec6u);
    KH(d, a, b, c, W(0), 11, 0xeaa127fau);
    KH(c, d, a, b, W(3), 16, 0xd4ef3085u);
    KH(b, c, d, a, W(6), 23, 0x04881d05u);
    KH(a, b, c, d, W(9), 4, 0xd9d4d039u);
    KH(d, a, b, c, W(12), 11, 0xe6db99e5u);
    KH(c, d, a, b, W(15), 16, 0x1fa27cf8u);
    KH(b, c, d, a, W(2), 23, 0xc4ac5665u);
    KI(a, b, c, d, W(0), 6, 0xf4292244u);
    KI(d, a, b, c, W(7), 10, 0x432aff97u);
    KI(c, d, a, b, W(14), 15, 0xab9423a7u);
    KI(b, c, d, a, W(5), 21, 0xfc93a039u);
    KI(a, b, c, d, W(12), 6, 0x655b59c3u);
    KI(d, a, b, c, W(3), 10, 0x8f0ccc92u);
    KI(c, d, a, b, W(10), 15, 0xffeff47du);
    KI(b, c, d, a, W(1), 21, 0x85845dd1u);
    KI(a, b, c, d, W(8), 6, 0x6fa87e4fu);
    KI(d, a, b, c, W(15), 10, 0xfe2ce6e0u);
    KI(c, d, a, b, W(6), 15, 0xa3014314u);
    KI(b, c, d, a, W(13), 21, 0x4e0811a1u);
    KI(a, b, c, d, W(4), 6, 0xf7537e82u);
    KI(d, a, b, c, W(11), 10, 0xbd3af235u);
    KI(c, d, a, b, W(2), 15, 0x2ad7d2bbu);
    KI(b, c, d, a, W(9), 21, 0xeb86d391u);
    a += a0;
    b += b0;
    c += c0;
    d += d0;
  }
  h[0] = a;
  h[1] = b;
  h[2] = c;
  h[3] = d;
}

#undef KF
#undef KG
#undef KH
#undef KI
#undef W

CKString Hex(const unsigned char* p, int n) {
  static const char s_szDigits[] = "0123456789abcdef";
  CKString s;
  char* q = s.GetBuffer(2 * n);
  for (int i = 0; i < n; ++i) {
    q[2 * i] = s_szDigits[p[i] >> 4];
    q[2 * i + 1] = s_szDigits[p[i] & 15];
  }
  s.ReleaseBuffer(2 * n);
  return s;
}

CKString Md5Hex(const void* p, size_t n) {
  KMd5Data ctx;
  unsigned char digest[MD5_DIGEST_SIZE];
  KMd5Init(&ctx);
  KMd5Update(&ctx, p, n);
  KMd5Final(&ctx, digest);
  return Hex(digest, MD5_DIGEST_SIZE);
}

}  // namespace

void KMd5Init(KMd5Data* ctx) {
  KASSERT_RET(ctx);
  ctx->state[0] = 0x67452301u;
  ctx->state[1] = 0xefcdab89u;
  ctx->state[2] = 0x98badcfeu;
  ctx->state[3] = 0x10325476u;
  ctx->count = 0;
  ctx->index = 0;
}

void KMd5Update(KMd5Data* ctx, const void* data, size_t len) {
  KASSERT_RET(ctx);
  if (!len) return;
  KASSERT_RET(data);
  ctx->count += len;
  kdigest::Feed(ctx->block, ctx->index, (const unsigned char*)data, len,
                [ctx](const unsigned char* q, size_t n) { Blocks(ctx->state, q, n); });
}

void KMd5Final(KMd5Data* ctx, unsigned char digest[MD5_DIGEST_SIZE]) {
  KASSERT_RET(ctx && digest);
  const uint64_t nBits = ctx->count << 3;
  kdigest::Pad(ctx->block, ctx->index,
               [ctx](const unsigned char* q, size_t n) { Blocks(ctx->state, q, n); });
  StoreLE32(ctx->block + 56, (uint32_t)nBits);
  StoreLE32(ctx->block + 60, (uint32_t)(nBits >> 32));
  Blocks(ctx->state, ctx->block, 1);
  for (int k = 0; k < 4; ++k) StoreLE32(digest + 4 * k, ctx->state[k]);
  KMd5Init(ctx);
}

CKString KMd5GetString(const char* sz) { return Md5Hex(sz, sz ? strlen(sz) : 0); }

namespace {

// The shape of a failed file digest: 32 characters, blanks, which no digest
// comparison can match.
CKString NoDigest() {
  CKString s;
  memset(s.GetBuffer(32), ' ', 32);
  s.ReleaseBuffer(32);
  return s;
}

}  // namespace

CKString KMd5Get(const char* szPath, int nMax) {
  FILE* f = szPath ? kplat::FileOpen(szPath, "rb") : nullptr;
  if (!f) return NoDigest();
  size_t nLeft = nMax < 0 ? 2147483647u : (size_t)nMax;
  KMd5Data ctx;
  KMd5Init(&ctx);
  static const size_t kBlock = 65536;
  unsigned char* buf = (unsigned char*)malloc(kBlock);
  if (!buf) {
    fclose(f);
    KLog(KLOG_ERROR, "ERROR => KMd5Get: no memory for the read block");
    return NoDigest();
  }
  while (nLeft) {
    const size_t nWant = nLeft < kBlock ? nLeft : kBlock;
    const size_t nGot = fread(buf, 1, nWant, f);
    KMd5Update(&ctx, buf, nGot);
    nLeft -= nGot;
    if (nGot < nWant) break;
  }
  free(buf);
  fclose(f);
  unsigned char digest[MD5_DIGEST_SIZE];
  KMd5Final(&ctx, digest);
  return Hex(digest, MD5_DIGEST_SIZE);
}

CKString KMd5Cram(unsigned char* text, unsigned char* key) {
  const size_t nText = text ? strlen((const char*)text) : 0;
  size_t nKey = key ? strlen((const char*)key) : 0;
  unsigned char k[MD5_DATA_SIZE] = {0};
  KMd5Data ctx;
  KMd5Init(&ctx);
  if (nKey > MD5_DATA_SIZE) {
    KMd5Update(&ctx, key, nKey);
    KMd5Final(&ctx, k);
  } else if (nKey) {
    memcpy(k, key, nKey);
  }
  unsigned char pad[MD5_DATA_SIZE], inner[MD5_DIGEST_SIZE], outer[MD5_DIGEST_SIZE];
  for (int i = 0; i < MD5_DATA_SIZE; ++i) pad[i] = (unsigned char)(k[i] ^ 0x36);
  KMd5Update(&ctx, pad, sizeof(pad));
  KMd5Update(&ctx, text, nText);
  KMd5Final(&ctx, inner);
  for (int i = 0; i < MD5_DATA_SIZE; ++i) pad[i] = (unsigned char)(k[i] ^ 0x5C);
  KMd5Update(&ctx, pad, sizeof(pad));
  KMd5Update(&ctx, inner, sizeof(inner));
  KMd5Final(&ctx, outer);
  return Hex(outer, MD5_DIGEST_SIZE);
}
