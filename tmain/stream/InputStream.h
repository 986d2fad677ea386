#pragma once
#include <istream>
#include <string>
#include <tmain/stream/Stream.h>

namespace tarso {
namespace stream {

/// A byte source. Typed reads honour the stream's byte order for integers;
/// floats are always little-endian. Each typed read returns true when the
/// full amount was read. Subclasses that override read() add
/// `using InputStream::read;` so the typed forms stay visible.
class TMAIN_API InputStream : public Stream {
public:
    ~InputStream() override;

    /// Bytes that can be read without blocking, or what remains.
    virtual unsigned available() const = 0;
    /// Reads up to size*count bytes; returns the number of bytes read.
    virtual unsigned read(void* buffer, unsigned size, unsigned count) = 0;
    /// Reads up to the delimiter (not stored) or capacity-1 bytes, terminates
    /// the buffer and returns the number of characters stored.
    virtual unsigned readLine(char* buffer, int capacity, char delimiter) = 0;
    virtual bool eof() const = 0;
    virtual std::istream* getSTLStream() = 0;

    bool read(char& v);
    bool read(unsigned char& v);
    bool read(bool& v);
    bool read(char* v, unsigned n);
    bool read(unsigned char* v, unsigned n);
    bool read(bool* v, unsigned n);
    bool read(short& v);
    bool read(unsigned short& v);
    bool read(short* v, unsigned n);
    bool read(unsigned short* v, unsigned n);
    bool read(int& v);
    bool read(unsigned& v);
    /// 4 bytes, sign-extended where long is wider.
    bool read(long& v);
    bool read(int* v, unsigned n);
    bool read(unsigned* v, unsigned n);
    bool read(long* v, unsigned n);
    bool read(float& v);
    bool read(float* v, unsigned n);
    /// A 32-bit length in stream order, then that many bytes.
    bool read(std::string& v);

    /// Reads on a thread of the stream I/O pool; the future holds the byte count.
    ::core::Future<unsigned> readAsync(void* buffer, unsigned size, unsigned count);

protected:
    explicit InputStream(platform::Endianness e = platform::ENDIAN_LITTLE) : Stream(e) {}
    InputStream(const InputStream&) = default;
    InputStream& operator=(const InputStream&) = default;

private:
    bool readSwapped(void* v, unsigned width, unsigned n);
};

} // namespace stream
} // namespace tarso
