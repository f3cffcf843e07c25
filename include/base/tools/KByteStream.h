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

  // Writes to the disk file szFile (a new temporary file when null or
  // empty), through a window of nBufSize bytes (-1 or 0: the default). An
  // existing file is emptied, or with bTruncate 0 extended at its end.
  // bFlagName records the name as TempName() too. bZip (only with
  // bTruncate) writes a gzip file at zlib level nLevel instead.
  int InitWrite(const char* szFile, int bFlagName = 0, __int64 nBufSize = -1, int bTruncate = 1,
                int bZip = 0, int nLevel = -1);
  // Writes into pFile from its position: a memory file (room for nSize bytes
  // reserved at once, the buffer size when -1) or a disk file (opened when it
  // is not). Null: the stream's own memory file.
  int InitWrite(CKFile* pFile = nullptr, __int64 nSize = -1, __int64 nBufSize = -1);
  // Reads the disk file szFile (bZip: a gzip file) through a window of
  // nBufSize bytes.
  int InitRead(const char* szFile, __int64 nBufSize = -1, int bZip = 0);
  // Reads pFile from its position; a memory file is read in place.
  int InitRead(CKFile* pFile);

  // n in: the bytes wanted; n out: the bytes written or read. TRUE when all
  // of them were written; ReadBytes appends to mem and is TRUE when it read
  // any (n is cut to what remains).
  int WriteBytes(const unsigned char* p, __int64& n);
  int ReadBytes(CKMem& mem, __int64& n);
  // Zero-copy writing: a view whose offset is where the next n bytes go, in
  // the stream's own window; fill it, then FlushWriteBytes(k) with the k
  // bytes really written (k <= n). Empty when the room cannot be made.
  CKMem GetWriteBytes(__int64 n);
  int FlushWriteBytes(__int64 n);

  __int64 GetPosition() const;
  // Not on gzip streams. A writer flushes first and may not move past the
  // end of a memory file; a reader moves within its window when it can.
  int SetPosition(__int64 nPos);
  // A writer: the larger of the position and the highest byte written; a
  // reader: the size of the source (gzip: the bytes decompressed so far).
  __int64 GetSize() const;
  // Stores GetSize() as the size and returns it.
  __int64 UpdateSize();
  // TRUE when nothing is left to read (or the stream is not reading); on a
  // disk or gzip source it may read ahead to tell.
  int Eof() const;
  // Window size for disk and gzip streams; a writer flushes before the
  // change. Memory streams have no window.
  void SetBuffSize(__int64 n);
  __int64 BuffSize() const { return m_nBuffSize; }
  int IsFileOpen() const;
  // Writing to or reading from disk or gzip, not memory.
  int IsFileBased() const;
  int IsReading() const { return m_bReading; }
  int IsWriting() const { return m_bWriting; }
  const CKString& FileName() const { return m_strFileName; }
  const CKString& TempName() const { return m_strTempName; }
  // The file object in use (null when closed or compressed).
  CKFile* File() const { return m_pFile; }

  // Flushes and finishes the file (the gzip trailer; a file the stream
  // opened is closed). FALSE when a byte could not be written.
  int TermWrite();
  int TermRead();
  // Ends whichever of the two is in progress.
  void Close();

  // Copies the whole content written or read so far into a file (replaced,
  // or appended to with bAppend). Not on gzip streams.
  int ToFile(const char* szName, int bAppend);
  int ToFile(CKFile& file, int bAppend);
  // Memory streams only: compress or expand the whole content in place with
  // zlib (CKMem::Zip); a writer then goes on at the end, a reader starts
  // again at the beginning.
  int Zip(int nLevel);
  int Unzip();

  // ---- typed writes
  int Put(char c) { return PutRaw(&c, 1); }
  int Put(int n) {
    unsigned char* p = m_pWCur;
    if (m_pWEnd - p >= 4) {
      Le32(p, (uint32_t)n);
      m_pWCur = p + 4;
      return 1;
    }
    unsigned char b[4];
    Le32(b, (uint32_t)n);
    return WriteSlow(b, 4) == 4;
  }
  int PutINT64(__int64 n) {
    unsigned char* p = m_pWCur;
    if (m_pWEnd - p >= 8) {
      Le64(p, (uint64_t)n);
      m_pWCur = p + 8;
      return 1;
    }
    unsigned char b[8];
    Le64(b, (uint64_t)n);
    return WriteSlow(b, 8) == 8;
  }
  int Put(const CKGuid& g);
  int Put(const void* p, __int64 n) { return PutRaw(p, n); }
  // n bytes of mem from its start offset.
  int Put(CKMem& mem, __int64 n);
  // Length (characters + 1), the characters and a zero byte.
  int Put(const char* s);
  int Put(const CKDateTime& d);
  int Put(const CKList& list);
  int Put(const CKFastList& list);
  int Put(const CKListUINT64& list);
  int Put(const CKPileT<__int64>& pile);
  int Put(const CKListDateTime& list);
  // The characters and a zero byte, with no length in front.
  int PutNL(const CKString& s);

  // ---- typed reads
  int Get(char& c) { return GetRaw(&c, 1); }
  int Get(int& n) {
    unsigned char* p = m_pRCur;
    if (m_pREnd - p >= 4) {
      n = (int)Rd32(p);
      m_pRCur = p + 4;
      return 1;
    }
    unsigned char b[4];
    if (ReadSlow(b, 4) != 4) return 0;
    n = (int)Rd32(b);
    return 1;
  }
  int GetINT64(__int64& n) {
    unsigned char* p = m_pRCur;
    if (m_pREnd - p >= 8) {
      n = (__int64)Rd64(p);
      m_pRCur = p + 8;
      return 1;
    }
    unsigned char b[8];
    if (ReadSlow(b, 8) != 8) return 0;
    n = (__int64)Rd64(b);
    return 1;
  }
  int Get(CKGuid& g);
  int Get(void* p, __int64 n) { return GetRaw(p, n); }
  // Appends n bytes to mem; FALSE (nothing allocated) when fewer remain.
  int Get(CKMem& mem, __int64 n);
  // A text as Put wrote it. A length of 0 or above 128 MiB gives the empty
  // text and TRUE, with only the length consumed.
  int Get(CKString& s);
  int Get(CKDateTime& d);
  // The text up to the next zero byte (PutNL); FALSE at the end of the data
  // without one, s keeping what was read.
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
  template <class L>
  int PutTexts(const L& list);
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
