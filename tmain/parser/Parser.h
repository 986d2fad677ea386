#pragma once
#include <tmain/parser/Lexer.h>

namespace tarso {
namespace parser {

/// Base of recursive-descent parsers: forwards to a lexer it may own.
class TMAIN_API Parser {
public:
    Parser(Lexer* lexer, bool ownsLexer);
    virtual ~Parser();

    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

protected:
    Token* next() { return mLexer->next(); }
    Token* pop() { return mLexer->popToken(); }
    void push(Token* token) { mLexer->pushToken(token); }
    void check(Token* token, unsigned id) { mLexer->checkToken(token, id); }
    const char* readUntil(const char* delimiter) { return mLexer->readUntil(delimiter, true); }
    void setInputStream(stream::InputStream* in, bool reset) { mLexer->setInputStream(in, reset); }
    /// Reads tokens until the section opened `depth` levels deep is closed
    /// (openId adds a level, closeId removes one) or the input ends.
    void skipSection(int openId, int closeId, int depth);

    Lexer* mLexer;
    bool mOwnsLexer;
};

} // namespace parser
} // namespace tarso
