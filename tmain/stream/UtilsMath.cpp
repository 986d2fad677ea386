// Utils for the math types: floats are written unswapped, counts in stream order.
#include <tmain/stream/Utils.h>

#include <tmain/math/Bound.h>
#include <tmain/math/Matrix3.h>
#include <tmain/math/Matrix4.h>
#include <tmain/math/Quaternion.h>
#include <tmain/math/Vector2.h>
#include <tmain/math/Vector3.h>
#include <tmain/math/Vector4.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

namespace {
bool putFloats(OutputStream* out, const float* f, unsigned n) {
    return out->write(f, n);
}
bool getFloats(InputStream* in, float* f, unsigned n) {
    return in->read(f, n);
}

template <class V> bool writeVectors(const V* v, unsigned n, unsigned width, OutputStream* out) {
    if (!out->write(n))
        return false;
    for (unsigned i = 0; i < n; ++i)
        if (!putFloats(out, &v[i].x, width))
            return false;
    return true;
}
template <class V> bool readVectors(V* v, unsigned n, unsigned width, InputStream* in) {
    unsigned stored = 0;
    if (!in->read(stored) || stored != n)
        return false;
    for (unsigned i = 0; i < n; ++i)
        if (!getFloats(in, &v[i].x, width))
            return false;
    return true;
}
} // namespace

bool Utils::write(const math::Vector2& v, OutputStream* out) {
    return putFloats(out, &v.x, 2);
}
bool Utils::write(const math::Vector3& v, OutputStream* out) {
    return putFloats(out, &v.x, 3);
}
bool Utils::write(const math::Vector4& v, OutputStream* out) {
    return putFloats(out, &v.x, 4);
}
bool Utils::write(const math::Quaternion& v, OutputStream* out) {
    return putFloats(out, &v.x, 4);
}
bool Utils::write(const math::Matrix3& v, OutputStream* out) {
    return putFloats(out, v.m, 9) && putFloats(out, v.extra, 3);
}
bool Utils::write(const math::Matrix4& v, OutputStream* out) {
    return putFloats(out, v.m, 16) && putFloats(out, v.extra, 3);
}
bool Utils::write(const math::Bound& v, OutputStream* out) {
    return putFloats(out, &v.center.x, 3) && putFloats(out, &v.radius, 1);
}
bool Utils::write(const math::Vector2* v, unsigned n, OutputStream* out) {
    return writeVectors(v, n, 2, out);
}
bool Utils::write(const math::Vector3* v, unsigned n, OutputStream* out) {
    return writeVectors(v, n, 3, out);
}
bool Utils::write(const math::Vector4* v, unsigned n, OutputStream* out) {
    return writeVectors(v, n, 4, out);
}

bool Utils::read(math::Vector2& v, InputStream* in) {
    return getFloats(in, &v.x, 2);
}
bool Utils::read(math::Vector3& v, InputStream* in) {
    return getFloats(in, &v.x, 3);
}
bool Utils::read(math::Vector4& v, InputStream* in) {
    return getFloats(in, &v.x, 4);
}
bool Utils::read(math::Quaternion& v, InputStream* in) {
    return getFloats(in, &v.x, 4);
}
bool Utils::read(math::Matrix3& v, InputStream* in) {
    return getFloats(in, v.m, 9) && getFloats(in, v.extra, 3);
}
bool Utils::read(math::Matrix4& v, InputStream* in) {
    return getFloats(in, v.m, 16) && getFloats(in, v.extra, 3);
}
bool Utils::read(math::Bound& v, InputStream* in) {
    return getFloats(in, &v.center.x, 3) && getFloats(in, &v.radius, 1);
}
bool Utils::read(math::Vector2* v, unsigned n, InputStream* in) {
    return readVectors(v, n, 2, in);
}
bool Utils::read(math::Vector3* v, unsigned n, InputStream* in) {
    return readVectors(v, n, 3, in);
}
bool Utils::read(math::Vector4* v, unsigned n, InputStream* in) {
    return readVectors(v, n, 4, in);
}

} // namespace stream
} // namespace tarso
