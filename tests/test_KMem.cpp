#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <zlib.h>

#include <base/tools/KMem.h>

#include "KTestLog.h"

namespace {

// A report of a failed check on cond in src/KMem with that ending.
bool Reported(const CKTestLog& log, const std::string& cond,
              const char* szEnding = CKTestLog::kReturnValue) {
  return log.HasAssert(cond, "src/KMem", szEnding);
}

// Allocation seam: refuses blocks of exactly g_nRefuse bytes while alive.
size_t g_nRefuse = 0;
void* RefusingRealloc(void* p, size_t n) { return n == g_nRefuse ? nullptr : realloc(p, n); }
struct RefuseBlocks {
  explicit RefuseBlocks(size_t n) { g_nRefuse = n; KMemSetRealloc(RefusingRealloc); }
  ~RefuseBlocks() { KMemSetRealloc(nullptr); }
};

unsigned char* Bytes(const CKMem& m) { return const_cast<CKMem&>(m).GetFromStart(0, 0); }

CKMem Filled(unsigned n, unsigned char c) {
  CKMem m(n);
  memset(Bytes(m), c, n);
  return m;
}

struct KMemTest : ::testing::Test {
  CKTestLog log;
};

}  // namespace

TEST_F(KMemTest, SizesOffsetsAndCompaction) {
  CKMem m;
  EXPECT_EQ(0, m.SetSize(0x8000001));
  EXPECT_TRUE(Reported(log, "nSize<=KMEM_SIZE_MAX"));
  EXPECT_EQ(1, m.SetSize(0x8000000));

  // Dirty bytes left beyond a shrink must not come back on growth.
  m.SetSize(20);
  memset(Bytes(m), 0xFF, 20);
  m.SetSize(10);
  ASSERT_EQ(1, m.SetSize(20));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(i < 10 ? 0xFF : 0, Bytes(m)[i]) << i;

  m.m_nOffset = 8;
  m.m_nStartOffset = 6;
  m.SetSize(5);
  EXPECT_EQ(4u, m.Offset());
  EXPECT_EQ(4u, m.m_nStartOffset);

  CKMem c;
  unsigned char* p = c.GetFromStart(6);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(6u, c.Size());  // growth is exact
  memcpy(p, "abcdef", 6);
  c.IncreaseOffset(6);
  c.IncreasePos(4);
  EXPECT_EQ(2u, c.GetLength());
  // Room for 3 more: compacting frees 4 bytes, so no growth.
  p = c.GetFromStart(3);
  EXPECT_EQ(0u, c.m_nStartOffset);
  EXPECT_EQ(6u, c.Size());
  EXPECT_EQ(0, memcmp(Bytes(c), "ef", 2));
  EXPECT_EQ(Bytes(c) + 2, p);
  c.GetFromStart(10);
  EXPECT_EQ(12u, c.Size());

  c.IncreasePos(5);
  EXPECT_TRUE(Reported(log, "FALSE", CKTestLog::kContinue));
  EXPECT_EQ(0u, c.GetLength());
  EXPECT_EQ(5u, c.m_nStartOffset);
  c.DecreasePos(9);
  EXPECT_EQ(0u, c.m_nStartOffset);
  EXPECT_EQ(nullptr, c.GetFromStart(13, 1));
  EXPECT_TRUE(Reported(log, "nOffset <= m_nAllocatedSize-m_nStartOffset"));
}

TEST_F(KMemTest, WriteFileIoMemcpyMemcmp) {
  CKMem m(8);
  m.IncreaseOffset(5);
  unsigned char abc[4] = {1, 2, 3, 4};
  EXPECT_EQ(0u, m.Write(abc, 4));
  EXPECT_TRUE(Reported(log, "m_nAllocatedSize-m_nOffset-m_nStartOffset >= nLenToWrite"));
  EXPECT_EQ(5u, m.GetLength());
  EXPECT_EQ(0, Bytes(m)[5]);
  EXPECT_EQ(1u, m.Write(abc, 3));
  EXPECT_EQ(8u, m.GetLength());
  EXPECT_EQ(0, memcmp(Bytes(m) + 5, abc, 3));

  CKMem a = Filled(4, 0x11), b = Filled(4, 0x11);
  Bytes(a)[2] = 0x80;
  Bytes(b)[2] = 0x7F;
  EXPECT_EQ(1, a.Memcmp(b, 4));
  EXPECT_EQ(-1, b.Memcmp(a, 4));
  EXPECT_EQ(0, a.Memcmp(b, 2));
  EXPECT_EQ(0, a.Memcmp(b, 5));
  EXPECT_TRUE(Reported(log, "nLenToCmp<=(memSrc.m_nAllocatedSize-memSrc.m_nOffset-memSrc.m_nStartOffset)"));

  // Memcpy copies to the write position and moves no cursor.
  b.m_nOffset = 1;
  EXPECT_EQ(1, b.Memcpy(a, 3));
  EXPECT_EQ(1u, b.Offset());
  EXPECT_EQ(0x80, Bytes(b)[3]);

  FILE* fp = tmpfile();
  ASSERT_NE(nullptr, fp);
  CKMem io(6);
  memcpy(Bytes(io), "xyz", 3);
  EXPECT_EQ(2u, io.Fwrite(1, 2, fp));
  EXPECT_EQ(0xFFFFFFFFu, io.Fwrite(1, 7, fp));
  EXPECT_TRUE(Reported(log, "nEltSize * nEltCount <= (m_nAllocatedSize-m_nOffset-m_nStartOffset)"));
  rewind(fp);
  io.m_nOffset = 4;
  EXPECT_EQ(2u, io.Fread(1, 2, fp));
  EXPECT_EQ(0, memcmp(Bytes(io), "xyz\0xy", 6));
  CKMemFake none(nullptr, 8);  // a size over no memory
  EXPECT_EQ(0xFFFFFFFFu, none.Fread(1, 4, fp));
  fclose(fp);
}

TEST_F(KMemTest, ViewsShareOneBlockUntilTheLastGoes) {
  CKMem* pMem = new CKMem(16);
  pMem->m_nOffset = 9;
  CKMem plus = *pMem + 5, minus = *pMem - 5;
  EXPECT_EQ(5u, plus.Offset());
  EXPECT_EQ(4u, minus.Offset());
  (void)(*pMem + 16);
  EXPECT_TRUE(Reported(log, "nOffset < m_nAllocatedSize", CKTestLog::kContinue));

  // Growth through one view moves the block for all; sizes stay per view.
  plus.SetSize(4096);
  EXPECT_EQ(Bytes(plus), Bytes(*pMem));
  EXPECT_EQ(16u, pMem->Size());
  unsigned char c = 0x5A;
  EXPECT_EQ(1u, plus.Write(&c, 1));
  delete pMem;
  EXPECT_EQ(0x5A, Bytes(minus)[5]);
  minus = CKMem(2);
  EXPECT_EQ(1, plus.m_pMemRef->memList.Count());

  // A shrink through one view cuts the others to the new block.
  CKMem other(plus);
  plus.SetSize(3);
  EXPECT_EQ(3u, other.Size());
  EXPECT_EQ(2u, other.Offset());

  // Copy is deep, also onto a view of the same block.
  EXPECT_EQ(1, other.Copy(plus));
  EXPECT_NE(Bytes(other), Bytes(plus));
  EXPECT_EQ(0, memcmp(Bytes(other), Bytes(plus), 3));
  // A view claiming more than its block holds gets the block grown.
  CKMem wide(*other.m_pMemRef, 0, 0, 64);
  memset(wide.GetFromStart(64), 1, 64);
}

TEST_F(KMemTest, SetAppendDetachAttach) {
  CKMem m;
  ASSERT_EQ(1, m.Set(0x01020304, 6));
  int v;
  memcpy(&v, Bytes(m), 4);
  EXPECT_EQ(0x01020304, v);
  EXPECT_EQ(0, Bytes(m)[4] | Bytes(m)[5]);
  // Its own bytes as the source survive the block moving.
  ASSERT_EQ(1, m.Set(Bytes(m), 4096));
  EXPECT_EQ(0, memcmp(&v, Bytes(m), 4));

  CKMem a(4), b(4);
  char ab[] = "ab", cd[] = "cd";
  a.Write(ab, 2);
  b.Write(cd, 2);
  a += b;
  a += a;
  EXPECT_EQ(0, memcmp(Bytes(a), "abcdabcd", 8));
  // Appending another view of the block survives the compaction it causes.
  a.IncreasePos(2);
  CKMem tail(a);
  a += tail;
  EXPECT_EQ(12u, a.GetLength());
  EXPECT_EQ(0, memcmp(Bytes(a), "cdabcdcdabcd", 12));

  CKMem view(a);
  unsigned char* p = a.Detach();
  EXPECT_EQ(0u, view.Size());
  EXPECT_EQ(nullptr, Bytes(view));
  view.Attach(p, 8);
  EXPECT_EQ(8u, a.Size());
  EXPECT_EQ(p, Bytes(a));
  a.Detach(b);
  EXPECT_EQ(p, Bytes(b));
  EXPECT_EQ(8u, b.Size());
  EXPECT_EQ(0u, a.Size());
}

TEST_F(KMemTest, ZipAndUnzipInterworkWithZlib) {
  std::string text;
  for (int i = 0; i < 200; ++i) text += "kelvor buffer line " + std::to_string(i % 7) + "\n";
  const unsigned n = (unsigned)text.size();
  CKMem m(n);
  memcpy(Bytes(m), text.data(), n);
  int bZipped = -1, bUnzipped = -1;
  ASSERT_EQ(1, m.Zip(n, 9, 0, &bZipped));
  EXPECT_EQ(1, bZipped);
  // zlib itself reads what Zip wrote.
  std::vector<unsigned char> out(n);
  uLongf nOut = n;
  ASSERT_EQ(Z_OK, uncompress(out.data(), &nOut, Bytes(m), m.Size()));
  EXPECT_EQ(text, std::string((char*)out.data(), nOut));
  ASSERT_EQ(1, m.Unzip(m.Size(), &bUnzipped));
  EXPECT_EQ(1, bUnzipped);
  EXPECT_EQ(text, std::string((char*)Bytes(m), m.Size()));

  // Made by zlib alone, expanding far beyond twice its size.
  std::string zeros(100000, '\0');
  uLongf nZ = compressBound(zeros.size());
  std::vector<unsigned char> z(nZ);
  ASSERT_EQ(Z_OK, compress(z.data(), &nZ, (const Bytef*)zeros.data(), zeros.size()));
  CKMem mz((unsigned)nZ);
  memcpy(Bytes(mz), z.data(), nZ);
  ASSERT_EQ(1, mz.Unzip((unsigned)nZ, &bUnzipped));
  EXPECT_EQ(zeros, std::string((char*)Bytes(mz), mz.Size()));
  const CKTestLog::Strings plainLines = log.Texts(1);  // the default type
  EXPECT_NE(plainLines.end(), std::find(plainLines.begin(), plainLines.end(), "Z_BUF_ERROR"));

  // Not zlib data: accepted as already expanded.
  CKMem plain = Filled(32, 'q');
  unsigned char* pPlain = Bytes(plain);
  ASSERT_EQ(1, plain.Unzip(32, &bUnzipped));
  EXPECT_EQ(0, bUnzipped);
  EXPECT_EQ(32u, plain.Size());
  EXPECT_EQ(pPlain, Bytes(plain));
  EXPECT_EQ('q', Bytes(plain)[31]);
  // A zlib error (here a bad level) fails and keeps the data.
  EXPECT_EQ(0, plain.Zip(32, 42, 0, &bZipped));
  EXPECT_EQ(pPlain, Bytes(plain));

  // Too short to be worth it, empty, or shared.
  ASSERT_EQ(1, plain.Zip(32, 6, 64, &bZipped));
  EXPECT_EQ(0, bZipped);
  EXPECT_EQ(0, plain.Zip(0, 6, 0, &bZipped));
  CKMem view(plain);
  EXPECT_EQ(0, plain.Zip(32, 6, 0, &bZipped));
  EXPECT_TRUE(Reported(log, "m_pMemRef->memList.Count()==1"));
}

TEST_F(KMemTest, HeapExhaustionThrows) {
  RefuseBlocks refuse(4096);
  CKMem m(16), view(m);
  try {
    m.SetSize(4096);
    ADD_FAILURE() << "no exception";
  } catch (const CKMemoryException& e) {
    EXPECT_STREQ("src/KMem", e.m_szFile);
  }
  EXPECT_EQ("Unable to allocate memory (4096)", log.Last());
  EXPECT_EQ(8, log.LastType());
  EXPECT_EQ(0u, view.Size());
  EXPECT_EQ(nullptr, Bytes(m));
  EXPECT_THROW(CKMem big(4096), CKMemoryException);

  // Unzip's first output block is twice the input; the data stays.
  CKMem z = Filled(2048, 'z');
  int bUnzipped = -1;
  EXPECT_THROW(z.Unzip(2048, &bUnzipped), CKMemoryException);
  EXPECT_EQ(2048u, z.Size());
}

TEST_F(KMemTest, FakeWrapsCallerMemory) {
  char buf[8] = "abcdefg";
  CKMem* pView;
  CKMemFake kept;
  {
    CKMemFake f(buf, 8);
    EXPECT_EQ((unsigned char*)buf, Bytes(f));
    char xy[] = "XY";
    f.Write(xy, 2);
    EXPECT_EQ('X', buf[0]);
    EXPECT_EQ(1, f.SetSize(4));
    EXPECT_EQ((unsigned char*)buf, Bytes(f));
    EXPECT_EQ(nullptr, f.Detach());
    EXPECT_TRUE(log.LastIsAssert("FALSE", "src/KMem", CKTestLog::kReturn));
    log.Clear();
    EXPECT_EQ(0, f.EnsureBuffer(100));
    EXPECT_TRUE(log.LastIsAssert("FALSE", "src/KMem", CKTestLog::kReturn));
    // A size recorded past the caller's memory gives no room beyond it.
    CKMemFake s(buf, 8);
    EXPECT_EQ(1, s.SetSize(100));
    EXPECT_EQ(100u, s.Size());
    EXPECT_EQ(1u, s.Write(buf, 8));
    EXPECT_EQ(0u, s.Write(buf, 1));
    EXPECT_EQ(nullptr, s.GetFromStart(1));
    // Once it holds a block of its own, that block really grows, and a copy
    // shares it rather than pointing into it.
    CKMemFake h(buf, 8);
    h.Attach(malloc(4), 4);
    memset(h.GetFromStart(100), 0, 100);
    kept = h;

    CKMemFake g;
    EXPECT_EQ(1, g.Copy(f));
    EXPECT_EQ((unsigned char*)buf, Bytes(g));
    EXPECT_EQ(4u, g.Size());
    pView = new CKMem(f + 2);
  }
  // A view outlives the fake and still sees the caller's memory.
  EXPECT_EQ((unsigned char*)buf, Bytes(*pView));
  // Growing it copies the bytes into a block of its own.
  ASSERT_EQ(1, pView->SetSize(64));
  EXPECT_NE((unsigned char*)buf, Bytes(*pView));
  EXPECT_EQ(0, memcmp(Bytes(*pView), "XYcd", 4));
  delete pView;
  EXPECT_STREQ("XYcdefg", buf);
  ASSERT_EQ(100u, kept.Size());
  EXPECT_EQ(0, Bytes(kept)[99]);
}
