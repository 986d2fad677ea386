#include <tmain/stream/Utils.h>

#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

namespace {
template <class T> bool writeCounted(const T* v, unsigned n, OutputStream* out) {
    return out->write(n) && out->write(v, n);
}
template <class T> bool readCounted(T* v, unsigned n, InputStream* in) {
    unsigned stored = 0;
    return in->read(stored) && stored == n && in->read(v, n);
}
} // namespace

bool Utils::write(const char* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}
bool Utils::write(const bool* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}
bool Utils::write(const unsigned char* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}
bool Utils::write(const std::string& v, OutputStream* out) {
    return out->write(v);
}
bool Utils::write(const short* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}
bool Utils::write(const int* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}
bool Utils::write(const float* v, unsigned n, OutputStream* out) {
    return writeCounted(v, n, out);
}

bool Utils::read(char* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}
bool Utils::read(bool* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}
bool Utils::read(unsigned char* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}
bool Utils::read(std::string& v, InputStream* in) {
    return in->read(v);
}
bool Utils::read(short* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}
bool Utils::read(int* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}
bool Utils::read(float* v, unsigned n, InputStream* in) {
    return readCounted(v, n, in);
}

void Utils::checkWrite(bool ok, const void* object, const char* field) {
    if (ok)
        return;
    if (field)
        throw IOException("Error serializing object [@%8X]: %s", addressOf(object), field);
    throw IOException("Error serializing object [@%8X]", addressOf(object));
}

void Utils::checkRead(bool ok, const void* object, const char* field) {
    if (ok)
        return;
    if (field)
        throw IOException("Error deserializing object [%8X]: %s", addressOf(object), field);
    throw IOException("Error deserializing object [@%8X]", addressOf(object));
}

} // namespace stream
} // namespace tarso
