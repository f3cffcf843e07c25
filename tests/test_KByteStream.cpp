// CKByteStream: the wire bytes of every typed operation, the three kinds of
// target (memory, disk, gzip) with windows small enough to be crossed, the
// open rules, and gzip interoperability with gzip(1).
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <base/tools/KByteStream.h>
#include <base/tools/KGZFile.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

typedef std::vector<unsigned char> Bytes;

std::string Slurp(const std::string& strPath) {
  std::ifstream in(strPath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Spit(const std::string& strPath, const std::string& strData) {
  std::ofstream(strPath, std::ios::binary) << strData;
}

// What the writer puts into a fresh memory stream.
Bytes Encode(const std::function<void(CKByteStream&)>& fWrite) {
  CKByteStream s;
  EXPECT_EQ(1, s.InitWrite());
  fWrite(s);
  EXPECT_EQ(1, s.TermWrite());
  const CKFile* f = s.File();
  return Bytes(f->MemData(), f->MemData() + f->Size());
}

// A memory file holding the bytes.
CKFile MemFile(const Bytes& b) {
  CKFile f(nullptr, KFILE_MEMORY);
  if (!b.empty()) f.Write(b.data(), b.size());
  return f;
}

CKDateTime Date(int y, int mo, int d, int h, int mi, int s) {
  CKDateTime dt;
  dt.SetDateTime(y, mo, d, h, mi, s);
  return dt;
}

bool HaveTool(const char* szTool) {
  const std::string strCmd = std::string("command -v ") + szTool + " >/dev/null 2>&1";
  return std::system(strCmd.c_str()) == 0;
}

}  // namespace

TEST(KByteStream, WireBytesOfEachPut) {
  CKGuid g;
  g.Data1 = 0x04030201;
  g.Data2 = 0x0605;
  g.Data3 = 0x0807;
  for (int i = 0; i < 8; ++i) g.Data4[i] = (unsigned char)(9 + i);
  CKList list;
  list.Add("a");
  list.Add("bc");
  CKFastList fast;
  fast.Add("xy");
  CKListUINT64 u64;
  u64.Add(0x0102030405060708ULL);
  CKPileT<__int64> i64;
  i64.Add(-1);
  CKListDateTime dates;
  dates.Add(Date(2006, 3, 15, 10, 20, 30));
  struct Case {
    const char* szName;
    std::function<void(CKByteStream&)> fWrite;
    Bytes want;
  };
  const Case cases[] = {
      {"int", [](CKByteStream& s) { s.Put(12345); }, {0x39, 0x30, 0, 0}},
      {"negative int", [](CKByteStream& s) { s.Put(-2); }, {0xFE, 0xFF, 0xFF, 0xFF}},
      {"int64", [](CKByteStream& s) { s.PutINT64(-2); },
       {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
      {"char", [](CKByteStream& s) { s.Put('A'); }, {0x41}},
      {"text", [](CKByteStream& s) { s.Put("abc"); }, {4, 0, 0, 0, 0x61, 0x62, 0x63, 0}},
      {"null text", [](CKByteStream& s) { s.Put((const char*)nullptr); }, {0, 0, 0, 0}},
      {"empty text", [](CKByteStream& s) { s.Put(""); }, {1, 0, 0, 0, 0}},
      {"NL text", [](CKByteStream& s) { s.PutNL(CKString("hi")); }, {0x68, 0x69, 0}},
      {"date", [](CKByteStream& s) { s.Put(Date(2006, 3, 15, 10, 20, 30)); },
       {0xD6, 0x07, 0x03, 0x0F, 0x14, 0x0A, 0x1E}},
      {"guid", [&](CKByteStream& s) { s.Put(g); },
       {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}},
      {"list", [&](CKByteStream& s) { s.Put(list); },
       {2, 0, 0, 0, 2, 0, 0, 0, 0x61, 0, 3, 0, 0, 0, 0x62, 0x63, 0}},
      {"fast list", [&](CKByteStream& s) { s.Put(fast); }, {1, 0, 0, 0, 3, 0, 0, 0, 0x78, 0x79, 0}},
      {"uint64 list", [&](CKByteStream& s) { s.Put(u64); }, {1, 0, 0, 0, 8, 7, 6, 5, 4, 3, 2, 1}},
      {"int64 pile", [&](CKByteStream& s) { s.Put(i64); },
       {1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
      {"date list", [&](CKByteStream& s) { s.Put(dates); },
       {1, 0, 0, 0, 0xD6, 0x07, 0x03, 0x0F, 0x14, 0x0A, 0x1E}},
      {"raw", [](CKByteStream& s) { s.Put("\x01\x00\x02", (__int64)3); }, {1, 0, 2}},
  };
  for (const Case& c : cases) EXPECT_EQ(c.want, Encode(c.fWrite)) << c.szName;
}

TEST(KByteStream, TypedReadsAndTheirFailures) {
  // Each input, the text Get(CKString&) gives, and its result.
  struct TextCase {
    Bytes in;
    int nResult;
    std::string strWant;
  };
  const TextCase texts[] = {
      {{4, 0, 0, 0, 0x61, 0x62, 0x63, 0}, 1, "abc"},
      {{2, 0, 0, 0, 0x41, 0x42}, 0, ""},           // last byte not zero
      {{0, 0, 0, 0}, 1, ""},
      {{1, 0, 0, 0, 0}, 1, ""},
      {{1, 0, 0, 0x08, 0x61}, 1, ""},              // above 128 MiB: empty, no read
      {{0, 0, 0, 0x08}, 0, ""},                    // exactly 128 MiB: the bytes are not there
      {{0xFF, 0xFF, 0xFF, 0xFF, 0}, 0, ""},        // negative
      {{9, 0, 0, 0, 0x61, 0}, 0, ""},              // truncated
      {{4, 0, 0}, 0, ""},                          // no length
  };
  for (const TextCase& c : texts) {
    CKFile f = MemFile(c.in);
    CKByteStream s;
    ASSERT_EQ(1, s.InitRead(&f));
    CKString str("old");
    EXPECT_EQ(c.nResult, s.Get(str));
    EXPECT_EQ(c.strWant, std::string(str.GetString(), str.GetLength()));
  }
  // The oversized length leaves the stream just after it.
  {
    CKFile f = MemFile({1, 0, 0, 0x08, 0x61});
    CKByteStream s;
    s.InitRead(&f);
    CKString str;
    s.Get(str);
    char c = 0;
    EXPECT_EQ(1, s.Get(c));
    EXPECT_EQ('a', c);
  }
  // Dates come back with hour and minute exchanged.
  {
    CKFile f = MemFile({0xD6, 0x07, 0x03, 0x0F, 0x14, 0x0A, 0x1E, 0xD6, 0x07});
    CKByteStream s;
    s.InitRead(&f);
    CKDateTime d;
    ASSERT_EQ(1, s.Get(d));
    EXPECT_EQ(2006, d.GetYear());
    EXPECT_EQ(3, d.GetMonth());
    EXPECT_EQ(15, d.GetDay());
    EXPECT_EQ(20, d.GetHour());
    EXPECT_EQ(10, d.GetMinute());
    EXPECT_EQ(30, d.GetSecond());
    EXPECT_EQ(0, s.Get(d));  // two bytes left: fails, null date
    EXPECT_TRUE(d.IsNull());
  }
  // Every truncation of a sequence of values fails on the value it cuts.
  const Bytes full = Encode([](CKByteStream& s) {
    s.Put(7);
    s.PutINT64(-9);
    s.Put("text");
    s.Put(CKGuid(true));
    s.Put(Date(1999, 12, 31, 23, 59, 58));
    s.PutNL(CKString("nl"));
  });
  for (size_t n = 0; n <= full.size(); ++n) {
    CKFile f = MemFile(Bytes(full.begin(), full.begin() + n));
    CKByteStream s;
    s.InitRead(&f);
    int i = 0;
    __int64 l = 0;
    CKString str;
    CKGuid gg;
    CKDateTime d;
    const int nOk = s.Get(i) + s.GetINT64(l) + s.Get(str) + s.Get(gg) + s.Get(d) + s.GetNL(str);
    const size_t ends[] = {4, 12, 21, 37, 44, 47};
    int nWant = 0;
    while (nWant < 6 && ends[nWant] <= n) ++nWant;
    EXPECT_EQ(nWant, nOk) << n;
  }
}

TEST(KByteStream, RoundTripOverEveryTarget) {
  CKTestTempDir dir;
  std::string strLong(200000, 'x');
  for (size_t i = 0; i < strLong.size(); i += 7) strLong[i] = (char)('a' + i % 26);
  auto Write = [&](CKByteStream& s) {
    for (int i = 0; i < 3000; ++i) {
      s.Put(i * 7919);
      s.PutINT64((__int64)i << 40);
      s.Put(i % 3 ? "short" : "");
    }
    s.Put(strLong.c_str());
    s.PutNL(CKString("line"));
    s.Put(strLong.data(), (__int64)strLong.size());
  };
  auto Check = [&](CKByteStream& s) {
    for (int i = 0; i < 3000; ++i) {
      int n = 0;
      __int64 l = 0;
      CKString str;
      ASSERT_EQ(1, s.Get(n));
      ASSERT_EQ(i * 7919, n);
      ASSERT_EQ(1, s.GetINT64(l));
      ASSERT_EQ((__int64)i << 40, l);
      ASSERT_EQ(1, s.Get(str));
      ASSERT_STREQ(i % 3 ? "short" : "", str);
    }
    CKString str;
    ASSERT_EQ(1, s.Get(str));
    EXPECT_TRUE(strLong == str.GetString());
    ASSERT_EQ(1, s.GetNL(str));
    EXPECT_STREQ("line", str);
    std::string strRaw(strLong.size(), 0);
    ASSERT_EQ(1, s.Get(&strRaw[0], (__int64)strRaw.size()));
    EXPECT_EQ(strLong, strRaw);
    EXPECT_EQ(1, s.Eof());
    char c;
    EXPECT_EQ(0, s.Get(c));
  };
  for (__int64 nBuf : {(__int64)-1, (__int64)16, (__int64)1000}) {
    SCOPED_TRACE(nBuf);
    // Memory.
    {
      CKFile f(nullptr, KFILE_MEMORY);
      CKByteStream s;
      ASSERT_EQ(1, s.InitWrite(&f, 16, nBuf));
      Write(s);
      const __int64 nSize = s.GetSize();
      ASSERT_EQ(1, s.TermWrite());
      EXPECT_EQ(nSize, f.Size());
      EXPECT_EQ(0, f.Position());
      CKByteStream r;
      ASSERT_EQ(1, r.InitRead(&f));
      Check(r);
    }
    // Disk and gzip.
    for (int bZip = 0; bZip < 2; ++bZip) {
      const std::string strPath = dir.Path(bZip ? "s.gz" : "s.bin");
      CKByteStream s;
      ASSERT_EQ(1, s.InitWrite(strPath.c_str(), 0, nBuf, 1, bZip, 6));
      EXPECT_EQ(1, s.IsFileBased());
      Write(s);
      s.Close();
      CKByteStream r;
      ASSERT_EQ(1, r.InitRead(strPath.c_str(), nBuf, bZip));
      Check(r);
      EXPECT_EQ(1, r.TermRead());
    }
  }
}

TEST(KByteStream, OpenRulesAndTemporaryName) {
  CKTestTempDir dir;
  const std::string strPath = dir.Path("a.bin");
  Spit(strPath, "abc");
  CKByteStream s;
  // write|create keeps the content and goes on at its end.
  ASSERT_EQ(1, s.InitWrite(strPath.c_str(), 0, -1, 0, 0, 0));
  EXPECT_EQ(3, s.GetPosition());
  s.Put('d');
  EXPECT_EQ(4, s.GetSize());
  s.Close();
  EXPECT_EQ("abcd", Slurp(strPath));
  // Truncate empties it.
  ASSERT_EQ(1, s.InitWrite(strPath.c_str(), 0, -1, 1, 0, 0));
  s.Put('z');
  s.Close();
  EXPECT_EQ("z", Slurp(strPath));
  // Compression without truncate is reported and writes plainly.
  {
    CKTestLog log;
    ASSERT_EQ(1, s.InitWrite(strPath.c_str(), 0, -1, 0, 1, 9));
    EXPECT_TRUE(log.HasAssert("!bZip", "src/KFile"));
    s.Put('y');
    s.Close();
    EXPECT_EQ("zy", Slurp(strPath));
  }
  // No name: a fresh temporary file, recorded when asked.
  ASSERT_EQ(1, s.InitWrite(nullptr, 1));
  const std::string strTemp = (const char*)s.TempName();
  EXPECT_FALSE(strTemp.empty());
  EXPECT_EQ(strTemp, std::string((const char*)s.FileName()));
  s.Put("temp");
  s.Close();
  EXPECT_EQ(9u, Slurp(strTemp).size());
  std::remove(strTemp.c_str());
  // Failures.
  EXPECT_EQ(0, s.InitRead(dir.Path("missing").c_str()));
  EXPECT_EQ(0, s.InitRead(dir.Path("missing").c_str(), -1, 1));
  EXPECT_EQ(0, s.InitWrite(dir.Path("no/such/dir").c_str()));
  CKTestLog log;
  EXPECT_EQ(0, s.TermRead());
  EXPECT_TRUE(log.LastIsAssert("m_bReading", "src/KFile", CKTestLog::kReturnValue));
  EXPECT_EQ(0, s.Put(1));
  int n;
  EXPECT_EQ(0, s.Get(n));
}

TEST(KByteStream, PositionsBytesAndWholeContent) {
  CKTestTempDir dir;
  CKByteStream s;
  ASSERT_EQ(1, s.InitWrite());
  s.Put(1);
  s.Put(2);
  EXPECT_EQ(8, s.GetPosition());
  ASSERT_EQ(1, s.SetPosition(0));
  s.Put(9);
  EXPECT_EQ(0, s.SetPosition(9));
  EXPECT_EQ(8, s.GetSize());
  // Room in the buffer, filled by the caller, then committed.
  CKMem room = s.GetWriteBytes(3);
  s.SetPosition(8);
  room = s.GetWriteBytes(3);
  char szXyz[] = "xyz";
  ASSERT_EQ(1u, room.Write(szXyz, 3));
  ASSERT_EQ(1, s.FlushWriteBytes(3));
  EXPECT_EQ(11, s.GetSize());
  __int64 n = 2;
  EXPECT_EQ(1, s.WriteBytes((const unsigned char*)"!?", n));
  EXPECT_EQ(2, n);
  const std::string strOut = dir.Path("out.bin");
  EXPECT_EQ(1, s.ToFile(strOut.c_str(), 0));
  EXPECT_EQ(1, s.ToFile(strOut.c_str(), 1));
  const std::string strOne("\x09\0\0\0\x02\0\0\0xyz!?", 13);
  EXPECT_EQ(strOne + strOne, Slurp(strOut));

  // Zip then unzip in memory gives the bytes back.
  std::string strBig;
  for (int i = 0; i < 4000; ++i) strBig += "block ";
  ASSERT_EQ(1, s.InitWrite());
  s.Put(strBig.data(), (__int64)strBig.size());
  ASSERT_EQ(1, s.Zip(9));
  EXPECT_LT(s.GetSize(), 1000);
  ASSERT_EQ(1, s.Unzip());
  EXPECT_EQ((__int64)strBig.size(), s.GetSize());
  s.TermWrite();
  EXPECT_EQ(0, memcmp(s.File()->MemData(), strBig.data(), strBig.size()));

  // Reading: positions and partial reads.
  CKFile f = MemFile({1, 2, 3, 4, 5});
  CKByteStream r;
  ASSERT_EQ(1, r.InitRead(&f));
  EXPECT_EQ(5, r.GetSize());
  ASSERT_EQ(1, r.SetPosition(3));
  CKMem mem;
  n = 10;
  EXPECT_EQ(1, r.ReadBytes(mem, n));
  EXPECT_EQ(2, n);
  EXPECT_EQ(2u, mem.GetLength());
  EXPECT_EQ(1, r.Eof());
  n = 1;
  EXPECT_EQ(0, r.ReadBytes(mem, n));
  EXPECT_EQ(0, n);

  // A disk stream copies its file out, and seeks.
  const std::string strDisk = dir.Path("disk.bin");
  ASSERT_EQ(1, s.InitWrite(strDisk.c_str(), 0, 4));
  s.Put("disk stream");
  EXPECT_EQ(1, s.SetPosition(4));
  s.Put('D');
  CKFile copy(nullptr, KFILE_MEMORY);
  EXPECT_EQ(1, s.ToFile(copy, 0));
  EXPECT_EQ(std::string("\x0c\0\0\0Disk stream\0", 16), std::string((const char*)copy.MemData(), 16));
  s.Close();

  // Compressed streams have no position.
  CKTestLog log;
  ASSERT_EQ(1, s.InitWrite(dir.Path("z.gz").c_str(), 0, -1, 1, 1, 1));
  EXPECT_EQ(0, s.SetPosition(0));
  EXPECT_TRUE(log.LastIsAssert("!m_bZip", "src/KFile", CKTestLog::kReturnValue));
}

TEST(KByteStream, GzipInteroperatesWithGzipTool) {
  if (!HaveTool("gzip")) GTEST_SKIP() << "gzip(1) is not installed";
  CKTestTempDir dir;
  std::string strData;
  for (int i = 0; i < 50000; ++i) strData += (char)(i * 31 % 251);
  // Ours, read by gzip(1).
  const std::string strOurs = dir.Path("ours.gz");
  CKByteStream s;
  ASSERT_EQ(1, s.InitWrite(strOurs.c_str(), 0, -1, 1, 1, 9));
  s.Put(strData.data(), (__int64)strData.size());
  ASSERT_EQ(1, s.TermWrite());
  const std::string strCmd = "gzip -t '" + strOurs + "' && gzip -dc '" + strOurs + "' > '" +
                             dir.Path("ours.out") + "'";
  ASSERT_EQ(0, std::system(strCmd.c_str()));
  EXPECT_EQ(strData, Slurp(dir.Path("ours.out")));
  // gzip(1)'s, read by us.
  Spit(dir.Path("theirs"), strData);
  ASSERT_EQ(0, std::system(("gzip -9 '" + dir.Path("theirs") + "'").c_str()));
  ASSERT_EQ(1, s.InitRead(dir.Path("theirs.gz").c_str(), -1, 1));
  std::string strBack(strData.size(), 0);
  ASSERT_EQ(1, s.Get(&strBack[0], (__int64)strBack.size()));
  EXPECT_EQ(strData, strBack);
  EXPECT_EQ(1, s.Eof());
  s.Close();
  // A damaged gzip file fails the read instead of inventing bytes.
  std::string strBad = Slurp(dir.Path("theirs.gz"));
  strBad.resize(strBad.size() / 2);
  Spit(dir.Path("bad.gz"), strBad);
  CKTestLog log;
  ASSERT_EQ(1, s.InitRead(dir.Path("bad.gz").c_str(), -1, 1));
  EXPECT_EQ(0, s.Get(&strBack[0], (__int64)strBack.size()));
}

TEST(KByteStream, CopiesAreClosedWithTheData) {
  CKByteStream s;
  s.InitWrite();
  s.Put("kept");
  CKByteStream t(s);
  EXPECT_EQ(0, t.IsFileOpen());
  s.TermWrite();
  CKByteStream u;
  u = s;
  EXPECT_EQ(s.File()->Size(), 9);
}
