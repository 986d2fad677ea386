#include <cmath>
#include <glm/ext/quaternion_exponential.hpp>
#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>
#include <glm/gtc/type_ptr.hpp>
#include <gtest/gtest.h>
#include <random>
#include <tmain/math/Bound.h>
#include <tmain/math/Matrix3.h>
#include <tmain/math/Matrix4.h>
#include <tmain/math/Quaternion.h>

using namespace tarso::math;

namespace {

const float PI = 3.14159265f;

glm::quat toGlm(const Quaternion& q) {
    return glm::quat(q.w, q.x, q.y, q.z);
}

// Component-wise closeness of a quaternion to GLM's, or of two vectors.
template <class A, class B> void expectNear(const A& a, const B& b, float tol, const char* what) {
    static_assert(std::is_same<A, Quaternion>::value == std::is_same<B, glm::quat>::value,
                  "w would go unchecked");
    EXPECT_NEAR(a.x, b.x, tol) << what;
    EXPECT_NEAR(a.y, b.y, tol) << what;
    EXPECT_NEAR(a.z, b.z, tol) << what;
    if constexpr (std::is_same<A, Quaternion>::value)
        EXPECT_NEAR(a.w, b.w, tol) << what;
}

Quaternion randomUnit(std::mt19937& rng) {
    std::normal_distribution<float> n;
    Quaternion q(n(rng), n(rng), n(rng), n(rng));
    q.normalize();
    return q;
}

} // namespace

TEST(Quaternion, MatchesGlmOnRandomInputs) {
    std::mt19937 rng(42);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f), coord(-5.0f, 5.0f);
    for (int i = 0; i < 500; ++i) {
        const Quaternion a = randomUnit(rng), b = randomUnit(rng);
        const glm::quat ga = toGlm(a), gb = toGlm(b);
        const float t = unit(rng);

        expectNear(a * b, ga * gb, 1e-6f, "Hamilton product");
        EXPECT_NEAR(a.dot(b), glm::dot(ga, gb), 1e-6f);
        Quaternion c = a;
        expectNear(c.conjugate(), glm::conjugate(ga), 0.0f, "conjugate");

        const Vector3 axis(coord(rng), coord(rng), coord(rng));
        const float angle = coord(rng);
        Quaternion aa;
        aa.calculate(axis, angle, true);
        expectNear(aa, glm::angleAxis(angle, glm::normalize(glm::vec3(axis.x, axis.y, axis.z))), 1e-6f,
                   "axis");

        const Vector3 v(coord(rng), coord(rng), coord(rng));
        const glm::vec3 gv = ga * glm::vec3(v.x, v.y, v.z);
        expectNear(a.rotate(v), Vector3(gv.x, gv.y, gv.z), 1e-5f, "rotate");

        Matrix3 m3;
        a.buildMatrix(m3);
        Matrix4 rowMajor, glLayout;
        a.buildMatrix(rowMajor, false);
        a.buildMatrix(glLayout, true);
        // GLM's memory is column-major, as GL's: our row-major forms are its transposes.
        const glm::mat3 t3 = glm::transpose(glm::mat3_cast(ga));
        const glm::mat4 g4 = glm::mat4_cast(ga), t4 = glm::transpose(g4);
        for (int k = 0; k < 16; ++k) {
            if (k < 9)
                EXPECT_NEAR(m3.m[k], glm::value_ptr(t3)[k], 1e-6f) << k;
            EXPECT_NEAR(rowMajor.m[k], glm::value_ptr(t4)[k], 1e-6f) << k;
            EXPECT_NEAR(glLayout.m[k], glm::value_ptr(g4)[k], 1e-6f) << k;
        }

        const Quaternion near = a.dot(b) > 0.0f ? b : -b; // GLM and slerp agree on the short arc
        Quaternion s;
        a.slerp(near, t, s);
        expectNear(s, glm::slerp(ga, toGlm(near), t), 2e-5f, "slerp");
        Quaternion l;
        a.lerp(b, t, l, false);
        expectNear(l, glm::lerp(ga, gb, t), 1e-6f, "lerp");

        expectNear(a.log(), glm::log(ga), 2e-6f, "log");
        const Quaternion pure(coord(rng), coord(rng), coord(rng), 0.0f);
        expectNear(pure.exp(), glm::exp(toGlm(pure)), 2e-6f, "exp");
        expectNear(a.log().exp(), ga, 2e-6f, "exp(log)");
    }
}

TEST(Quaternion, DeliberateRules) {
    std::mt19937 rng(7);
    for (int i = 0; i < 20; ++i) {
        const Quaternion q = randomUnit(rng);
        EXPECT_TRUE(Quaternion::IDENTITY() * q == q && q * Quaternion::IDENTITY() == q);
        for (float t : {0.0f, 0.3f, 0.5f, 1.0f}) {
            const Quaternion s = Quaternion(q).slerp(-q, t);
            expectNear(s, toGlm(q), 1e-6f, "slerp(q, -q)");
        }
        // No sign correction in lerp: halfway to -q collapses to zero.
        EXPECT_EQ(Quaternion(q).lerp(-q, 0.5f, false), Quaternion(0, 0, 0, 0));
    }

    EXPECT_EQ(Quaternion(0, 0, 0, 2).inverse(), Quaternion(0, 0, 0, 0.5f));
    EXPECT_EQ(Quaternion(1, 0, 0, 0).inverse(), Quaternion(-1, 0, 0, 0));
    // Not the conjugate: signs stay, the scale is 1 / (w² - x²) = 1 / 0.28.
    expectNear(Quaternion(0.6f, 0, 0, 0.8f).inverse(), glm::quat(0.8f / 0.28f, 0.6f / 0.28f, 0, 0), 1e-5f,
               "inverse");

    const Quaternion q(0.5f, 0.5f, 0.5f, 0.5f);
    EXPECT_EQ(Quaternion(1, 0, 0, 0).getDeltaTo(q), Quaternion(-1, 0, 0, 0) * q);
    Quaternion delta;
    Quaternion(0, 0, 0, 2).getDeltaTo(q, delta);
    EXPECT_EQ(delta, Quaternion(0.25f, 0.25f, 0.25f, 0.25f));

    Quaternion quarter;
    quarter.calculate(Vector3::AXIS_Z, PI / 2, false);
    EXPECT_NEAR(Quaternion::IDENTITY().getAngleTo(quarter), PI / 2, 1e-6f);
    const Quaternion longer(0, 0, 0, 1.001f);
    EXPECT_TRUE(std::isnan(longer.getAngleTo(longer))); // the dot is not clamped

    // MAX2GL exchanges Y and Z and undoes itself.
    EXPECT_EQ(Quaternion::MAX2GL, Quaternion::GL2MAX);
    expectNear(Quaternion::MAX2GL.rotate(Vector3::AXIS_Y), Vector3::AXIS_Z, 1e-6f, "Y to Z");
    expectNear(Quaternion::MAX2GL.rotate(Vector3::AXIS_Z), Vector3::AXIS_Y, 1e-6f, "Z to Y");
    const Vector3 p(1, 2, 3);
    expectNear(Quaternion::GL2MAX.rotate(Quaternion::MAX2GL.rotate(p)), p, 1e-5f, "round trip");
}

TEST(Quaternion, EulerAndShortestArc) {
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> full(-3.1f, 3.1f), half(-1.5f, 1.5f), coord(-10.0f, 10.0f);
    const glm::vec3 gx(1, 0, 0), gy(0, 1, 0), gz(0, 0, 1);
    for (int i = 0; i < 300; ++i) {
        const Vector3 angles(full(rng), full(rng), half(rng));
        Quaternion q;
        Quaternion::fromEuler(angles, q);
        const glm::quat expected =
            glm::angleAxis(angles.x, gx) * glm::angleAxis(angles.z, gz) * glm::angleAxis(angles.y, gy);
        expectNear(q, expected, 1e-6f, "fromEuler order");
        expectNear(q.getEulerAngles(), angles, 2e-4f, "getEulerAngles");

        const Vector3 from(coord(rng), coord(rng), coord(rng)), to(coord(rng), coord(rng), coord(rng));
        Quaternion arc;
        arc.calculate(from, to);
        Vector3 f = from, t = to;
        f.normalize();
        t.normalize();
        expectNear(arc.rotate(f), t, 1e-5f, "from onto to");
        EXPECT_NEAR(arc.length(), 1.0f, 1e-6f);
        // Shortest arc: the rotation angle is the angle between the directions.
        EXPECT_NEAR(2.0f * std::acos(std::min(1.0f, std::fabs(arc.w))), std::acos(f.dot(t)), 2e-3f);

        arc.calculate(from, -from * 3.0f);
        expectNear(arc.rotate(f), -f, 1e-5f, "opposite");
        EXPECT_NEAR(arc.length(), 1.0f, 1e-6f);
    }

    // Gimbal lock: whichever angles come back (the split is a free choice), they
    // describe the same rotation.
    Quaternion locked, back;
    Quaternion::fromEuler(Vector3(0.7f, 0.4f, PI / 2), locked);
    Quaternion::fromEuler(locked.getEulerAngles(), back);
    EXPECT_NEAR(std::fabs(locked.dot(back)), 1.0f, 1e-5f);

    Quaternion arc;
    arc.calculate(Vector3(1, 0, 0), Vector3(-2, 0, 0));
    expectNear(arc.rotate(Vector3::AXIS_X), -Vector3::AXIS_X, 1e-6f, "X opposite");
    arc.calculate(Vector3(0, 0, 2), Vector3(0, 0, 5));
    EXPECT_EQ(arc, Quaternion::IDENTITY());
    arc.calculate(Vector3::ZERO, Vector3(0, 0, 5));
    EXPECT_EQ(arc, Quaternion::IDENTITY());
}

TEST(Quaternion, MatrixAndBoundRecords) {
    Matrix4 m4;
    for (int k = 0; k < 16; ++k)
        EXPECT_EQ(m4.m[k], k % 5 == 0 ? 1.0f : 0.0f);
    EXPECT_EQ(m4.extra[0] + m4.extra[1] + m4.extra[2], 0.0f);
    for (float& v : m4.m)
        v = 9.0f;
    m4.extra[1] = 5.0f;
    Quaternion q;
    q.calculate(Vector3(1, 2, 3), 0.8f, true);
    for (bool transpose : {false, true}) {
        q.buildMatrix(m4, transpose);
        EXPECT_EQ(m4.m[15], 1.0f);
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(m4.m[3 * 4 + k] + m4.m[k * 4 + 3], 0.0f); // translation row and column
        EXPECT_EQ(m4.extra[1], 5.0f);
    }
    // A scaled quaternion still yields the pure rotation.
    Matrix4 unitM, scaledM;
    q.buildMatrix(unitM);
    (q * 3.0f).buildMatrix(scaledM);
    for (int k = 0; k < 16; ++k)
        EXPECT_NEAR(unitM.m[k], scaledM.m[k], 1e-6f);

    Matrix3 m3;
    m3.m[1] = 4.0f;
    m3.extra[2] = 2.0f;
    m3.setIdentity();
    EXPECT_TRUE(m3(1, 1) == 1.0f && m3(0, 1) == 0.0f && m3.extra[2] == 2.0f);

    const Bound b;
    EXPECT_TRUE(b.center == Vector3::ZERO && b.radius == 0.0f);
}
