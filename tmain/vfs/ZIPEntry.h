#pragma once
#include <string>
#include <tmain/platform/Platform.h>

namespace tarso {
namespace vfs {

/// One entry of a ZIP archive's index, as the archive's central directory
/// describes it (or synthesised for a directory that only entry names imply).
struct ZIPEntry {
    /// Position in the index of the file system (-1 until found).
    int index = -1;
    /// The entry's name below the archive's top, without a trailing "/".
    std::string name;
    /// DOS attributes; 0x10 marks a directory.
    unsigned attributes = 0;
    __int64 accessed = 0;
    __int64 created = 0;
    __int64 modified = 0;
    unsigned long long compressedSize = 0;
    unsigned long long uncompressedSize = 0;
    unsigned crc = 0;
    /// 0 stored, 8 deflated (others are refused when opened).
    int method = 0;
    /// General purpose flags; bit 0 is encryption.
    unsigned flags = 0;
    /// Where the reader finds the entry's directory record (for unzSetOffset64).
    unsigned long long offset = 0;
    /// Made up for a directory no entry of the archive names.
    bool synthetic = false;

    static constexpr unsigned ATTR_DIRECTORY = 0x10;
    bool isDirectory() const { return (attributes & ATTR_DIRECTORY) != 0; }
};

} // namespace vfs
} // namespace tarso
