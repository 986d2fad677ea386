// Expressions against their peers, in one run, as speed ratios (ours / theirs,
// higher is better):
// - evaluating one compiled expression with two variables, ours resolving
//   them by callback by name on every evaluation, muparser with DefineVar;
// - lexing a 20 MB generated expression text with ExpressionLexer, with a
//   flex scanner of the same tokens, and with `cpp -P` (which tokenises too).
#include "BenchTiming.h"

#include <cstring>
#include <fstream>
#include <muParser.h>
#include <random>
#include <tmain/parser/ExpressionLexer.h>
#include <tmain/parser/ExpressionParser.h>
#include <tmain/stream/ByteInputStream.h>
#include <unistd.h>

extern "C" long long exprScanCount(const char* data, size_t size, long long* idSum);

using namespace tarso::parser;
using tarso::stream::ByteInputStream;

namespace {

// Each variable once, and each three times (six callbacks per evaluation).
const char* const FORMULAS[] = {"a * 2.5 + b", "(a + 2.5) * b - a / 4.0 + (b > a)"};
const int EVALUATIONS = 2000000;
const int REPETITIONS = 5;

double evaluateOurs(const char* formula, double& check) {
    ExpressionParser parser;
    ByteInputStream in(formula, (unsigned)strlen(formula), false);
    std::unique_ptr<Expression> e(parser.parse(&in));
    float a = 0, b = 0;
    e->setVariableCallback([&](const char* name, Expression::Value& v, bool& ok) {
        v.type = Expression::Value::TYPE_FLOAT;
        v.value.floatValue = name[0] == 'a' && name[1] == 0 ? a : b;
        ok = true;
    });
    double sum = 0;
    double t = timed([&] {
        for (int i = 0; i < EVALUATIONS; ++i) {
            a = (float)(i & 1023);
            b = (float)(i % 77);
            e->evaluate(true);
            sum += e->getTopResult().value.floatValue;
        }
    });
    check = sum;
    return t;
}

double evaluateMuparser(const char* formula, double& check) {
    mu::Parser p;
    double a = 0, b = 0;
    p.DefineVar("a", &a);
    p.DefineVar("b", &b);
    p.SetExpr(formula);
    double sum = 0;
    double t = timed([&] {
        for (int i = 0; i < EVALUATIONS; ++i) {
            a = (double)(i & 1023);
            b = (double)(i % 77);
            sum += p.Eval();
        }
    });
    check = sum;
    return t;
}

// Identifiers, ints, floats, strings, operators and comments, every token
// followed by a blank or a line end so that all three readers agree on them.
std::string generateText(size_t size) {
    std::mt19937 rng(3);
    const char* ops[] = {"(",  ")", ",",  "*",  "/", "+",  "-", "||",
                         "&&", "!", "==", "!=", ">", ">=", "<", "<="};
    std::string text;
    text.reserve(size + 64);
    while (text.size() < size) {
        switch (rng() % 6) {
        case 0:
            text += "value_" + std::to_string(rng() % 1000);
            break;
        case 1:
            text += std::to_string(1 + rng() % 100000);
            break;
        case 2:
            text += std::to_string(rng() % 1000) + "." + std::to_string(rng() % 100);
            break;
        case 3:
            text += rng() % 50 ? "f" : "\"quoted text\"";
            break;
        default:
            text += ops[rng() % 16];
        }
        text += rng() % 12 ? " " : rng() % 4 ? "\r\n" : " /* note */\r\n";
    }
    return text;
}

long long lexOurs(const std::string& text, long long& idSum) {
    ByteInputStream in(text.data(), (unsigned)text.size(), false);
    ExpressionLexer lexer;
    lexer.setInputStream(&in, true);
    long long count = 0;
    for (Token* t = lexer.next(); !Token::isEOF(t); t = lexer.next()) {
        ++count;
        idSum += t->id;
    }
    return count;
}

} // namespace

int main() {
    for (const char* formula : FORMULAS) {
        std::vector<double> ours, theirs;
        double sumOurs = 0, sumTheirs = 0;
        for (int r = 0; r < REPETITIONS; ++r) {
            ours.push_back(evaluateOurs(formula, sumOurs));
            theirs.push_back(evaluateMuparser(formula, sumTheirs));
        }
        printf("evaluate \"%s\" x %d: ours %.1f ns, muparser %.1f ns per evaluation; speed ratio %.2f "
               "(sums %.6g / %.6g)\n",
               formula, EVALUATIONS, median(ours) * 1e9 / EVALUATIONS, median(theirs) * 1e9 / EVALUATIONS,
               median(theirs) / median(ours), sumOurs, sumTheirs);
    }

    const std::string text = generateText(20u << 20);
    char path[] = "/tmp/bench_expression_XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0 || write(fd, text.data(), text.size()) != (ssize_t)text.size()) {
        perror("temporary file");
        return 1;
    }
    close(fd);
    std::vector<double> lexer, flex, cpp;
    long long countOurs = 0, countFlex = 0, idsOurs = 0, idsFlex = 0;
    for (int r = 0; r < 3; ++r) {
        idsOurs = idsFlex = 0;
        lexer.push_back(timed([&] { countOurs = lexOurs(text, idsOurs); }));
        flex.push_back(timed([&] { countFlex = exprScanCount(text.data(), text.size(), &idsFlex); }));
        cpp.push_back(timed([&] { sh(std::string("cpp -P ") + path + " > /dev/null"); }));
    }
    unlink(path);
    const double mb = text.size() / 1e6;
    printf("lex %.1f MB: ours %.1f MB/s, flex %.1f MB/s, cpp -P %.1f MB/s; speed ratio to flex %.2f, to cpp "
           "%.2f "
           "(tokens %lld / %lld, id sums %lld / %lld)\n",
           mb, mb / median(lexer), mb / median(flex), mb / median(cpp), median(flex) / median(lexer),
           median(cpp) / median(lexer), countOurs, countFlex, idsOurs, idsFlex);
    return countOurs == countFlex && idsOurs == idsFlex ? 0 : 1;
}
