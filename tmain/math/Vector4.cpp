#include <tmain/math/Vector4.h>
#include <tmain/math/detail/FastInvSqrt.h>

namespace tarso {
namespace math {

const Vector4 Vector4::ZERO(0.0f, 0.0f, 0.0f, 0.0f);
const Vector4 Vector4::ONE(1.0f, 1.0f, 1.0f, 1.0f);
const Vector4 Vector4::TWO(2.0f, 2.0f, 2.0f, 2.0f);
const Vector4 Vector4::HALF(0.5f, 0.5f, 0.5f, 0.5f);
const Vector4 Vector4::AXIS_X(1.0f, 0.0f, 0.0f, 0.0f);
const Vector4 Vector4::AXIS_Y(0.0f, 1.0f, 0.0f, 0.0f);
const Vector4 Vector4::AXIS_Z(0.0f, 0.0f, 1.0f, 0.0f);
const Vector4 Vector4::AXIS_W(0.0f, 0.0f, 0.0f, 1.0f);
const Vector4 Vector4::BLACK(0.0f, 0.0f, 0.0f, 1.0f);
const Vector4 Vector4::WHITE(1.0f, 1.0f, 1.0f, 1.0f);
const Vector4 Vector4::GRAY(0.5f, 0.5f, 0.5f, 1.0f);
const Vector4 Vector4::RED(1.0f, 0.0f, 0.0f, 1.0f);
const Vector4 Vector4::GREEN(0.0f, 1.0f, 0.0f, 1.0f);
const Vector4 Vector4::BLUE(0.0f, 0.0f, 1.0f, 1.0f);
const Vector4 Vector4::YELLOW(1.0f, 1.0f, 0.0f, 1.0f);

Vector4& Vector4::fnormalize() {
    return detail::fnormalize(*this, nullptr);
}

Vector4& Vector4::fnormalize(float& length) {
    return detail::fnormalize(*this, &length);
}

float Vector4::flength() const {
    return detail::flength(*this);
}

} // namespace math
} // namespace tarso
