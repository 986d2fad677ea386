// Differential test against muparser on the common ground of both languages:
// int literals with + - *, unary minus on an element, parentheses, a
// two-argument function, one comparison level, && and || between
// parenthesised comparisons; float literals with + - * / and ordering
// comparisons. Int division, "!", the precedence of && and || against
// arithmetic and muparser's built-ins differ on purpose and are left out.
#include "lexer_support.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <tests/support/TestSupport.h>

#ifdef TMAIN_HAVE_MUPARSER
#include <muParser.h>
#endif

namespace {

// A value in double (exact for the ints used) and in single precision, used
// only to leave out cases that overflow 32 bits or that single precision
// cannot follow (cancellation, near-zero divisors, near-equal comparisons).
struct V {
    double d;
    float f;
    V operator-() const { return {-d, -f}; }
    V operator+(const V& o) const { return {d + o.d, f + o.f}; }
    V operator-(const V& o) const { return {d - o.d, f - o.f}; }
    V operator*(const V& o) const { return {d * o.d, f * o.f}; }
    V operator/(const V& o) const { return {d / o.d, f / o.f}; }
};

struct Gen {
    std::mt19937 rng;
    bool floats, skip = false;

    int pick(int n) { return (int)(rng() % (unsigned)n); }

    V check(V v) {
        skip |= floats ? std::fabs(v.f - v.d) > 1e-5 * std::max(1.0, std::fabs(v.d))
                       : v.d > 2147483647.0 || v.d < -2147483648.0;
        return v;
    }

    std::string element(int depth, V& v) {
        std::string text;
        int kind = depth > 0 ? pick(floats ? 2 : 3) : 0;
        if (kind == 0 && !floats) {
            int n = pick(5) == 0 ? 0 : pick(pick(12) == 0 ? 50000 : 40);
            text = std::to_string(n), v = {(double)n, (float)n};
        } else if (kind == 0) {
            int cents = 1 + pick(9999);
            char buf[32];
            snprintf(buf, sizeof(buf), "%d.%02d", cents / 100, cents % 100);
            text = buf, v = {cents / 100.0, strtof(buf, nullptr)};
        } else if (kind == 1) {
            text = "(" + sum(depth - 1, v) + ")";
        } else {
            V a, b;
            text = "sub(" + sum(depth - 1, a) + ", " + sum(depth - 1, b) + ")";
            v = a - b;
        }
        if (pick(4) == 0)
            text = "-" + text, v = -v;
        v = check(v);
        return text;
    }

    std::string product(int depth, V& v) {
        std::string text = element(depth, v);
        for (int n = pick(floats ? 3 : 2); n > 0; --n) {
            V w;
            bool divide = floats && pick(2);
            text += (divide ? " / " : " * ") + element(depth, w);
            skip |= divide && std::fabs(w.d) < 0.05;
            v = check(divide ? v / w : v * w);
        }
        return text;
    }

    std::string sum(int depth, V& v) {
        std::string text = product(depth, v);
        for (int n = pick(3); n > 0; --n) {
            V w;
            bool minus = pick(2);
            text += (minus ? " - " : " + ") + product(depth, w);
            v = check(minus ? v - w : v + w);
        }
        return text;
    }

    std::string comparison() {
        const char* ops[] = {" < ", " > ", " <= ", " >= ", " == ", " != "};
        V a, b;
        std::string text = sum(1, a) + ops[pick(floats ? 4 : 6)] + sum(1, b);
        skip |=
            floats && std::fabs(a.d - b.d) < 1e-3 * std::max(1.0, std::max(std::fabs(a.d), std::fabs(b.d)));
        return text;
    }

    std::string expression() {
        skip = false;
        V v;
        int shape = pick(3);
        if (shape == 0)
            return sum(2, v);
        if (shape == 1 || floats)
            return comparison();
        std::string text = "(" + comparison() + ")";
        for (int n = 1 + pick(3); n > 0; --n)
            text += (pick(2) ? " && (" : " || (") + comparison() + ")";
        return text;
    }
};

TEST(ExpressionMuparser, AgreesOnCommonGround) {
#ifndef TMAIN_HAVE_MUPARSER
    TMAIN_SKIP_UNDER_WINE("muparser is a Linux library here, with no Windows build to link");
    if (tmaintest::underCI())
        FAIL() << "muparser missing under CI";
    GTEST_SKIP() << "muparser not installed";
#else
    parsertest::Evaluator ev;
    mu::Parser mu;
    mu.DefineFun(
        "sub", +[](double x, double y) { return x - y; });
    unsigned compared[2] = {0, 0}, skipped[2] = {0, 0};
    for (int floats = 0; floats < 2; ++floats) {
        Gen gen{std::mt19937(floats ? 4242 : 1717), floats != 0};
        while (compared[floats] < (floats ? 10000u : 20000u)) {
            std::string text = gen.expression();
            if (gen.skip) {
                ++skipped[floats];
                continue;
            }
            mu.SetExpr(text);
            double expected = mu.Eval();
            std::unique_ptr<parsertest::Expression> e(ev.compile(text));
            ASSERT_EQ(1u, e->evaluate(true)) << text;
            const parsertest::Expression::Value& r = e->getTopResult();
            ASSERT_EQ(floats && r.type != 1 ? 2u : 1u, r.type) << text;
            double ours = r.type == 2 ? (double)r.value.floatValue : (double)r.value.intValue;
            if (floats)
                ASSERT_LE(std::fabs(ours - expected), 1e-4 * std::max(1.0, std::fabs(expected))) << text;
            else
                ASSERT_EQ(expected, ours) << text;
            ++compared[floats];
        }
    }
    // The skips must not hide the comparison.
    EXPECT_TRUE(skipped[0] < compared[0] / 4 && skipped[1] < compared[1] / 4)
        << skipped[0] << " " << skipped[1];
#endif
}

} // namespace
