#include <tmain/net/TransportProtocol.h>

#include <cstring>

namespace net {

const char* unparse(TransportProtocol protocol) {
    switch (protocol) {
    case TP_NONE:
        return "TP_NONE";
    case TP_TCP:
        return "TP_TCP";
    case TP_UDP:
        return "TP_UDP";
    }
    return "TP_???";
}

TransportProtocol parseProtocol(const char* text) {
    if (!text)
        return TP_NONE;
    if (strcmp(text, "TP_TCP") == 0)
        return TP_TCP;
    if (strcmp(text, "TP_UDP") == 0)
        return TP_UDP;
    return TP_NONE;
}

} // namespace net
