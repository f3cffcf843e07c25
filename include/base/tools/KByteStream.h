// CKByteStream: the library's binary serialisation channel, a sequential
// reader or writer over memory, a disk file or a gzip file, with typed
// Put/Get operations whose byte layout is a persisted format (see
// docs/formats.md): little-endian integers, length-prefixed texts, 7-byte
// dates, 16-byte GUIDs.
#ifndef KELVOR_KBYTESTREAM_H
#define KELVOR_KBYTESTREAM_H

#include <cstring>

#include <base/classes/list/KList.h>
#include <base/classes/list/KPile.h>
#include <base/tools/KDateTime.h>
#include <base/tools/KDefs.h>
#include <base/tools/KFile.h>
#include <base/tools/KGuid.h>
#include <base/tools/KMem.h>
#include <base/tools/KString.h>

class CKGZFile;

// Default buffer size.
#define KBYTESTREAM_BUFSIZE 0x10000

class KELVOR_API CKByteStream {
public:
  CKByteStream();
  // The copy is closed: it takes the settings and the in-memory data.
  CKByteStream(const CKByteStream& s);
  CKByteStream& operator=(const CKByteStream& s);
  virtual ~CKByteStream();

  int InitWrite(const char* szFile, int bFlagName = 0, __int64 nBufSize = -1, int bTruncate = 1,
                int bZip = 0, int nLevel = -1);
  int InitWrite(CKFile* pFile = nullptr, __int64 nSize = -1, __int64 nBufSize = -1);
  int InitRead(const char* szFile, __int64 nBufSize = -1, int bZip = 0);
  int InitRead(CKFile* pFile);

  int WriteBytes(const unsigned char* p, __int64& n);
  int ReadBytes(CKMem& mem, __int64& n);
  CKMem GetWriteBytes(__int64 n);
  int FlushWriteBytes(__int64 n);

  __int64 GetPosition() const;
  int SetPosition(__int64 nPos);
  __int64 GetSize() const;
  __int64 UpdateSize();
  int Eof() const;
  void SetBuffSize(__int64 n);
  __int64 BuffSize() const { return m_nBuffSize; }
  int IsFileOpen() const;
  int IsFileBased() const;
  int IsReading() const { return m_bReading; }
  int IsWriting() const { return m_bWriting; }
  const CKString& FileName() const { return m_strFileName; }
  const CKString& TempName() const { return m_strTempName; }
  // The file object in use (null when closed or compressed).
  CKFile* File() const { return m_pFile; }

  int TermWrite();
  int TermRead();
  void Close();

  int ToFile(const char* szName, int bAppend);
  int ToFile(CKFile& file, int bAppend);
  int Zip(int nLevel);
  int Unzip();

  // ---- typed writes
  int Put(char c) { return PutRaw(&c, 1); }
  int Put(int n) {
    unsigned char b[4];
    Le32(b, (uint32_t)n);
    return PutRaw(b, 4);
  }
  int PutINT64(__int64 n) {
    unsigned char b[8];
    Le64(b, (uint64_t)n);
    return PutRaw(b, 8);
  }
  int Put(const CKGuid& g);
  int Put(const void* p, __int64 n) { return PutRaw(p, n); }
  int Put(CKMem& mem, __int64 n);
  int Put(const char* s);
  int Put(const CKDateTime& d);
  int Put(const CKList& list);
  int Put(const CKFastList& list);
  int Put(const CKListUINT64& list);
  int Put(const CKPileT<__int64>& pile);
  int Put(const CKListDateTime& list);
  int PutNL(const CKString& s);

  // ---- typed reads
  int Get(char& c) { return GetRaw(&c, 1); }
  int Get(int& n) {
    unsigned char b[4];
    if (m_pREnd - m_pRCur >= 4) {
      memcpy(b, m_pRCur, 4);
      m_pRCur += 4;
    } else if (ReadSlow(b, 4) != 4) {
      return 0;
    }
    n = (int)Rd32(b);
    return 1;
  }
  int GetINT64(__int64& n) {
    unsigned char b[8];
    if (!GetRaw(b, 8)) return 0;
    n = (__int64)Rd64(b);
    return 1;
  }
  int Get(CKGuid& g);
  int Get(void* p, __int64 n) { return GetRaw(p, n); }
  int Get(CKMem& mem, __int64 n);
  int Get(CKString& s);
  int Get(CKDateTime& d);
  int GetNL(CKString& s);

private:
  // Fast paths: the bytes fit in the current window; the slow paths refill,
  // flush or grow it.
  int PutRaw(const void* p, __int64 n) {
    if (n >= 0 && m_pWEnd - m_pWCur >= n) {
      if (n) memcpy(m_pWCur, p, (size_t)n);
      m_pWCur += n;
      return 1;
    }
    return WriteSlow((const unsigned char*)p, n) == n;
  }
  int GetRaw(void* p, __int64 n) {
    if (n >= 0 && m_pREnd - m_pRCur >= n) {
      if (n) memcpy(p, m_pRCur, (size_t)n);
      m_pRCur += n;
      return 1;
    }
    return n >= 0 && ReadSlow((unsigned char*)p, n) == n;
  }
  static void Le32(unsigned char* b, uint32_t v) {
    b[0] = (unsigned char)v;
    b[1] = (unsigned char)(v >> 8);
    b[2] = (unsigned char)(v >> 16);
    b[3] = (unsigned char)(v >> 24);
  }
  static void Le64(unsigned char* b, uint64_t v) {
    Le32(b, (uint32_t)v);
    Le32(b + 4, (uint32_t)(v >> 32));
  }
  static uint32_t Rd32(const unsigned char* b) {
    return (uint32_t)b[0] | (uint32_t)b[1] << 8 | (uint32_t)b[2] << 16 | (uint32_t)b[3] << 24;
  }
  static uint64_t Rd64(const unsigned char* b) {
    return (uint64_t)Rd32(b) | (uint64_t)Rd32(b + 4) << 32;
  }

  __int64 WriteSlow(const unsigned char* p, __int64 n);
  // Bytes read (fewer at the end of the data or on failure).
  __int64 ReadSlow(unsigned char* p, __int64 n);
  int PutText(const char* p, uint32_t nLen);
  // Makes room for n bytes in the write window (flushing or growing).
  int WriteRoom(__int64 n);
  // Hands the window's bytes to the file object or the gzip file.
  int Flush();
  // A new read window; false at the end of the data or on failure.
  int Refill();
  // Bytes that remain to be read, -1 when unknown (gzip).
  __int64 ReadRemaining() const;
  int IsMemoryFile() const;
  int StartWrite(CKFile* pFile, __int64 nBufSize);
  void ResetWindows();
  void Rebase();

  CKString m_strFileName;
  CKString m_strTempName;
  CKGZFile* m_pGZ;
  CKFile m_fileRead;
  CKFile m_fileWrite;
  CKFile* m_pFile;
  __int64 m_nBuffSize;
  int m_bReading;
  int m_bWriting;
  int m_bZip;
  int m_bSourceEnd;      // the gzip or disk source gave its last byte
  CKMem m_memBuf;        // the window of disk and gzip streams
  unsigned char* m_pWin; // the window's first byte
  unsigned char* m_pWCur;
  unsigned char* m_pWEnd;
  unsigned char* m_pRCur;
  unsigned char* m_pREnd;
  __int64 m_nWinPos;     // stream position of m_pWin
  __int64 m_nSize;       // bytes of data (the high-water mark when writing)
};

#endif  // KELVOR_KBYTESTREAM_H
