#pragma once
/// The native primitives under FileOperations: FileOperations.cpp holds the
/// portable logic, FileOperations_posix.cpp and FileOperations_win32.cpp each
/// implement these functions with their system's calls. Every function takes
/// a non-null path; times are seconds since 1970.

#include <tmain/platform/Platform.h>

namespace tarso {
namespace platform {
namespace detail {

/// Attributes of one path.
struct FileInfo {
    /// Win32: FILE_ATTRIBUTE_ARCHIVE or FILE_ATTRIBUTE_NORMAL. POSIX: a regular file.
    bool isFile;
    /// Win32: FILE_ATTRIBUTE_DIRECTORY. POSIX: a directory.
    bool isDirectory;
    /// 0 where the file system does not record it.
    __int64 creationTime;
    __int64 lastAccessTime;
    __int64 lastWriteTime;
};

/// Win32 FILETIME (100 ns since 1601) to Unix seconds: divided, then shifted.
inline __int64 fileTimeToUnix(unsigned long long fileTime) {
    return (__int64)(fileTime / 10000000ULL) - FILETIME_UNIX_OFFSET;
}

/// Unix seconds to a Win32 FILETIME (unsigned arithmetic: no overflow trap).
inline unsigned long long unixToFileTime(__int64 seconds) {
    return (unsigned long long)seconds * 10000000ULL + (unsigned long long)FILETIME_UNIX_OFFSET * 10000000ULL;
}

/// Win32: GetFileAttributesExA(GetFileExInfoStandard), times through
/// fileTimeToUnix. POSIX: statx with STATX_BTIME, following symbolic links.
bool queryFileInfo(const char* path, FileInfo& info);

/// Win32: CreateDirectoryA(path, NULL). POSIX: mkdir(path, 0777).
bool createDirectory(const char* path);

/// Win32: DeleteFileA. POSIX: unlink.
bool deleteFile(const char* path);

/// Deletes a directory with everything in it, or the link or file the path
/// names. Win32: SHFileOperationA(FO_DELETE) on the double-NUL-terminated path
/// with FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI. POSIX: a walk with
/// openat(O_NOFOLLOW)/unlinkat that never follows a link out of the tree.
bool deleteTree(const char* path);

/// Win32: PathIsDirectoryEmptyA. POSIX: opendir/readdir.
bool isDirectoryEmpty(const char* path);

/// Win32: MoveFileA (fails when `to` exists; files may cross volumes).
/// POSIX: renameat2(RENAME_NOREPLACE), copying files across file systems.
bool moveFile(const char* from, const char* to);

/// Calls found(name, context) with the bare name of every entry matching
/// searchSpec, a directory, '/' and a wildcard pattern. "." and ".." may be
/// among them; the caller drops them. Win32: FindFirstFileA/FindNextFileA/
/// FindClose. POSIX: opendir/readdir with FileOperations::match.
void findEntries(const char* searchSpec, void (*found)(const char* name, void* context), void* context);

/// Size by opening and seeking to the end; 0 when not possible or a directory.
/// Win32: CreateFileA(GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
/// OPEN_EXISTING) and SetFilePointerEx(FILE_END). POSIX: open and lseek.
__int64 fileSize(const char* path);

/// Sets the non-null times. Win32: CreateFileA(FILE_WRITE_ATTRIBUTES,
/// FILE_SHARE_READ, OPEN_EXISTING) and SetFileTime with unixToFileTime.
/// POSIX: utimensat; a creation time cannot be set there, so it returns false
/// after setting the others.
bool setFileTimes(const char* path, const __int64* lastAccess, const __int64* creation,
                  const __int64* lastWrite);

/// Sets the last-write time to the current time. Win32: GetSystemTimeAsFileTime
/// and SetFileTime. POSIX: utimensat(UTIME_NOW).
bool touchFile(const char* path);

/// The system's temporary directory with a trailing separator, as
/// GetTempPathA: returns its length when it fits in size (terminator
/// included), the size it needs when it does not, 0 on failure.
/// POSIX: $TMPDIR when set and not empty, else /tmp.
unsigned tempDirectory(char* buffer, unsigned size);

/// The absolute, normalised form of path, as GetFullPathNameA: returns its
/// length when it fits in size (terminator included), the size it needs when
/// it does not, 0 on failure. *filePart points at the last component in
/// buffer, or is null when path ends with a separator.
/// POSIX: realpath of the longest existing prefix, the rest taken lexically.
unsigned fullPath(const char* path, char* buffer, unsigned size, char** filePart);

} // namespace detail
} // namespace platform
} // namespace tarso
