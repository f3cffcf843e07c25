// Platform area: files.
//
// POSIX: KPlatformFilePosix.cpp. Windows counterparts: FindFileTimes is
// FindFirstFileA/FindNextFileA with the entry's ftLastWriteTime and
// ftCreationTime; FileOpen is fopen with the "N" (not inherited) mode flag;
// FileAppendText is CreateFileA with FILE_APPEND_DATA only (the system's
// atomic append) and one WriteFile of the text with its line ends as CR LF.
#ifndef KELVOR_KPLATFORMFILE_H
#define KELVOR_KPLATFORMFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace kplat {

// fopen with the C run-time mode szMode; the descriptor is not inherited by
// child processes. Null when the file cannot be opened.
FILE* FileOpen(const char* szName, const char* szMode);

// Appends n bytes of text to the file szName, created when missing, in one
// write to the end of the file, so that lines from several writers (other
// processes too) never mix. Text as the C run-time's "a" mode writes it: LF
// becomes CR LF on Windows. False when the file cannot be opened (silently)
// or written (reported).
bool FileAppendText(const char* szName, const char* p, size_t n);

// File search: the first entry matching szPattern (wildcards '*' and '?' in
// the last component; "*.*" matches every name; among several matches the
// smallest name). Gives its last-write and creation times as FILETIME ticks
// (100 ns since 1601, UTC). Where the file system keeps no birth time the
// creation time is the last status change. False when nothing matches.
bool FindFileTimes(const char* szPattern, uint64_t* pWrite, uint64_t* pCreate);

}  // namespace kplat

#endif  // KELVOR_KPLATFORMFILE_H
