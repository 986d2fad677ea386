#include <tmain/math/Vector3.h>
#include <tmain/math/detail/FastInvSqrt.h>

namespace tarso {
namespace math {

const Vector3 Vector3::ZERO(0.0f, 0.0f, 0.0f);
const Vector3 Vector3::ONE(1.0f, 1.0f, 1.0f);
const Vector3 Vector3::TWO(2.0f, 2.0f, 2.0f);
const Vector3 Vector3::HALF(0.5f, 0.5f, 0.5f);
const Vector3 Vector3::AXIS_X(1.0f, 0.0f, 0.0f);
const Vector3 Vector3::AXIS_Y(0.0f, 1.0f, 0.0f);
const Vector3 Vector3::AXIS_Z(0.0f, 0.0f, 1.0f);
const Vector3 Vector3::BLACK(0.0f, 0.0f, 0.0f);
const Vector3 Vector3::WHITE(1.0f, 1.0f, 1.0f);
const Vector3 Vector3::GRAY(0.5f, 0.5f, 0.5f);
const Vector3 Vector3::RED(1.0f, 0.0f, 0.0f);
const Vector3 Vector3::GREEN(0.0f, 1.0f, 0.0f);
const Vector3 Vector3::BLUE(0.0f, 0.0f, 1.0f);
const Vector3 Vector3::YELLOW(1.0f, 1.0f, 0.0f);

Vector3& Vector3::fnormalize() {
    return detail::fnormalize(*this, nullptr);
}

Vector3& Vector3::fnormalize(float& length) {
    return detail::fnormalize(*this, &length);
}

float Vector3::flength() const {
    return detail::flength(*this);
}

} // namespace math
} // namespace tarso
