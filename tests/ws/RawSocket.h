#pragma once
// A plain TCP client on the loopback, for the bytes real clients never send
// (RawSocket_posix.cpp, RawSocket_win32.cpp).
#include <cstdint>
#include <string>

class RawSocket {
public:
    /// Connected to 127.0.0.1:port; a receive waits at most 30 s (only a fault waits that long).
    explicit RawSocket(unsigned port);
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;
    bool connected() const { return mConnected; }
    /// Sends every byte; false when the connection refused some.
    bool send(const std::string& bytes);
    /// recv() once: the count, 0 at the end, negative on an error.
    int recv(char* buffer, int length);
    /// Ends the sending direction (the server reads the end of the stream).
    void shutdownSend();

private:
    uintptr_t mHandle;
    bool mConnected;
};
