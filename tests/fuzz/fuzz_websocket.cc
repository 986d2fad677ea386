// libFuzzer harness for the WebSocket server's input side: the opening
// request (parsed and checked as the connection does, at most its 2048-byte
// work buffer) and the frame reader over what follows. Any input must end in
// a decoded stream or the library's own exception; decoding the frames in
// pieces of any size must give exactly what decoding them at once gives.
#include "fuzz_support.h"
#include <algorithm>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/net/WebSocket.h>

namespace {

/// Everything the reader reported, as text, plus the error that ended it.
struct Record : net::WebSocket::FrameReader::Handler {
    std::string out, frame;
    bool closed = false;
    void onData(const net::WebSocket::Frame& f, const unsigned char* data, unsigned length,
                bool last) override {
        if (length == 0 && (!last || f.length != 0))
            fuzz::fail("fuzz_websocket", "empty piece of a non-empty frame");
        if (data)
            frame.append(reinterpret_cast<const char*>(data), length);
        if (frame.size() > f.length)
            fuzz::fail("fuzz_websocket", "more payload than the frame announced");
        if (last) {
            if (frame.size() != f.length)
                fuzz::fail("fuzz_websocket", "frame ended short of its length");
            out += "D" + std::to_string(f.getOpCode()) + ":" + frame + (f.isFIN() ? "|F" : "|E");
            frame.clear();
        }
    }
    void onControl(const net::WebSocket::Frame& f, const unsigned char* data, unsigned length) override {
        if (length > 125)
            fuzz::fail("fuzz_websocket", "control frame over 125 bytes");
        closed = f.getOpCode() == net::WebSocket::OP_CLOSE;
        out += "C" + std::to_string(f.getOpCode()) + ":" +
               std::string(reinterpret_cast<const char*>(data), length);
    }
};

std::string decode(std::string bytes, size_t piece) {
    net::WebSocket::FrameReader reader;
    Record record;
    try {
        for (size_t at = 0; at < bytes.size();) {
            size_t n = std::min(piece, bytes.size() - at);
            unsigned used = reader.feed(reinterpret_cast<unsigned char*>(&bytes[at]), (unsigned)n, record);
            if (used > n)
                fuzz::fail("fuzz_websocket", "reader used more bytes than given");
            if (used < n && !record.closed)
                fuzz::fail("fuzz_websocket", "reader stopped early without a close frame");
            if (record.closed)
                break; // nothing after a close frame counts
            at += n;
        }
    } catch (const core::Exception& e) {
        record.out += std::string("#") + e.getMessage();
    }
    return record.out;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    const size_t piece = 1 + data[0] % 64;
    std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    size_t head = input.find("\r\n\r\n");
    std::string frames = input;
    if (head != std::string::npos && head + 4 <= 2048) {
        net::WebSocket::Request request;
        try {
            net::WebSocket::parseRequest(input.data(), (unsigned)head + 4, request);
            net::WebSocket::checkRequest(request);
            if (net::WebSocket::computeAccept(request.header("sec-websocket-key")).size() != 28)
                fuzz::fail("fuzz_websocket", "accept value not 28 characters");
        } catch (const core::Exception&) {
        }
        frames = input.substr(head + 4);
    }
    // Pieces of any size must decode to the same frames, payloads and end.
    if (decode(frames, frames.size() + 1) != decode(frames, piece))
        fuzz::fail("fuzz_websocket", "decoding in pieces differs from decoding at once");
    return 0;
}
