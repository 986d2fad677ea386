#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/Singleton.h>

namespace core {

IRefCount::~IRefCount() {}

void logSingletonStillReferenced() {
    logging::Logger::getRootLogger().warn("Singleton::deleteSingleton. Other references to obj still alive");
}

} // namespace core
