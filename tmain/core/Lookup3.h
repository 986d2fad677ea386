#pragma once
/// Bob Jenkins' lookup3 string hash (hashlittle, hashlittle2). The values are
/// those of the published algorithm on a little-endian machine, whatever the
/// key's alignment and on any byte order.
#include <tmain/Export.h>

/// Hashes length bytes at key into 32 bits; initval seeds the hash (a previous
/// hash may be chained in). Only the given bytes are ever read.
TMAIN_API unsigned hashlittle(const void* key, unsigned length, unsigned initval);

/// Like hashlittle but yields two 32-bit hashes. On entry *pc and *pb are the
/// seeds, on return the primary and secondary hashes. With *pb == 0 the value
/// left in *pc equals hashlittle(key, length, seed).
TMAIN_API void hashlittle2(const void* key, unsigned length, unsigned* pc, unsigned* pb);
