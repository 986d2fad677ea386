#pragma once
#include <tmain/core/Object.h>

namespace tarso {
namespace core {

/// Process-wide registry of creatable classes: a type record and a function
/// that makes a new instance. Classes register once, usually with
/// TMAIN_REGISTER_CREATABLE(Class) in their source file; applications register
/// their own classes the same way from their own modules.
class TMAIN_API ObjectRegistry {
public:
    typedef Object* (*Creator)();
    static void registerCreatable(const ::core::Type& type, Creator creator);
    static void unregisterCreatable(const ::core::Type& type);
    /// The creator registered for the type, or null.
    static Creator creatorOf(const ::core::Type* type);
};

/// Makes instances of reflected classes by name.
template <class T> class ObjectFactory {
public:
    ObjectFactory() {}
    virtual ~ObjectFactory() {}

    /// A new instance of the class registered under `typeName` (reference
    /// count 0, the caller takes it), or null for unknown, abstract or
    /// unregistered names and for classes that are not a T.
    virtual T* create(const char* typeName) const {
        const ::core::Type* type = ::core::Type::Reflection()[typeName];
        if (!type || !type->instanceOf(T::TYPE))
            return nullptr;
        ObjectRegistry::Creator creator = ObjectRegistry::creatorOf(type);
        if (!creator)
            return nullptr;
        return static_cast<T*>(creator());
    }
};

namespace detail {
template <class C> struct CreatableRegistrar {
    static Object* make() { return new C(); }
    CreatableRegistrar() { ObjectRegistry::registerCreatable(C::TYPE, &make); }
};
} // namespace detail

} // namespace core
} // namespace tarso

#define TMAIN_CONCAT_INNER(a, b) a##b
#define TMAIN_CONCAT(a, b) TMAIN_CONCAT_INNER(a, b)
/// Registers a default-constructible class with the object factory.
#define TMAIN_REGISTER_CREATABLE(Class)                                                                      \
    static const ::tarso::core::detail::CreatableRegistrar<Class> TMAIN_CONCAT(sTmainRegistrar_, __LINE__)
