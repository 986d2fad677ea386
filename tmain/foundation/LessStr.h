#pragma once
#include <cstring>

namespace core {

/// Orders C strings by strcmp, for maps keyed by const char*.
struct less_str {
    bool operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }
};

} // namespace core
