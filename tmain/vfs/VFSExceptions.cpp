#include <tmain/vfs/FileAlreadyExistsException.h>
#include <tmain/vfs/FileNotFoundException.h>

namespace tarso {
namespace vfs {

const ::core::Type FileNotFoundException::TYPE("tarso::vfs::FileNotFoundException", &::core::Exception::TYPE);
const ::core::Type FileAlreadyExistsException::TYPE("tarso::vfs::FileAlreadyExistsException",
                                                    &::core::Exception::TYPE);

FileNotFoundException::FileNotFoundException(const char* message) {
    setMessage(message);
}
FileNotFoundException::FileNotFoundException(const char* message, const ::core::Exception* cause) {
    setMessage(message);
    setCause(cause);
}

FileAlreadyExistsException::FileAlreadyExistsException(const char* message) {
    setMessage(message);
}
FileAlreadyExistsException::FileAlreadyExistsException(const char* message, const ::core::Exception* cause) {
    setMessage(message);
    setCause(cause);
}

} // namespace vfs
} // namespace tarso
