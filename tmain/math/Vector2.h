#pragma once
/// Two-component float vector and its plain base record.

#include <cmath>
#include <tmain/Export.h>
#include <type_traits>

namespace tarso {
namespace math {

/// Plain two-float record; the layout shared with the serialized form.
struct V2 {
    float x, y;
};

/// 2D vector of floats (x, y). A plain value: no virtuals, no heap, 8 bytes.
///
/// The static `mul(a, b)` shares its name with the `mul(v, out) const` member; when the
/// second operand is a non-const lvalue the member wins overload resolution, so use
/// `a * b` (or const operands) there.
class TMAIN_API Vector2 : public V2 {
public:
    static const Vector2 ZERO, ONE, TWO, HALF;
    static const Vector2 AXIS_X, AXIS_Y;

    /// Zero vector.
    constexpr Vector2() : V2{0.0f, 0.0f} {}
    constexpr Vector2(float x_, float y_) : V2{x_, y_} {}
    constexpr explicit Vector2(float s) : V2{s, s} {}
    constexpr Vector2(const V2& v) : V2{v.x, v.y} {}

    Vector2& operator=(const V2& v) {
        x = v.x;
        y = v.y;
        return *this;
    }

    void set(float x_, float y_) {
        x = x_;
        y = y_;
    }
    void set(const V2& v) { *this = v; }

    float& operator[](unsigned i) { return i == 0 ? x : y; }
    float operator[](unsigned i) const { return i == 0 ? x : y; }

    // Component-wise product: in place, into `out`, or as a new value.
    Vector2& mul(const Vector2& v) {
        x *= v.x;
        y *= v.y;
        return *this;
    }
    void mul(const Vector2& v, Vector2& out) const { out.set(x * v.x, y * v.y); }
    static Vector2 mul(const Vector2& a, const Vector2& b) { return Vector2(a.x * b.x, a.y * b.y); }

    float dot(const Vector2& v) const { return x * v.x + y * v.y; }
    float lengthSqr() const { return x * x + y * y; }
    float length() const { return std::sqrt(lengthSqr()); }

    /// Divides by the exact length and returns it. No zero guard: a zero vector becomes NaN.
    float normalize() {
        const float len = length();
        x /= len;
        y /= len;
        return len;
    }
    /// Approximate normalisation by the fast inverse square root (one Newton step).
    Vector2& fnormalize();
    /// As fnormalize(); `length` receives the approximate length (0 for a zero vector).
    Vector2& fnormalize(float& length);
    /// Approximate length by the fast inverse square root; 0 when the squared length is not positive.
    float flength() const;

    bool any() const { return x != 0.0f || y != 0.0f; }

    static Vector2 lerp(const Vector2& a, const Vector2& b, float t) {
        return Vector2(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t);
    }

    Vector2& min(const Vector2& v) {
        x = v.x < x ? v.x : x;
        y = v.y < y ? v.y : y;
        return *this;
    }
    void min(const Vector2& v, Vector2& out) const {
        out = *this;
        out.min(v);
    }
    Vector2& max(const Vector2& v) {
        x = v.x > x ? v.x : x;
        y = v.y > y ? v.y : y;
        return *this;
    }
    void max(const Vector2& v, Vector2& out) const {
        out = *this;
        out.max(v);
    }
    /// max with `lo` first, then min with `hi`: when lo > hi, hi wins.
    Vector2& clamp(const Vector2& lo, const Vector2& hi) { return max(lo).min(hi); }

    /// Counter-clockwise rotation by `angle` radians.
    Vector2& rotate2D(float angle);
    /// Rotation with sin and cos of the angle precomputed.
    Vector2& rotate2D(float sinAngle, float cosAngle) {
        set(x * cosAngle - y * sinAngle, y * cosAngle + x * sinAngle);
        return *this;
    }
    /// atan2(y, x).
    float angle() const { return std::atan2(y, x); }

    Vector2 operator-() const { return Vector2(-x, -y); }
    Vector2& operator+=(const Vector2& v) {
        x += v.x;
        y += v.y;
        return *this;
    }
    Vector2& operator-=(const Vector2& v) {
        x -= v.x;
        y -= v.y;
        return *this;
    }
    Vector2& operator*=(const Vector2& v) { return mul(v); }
    Vector2& operator/=(const Vector2& v) {
        x /= v.x;
        y /= v.y;
        return *this;
    }
    Vector2& operator+=(float s) {
        x += s;
        y += s;
        return *this;
    }
    Vector2& operator-=(float s) {
        x -= s;
        y -= s;
        return *this;
    }
    Vector2& operator*=(float s) {
        x *= s;
        y *= s;
        return *this;
    }
    Vector2& operator/=(float s) {
        x /= s;
        y /= s;
        return *this;
    }
};

inline Vector2 operator+(Vector2 a, const Vector2& b) {
    return a += b;
}
inline Vector2 operator-(Vector2 a, const Vector2& b) {
    return a -= b;
}
inline Vector2 operator*(Vector2 a, const Vector2& b) {
    return a *= b;
}
inline Vector2 operator/(Vector2 a, const Vector2& b) {
    return a /= b;
}
inline Vector2 operator+(Vector2 a, float s) {
    return a += s;
}
inline Vector2 operator-(Vector2 a, float s) {
    return a -= s;
}
inline Vector2 operator*(Vector2 a, float s) {
    return a *= s;
}
inline Vector2 operator/(Vector2 a, float s) {
    return a /= s;
}
inline Vector2 operator*(float s, Vector2 a) {
    return a *= s;
}

inline bool operator==(const Vector2& a, const Vector2& b) {
    return a.x == b.x && a.y == b.y;
}
inline bool operator!=(const Vector2& a, const Vector2& b) {
    return !(a == b);
}
/// Lexicographic order (x, then y), so vectors can key ordered containers.
inline bool operator<(const Vector2& a, const Vector2& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
}
inline bool operator>(const Vector2& a, const Vector2& b) {
    return b < a;
}
inline bool operator<=(const Vector2& a, const Vector2& b) {
    return !(b < a);
}
inline bool operator>=(const Vector2& a, const Vector2& b) {
    return !(a < b);
}

static_assert(sizeof(Vector2) == 2 * sizeof(float), "Vector2 must stay two packed floats");
static_assert(std::is_standard_layout<Vector2>::value && std::is_trivially_copyable<Vector2>::value,
              "Vector2 must stay a plain value");

} // namespace math
} // namespace tarso
