// CKGZFile: a thin owner of one zlib gzip stream, for reading or writing a
// gzip file (the format gzip(1) reads and writes).
#ifndef KELVOR_KGZFILE_H
#define KELVOR_KGZFILE_H

#include <base/tools/KDefs.h>

class KELVOR_API CKGZFile {
public:
  CKGZFile();
  virtual ~CKGZFile();

  // Creates or empties szName and opens it for writing at zlib level nLevel
  // (0 to 9; -1 for zlib's default).
  int OpenWrite(const char* szName, int nLevel);
  int OpenRead(const char* szName);
  int IsOpen() const { return m_pGz != nullptr; }
  int IsWriting() const { return m_bWriting; }

  // Bytes written (all of them, or -1 on failure).
  __int64 Write(const void* p, __int64 n);
  // Bytes read, 0 at the end, -1 when the data is not valid gzip.
  __int64 Read(void* p, __int64 n);
  int Eof() const;
  // Finishes the stream (the trailer of a written file); 1 when all went well.
  int Close();

private:
  CKGZFile(const CKGZFile&) = delete;
  CKGZFile& operator=(const CKGZFile&) = delete;

  void* m_pGz;  // zlib's gzFile
  int m_bWriting;
};

#endif  // KELVOR_KGZFILE_H
