#pragma once
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace parser {

/// A growable character string used by the lexer to collect the text of
/// strings and of readUntil. Copyable and movable.
class TMAIN_API TextStore {
public:
    explicit TextStore(unsigned initialCapacity = 0) { mText.reserve(initialCapacity); }

    void append(const char* text) {
        if (text)
            mText.append(text);
    }
    void append(const char* text, unsigned length) { mText.append(text, length); }
    void append(char c) { mText.push_back(c); }
    void clear() { mText.clear(); }
    /// The NUL-terminated contents; valid until the next change.
    const char* getText() const { return mText.c_str(); }
    unsigned getLength() const { return (unsigned)mText.size(); }

private:
    std::string mText;
};

} // namespace parser
} // namespace tarso
