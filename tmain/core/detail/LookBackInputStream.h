#pragma once
#include <tmain/stream/InputStream.h>
#include <vector>

namespace tarso {
namespace core {
namespace detail {

/// Keeps the last `window` bytes read from a source that can only go back by
/// starting over (an inflater), so that the serializer's return to the end of
/// a record that read too far costs nothing. Going back further starts the
/// source over; the bytes re-read that way may total at most four times the
/// furthest position plus 16 MiB, so that a hostile stream cannot make the
/// reader inflate its content again for every record.
class LookBackInputStream : public stream::InputStream {
public:
    LookBackInputStream(stream::InputStream* source, unsigned window);

    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override;
    bool hasError() const override;
    /// Moves within the window, reads forward, or starts the source over.
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mPosition; }

    unsigned available() const override;
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Not supported (core::UnsupportedOperationException).
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override;
    /// Not supported (core::UnsupportedOperationException).
    std::istream* getSTLStream() override;

private:
    /// Reads more of the source into the window; false at its end.
    bool fill();

    stream::InputStream* mSource;
    std::vector<char> mRing; ///< the window; the byte at position p is at p % size
    unsigned mStart;         ///< the first position the window holds
    unsigned mEnd;           ///< the position after the last byte taken from the source
    unsigned mPosition;
    unsigned mReached;          ///< the furthest position taken from the source
    unsigned long long mReread; ///< bytes the source read again after starting over
};

} // namespace detail
} // namespace core
} // namespace tarso
