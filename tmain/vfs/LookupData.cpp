#include <tmain/vfs/LookupData.h>

namespace tarso {
namespace vfs {

const ::core::Type LookupData::TYPE("tarso::vfs::LookupData");

LookupData::~LookupData() {}

} // namespace vfs
} // namespace tarso
