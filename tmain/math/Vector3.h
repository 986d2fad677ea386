#pragma once
/// Three-component float vector and its plain base record.

#include <cmath>
#include <tmain/Export.h>
#include <type_traits>

namespace tarso {
namespace math {

/// Plain three-float record; the layout shared with the serialized form.
struct V3 {
    float x, y, z;
};

/// 3D vector of floats (x, y, z). A plain value: no virtuals, no heap, 12 bytes.
///
/// The static `mul(a, b)` shares its name with the `mul(v, out) const` member; when the
/// second operand is a non-const lvalue the member wins overload resolution, so use
/// `a * b` (or const operands) there.
class TMAIN_API Vector3 : public V3 {
public:
    static const Vector3 ZERO, ONE, TWO, HALF;
    static const Vector3 AXIS_X, AXIS_Y, AXIS_Z;
    static const Vector3 BLACK, WHITE, GRAY, RED, GREEN, BLUE, YELLOW;

    /// Zero vector.
    constexpr Vector3() : V3{0.0f, 0.0f, 0.0f} {}
    constexpr Vector3(float x_, float y_, float z_) : V3{x_, y_, z_} {}
    constexpr explicit Vector3(float s) : V3{s, s, s} {}
    constexpr Vector3(const V3& v) : V3{v.x, v.y, v.z} {}

    Vector3& operator=(const V3& v) {
        x = v.x;
        y = v.y;
        z = v.z;
        return *this;
    }

    void set(float x_, float y_, float z_) {
        x = x_;
        y = y_;
        z = z_;
    }
    void set(const V3& v) { *this = v; }

    /// Component by index 0..2.
    float& operator[](unsigned i) { return i == 0 ? x : (i == 1 ? y : z); }
    float operator[](unsigned i) const { return i == 0 ? x : (i == 1 ? y : z); }

    // Component-wise product: in place, into `out`, or as a new value.
    Vector3& mul(const Vector3& v) {
        x *= v.x;
        y *= v.y;
        z *= v.z;
        return *this;
    }
    void mul(const Vector3& v, Vector3& out) const { out.set(x * v.x, y * v.y, z * v.z); }
    static Vector3 mul(const Vector3& a, const Vector3& b) {
        return Vector3(a.x * b.x, a.y * b.y, a.z * b.z);
    }

    float dot(const Vector3& v) const { return x * v.x + y * v.y + z * v.z; }
    Vector3 cross(const Vector3& v) const {
        return Vector3(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x);
    }
    float lengthSqr() const { return x * x + y * y + z * z; }
    float length() const { return std::sqrt(lengthSqr()); }

    /// Divides by the exact length and returns it. No zero guard: a zero vector becomes NaN.
    float normalize() {
        const float len = length();
        x /= len;
        y /= len;
        z /= len;
        return len;
    }
    /// Approximate normalisation by the fast inverse square root (one Newton step).
    Vector3& fnormalize();
    /// As fnormalize(); `length` receives the approximate length (0 for a zero vector).
    Vector3& fnormalize(float& length);
    /// Approximate length by the fast inverse square root; 0 when the squared length is not positive.
    float flength() const;

    bool any() const { return x != 0.0f || y != 0.0f || z != 0.0f; }

    static Vector3 lerp(const Vector3& a, const Vector3& b, float t) {
        return Vector3(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t);
    }

    Vector3& min(const Vector3& v) {
        x = v.x < x ? v.x : x;
        y = v.y < y ? v.y : y;
        z = v.z < z ? v.z : z;
        return *this;
    }
    void min(const Vector3& v, Vector3& out) const {
        out = *this;
        out.min(v);
    }
    Vector3& max(const Vector3& v) {
        x = v.x > x ? v.x : x;
        y = v.y > y ? v.y : y;
        z = v.z > z ? v.z : z;
        return *this;
    }
    void max(const Vector3& v, Vector3& out) const {
        out = *this;
        out.max(v);
    }
    /// max with `lo` first, then min with `hi`: when lo > hi, hi wins.
    Vector3& clamp(const Vector3& lo, const Vector3& hi) { return max(lo).min(hi); }

    /// Component-wise floor in place; std::floor keeps it exact beyond the int range.
    Vector3& floor() {
        set(std::floor(x), std::floor(y), std::floor(z));
        return *this;
    }
    float getMax() const {
        const float m = x > y ? x : y;
        return m > z ? m : z;
    }
    float getMin() const {
        const float m = x < y ? x : y;
        return m < z ? m : z;
    }

    Vector3 operator-() const { return Vector3(-x, -y, -z); }
    Vector3& operator+=(const Vector3& v) {
        x += v.x;
        y += v.y;
        z += v.z;
        return *this;
    }
    Vector3& operator-=(const Vector3& v) {
        x -= v.x;
        y -= v.y;
        z -= v.z;
        return *this;
    }
    Vector3& operator*=(const Vector3& v) { return mul(v); }
    Vector3& operator/=(const Vector3& v) {
        x /= v.x;
        y /= v.y;
        z /= v.z;
        return *this;
    }
    Vector3& operator+=(float s) {
        x += s;
        y += s;
        z += s;
        return *this;
    }
    Vector3& operator-=(float s) {
        x -= s;
        y -= s;
        z -= s;
        return *this;
    }
    Vector3& operator*=(float s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    Vector3& operator/=(float s) {
        x /= s;
        y /= s;
        z /= s;
        return *this;
    }
};

inline Vector3 operator+(Vector3 a, const Vector3& b) {
    return a += b;
}
inline Vector3 operator-(Vector3 a, const Vector3& b) {
    return a -= b;
}
inline Vector3 operator*(Vector3 a, const Vector3& b) {
    return a *= b;
}
inline Vector3 operator/(Vector3 a, const Vector3& b) {
    return a /= b;
}
inline Vector3 operator+(Vector3 a, float s) {
    return a += s;
}
inline Vector3 operator-(Vector3 a, float s) {
    return a -= s;
}
inline Vector3 operator*(Vector3 a, float s) {
    return a *= s;
}
inline Vector3 operator/(Vector3 a, float s) {
    return a /= s;
}
inline Vector3 operator*(float s, Vector3 a) {
    return a *= s;
}

inline bool operator==(const Vector3& a, const Vector3& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}
inline bool operator!=(const Vector3& a, const Vector3& b) {
    return !(a == b);
}
/// Lexicographic order (x, y, z), so vectors can key ordered containers.
inline bool operator<(const Vector3& a, const Vector3& b) {
    if (a.x != b.x)
        return a.x < b.x;
    if (a.y != b.y)
        return a.y < b.y;
    return a.z < b.z;
}
inline bool operator>(const Vector3& a, const Vector3& b) {
    return b < a;
}
inline bool operator<=(const Vector3& a, const Vector3& b) {
    return !(b < a);
}
inline bool operator>=(const Vector3& a, const Vector3& b) {
    return !(a < b);
}

static_assert(sizeof(Vector3) == 3 * sizeof(float), "Vector3 must stay three packed floats");
static_assert(std::is_standard_layout<Vector3>::value && std::is_trivially_copyable<Vector3>::value,
              "Vector3 must stay a plain value");

} // namespace math
} // namespace tarso
