#include <tmain/logging/detail/LocalTime.h>

namespace logging {
namespace detail {

bool localTime(__int64 t, struct tm& out) {
    // _tzset reads TZ again, so a changed zone counts at once; the 64-bit
    // form keeps times past 2038 on 32-bit builds.
    _tzset();
    __time64_t tt = (__time64_t)t;
    return _localtime64_s(&out, &tt) == 0;
}

} // namespace detail
} // namespace logging
