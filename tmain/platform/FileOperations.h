#pragma once
#include <string>
#include <tmain/Export.h>
#include <tmain/platform/Platform.h>

namespace tarso {
namespace platform {

/// Static functions over the operating system's file functions: path building
/// and splitting, existence tests, directory creation and removal, renaming,
/// directory iteration, file times and sizes, wildcard matching and the
/// process-wide temporary path.
///
/// Paths are narrow strings. The string helpers (getFile, getFolder,
/// appendPath, ensurePath's splitting) accept both '/' and '\\' as separators
/// and add '/'. The calls that reach the file system pass paths through
/// unchanged: on POSIX '\\' is an ordinary file-name character.
/// Times are signed 64-bit seconds since 1970-01-01 UTC. A null path is never
/// an error: it gives false, 0 or an empty string.
class TMAIN_API FileOperations {
public:
    /// Bit of remove()'s flags: delete a directory with its contents.
    static const unsigned REMOVE_RECURSIVE = 1;
    /// Longest path ensurePath() resolves, terminator included.
    static const unsigned FULL_PATH_SIZE = 384;
    /// Size of the temporary path buffer, terminator included.
    static const unsigned TEMP_PATH_SIZE = 256;

    /// Pointer to the last '.' of the path (the extension with its dot), or to
    /// an empty string. The last '.' may sit in a folder name: "dir.old/file"
    /// gives ".old/file" (kept so for compatibility).
    static const char* getExtension(const char* path);
    /// Pointer just after the last '/' (or, when there is none, the last '\\'),
    /// or the path itself.
    static const char* getFile(const char* path);
    /// The text before the last '/' (or '\\') into out, empty when there is no
    /// separator. Returns out's text.
    static const char* getFolder(const char* path, std::string& out);
    /// Appends '/' unless path is empty or already ends with '/' or '\\', then
    /// part without one leading '/' or '\\'. A null part adds nothing after
    /// the separator. Returns path's text.
    static const char* appendPath(std::string& path, const char* part);
    /// out = base (unless they are the same object), then appendPath(out, part).
    static const char* appendPath(const std::string& base, const char* part, std::string& out);

    /// True for a regular file or a directory (symbolic links are followed;
    /// devices, FIFOs, sockets and dangling links do not count).
    static bool exists(const char* path);
    /// True when the path exists and is a directory (links followed).
    static bool isDirectory(const char* path);
    /// True when the path is a directory holding nothing but "." and "..".
    static bool isDirectoryEmpty(const char* path);
    /// Creates every missing directory of the path except its last component,
    /// which is taken for a file name ("x/y/z.txt" creates x and x/y; "x/y/"
    /// creates both). True when the directory exists afterwards, also when
    /// another thread or process created it at the same time. Fails for paths
    /// whose full form needs FULL_PATH_SIZE characters or more.
    static bool ensurePath(const char* path);
    /// Deletes a file, or a directory: an empty one, or with REMOVE_RECURSIVE
    /// one with all its contents. Symbolic links inside the tree are removed,
    /// never followed. False when nothing or not everything was deleted.
    static bool remove(const char* path, unsigned flags);
    /// Moves a file or directory. Fails when `to` exists. Files move across
    /// file systems too (copied, then the source is deleted); directories do not.
    static bool rename(const char* from, const char* to);
    /// Calls callback with dir + '/' + name for every entry of dir whose name
    /// matches pattern ('/' is not doubled when dir ends with one). "." and
    /// ".." are never reported. A null pattern means "*"; "*.*" matches every
    /// name, as it does on Windows. Names match case-sensitively on POSIX.
    /// Entries come in the order the system lists them.
    static void iterateContents(const char* dir, const char* pattern, void* user,
                                void (*callback)(const char* name, void* user));

    /// Size in bytes, found by opening the file and seeking to its end; 0 when
    /// it cannot be opened or is a directory.
    static __int64 getSize(const char* path);
    /// Last-write time, 0 when the attributes cannot be read.
    static __int64 getLastModTime(const char* path);
    /// Last-access time, 0 when the attributes cannot be read.
    static __int64 getLastAccTime(const char* path);
    /// Creation (birth) time. 0 when the attributes cannot be read, and on
    /// Linux also when the file system does not record birth times.
    static __int64 getCreationTime(const char* path);
    /// Sets those of the three times that are not null. Only the low 32 bits of
    /// each value count, as a signed number (kept for compatibility: it matters
    /// only past 2038). Linux cannot set a creation time: the other times are
    /// still set, but the call returns false when creation is not null.
    static bool setTime(const char* path, __int64* lastAccess, __int64* creation, __int64* lastWrite);
    static bool setLastModTime(const char* path, __int64 time);
    static bool setLastAccTime(const char* path, __int64 time);
    static bool setCreationTime(const char* path, __int64 time);
    /// Sets the last-write time to now. Creates nothing: a missing path fails.
    static bool touch(const char* path);

    /// Wildcard match, case-sensitive: '*' matches any run of characters (also
    /// an empty one), '?' exactly one character. Runs in time proportional to
    /// pattern x text at worst. False when either argument is null.
    static bool match(const char* pattern, const char* text);

    /// Sets the process-wide temporary path. Refuses (false) a null path or one
    /// of TEMP_PATH_SIZE characters or more, keeping the old one.
    static bool setTemporaryPath(const char* path);
    /// Copies the temporary path into buffer; false when it needs size
    /// characters or more. When none was set, the system's temporary directory
    /// is taken on first use (on POSIX $TMPDIR, else /tmp, with a trailing
    /// '/' as Windows gives it); failing that, a warning is logged. Thread-safe.
    static bool getTemporaryPath(char* buffer, unsigned size);
};

} // namespace platform
} // namespace tarso
