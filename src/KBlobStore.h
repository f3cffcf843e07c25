// Internal: memory images shared by the blob storage classes.
#ifndef KELVOR_KBLOBSTORE_H
#define KELVOR_KBLOBSTORE_H

#include <base/tools/KFile.h>
#include <base/tools/KMem.h>

namespace kblob {
// A memory-mode file holding a copy of mem's bytes; null when it cannot.
CKFile* NewImage(const CKMem& mem);
// mem receives a copy of the file image's bytes.
int ImageToMem(const CKFile& f, CKMem& mem);
}  // namespace kblob

#endif  // KELVOR_KBLOBSTORE_H
