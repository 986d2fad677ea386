#pragma once
#include <cstdint>
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace math {
class Vector2;
class Vector3;
class Vector4;
class Quaternion;
struct Matrix3;
struct Matrix4;
struct Bound;
} // namespace math

namespace stream {

class InputStream;
class OutputStream;

/// Length-prefixed arrays and the math types on streams. Counts and integers
/// follow the stream's byte order; floats are never swapped. Every operation
/// returns true on full success.
class TMAIN_API Utils {
public:
    static bool write(const char* v, unsigned n, OutputStream* out);
    static bool write(const bool* v, unsigned n, OutputStream* out);
    static bool write(const unsigned char* v, unsigned n, OutputStream* out);
    static bool write(const std::string& v, OutputStream* out);
    static bool write(const short* v, unsigned n, OutputStream* out);
    static bool write(const int* v, unsigned n, OutputStream* out);
    static bool write(const float* v, unsigned n, OutputStream* out);
    static bool write(const math::Vector2& v, OutputStream* out);
    static bool write(const math::Vector3& v, OutputStream* out);
    static bool write(const math::Vector4& v, OutputStream* out);
    static bool write(const math::Quaternion& v, OutputStream* out);
    static bool write(const math::Matrix3& v, OutputStream* out);
    static bool write(const math::Matrix4& v, OutputStream* out);
    static bool write(const math::Bound& v, OutputStream* out);
    static bool write(const math::Vector2* v, unsigned n, OutputStream* out);
    static bool write(const math::Vector3* v, unsigned n, OutputStream* out);
    static bool write(const math::Vector4* v, unsigned n, OutputStream* out);

    /// Reads the count and fails unless it equals n, then reads n bytes (no
    /// terminator is added).
    static bool read(char* v, unsigned n, InputStream* in);
    static bool read(bool* v, unsigned n, InputStream* in);
    static bool read(unsigned char* v, unsigned n, InputStream* in);
    /// The stored count becomes the string's length.
    static bool read(std::string& v, InputStream* in);
    static bool read(short* v, unsigned n, InputStream* in);
    static bool read(int* v, unsigned n, InputStream* in);
    static bool read(float* v, unsigned n, InputStream* in);
    static bool read(math::Vector2& v, InputStream* in);
    static bool read(math::Vector3& v, InputStream* in);
    static bool read(math::Vector4& v, InputStream* in);
    static bool read(math::Quaternion& v, InputStream* in);
    static bool read(math::Matrix3& v, InputStream* in);
    static bool read(math::Matrix4& v, InputStream* in);
    static bool read(math::Bound& v, InputStream* in);
    static bool read(math::Vector2* v, unsigned n, InputStream* in);
    static bool read(math::Vector3* v, unsigned n, InputStream* in);
    static bool read(math::Vector4* v, unsigned n, InputStream* in);

    /// Throws IOException "Error serializing object [@%8X]: %s" (or without
    /// ": %s" when field is null) when ok is false.
    static void checkWrite(bool ok, const void* object, const char* field);
    /// Throws IOException "Error deserializing object [%8X]: %s" (no '@' in
    /// this form) or "Error deserializing object [@%8X]" when ok is false.
    static void checkRead(bool ok, const void* object, const char* field);

    /// The 32-bit value of an address as messages print it with %8X.
    static unsigned addressOf(const void* p) { return (unsigned)(uintptr_t)p; }
};

} // namespace stream
} // namespace tarso
