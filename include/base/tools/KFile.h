// CKFile: a file on disk (a C run-time stream) or entirely in memory (a
// CKMem), behind one interface, so that streams, variants and blobs treat a
// file and a memory image of it alike. KFileGetTemp: unique temporary names.
#ifndef KELVOR_KFILE_H
#define KELVOR_KFILE_H

#include <cstdio>

#include <base/tools/KDateTime.h>
#include <base/tools/KDefs.h>
#include <base/tools/KMem.h>
#include <base/tools/KString.h>

// Mode flags.
#define KFILE_READ 1
#define KFILE_WRITE 2
#define KFILE_APPEND 4
#define KFILE_TRUNCATE 16
#define KFILE_CREATE 32
#define KFILE_MEMORY 64

#define KFILE_HAS_READ(p) (((p)->m_nMode & KFILE_READ) != 0)
#define KFILE_HAS_WRITE(p) (((p)->m_nMode & KFILE_WRITE) != 0)
#define KFILE_HAS_APPEND(p) (((p)->m_nMode & KFILE_APPEND) != 0)
#define KFILE_HAS_TRUNCATE(p) (((p)->m_nMode & KFILE_TRUNCATE) != 0)
#define KFILE_HAS_CREATE(p) (((p)->m_nMode & KFILE_CREATE) != 0)
#define KFILE_HAS_MEMORY(p) (((p)->m_nMode & KFILE_MEMORY) != 0)

// Memory-mode buffers grow in steps of this many bytes.
#define KFILE_GROW_STEP 0x10000

class KELVOR_API CKFile {
public:
  // A file named szName with the KFILE_* mode bits; nothing is opened yet.
  // With KFILE_MEMORY the content lives in the buffer (m_mem) only.
  CKFile(const char* szName = nullptr, unsigned long nMode = 0);
  // A copy shares no stream: it gets the name, mode, size, position, date
  // and a deep copy of the data buffer.
  CKFile(const CKFile& f);
  CKFile& operator=(const CKFile& f);
  virtual ~CKFile();

  // Closes the open stream first, then sets the mode bits.
  void SetMode(unsigned long nMode);
  unsigned long Mode() const { return m_nMode; }
  void SetFileName(const char* szName);
  const CKString& FileName() const { return m_strName; }
  void SetDateTime(const CKDateTime& d) { m_dt = d; }
  const CKDateTime& DateTime() const { return m_dt; }

  // Opens the named file with nMode (0: the mode set before); a memory file
  // has nothing to open and succeeds.
  int Open(unsigned long nMode = 0);
  int Open(const char* szName, unsigned long nMode);
  // Opens for writing: emptied (bTruncate), or appended to an existing file.
  int OpenWrite(int bTruncate);
  int IsOpen() const { return m_pFile != nullptr; }
  void Close();

  // Appends up to n bytes from the position to dst; the count read (0 at
  // the end or on failure). Write: the count written, -1 on failure; a memory
  // file grows by KFILE_GROW_STEP steps.
  unsigned __int64 Read(CKMem& dst, unsigned __int64 n);
  __int64 Write(const unsigned char* p, unsigned __int64 n);
  __int64 Write(const CKMem& src, unsigned __int64 n);

  // Origins: 1 from the beginning, 2 from the end, 3 from the position.
  int Seek(__int64 nOffset, int nOrigin);
  void Rewind() { Seek(0, 1); }
  void SeekToEnd() { Seek(0, 2); }
  __int64 Position() const { return m_nPosition; }
  // The stream's own position (Position(): the recorded one, which is what
  // memory files use).
  __int64 GetPosition() const;
  int Eof() const;

  __int64 Size() const { return m_nSize; }
  // Size() is the recorded content size; GetLength measures the open stream
  // (memory files: Size(); closed: 0); GetFileLength flushes first.
  __int64 GetLength() const;
  __int64 GetFileLength();
  // Memory files: the content size (the buffer resized to it), and the
  // buffer's allocation alone.
  void SetSize(unsigned __int64 n);
  __int64 AllocatedSize() const { return m_mem.Size(); }
  void SetAllocatedSize(unsigned __int64 n);
  // Grows the buffer (by KFILE_GROW_STEP steps) so that n bytes fit from the position.
  void EnsureBufferPositionAdd(__int64 n);

  CKMem& GetData() { return m_mem; }
  const CKMem& GetData() const { return m_mem; }
  // Closes, then the content becomes a view on mem's block; the position is
  // kept within it (RewindAndSetData: back to 0).
  void SetData(const CKMem& mem);
  void RewindAndSetData(const CKMem& mem);
  void UpdateSize() { m_nSize = m_mem.Size(); }
  // Empties the content: buffer, size and position.
  void Free();
  // dst takes the content (buffer, size, position, name, mode, date); this
  // file is left closed and empty.
  void Detach(CKFile& dst);

  // The whole named file into the buffer (position 0), and the buffer's
  // content into the file, replacing it.
  int ReadWhole(const char* szName);
  int ReadWhole();
  int WriteWhole(const char* szName = nullptr);

  // Memory files: compress or expand the content in place with zlib (CKMem::Zip).
  int Zip(int nLevel);
  int Unzip();

  // Contents compared as sizes first, then bytes (-1, 0, 1); the Trace form
  // logs what it finds.
  int FileCmp(const CKFile& other) const;
  int FileCmpTrace(CKFile& other);

  // The content's first byte in memory mode (null without a block) and the
  // bytes the block holds from there.
  unsigned char* MemData() const {
    return m_mem.m_pMemRef && m_mem.m_pMemRef->pData ? m_mem.m_pMemRef->pData + m_mem.m_nStartOffset
                                                     : nullptr;
  }
  __int64 MemRoom() const {
    return MemData() && m_mem.m_nAllocatedSize > m_mem.m_nStartOffset
               ? (__int64)(m_mem.m_nAllocatedSize - m_mem.m_nStartOffset)
               : 0;
  }
  // The open stream (null when closed or in memory mode).
  FILE* Stream() const { return m_pFile; }

  // Fields, in order.
  FILE* m_pFile;
  CKMem m_mem;
  __int64 m_nSize;
  CKString m_strName;
  uint32_t m_nMode;
  __int64 m_nPosition;
  CKDateTime m_dt;

private:
  void CopyFrom(const CKFile& f);
  int OpenStream(const char* szMode);
};

// A unique temporary file name in szDir (the system's temporary directory
// when null or empty), beginning with szPrefix. The file is created empty and
// exclusively, so no other thread or process can be handed the same name; it
// stays on disk for the caller. bFlag non-zero ends the name with ".tmp".
// Empty when no file could be made.
KELVOR_API CKString KFileGetTemp(const char* szDir, const char* szPrefix, int bFlag);

#endif  // KELVOR_KFILE_H
