#pragma once
#include <tmain/foundation/IRefCount.h>

namespace tarso {
namespace stream {
class InputStream;
}
namespace http {

/// The body of an HTTP message: a data stream and its size. Shared between
/// messages by reference counting.
class TMAIN_API Body : public ::core::IRefCount {
public:
    /// A body of `size` bytes read from `data` (size known). A size of 0 is
    /// measured on the stream by getSize(). With ownsData the body deletes the
    /// stream (in its destructor and when setData replaces it).
    Body(tarso::stream::InputStream* data, unsigned size, bool ownsData = true);
    ~Body() override;
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    tarso::stream::InputStream* getData() const { return mData; }
    /// Replaces the data stream; an owned previous stream is deleted, and the
    /// new one is owned under the same rule.
    void setData(tarso::stream::InputStream* data);
    bool ownsData() const { return mOwnsData; }

    /// True while the size is known.
    bool isSizeOK() const { return mSizeOK; }
    /// The size in bytes. A stored size of 0 with the size known is measured
    /// once: the stream is moved to its end, its position taken as the size,
    /// and moved back. A stream that cannot do that leaves the size 0 and
    /// unknown.
    unsigned getSize() const;

private:
    tarso::stream::InputStream* mData;
    mutable unsigned mSize;
    mutable bool mSizeOK;
    bool mOwnsData;
};

} // namespace http
} // namespace tarso
