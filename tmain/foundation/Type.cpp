#include <tmain/foundation/Type.h>

#include <algorithm>
#include <cstring>

namespace core {

const Type* Type::ReflectionMap::operator[](const char* name) const {
    if (!name)
        return nullptr;
    std::lock_guard<std::mutex> g(mMutex);
    auto it = mTypes.find(name);
    return it == mTypes.end() ? nullptr : it->second;
}

std::vector<const Type*> Type::ReflectionMap::types() const {
    std::vector<const Type*> out;
    {
        std::lock_guard<std::mutex> g(mMutex);
        for (auto& kv : mTypes)
            out.push_back(kv.second);
    }
    std::sort(out.begin(), out.end(),
              [](const Type* a, const Type* b) { return strcmp(a->getName(), b->getName()) < 0; });
    return out;
}

void Type::ReflectionMap::add(const Type* type) {
    std::lock_guard<std::mutex> g(mMutex);
    mTypes[type->getName()] = type;
}

Type::ReflectionMap& Type::Reflection() {
    // Built on first use so that records of any translation unit can register
    // during static initialisation; never destroyed for the same reason.
    static ReflectionMap* map = new ReflectionMap();
    return *map;
}

Type::Type(const char* name) : mName(name ? name : ""), mParentCount(0), mParents{nullptr, nullptr} {
    if (*mName)
        Reflection().add(this);
}

Type::Type(const char* name, const Type* parent)
    : mName(name ? name : ""), mParentCount(parent ? 1 : 0), mParents{parent, nullptr} {
    if (*mName)
        Reflection().add(this);
}

Type::Type(const char* name, const Type* parent1, const Type* parent2)
    : mName(name ? name : ""), mParentCount(2), mParents{parent1, parent2} {
    if (*mName)
        Reflection().add(this);
}

bool Type::instanceOf(const Type& other) const {
    if (this == &other)
        return true;
    for (unsigned i = 0; i < mParentCount; ++i)
        if (mParents[i] && mParents[i]->instanceOf(other))
            return true;
    return false;
}

// The record of "no type" has an empty name and is not registered.
const Type Type::NOTYPE("");

} // namespace core
