// libFuzzer harness for the expression lexer and parser.
//
// Byte 0 picks the read size of the stream (1, 7, 300 or all at once); the
// rest is the text. Invariants:
// - the token stream (ids, texts, values, positions) is the same whether the
//   stream hands out its bytes one by one, in small pieces or all at once;
// - the lexer advances (a stuck lexer shows as a timeout);
// - parsing gives an Expression or a LexerException, nothing else, and
//   evaluating it (variables and calls through callbacks) leaves at most one
//   value;
// - preprocessing gives the same output (or the same LexerException) however
//   the stream delivers its bytes.
#include "../parser/lexer_support.h"
#include "fuzz_support.h"

#include <climits>
#include <cstring>
#include <string>
#include <tmain/parser/ExpressionLexer.h>
#include <tmain/parser/ExpressionParser.h>
#include <tmain/parser/Preprocessor.h>
#include <tmain/stream/ByteOutputStream.h>

using namespace tarso::parser;

namespace {
const char* const NAME = "parser_fuzz";

// The preprocessed text, or "!" and the message of the LexerException.
std::string preprocessed(const std::string& text, unsigned chunk) {
    parsertest::ChunkedStream in(text, chunk);
    tarso::stream::ByteOutputStream out;
    out.open(tarso::stream::ByteOutputStream::OM_WRITE);
    std::string error;
    try {
        Preprocessor().preprocess(&in, &out);
    } catch (const LexerException& e) {
        error = std::string("!") + e.getMessage();
    }
    return std::string(reinterpret_cast<const char*>(out.getBytes()), out.getSize()) + error;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    fuzz::silenceLog();
    const unsigned chunk = fuzz::bufferSize(data[0]) == 16384 ? 1u << 30 : fuzz::bufferSize(data[0]);
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    ExpressionLexer lexer;
    if (parsertest::dump(lexer, text, chunk) != parsertest::dump(lexer, text, 1u << 30))
        fuzz::fail(NAME, "tokens depend on how the stream delivers its bytes");

    if (preprocessed(text, chunk) != preprocessed(text, 1u << 30))
        fuzz::fail(NAME, "preprocessing depends on how the stream delivers its bytes");

    ExpressionParser parser;
    parsertest::ChunkedStream in(text, chunk);
    std::unique_ptr<Expression> e;
    try {
        e.reset(parser.parse(&in));
    } catch (const LexerException&) {
        return 0;
    }
    e->setVariableCallback([](const char* name, Expression::Value& v, bool& ok) {
        // Names decide: 'f...' floats, 's...' strings, 'u...' unknown, else ints.
        ok = name[0] != 'u';
        if (name[0] == 'f') {
            v.type = Expression::Value::TYPE_FLOAT;
            v.value.floatValue = -0.0f;
        } else if (name[0] == 's') {
            v.type = Expression::Value::TYPE_STRING;
            v.value.stringValue = name;
        } else {
            v.value.intValue = name[0] == 'm' ? INT_MIN : (int)strlen(name) - 2;
        }
    });
    e->setFunctionCallback(
        [](const char* name, Expression::Value* args, unsigned n, Expression::Value& r, bool& ok) {
            ok = name[0] != 'u' && n > 0;
            if (ok)
                r = args[n - 1];
        });
    if (e->evaluate(true) > 1 || e->evaluate(false) > 2)
        fuzz::fail(NAME, "evaluation left more values than it may");
    Expression copy(*e);
    if (copy.getEntryCount() != e->getEntryCount() || copy.evaluate(true) != e->evaluate(true))
        fuzz::fail(NAME, "a copy evaluates differently");
    return 0;
}
