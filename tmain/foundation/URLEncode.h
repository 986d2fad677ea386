#pragma once
#include <string>
#include <tmain/Export.h>

namespace text {

/// Percent-encodes s for use as a URL component into out, replacing its
/// content: A-Z a-z 0-9 - _ . ~ stay as they are, every other byte becomes
/// %XX with upper-case hex digits (so '/' and ' ' are encoded as well).
TMAIN_API void encodeURL(const char* s, std::string& out);

/// Decodes the %XX escapes of s (either hex case) into out, replacing its
/// content. '+' is left as it is: this is component decoding, not form
/// decoding. Returns false, with out cleared, when a '%' is not followed by two
/// hex digits. %00 yields a null byte inside out.
TMAIN_API bool decodeURL(const char* s, std::string& out);

} // namespace text
