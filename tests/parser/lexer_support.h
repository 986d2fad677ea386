#pragma once
// Helpers of the lexer and expression tests (and of the parser fuzz
// harness): a memory stream handing out its bytes in small pieces, a dump of
// a token stream and an evaluator with variables and two functions.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <tmain/parser/ExpressionParser.h>
#include <tmain/stream/ByteInputStream.h>

namespace parsertest {

using tarso::parser::Expression;
using tarso::parser::Token;

/// A memory stream whose reads return at most `chunk` bytes.
class ChunkedStream : public tarso::stream::ByteInputStream {
public:
    ChunkedStream(const std::string& data, unsigned chunk)
        : ByteInputStream(data.data(), (unsigned)data.size(), true), mChunk(chunk) {}
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        return ByteInputStream::read(buffer, 1, std::min(size * count, mChunk));
    }

private:
    unsigned mChunk;
};

/// "id:text@position " per token (with "=value" for literals), then "EOF@position".
inline std::string dump(tarso::parser::Lexer& lexer, const std::string& input, unsigned chunk) {
    ChunkedStream in(input, chunk);
    lexer.setInputStream(&in, true);
    std::string out;
    for (Token* t = lexer.next(); !Token::isEOF(t); t = lexer.next()) {
        out += std::to_string(t->id) + ":" + t->text;
        if (t->id == 21)
            out += "=" + std::string(t->value.stringValue);
        else if (t->id == 22 || t->id == 23)
            out +=
                "=" + (t->id == 22 ? std::to_string(t->value.intValue) : std::to_string(t->value.floatValue));
        out += "@" + std::to_string(t->position) + " ";
    }
    return out + "EOF@" + std::to_string(Token::TOKEN_EOF.position);
}

inline std::string show(const Expression::Value& v) {
    char buf[64];
    if (v.type == Expression::Value::TYPE_STRING)
        return std::string("s") + (v.value.stringValue ? v.value.stringValue : "null");
    if (v.type == Expression::Value::TYPE_FLOAT)
        snprintf(buf, sizeof(buf), "f%g", v.value.floatValue);
    else
        snprintf(buf, sizeof(buf), "i%d", v.value.intValue);
    return buf;
}

/// Variables from a table; "sub" is x - y, "neg1" is -x (int); other calls fail.
struct Evaluator {
    tarso::parser::ExpressionParser parser;
    std::map<std::string, Expression::Value> vars;
    std::string calls;

    void bind(Expression& e) {
        e.setVariableCallback([this](const char* name, Expression::Value& v, bool& ok) {
            auto it = vars.find(name);
            if ((ok = it != vars.end()))
                v = it->second;
        });
        e.setFunctionCallback(
            [this](const char* name, Expression::Value* args, unsigned n, Expression::Value& r, bool& ok) {
                calls += std::string(name) + "(";
                for (unsigned i = 0; i < n; ++i)
                    calls += show(args[i]) + (i + 1 < n ? "," : "");
                calls += ")";
                bool sub = std::string(name) == "sub" && n == 2, neg = std::string(name) == "neg1" && n == 1;
                if ((ok = sub || neg))
                    r.value.intValue =
                        sub ? (int)((unsigned)args[1].value.intValue - (unsigned)args[0].value.intValue)
                            : -args[0].value.intValue;
            });
    }

    Expression* compile(const std::string& text, unsigned chunk = 1 << 20) {
        ChunkedStream in(text, chunk);
        Expression* e = parser.parse(&in);
        bind(*e);
        return e;
    }

    /// "i7", "f3.5", "s..." or "fail" (a result count other than one).
    std::string eval(const std::string& text, unsigned chunk = 1 << 20) {
        std::unique_ptr<Expression> e(compile(text, chunk));
        return e->evaluate(true) == 1 ? show(e->getTopResult()) : "fail";
    }
};

} // namespace parsertest
