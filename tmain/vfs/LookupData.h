#pragma once
#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/Type.h>

namespace tarso {
namespace vfs {

/// Extra parameters of a lookup; a file system accepts them only where
/// supportsLookupData() says so.
class TMAIN_API LookupData : public ::core::IRefCount {
    TMAIN_TYPE_ROOT()
public:
    ~LookupData() override;
    bool instanceOf(const ::core::Type& type) const { return getType().instanceOf(type); }
    /// False for null; otherwise tests this type against the other's type.
    bool instanceOf(const LookupData* other) const { return other && getType().instanceOf(other->getType()); }

protected:
    LookupData() {}
};

} // namespace vfs
} // namespace tarso
