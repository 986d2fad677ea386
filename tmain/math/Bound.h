#pragma once
/// Bounding sphere record.

#include <tmain/Export.h>
#include <tmain/math/Vector3.h>
#include <type_traits>

namespace tarso {
namespace math {

/// Bounding sphere: centre and radius (serialized as 3 floats then 1).
struct TMAIN_API Bound {
    Vector3 center;
    float radius;

    /// Empty sphere at the origin.
    constexpr Bound() : center(), radius(0.0f) {}
    constexpr Bound(const Vector3& c, float r) : center(c), radius(r) {}
};

static_assert(sizeof(Bound) == 4 * sizeof(float), "Bound must stay 3 + 1 packed floats");
static_assert(std::is_standard_layout<Bound>::value && std::is_trivially_copyable<Bound>::value,
              "Bound must stay a plain value");

} // namespace math
} // namespace tarso
