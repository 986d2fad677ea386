#pragma once
#include <tmain/foundation/Singleton.h>
#include <tmain/vfs/SimpleFileSystem.h>

namespace tarso {
namespace vfs {

/// The process-wide local file system under the system's temporary folder
/// ("TARSO/"), where files that are not on the local disk get a local copy.
class TMAIN_API TemporaryFileSystem : public SimpleFileSystem {
    TMAIN_TYPE()
public:
    // Out of line so that the library and its callers share one instance: an
    // inline template static would exist once per module.
    static TemporaryFileSystem* getSingleton();
    /// Releases the instance.
    static void shutdown();

private:
    friend class ::core::Singleton<TemporaryFileSystem>;
    TemporaryFileSystem();
    ~TemporaryFileSystem() override;
};

} // namespace vfs
} // namespace tarso
