#include <gtest/gtest.h>
#include <random>
#include <tmain/parser/LexerException.h>
#include <tmain/parser/detail/PreprocessorExpansion.h>

using tarso::parser::LexerException;
using tarso::parser::Preprocessor;
using tarso::parser::detail::PreprocessorExpansion;

namespace {

bool isWord(char c) {
    return isalnum((unsigned char)c) || c == '_';
}

// Any function of the arguments does for comparing the two expansions.
void substitute(const char*, const Preprocessor::MacroData& d, const std::vector<std::string>& args,
                std::string& out) {
    out = d.value;
    for (const std::string& a : args)
        out += " " + a;
}

// The pass rule done literally on one string; false when it runs away.
bool naiveExpand(const Preprocessor::MacroTable& macros, std::string text, std::string& out) {
    for (int pass = 0; pass < 1000 && text.size() < 10000; ++pass) {
        bool any = false;
        for (auto it = macros.begin(); it != macros.end(); ++it) {
            std::string name = it->first;
            size_t p = 0;
            while ((p = text.find(name, p)) != std::string::npos && p + name.size() < text.size() &&
                   isWord(text[p + name.size()]))
                ++p;
            if (p == std::string::npos || (p > 0 && isalpha((unsigned char)text[p - 1])))
                continue;
            const Preprocessor::MacroData& d = it->second;
            size_t end = p + name.size();
            std::string repl = d.value;
            if (d.functionLike) {
                size_t q = end;
                while (q < text.size() && (text[q] == ' ' || text[q] == '\t'))
                    ++q;
                if (q >= text.size() || text[q] != '(')
                    continue;
                std::vector<std::string> args(1);
                int depth = 1;
                for (++q;; ++q) {
                    if (q >= text.size())
                        throw LexerException("unbalanced");
                    char c = text[q];
                    depth += c == '(' ? 1 : c == ')' ? -1 : 0;
                    if (depth == 0)
                        break;
                    if (c == ',' && depth == 1) {
                        if (args.size() >= d.parameters.size())
                            throw LexerException("unbalanced");
                        args.emplace_back();
                    } else {
                        args.back() += c;
                    }
                }
                for (std::string& a : args)
                    a.erase(0, a.find_first_not_of(" \t") == std::string::npos ? a.size()
                                                                               : a.find_first_not_of(" \t"));
                if (d.parameters.empty() && args.size() == 1 && args[0].empty())
                    args.clear();
                if (args.size() != d.parameters.size())
                    throw LexerException("count");
                substitute(nullptr, d, args, repl);
                end = q + 1;
            }
            text.replace(p, end - p, repl);
            any = true;
        }
        if (!any) {
            out = text;
            return true;
        }
    }
    return false;
}

std::string randomText(std::mt19937& rng, int pieces) {
    static const char* words[] = {"A",  "B",  "AB", "_A", "A_1", "F", "G",  "x",  "y",
                                  "xA", "1A", " ",  " ",  "  ",  "(", ")",  ",",  "\n",
                                  "+",  "F(", "G(", "1",  "_",   ";", "A(", "\t", "/*"};
    std::string s;
    for (int i = 0; i < pieces; ++i)
        s += words[rng() % (sizeof(words) / sizeof(words[0]))];
    return s;
}

} // namespace

// The chunked expansion gives the text of the literal pass rule, or the same
// failure, on random tables and texts of a few to a few thousand bytes.
TEST(PreprocessorExpansion, MatchesLiteralPassRuleOnRandomInput) {
    std::mt19937 rng(11);
    int compared = 0, failures = 0;
    for (int round = 0; round < 3000; ++round) {
        Preprocessor::MacroTable macros;
        static const char* names[] = {"A", "B", "AB", "_A", "A_1", "F", "G", "y"};
        for (const char* n : names) {
            if (rng() % 3 == 0)
                continue;
            Preprocessor::MacroData d;
            d.value = randomText(rng, rng() % 4);
            if (n[0] == 'F' || n[0] == 'G' || rng() % 5 == 0) {
                d.functionLike = true;
                for (unsigned k = rng() % 3; k > 0; --k)
                    d.parameters.push_back(k == 1 ? "x" : "y");
            }
            macros.put(n, d);
        }
        std::string text = randomText(rng, round % 10 == 0 ? 2000 : 1 + rng() % 30);
        std::string expected, actual, expectedError, actualError;
        bool finished = true;
        try {
            finished = naiveExpand(macros, text, expected);
        } catch (const LexerException& e) {
            expectedError = "error";
        }
        if (!finished)
            continue; // runaway: only our own guard can say more
        try {
            PreprocessorExpansion(macros, substitute, 1 << 20).expand(text.data(), text.size(), actual);
        } catch (const LexerException& e) {
            actualError = "error";
        }
        ASSERT_EQ(expectedError, actualError) << text;
        ASSERT_EQ(expected, actual) << text;
        ++compared;
        failures += !expectedError.empty();
    }
    EXPECT_GT(compared, 2000);
    EXPECT_GT(failures, 50);
}
