// libFuzzer harness for the WebSocket server's input side: the opening
// request (parsed and checked as the connection does, within its 2048-byte
// work buffer) and the frame reader over what follows. Any input must end in
// decoded frames or the library's own exception; decoding the frames in
// pieces of any size must give exactly what decoding them at once gives.
#include "fuzz_support.h"
#include <algorithm>
#include <tmain/foundation/Exception.h>
#include <tmain/net/WebSocket.h>

using net::WebSocket;

namespace {

/// Every whole frame the reader reported, as text.
struct Record : WebSocket::FrameReader::Handler {
    std::string out, frame;
    bool closed = false;
    void onData(const WebSocket::Frame& f, const unsigned char* data, unsigned length, bool last) override {
        if ((length == 0 && (!last || f.length != 0)) || frame.size() + length > f.length)
            fuzz::fail("fuzz_websocket", "piece sizes do not add up to the frame's length");
        frame.append(reinterpret_cast<const char*>(data ? data : (const unsigned char*)""), length);
        if (last && frame.size() != f.length)
            fuzz::fail("fuzz_websocket", "frame ended short of its length");
        if (last) {
            out += "D" + std::to_string(f.getOpCode()) + ":" + frame + (f.isFIN() ? "|F" : "|E");
            frame.clear();
        }
    }
    void onControl(const WebSocket::Frame& f, const unsigned char* data, unsigned length) override {
        if (length > 125)
            fuzz::fail("fuzz_websocket", "control frame over 125 bytes");
        closed = f.getOpCode() == WebSocket::OP_CLOSE;
        out += "C" + std::to_string(f.getOpCode()) + ":" +
               std::string(reinterpret_cast<const char*>(data), length);
    }
};

std::string decode(std::string bytes, size_t piece) {
    WebSocket::FrameReader reader;
    Record record;
    try {
        for (size_t at = 0; at < bytes.size() && !record.closed; at += piece) {
            size_t n = std::min(piece, bytes.size() - at);
            unsigned used = reader.feed(reinterpret_cast<unsigned char*>(&bytes[at]), (unsigned)n, record);
            if (used > n || (used < n && !record.closed))
                fuzz::fail("fuzz_websocket", "reader used a wrong number of bytes");
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
    std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    size_t head = input.find("\r\n\r\n");
    if (head != std::string::npos && head + 4 <= 2048) {
        WebSocket::Request request;
        try {
            WebSocket::parseRequest(input.data(), (unsigned)head + 4, request);
            WebSocket::checkRequest(request);
            if (WebSocket::computeAccept(request.header("sec-websocket-key")).size() != 28)
                fuzz::fail("fuzz_websocket", "accept value not 28 characters");
        } catch (const core::Exception&) {
        }
        input.erase(0, head + 4);
    }
    if (decode(input, input.size() + 1) != decode(input, 1 + data[0] % 64))
        fuzz::fail("fuzz_websocket", "decoding in pieces differs from decoding at once");
    return 0;
}
