#pragma once
/// The small platform header: byte order and the integer types the library's
/// interfaces use. The only place where portable code may ask which OS it is on.

#include <cstdint>
#include <tmain/Export.h>

#if !defined(_WIN32)
typedef long long __int64;
#endif

namespace tarso {
namespace platform {

/// Byte order of a stream. The host is little-endian; anything else means "swap".
enum Endianness { ENDIAN_LITTLE = 0, ENDIAN_BIG = 1 };

#if defined(_WIN32)
static const char PATH_SEPARATOR = '\\';
#else
static const char PATH_SEPARATOR = '/';
#endif

/// Seconds between 1601-01-01 and 1970-01-01, the offset between Windows file
/// times and Unix times.
static const __int64 FILETIME_UNIX_OFFSET = 11644473600LL;

} // namespace platform
} // namespace tarso
