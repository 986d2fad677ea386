#pragma once
#include <string>
#include <tmain/Export.h>

namespace text {

/// Walks the tokens of a string separated by a single delimiter character.
/// The string is copied, so the source need not outlive the tokenizer.
/// Without returnEmpty, empty tokens are skipped; with it, adjacent delimiters
/// yield empty tokens and a non-empty string with n delimiters yields n + 1
/// tokens. An empty or null string yields no tokens, as in StringUtil::split.
class TMAIN_API StringTokenizer {
public:
    StringTokenizer(const char* s, char delimiter, bool returnEmpty = false);

    bool hasMoreTokens() const;
    /// The next token; throws core::IllegalStateException when none is left.
    std::string nextToken();
    /// Number of tokens nextToken() can still return.
    unsigned countTokens() const;

private:
    /// Moves mPos past delimiters that would only produce skipped empty tokens.
    void skipEmpty();

    std::string mText;
    char mDelimiter;
    bool mReturnEmpty;
    size_t mPos;
    bool mDone;
};

} // namespace text
