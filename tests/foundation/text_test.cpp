#include "../support/TestSupport.h"
#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/StringTokenizer.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/foundation/URLEncode.h>
#include <tmain/foundation/Unicode.h>

using text::StringUtil;

TEST(StringUtilTest, CompareContainsDuplicateSplitAndTokenizer) {
    // The sign of each comparison: folded to lower case as strcasecmp ('Z' > '['), bytes above 0x7F unsigned.
    auto sign = [](const char* a, const char* b) {
        int r = StringUtil::compareIgnoreCase(a, b);
        return (r > 0) - (r < 0);
    };
    EXPECT_JOINED("0|-1|1|1|1|-1|0|", sign("Content-Length", "content-LENGTH"), sign("abc", "ABD"),
                  sign("abcd", "ABC"), sign("Z", "["), sign("\xC3\xA9", "e"), sign(nullptr, ""),
                  sign(nullptr, nullptr));

    // Offsets of the matches, -1 for none; "aaAab" restarts after a partial match.
    auto at = [](const char* hay, const char* needle) {
        const char* found = StringUtil::containsIgnoreCase(hay, needle);
        return found ? found - hay : -1;
    };
    const char* hay = "GET /Index.HTML HTTP/1.1";
    EXPECT_JOINED("5|16|0|-1|-1|-1|2|", at(hay, "index.html"), at(hay, "http/"), at(hay, ""), at(hay, "1.1x"),
                  at(hay, "GET /Index.HTML HTTP/1.1 "), at(nullptr, "a"), at("aaAab", "AAB"));

    std::unique_ptr<char[]> copy(StringUtil::duplicate(hay));
    EXPECT_TRUE(hay != copy.get() && std::string(hay) == copy.get() && !StringUtil::duplicate(nullptr));

    std::vector<std::string> out{"kept"};
    EXPECT_EQ(3u, StringUtil::split(",a;;b, c,", ",; ", out));
    EXPECT_EQ((std::vector<std::string>{"kept", "a", "b", "c"}), out);
    out.clear();
    EXPECT_EQ(6u, StringUtil::split(",a;;b,c,", ",;", out, true));
    EXPECT_EQ((std::vector<std::string>{"", "a", "", "b", "c", ""}), out);
    EXPECT_EQ(0u, StringUtil::split("", ",", out, true) + StringUtil::split(nullptr, ",", out, true));
    EXPECT_EQ(1u, StringUtil::split("a,b", nullptr, out));
    EXPECT_EQ("a,b", out.back());

    // The tokenizer must give the same tokens as split for one delimiter.
    for (const char* s : {"a,b,c", ",,a,,b,", ",", "abc", "", ",x"}) {
        for (bool empty : {false, true}) {
            std::vector<std::string> expected, got;
            StringUtil::split(s, ",", expected, empty);
            std::string copy = s;
            text::StringTokenizer tok(copy.c_str(), ',', empty);
            copy.assign(copy.size(), ','); // the tokenizer holds its own copy
            for (unsigned left = tok.countTokens(); tok.hasMoreTokens(); --left) {
                EXPECT_EQ(left, tok.countTokens());
                got.push_back(tok.nextToken());
            }
            EXPECT_EQ(expected, got) << "'" << s << "' returnEmpty=" << empty;
            EXPECT_EQ(0u, tok.countTokens());
            EXPECT_MESSAGE(core::IllegalStateException, "StringTokenizer::nextToken: no more tokens",
                           tok.nextToken());
        }
    }
}

namespace {

std::wstring wide(std::initializer_list<uint32_t> units) {
    return std::wstring(units.begin(), units.end());
}

std::string utf8(const std::wstring& s) {
    std::string out;
    unsigned n = text::toUTF8(s.data(), (unsigned)s.size(), out, false);
    EXPECT_EQ(n, out.size());
    return out;
}

std::wstring unicode(const char* s) {
    std::wstring out;
    unsigned n = text::toUnicode(s, out, false);
    EXPECT_EQ(n, out.size());
    return out;
}

const char* const FFFD = "\xEF\xBF\xBD";

} // namespace

TEST(UnicodeTest, EncodesAllWidthsSurrogatesAndEveryCodePoint) {
    const char* bytes = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
    const std::wstring native = sizeof(wchar_t) == 2
                                    ? wide({'A', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF})
                                    : wide({'A', 0xE9, 0x20AC, 0x1F600, 0x10FFFF});
    EXPECT_EQ(bytes, utf8(native));
    EXPECT_EQ(native, unicode(bytes));
    // UTF-16 pairs held in any wchar_t width decode to one code point.
    EXPECT_EQ("\xF0\x9F\x98\x80", utf8(wide({0xD83D, 0xDE00})));
    // Lone and reversed surrogates, a high surrogate cut off by the length.
    EXPECT_EQ(std::string(FFFD) + "a" + FFFD, utf8(wide({0xD800, 'a', 0xDC00})));
    EXPECT_EQ(std::string(FFFD) + FFFD, utf8(wide({0xDE00, 0xD83D})));
    std::string out;
    const wchar_t pair[] = {(wchar_t)0xD83D, (wchar_t)0xDE00, 0};
    EXPECT_TRUE(text::toUTF8(pair, 1, out, false) == 3u && out == FFFD) << out;
    EXPECT_TRUE(sizeof(wchar_t) == 2 || utf8(wide({0x110000, 0xFFFFFFFF})) == std::string(FFFD) + FFFD);
    // Embedded nulls count with an explicit length; append keeps the prefix.
    out = "x";
    EXPECT_TRUE(text::toUTF8(wide({'a', 0, 'b'}).c_str(), 3, out, true) == 3u &&
                out == std::string("xa\0b", 4));
    EXPECT_TRUE(text::toUTF8(L"\u00e9", out, false) == 2u && out == "\xC3\xA9");
    EXPECT_TRUE(text::toUTF8(nullptr, out, false) == 0 && out.empty());
    std::wstring w = L"x";
    EXPECT_TRUE(text::toUnicode("ab", w, true) == 2u && w == L"xab");

    // Every scalar value, each width, round trips.
    std::wstring all;
    size_t size = 0;
    for (uint32_t c = 1; c <= 0x10FFFF; c += c == 0xD7FF ? 0x801 : 1) {
        size += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (sizeof(wchar_t) == 2 && c >= 0x10000)
            all += wide({0xD800 + ((c - 0x10000) >> 10), 0xDC00 + ((c - 0x10000) & 0x3FF)});
        else
            all += (wchar_t)c;
    }
    EXPECT_EQ(size, text::toUTF8(all.c_str(), out, false));
    EXPECT_TRUE(all == unicode(out.c_str()));
}

TEST(UnicodeTest, MalformedUTF8BecomesReplacement) {
    const std::wstring R(1, (wchar_t)0xFFFD);
    EXPECT_EQ(R + R, unicode("\xC0\xAF"));                 // overlong '/'
    EXPECT_EQ(R + R + R, unicode("\xE0\x80\xAF"));         // overlong 3-byte
    EXPECT_EQ(R + R + R, unicode("\xED\xA0\x80"));         // encoded surrogate
    EXPECT_EQ(R + R + R + R, unicode("\xF4\x90\x80\x80")); // above U+10FFFF
    EXPECT_EQ(R + L"A" + R, unicode("\xE2\x82\x41\xF5"));  // truncated, then invalid lead
    EXPECT_EQ(R + R + L"b", unicode("\x80\xBF\x62"));      // stray continuation bytes
    EXPECT_EQ(L"", unicode(nullptr));
    // A sequence cut short by the terminator must not read beyond it (ASan).
    for (const char* tail : {"\xF0\x9F\x98", "\xF0\x9F", "\xE2", "\xDF"}) {
        std::vector<char> exact(tail, tail + strlen(tail) + 1);
        EXPECT_EQ(R, unicode(exact.data())) << tail;
    }
    // Any byte soup decodes to something that survives a round trip unchanged.
    std::mt19937 rng(7);
    for (int i = 0; i < 2000; ++i) {
        std::string soup(rng() % 24, ' ');
        std::generate(soup.begin(), soup.end(), [&] { return (char)(1 + rng() % 255); });
        std::string once = utf8(unicode(soup.c_str()));
        EXPECT_EQ(once, utf8(unicode(once.c_str())));
    }
}

TEST(URLEncodeTest, EncodeDecode) {
    std::string out;
    text::encodeURL("a b/c?d=e&f~g-h_i.j+\xC3\xA9%", out);
    EXPECT_EQ("a%20b%2Fc%3Fd%3De%26f~g-h_i.j%2B%C3%A9%25", out);
    std::string all(255, '\0');
    std::iota(all.begin(), all.end(), 1);
    text::encodeURL(all.c_str(), out);
    for (char c : out)
        EXPECT_TRUE(isalnum((unsigned char)c) || strchr("-_.~%", c)) << c;
    std::string back = "junk";
    EXPECT_TRUE(text::decodeURL(out.c_str(), back) && back == all);
    EXPECT_TRUE(text::decodeURL("%41%2f%2F+%00x", back) && back == std::string("A//+\0x", 6)) << back;
    for (const char* bad : {"%", "abc%", "%4", "%4g", "%g4", "a%%41"}) {
        back = "junk";
        EXPECT_FALSE(text::decodeURL(bad, back)) << bad;
        EXPECT_EQ("", back);
    }
}
