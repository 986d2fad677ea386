#include <tmain/vfs/TemporaryFileSystem.h>

#include <tmain/foundation/Exception.h>
#include <tmain/platform/FileOperations.h>

namespace tarso {
namespace vfs {

const ::core::Type TemporaryFileSystem::TYPE("tarso::vfs::TemporaryFileSystem", &SimpleFileSystem::TYPE);

TemporaryFileSystem::TemporaryFileSystem() {
    char buffer[255];
    if (!platform::FileOperations::getTemporaryPath(buffer, sizeof(buffer)))
        throw ::core::IllegalStateException("Unable to initialize temporary file system!!! (error %d)", 0);
    std::string root = buffer;
    if (root.empty() || (root.back() != '/' && root.back() != '\\'))
        root += '/';
    root += "TARSO/";
    setRootPath(root.c_str());
}

TemporaryFileSystem::~TemporaryFileSystem() {}

TemporaryFileSystem* TemporaryFileSystem::getSingleton() {
    return ::core::Singleton<TemporaryFileSystem>::getSingleton();
}

void TemporaryFileSystem::shutdown() {
    ::core::Singleton<TemporaryFileSystem>::deleteSingleton();
}

} // namespace vfs
} // namespace tarso
