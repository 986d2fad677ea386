#pragma once
#include <string>
#include <tmain/Export.h>

namespace text {

/// Encodes length bytes of data as base64 (standard alphabet, '=' padding, no
/// line breaks) into out, replacing its content.
TMAIN_API void base64_encode(const unsigned char* data, unsigned length, std::string& out);

/// Decodes the null-terminated base64 text in into out and returns the number
/// of bytes decoded. CR, LF, space and tab are skipped anywhere. Returns -1 on
/// a null in, a character outside the alphabet, missing or misplaced padding
/// (the text must come in complete groups of four), or when the result does
/// not fit in outSize bytes; out is never written past outSize, though it may
/// hold partial output after -1. At most (length / 4) * 3 bytes are produced.
/// Unused low bits of the last group are ignored, as most decoders do.
TMAIN_API int base64_decode(const char* in, char* out, unsigned outSize);

} // namespace text
