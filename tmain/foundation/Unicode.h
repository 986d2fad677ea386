#pragma once
#include <string>
#include <tmain/Export.h>

namespace text {

/// Conversions between UTF-8 and wide strings. A wide string is UTF-16 where
/// wchar_t has 16 bits (Windows) and UTF-32 where it has 32 bits (Linux);
/// surrogate pairs are decoded in both, so UTF-16 data held in 32-bit units
/// converts too. Lone surrogates, values above U+10FFFF and malformed UTF-8
/// become U+FFFD; one U+FFFD replaces each maximal ill-formed subsequence.
/// In every function, append true adds to out, false replaces its content.

/// Converts the null-terminated s to UTF-8; returns the number of bytes
/// written to out. A null s writes nothing.
TMAIN_API unsigned toUTF8(const wchar_t* s, std::string& out, bool append = false);

/// Converts exactly length units of s (embedded nulls included) to UTF-8;
/// returns the number of bytes written to out.
TMAIN_API unsigned toUTF8(const wchar_t* s, unsigned length, std::string& out, bool append = false);

/// Converts the null-terminated UTF-8 string s to a wide string; returns the
/// number of wide characters written to out (a character outside the BMP
/// counts 2 where wchar_t has 16 bits). A null s writes nothing.
TMAIN_API unsigned toUnicode(const char* s, std::wstring& out, bool append = false);

} // namespace text
