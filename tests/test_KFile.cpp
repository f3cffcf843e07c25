// CKFile in both modes, the open-mode rules, and KFileGetTemp.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KFile.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

std::string Slurp(const std::string& strPath) {
  std::ifstream in(strPath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Spit(const std::string& strPath, const std::string& strData) {
  std::ofstream(strPath, std::ios::binary) << strData;
}

std::string Content(const CKFile& f) {
  return std::string((const char*)f.MemData(), (size_t)f.Size());
}

}  // namespace

TEST(KFile, OpenModeRules) {
  CKTestTempDir dir;
  const std::string strOld = dir.Path("old.bin"), strNew = dir.Path("new.bin");
  struct Case {
    unsigned long nMode;
    bool bExisting;
    int nResult;
    const char* szAssert;      // refusal message, or null
    const char* szAfterWrite;  // content after writing "XY" at the start; null: not written
  };
  const Case cases[] = {
      {KFILE_WRITE | KFILE_APPEND, true, 0, "!KFILE_HAS_APPEND(this) || !KFILE_HAS_WRITE(this)", nullptr},
      {KFILE_READ | KFILE_TRUNCATE, true, 0, "!KFILE_HAS_TRUNCATE(this)", nullptr},
      {KFILE_READ | KFILE_CREATE, true, 0, "!KFILE_HAS_CREATE(this)", nullptr},
      {KFILE_CREATE, true, 0, "FALSE", nullptr},
      {KFILE_READ, true, 1, nullptr, nullptr},
      {KFILE_READ, false, 0, nullptr, nullptr},
      {KFILE_READ | KFILE_WRITE, true, 1, nullptr, "XYcdef"},
      {KFILE_READ | KFILE_WRITE, false, 0, nullptr, nullptr},
      {KFILE_READ | KFILE_WRITE | KFILE_TRUNCATE, true, 1, nullptr, "XY"},
      {KFILE_READ | KFILE_WRITE | KFILE_CREATE, false, 1, nullptr, "XY"},
      {KFILE_WRITE, true, 1, nullptr, "XYcdef"},
      {KFILE_WRITE, false, 0, nullptr, nullptr},
      {KFILE_WRITE | KFILE_TRUNCATE, true, 1, nullptr, "XY"},
      {KFILE_WRITE | KFILE_CREATE, true, 1, nullptr, "XYcdef"},
      {KFILE_WRITE | KFILE_CREATE, false, 1, nullptr, "XY"},
      {KFILE_WRITE | KFILE_CREATE | KFILE_TRUNCATE, true, 1, nullptr, "XY"},
      {KFILE_APPEND, true, 1, nullptr, "abcdefXY"},
      {KFILE_APPEND, false, 0, nullptr, nullptr},
      {KFILE_APPEND | KFILE_CREATE, false, 1, nullptr, "XY"},
      {KFILE_APPEND | KFILE_TRUNCATE, true, 1, nullptr, "XY"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.nMode);
    Spit(strOld, "abcdef");
    std::remove(strNew.c_str());
    const std::string& strPath = c.bExisting ? strOld : strNew;
    CKTestLog log;
    CKFile f(strPath.c_str(), 0);
    EXPECT_EQ(c.nResult, f.Open(c.nMode));
    EXPECT_EQ(c.nResult, f.IsOpen());
    if (c.szAssert) {
      EXPECT_TRUE(log.LastIsAssert(c.szAssert, "src/KFile", CKTestLog::kReturnValue)) << log.Last();
    } else {
      EXPECT_TRUE(log.Asserts().empty());
    }
    if (c.nResult && c.bExisting) {  // truncate empties it first
      EXPECT_EQ((c.nMode & KFILE_TRUNCATE) ? 0 : 6, f.Size());
    }
    if (c.szAfterWrite) {
      EXPECT_EQ(2, f.Write((const unsigned char*)"XY", 2));
      f.Close();
      EXPECT_EQ(c.szAfterWrite, Slurp(strPath));
    }
  }
  // A directory is not a file; an empty name opens nothing.
  CKFile d(dir.Dir().c_str(), 0);
  EXPECT_EQ(0, d.Open(KFILE_READ));
  CKFile e;
  EXPECT_EQ(0, e.Open(KFILE_READ));
}

TEST(KFile, DiskReadSeekAndLength) {
  CKTestTempDir dir;
  const std::string strPath = dir.Path("data.bin");
  Spit(strPath, "0123456789");
  CKFile f(strPath.c_str(), KFILE_READ);
  ASSERT_EQ(1, f.Open());
  EXPECT_EQ(10, f.GetLength());
  EXPECT_EQ(0, f.Seek(-4, 2));
  EXPECT_EQ(6, f.GetPosition());
  CKMem mem;
  EXPECT_EQ(4u, f.Read(mem, 100));
  EXPECT_EQ(0, memcmp(mem.GetFromStart(0, 0), "6789", 4));
  EXPECT_EQ(0, f.Seek(2, 1));
  EXPECT_EQ(0, f.Seek(3, 3));
  EXPECT_EQ(5, f.GetPosition());
  EXPECT_EQ(-1, f.Seek(5, 7));
  EXPECT_EQ(10, f.GetFileLength());
  f.Close();
  EXPECT_EQ(1, f.Eof());
  EXPECT_EQ(0, f.GetLength());
  EXPECT_EQ(0u, f.Read(mem, 4));
  EXPECT_EQ(-1, f.Write((const unsigned char*)"x", 1));
  CKTestLog log;
  EXPECT_EQ(0, f.GetFileLength());
  EXPECT_TRUE(log.LastIsAssert("FALSE", "src/KFile", CKTestLog::kReturnValue));
}

TEST(KFile, MemoryWriteSeekAndGrowth) {
  CKFile f(nullptr, KFILE_MEMORY);
  EXPECT_EQ(1, f.Open());
  EXPECT_EQ(10, f.Write((const unsigned char*)"0123456789", 10));
  EXPECT_EQ(65536, f.AllocatedSize());
  EXPECT_EQ(0, f.Position());
  EXPECT_EQ(10, f.Size());
  EXPECT_EQ(0, f.Eof());

  struct SeekCase {
    __int64 nStart, nOffset;
    int nOrigin, nResult;
    __int64 nAfter;
  };
  const SeekCase seeks[] = {
      {0, 1, 2, -1, 0},  {0, -4, 2, 0, 6},  {0, 10, 1, 0, 10}, {0, 11, 1, -1, 0},
      {0, -1, 1, -1, 0}, {4, 3, 3, 0, 7},   {4, -4, 3, 0, 0},  {4, -5, 3, -1, 4},
      {4, 7, 3, -1, 4},  {4, 5, 7, -1, 4},  {4, 0, 0, -1, 4},  {4, -11, 2, -1, 4},
  };
  for (const SeekCase& c : seeks) {
    f.Seek(c.nStart, 1);
    EXPECT_EQ(c.nResult, f.Seek(c.nOffset, c.nOrigin)) << c.nOffset << " " << c.nOrigin;
    EXPECT_EQ(c.nAfter, f.Position()) << c.nOffset << " " << c.nOrigin;
  }
  f.SeekToEnd();
  EXPECT_EQ(1, f.Eof());

  // Reading copies from the position without moving it.
  f.Seek(7, 1);
  CKMem mem;
  EXPECT_EQ(3u, f.Read(mem, 50));
  EXPECT_EQ(7, f.Position());
  EXPECT_EQ(0, memcmp(mem.GetFromStart(0, 0), "789", 3));

  // Overwrite in the middle and grow across a step.
  f.Seek(8, 1);
  std::vector<unsigned char> big(70000, 'z');
  EXPECT_EQ(70000, f.Write(big.data(), big.size()));
  EXPECT_EQ(70008, f.Size());
  EXPECT_EQ(131072, f.AllocatedSize());

  f.SetSize(5);
  EXPECT_EQ(5, f.Size());
  EXPECT_EQ(5, f.Position());
  EXPECT_EQ("01234", Content(f));
  f.Free();
  EXPECT_EQ(0, f.Size());
  EXPECT_EQ(0, f.AllocatedSize());

  f.EnsureBufferPositionAdd(-3);
  EXPECT_EQ(0, f.AllocatedSize());
  f.EnsureBufferPositionAdd(65537);
  EXPECT_EQ(131072, f.AllocatedSize());

  // SetSize is for memory files only.
  CKTestLog log;
  CKFile disk("x", KFILE_READ);
  disk.SetSize(10);
  EXPECT_TRUE(log.LastIsAssert("KFILE_HAS_MEMORY(this)", "src/KFile", CKTestLog::kReturn));
}

TEST(KFile, DataViewsCopyAndDetach) {
  CKMem mem;
  char szHello[] = "hello";
  mem.Set(szHello, 5);
  CKFile f(nullptr, KFILE_MEMORY);
  f.RewindAndSetData(mem);
  EXPECT_EQ(5, f.Size());
  EXPECT_EQ("hello", Content(f));
  // A view, not a copy: the bytes are the caller's block.
  EXPECT_EQ(mem.GetFromStart(0, 0), f.MemData());

  CKFile g(f);
  EXPECT_NE(f.MemData(), g.MemData());
  EXPECT_EQ(0, g.FileCmp(f));
  f.SetDateTime(CKDateTime(0, 0));

  CKFile h;
  g.Detach(h);
  EXPECT_EQ("hello", Content(h));
  EXPECT_EQ(0, g.Size());
  EXPECT_EQ((__int64)KFILE_MEMORY, (__int64)h.Mode());
}

TEST(KFile, WholeFileZipAndCompare) {
  CKTestTempDir dir;
  const std::string strIn = dir.Path("in.bin"), strOut = dir.Path("out.bin");
  std::string strData;
  for (int i = 0; i < 5000; ++i) strData += (char)('a' + i % 7);
  Spit(strIn, strData);

  CKFile f(nullptr, KFILE_MEMORY);
  EXPECT_EQ(0, f.ReadWhole(dir.Path("missing").c_str()));
  ASSERT_EQ(1, f.ReadWhole(strIn.c_str()));
  EXPECT_EQ(5000, f.Size());
  EXPECT_EQ(1, f.WriteWhole(strOut.c_str()));
  EXPECT_EQ(strData, Slurp(strOut));

  CKFile copy(f);
  EXPECT_EQ(1, f.Zip(9));
  EXPECT_LT(f.Size(), 200);
  EXPECT_EQ(1, f.FileCmp(copy) == 0 ? 0 : 1);
  EXPECT_EQ(1, f.Unzip());
  EXPECT_EQ(0, f.FileCmp(copy));

  // Below 1024 bytes nothing is compressed; the size becomes the block's.
  CKFile small(nullptr, KFILE_MEMORY);
  std::vector<unsigned char> v(1000, 'q');
  small.Write(v.data(), v.size());
  const __int64 nBlock = small.AllocatedSize();
  EXPECT_EQ(1, small.Zip(9));
  EXPECT_EQ(nBlock, small.Size());
  EXPECT_EQ('q', small.MemData()[999]);

  CKTestLog log;
  CKFile disk(strIn.c_str(), KFILE_READ);
  EXPECT_EQ(0, disk.Zip(9));
  EXPECT_TRUE(log.LastIsAssert("KFILE_HAS_MEMORY(this)", "src/KFile", CKTestLog::kReturnValue));
  EXPECT_EQ(0, disk.Unzip());
}

TEST(KFile, CompareAndTrace) {
  auto Make = [](const char* szName, const std::string& str) {
    CKFile f(szName, KFILE_MEMORY);
    f.Write((const unsigned char*)str.data(), str.size());
    return f;
  };
  struct Case {
    std::string a, b;
    int nResult;
    std::string strLine;
  };
  const Case cases[] = {
      {"abc", "abc", 0, "Files are identical"},
      {"abcd", "abc", 1, "File size differs : 4, 3"},
      {"ab", "abc", -1, "File size differs : 2, 3"},
      {"ab\x80", "ab\x7f", 1, "Files differ on byte 2 : 128, 127"},
      {"Ab", "ab", -1, "Files differ on byte 0 : 65, 97"},
  };
  for (const Case& c : cases) {
    CKFile a = Make("one", c.a), b = Make("two", c.b);
    EXPECT_EQ(c.nResult, a.FileCmp(b));
    CKTestLog log;
    EXPECT_EQ(c.nResult, a.FileCmpTrace(b));
    const CKTestLog::Strings lines = log.Texts();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("Comparing one with two", lines[0]);
    EXPECT_EQ(c.strLine, lines[1]);
  }
}

TEST(KFile, OpenWriteAndRenameOver) {
  CKTestTempDir dir;
  const std::string strPath = dir.Path("w.txt");
  CKFile f(strPath.c_str(), 0);
  EXPECT_EQ(0, f.OpenWrite(0));  // must exist without truncate
  ASSERT_EQ(1, f.OpenWrite(1));
  f.Write((const unsigned char*)"one", 3);
  ASSERT_EQ(1, f.OpenWrite(0));
  f.Write((const unsigned char*)"two", 3);
  f.Close();
  EXPECT_EQ("onetwo", Slurp(strPath));
}

TEST(KFile, TempNamesAreUniqueAndCreated) {
  CKTestTempDir dir;
  std::vector<std::string> names[4];
  std::vector<std::thread> threads;
  for (auto& v : names)
    threads.emplace_back([&v, &dir] {
      for (int i = 0; i < 50; ++i) v.push_back((const char*)KFileGetTemp(dir.Dir().c_str(), "kt", 1));
    });
  for (auto& t : threads) t.join();
  std::set<std::string> seen;
  for (auto& v : names)
    for (const std::string& s : v) {
      EXPECT_TRUE(seen.insert(s).second) << s;
      EXPECT_EQ(0u, s.rfind(dir.Dir() + "/kt", 0)) << s;
      EXPECT_EQ(".tmp", s.substr(s.size() - 4));
      EXPECT_TRUE(std::ifstream(s).good()) << s;
    }
  EXPECT_EQ(200u, seen.size());
  // Without a directory: the system's temporary one; without the flag, no suffix.
  const std::string strSys = (const char*)KFileGetTemp(nullptr, "kq", 0);
  ASSERT_FALSE(strSys.empty());
  EXPECT_NE(".tmp", strSys.substr(strSys.size() - 4));
  EXPECT_TRUE(std::ifstream(strSys).good());
  std::remove(strSys.c_str());
  // A directory that does not exist gives no name, and says why.
  CKTestLog log;
  EXPECT_EQ(0u, KFileGetTemp(dir.Path("nope").c_str(), "kt", 0).GetLength());
  EXPECT_FALSE(log.Texts(10).empty());
}

// Files above 2 GiB: positions and sizes are 64-bit on every build. The file
// is sparse where the file system allows it.
TEST(KFile, BeyondTwoGiB) {
  CKTestTempDir dir;
  const std::string strPath = dir.Path("big.bin");
  const __int64 nFar = 0x90000000LL;  // 2.25 GiB
  CKFile f(strPath.c_str(), KFILE_WRITE | KFILE_CREATE | KFILE_TRUNCATE);
  ASSERT_EQ(1, f.Open());
  if (f.Seek(nFar, 1) != 0 || f.Write((const unsigned char*)"END", 3) != 3) {
    f.Close();
    GTEST_SKIP() << "the file system cannot hold a file above 2 GiB here";
  }
  f.Close();
  CKFile r(strPath.c_str(), KFILE_READ);
  ASSERT_EQ(1, r.Open());
  EXPECT_EQ(nFar + 3, r.Size());
  EXPECT_EQ(0, r.Seek(-3, 2));
  EXPECT_EQ(nFar, r.GetPosition());
  CKMem mem;
  EXPECT_EQ(3u, r.Read(mem, 3));
  EXPECT_EQ(0, memcmp(mem.GetFromStart(0, 0), "END", 3));
}
