#include <tmain/logging/detail/LocalTime.h>

namespace logging {
namespace detail {

bool localTime(__int64 t, struct tm& out) {
    // localtime_r need not look at TZ again: tzset makes a changed zone count.
    tzset();
    time_t tt = (time_t)t;
    return localtime_r(&tt, &out) != nullptr;
}

} // namespace detail
} // namespace logging
