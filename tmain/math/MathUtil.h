#pragma once
/// Free helpers of the math subsystem.

#include <tmain/Export.h>
#include <tmain/math/Vector2.h>
#include <tmain/math/Vector3.h>

namespace tarso {
namespace math {

/// The three unit axes X, Y, Z, in that order.
TMAIN_API extern const Vector3* const AXIS_VECTORS;

/// True for 1, 2, 4, ...; false for 0.
TMAIN_API bool isPowerOfTwo(unsigned value);

/// The power of two nearest to `value`; `lower` and `upper` receive the largest power of two
/// not above it and the smallest not below it. A tie goes to `upper`. 0 counts as 1; above
/// 2^31 both bounds are 2^31, the largest power of two an unsigned holds.
TMAIN_API unsigned nearestPowerOfTwo(unsigned value, unsigned& lower, unsigned& upper);

/// `size` scaled, aspect ratio kept, to the largest size that fits in `bounds` (scaling up or
/// down). A size with no positive component gives (0,0).
TMAIN_API Vector2 getAspectRatioResize(const Vector2& size, const Vector2& bounds);

} // namespace math
} // namespace tarso
