// SHA-1 (FIPS 180-1) with run-time choice between the processor's SHA
// instructions and portable code, file digests, and the base32 and hex text
// forms.
#define KSRC_PATH "src/KSha1"

#include <base/tools/KSha1.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>
#include <base/tools/KThread.h>
#include "KDigestBlock.h"
#include "platform/KPlatformFile.h"

#if defined(__x86_64__) || defined(__i386__)
#  define KSHA1_X86 1
#  include <cpuid.h>
#  include <immintrin.h>
#endif

namespace {

typedef void (*BlocksFn)(uint32_t h[5], const unsigned char* p, size_t nBlocks);

inline uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t LoadBE32(const unsigned char* p) {
  return ((uint32_t)p[0] << 24) | ((uint32_t)p[1] << 16) | ((uint32_t)p[2] << 8) | (uint32_t)p[3];
}

inline void StoreBE32(unsigned char* p, uint32_t v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  v = __builtin_bswap32(v);
  memcpy(p, &v, 4);
#else
  p[0] = (unsigned char)(v >> 24);
  p[1] = (unsigned char)(v >> 16);
  p[2] = (unsigned char)(v >> 8);
  p[3] = (unsigned char)v;
#endif
}

// ---------------------------------------------------------------- portable
// One step; the caller rotates the five names instead of moving values. The
// newest value, a, is added last so that the rest is summed while it is made.
#define KR0(a, b, c, d, e, x) e += x + 0x5A827999u + (d ^ (b & (c ^ d))) + Rotl(a, 5), b = Rotl(b, 30)
#define KR1(a, b, c, d, e, x) e += x + 0x6ED9EBA1u + (b ^ c ^ d) + Rotl(a, 5), b = Rotl(b, 30)
#define KR2(a, b, c, d, e, x) \
  e += x + 0x8F1BBCDCu + ((b & c) + (d & (b ^ c))) + Rotl(a, 5), b = Rotl(b, 30)
#define KR3(a, b, c, d, e, x) e += x + 0xCA62C1D6u + (b ^ c ^ d) + Rotl(a, 5), b = Rotl(b, 30)
// The message schedule in a 16-word ring.
#define L(i) (w[i] = LoadBE32(p + 4 * (i)))
#define S(i) \
  (w[(i)&15] = Rotl(w[((i) + 13) & 15] ^ w[((i) + 8) & 15] ^ w[((i) + 2) & 15] ^ w[(i)&15], 1))

void BlocksPortable(uint32_t h[5], const unsigned char* p, size_t nBlocks) {
  uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
  for (; nBlocks; --nBlocks, p += SHA1_DATA_SIZE) {
    uint32_t w[16];
    const uint32_t a0 = a, b0 = b, c0 = c, d0 = d, e0 = e;
    KR0(a, b, c, d, e, L(0));
    KR0(e, a, b, c, d, L(1));
    KR0(d, e, a, b, c, L(2));
    KR0(c, d, e, a, b, L(3));
    KR0(b, c, d, e, a, L(4));
    KR0(a, b, c, d, e, L(5));
    KR0(e, a, b, c, d, L(6));
    KR0(d, e, a, b, c, L(7));
    KR0(c, d, e, a, b, L(8));
    KR0(b, c, d, e, a, L(9));
    KR0(a, b, c, d, e, L(10));
    KR0(e, a, b, c, d, L(11));
    KR0(d, e, a, b, c, L(12));
    KR0(c, d, e, a, b, L(13));
    KR0(b, c, d, e, a, L(14));
    KR0(a, b, c, d, e, L(15));
    KR0(e, a, b, c, d, S(16));
    KR0(d, e, a, b, c, S(17));
    KR0(c, d, e, a, b, S(18));
    KR0(b, c, d, e, a, S(19));
    KR1(a, b, c, d, e, S(20));
    KR1(e, a, b, c, d, S(21));
    KR1(d, e, a, b, c, S(22));
    KR1(c, d, e, a, b, S(23));
    KR1(b, c, d, e, a, S(24));
    KR1(a, b, c, d, e, S(25));
    KR1(e, a, b, c, d, S(26));
    KR1(d, e, a, b, c, S(27));
    KR1(c, d, e, a, b, S(28));
    KR1(b, c, d, e, a, S(29));
    KR1(a, b, c, d, e, S(30));
    KR1(e, a, b, c, d, S(31));
    KR1(d, e, a, b, c, S(32));
    KR1(c, d, e, a, b, S(33));
    KR1(b, c, d, e, a, S(34));
    KR1(a, b, c, d, e, S(35));
    KR1(e, a, b, c, d, S(36));
    KR1(d, e, a, b, c, S(37));
    KR1(c, d, e, a, b, S(38));
    KR1(b, c, d, e, a, S(39));
    KR2(a, b, c, d, e, S(40));
    KR2(e, a, b, c, d, S(41));
    KR2(d, e, a, b, c, S(42));
    KR2(c, d, e, a, b, S(43));
    KR2(b, c, d, e, a, S(44));
    KR2(a, b, c, d, e, S(45));
    KR2(e, a, b, c, d, S(46));
    KR2(d, e, a, b, c, S(47));
    KR2(c, d, e, a, b, S(48));
    KR2(b, c, d, e, a, S(49));
    KR2(a, b, c, d, e, S(50));
    KR2(e, a, b, c, d, S(51));
    KR2(d, e, a, b, c, S(52));
    KR2(c, d, e, a, b, S(53));
    KR2(b, c, d, e, a, S(54));
    KR2(a, b, c, d, e, S(55));
    KR2(e, a, b, c, d, S(56));
    KR2(d, e, a, b, c, S(57));
    KR2(c, d, e, a, b, S(58));
    KR2(b, c, d, e, a, S(59));
    KR3(a, b, c, d, e, S(60));
    KR3(e, a, b, c, d, S(61));
    KR3(d, e, a, b, c, S(62));
    KR3(c, d, e, a, b, S(63));
    KR3(b, c, d, e, a, S(64));
    KR3(a, b, c, d, e, S(65));
    KR3(e, a, b, c, d, S(66));
    KR3(d, e, a, b, c, S(67));
    KR3(c, d, e, a, b, S(68));
    KR3(b, c, d, e, a, S(69));
    KR3(a, b, c, d, e, S(70));
    KR3(e, a, b, c, d, S(71));
    KR3(d, e, a, b, c, S(72));
    KR3(c, d, e, a, b, S(73));
    KR3(b, c, d, e, a, S(74));
    KR3(a, b, c, d, e, S(75));
    KR3(e, a, b, c, d, S(76));
    KR3(d, e, a, b, c, S(77));
    KR3(c, d, e, a, b, S(78));
    KR3(b, c, d, e, a, S(79));
    a += a0;
    b += b0;
    c += c0;
    d += d0;
    e += e0;
  }
  h[0] = a;
  h[1] = b;
  h[2] = c;
  h[3] = d;
  h[4] = e;
}

#undef KR0
#undef KR1
#undef KR2
#undef KR3
#undef L
#undef S

#if defined(KSHA1_X86)
// ---------------------------------------------------------------- SHA instructions
// ABCD live in one register, A in the top lane; E rides in the top lane of
// the message words. Each group does four rounds; the schedule makes the
// next four words from the previous sixteen.
#define KSHA_SCHED(m0, m1, m2, m3) \
  m0 = _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(m0, m1), m2), m3)
#define KSHA_GROUP(m, f)                      \
  do {                                        \
    e = _mm_sha1nexte_epu32(prev, m);         \
    prev = abcd;                              \
    abcd = _mm_sha1rnds4_epu32(abcd, e, f);   \
  } while (0)

__attribute__((target("sha,sse4.1"))) void BlocksHardware(uint32_t h[5], const unsigned char* p,
                                                          size_t nBlocks) {
  const __m128i mask = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  // h[0] to h[3] reversed into the lanes: A on top.
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128((const __m128i*)(const void*)h), 0x1B);
  __m128i e0 = _mm_insert_epi32(_mm_setzero_si128(), (int)h[4], 3);
  for (; nBlocks; --nBlocks, p += SHA1_DATA_SIZE) {
    const __m128i abcdSave = abcd, eSave = e0;
    __m128i m0 = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)(const void*)p), mask);
    __m128i m1 = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)(const void*)(p + 16)), mask);
    __m128i m2 = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)(const void*)(p + 32)), mask);
    __m128i m3 = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)(const void*)(p + 48)), mask);
    __m128i e = _mm_add_epi32(e0, m0);
    __m128i prev = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e, 0);
    KSHA_GROUP(m1, 0);
    KSHA_GROUP(m2, 0);
    KSHA_GROUP(m3, 0);
    KSHA_SCHED(m0, m1, m2, m3); KSHA_GROUP(m0, 0);
    KSHA_SCHED(m1, m2, m3, m0); KSHA_GROUP(m1, 1);
    KSHA_SCHED(m2, m3, m0, m1); KSHA_GROUP(m2, 1);
    KSHA_SCHED(m3, m0, m1, m2); KSHA_GROUP(m3, 1);
    KSHA_SCHED(m0, m1, m2, m3); KSHA_GROUP(m0, 1);
    KSHA_SCHED(m1, m2, m3, m0); KSHA_GROUP(m1, 1);
    KSHA_SCHED(m2, m3, m0, m1); KSHA_GROUP(m2, 2);
    KSHA_SCHED(m3, m0, m1, m2); KSHA_GROUP(m3, 2);
    KSHA_SCHED(m0, m1, m2, m3); KSHA_GROUP(m0, 2);
    KSHA_SCHED(m1, m2, m3, m0); KSHA_GROUP(m1, 2);
    KSHA_SCHED(m2, m3, m0, m1); KSHA_GROUP(m2, 2);
    KSHA_SCHED(m3, m0, m1, m2); KSHA_GROUP(m3, 3);
    KSHA_SCHED(m0, m1, m2, m3); KSHA_GROUP(m0, 3);
    KSHA_SCHED(m1, m2, m3, m0); KSHA_GROUP(m1, 3);
    KSHA_SCHED(m2, m3, m0, m1); KSHA_GROUP(m2, 3);
    KSHA_SCHED(m3, m0, m1, m2); KSHA_GROUP(m3, 3);
    e0 = _mm_sha1nexte_epu32(prev, eSave);
    abcd = _mm_add_epi32(abcd, abcdSave);
  }
  _mm_storeu_si128((__m128i*)(void*)h, _mm_shuffle_epi32(abcd, 0x1B));
  h[4] = (uint32_t)_mm_extract_epi32(e0, 3);
}

#undef KSHA_SCHED
#undef KSHA_GROUP

// SHA extensions (leaf 7, EBX bit 29) plus the SSSE3 and SSE4.1 the code
// also uses (leaf 1, ECX bits 9 and 19).
bool CpuHasSha() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  if (!(c & (1u << 9)) || !(c & (1u << 19))) return false;
  if (__get_cpuid_max(0, nullptr) < 7) return false;
  __cpuid_count(7, 0, a, b, c, d);
  return (b & (1u << 29)) != 0;
}
#else
bool CpuHasSha() { return false; }
void BlocksHardware(uint32_t h[5], const unsigned char* p, size_t nBlocks) {
  BlocksPortable(h, p, nBlocks);
}
#endif

const bool g_bHasHw = CpuHasSha();
std::atomic<int> g_bUseHw(g_bHasHw ? 1 : 0);

inline void Blocks(uint32_t h[5], const unsigned char* p, size_t nBlocks) {
  if (g_bUseHw.load(std::memory_order_relaxed))
    BlocksHardware(h, p, nBlocks);
  else
    BlocksPortable(h, p, nBlocks);
}

}  // namespace

int KSha1HasHardware() { return g_bHasHw ? TRUE : FALSE; }

int KSha1UseHardware(int bUse) {
  return g_bUseHw.exchange(bUse && g_bHasHw ? 1 : 0) ? TRUE : FALSE;
}

void KSha1Init(KSha1Data* ctx) {
  KASSERT_RET(ctx);
  ctx->digest[0] = 0x67452301u;
  ctx->digest[1] = 0xEFCDAB89u;
  ctx->digest[2] = 0x98BADCFEu;
  ctx->digest[3] = 0x10325476u;
  ctx->digest[4] = 0xC3D2E1F0u;
  ctx->count_low = ctx->count_high = 0;
  ctx->index = 0;
}

void KSha1Update(KSha1Data* ctx, unsigned int len, const unsigned char* data) {
  KASSERT_RET(ctx);
  if (!len) return;
  KASSERT_RET(data);
  const uint64_t nBits =
      (((uint64_t)ctx->count_high << 32) | ctx->count_low) + ((uint64_t)len << 3);
  ctx->count_low = (uint32_t)nBits;
  ctx->count_high = (uint32_t)(nBits >> 32);
  kdigest::Feed(ctx->block, ctx->index, data, len,
                [ctx](const unsigned char* q, size_t n) { Blocks(ctx->digest, q, n); });
}

void KSha1Digest(KSha1Data* ctx, unsigned int length, unsigned char* digest) {
  KASSERT_RET(ctx);
  KASSERT_RET(length <= SHA1_DIGEST_SIZE);
  KASSERT_RET(digest || !length);
  kdigest::Pad(ctx->block, ctx->index,
               [ctx](const unsigned char* q, size_t n) { Blocks(ctx->digest, q, n); });
  StoreBE32(ctx->block + 56, ctx->count_high);
  StoreBE32(ctx->block + 60, ctx->count_low);
  Blocks(ctx->digest, ctx->block, 1);
  if (length == SHA1_DIGEST_SIZE) {
    for (int k = 0; k < 5; ++k) StoreBE32(digest + 4 * k, ctx->digest[k]);
  } else if (length) {
    unsigned char full[SHA1_DIGEST_SIZE];
    for (int k = 0; k < 5; ++k) StoreBE32(full + 4 * k, ctx->digest[k]);
    memcpy(digest, full, length);
  }
  KSha1Init(ctx);
}

// ---------------------------------------------------------------- files
int KSha1DoFile(const char* szPath, unsigned char digest[SHA1_DIGEST_SIZE], unsigned char* buf,
                unsigned int n) {
  KASSERT_RETV(szPath && digest, FALSE);
  KASSERT_RETV(buf && n > 0, FALSE);
  FILE* f = kplat::FileOpen(szPath, "rb");
  if (!f) return FALSE;
  KSha1Data ctx;
  KSha1Init(&ctx);
  size_t nGot;
  while ((nGot = fread(buf, 1, n, f)) > 0) KSha1Update(&ctx, (unsigned)nGot, buf);
  const int bError = ferror(f);
  fclose(f);
  if (bError) return FALSE;
  KSha1Digest(&ctx, SHA1_DIGEST_SIZE, digest);
  return TRUE;
}

int KSha1DoFile(const char* szPath, unsigned char digest[SHA1_DIGEST_SIZE]) {
  static const unsigned kBlock = 65536;
  unsigned char* buf = (unsigned char*)malloc(kBlock);
  if (!buf) {
    KLog(KLOG_ERROR, "ERROR => KSha1DoFile: no memory for the read block");
    return FALSE;
  }
  const int bOk = KSha1DoFile(szPath, digest, buf, kBlock);
  free(buf);
  return bOk;
}

int KSha1DoFile(const char* szPath, CKString& strOut, unsigned char* buf, unsigned int n) {
  strOut.Empty();
  CKTimer timer;
  unsigned char digest[SHA1_DIGEST_SIZE];
  const int bOk = KSha1DoFile(szPath, digest, buf, n);
  if (bOk) strOut = KStrToBase32(digest, SHA1_DIGEST_SIZE);
  timer.Trace2(KAnd("KSha1DoFile for ", szPath));
  return bOk;
}

int KSha1DoFile(const char* szPath, CKString& strOut) {
  strOut.Empty();
  CKTimer timer;
  unsigned char digest[SHA1_DIGEST_SIZE];
  const int bOk = KSha1DoFile(szPath, digest);
  if (bOk) strOut = KStrToBase32(digest, SHA1_DIGEST_SIZE);
  timer.Trace2(KAnd("KSha1DoFile for ", szPath));
  return bOk;
}

// ---------------------------------------------------------------- base32
namespace {

const char s_szBase32[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

// Value of each character from '0' to 'Z' after upper-casing; -1 where the
// character is not in the alphabet.
const signed char s_nBase32Val['Z' - '0' + 1] = {
    -1, -1, 26, 27, 28, 29, 30, 31, -1, -1,                          // 0-9
    -1, -1, -1, -1, -1, -1, -1,                                      // :;<=>?@
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,  // A-P
    16, 17, 18, 19, 20, 21, 22, 23, 24, 25};                         // Q-Z

}  // namespace

CKString KStrToBase32(unsigned char* p, int n) {
  CKString s;
  if (n < 1) return s;
  KASSERT_RETV(p, s);
  const long long nOut = ((long long)n * 8 + 4) / 5;
  if (nOut > 0x7FFFFFF0LL) {
    KLog(KLOG_ERROR, "ERROR => KStrToBase32: text too long");
    return s;
  }
  char* q = s.GetBuffer((unsigned)nOut);
  // Five bytes make eight characters; the tail goes through a bit buffer.
  int i = 0;
  for (; i + 5 <= n; i += 5) {
    const uint64_t v = ((uint64_t)p[i] << 32) | ((uint64_t)p[i + 1] << 24) |
                       ((uint64_t)p[i + 2] << 16) | ((uint64_t)p[i + 3] << 8) | p[i + 4];
    for (int k = 0; k < 8; ++k) *q++ = s_szBase32[(v >> (35 - 5 * k)) & 31];
  }
  uint32_t nAcc = 0;
  int nBits = 0;
  for (; i < n; ++i) {
    nAcc = (nAcc << 8) | p[i];
    nBits += 8;
    while (nBits >= 5) {
      nBits -= 5;
      *q++ = s_szBase32[(nAcc >> nBits) & 31];
    }
  }
  if (nBits > 0) *q++ = s_szBase32[(nAcc << (5 - nBits)) & 31];
  s.ReleaseBuffer((unsigned)nOut);
  return s;
}

int KBase32Decode(const char* sz, unsigned char*& p) {
  const size_t nLen = sz ? strlen(sz) : 0;
  const size_t nCount = nLen / 8 * 5 + (nLen % 8) * 5 / 8;  // len * 5 / 8 without overflow
  p = nullptr;
  if (nCount > 0x7FFFFFFFu) {  // the count could not be returned
    KLog(KLOG_ERROR, "ERROR => KBase32Decode: text too long");
    return -1;
  }
  // At least one byte, so that the caller always has a block to free.
  p = (unsigned char*)calloc(nCount ? nCount : 1, 1);
  if (!p) return -1;
  size_t nOut = 0;
  uint32_t nAcc = 0;
  int nBits = 0;
  for (size_t i = 0; i < nLen; ++i) {
    int c = (unsigned char)sz[i];
    if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
    if (c < '0' || c > 'Z') continue;
    const int v = s_nBase32Val[c - '0'];
    if (v < 0) continue;
    nAcc = (nAcc << 5) | (uint32_t)v;
    nBits += 5;
    if (nBits >= 8) {
      nBits -= 8;
      if (nOut < nCount) p[nOut++] = (unsigned char)(nAcc >> nBits);
    }
  }
  return (int)nCount;
}

CKString KBase32Get(const char* szPath) {
  CKString strData;
  if (!szPath || !KStrFileToText(szPath, strData)) return CKString();
  return KStrToBase32((unsigned char*)strData.GetBuffer(0), strData.GetLength());
}

// ---------------------------------------------------------------- hex
CKString KStrToHex(const char* sz) {
  static const char s_szDigits[] = "0123456789ABCDEF";
  CKString s;
  if (!sz) return s;
  size_t nOut = 0;
  for (const char* q = sz; *q; ++q) nOut += (signed char)*q < 0 ? 8 : 2;
  if (nOut > 0x7FFFFFF0u) {
    KLog(KLOG_ERROR, "ERROR => KStrToHex: text too long");
    return s;
  }
  char* q = s.GetBuffer((unsigned)nOut);
  for (; *sz; ++sz) {
    const unsigned char c = (unsigned char)*sz;
    // The byte is widened as a signed char: high bytes print as a negative int.
    if (c >= 0x80) {
      memcpy(q, "FFFFFF", 6);
      q += 6;
    }
    *q++ = s_szDigits[c >> 4];
    *q++ = s_szDigits[c & 15];
  }
  s.ReleaseBuffer((unsigned)nOut);
  return s;
}

CKString KStrToHex(unsigned char* p, int n) {
  static const char s_szDigits[] = "0123456789ABCDEF";
  CKString s;
  if (n < 1) return s;
  KASSERT_RETV(p, s);
  if (n > 0x3FFFFFF0) {
    KLog(KLOG_ERROR, "ERROR => KStrToHex: data too long");
    return s;
  }
  char* q = s.GetBuffer((unsigned)(2 * n + 1));
  for (int i = 0; i < n; ++i) {
    q[2 * i] = s_szDigits[p[i] >> 4];
    q[2 * i + 1] = s_szDigits[p[i] & 15];
  }
  s.ReleaseBuffer((unsigned)(2 * n));
  return s;
}

namespace {

inline int HexDigit(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

int KStrHexToByte(const char* sz, unsigned char* p, int n) {
  if (!sz || n <= 0) return 0;
  KASSERT_RETV(p, 0);
  int nOut = 0;
  while (nOut < n) {
    const int hi = HexDigit((unsigned char)sz[0]);
    if (hi < 0) break;
    const int lo = HexDigit((unsigned char)sz[1]);
    if (lo < 0) break;
    p[nOut++] = (unsigned char)(hi << 4 | lo);
    sz += 2;
  }
  return nOut;
}
