#define KSRC_PATH "src/KBlobMemory"

#include <base/tools/KBlob.h>

#include <cstring>

#include <base/tools/KFile.h>

#include "KBlobStore.h"

namespace kblob {

CKFile* NewImage(const CKMem& mem) {
  CKFile* f = new CKFile(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  const unsigned char* p = mem.m_pMemRef ? mem.m_pMemRef->pData : nullptr;
  const unsigned nStart = mem.m_nStartOffset;
  const unsigned n = p && mem.Size() > nStart ? mem.Size() - nStart : 0;
  if (n) {
    f->SetSize(n);
    if (f->MemRoom() < (__int64)n) {
      delete f;
      return nullptr;
    }
    std::memcpy(f->MemData(), p + nStart, n);
  }
  return f;
}

int ImageToMem(CKFile& f, CKMem& mem) {
  // A block of the file's own goes over whole; the file is left empty.
  CKMem& m = f.GetData();
  const __int64 nSize = f.Size() < f.MemRoom() ? f.Size() : f.MemRoom();
  if (nSize > 0 && m.m_nStartOffset == 0 && m.m_pMemRef && m.m_pMemRef->bOwnsData &&
      !dynamic_cast<CKMemFake*>(&mem) && mem.EnsureMemRef() && mem.m_pMemRef) {
    unsigned char* p = m.Detach();
    f.UpdateSize();
    mem.Attach(p, (unsigned)nSize);
    return 1;
  }
  return ImageCopyToMem(f, mem);
}

int ImageCopyToMem(const CKFile& f, CKMem& mem) {
  const __int64 n = f.Size() < f.MemRoom() ? f.Size() : f.MemRoom();
  if (n <= 0) {
    mem.SetEmpty();
    return 1;
  }
  return mem.Set(f.MemData(), (unsigned)n);
}

}  // namespace kblob

CKBlobMemory::CKBlobMemory() : m_pImage(nullptr) {}
CKBlobMemory::~CKBlobMemory() { delete m_pImage; }

int CKBlobMemory::FromMem(const CKMem& mem) {
  DeleteDecodedContent();
  m_pImage = kblob::NewImage(mem);
  return m_pImage != nullptr;
}

int CKBlobMemory::ToMem(CKMem& mem) {
  if (!EnsureDecoded()) return 0;
  if (!m_pElements) {  // nothing held encodes to nothing
    mem.SetEmpty();
    return 1;
  }
  CKFile f(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  return Encode(f) && kblob::ImageToMem(f, mem);
}

int CKBlobMemory::BlobDecodePending() { return DecodeImage(m_pImage); }

int CKBlobMemory::BlobHasPending() const { return m_pImage != nullptr; }

void CKBlobMemory::BlobDropPending() {
  delete m_pImage;
  m_pImage = nullptr;
}
