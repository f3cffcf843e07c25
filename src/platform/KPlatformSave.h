// Platform area: whole-file saves that never leave a half-written file.
//
// POSIX: KPlatformSavePosix.cpp (open with O_CREAT | O_EXCL | O_CLOEXEC of a
// temporary name beside the target, write, fsync, close, rename). Windows
// counterparts: CreateFileA with CREATE_NEW, WriteFile, FlushFileBuffers,
// CloseHandle, then MoveFileExA with MOVEFILE_REPLACE_EXISTING |
// MOVEFILE_WRITE_THROUGH; DeleteFileA removes the temporary file on failure.
#ifndef KELVOR_KPLATFORMSAVE_H
#define KELVOR_KPLATFORMSAVE_H

#include <cstddef>

namespace kplat {

// Writes n bytes to a new temporary file in szName's directory and renames
// it over szName, so that readers see the old file or the whole new one.
// Bytes are written as given (no line-end translation). False, with the
// failing call reported and the temporary file removed, on any failure; the
// old file is then left as it was.
bool FileSaveReplace(const char* szName, const char* p, size_t n);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMSAVE_H
