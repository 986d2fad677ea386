#pragma once
#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tmain/Export.h>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Thread.h>

namespace net {

class StreamSocket;
class SocketInputStream;
class SocketOutputStream;
class WebSocketServer;
namespace detail {
class WakeUpSignal;
}

/// The server side of one RFC 6455 connection, on a thread of its own: it
/// answers the opening handshake, queues what the client sends as Messages
/// (announced to the listeners) and sends the Messages posted to it.
///
/// Choices where RFC 6455 leaves room or clients need more than the basics:
/// - A frame's payload becomes one Message per piece that arrived in one read
///   (at most the work buffer's size); FIN is set only on the last piece of a
///   frame with FIN. The unmasking key index runs on across the pieces, so a
///   read may split a frame anywhere. Unmasked frames are accepted.
/// - A zero-length data frame still yields one empty Message carrying its FIN
///   (clients end fragmented messages with an empty FIN continuation).
/// - Ping (9) is answered at once with a pong carrying its payload, also
///   between the fragments of a message; pong (10) is ignored. Close (8) is
///   answered with a close carrying the same status code (none when the
///   client gave none), then the connection ends.
/// - Control frames longer than 125 bytes or without FIN, a continuation
///   frame outside a fragmented message and a text or binary frame inside
///   one are protocol errors (core::IllegalStateException); text messages
///   must be valid UTF-8 (core::IllegalArgumentException). The reserved
///   opcodes 3-7 and 11-15 have their payload read and dropped, so the
///   framing stays in step. The reserved header bits are not checked (no
///   extension is negotiated).
/// - Failures in the dialog send a close frame before the connection ends:
///   1009 for a 64-bit length or more unfetched incoming bytes than the cap,
///   1007 for invalid UTF-8, 1002 for other protocol errors, 1001 when the
///   server shuts down.
/// - A refused handshake is answered "400 Bad Request" before the end.
/// - Server frames are never masked. A message longer than 65535 bytes goes
///   out fragmented: a frame with its opcode, then continuation frames of
///   65535 bytes, FIN (as the message has it) on the last.
/// - post() from any thread wakes the connection thread, which sends without
///   waiting for the client.
class TMAIN_API WebSocket : public core::Thread_Impl<WebSocket> {
public:
    /// The 4-bit frame opcodes.
    enum OpCode { OP_CONTINUATION = 0, OP_TEXT = 1, OP_BINARY = 2, OP_CLOSE = 8, OP_PING = 9, OP_PONG = 10 };

    /// Default cap on the incoming bytes the application has not fetched.
    static const unsigned DEFAULT_MAX_INCOMING_BYTES = 64u << 20;
    /// Appended to the key before hashing it into the accept value.
    static const char* const ACCEPT_GUID;

    /// One piece of a message, incoming or outgoing.
    class TMAIN_API Message {
    public:
        /// Copies size bytes of data (null data gives zero bytes).
        Message(OpCode opCode, const void* data, unsigned size, bool fin);
        /// A text message of the string's length, FIN set.
        explicit Message(const char* text);
        OpCode getOpCode() const { return mOpCode; }
        const unsigned char* getData() const { return mData.empty() ? nullptr : mData.data(); }
        unsigned getLength() const { return (unsigned)mData.size(); }
        bool isFIN() const { return mFIN; }
        /// The bytes as a string (for text messages).
        std::string getText() const { return std::string(mData.begin(), mData.end()); }

    private:
        OpCode mOpCode;
        std::basic_string<unsigned char> mData;
        bool mFIN;
    };

    /// A frame header: the two first bytes, the payload length and the
    /// masking key (zero when the mask bit is clear).
    struct TMAIN_API Frame {
        unsigned char header[2];
        unsigned length;
        unsigned char key[4];

        bool isFIN() const { return (header[0] & 0x80) != 0; }
        OpCode getOpCode() const { return (OpCode)(header[0] & 0x0F); }
        bool isMasked() const { return (header[1] & 0x80) != 0; }
        unsigned char getLengthCode() const { return header[1] & 0x7F; }
        bool isControl() const { return (header[0] & 0x08) != 0; }
    };

    /// Decodes frames from bytes as they arrive, in pieces of any size. The
    /// connection feeds it what each read returned; the handler gets each
    /// data-frame piece unmasked and each control frame whole.
    class TMAIN_API FrameReader {
    public:
        struct Handler {
            virtual ~Handler() {}
            /// A piece of a data frame (opcode 0, 1, 2 or a reserved one);
            /// last is true on the frame's final piece.
            virtual void onData(const Frame& frame, const unsigned char* data, unsigned length,
                                bool last) = 0;
            /// A whole control frame (close, ping, pong), payload unmasked.
            virtual void onControl(const Frame& frame, const unsigned char* data, unsigned length) = 0;
        };
        FrameReader() { reset(); }
        void reset();
        /// Decodes length bytes, unmasking them in place. Returns the bytes
        /// used: all of them, or those up to the end of a close frame. Throws
        /// core::UnsupportedOperationException "64-bit length payload" and
        /// core::IllegalStateException for a control frame over 125 bytes or
        /// without FIN; the reader is then unusable until reset().
        unsigned feed(unsigned char* data, unsigned length, Handler& handler);
        /// True between frames (nothing of a frame held).
        bool atFrameStart() const { return mState == S_HEADER && mHave == 0; }

    private:
        enum State { S_HEADER, S_PAYLOAD };
        State mState;
        unsigned char mHead[14];
        unsigned mHave;
        unsigned mNeed;
        Frame mFrame;
        unsigned mDone;
        unsigned char mControl[125];
    };

    /// The parsed request of an opening handshake.
    struct TMAIN_API Request {
        std::string method, uri, protocol;
        /// Names lower-cased, values trimmed; the last of repeated names wins.
        std::map<std::string, std::string> headers;
        /// The value of a (lower-case) header, empty when missing.
        std::string header(const char* name) const;
    };

    /// `bufferSize` is the work buffer: the longest request head and the
    /// largest incoming piece. Takes ownership of the socket.
    WebSocket(WebSocketServer* server, StreamSocket* socket, unsigned bufferSize);
    ~WebSocket() override;

    /// Queues an outgoing message (the queue owns it) and wakes the connection
    /// thread. Any thread.
    void post(Message* message);
    unsigned getOutgoingMessageCount();
    /// Removes and returns the oldest incoming message (the caller owns it),
    /// null when there is none. Any thread.
    Message* getNextMessage();
    unsigned getIncomingMessageCount();
    /// Caps the incoming bytes held for the application (0: no cap), each
    /// message counting 64 bytes more than its data; more closes the
    /// connection with 1009.
    void setMaxIncomingBytes(unsigned bytes) { mMaxIncomingBytes = bytes; }
    unsigned getMaxIncomingBytes() const { return mMaxIncomingBytes; }

    /// The request line and headers of the handshake (valid from onOpen on).
    const Request& getRequest() const { return mRequest; }
    WebSocketServer* getServer() const { return mServer; }
    StreamSocket* getSocket() const { return mSocket; }
    /// True from the 101 answer until the dialog ends.
    bool isOpen() const { return mOpen.load(); }

    /// Parses a request head (request line, header lines, each ending in
    /// CRLF; the blank line optional). Throws core::IllegalArgumentException
    /// "Malformed request line: %s" or "Malformed header line: %s".
    static void parseRequest(const char* head, unsigned length, Request& out);
    /// The handshake checks, in order, each throwing with its message.
    static void checkRequest(const Request& request);
    /// The Sec-WebSocket-Accept value of a key.
    static std::string computeAccept(const std::string& key);
    /// XORs data with the key, key byte index = (start + byte index) % 4.
    static void mask(unsigned char* data, unsigned length, const unsigned char key[4], unsigned start = 0);
    /// Appends the frame header bytes (2, 4 or 8 with a key); the length
    /// code 127 throws core::UnsupportedOperationException
    /// "64-bit length payload".
    static void writeFrame(const Frame& frame, std::string& out);

    void onRun();

protected:
    void terminate(unsigned timeoutMs) override;

    void notifyOpen();
    void notifyMessage(unsigned count, bool fin);
    void notifyError(const char* message, const core::Exception* cause);
    void notifyClose();

    /// Reads and checks the request and answers it.
    void handshake();
    /// Sends and receives until a close frame, an error or a stop request.
    void doDialog();
    /// Sends every queued message; false when a failure was reported.
    bool sendOutgoingMessages();
    /// Writes one message as one frame, or fragmented when over 65535 bytes.
    void send(const Message& message);

private:
    class Dispatcher;
    friend class Dispatcher;

    /// Writes all bytes, waiting for the socket with the write timeout.
    void writeAll(const void* data, unsigned length);
    /// Sends a close frame with a status code (best effort).
    void sendClose(int code);
    void queueIncoming(OpCode opCode, const unsigned char* data, unsigned length, bool fin);

    WebSocketServer* mServer;
    StreamSocket* mSocket;
    SocketInputStream* mInput;
    SocketOutputStream* mOutput;
    std::unique_ptr<unsigned char[]> mBuffer;
    unsigned mBufferSize;
    Request mRequest;
    std::unique_ptr<detail::WakeUpSignal> mWake;
    std::atomic<std::thread::id> mThreadId;
    unsigned mPendingStart;
    unsigned mPendingLength;

    core::CriticalSection mIncomingLock;
    std::deque<Message*> mIncoming;
    unsigned long long mIncomingBytes;
    core::CriticalSection mOutgoingLock;
    std::deque<Message*> mOutgoing;

    std::atomic<unsigned> mMaxIncomingBytes;
    std::atomic<bool> mOpen;
    bool mClosing;
    std::string mFrameOut;
};

} // namespace net
