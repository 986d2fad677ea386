#include <tmain/parser/LexerException.h>

namespace tarso {
namespace parser {

const ::core::Type LexerException::TYPE("tarso::parser::LexerException", &::core::Exception::TYPE);

LexerException::LexerException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

LexerException::LexerException(const char* format, const ::core::Exception* cause, ...) {
    va_list args;
    va_start(args, cause);
    setMessageV(format, args);
    va_end(args);
    setCause(cause);
}

} // namespace parser
} // namespace tarso
