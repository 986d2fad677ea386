#include <tmain/math/MathUtil.h>

namespace tarso {
namespace math {

namespace {
// Constant-initialised, so usable from other translation units' static initialisers.
const Vector3 sAXES[3] = {Vector3(1.0f, 0.0f, 0.0f), Vector3(0.0f, 1.0f, 0.0f), Vector3(0.0f, 0.0f, 1.0f)};
} // namespace

const Vector3* const AXIS_VECTORS = sAXES;

bool isPowerOfTwo(unsigned value) {
    return value != 0 && (value & (value - 1)) == 0;
}

unsigned nearestPowerOfTwo(unsigned value, unsigned& lower, unsigned& upper) {
    const unsigned TOP = 1u << 31;
    if (value <= 1) {
        lower = upper = 1;
        return 1;
    }
    lower = 1;
    while (lower <= value / 2)
        lower <<= 1;
    if (lower == value || lower == TOP) {
        upper = lower;
        return lower;
    }
    upper = lower << 1;
    // value - lower < upper - value, written without overflow; ties go up.
    return value - lower < upper - value ? lower : upper;
}

Vector2 getAspectRatioResize(const Vector2& size, const Vector2& bounds) {
    const bool useX = size.x > 0.0f;
    const bool useY = size.y > 0.0f;
    if (!useX && !useY)
        return Vector2::ZERO;
    float scale;
    if (useX && useY) {
        const float sx = bounds.x / size.x;
        const float sy = bounds.y / size.y;
        scale = sx < sy ? sx : sy;
    } else {
        scale = useX ? bounds.x / size.x : bounds.y / size.y;
    }
    return size * scale;
}

} // namespace math
} // namespace tarso
