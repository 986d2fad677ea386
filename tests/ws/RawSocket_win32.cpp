#include "RawSocket.h"
#include <winsock2.h>

RawSocket::RawSocket(unsigned port) : mHandle(0), mConnected(false) {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    mHandle = (uintptr_t)socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons((unsigned short)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    DWORD guard = 30000;
    setsockopt((SOCKET)mHandle, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&guard),
               sizeof(guard));
    mConnected = connect((SOCKET)mHandle, (sockaddr*)&a, sizeof(a)) == 0;
}

RawSocket::~RawSocket() {
    closesocket((SOCKET)mHandle);
    WSACleanup();
}

bool RawSocket::send(const std::string& bytes) {
    return ::send((SOCKET)mHandle, bytes.data(), (int)bytes.size(), 0) == (int)bytes.size();
}

int RawSocket::recv(char* buffer, int length) {
    return ::recv((SOCKET)mHandle, buffer, length, 0);
}

void RawSocket::shutdownSend() {
    shutdown((SOCKET)mHandle, SD_SEND);
}
