#include "lexer_support.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <tests/support/TestSupport.h>
#include <tmain/parser/ExpressionLexer.h>

using namespace tarso::parser;
using parsertest::dump;
using parsertest::show;

namespace {

TEST(ExpressionLexer, TokensOfTrickyInputs) {
    struct {
        const char* input;
        const char* tokens;
    } cases[] = {
        {"(a,b)*/+-", "1:(@0 25:a@1 3:,@2 25:b@3 2:)@4 4:*@5 5:/@6 6:+@7 7:-@8 EOF@9"},
        {"|| && ! | & ~ == != > >= < <= ^",
         "8:||@0 9:&&@3 10:!@6 11:|@8 12:&@10 13:~@12 14:==@14 15:!=@17 16:>@20 17:>=@22 18:<@25 19:<=@27 "
         "20:^@30 EOF@31"},
        {"1 >= 2 a>b", "22:<!int!>=1@0 17:>=@2 22:<!int!>=2@5 25:a@7 16:>@8 25:b@9 EOF@10"},
        {"1>=2 3", "22:<!int!>=1@0 EOF@6"},              // glued operator + digit: dropped with the rest
        {"0 00 7", "22:<!int!>=0@0 EOF@6"},              // "00" is no token and swallows the rest
        {"a==b 1==2", "25:a==b@0 22:<!int!>=1@5 EOF@9"}, // '=' alone does not end a word
        {"12ab 1e5 2.5 .5 -3 x_1", "22:<!int!>=12@0 22:<!int!>=1@5 23:<!float!>=2.500000@9 "
                                   "23:<!float!>=0.500000@13 7:-@16 22:<!int!>=3@17 25:x_1@19 EOF@22"},
        {"'it''s' \"a /*x*/  b\" \"open", "21:<!string!>=it@0 21:<!string!>=s@4 21:<!string!>=a b@8 "
                                          "65534:\"open@21 EOF@26"},
        {"a\xC3\xA9"
         "b\x80"
         "1",
         "25:a@0 25:b@3 22:<!int!>=1@5 EOF@6"},
        {"1 // x\n2\r3 /* x\n */4",
         "22:<!int!>=1@0 22:<!int!>=3@9 22:<!int!>=4@19 EOF@20"}, // CR ends // only
        {"99999999999 1.0e39", "22:<!int!>=2147483647@0 23:<!float!>=inf@12 EOF@18"},
        {"\xEF\xBB\xBF"
         "1 \xFE\xFF",
         "22:<!int!>=1@3 EOF@7"},
        {"\xFE\xFF"
         "1",
         "65533:<INVALID_BOM>@0 22:<!int!>=1@2 EOF@3"},
    };
    ExpressionLexer lexer;
    for (const auto& c : cases) {
        std::string whole = dump(lexer, c.input, 1 << 20);
        EXPECT_EQ(c.tokens, whole) << c.input;
        EXPECT_EQ(whole, dump(lexer, c.input, 1)) << c.input;
    }
    EXPECT_JOINED("0|0|0|1|", lexer.findToken(24u) != nullptr, lexer.findToken("=", false) != nullptr,
                  lexer.text2Token("$") != nullptr, lexer.findToken("x", true) != nullptr);
}

TEST(Expression, EvaluationRules) {
    parsertest::Evaluator ev;
    Expression::Value &s1 = ev.vars["s1"], &s2 = ev.vars["s2"], &fz = ev.vars["fz"], &nan = ev.vars["nan"];
    s1.type = s2.type = Expression::Value::TYPE_STRING;
    s1.value.stringValue = "abc";
    s2.value.stringValue = "abd";
    fz.type = nan.type = Expression::Value::TYPE_FLOAT;
    fz.value.floatValue = -0.0f;
    nan.value.floatValue = NAN;
    ev.vars["big"].value.intValue = INT_MAX;
    ev.vars["min"].value.intValue = INT_MIN;
    // "text => result" cases separated by "; ".
    std::string table =
        "1 + 2 * 3 => i7; 1 + 2.5 => f3.5; 1 || 0 == 0 => i0; -(2) => i-2; !0 => i1; 7 / 2 => i3; "
        "-7 / 2 => i-3; 7 / 0 => fail; 1 + 7 / 0 => fail; 7.0 / 0 => finf; big + 1 => i-2147483648; "
        "-min => i-2147483648; min / -1 => i-2147483648; big * 2 => i-2; 2 - 3 - 4 => i-5; "
        "8 / 2 / 2 => i2; 2 && 3 => i1; 0 && 1 || 1 => i1; fz || 0 => i1; !fz => i0; !s1 => i0; "
        "s1 + 1 => i0; -s1 => i0; s1 < s2 => i1; s1 == s1 => i1; s1 >= s2 => i0; s1 == 1 => i0; "
        "s1 != 1 => i1; s1 < 1 => i0; 1 < 1.5 => i1; 2 == 2.0 => i1; nan == nan => i0; nan != nan => i1; "
        "nan <= 1 => i0; 3 <= 3 => i1; 3 > 2 == 1 => i1; s1 => sabc; sub(10, 3) => i7; "
        "sub(neg1(2), 1) * 2 => i-6; undefined => fail; nope(1) => fail; 00 => fail;  => fail; "
        "1 + => fail; --1 => fail; +5 => i5; 1 2 => i1; (1) /* c */ + (2) => i3; f() => fail; "
        "1 + sub(10, 3) => i8; 2.5 > nan => i0; 2.5 >= 2.5 => i1; 1.5 < 2.5 => i1; 1.5 <= 0.5 => i0; "
        "2.5 != 2.5 => i0; 0.5 == 0.5 => i1; 0.5 > 0.25 => i1; 0.5 < 0.25 => i0";
    unsigned count = 0;
    for (size_t at = 0; at < table.size(); ++count) {
        size_t arrow = table.find(" => ", at), end = std::min(table.find("; ", arrow), table.size());
        std::string text = table.substr(at, arrow - at);
        EXPECT_EQ(table.substr(arrow + 4, end - arrow - 4), ev.eval(text)) << text;
        at = end + 2;
    }
    EXPECT_EQ(58u, count);
    ev.calls.clear();
    ev.eval("sub(1, 2) + f(1, 2.5, s1)");
    EXPECT_EQ("sub(i2,i1)f(sabc,f2.5,i1)", ev.calls); // arguments reach the callback last first
}

TEST(Expression, ProgramsCopiesAndResults) {
    parsertest::Evaluator ev;
    std::unique_ptr<Expression> e(ev.compile("-a + sub(b, 2) >= 1 && !c"));
    std::string program;
    for (unsigned i = 0; i < e->getEntryCount(); ++i)
        program += std::to_string(e->getEntry(i).command) + ":" + show(e->getEntry(i).value) + " ";
    EXPECT_EQ("2:sa 9:i0 2:sb 1:i2 3:ssub 1:i2 4:i0 1:i1 2:sc 12:i0 10:i0 16:i0 ", program);
    Expression copy(*e), assigned;
    assigned = copy;
    e.reset(); // copies own their names: ASan sees any use of the freed ones
    ev.vars["a"].value.intValue = -5;
    ev.vars["b"].value.intValue = 1;
    ev.vars["c"].value.intValue = 0;
    ev.bind(assigned);
    EXPECT_JOINED("1|i1|", assigned.evaluate(true), show(assigned.getTopResult()));
    Expression moved(std::move(assigned));
    moved.clear();
    moved.push(3);
    moved.push(4.5f);
    moved.push(Expression::CMD_MUL);
    moved.push("x", Expression::CMD_VARIABLE);
    EXPECT_EQ(0u, moved.evaluate(true)); // no callback set: the variable fails
    moved.setVariableCallback(
        [](const char*, Expression::Value& v, bool& ok) { ok = (v.value.intValue = 2) != 0; });
    EXPECT_EQ(2u, moved.evaluate(true));
    EXPECT_EQ(4u, moved.evaluate(false));
    EXPECT_JOINED("f13.5|i2|i2|", show(moved.getResult(0)), show(moved.getResult(1)),
                  show(moved.getTopResult()));
    moved.push(Expression::CMD_DIV);
    moved.push(Expression::CMD_ADD); // this run's values only: too few
    EXPECT_EQ(4u, moved.evaluate(false));
    EXPECT_EQ(0u, moved.evaluate(true));
    EXPECT_MESSAGE(core::IllegalArgumentException, "Expression::getEntry: index 9 out of range (6 entries)",
                   moved.getEntry(9));
    moved.clear();
    EXPECT_MESSAGE(core::IllegalStateException, "Expression::getTopResult: no result", moved.getTopResult());
    EXPECT_MESSAGE(core::IllegalArgumentException, "Expression::getResult: index 0 out of range (0 results)",
                   moved.getResult(0));
}

TEST(ExpressionParser, SyntaxErrorsNestingAndHostileInputs) {
    parsertest::Evaluator ev;
    EXPECT_MESSAGE(LexerException, "Syntax error: ')' expected, '<EOF>' found. At position -1:-1",
                   ev.eval("(1 + 2"));
    EXPECT_MESSAGE(LexerException, "Syntax error: ')' expected, '<!int!>' found. At position -1:-1",
                   ev.eval("sub(1 2)"));
    std::string calls;
    for (int i = 0; i < 1000; ++i)
        calls += "neg1(";
    EXPECT_EQ("i1", ev.eval(std::string(1000, '(') + "1" + std::string(1000, ')'), 7));
    EXPECT_EQ("i5", ev.eval(calls + "5" + std::string(1000, ')')));
    EXPECT_MESSAGE(LexerException, "Syntax error: expression nested deeper than 2000 levels at offset 2000",
                   ev.eval(std::string(200000, '(') + "1"));
    // Anything else gives an expression leaving at most one value, or a LexerException.
    std::vector<std::string> inputs = {"'unterminated",
                                       "\"a /* b",
                                       "1 /* open",
                                       "1 // LF only\n+ 2",
                                       std::string(5000, '9') + " + 1",
                                       "1.5e99999 * 2",
                                       "@#$ junk `words` ?",
                                       std::string(3000, 'x') + "(",
                                       std::string(200000, '-') + "1",
                                       "f(" + std::string(100000, ',') + ")"};
    std::mt19937 rng(5);
    const char alphabet[] = "()+-*/!|&=<>,.'\" 0123456789abcxyz_\t\r\n";
    for (int i = 0; i < 3000; ++i) {
        std::string text(rng() % 200, ' ');
        for (char& c : text)
            c = rng() % 4 ? alphabet[rng() % (sizeof(alphabet) - 1)] : (char)rng();
        inputs.push_back(text);
    }
    unsigned evaluated = 0, rejected = 0;
    for (const std::string& text : inputs) {
        try {
            std::unique_ptr<Expression> e(ev.compile(text, 1 + rng() % 7));
            EXPECT_LE(e->evaluate(true), 1u) << text;
            ++evaluated;
        } catch (const LexerException&) {
            ++rejected;
        }
    }
    EXPECT_TRUE(evaluated > 100 && rejected > 100) << evaluated << " " << rejected;
    ExpressionLexer lexer; // a borrowed lexer outlives its parser
    {
        ExpressionParser borrowed(&lexer, false);
        parsertest::ChunkedStream in("1", 1);
        EXPECT_EQ(1u, std::unique_ptr<Expression>(borrowed.parse(&in))->getEntryCount());
    }
    EXPECT_EQ("22:<!int!>=2@0 EOF@1", dump(lexer, "2", 1));
}

} // namespace
