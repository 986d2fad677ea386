#include "RawSocket.h"
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

RawSocket::RawSocket(unsigned port) : mHandle((uintptr_t)socket(AF_INET, SOCK_STREAM, 0)), mConnected(false) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons((unsigned short)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    timeval guard{30, 0};
    setsockopt((int)mHandle, SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof(guard));
    mConnected = connect((int)mHandle, (sockaddr*)&a, sizeof(a)) == 0;
}

RawSocket::~RawSocket() {
    close((int)mHandle);
}

bool RawSocket::send(const std::string& bytes) {
    return ::send((int)mHandle, bytes.data(), bytes.size(), MSG_NOSIGNAL) == (ssize_t)bytes.size();
}

int RawSocket::recv(char* buffer, int length) {
    return (int)::recv((int)mHandle, buffer, (size_t)length, 0);
}

void RawSocket::shutdownSend() {
    shutdown((int)mHandle, SHUT_WR);
}
