#pragma once
#include <tmain/Export.h>

namespace net {

/// Transport of a socket. The underlying type is fixed so that any int is a
/// value (unparse answers "TP_???" for the unknown ones).
enum TransportProtocol : int { TP_NONE = 0, TP_TCP = 1, TP_UDP = 2 };

/// "TP_NONE", "TP_TCP", "TP_UDP", or "TP_???" for any other value.
TMAIN_API const char* unparse(TransportProtocol protocol);
/// TP_TCP for exactly "TP_TCP", TP_UDP for exactly "TP_UDP" (case matters);
/// TP_NONE for anything else, a null pointer included.
TMAIN_API TransportProtocol parseProtocol(const char* text);

} // namespace net
