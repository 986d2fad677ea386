#pragma once
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <tmain/parser/Preprocessor.h>
#include <vector>

namespace tarso {
namespace parser {
namespace detail {

/// Expands macros with the preprocessor's pass rule: each pass walks the
/// macro table in order and every macro replaces only the first occurrence of
/// its name; passes repeat until one replaces nothing. Done literally that is
/// quadratic in the length of the text, so the text is held as chunks that
/// each end with a non-word character (no name straddles two of them) and
/// every macro keeps the point before which it has no occurrence, plus the
/// chunks edited before that point. Each chunk is a gap buffer, so repeated
/// edits at one place cost the size of the edit. A text that comes back
/// (found by Brent's cycle search over a fingerprint of each pass, then
/// compared in full) or a result over the size limit throws.
class TMAIN_API PreprocessorExpansion {
public:
    typedef Preprocessor::MacroData MacroData;
    /// Builds the text that replaces a call from the macro and its arguments.
    typedef std::function<void(const char*, const MacroData&, const std::vector<std::string>&, std::string&)>
        Substitute;

    PreprocessorExpansion(const ::core::CKHashMapValue<MacroData>& macros, Substitute substitute,
                          size_t maxSize = Preprocessor::MAX_EXPANSION_SIZE);

    void expand(const char* text, size_t length, std::string& out);

private:
    /// A gap buffer holding one chunk of the text.
    struct Chunk {
        std::string buffer;
        size_t gapStart = 0;
        size_t gapEnd = 0;
        size_t size() const { return buffer.size() - (gapEnd - gapStart); }
        bool empty() const { return size() == 0; }
        char at(size_t i) const { return i < gapStart ? buffer[i] : buffer[i + gapEnd - gapStart]; }
        char back() const { return at(size() - 1); }
        void assign(std::string text);
        void appendTo(std::string& out, size_t from = 0, size_t to = std::string::npos) const;
        void replace(size_t at, size_t length, const std::string& text);
        size_t findStop(size_t from, const char* name, size_t length) const;
    };

    struct MacroState {
        const char* name;
        size_t length;
        const MacroData* data;
        size_t resumeChunk;
        size_t resumeOffset;
        std::set<size_t> dirty;
    };

    void split(const char* text, size_t length);
    bool findFirst(MacroState& m, size_t& chunk, size_t& offset);
    /// Reads the argument list of a call whose name ends at (chunk, offset);
    /// false when no '(' follows. Sets (endChunk, endOffset) past the ')'.
    bool readCall(const MacroState& m, size_t chunk, size_t offset, std::vector<std::string>& arguments,
                  size_t& endChunk, size_t& endOffset);
    void replace(const MacroState& m, size_t c1, size_t o1, size_t c2, size_t o2, const std::string& text);
    std::string currentText() const;

    std::vector<MacroState> mMacros;
    Substitute mSubstitute;
    size_t mMaxSize;
    std::vector<Chunk> mChunks;
    size_t mSize = 0;
    uint64_t mFingerprint = 0;
};

} // namespace detail
} // namespace parser
} // namespace tarso
