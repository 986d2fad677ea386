#include <cstdint>
#include <cwchar>
#include <tmain/foundation/Unicode.h>

namespace text {

namespace {

const uint32_t REPLACEMENT = 0xFFFD;

inline bool isHighSurrogate(uint32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
inline bool isLowSurrogate(uint32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

/// The unit as an unsigned value: a negative 32-bit wchar_t must not pass for
/// a valid code point, and a 16-bit one must not sign-extend.
inline uint32_t unitValue(wchar_t w) {
    return sizeof(wchar_t) == 2 ? (uint32_t)(uint16_t)w : (uint32_t)w;
}

void appendUTF8(uint32_t c, std::string& out) {
    if (c < 0x80) {
        out += (char)c;
    } else if (c < 0x800) {
        out += (char)(0xC0 | (c >> 6));
        out += (char)(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += (char)(0xE0 | (c >> 12));
        out += (char)(0x80 | ((c >> 6) & 0x3F));
        out += (char)(0x80 | (c & 0x3F));
    } else {
        out += (char)(0xF0 | (c >> 18));
        out += (char)(0x80 | ((c >> 12) & 0x3F));
        out += (char)(0x80 | ((c >> 6) & 0x3F));
        out += (char)(0x80 | (c & 0x3F));
    }
}

unsigned appendWide(uint32_t c, std::wstring& out) {
    if (sizeof(wchar_t) == 2 && c >= 0x10000) {
        c -= 0x10000;
        out += (wchar_t)(0xD800 + (c >> 10));
        out += (wchar_t)(0xDC00 + (c & 0x3FF));
        return 2;
    }
    out += (wchar_t)c;
    return 1;
}

unsigned convertToUTF8(const wchar_t* s, size_t length, std::string& out, bool append) {
    if (!append)
        out.clear();
    if (!s)
        return 0;
    const size_t before = out.size();
    out.reserve(before + length);
    for (size_t i = 0; i < length; ++i) {
        uint32_t c = unitValue(s[i]);
        if (isHighSurrogate(c)) {
            uint32_t next = i + 1 < length ? unitValue(s[i + 1]) : 0;
            if (isLowSurrogate(next)) {
                c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
                ++i;
            } else {
                c = REPLACEMENT;
            }
        } else if (isLowSurrogate(c) || c > 0x10FFFF) {
            c = REPLACEMENT;
        }
        appendUTF8(c, out);
    }
    return (unsigned)(out.size() - before);
}

} // namespace

unsigned toUTF8(const wchar_t* s, std::string& out, bool append) {
    return convertToUTF8(s, s ? std::wcslen(s) : 0, out, append);
}

unsigned toUTF8(const wchar_t* s, unsigned length, std::string& out, bool append) {
    return convertToUTF8(s, length, out, append);
}

unsigned toUnicode(const char* s, std::wstring& out, bool append) {
    if (!append)
        out.clear();
    if (!s)
        return 0;
    unsigned count = 0;
    const unsigned char* p = (const unsigned char*)s;
    while (*p) {
        const unsigned char b0 = *p;
        if (b0 < 0x80) {
            count += appendWide(b0, out);
            ++p;
            continue;
        }
        // Sequence length and the allowed range of the second byte; the
        // narrowed ranges reject overlong forms, surrogates and > U+10FFFF.
        unsigned need;
        unsigned char lo = 0x80, hi = 0xBF;
        uint32_t c;
        if (b0 >= 0xC2 && b0 <= 0xDF) {
            need = 1;
            c = b0 & 0x1F;
        } else if (b0 >= 0xE0 && b0 <= 0xEF) {
            need = 2;
            c = b0 & 0x0F;
            if (b0 == 0xE0)
                lo = 0xA0;
            else if (b0 == 0xED)
                hi = 0x9F;
        } else if (b0 >= 0xF0 && b0 <= 0xF4) {
            need = 3;
            c = b0 & 0x07;
            if (b0 == 0xF0)
                lo = 0x90;
            else if (b0 == 0xF4)
                hi = 0x8F;
        } else {
            count += appendWide(REPLACEMENT, out);
            ++p;
            continue;
        }
        ++p;
        bool ok = true;
        for (unsigned k = 0; k < need; ++k) {
            // A terminating null is never a continuation byte, so this cannot
            // read past the end of s.
            const unsigned char b = *p;
            if (b < lo || b > hi) {
                ok = false;
                break;
            }
            c = (c << 6) | (b & 0x3F);
            ++p;
            lo = 0x80;
            hi = 0xBF;
        }
        count += appendWide(ok ? c : REPLACEMENT, out);
    }
    return count;
}

} // namespace text
