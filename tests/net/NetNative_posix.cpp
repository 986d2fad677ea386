#include "NetTestSupport.h"
#include <sys/socket.h>

namespace nettest {

void setBufferSize(unsigned handle, bool receive, int bytes) {
    ASSERT_EQ(0, setsockopt((int)handle, SOL_SOCKET, receive ? SO_RCVBUF : SO_SNDBUF, &bytes, sizeof(bytes)));
}

void setHardClose(unsigned handle) {
    linger hard = {1, 0};
    ASSERT_EQ(0, setsockopt((int)handle, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard)));
}

} // namespace nettest
