// SHA-1 (FIPS 180-1) with an incremental interface and file digests, and the
// text encodings the digests are shown in: base32 (RFC 4648 alphabet, no
// padding) and upper-case hexadecimal.
#ifndef KELVOR_KSHA1_H
#define KELVOR_KSHA1_H

#include <stdint.h>

#include <base/tools/KDefs.h>
#include <base/tools/KString.h>

#define SHA1_DIGEST_SIZE 20
#define SHA1_DATA_SIZE 64

// Five chaining words, the bit count as two 32-bit words and a block buffer.
struct KSha1Data {
  uint32_t digest[5];
  uint32_t count_low, count_high;  // bits hashed so far
  unsigned char block[SHA1_DATA_SIZE];
  unsigned int index;              // bytes waiting in block
};

KELVOR_API void KSha1Init(KSha1Data* ctx);
KELVOR_API void KSha1Update(KSha1Data* ctx, unsigned int len, const unsigned char* data);
// Finishes and writes the first length bytes (at most 20) of the digest.
KELVOR_API void KSha1Digest(KSha1Data* ctx, unsigned int length, unsigned char* digest);

// Whole-file digests, read with fread in pieces of n bytes into buf (or a
// buffer of their own). FALSE when the file cannot be opened or read.
KELVOR_API int KSha1DoFile(const char* szPath, unsigned char digest[SHA1_DIGEST_SIZE],
                           unsigned char* buf, unsigned int n);
KELVOR_API int KSha1DoFile(const char* szPath, unsigned char digest[SHA1_DIGEST_SIZE]);
// The same as base32 text (32 characters), the time taken traced.
KELVOR_API int KSha1DoFile(const char* szPath, CKString& strOut, unsigned char* buf,
                           unsigned int n);
KELVOR_API int KSha1DoFile(const char* szPath, CKString& strOut);

// The processor's SHA instructions, chosen at run time where the CPU has
// them. KSha1HasHardware says whether it does; KSha1UseHardware(FALSE)
// forces the portable code (TRUE goes back to the hardware when present) and
// returns the previous choice. Not for use while other threads hash.
KELVOR_API int KSha1HasHardware();
KELVOR_API int KSha1UseHardware(int bUse);

// Base32 of n bytes: one character per 5 bits, ceil(8n / 5) characters.
KELVOR_API CKString KStrToBase32(unsigned char* p, int n);
// Decodes base32 text of any content into a zero-filled block of
// strlen(sz) * 5 / 8 bytes that the caller frees with free(); the count, or
// -1 (p null) when the block cannot be allocated.
KELVOR_API int KBase32Decode(const char* sz, unsigned char*& p);
// Base32 of a whole file's bytes; empty when it cannot be read.
KELVOR_API CKString KBase32Get(const char* szPath);

// Each byte up to the NUL as "%02X" of the byte widened as a signed char
// (0xE9 gives "FFFFFFE9").
KELVOR_API CKString KStrToHex(const char* sz);
// Each of the n bytes as exactly two upper-case digits.
KELVOR_API CKString KStrToHex(unsigned char* p, int n);
// Reads pairs of hex digits (either case) into at most n bytes; the number
// of bytes written. Decoding stops at the first pair that is not two hex
// digits (an odd last digit included).
KELVOR_API int KStrHexToByte(const char* sz, unsigned char* p, int n);

#endif  // KELVOR_KSHA1_H
