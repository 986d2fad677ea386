#include <tmain/core/StringUtil.h>

#include <cstdio>

namespace tarso {
namespace core {

bool StringUtil::parseVector3(const char* text, math::Vector3& out) {
    if (!text || !*text)
        return false;
    return sscanf(text, "%f%*[,; ]%f%*[,; ]%f", &out.x, &out.y, &out.z) == 3;
}

bool StringUtil::parseVector2(const char* text, math::Vector2& out) {
    if (!text || !*text)
        return false;
    return sscanf(text, "%f%*[,; ]%f", &out.x, &out.y) == 2;
}

} // namespace core
} // namespace tarso
