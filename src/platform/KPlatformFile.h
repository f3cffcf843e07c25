// Platform area: files.
//
// POSIX: KPlatformFilePosix.cpp. Windows counterparts: FindFileTimes is
// FindFirstFileA/FindNextFileA with the entry's ftLastWriteTime and
// ftCreationTime; FileOpen is fopen with the "N" (not inherited) mode flag;
// FileAppendText is CreateFileA with FILE_APPEND_DATA only (the system's
// atomic append) and one WriteFile of the text with its line ends as CR LF.
// FileSeek/FileTell are _fseeki64/_ftelli64; FileKind is GetFileAttributesA;
// FileCreateExclusive and FileOpenDescriptor are _sopen_s with _O_EXCL,
// _O_BINARY and _O_NOINHERIT (then _fdopen); FileRename is MoveFileExA with
// MOVEFILE_REPLACE_EXISTING; FileRemove is DeleteFileA; TempDir is
// GetTempPathA. FileSaveReplace is CreateFileA with CREATE_NEW of a
// temporary name, WriteFile, FlushFileBuffers, CloseHandle, then MoveFileExA
// with MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH (DeleteFileA of the
// temporary file on failure).
#ifndef KELVOR_KPLATFORMFILE_H
#define KELVOR_KPLATFORMFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

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

// 64-bit positioning of a C run-time stream; nWhence is SEEK_SET, SEEK_CUR
// or SEEK_END. Offsets above 2 GiB work on every build, 32-bit ones too.
// False (reported) when the stream refuses the position.
bool FileSeek(FILE* f, int64_t nOffset, int nWhence);
// The stream's position; -1 (reported) on failure.
int64_t FileTell(FILE* f);

// What a path names.
enum { FILE_KIND_NONE = 0, FILE_KIND_FILE = 1, FILE_KIND_DIR = 2 };
int FileKind(const char* szName);

// Creates szName only if no file of that name exists (atomically, also
// against other processes) and opens it for reading and writing in binary
// mode, not inherited. Null when the name is taken (silently; *pbExists is
// set) or the file cannot be made (reported).
FILE* FileCreateExclusive(const char* szName, bool* pbExists);

// A raw descriptor on szName in binary mode, not inherited: for reading, or
// for writing with the file created or emptied. -1 when it cannot be opened.
int FileOpenDescriptor(const char* szName, bool bWrite);
void FileCloseDescriptor(int fd);

// Renames szFrom to szTo, replacing an existing szTo in one step.
bool FileRename(const char* szFrom, const char* szTo);
// Removes a file; false (silently) when it does not exist.
bool FileRemove(const char* szName);

// Writes n bytes to a new temporary file in szName's directory and renames
// it over szName, so that readers see the old file or the whole new one.
// Bytes are written as given (no line-end translation). False, with the
// failing call reported and the temporary file removed, on any failure; the
// old file is then left as it was.
bool FileSaveReplace(const char* szName, const char* p, size_t n);

// The directory for temporary files, without a trailing separator.
std::string TempDir();

}  // namespace kplat

#endif  // KELVOR_KPLATFORMFILE_H
