// Platform area: files.
//
// POSIX: KPlatformFilePosix.cpp. Windows counterparts: FindFileTimes is
// FindFirstFileA/FindNextFileA with the entry's ftLastWriteTime and
// ftCreationTime; FileOpen is fopen with the "N" (not inherited) mode flag.
#ifndef KELVOR_KPLATFORMFILE_H
#define KELVOR_KPLATFORMFILE_H

#include <cstdint>
#include <cstdio>

namespace kplat {

// fopen with the C run-time mode szMode; the descriptor is not inherited by
// child processes. Null when the file cannot be opened.
FILE* FileOpen(const char* szName, const char* szMode);

// File search: the first entry matching szPattern (wildcards '*' and '?' in
// the last component; "*.*" matches every name; among several matches the
// smallest name). Gives its last-write and creation times as FILETIME ticks
// (100 ns since 1601, UTC). Where the file system keeps no birth time the
// creation time is the last status change. False when nothing matches.
bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMFILE_H
