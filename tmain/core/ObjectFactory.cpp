#include <tmain/core/ObjectFactory.h>

#include <mutex>
#include <tmain/core/NamedObject.h>
#include <tmain/vfs/CacheMap.h>
#include <unordered_map>

namespace tarso {
namespace core {

namespace {
struct Registry {
    std::mutex mutex;
    std::unordered_map<const ::core::Type*, ObjectRegistry::Creator> creators;
};
Registry& registry() {
    static Registry* r = new Registry(); // used during static initialisation, never destroyed
    return *r;
}
} // namespace

void ObjectRegistry::registerCreatable(const ::core::Type& type, Creator creator) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.creators[&type] = creator;
}

void ObjectRegistry::unregisterCreatable(const ::core::Type& type) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.creators.erase(&type);
}

ObjectRegistry::Creator ObjectRegistry::creatorOf(const ::core::Type* type) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    auto it = r.creators.find(type);
    return it == r.creators.end() ? nullptr : it->second;
}

// The library's own concrete classes. Object is abstract in use (it has no
// data of its own) but instantiable, so streams that contain one read back.
TMAIN_REGISTER_CREATABLE(Object);
TMAIN_REGISTER_CREATABLE(NamedObject);
TMAIN_REGISTER_CREATABLE(vfs::CacheMap);

} // namespace core
} // namespace tarso
