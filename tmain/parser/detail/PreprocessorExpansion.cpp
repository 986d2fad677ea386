#include <algorithm>
#include <cstring>
#include <string_view>
#include <tmain/parser/LexerException.h>
#include <tmain/parser/detail/PreprocessorExpansion.h>

namespace tarso {
namespace parser {
namespace detail {

namespace {

const size_t CHUNK_SIZE = 128;
const int MAX_CALL_DEPTH = 10000;

bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

uint64_t mix(uint64_t h, uint64_t v) {
    v += 0x9e3779b97f4a7c15ULL + h;
    v = (v ^ (v >> 30)) * 0xbf58476d1ce4e5b9ULL;
    v = (v ^ (v >> 27)) * 0x94d049bb133111ebULL;
    return v ^ (v >> 31);
}

[[noreturn]] void recursive(const char* name) {
    throw LexerException("Syntax error in macro expansion for %s: recursive expansion", name);
}

} // namespace

PreprocessorExpansion::PreprocessorExpansion(const ::core::CKHashMapValue<MacroData>& macros,
                                             Substitute substitute, size_t maxSize)
    : mSubstitute(std::move(substitute)), mMaxSize(maxSize) {
    for (auto it = macros.begin(); it != macros.end(); ++it) {
        MacroState m;
        m.name = it->first;
        m.length = std::strlen(it->first);
        m.data = &it->second;
        m.resumeChunk = 0;
        m.resumeOffset = 0;
        if (m.length > 0)
            mMacros.push_back(std::move(m));
    }
}

void PreprocessorExpansion::Chunk::assign(std::string text) {
    buffer.swap(text);
    gapStart = gapEnd = buffer.size();
}

void PreprocessorExpansion::Chunk::appendTo(std::string& out, size_t from, size_t to) const {
    size_t n = size();
    if (to > n)
        to = n;
    if (from < gapStart)
        out.append(buffer, from, std::min(to, gapStart) - from);
    if (to > gapStart) {
        size_t b = std::max(from, gapStart);
        out.append(buffer, b + gapEnd - gapStart, to - b);
    }
}

void PreprocessorExpansion::Chunk::replace(size_t at, size_t length, const std::string& text) {
    // Move the gap to `at`, drop `length` characters after it, then fill.
    if (at < gapStart) {
        size_t n = gapStart - at;
        std::memmove(&buffer[gapEnd - n], &buffer[at], n);
        gapStart -= n;
        gapEnd -= n;
    } else if (at > gapStart) {
        size_t n = at - gapStart;
        std::memmove(&buffer[gapStart], &buffer[gapEnd], n);
        gapStart += n;
        gapEnd += n;
    }
    gapEnd += length;
    if (gapEnd - gapStart < text.size()) {
        size_t tail = buffer.size() - gapEnd;
        size_t gap = text.size() + (gapStart + tail) / 2 + 16;
        std::string grown(gapStart + gap + tail, '\0');
        std::memcpy(&grown[0], buffer.data(), gapStart);
        std::memcpy(&grown[gapStart + gap], buffer.data() + gapEnd, tail);
        buffer.swap(grown);
        gapEnd = gapStart + gap;
    }
    std::memcpy(&buffer[gapStart], text.data(), text.size());
    gapStart += text.size();
}

// First occurrence of name at or after from that is not followed by a word
// character; occurrences followed by one are passed over.
size_t PreprocessorExpansion::Chunk::findStop(size_t from, const char* name, size_t length) const {
    const size_t n = size();
    const size_t gap = gapEnd - gapStart;
    while (from + length <= n) {
        size_t p = std::string::npos;
        if (from < gapStart) {
            size_t q = std::string_view(buffer.data(), gapStart).find(std::string_view(name, length), from);
            if (q != std::string_view::npos) {
                p = q;
            } else {
                // occurrences that straddle the gap
                size_t lo = gapStart >= length ? gapStart - length + 1 : 0;
                for (size_t q2 = std::max(lo, from);
                     q2 < gapStart && q2 + length <= n && p == std::string::npos; ++q2) {
                    size_t k = 0;
                    while (k < length && at(q2 + k) == name[k])
                        ++k;
                    if (k == length)
                        p = q2;
                }
            }
        }
        if (p == std::string::npos) {
            size_t b = std::max(from, gapStart);
            size_t q = std::string_view(buffer.data() + gapEnd, buffer.size() - gapEnd)
                           .find(std::string_view(name, length), b - gapStart);
            if (q == std::string_view::npos)
                return q;
            p = q + gapStart;
        }
        (void)gap;
        if (p + length < n && isWord(at(p + length))) {
            from = p + 1;
            continue;
        }
        return p;
    }
    return std::string::npos;
}

std::string PreprocessorExpansion::currentText() const {
    std::string out;
    out.reserve(mSize);
    for (const Chunk& c : mChunks)
        c.appendTo(out);
    return out;
}

// Cuts the text after a non-word character once a chunk holds CHUNK_SIZE
// characters, so that a name and the character after it share a chunk.
void PreprocessorExpansion::split(const char* text, size_t length) {
    mChunks.clear();
    size_t start = 0;
    for (size_t i = 0; i < length; ++i) {
        if (i + 1 - start >= CHUNK_SIZE && !isWord(text[i]) && i + 1 < length) {
            mChunks.emplace_back();
            mChunks.back().assign(std::string(text + start, i + 1 - start));
            start = i + 1;
        }
    }
    if (start < length || mChunks.empty())
        mChunks.emplace_back();
    mChunks.back().assign(std::string(text + start, length - start));
    mSize = length;
}

bool PreprocessorExpansion::findFirst(MacroState& m, size_t& chunk, size_t& offset) {
    while (!m.dirty.empty()) {
        size_t d = *m.dirty.begin();
        if (d >= m.resumeChunk) {
            m.dirty.clear(); // the forward scan covers these
            break;
        }
        size_t p = mChunks[d].findStop(0, m.name, m.length);
        if (p != std::string::npos) {
            chunk = d;
            offset = p;
            return true;
        }
        m.dirty.erase(m.dirty.begin());
    }
    size_t from = m.resumeOffset;
    for (size_t k = m.resumeChunk; k < mChunks.size(); ++k, from = 0) {
        size_t p = mChunks[k].findStop(from, m.name, m.length);
        if (p != std::string::npos) {
            m.resumeChunk = chunk = k;
            m.resumeOffset = offset = p;
            return true;
        }
    }
    m.resumeChunk = mChunks.size();
    m.resumeOffset = 0;
    return false;
}

bool PreprocessorExpansion::readCall(const MacroState& m, size_t chunk, size_t offset,
                                     std::vector<std::string>& arguments, size_t& endChunk,
                                     size_t& endOffset) {
    size_t c = chunk, o = offset;
    auto peek = [&](char& ch) {
        while (c < mChunks.size() && o >= mChunks[c].size()) {
            ++c;
            o = 0;
        }
        if (c >= mChunks.size())
            return false;
        ch = mChunks[c].at(o);
        return true;
    };
    char ch;
    while (peek(ch) && isBlank(ch))
        ++o;
    if (!peek(ch) || ch != '(')
        return false;
    ++o;
    const size_t parameters = m.data->parameters.size();
    arguments.clear();
    std::string current;
    int depth = 1;
    for (;;) {
        if (!peek(ch))
            throw LexerException("Syntax error in macro expansion for %s: mismatched parenthesis", m.name);
        ++o;
        if (ch == '(') {
            // Each pass strips one level of nested calls and rescans the rest,
            // so very deep nesting is refused instead of taking quadratic time.
            if (++depth > MAX_CALL_DEPTH)
                throw LexerException(
                    "Syntax error in macro expansion for %s: parentheses nested deeper than %d", m.name,
                    MAX_CALL_DEPTH);
        } else if (ch == ')') {
            if (--depth == 0)
                break;
        } else if (ch == ',' && depth == 1) {
            arguments.push_back(current);
            current.clear();
            if (arguments.size() >= parameters)
                throw LexerException("Syntax error in macro expansion for %s: mismatched parenthesis",
                                     m.name);
            continue;
        }
        current += ch;
        if (current.size() > mMaxSize)
            recursive(m.name);
    }
    arguments.push_back(current);
    for (std::string& a : arguments) {
        size_t b = 0;
        while (b < a.size() && isBlank(a[b]))
            ++b;
        a.erase(0, b);
    }
    if (parameters == 0 && arguments.size() == 1 && arguments[0].empty())
        arguments.clear();
    if (arguments.size() != parameters)
        throw LexerException("Syntax error in macro expansion for %s: expected %d parameters, found %d",
                             m.name, (int)parameters, (int)arguments.size());
    endChunk = c;
    endOffset = o;
    return true;
}

void PreprocessorExpansion::replace(const MacroState& m, size_t c1, size_t o1, size_t c2, size_t o2,
                                    const std::string& text) {
    size_t removed = 0;
    size_t end = c2;
    if (c1 == c2 &&
        (o2 < mChunks[c1].size() || c1 + 1 == mChunks.size() || (!text.empty() && !isWord(text.back())))) {
        // The usual case: an edit inside one chunk that keeps its last character
        // a non-word one (or the chunk is the last).
        removed = o2 - o1;
        mChunks[c1].replace(o1, o2 - o1, text);
        mSize = mSize - removed + text.size();
    } else {
        std::string merged;
        mChunks[c1].appendTo(merged, 0, o1);
        merged += text;
        mChunks[c2].appendTo(merged, o2);
        for (size_t k = c1; k <= c2; ++k)
            removed += mChunks[k].size();
        for (size_t k = c1 + 1; k <= c2; ++k)
            mChunks[k] = Chunk();
        // Keep every chunk but the last ending with a non-word character.
        while (!merged.empty() && isWord(merged.back())) {
            size_t next = end + 1;
            while (next < mChunks.size() && mChunks[next].empty())
                ++next;
            if (next >= mChunks.size())
                break;
            removed += mChunks[next].size();
            mChunks[next].appendTo(merged);
            mChunks[next] = Chunk();
            end = next;
        }
        mSize = mSize - removed + merged.size();
        mChunks[c1].assign(std::move(merged));
    }
    if (mSize > mMaxSize)
        recursive(m.name);
    mFingerprint =
        mix(mix(mix(mFingerprint, (uint64_t)(&m - mMacros.data())), c1), o1 * 0x10000 + text.size());
    for (MacroState& s : mMacros) {
        if (s.resumeChunk < c1)
            continue;
        size_t back = o1 >= s.length ? o1 - s.length : 0;
        if (s.resumeChunk == c1) {
            if (s.resumeOffset > back)
                s.resumeOffset = back;
        } else if (s.resumeChunk <= end) {
            s.resumeChunk = c1;
            s.resumeOffset = back;
        } else {
            s.dirty.insert(c1);
        }
    }
}

void PreprocessorExpansion::expand(const char* text, size_t length, std::string& out) {
    out.clear();
    if (mMacros.empty()) {
        out.assign(text, length);
        return;
    }
    split(text, length);
    // Brent's cycle search: the text of the last checkpoint is kept, and a
    // pass whose fingerprint and size match it is compared in full.
    std::string saved(text, length);
    uint64_t savedFingerprint = 0;
    bool haveSaved = false;
    size_t power = 1, steps = 0;
    std::vector<std::string> arguments;
    std::string substituted;
    for (;;) {
        const char* first = nullptr;
        mFingerprint = mSize;
        for (MacroState& m : mMacros) {
            size_t c, o;
            if (!findFirst(m, c, o))
                continue;
            if (o > 0 && isLetter(mChunks[c].at(o - 1)))
                continue;
            if (!m.data->functionLike) {
                replace(m, c, o, c, o + m.length, m.data->value);
            } else {
                size_t ec, eo;
                if (!readCall(m, c, o + m.length, arguments, ec, eo))
                    continue;
                mSubstitute(m.name, *m.data, arguments, substituted);
                replace(m, c, o, ec, eo, substituted);
            }
            if (!first)
                first = m.name;
        }
        if (!first)
            break;
        if (haveSaved && mFingerprint == savedFingerprint && mSize == saved.size() && currentText() == saved)
            recursive(first);
        if (++steps == power) {
            saved = currentText();
            savedFingerprint = mFingerprint;
            haveSaved = true;
            power *= 2;
            steps = 0;
        }
    }
    out = currentText();
}

} // namespace detail
} // namespace parser
} // namespace tarso
