// tmain eval: compiles and evaluates an expression, with variables from the
// command line.
#include "Tool.h"
#include <cerrno>
#include <cstdlib>
#include <map>
#include <tmain/parser/Expression.h>
#include <tmain/parser/ExpressionParser.h>
#include <tmain/stream/ByteInputStream.h>

using namespace tarso;

namespace tmaintool {

namespace {

struct EvalOptions {
    std::string expression;
    std::vector<std::string> variables;
};

/// NAME=VALUE: an int when VALUE is one, else a float when it is one, else a string.
struct Variable {
    std::string text;
    parser::Expression::Value value;
};

Variable parseVariable(const std::string& value) {
    Variable v;
    v.text = value;
    const char* s = value.c_str();
    char* end = nullptr;
    errno = 0;
    long i = strtol(s, &end, 0);
    if (*s && !*end && errno == 0 && i >= INT32_MIN && i <= INT32_MAX) {
        v.value.type = parser::Expression::Value::TYPE_INT;
        v.value.value.intValue = (int)i;
        return v;
    }
    float f = strtof(s, &end);
    if (*s && !*end) {
        v.value.type = parser::Expression::Value::TYPE_FLOAT;
        v.value.value.floatValue = f;
        return v;
    }
    v.value.type = parser::Expression::Value::TYPE_STRING;
    return v;
}

std::string format(const parser::Expression::Value& v) {
    char b[64];
    if (v.type == parser::Expression::Value::TYPE_INT)
        snprintf(b, sizeof(b), "%d", v.value.intValue);
    else if (v.type == parser::Expression::Value::TYPE_FLOAT)
        snprintf(b, sizeof(b), "%g", (double)v.value.floatValue);
    else
        return v.value.stringValue ? v.value.stringValue : "";
    return b;
}

int runEval(const EvalOptions& o) {
    std::map<std::string, Variable> vars;
    for (const std::string& a : o.variables) {
        size_t eq = a.find('=');
        if (eq == std::string::npos || eq == 0)
            throw Failure{a, "expected NAME=VALUE"};
        vars[a.substr(0, eq)] = parseVariable(a.substr(eq + 1));
    }
    for (auto& kv : vars)
        if (kv.second.value.type == parser::Expression::Value::TYPE_STRING)
            kv.second.value.value.stringValue = kv.second.text.c_str();
    stream::ByteInputStream in(o.expression.data(), (unsigned)o.expression.size(), false);
    in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    parser::ExpressionParser parser;
    std::unique_ptr<parser::Expression> e(parser.parse(&in));
    e->setVariableCallback([&vars](const char* name, parser::Expression::Value& out, bool& handled) {
        auto it = vars.find(name);
        if (it == vars.end())
            throw Failure{"", std::string("unknown variable '") + name + "' (pass " + name + "=VALUE)"};
        out = it->second.value;
        handled = true;
    });
    e->evaluate(true);
    std::string text = format(e->getTopResult()) + "\n";
    writeStdout(text.data(), text.size());
    return EXIT_OK;
}

} // namespace

void addEval(CLI::App& app, int& status) {
    auto o = std::make_shared<EvalOptions>();
    CLI::App* cmd = app.add_subcommand("eval", "Evaluate an expression");
    cmd->add_option("EXPR", o->expression, "The expression, e.g. \"(a + 2) * 3 >= b\"")->required();
    cmd->add_option("NAME=VALUE", o->variables, "Variables: ints, floats or strings");
    cmd->callback([o, &status] { status = guarded(o->expression, [o] { return runEval(*o); }); });
}

} // namespace tmaintool
