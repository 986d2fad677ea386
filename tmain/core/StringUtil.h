#pragma once
#include <tmain/Export.h>
#include <tmain/math/Vector2.h>
#include <tmain/math/Vector3.h>

namespace tarso {
namespace core {

/// Vectors from text: components separated by any run of commas,
/// semicolons and blanks ("1,2;3", "1 2 3", "1, 2, 3").
class TMAIN_API StringUtil {
public:
    /// True when three components were read. Components read before a
    /// failure are stored all the same. False for null or empty text.
    static bool parseVector3(const char* text, math::Vector3& out);
    /// The same with two components.
    static bool parseVector2(const char* text, math::Vector2& out);
};

} // namespace core
} // namespace tarso
