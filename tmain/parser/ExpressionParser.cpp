#include <memory>
#include <string>
#include <tmain/parser/ExpressionLexer.h>
#include <tmain/parser/ExpressionParser.h>

namespace tarso {
namespace parser {

typedef ExpressionLexer L;

ExpressionParser::ExpressionParser(Lexer* lexer, bool ownsLexer)
    : Parser(lexer ? lexer : new ExpressionLexer(Lexer::FLAG_CASE_SENSITIVE), lexer ? ownsLexer : true),
      mDepth(0) {}

void ExpressionParser::reset() {
    mLexer->reset();
}

Expression* ExpressionParser::parse(stream::InputStream* in) {
    setInputStream(in, true);
    std::unique_ptr<Expression> expression(new Expression());
    mDepth = 0;
    parseExpression(*expression);
    return expression.release();
}

void ExpressionParser::enter(const Token* token) {
    if (++mDepth > MAX_DEPTH)
        throw LexerException("Syntax error: expression nested deeper than %u levels at offset %u",
                             (unsigned)MAX_DEPTH, token->position);
}

void ExpressionParser::parseExpression(Expression& e) {
    parseAdditive(e);
    for (;;) {
        Token* token = next();
        if (token->id < L::ID_EQ || token->id > L::ID_LE) {
            push(token);
            return;
        }
        // "==" 14 ... "<=" 19 compile to equal 13 ... less or equal 18.
        Expression::Command command = (Expression::Command)(token->id - 1);
        parseAdditive(e);
        e.push(command);
    }
}

void ExpressionParser::parseAdditive(Expression& e) {
    parseTerm(e);
    for (;;) {
        Token* token = next();
        Expression::Command command;
        if (token->id == L::ID_ADD)
            command = Expression::CMD_ADD;
        else if (token->id == L::ID_SUB)
            command = Expression::CMD_SUB;
        else if (token->id == L::ID_OR)
            command = Expression::CMD_OR;
        else {
            push(token);
            return;
        }
        parseTerm(e);
        e.push(command);
    }
}

void ExpressionParser::parseTerm(Expression& e) {
    parseFactor(e);
    for (;;) {
        Token* token = next();
        Expression::Command command;
        if (token->id == L::ID_MUL)
            command = Expression::CMD_MUL;
        else if (token->id == L::ID_DIV)
            command = Expression::CMD_DIV;
        else if (token->id == L::ID_AND)
            command = Expression::CMD_AND;
        else {
            push(token);
            return;
        }
        parseFactor(e);
        e.push(command);
    }
}

void ExpressionParser::parseFactor(Expression& e) {
    Token* token = next();
    if (token->id == L::ID_ADD) {
        parseElement(e);
    } else if (token->id == L::ID_SUB) {
        parseElement(e);
        e.push(Expression::CMD_NEG);
    } else if (token->id == L::ID_NOT) {
        parseElement(e);
        e.push(Expression::CMD_NOT);
    } else {
        push(token);
        parseElement(e);
    }
}

void ExpressionParser::parseElement(Expression& e) {
    Token* token = next();
    switch (token->id) {
    case L::ID_LPAREN:
        enter(token);
        parseExpression(e);
        check(next(), L::ID_RPAREN);
        --mDepth;
        return;
    case L::ID_INT:
        e.push(token->value.intValue);
        return;
    case L::ID_FLOAT:
        e.push(token->value.floatValue);
        return;
    case L::ID_IDENTIFIER: {
        // The token's text lives in the lexer's buffer: keep it before reading on.
        std::string name(token->text);
        Token* following = next();
        if (following->id != L::ID_LPAREN) {
            push(following);
            e.push(name.c_str(), Expression::CMD_VARIABLE);
            return;
        }
        enter(following);
        unsigned count = parseParameters(e);
        check(next(), L::ID_RPAREN);
        --mDepth;
        e.push(name.c_str(), Expression::CMD_FUNCTION);
        e.push((int)count);
        return;
    }
    default:
        push(token);
        return;
    }
}

unsigned ExpressionParser::parseParameters(Expression& e) {
    Token* token = next();
    push(token);
    if (token->id == L::ID_RPAREN)
        return 0;
    unsigned count = 0;
    for (;;) {
        parseExpression(e);
        ++count;
        token = next();
        if (token->id != L::ID_COMMA) {
            push(token);
            return count;
        }
    }
}

} // namespace parser
} // namespace tarso
