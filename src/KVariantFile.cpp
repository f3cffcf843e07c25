// Temporary: file images arrive with the file module.
#include "KVariantImpl.h"
namespace kvariant {
void* FileCopyOf(const void*) { return nullptr; }
void FileRelease(void*) {}
}  // namespace kvariant
#include <base/tools/KBlob.h>
__int64 CKBlobElement::GetRawSize() const { return 0; }
