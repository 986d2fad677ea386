#include "NetTestSupport.h"
#include <winsock2.h>

namespace nettest {

void setBufferSize(unsigned handle, bool receive, int bytes) {
    ASSERT_EQ(0, setsockopt((SOCKET)handle, SOL_SOCKET, receive ? SO_RCVBUF : SO_SNDBUF,
                            reinterpret_cast<const char*>(&bytes), sizeof(bytes)));
}

void setHardClose(unsigned handle) {
    linger hard = {1, 0};
    ASSERT_EQ(0, setsockopt((SOCKET)handle, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard),
                            sizeof(hard)));
}

} // namespace nettest
