#include <climits>
#include <cstdint>
#include <tmain/foundation/Base64.h>

namespace text {

namespace {

const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

const signed char SKIP = -2;
const signed char PAD = -3;
const signed char BAD = -1;

struct DecodeTable {
    signed char value[256];
    DecodeTable() {
        for (int i = 0; i < 256; ++i)
            value[i] = BAD;
        for (int i = 0; i < 64; ++i)
            value[(unsigned char)ALPHABET[i]] = (signed char)i;
        value[(unsigned char)'\r'] = value[(unsigned char)'\n'] = SKIP;
        value[(unsigned char)' '] = value[(unsigned char)'\t'] = SKIP;
        value[(unsigned char)'='] = PAD;
    }
};

const DecodeTable DECODE;

} // namespace

void base64_encode(const unsigned char* data, unsigned length, std::string& out) {
    out.clear();
    if (!data || length == 0)
        return;
    out.resize(((size_t)length + 2) / 3 * 4);
    char* o = &out[0];
    size_t i = 0;
    for (; i + 3 <= length; i += 3) {
        uint32_t v = ((uint32_t)data[i] << 16) | ((uint32_t)data[i + 1] << 8) | data[i + 2];
        *o++ = ALPHABET[v >> 18];
        *o++ = ALPHABET[(v >> 12) & 0x3F];
        *o++ = ALPHABET[(v >> 6) & 0x3F];
        *o++ = ALPHABET[v & 0x3F];
    }
    size_t rest = length - i;
    if (rest) {
        uint32_t v = (uint32_t)data[i] << 16;
        if (rest == 2)
            v |= (uint32_t)data[i + 1] << 8;
        *o++ = ALPHABET[v >> 18];
        *o++ = ALPHABET[(v >> 12) & 0x3F];
        *o++ = rest == 2 ? ALPHABET[(v >> 6) & 0x3F] : '=';
        *o++ = '=';
    }
}

int base64_decode(const char* in, char* out, unsigned outSize) {
    if (!in)
        return -1;
    if (!out)
        outSize = 0;
    const unsigned char* p = (const unsigned char*)in;
    size_t written = 0;
    uint32_t group = 0;
    unsigned filled = 0; // sextets in the current group
    unsigned pads = 0;   // '=' seen in the current (last) group
    for (; *p; ++p) {
        signed char v = DECODE.value[*p];
        if (v == SKIP)
            continue;
        if (v == BAD)
            return -1;
        if (v == PAD) {
            // Padding may only fill the last one or two places of a group.
            if (filled < 2)
                return -1;
            ++pads;
            ++filled;
        } else {
            if (pads)
                return -1; // data after padding
            group = (group << 6) | (uint32_t)v;
            ++filled;
        }
        if (filled < 4)
            continue;
        group <<= 6 * pads;
        size_t n = 3 - pads;
        if (n > outSize - written || written + n > (size_t)INT_MAX)
            return -1;
        out[written++] = (char)(group >> 16);
        if (n > 1)
            out[written++] = (char)(group >> 8);
        if (n > 2)
            out[written++] = (char)group;
        group = 0;
        filled = 0;
        if (pads) {
            // The padded group ends the text: only whitespace may follow.
            for (++p; *p; ++p)
                if (DECODE.value[*p] != SKIP)
                    return -1;
            return (int)written;
        }
    }
    if (filled != 0)
        return -1;
    return (int)written;
}

} // namespace text
