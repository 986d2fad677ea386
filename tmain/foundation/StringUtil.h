#pragma once
#include <string>
#include <tmain/Export.h>
#include <vector>

namespace text {

/// Small C-string helpers. Case folding is ASCII only: bytes >= 0x80 (UTF-8
/// sequences, code page characters) compare as they are.
class TMAIN_API StringUtil {
public:
    /// Three-way comparison ignoring ASCII case: negative, 0 or positive like
    /// strcmp. A null pointer sorts before every string, two nulls are equal.
    static int compareIgnoreCase(const char* a, const char* b);

    /// First case-insensitive occurrence of needle in haystack, or null. An
    /// empty needle matches at the start of haystack (as strstr); a null
    /// argument finds nothing.
    static const char* containsIgnoreCase(const char* haystack, const char* needle);

    /// Heap copy of s, or null for null. The caller frees it with delete[].
    static char* duplicate(const char* s);

    /// Splits s at every character of delimiters and appends the tokens to out
    /// (out is not cleared). Returns the number of tokens appended.
    /// Without returnEmpty, empty tokens (leading, trailing or between adjacent
    /// delimiters) are dropped. With it, a non-empty s with n delimiters always
    /// gives n + 1 tokens. A null or empty s gives no tokens either way; a null
    /// or empty delimiters gives s as the only token.
    static unsigned split(const char* s, const char* delimiters, std::vector<std::string>& out,
                          bool returnEmpty = false);
};

} // namespace text
