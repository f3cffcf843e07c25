#define KSRC_PATH "src/KBlobFile"

#include <base/tools/KBlob.h>

#include <base/tools/KDebug.h>
#include <base/tools/KFile.h>

#include "KBlobStore.h"
#include "platform/KPlatformFile.h"

CKBlobFile::CKBlobFile(const char* szFile) : m_strFile(szFile), m_pImage(nullptr) {}
CKBlobFile::~CKBlobFile() { delete m_pImage; }

int CKBlobFile::Load() {
  DeleteDecodedContent();
  CKFile* f = new CKFile(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  if (!f->ReadWhole(m_strFile)) {
    delete f;
    m_nStatus = -1;
    return 0;
  }
  m_pImage = f;
  return 1;
}

// The new content goes to a fresh file in the same directory, which then
// replaces the target in one rename: a failure at any point leaves the old
// file whole.
int CKBlobFile::Save() {
  if (!EnsureDecoded()) return 0;
  CKFile img(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  if (m_pElements && !Encode(img)) return 0;
  CKString strDir;
  const char* sz = m_strFile.GetString();
  for (const char* p = sz; *p; ++p)
    if (*p == '/' || *p == '\\') strDir = m_strFile.Left((unsigned)(p - sz + 1));
  if (!strDir.GetLength()) strDir = "./";
  const CKString strTemp = KFileGetTemp(strDir, ".kblob", 1);
  if (!strTemp.GetLength()) return 0;
  if (!img.WriteWhole(strTemp)) {
    kplat::FileRemove(strTemp);
    return 0;
  }
  if (!kplat::FileRename(strTemp, m_strFile)) {
    kplat::FileRemove(strTemp);
    return 0;
  }
  return 1;
}

int CKBlobFile::BlobDecodePending() { return DecodeImage(m_pImage); }

int CKBlobFile::BlobHasPending() const { return m_pImage != nullptr; }

void CKBlobFile::BlobDropPending() {
  delete m_pImage;
  m_pImage = nullptr;
}
