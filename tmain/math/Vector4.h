#pragma once
/// Four-component float vector and its plain base record.

#include <cmath>
#include <tmain/Export.h>
#include <tmain/math/Vector3.h>
#include <type_traits>

namespace tarso {
namespace math {

/// Plain four-float record; the layout shared with the serialized form.
struct V4 {
    float x, y, z, w;
};

/// 4D vector of floats (x, y, z, w), also used for RGBA colours. A plain value, 16 bytes.
class TMAIN_API Vector4 : public V4 {
public:
    static const Vector4 ZERO, ONE, TWO, HALF;
    static const Vector4 AXIS_X, AXIS_Y, AXIS_Z, AXIS_W;
    /// Colours with alpha 1.
    static const Vector4 BLACK, WHITE, GRAY, RED, GREEN, BLUE, YELLOW;

    /// Zero vector.
    constexpr Vector4() : V4{0.0f, 0.0f, 0.0f, 0.0f} {}
    constexpr Vector4(float x_, float y_, float z_, float w_) : V4{x_, y_, z_, w_} {}
    constexpr explicit Vector4(float s) : V4{s, s, s, s} {}
    constexpr Vector4(const Vector3& v, float w_) : V4{v.x, v.y, v.z, w_} {}
    constexpr Vector4(const V4& v) : V4{v.x, v.y, v.z, v.w} {}

    Vector4& operator=(const V4& v) {
        x = v.x;
        y = v.y;
        z = v.z;
        w = v.w;
        return *this;
    }

    void set(float x_, float y_, float z_, float w_) {
        x = x_;
        y = y_;
        z = z_;
        w = w_;
    }
    void set(const V4& v) { *this = v; }

    /// Component by index 0..3.
    float& operator[](unsigned i) { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }
    float operator[](unsigned i) const { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }

    /// Scales x, y and z; w is left as it is.
    Vector4& mul3(float s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }

    float dot(const Vector4& v) const { return x * v.x + y * v.y + z * v.z + w * v.w; }
    float lengthSqr() const { return x * x + y * y + z * z + w * w; }
    float length() const { return std::sqrt(lengthSqr()); }

    /// Divides by the exact length and returns it. No zero guard: a zero vector becomes NaN.
    float normalize() {
        const float len = length();
        x /= len;
        y /= len;
        z /= len;
        w /= len;
        return len;
    }
    /// Approximate normalisation by the fast inverse square root (one Newton step).
    Vector4& fnormalize();
    /// As fnormalize(); `length` receives the approximate length (0 for a zero vector).
    Vector4& fnormalize(float& length);
    /// Approximate length by the fast inverse square root; 0 when the squared length is not positive.
    float flength() const;

    bool any() const { return x != 0.0f || y != 0.0f || z != 0.0f || w != 0.0f; }

    static Vector4 lerp(const Vector4& a, const Vector4& b, float t) {
        return Vector4(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t,
                       a.w + (b.w - a.w) * t);
    }

    Vector4& min(const Vector4& v) {
        x = v.x < x ? v.x : x;
        y = v.y < y ? v.y : y;
        z = v.z < z ? v.z : z;
        w = v.w < w ? v.w : w;
        return *this;
    }
    void min(const Vector4& v, Vector4& out) const {
        out = *this;
        out.min(v);
    }
    Vector4& max(const Vector4& v) {
        x = v.x > x ? v.x : x;
        y = v.y > y ? v.y : y;
        z = v.z > z ? v.z : z;
        w = v.w > w ? v.w : w;
        return *this;
    }
    void max(const Vector4& v, Vector4& out) const {
        out = *this;
        out.max(v);
    }
    /// max with `lo` first, then min with `hi`: when lo > hi, hi wins.
    Vector4& clamp(const Vector4& lo, const Vector4& hi) { return max(lo).min(hi); }

    Vector4 operator-() const { return Vector4(-x, -y, -z, -w); }
    Vector4& operator+=(const Vector4& v) {
        x += v.x;
        y += v.y;
        z += v.z;
        w += v.w;
        return *this;
    }
    Vector4& operator-=(const Vector4& v) {
        x -= v.x;
        y -= v.y;
        z -= v.z;
        w -= v.w;
        return *this;
    }
    Vector4& operator*=(const Vector4& v) {
        x *= v.x;
        y *= v.y;
        z *= v.z;
        w *= v.w;
        return *this;
    }
    Vector4& operator/=(const Vector4& v) {
        x /= v.x;
        y /= v.y;
        z /= v.z;
        w /= v.w;
        return *this;
    }
    Vector4& operator+=(float s) {
        x += s;
        y += s;
        z += s;
        w += s;
        return *this;
    }
    Vector4& operator-=(float s) {
        x -= s;
        y -= s;
        z -= s;
        w -= s;
        return *this;
    }
    Vector4& operator*=(float s) {
        x *= s;
        y *= s;
        z *= s;
        w *= s;
        return *this;
    }
    Vector4& operator/=(float s) {
        x /= s;
        y /= s;
        z /= s;
        w /= s;
        return *this;
    }
};

inline Vector4 operator+(Vector4 a, const Vector4& b) {
    return a += b;
}
inline Vector4 operator-(Vector4 a, const Vector4& b) {
    return a -= b;
}
inline Vector4 operator*(Vector4 a, const Vector4& b) {
    return a *= b;
}
inline Vector4 operator/(Vector4 a, const Vector4& b) {
    return a /= b;
}
inline Vector4 operator+(Vector4 a, float s) {
    return a += s;
}
inline Vector4 operator-(Vector4 a, float s) {
    return a -= s;
}
inline Vector4 operator*(Vector4 a, float s) {
    return a *= s;
}
inline Vector4 operator/(Vector4 a, float s) {
    return a /= s;
}
inline Vector4 operator*(float s, Vector4 a) {
    return a *= s;
}

inline bool operator==(const Vector4& a, const Vector4& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}
inline bool operator!=(const Vector4& a, const Vector4& b) {
    return !(a == b);
}
/// Lexicographic order (x, y, z, w), so vectors can key ordered containers.
inline bool operator<(const Vector4& a, const Vector4& b) {
    if (a.x != b.x)
        return a.x < b.x;
    if (a.y != b.y)
        return a.y < b.y;
    if (a.z != b.z)
        return a.z < b.z;
    return a.w < b.w;
}
inline bool operator>(const Vector4& a, const Vector4& b) {
    return b < a;
}
inline bool operator<=(const Vector4& a, const Vector4& b) {
    return !(b < a);
}
inline bool operator>=(const Vector4& a, const Vector4& b) {
    return !(a < b);
}

static_assert(sizeof(Vector4) == 4 * sizeof(float), "Vector4 must stay four packed floats");
static_assert(std::is_standard_layout<Vector4>::value && std::is_trivially_copyable<Vector4>::value,
              "Vector4 must stay a plain value");

} // namespace math
} // namespace tarso
