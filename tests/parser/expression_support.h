#pragma once
// Parses and evaluates expression texts for the expression tests.
#include "lexer_support.h"

#include <cstdio>
#include <map>
#include <string>
#include <tmain/parser/ExpressionParser.h>

namespace parsertest {

using tarso::parser::Expression;

inline std::string show(const Expression::Value& v) {
    char buf[64];
    if (v.type == Expression::Value::TYPE_INT)
        snprintf(buf, sizeof(buf), "i%d", v.value.intValue);
    else if (v.type == Expression::Value::TYPE_FLOAT)
        snprintf(buf, sizeof(buf), "f%g", v.value.floatValue);
    else
        return std::string("s") + (v.value.stringValue ? v.value.stringValue : "null");
    return buf;
}

/// Variables from a table; "sub" is x - y, "neg1" is -x; any other call fails.
struct Evaluator {
    tarso::parser::ExpressionParser parser;
    std::map<std::string, Expression::Value> vars;
    std::string calls;

    void bind(Expression& e) {
        e.setVariableCallback([this](const char* name, Expression::Value& v, bool& ok) {
            auto it = vars.find(name);
            if (it != vars.end()) {
                v = it->second;
                ok = true;
            }
        });
        e.setFunctionCallback([this](const char* name, Expression::Value* args, unsigned n,
                                     Expression::Value& r, bool& ok) {
            calls += std::string(name) + "(";
            for (unsigned i = 0; i < n; ++i)
                calls += show(args[i]) + (i + 1 < n ? "," : "");
            calls += ")";
            std::string f(name);
            if (f == "sub" && n == 2 && args[0].type == 1 && args[1].type == 1) {
                r.type = 1;
                r.value.intValue = (int)((unsigned)args[1].value.intValue - (unsigned)args[0].value.intValue);
                ok = true;
            } else if (f == "neg1" && n == 1) {
                r = args[0];
                r.value.intValue = -r.value.intValue;
                ok = true;
            }
        });
    }

    Expression* compile(const std::string& text, unsigned chunk = 1 << 20) {
        ChunkedStream in(text, chunk);
        Expression* e = parser.parse(&in);
        bind(*e);
        return e;
    }

    /// "i7", "f3.5", "s..." or "fail" (result count other than one).
    std::string eval(const std::string& text, unsigned chunk = 1 << 20) {
        std::unique_ptr<Expression> e(compile(text, chunk));
        return e->evaluate(true) == 1 ? show(e->getTopResult()) : "fail";
    }
};

} // namespace parsertest
