#pragma once
#include <tmain/parser/Expression.h>
#include <tmain/parser/Parser.h>

namespace tarso {
namespace parser {

/// Compiles the expression language into an Expression (recursive descent,
/// postfix output). Precedence from loosest to tightest: comparisons
/// (== != > >= < <=); + - and ||; * / and &&; unary + - !. So "||" binds like
/// addition and "&&" like multiplication ("a || b == c" is "(a || b) == c"),
/// and every two-operand level associates to the left. A unary operator takes
/// an element, not another unary operator ("--1" stops after the first "-").
///
/// Parsing stops quietly at the first token that fits no rule, leaving an
/// incomplete expression that fails to evaluate; the only syntax errors are a
/// missing ")" and nesting (parentheses and calls) deeper than MAX_DEPTH.
class TMAIN_API ExpressionParser : public Parser {
public:
    /// Levels of parentheses and calls accepted inside each other.
    static constexpr unsigned MAX_DEPTH = 2000;

    /// With a null lexer the parser makes and owns an ExpressionLexer.
    explicit ExpressionParser(Lexer* lexer = nullptr, bool ownsLexer = false);

    /// Resets the lexer.
    void reset();
    /// Parses the stream's text into a new Expression owned by the caller;
    /// throws LexerException on a syntax error.
    Expression* parse(stream::InputStream* in);

protected:
    void parseExpression(Expression& e);
    void parseAdditive(Expression& e);
    void parseTerm(Expression& e);
    void parseFactor(Expression& e);
    void parseElement(Expression& e);
    /// Parses comma-separated arguments up to (not including) ")" and
    /// returns their number.
    unsigned parseParameters(Expression& e);

private:
    void enter(const Token* token);

    unsigned mDepth;
};

} // namespace parser
} // namespace tarso
