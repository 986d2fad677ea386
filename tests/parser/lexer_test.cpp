#include "lexer_support.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <tests/support/TestSupport.h>
#include <tmain/parser/Parser.h>

using namespace tarso::parser;
using parsertest::dump;

namespace {

// A small C-like lexer: '\n' ends line comments, "#" ... "#" are block
// comments, '"' opens strings, words and numbers come from text2Token.
class TestLexer : public Lexer {
public:
    explicit TestLexer(unsigned flags, unsigned bufferSize = 64)
        : Lexer(flags | FLAG_OWNS_TOKENS, bufferSize), mWord(100, "<word>"), mNumber(101, "<num>") {
        const char* texts[] = {"(", ")", ">", ">=", "IF", "ELSE", "+", "->"};
        for (unsigned i = 0; i < 8; ++i)
            addToken(new Token(i + 1, texts[i]));
    }
    bool isNewLine(const char* p) override { return *p == '\n'; }
    bool isIgnorable(char c) override { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    CommentGuess isLineComment(const char* p) override { return p[0] == '/' && p[1] == '/' ? 2 : 0; }
    CommentGuess isMultiLineComment(const char* p) override { return *p == '#' ? 1 : 0; }
    CommentGuess isEndMultiLineComment(const char* p) override { return *p == '#' ? 1 : 0; }
    const char* getMultilineComment() override { return "#"; }
    unsigned getEndMultiLineCommentLength() override { return 1; }
    const char* getEndMultilineComment() override { return "#"; }
    bool isString(const char* p) override { return *p == '"'; }
    Token* text2Token(const char* text) override {
        size_t n = strlen(text);
        if (text[0] == '"' && n >= 2 && text[n - 1] == '"') {
            mWord.text = "<str>";
            return &mWord;
        }
        if (isIdentifier(text)) {
            mWord.text = text;
            return &mWord;
        }
        if (isDigit(text[0]) && strspn(text, "0123456789") == strlen(text)) {
            mNumber.value.intValue = atoi(text);
            return &mNumber;
        }
        return nullptr;
    }
    using Lexer::addToken;
    Token mWord, mNumber;
};

class TestParser : public Parser {
public:
    explicit TestParser(Lexer* lexer) : Parser(lexer, true) {}
    using Parser::check;
    using Parser::next;
    using Parser::pop;
    using Parser::push;
    using Parser::readUntil;
    using Parser::setInputStream;
    using Parser::skipSection;
    Lexer& lexer() { return *mLexer; }
};

TEST(Token, ConstructorsStaticsAndOwnership) {
    EXPECT_JOINED("65535|<EOF>|65534|<UNKNOWN>|65533|<INVALID_BOM>|", Token::TOKEN_EOF.id,
                  Token::TOKEN_EOF.text, Token::TOKEN_UNKNOWN_ID, Token::TOKEN_UNKNOWN.text,
                  Token::TOKEN_INVALIDBOM.id, Token::TOKEN_INVALIDBOM.text);
    Token plain(7, "x"), i(1, "i", 42), f(2, "f", 2.5f), b(3, "b", true), s(4, "s", strdup("owned"));
    EXPECT_JOINED("1|-1|-1|0|0|42|2.5|1|1|owned|", plain.enabled, plain.line, plain.column,
                  plain.value.intValue, plain.ownsValue, i.value.intValue, f.value.floatValue,
                  b.value.boolValue, s.ownsValue, s.value.stringValue);
    Token copy(s);
    copy = s; // self-owned copies: ASan would see a double free or a leak
    EXPECT_NE(copy.value.stringValue, s.value.stringValue);
    EXPECT_STREQ("owned", copy.value.stringValue);
    Token eofLike(Token::TOKEN_EOF_ID, "other");
    EXPECT_JOINED("0|1|1|0|", Token::isEOF(nullptr), Token::isEOF(&Token::TOKEN_EOF), Token::isEOF(&eofLike),
                  Token::isEOF(&plain));
}

TEST(Lexer, TokenStreamsDoNotDependOnChunking) {
    struct Case {
        const char* input;
        const char* tokens;
        unsigned flags;
    } cases[] = {
        {"", "EOF@0", 0},
        {"   \n ", "EOF@5", 0},
        {">=", "4:>=@0 EOF@2", 0},
        {"> =", "3:>@0 EOF@3", 0}, // '=' alone is junk running to the end
        {">(= ", "3:>@0 1:(@1 EOF@4", 0},
        {"if(x) else", "5:IF@0 1:(@2 100:x@3 2:)@4 6:ELSE@6 EOF@10", 0},
        {"IFX ifx if", "100:IFX@0 100:ifx@4 5:IF@8 EOF@10", 0},
        {"if If", "100:if@0 100:If@3 EOF@5", Lexer::FLAG_CASE_SENSITIVE},
        {"IF+1", "5:IF@0 7:+@2 101:<num>@3 EOF@4", Lexer::FLAG_CASE_SENSITIVE},
        {"->x -> >x", "EOF@9", 0}, // "->x" is a longer word, then junk to the end
        {"-> >x", "8:->@0 3:>@3 100:x@4 EOF@5", 0},
        {"a//c\nb#c#d", "100:a@0 100:b@5 100:d@9 EOF@10", 0},
        {"a#unterminated", "100:a@0 EOF@14", 0},
        {"\"a  \t b\"(", "100:<str>@0 1:(@8 EOF@9", 0},
        {"\"open", "65534:\"open@0 EOF@5", 0},
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
        {"12 x1", "101:<num>@0 100:x1@3 EOF@5", 0},
    };
    for (const Case& c : cases) {
        TestLexer lexer(c.flags);
        std::string whole = dump(lexer, c.input, 1 << 20);
        EXPECT_EQ(c.tokens, whole) << c.input;
        EXPECT_EQ(whole, dump(lexer, c.input, 1)) << c.input;
        EXPECT_EQ(whole, dump(lexer, c.input, 3)) << c.input;
    }
}

TEST(Lexer, LongInputsKeepTokensAndPositions) {
    // Words, numbers and operators with random gaps, far over the buffer size.
    std::mt19937 rng(11);
    const char* ops[] = {"(", ")", ">=", ">", "+", "->"};
    std::string input, expected;
    for (int i = 0; i < 5000; ++i) {
        std::string gap[] = {" ", "\n\t", "// note\n", "#c#", "  #x\ny# "};
        input += gap[rng() % 5];
        std::string word;
        int kind = rng() % 3;
        if (kind == 0)
            word = ops[rng() % 6];
        else if (kind == 1)
            word = "w" + std::to_string(rng() % 100000);
        else
            word = std::to_string(rng() % 100000);
        size_t pos = input.size();
        input += word;
        input += " ";
        unsigned id = kind == 0 ? 0 : kind == 1 ? 100 : 101;
        const unsigned opIds[] = {1, 2, 4, 3, 7, 8};
        for (unsigned t = 0; kind == 0 && t < 6; ++t)
            if (word == ops[t])
                id = opIds[t];
        expected += std::to_string(id) + ":" +
                    (kind == 1   ? word
                     : kind == 2 ? "<num>"
                                 : word) +
                    "@" + std::to_string(pos) + " ";
    }
    expected += "EOF@" + std::to_string(input.size());
    TestLexer lexer(0, 1024);
    EXPECT_EQ(expected, dump(lexer, input, 1 << 20));
    EXPECT_EQ(expected, dump(lexer, input, 1));
    EXPECT_EQ(expected, dump(lexer, input, 1023));
    // A word longer than the buffer is cut into UNKNOWN pieces, never lost.
    std::string junk(200, '@');
    TestLexer small(0, 64);
    EXPECT_EQ("65534:" + junk.substr(0, 64) + "@0 65534:" + junk.substr(0, 64) +
                  "@64 65534:" + junk.substr(0, 64) + "@128 EOF@200",
              dump(small, junk, 5));
}

TEST(Lexer, PendingStackChecksAndMessages) {
    Lexer& lexer = *new TestLexer(0);
    std::unique_ptr<Lexer> owner(&lexer);
    parsertest::ChunkedStream in("( ) x", 2);
    lexer.setInputStream(&in, true);
    Token a(50, "a"), b(51, "b");
    EXPECT_EQ(nullptr, lexer.peekToken());
    lexer.pushToken(&a);
    lexer.pushToken(&b);
    EXPECT_EQ(&b, lexer.peekToken());
    EXPECT_EQ(&b, lexer.next());
    EXPECT_EQ(&a, lexer.popToken());
    EXPECT_EQ(nullptr, lexer.popToken());
    Token* open = lexer.next();
    EXPECT_NO_THROW(lexer.checkToken(open, 1));
    EXPECT_EQ(open, lexer.findToken(1u));
    EXPECT_EQ(nullptr, lexer.findToken(99u));
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
    // Disabled tokens are absent for lookups; the word falls back to text2Token.
    lexer.findToken(5u)->enabled = false;
    EXPECT_EQ("100:if@0 EOF@2", dump(lexer, "if", 1));
    EXPECT_EQ(100u, lexer.findToken("if", true)->id);
    EXPECT_EQ(nullptr, lexer.findToken("if", false));
    // The exception clones and rethrows with its type.
    LexerException e("code %d", 5);
    std::unique_ptr<core::Exception> copy(e.clone());
    EXPECT_MESSAGE(LexerException, "code 5", copy->rethrow());
    EXPECT_MESSAGE(LexerException, "code 5", e.throwSame());
    LexerException caused("outer %s", &e, "x");
    EXPECT_JOINED("outer x|code 5|", caused.getMessage(), caused.getCause()->getMessage());
}

TEST(Lexer, ReadUntilSkipAndSkipSection) {
    TestParser parser(new TestLexer(0, 64));
    std::string body(300, 'z');
    parsertest::ChunkedStream in("a  b\n\tc END( ( x ) ) y  " + body + " -->", 1);
    parser.setInputStream(&in, true);
    EXPECT_STREQ("a b c ", parser.readUntil("END"));
    EXPECT_STREQ("", parser.readUntil("END")); // the delimiter is not consumed
    EXPECT_TRUE(parser.lexer().skip(3));
    EXPECT_EQ(1u, parser.next()->id);
    parser.skipSection(1, 2, 1);
    EXPECT_STREQ("y", parser.next()->text);
    EXPECT_EQ(" " + body + " -", parser.readUntil("->"));
    EXPECT_TRUE(parser.lexer().skip(2));
    EXPECT_FALSE(parser.lexer().skip(1));
    EXPECT_TRUE(Token::isEOF(parser.next()));
    EXPECT_TRUE(Token::isEOF(parser.next()));
    parser.skipSection(1, 2, 1); // returns at the end of input
}

} // namespace
