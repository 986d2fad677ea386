#include <tmain/vfs/FileWrapper.h>

namespace tarso {
namespace vfs {

const ::core::Type FileWrapper::TYPE("tarso::vfs::FileWrapper", &File::TYPE);

FileWrapper::FileWrapper(File* wrapped, unsigned eventMask, const EventCallback& callback)
    : File(wrapped->getPath(), wrapped->getOwner()), mWrapped(wrapped), mEventMask(eventMask),
      mCallback(callback) {}

FileWrapper::~FileWrapper() {
    if ((mEventMask & FE_DESTROYED) && mCallback)
        mCallback(FE_DESTROYED, mWrapped.get());
    mWrapped.reset();
    mCallback.clear();
}

} // namespace vfs
} // namespace tarso
