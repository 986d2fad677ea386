#include <tmain/math/Vector2.h>
#include <tmain/math/detail/FastInvSqrt.h>

namespace tarso {
namespace math {

const Vector2 Vector2::ZERO(0.0f, 0.0f);
const Vector2 Vector2::ONE(1.0f, 1.0f);
const Vector2 Vector2::TWO(2.0f, 2.0f);
const Vector2 Vector2::HALF(0.5f, 0.5f);
const Vector2 Vector2::AXIS_X(1.0f, 0.0f);
const Vector2 Vector2::AXIS_Y(0.0f, 1.0f);

Vector2& Vector2::fnormalize() {
    return detail::fnormalize(*this, nullptr);
}

Vector2& Vector2::fnormalize(float& length) {
    return detail::fnormalize(*this, &length);
}

float Vector2::flength() const {
    return detail::flength(*this);
}

Vector2& Vector2::rotate2D(float angle) {
    return rotate2D(std::sin(angle), std::cos(angle));
}

} // namespace math
} // namespace tarso
