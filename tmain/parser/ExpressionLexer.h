#pragma once
#include <string>
#include <tmain/parser/Lexer.h>

namespace tarso {
namespace parser {

/// The lexer of the expression language: operators, parentheses and commas
/// from the table, literals and identifiers from text2Token.
///
/// Behaviour kept on purpose:
/// - line comments ("//") end at CR only: with LF line ends a line comment
///   runs to the end of the input;
/// - a two-character operator glued to a following letter or digit ("1>=2")
///   is not an operator: it starts a word that no rule accepts, and such a
///   word swallows what follows it;
/// - '=' is not a token by itself, so it does not end a word: "a==b" is one
///   identifier and "1==2" the int 1 (write "a == b");
/// - number words are read with atoi/atof: "12ab" is the int 12, "1e5" the
///   int 1, and a number word reading as 0 other than "0" itself (such as
///   "00" or "0x1F") is no token at all; ints beyond 32 bits saturate;
/// - "|", "&", "~" and "^" are recognised but used by no grammar rule;
/// - bytes 128-255 outside strings separate tokens like blanks.
/// The literal tokens belong to the lexer and are overwritten by the next
/// literal it reads.
class TMAIN_API ExpressionLexer : public Lexer {
public:
    enum TokenId {
        ID_LPAREN = 1,
        ID_RPAREN = 2,
        ID_COMMA = 3,
        ID_MUL = 4,
        ID_DIV = 5,
        ID_ADD = 6,
        ID_SUB = 7,
        ID_OR = 8,
        ID_AND = 9,
        ID_NOT = 10,
        ID_BITOR = 11,
        ID_BITAND = 12,
        ID_TILDE = 13,
        ID_EQ = 14,
        ID_NE = 15,
        ID_GT = 16,
        ID_GE = 17,
        ID_LT = 18,
        ID_LE = 19,
        ID_CARET = 20,
        ID_STRING = 21,
        ID_INT = 22,
        ID_FLOAT = 23,
        ID_BOOL = 24,
        ID_IDENTIFIER = 25,
    };

    /// Bit 0 of flags is ignored (the lexer keeps its own tokens); bit 1
    /// (case-sensitive) is the usual choice. Buffer of 1024 characters.
    explicit ExpressionLexer(unsigned flags = FLAG_CASE_SENSITIVE);
    ~ExpressionLexer() override;

    /// CR only.
    bool isNewLine(const char* p) override;
    /// Tab, blank, LF, CR, any control character and bytes 128-255.
    bool isIgnorable(char c) override;
    CommentGuess isLineComment(const char* p) override;
    CommentGuess isMultiLineComment(const char* p) override;
    CommentGuess isEndMultiLineComment(const char* p) override;
    const char* getMultilineComment() override { return "/*"; }
    unsigned getEndMultiLineCommentLength() override { return 2; }
    const char* getEndMultilineComment() override { return "*/"; }
    bool isString(const char* p) override;
    /// Strings "<!string!>", floats "<!float!>", ints "<!int!>" and
    /// identifiers (text = the word) as described above; null otherwise.
    Token* text2Token(const char* text) override;

protected:
    void fillTokens();

private:
    Token* mOperators[20];
    Token mString, mInt, mFloat, mBool, mIdentifier;
    std::string mStringValue;
};

} // namespace parser
} // namespace tarso
