#include "lexer_support.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <tests/support/TestSupport.h>

using namespace tarso::parser;
using parsertest::dump;

namespace {

// A C-like lexer: "//" to LF and "#...#" comments, '"' strings; words and
// digit runs (ids 100 and 101) from text2Token.
class TestLexer : public Lexer {
public:
    explicit TestLexer(unsigned flags, unsigned bufferSize = 64)
        : Lexer(flags | FLAG_OWNS_TOKENS, bufferSize) {
        const char* texts[] = {"(", ")", ">", ">=", "IF", "ELSE", "+", "->"};
        for (unsigned i = 0; i < 8; ++i)
            addToken(new Token(i + 1, texts[i]));
    }
    bool isNewLine(const char* p) override { return *p == '\n'; }
    bool isIgnorable(char c) override { return c == ' ' || c == '\n'; }
    CommentGuess isLineComment(const char* p) override { return p[0] == '/' && p[1] == '/' ? 2 : 0; }
    CommentGuess isMultiLineComment(const char* p) override { return *p == '#'; }
    CommentGuess isEndMultiLineComment(const char* p) override { return *p == '#'; }
    const char* getMultilineComment() override { return "#"; }
    unsigned getEndMultiLineCommentLength() override { return 1; }
    const char* getEndMultilineComment() override { return "#"; }
    bool isString(const char* p) override { return *p == '"'; }
    Token* text2Token(const char* text) override {
        size_t n = strlen(text);
        bool str = text[0] == '"' && n >= 2 && text[n - 1] == '"';
        if (!str && !isIdentifier(text) && strspn(text, "0123456789") != n)
            return nullptr;
        mWord.text = str ? "<str>" : text;
        mWord.id = isDigit(text[0]) ? 101 : 100;
        return &mWord;
    }
    Token mWord{100, ""};
};

struct TestParser : Parser {
    using Parser::next, Parser::readUntil, Parser::setInputStream, Parser::skipSection;
    using Parser::Parser;
};

TEST(Token, ConstructorsStaticsAndOwnership) {
    EXPECT_JOINED("65535|<EOF>|65534|<UNKNOWN>|65533|<INVALID_BOM>|", Token::TOKEN_EOF.id,
                  Token::TOKEN_EOF.text, Token::TOKEN_UNKNOWN_ID, Token::TOKEN_UNKNOWN.text,
                  Token::TOKEN_INVALIDBOM.id, Token::TOKEN_INVALIDBOM.text);
    Token plain(7, "x"), i(1, "i", 42), f(2, "f", 2.5f), b(3, "b", true), s(4, "s", strdup("owned"));
    Token copy(s), eofLike(Token::TOKEN_EOF_ID, "other");
    copy = s; // a copy owns its own string: ASan sees double frees and leaks
    EXPECT_JOINED("1|-1|-1|0|0|42|2.5|1|1|owned|0|1|1|1|0|", plain.enabled, plain.line, plain.column,
                  plain.value.intValue, plain.ownsValue, i.value.intValue, f.value.floatValue,
                  b.value.boolValue, s.ownsValue, copy.value.stringValue,
                  copy.value.stringValue == s.value.stringValue, Token::isEOF(&Token::TOKEN_EOF),
                  Token::isEOF(&eofLike), !Token::isEOF(nullptr), Token::isEOF(&plain));
}

TEST(Lexer, TokenStreamsDoNotDependOnChunking) {
    const unsigned CS = Lexer::FLAG_CASE_SENSITIVE;
    struct {
        const char* input;
        const char* tokens;
        unsigned flags;
    } cases[] = {
        {"", "EOF@0", 0},
        {"   \n ", "EOF@5", 0},
        {">= > =", "4:>=@0 3:>@3 EOF@6", 0}, // '=' alone is junk running to the end
        {">(= ", "3:>@0 1:(@1 EOF@4", 0},
        {"if(x) else", "5:IF@0 1:(@2 100:x@3 2:)@4 6:ELSE@6 EOF@10", 0},
        {"IFX ifx if", "100:IFX@0 100:ifx@4 5:IF@8 EOF@10", 0}, // keyword + letters is a word
        {"if If IF+1", "100:if@0 100:If@3 5:IF@6 7:+@8 101:1@9 EOF@10", CS},
        {"->x -> >x", "EOF@9", 0}, // "->x" no rule accepts: junk to the end
        {"-> >x", "8:->@0 3:>@3 100:x@4 EOF@5", 0},
        {"a//c\nb#c#d #open", "100:a@0 100:b@5 100:d@9 EOF@16", 0},
        {"\"a  \n b\"(\"open", "100:<str>@0 1:(@8 65534:\"open@9 EOF@14", 0},
        {"\xEF\xBB\xBF"
         "a",
         "100:a@3 EOF@4", 0},
        {"\xEF\xBB\xBF", "EOF@3", 0},
        {"\xFF"
         "a",
         "65533:<INVALID_BOM>@0 100:a@1 EOF@2", 0},
        {"\xEF"
         "a b",
         "65533:<INVALID_BOM>@0 100:a@1 100:b@3 EOF@4", 0},
    };
    for (const auto& c : cases) {
        TestLexer lexer(c.flags);
        std::string whole = dump(lexer, c.input, 1 << 20);
        EXPECT_EQ(c.tokens, whole) << c.input;
        EXPECT_EQ(whole, dump(lexer, c.input, 1)) << c.input;
        EXPECT_EQ(whole, dump(lexer, c.input, 3)) << c.input;
    }
}

TEST(Lexer, LongInputsKeepTokensAndPositions) {
    std::mt19937 rng(11);
    const char* words[] = {"(", ")", ">=", ">", "+", "->", "w7", "x_12345", "0", "98765"};
    const char* ids[] = {"1", "2", "4", "3", "7", "8", "100", "100", "101", "101"};
    const char* gaps[] = {" ", "\n ", "// note\n", "#c#", "  #x\ny# "};
    std::string input, expected;
    for (int i = 0; i < 5000; ++i) {
        input += gaps[rng() % 5];
        unsigned w = rng() % 10;
        expected += std::string(ids[w]) + ":" + words[w] + "@" + std::to_string(input.size()) + " ";
        input += words[w] + std::string(" ");
    }
    expected += "EOF@" + std::to_string(input.size());
    TestLexer lexer(0, 1024);
    EXPECT_EQ(expected, dump(lexer, input, 1 << 20));
    EXPECT_EQ(expected, dump(lexer, input, 1));
    EXPECT_EQ(expected, dump(lexer, input, 1023));
    // A word longer than the buffer comes as UNKNOWN pieces, never lost.
    std::string junk(200, '@'), piece(64, '@');
    TestLexer small(0, 64);
    EXPECT_EQ("65534:" + piece + "@0 65534:" + piece + "@64 65534:" + piece + "@128 EOF@200",
              dump(small, junk, 5));
}

TEST(Lexer, PendingStackLookupsAndMessages) {
    TestLexer lexer(0);
    parsertest::ChunkedStream in("( ) x", 2);
    lexer.setInputStream(&in, true);
    Token a(50, "a"), b(51, "b");
    lexer.pushToken(&a);
    lexer.pushToken(&b);
    EXPECT_JOINED("b|b|a|1|", lexer.peekToken()->text, lexer.next()->text, lexer.popToken()->text,
                  lexer.popToken() == nullptr && lexer.peekToken() == nullptr);
    Token* open = lexer.next();
    EXPECT_NO_THROW(lexer.checkToken(open, 1));
    EXPECT_TRUE(lexer.findToken(1u) == open && lexer.findToken(99u) == nullptr);
    Token* close = lexer.next();
    close->line = 3;
    close->column = 9;
    EXPECT_MESSAGE(LexerException, "Syntax error: '(' expected, ')' found. At position 3:9",
                   lexer.checkToken(close, 1));
    EXPECT_MESSAGE(LexerException,
                   "Syntax error: invalid token search. Expected token ID=77 does not exist. At position 3:9",
                   lexer.checkToken(close, 77));
    EXPECT_MESSAGE(LexerException, "Syntax error: unexpected token 'x' at position -1:-1",
                   lexer.unexpectedToken(lexer.next()));
    close->line = close->column = -1;
    lexer.findToken(5u)->enabled = false; // disabled: absent for lookups
    EXPECT_EQ("100:if@0 EOF@2", dump(lexer, "if", 1));
    EXPECT_TRUE(lexer.findToken("if", true)->id == 100 && lexer.findToken("if", false) == nullptr);
    LexerException e("code %d", 5), caused("outer %s", &e, "x");
    std::unique_ptr<core::Exception> copy(e.clone());
    EXPECT_MESSAGE(LexerException, "code 5", copy->rethrow());
    EXPECT_MESSAGE(LexerException, "code 5", e.throwSame());
    EXPECT_JOINED("outer x|code 5|", caused.getMessage(), caused.getCause()->getMessage());
}

TEST(Lexer, ReadUntilSkipAndSkipSection) {
    TestLexer* lexer = new TestLexer(0, 64);
    TestParser parser(lexer, true);
    std::string body(300, 'z');
    parsertest::ChunkedStream in("a  b\n\nc END( ( x ) ) y  " + body + " -->", 1);
    parser.setInputStream(&in, true);
    EXPECT_STREQ("a b c ", parser.readUntil("END"));
    EXPECT_STREQ("", parser.readUntil("END")); // the delimiter is not consumed
    EXPECT_TRUE(lexer->skip(3));
    EXPECT_EQ(1u, parser.next()->id);
    parser.skipSection(1, 2, 1);
    EXPECT_STREQ("y", parser.next()->text);
    EXPECT_EQ(" " + body + " -", parser.readUntil("->"));
    EXPECT_TRUE(lexer->skip(2));
    EXPECT_FALSE(lexer->skip(1));
    EXPECT_TRUE(Token::isEOF(parser.next()) && Token::isEOF(parser.next()));
    parser.skipSection(1, 2, 1); // returns at the end of input
}

} // namespace
