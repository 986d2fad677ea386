#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace parser {

/// Syntax failure of a lexer or of a parser built on one.
class TMAIN_API LexerException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(LexerException)
    LexerException(const char* format, ...) TMAIN_PRINTF(2, 3);
    LexerException(const char* format, const ::core::Exception* cause, ...);
    /// Throws a copy of this exception with its dynamic type.
    virtual void throwSame() const { rethrow(); }

protected:
    LexerException() {}
};

} // namespace parser
} // namespace tarso
