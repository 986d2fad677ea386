#pragma once
// Fast inverse square root shared by the vectors' fnormalize/flength.

#include <cstdint>
#include <cstring>

namespace tarso {
namespace math {
namespace detail {

/// Approximate 1/sqrt(s): the 0x5F3759DF bit estimate refined by one Newton step.
/// The product is evaluated left to right so that s = 0 yields a finite y, not NaN.
inline float fastInvSqrt(float s) {
    uint32_t bits;
    std::memcpy(&bits, &s, sizeof bits);
    bits = 0x5F3759DFu - (bits >> 1);
    float y;
    std::memcpy(&y, &bits, sizeof y);
    return y * (1.5f - 0.5f * s * y * y);
}

template <class V> V& fnormalize(V& v, float* length) {
    const float s = v.lengthSqr();
    const float y = fastInvSqrt(s);
    v *= y;
    if (length)
        *length = s > 0.0f ? 1.0f / y : 0.0f;
    return v;
}

template <class V> float flength(const V& v) {
    const float s = v.lengthSqr();
    return s > 0.0f ? 1.0f / fastInvSqrt(s) : 0.0f;
}

} // namespace detail
} // namespace math
} // namespace tarso
