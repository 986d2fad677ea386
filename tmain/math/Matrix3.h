#pragma once
/// 3x3 float matrix record.

#include <tmain/Export.h>
#include <type_traits>

namespace tarso {
namespace math {

/// 3x3 matrix stored row-major (m[row * 3 + col]), plus the three auxiliary floats its
/// serialized form carries after the nine elements.
struct TMAIN_API Matrix3 {
    float m[9];
    /// Carried through serialization untouched; zero unless set.
    float extra[3];

    /// Identity with zero extras.
    constexpr Matrix3() : m{1, 0, 0, 0, 1, 0, 0, 0, 1}, extra{0, 0, 0} {}

    /// Resets the nine elements to the identity; `extra` is left as it is.
    void setIdentity() {
        for (unsigned i = 0; i < 9; ++i)
            m[i] = (i % 4 == 0) ? 1.0f : 0.0f;
    }

    float& operator()(unsigned row, unsigned col) { return m[row * 3 + col]; }
    float operator()(unsigned row, unsigned col) const { return m[row * 3 + col]; }
};

static_assert(sizeof(Matrix3) == 12 * sizeof(float), "Matrix3 must stay 9 + 3 packed floats");
static_assert(std::is_standard_layout<Matrix3>::value && std::is_trivially_copyable<Matrix3>::value,
              "Matrix3 must stay a plain value");

} // namespace math
} // namespace tarso
