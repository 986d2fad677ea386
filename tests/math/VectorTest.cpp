#include <cmath>
#include <cstring>
#include <glm/glm.hpp>
#include <gtest/gtest.h>
#include <random>
#include <tmain/math/MathUtil.h>
#include <tmain/math/Vector2.h>
#include <tmain/math/Vector3.h>
#include <tmain/math/Vector4.h>

using namespace tarso::math;

#define EXPECT_VEC_NEAR(a, b, n, tol)                                                                        \
    for (int k_ = 0; k_ < (n); ++k_)                                                                         \
    EXPECT_NEAR((a)[k_], (b)[k_], tol) << "component " << k_

TEST(Vector, LayoutAndConstants) {
    const Vector4 v(1.5f, -2.0f, 3.25f, 4.0f);
    const float raw[4] = {1.5f, -2.0f, 3.25f, 4.0f};
    EXPECT_EQ(0, std::memcmp(raw, &v, sizeof raw)); // x, y, z, w in this order from the start
    Vector2 assigned;
    assigned = V2{3.0f, 4.0f};
    EXPECT_EQ(assigned, Vector2(3.0f, 4.0f));

    EXPECT_TRUE(AXIS_VECTORS[0] == Vector3::AXIS_X && AXIS_VECTORS[1] == Vector3::AXIS_Y &&
                AXIS_VECTORS[2] == Vector3::AXIS_Z);
    EXPECT_EQ(AXIS_VECTORS[0].cross(AXIS_VECTORS[1]), AXIS_VECTORS[2]);
    EXPECT_EQ(Vector3::YELLOW, Vector3(1, 1, 0));
    EXPECT_EQ(Vector3::GRAY, Vector3::HALF);
    const Vector4* colours[] = {&Vector4::BLACK, &Vector4::WHITE, &Vector4::GRAY,  &Vector4::RED,
                                &Vector4::GREEN, &Vector4::BLUE,  &Vector4::YELLOW};
    for (const Vector4* c : colours)
        EXPECT_EQ(c->w, 1.0f);
    EXPECT_EQ(Vector4::GRAY, Vector4(0.5f, 0.5f, 0.5f, 1.0f));
    EXPECT_EQ(Vector4::AXIS_W + Vector4::AXIS_Z, Vector4(0, 0, 1, 1));
    EXPECT_EQ(Vector2::TWO * Vector2::HALF, Vector2::ONE);
}

TEST(Vector, NormalizeAndFastPaths) {
    Vector2 v(3.0f, 4.0f), zero;
    EXPECT_EQ(v.normalize(), 5.0f);
    EXPECT_VEC_NEAR(v, Vector2(0.6f, 0.8f), 2, 2e-7f);
    zero.normalize();
    EXPECT_TRUE(std::isnan(zero.x) && std::isnan(zero.y));

    EXPECT_EQ(Vector3::ZERO.flength(), 0.0f);
    Vector3 z3;
    float len = -1.0f;
    z3.fnormalize(len);
    EXPECT_TRUE(len == 0.0f && z3 == Vector3::ZERO); // no NaN from the zero vector

    Vector3 f(3.0f, 4.0f, 0.0f);
    EXPECT_NEAR(f.flength(), 5.0f, 5.0f * 0.002f);
    f.fnormalize(len);
    EXPECT_NEAR(len, 5.0f, 5.0f * 0.002f);
    EXPECT_NEAR(f.x, 0.6f, 0.6f * 0.002f);
    EXPECT_NEAR(f.y, 0.8f, 0.8f * 0.002f);
    EXPECT_EQ(f.z, 0.0f);
    // One Newton step is not exact: the approximation must differ from the true value.
    EXPECT_NE(f.x, 0.6f);

    Vector4 m(1, 1, 1, 1);
    m.mul3(2.0f);
    EXPECT_EQ(m, Vector4(2, 2, 2, 1));
}

TEST(Vector, MatchesGlmOnRandomInputs) {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> d(-100.0f, 100.0f);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int i = 0; i < 500; ++i) {
        const Vector4 a(d(rng), d(rng), d(rng), d(rng)), b(d(rng), d(rng), d(rng), d(rng));
        const glm::vec4 ga(a.x, a.y, a.z, a.w), gb(b.x, b.y, b.z, b.w);
        const float t = unit(rng);
        const float s = d(rng);

        EXPECT_NEAR(a.length(), glm::length(ga), 1e-4f);
        EXPECT_NEAR(a.dot(b), glm::dot(ga, gb), 1e-1f);
        EXPECT_VEC_NEAR(Vector4::lerp(a, b, t), glm::mix(ga, gb, t), 4, 1e-4f);
        EXPECT_VEC_NEAR(a + b * s - b / s, ga + gb * s - gb / s, 4, 1e-2f);
        EXPECT_VEC_NEAR(a * b, ga * gb, 4, 1e-2f);
        Vector4 n = a;
        EXPECT_NEAR(n.normalize(), glm::length(ga), 1e-4f);
        EXPECT_VEC_NEAR(n, glm::normalize(ga), 4, 1e-6f);
        n = a;
        n.fnormalize();
        EXPECT_VEC_NEAR(n, glm::normalize(ga), 4, 0.002f);
        EXPECT_NEAR(a.flength(), glm::length(ga), glm::length(ga) * 0.002f);

        const Vector3 a3(a.x, a.y, a.z), b3(b.x, b.y, b.z);
        const glm::vec3 g3(ga), h3(gb);
        EXPECT_VEC_NEAR(a3.cross(b3), glm::cross(g3, h3), 3, 1e-1f);
        EXPECT_NEAR(a3.dot(b3), glm::dot(g3, h3), 1e-1f);
        EXPECT_VEC_NEAR(Vector3::lerp(a3, b3, t), glm::mix(g3, h3, t), 3, 1e-4f);
        EXPECT_VEC_NEAR(Vector3::mul(a3, b3), g3 * h3, 3, 1e-2f);
        Vector3 n3 = a3;
        n3.normalize();
        EXPECT_VEC_NEAR(n3, glm::normalize(g3), 3, 1e-6f);

        const Vector2 a2(a.x, a.y), b2(b.x, b.y);
        const glm::vec2 g2(ga), h2(gb);
        EXPECT_NEAR(a2.length(), glm::length(g2), 1e-4f);
        EXPECT_VEC_NEAR(Vector2::lerp(a2, b2, t), glm::mix(g2, h2, t), 2, 1e-4f);
        Vector2 r2 = a2;
        r2.rotate2D(s);
        const glm::vec2 gr(std::cos(s) * g2.x - std::sin(s) * g2.y, std::sin(s) * g2.x + std::cos(s) * g2.y);
        EXPECT_VEC_NEAR(r2, gr, 2, 1e-3f);
    }
}

TEST(Vector, ComponentWiseHelpers) {
    Vector3 v(1, 5, -3);
    Vector3 lo, hi;
    v.min(Vector3::TWO, lo);
    v.max(Vector3::TWO, hi);
    EXPECT_TRUE(lo == Vector3(1, 2, -3) && hi == Vector3(2, 5, 2));
    EXPECT_TRUE(v.getMax() == 5.0f && v.getMin() == -3.0f);
    // clamp applies lo first, so an inverted range yields hi.
    EXPECT_EQ(Vector3(v).clamp(Vector3(0, 0, 0), Vector3(2, 2, 2)), Vector3(1, 2, 0));
    EXPECT_EQ(Vector3(v).clamp(Vector3(10, 10, 10), Vector3(0, 0, 0)), Vector3(0, 0, 0));

    // floor stays exact far outside the int range and rounds negatives down.
    Vector3 big(3.0e9f, -0.5f, 1.0e20f);
    big.floor();
    EXPECT_EQ(big, Vector3(3.0e9f, -1.0f, 1.0e20f));

    EXPECT_TRUE(!Vector4::ZERO.any() && Vector4(0, 0, 0, -0.1f).any() && !Vector2(-0.0f, 0.0f).any());

    Vector2 r = Vector2::AXIS_X;
    r.rotate2D(1.5707964f);
    EXPECT_VEC_NEAR(r, Vector2(0, 1), 2, 1e-6f); // counter-clockwise
    EXPECT_FLOAT_EQ(Vector2(-1, 1).angle(), 2.3561945f);

    Vector3 out;
    v.mul(Vector3(2, 3, 4), out);
    EXPECT_EQ(out, Vector3(2, 15, -12));
    out[1] = 7;
    EXPECT_TRUE(out.y == 7.0f && Vector4(1, 2, 3, 4)[3] == 4.0f);

    EXPECT_TRUE(Vector3(1, 2, 3) < Vector3(1, 2, 4) && Vector3(0, 9, 9) < Vector3(1, 0, 0)); // lexicographic
    EXPECT_FALSE(Vector3(1, 2, 3) < Vector3(1, 2, 3));
    EXPECT_TRUE(Vector2(1, 2) >= Vector2(1, 2) && Vector2(1, 2) != Vector2(2, 1));
}

TEST(MathUtil, PowersOfTwoAndResize) {
    EXPECT_TRUE(isPowerOfTwo(1) && isPowerOfTwo(1u << 31));
    EXPECT_FALSE(isPowerOfTwo(0) || isPowerOfTwo(6) || isPowerOfTwo(0xFFFFFFFFu));

    const unsigned H = 1u << 31;
    const unsigned cases[][4] = {// value, lower, upper, nearest
                                 {0, 1, 1, 1},
                                 {1, 1, 1, 1},
                                 {5, 4, 8, 4},
                                 {6, 4, 8, 8},
                                 {7, 4, 8, 8},
                                 {64, 64, 64, 64},
                                 {1000, 512, 1024, 1024},
                                 {H + 1, H, H, H},
                                 {~0u, H, H, H}};
    for (const auto& c : cases) {
        unsigned lower = 0, upper = 0;
        EXPECT_EQ(c[3], nearestPowerOfTwo(c[0], lower, upper)) << c[0];
        EXPECT_TRUE(lower == c[1] && upper == c[2]) << c[0] << ": " << lower << ", " << upper;
    }

    EXPECT_EQ(getAspectRatioResize(Vector2(200, 100), Vector2(100, 100)), Vector2(100, 50));
    EXPECT_EQ(getAspectRatioResize(Vector2(50, 100), Vector2(200, 200)), Vector2(100, 200));
    EXPECT_EQ(getAspectRatioResize(Vector2(0, 10), Vector2(30, 40)), Vector2(0, 40));
    EXPECT_EQ(getAspectRatioResize(Vector2(0, 0), Vector2(30, 40)), Vector2::ZERO);
}
