#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <tests/support/TestSupport.h>
#include <tmain/parser/LexerException.h>
#include <tmain/parser/Preprocessor.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>

using namespace tarso::parser;
using tarso::stream::ByteInputStream;
using tarso::stream::ByteOutputStream;

namespace {

std::string pp(const std::string& source) {
    ByteInputStream in(source.data(), (unsigned)source.size(), false);
    ByteOutputStream out;
    out.open(ByteOutputStream::OM_WRITE);
    Preprocessor p;
    p.preprocess(&in, &out);
    return std::string((const char*)out.getBytes(), out.getSize());
}

std::string squeezed(const std::string& s) {
    std::string r;
    for (char c : s)
        if (!isspace((unsigned char)c))
            r += c;
    return r;
}

// A source both C preprocessors read the same way as ours: macros defined
// once before use, arguments without parameter names, #if on int-valued
// macros with one comparison, no comments, strings, '#' or '##'.
std::string commonGround(std::mt19937& rng) {
    std::vector<std::string> ints, objects, functions;
    std::string s;
    auto pick = [&](const std::vector<std::string>& v) { return v[rng() % v.size()]; };
    std::function<std::string(int)> operand = [&](int depth) -> std::string {
        static const char* plain[] = {"foo", "bar", "7", "x1", "(", ")", "+", "*", ";", "-", "q"};
        unsigned r = rng() % 10;
        if (r < 3 && !objects.empty())
            return pick(objects);
        if (r < 5 && !functions.empty() && depth < 3)
            return pick(functions) + "(" + operand(depth + 1) + ", " + operand(depth + 1) + ")";
        if (r < 6 && !ints.empty())
            return pick(ints);
        std::string p = plain[rng() % 11];
        return p == "(" || p == ")" ? "foo" : p;
    };
    for (int line = 0; line < 60; ++line) {
        unsigned r = rng() % 12;
        std::string name = "M" + std::to_string(line);
        if (r == 0) {
            s += "#define " + name + " " + std::to_string((int)(rng() % 200) - 100) + "\n";
            ints.push_back(name);
        } else if (r == 1) {
            s += "#define " + name + " " + operand(0) + " " + operand(0) + "\n";
            objects.push_back(name);
        } else if (r == 2) {
            name = "F" + std::to_string(line);
            s += "#define " + name + "(a, b) (a + " + operand(2) + " * b)\n";
            functions.push_back(name);
        } else if (r == 3 && !ints.empty()) {
            static const char* ops[] = {"<", ">", "<=", ">=", "==", "!="};
            s += "#if " + pick(ints) + " " + ops[rng() % 6] + " " + std::to_string((int)(rng() % 200) - 100) +
                 "\n" + operand(0) + "\n" + (rng() % 2 ? "#else\n" + operand(0) + "\n" : "") + "#endif\n";
        } else if (r == 4) {
            s += std::string(rng() % 2 ? "#ifdef " : "#ifndef ") + "M" + std::to_string(rng() % 60) + "\n" +
                 operand(0) + "\n#elif " + (ints.empty() ? "1" : pick(ints)) + " > 0\n" + operand(0) +
                 "\n#endif\n";
        } else {
            for (int k = rng() % 6; k >= 0; --k)
                s += operand(0) + " ";
            s += "\n";
        }
    }
    return s;
}

void expectMessage(const std::string& source, const std::string& message) {
    EXPECT_MESSAGE(LexerException, message, pp(source)) << source;
}

} // namespace

TEST(Preprocessor, DirectivesAndExpansion) {
    const char* cases[][2] = {
        {"#define A\n#if A\nx\n#endif\ny", "y"},
        {"#define A=5\nA", "5"},
        {"#ifdef A\na\n#if 1\nb\n#endif\nc\n#endif\nd\n", "d\n"},
        {"#if 1\na\n#elif 1/0\nb\n#else\nc\n#endif\n", "a\n"},
        {"#if 0\na\n#elif 2 > 1\nb\n#elif 1\nc\n#else\nd\n#endif\n", "b\n"},
        {"#if 0\na\n#elif 0\nb\n#else\nc\n#endif\n", "c\n"},
        {"#if 0\n#if 1\na\n#else\nb\n#endif\n#else\nc\n#endif\n", "c\n"},
        {"# define A 1\nA", "# define A 1\r\nA"},
        {"#pragma  once \n\nx", "#pragma  once \r\nx"},
        {"#define A 1\nABC A", "ABC 1"},
        {"#define A 1\nxA A", "xA A"},
        {"#define A 1\n_A 1A AB", "_1 11 AB"},
        {"text #define A 1\nA", "1"},
        {"#define A 1\n// A #x\n/* A\n#if */ A \"A\"", "// 1 #x\n/* 1\n#if */ 1 \"1\""},
        {"#if 0\n// c\n/* d */x\n#endif\ny", "y"},
        {"#define F(a, b) a-b\nF(1, (2,3)) F (x,y) F", "1-(2,3) x-y F"},
        {"#define F(a,b) a+b\nF(b,1)", "1+1"},
        {"#define F() 7\nF() F( )", "7 7"},
        {"#define B 1\n#define A B\n#undef B\n#define B 2\nA B", "1 2"},
        {"#define X foo\n#define foo\n#if defined(X)\ny\n#endif\n", "y\n"},
        {"#define X 1.5\n#define Y -2\n#define Z abc\n#if (X > 1) && (Y < 0)\ny\n#endif\n", "y\n"},
        {"#define A 1\n#undef A tail\n#ifndef A\nn\n#endif", "n\n"},
        {"#if 0\n#define A 1\n#endif\n#ifdef A\nyes\n#endif\n", ""},
        {"#if 0\n#else\n#else\nx\n#endif\ny", "y"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c[1], pp(c[0])) << c[0];
    EXPECT_EQ("ab\nc", pp(std::string("a\0b\n#\nc", 8)));
}

TEST(Preprocessor, FailuresKeepWhatWasWritten) {
    const char* cases[][2] = {
        {"#endif", "Unexpected #endif"},
        {"#else", "Unexpected #else"},
        {"#elif 1", "Unexpected #elif"},
        {"#define F(a", "Missing ')' in macro definition: F(a"},
        {"#define F(a b) x", "Invalid macro parameters: (a b)"},
        {"#define F(a,) x", "Invalid macro parameters: (a,)"},
        {"#define F(a) a\nF(1", "Syntax error in macro expansion for F: mismatched parenthesis"},
        {"#define F(a) a\nF(1,2)", "Syntax error in macro expansion for F: mismatched parenthesis"},
        {"#define F(a,b) a\nF(1)", "Syntax error in macro expansion for F: expected 2 parameters, found 1"},
        {"#define A A\nA", "Syntax error in macro expansion for A: recursive expansion"},
        {"#define F(x) F(x)\nF(1)", "Syntax error in macro expansion for F: recursive expansion"},
        {"#define SQ(x) x*x\nSQ(x)", "Syntax error in macro expansion for SQ: recursive expansion"},
        {"#define F(x) x x\nF(x y)", "Syntax error in macro expansion for F: recursive expansion"},
        {"#if 1/0\n", "Error evaluating expression: 1/0"},
        {"#if 00\n", "Error evaluating expression: 00"},
        {"#define X 1\n#if defined(X)\n", "Error evaluating expression: defined(X)"},
    };
    for (auto& c : cases)
        expectMessage(c[0], c[1]);
    ByteInputStream in("kept\n#endif\nlost", 16, false);
    ByteOutputStream out;
    out.open(ByteOutputStream::OM_WRITE);
    Preprocessor p;
    EXPECT_THROW(p.preprocess(&in, &out), LexerException);
    EXPECT_EQ("kept\n", std::string((const char*)out.getBytes(), out.getSize()));
    EXPECT_STREQ("Preprocessor", p.getType().getName());
}

// Deep nesting, runaway growth and junk end in a result or a LexerException.
TEST(Preprocessor, HostileInput) {
    std::string deep;
    for (int i = 0; i < 200000; ++i)
        deep += i % 3 ? "#if 1\n" : "#ifdef Z\n";
    deep += "x\n";
    for (int i = 0; i < 200000; ++i)
        deep += "#endif\n";
    EXPECT_EQ("y", pp(deep + "y"));
    EXPECT_EQ("x\n", pp("#if 1\n#if 1\nx\n" + std::string("#endif\n#endif\n")));
    std::string growth = "#define A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A A\nA";
    expectMessage(growth, "Syntax error in macro expansion for A: recursive expansion");
    std::string calls = "#define F(a) a\n";
    for (int i = 0; i < 1000; ++i)
        calls += "F(";
    EXPECT_EQ("1", pp(calls + "1" + std::string(1000, ')')));
    expectMessage("#define F(a) a\nF" + std::string(200000, '(') + std::string(200000, ')'),
                  "Syntax error in macro expansion for F: parentheses nested deeper than 10000");
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::string junk = tmaintest::randomBytes(200 + seed * 7, seed);
        if (seed % 2)
            for (size_t i = 0; i < junk.size(); i += 9)
                junk[i] = "#\n(,)A#"[i % 7];
        try {
            pp("#define A B(\n#define B(x) x A\n#if 99999999999 > 1e999 + A\n#endif\n" + junk);
        } catch (const LexerException&) {
        }
    }
}

// Our output against cpp and mcpp on generated sources they all read alike,
// compared with whitespace removed.
TEST(Preprocessor, AgreesWithCppAndMcpp) {
    TMAIN_REQUIRE_TOOL("cpp");
    TMAIN_REQUIRE_TOOL("mcpp");
    tmaintest::TempDir dir;
    std::mt19937 rng(2024);
    std::string path = dir.path() + "/in.c";
    for (int i = 0; i < 150; ++i) {
        std::string source = commonGround(rng);
        tmaintest::writeFile(path, source);
        std::string ours = squeezed(pp(source));
        ASSERT_EQ(squeezed(tmaintest::outputOf("cpp -P -undef -nostdinc -ffreestanding " + path)), ours)
            << source;
        ASSERT_EQ(squeezed(tmaintest::outputOf("mcpp -P " + path + " 2>/dev/null")), ours) << source;
    }
}
