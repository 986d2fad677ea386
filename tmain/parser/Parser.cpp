#include <tmain/parser/Parser.h>

namespace tarso {
namespace parser {

Parser::Parser(Lexer* lexer, bool ownsLexer) : mLexer(lexer), mOwnsLexer(ownsLexer) {}

Parser::~Parser() {
    if (mOwnsLexer)
        delete mLexer;
}

void Parser::skipSection(int openId, int closeId, int depth) {
    while (depth > 0) {
        Token* token = next();
        if (Token::isEOF(token) || token == nullptr)
            return;
        if (token->id == (unsigned)openId)
            ++depth;
        else if (token->id == (unsigned)closeId)
            --depth;
    }
}

} // namespace parser
} // namespace tarso
