#pragma once
/// 4x4 float matrix record.

#include <tmain/Export.h>
#include <type_traits>

namespace tarso {
namespace math {

/// 4x4 matrix of 16 floats (m[row * 4 + col] when row-major), plus the three auxiliary floats
/// its serialized form carries after the sixteen elements. Whether a given matrix is row- or
/// column-major is up to its producer; see Quaternion::buildMatrix.
struct TMAIN_API Matrix4 {
    float m[16];
    /// Carried through serialization untouched; zero unless set.
    float extra[3];

    /// Identity with zero extras.
    constexpr Matrix4() : m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, extra{0, 0, 0} {}

    /// Resets the sixteen elements to the identity; `extra` is left as it is.
    void setIdentity() {
        for (unsigned i = 0; i < 16; ++i)
            m[i] = (i % 5 == 0) ? 1.0f : 0.0f;
    }

    float& operator()(unsigned row, unsigned col) { return m[row * 4 + col]; }
    float operator()(unsigned row, unsigned col) const { return m[row * 4 + col]; }
};

static_assert(sizeof(Matrix4) == 19 * sizeof(float), "Matrix4 must stay 16 + 3 packed floats");
static_assert(std::is_standard_layout<Matrix4>::value && std::is_trivially_copyable<Matrix4>::value,
              "Matrix4 must stay a plain value");

} // namespace math
} // namespace tarso
