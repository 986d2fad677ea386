#pragma once
#include <map>
#include <mutex>
#include <string_view>
#include <tmain/Export.h>
#include <tmain/foundation/LessStr.h>
#include <unordered_map>
#include <vector>

namespace core {

/// Immutable run-time type record. One static record per reflected class,
/// registered by name in the process-wide reflection map when constructed.
class TMAIN_API Type {
public:
    /// The process-wide map from class name to type record.
    class TMAIN_API ReflectionMap {
    public:
        /// The record registered under `name`, or null.
        const Type* operator[](const char* name) const;
        /// All registered records in name order.
        std::vector<const Type*> types() const;
        void add(const Type* type);

    private:
        mutable std::mutex mMutex;
        // Hashed: the object factory looks a name up for every object it makes.
        std::unordered_map<std::string_view, const Type*> mTypes;
    };

    explicit Type(const char* name);
    Type(const char* name, const Type* parent);
    /// A record with two parents; code that walks up the parents refuses it.
    Type(const char* name, const Type* parent1, const Type* parent2);
    Type(const Type&) = delete;
    Type& operator=(const Type&) = delete;

    const char* getName() const { return mName; }
    unsigned getParentCount() const { return mParentCount; }
    const Type* getParent(unsigned index = 0) const {
        return index < mParentCount ? mParents[index] : nullptr;
    }

    /// True when `other` is this record or one of its ancestors.
    bool instanceOf(const Type& other) const;

    bool operator==(const Type& o) const { return this == &o; }
    bool operator!=(const Type& o) const { return this != &o; }

    /// The record used where a class has no type.
    static const Type NOTYPE;
    static ReflectionMap& Reflection();

private:
    const char* mName;
    unsigned mParentCount;
    const Type* mParents[2];
};

} // namespace core

/// Declares the reflection members of a class: static TYPE, static type() and
/// the virtual getType(). ROOT is for the first class of a hierarchy.
#define TMAIN_TYPE_ROOT()                                                                                    \
public:                                                                                                      \
    static const ::core::Type TYPE;                                                                          \
    static const ::core::Type& type() {                                                                      \
        return TYPE;                                                                                         \
    }                                                                                                        \
    virtual const ::core::Type& getType() const {                                                            \
        return TYPE;                                                                                         \
    }

#define TMAIN_TYPE()                                                                                         \
public:                                                                                                      \
    static const ::core::Type TYPE;                                                                          \
    static const ::core::Type& type() {                                                                      \
        return TYPE;                                                                                         \
    }                                                                                                        \
    const ::core::Type& getType() const override {                                                           \
        return TYPE;                                                                                         \
    }
