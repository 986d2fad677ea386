#pragma once
#include <ostream>
#include <string>
#include <tmain/stream/Stream.h>

namespace tarso {
namespace stream {

/// A byte sink: the mirror of InputStream. Subclasses that override write()
/// add `using OutputStream::write;` so the typed forms stay visible.
class TMAIN_API OutputStream : public Stream {
public:
    ~OutputStream() override;

    /// Writes size*count bytes; returns the number of bytes written.
    virtual unsigned write(const void* buffer, unsigned size, unsigned count) = 0;
    virtual void flush() = 0;
    virtual std::ostream* getSTLStream() = 0;

    bool write(char v);
    bool write(unsigned char v);
    bool write(bool v);
    bool write(const char* v, unsigned n);
    bool write(const unsigned char* v, unsigned n);
    bool write(const bool* v, unsigned n);
    bool write(short v);
    bool write(unsigned short v);
    bool write(const short* v, unsigned n);
    bool write(const unsigned short* v, unsigned n);
    bool write(int v);
    bool write(unsigned v);
    /// 4 bytes (the low 32 bits where long is wider).
    bool write(long v);
    bool write(const int* v, unsigned n);
    bool write(const unsigned* v, unsigned n);
    bool write(const long* v, unsigned n);
    bool write(float v);
    bool write(const float* v, unsigned n);
    /// A 32-bit length in stream order, then the bytes, no terminator.
    bool write(const std::string& v);

    /// Writes on a thread of the stream I/O pool; the future holds the byte count.
    ::core::Future<unsigned> writeAsync(const void* buffer, unsigned size, unsigned count);

protected:
    explicit OutputStream(platform::Endianness e = platform::ENDIAN_LITTLE) : Stream(e) {}
    OutputStream(const OutputStream&) = default;
    OutputStream& operator=(const OutputStream&) = default;

private:
    bool writeSwapped(const void* v, unsigned width, unsigned n);
};

} // namespace stream
} // namespace tarso
