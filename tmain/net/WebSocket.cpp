#include <tmain/foundation/Base64.h>
#include <tmain/foundation/CSHA1.h>
#include <tmain/foundation/Logger.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/net/SocketInputStream.h>
#include <tmain/net/SocketOutputStream.h>
#include <tmain/net/StreamSocket.h>
#include <tmain/net/WebSocket.h>
#include <tmain/net/WebSocketServer.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/net/detail/WakeUpSignal.h>
#include <tmain/stream/IOException.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>

using core::IllegalArgumentException;
using core::IllegalStateException;
using core::UnsupportedOperationException;
using tarso::stream::IOException;

namespace net {

const char* const WebSocket::ACCEPT_GUID = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";

namespace {

const char* const HANDSHAKE_ANSWER = "HTTP/1.1 101 Web Socket Protocol Handshake\r\n"
                                     "Connection: Upgrade\r\n"
                                     "Upgrade: WebSocket\r\n"
                                     "Sec-WebSocket-Accept:";
const char* const HANDSHAKE_REFUSAL = "HTTP/1.1 400 Bad Request\r\n"
                                      "Connection: close\r\n"
                                      "Sec-WebSocket-Version: 13\r\n"
                                      "Content-Length: 0\r\n\r\n";
const char HEAD_END[] = "\r\n\r\n";
const unsigned MAX_FRAME_PAYLOAD = 65535;
// What a queued message costs beyond its data, so that a flood of empty
// frames is capped too.
const unsigned MESSAGE_OVERHEAD = 64;

enum WaitResult { W_READY, W_TIMEOUT, W_STOP };

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

} // namespace

// ---------------------------------------------------------------- Message

WebSocket::Message::Message(OpCode opCode, const void* data, unsigned size, bool fin)
    : mOpCode(opCode), mFIN(fin) {
    if (data && size)
        mData.assign(static_cast<const unsigned char*>(data), size);
}

WebSocket::Message::Message(const char* text) : mOpCode(OP_TEXT), mFIN(true) {
    if (text)
        mData.assign(reinterpret_cast<const unsigned char*>(text), strlen(text));
}

// ---------------------------------------------------------------- frames

void WebSocket::mask(unsigned char* data, unsigned length, const unsigned char key[4], unsigned start) {
    unsigned i = 0;
    if (length >= 16) {
        // Eight bytes at a time: the key repeats every four bytes, so one
        // eight-byte key, rotated to the start index, fits every word.
        unsigned char rotated[8];
        for (unsigned j = 0; j < 8; ++j)
            rotated[j] = key[(start + j) & 3];
        uint64_t wide;
        memcpy(&wide, rotated, 8);
        for (; i + 8 <= length; i += 8) {
            uint64_t word;
            memcpy(&word, data + i, 8);
            word ^= wide;
            memcpy(data + i, &word, 8);
        }
    }
    for (; i < length; ++i)
        data[i] ^= key[(start + i) & 3];
}

void WebSocket::writeFrame(const Frame& frame, std::string& out) {
    unsigned code = frame.getLengthCode();
    if (code == 127)
        throw UnsupportedOperationException("64-bit length payload");
    out.push_back((char)frame.header[0]);
    out.push_back((char)frame.header[1]);
    if (code == 126) {
        out.push_back((char)((frame.length >> 8) & 0xFF));
        out.push_back((char)(frame.length & 0xFF));
    }
    if (frame.isMasked())
        out.append(reinterpret_cast<const char*>(frame.key), 4);
}

void WebSocket::FrameReader::reset() {
    mState = S_HEADER;
    mHave = 0;
    mNeed = 2;
    mDone = 0;
    memset(&mFrame, 0, sizeof(mFrame));
}

unsigned WebSocket::FrameReader::feed(unsigned char* data, unsigned length, Handler& handler) {
    unsigned pos = 0;
    while (pos < length) {
        if (mState == S_HEADER) {
            while (mHave < mNeed && pos < length)
                mHead[mHave++] = data[pos++];
            if (mHave < mNeed)
                break;
            if (mHave == 2) {
                unsigned code = mHead[1] & 0x7F;
                if (code == 127)
                    throw UnsupportedOperationException("64-bit length payload");
                mNeed = 2 + (code == 126 ? 2 : 0) + ((mHead[1] & 0x80) ? 4 : 0);
                if (mNeed > 2)
                    continue;
            }
            mFrame.header[0] = mHead[0];
            mFrame.header[1] = mHead[1];
            unsigned at = 2;
            mFrame.length = mFrame.getLengthCode();
            if (mFrame.length == 126) {
                mFrame.length = ((unsigned)mHead[2] << 8) | mHead[3];
                at = 4;
            }
            if (mFrame.isMasked())
                memcpy(mFrame.key, mHead + at, 4);
            else
                memset(mFrame.key, 0, 4);
            if (mFrame.isControl() && (!mFrame.isFIN() || mFrame.length > sizeof(mControl)))
                throw IllegalStateException("Invalid control frame: opcode %d, length %u, FIN %d",
                                            (int)mFrame.getOpCode(), mFrame.length, (int)mFrame.isFIN());
            mState = S_PAYLOAD;
            mDone = 0;
        } else {
            unsigned take = std::min(length - pos, mFrame.length - mDone);
            mask(data + pos, take, mFrame.key, mDone);
            if (mFrame.isControl())
                memcpy(mControl + mDone, data + pos, take);
            else
                handler.onData(mFrame, data + pos, take, mDone + take == mFrame.length);
            mDone += take;
            pos += take;
        }
        if (mState == S_PAYLOAD && mDone == mFrame.length) {
            Frame frame = mFrame;
            if (frame.length == 0 && !frame.isControl())
                handler.onData(frame, nullptr, 0, true);
            mState = S_HEADER;
            mHave = 0;
            mNeed = 2;
            if (frame.isControl()) {
                handler.onControl(frame, mControl, frame.length);
                if (frame.getOpCode() == OP_CLOSE)
                    return pos; // nothing after a close frame counts
            }
        }
    }
    return pos;
}

// ---------------------------------------------------------------- handshake

std::string WebSocket::Request::header(const char* name) const {
    auto it = headers.find(name);
    return it == headers.end() ? std::string() : it->second;
}

void WebSocket::parseRequest(const char* head, unsigned length, Request& out) {
    out = Request();
    std::string text(head, length);
    size_t lineEnd = text.find("\r\n");
    std::string line = text.substr(0, lineEnd);
    size_t first = line.find(' '), last = line.rfind(' ');
    if (first == std::string::npos || first == last || first == 0)
        throw IllegalArgumentException("Malformed request line: %s", line.c_str());
    out.method = line.substr(0, first);
    out.uri = trim(line.substr(first + 1, last - first - 1));
    out.protocol = line.substr(last + 1);
    while (lineEnd != std::string::npos) {
        size_t start = lineEnd + 2;
        lineEnd = text.find("\r\n", start);
        line = text.substr(start, lineEnd == std::string::npos ? std::string::npos : lineEnd - start);
        if (line.empty())
            break;
        size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0)
            throw IllegalArgumentException("Malformed header line: %s", line.c_str());
        std::string name = trim(line.substr(0, colon));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return (char)((c >= 'A' && c <= 'Z') ? c + 32 : c); });
        out.headers[name] = trim(line.substr(colon + 1));
    }
}

void WebSocket::checkRequest(const Request& request) {
    if (request.method != "GET")
        throw IllegalArgumentException("Wrong method: %s", request.method.c_str());
    if (request.protocol != "HTTP/1.1")
        throw IllegalArgumentException("Wrong protocol: %s", request.protocol.c_str());
    std::string version = request.header("sec-websocket-version");
    if (version != "13")
        throw UnsupportedOperationException("Wrong WebSocket version: %s (13 expected)", version.c_str());
    if (request.headers.find("sec-websocket-key") == request.headers.end())
        throw IllegalStateException("Missing WebSocket key");
    std::string connection = request.header("connection");
    if (connection != "Upgrade")
        throw IllegalArgumentException("Invalid connection header: %s (expecting Upgrade)",
                                       connection.c_str());
    std::string upgrade = request.header("upgrade");
    if (upgrade != "websocket")
        throw IllegalArgumentException("Invalid upgrade header: %s (expecting WebSocket)", upgrade.c_str());
}

std::string WebSocket::computeAccept(const std::string& key) {
    std::string text = key + ACCEPT_GUID;
    CSHA1 sha;
    sha.Update(reinterpret_cast<const unsigned char*>(text.data()), (unsigned)text.size());
    sha.Final();
    unsigned char digest[CSHA1::HASH_SIZE];
    sha.GetHash(digest);
    std::string out;
    text::base64_encode(digest, CSHA1::HASH_SIZE, out);
    return out;
}

// ---------------------------------------------------------------- connection

namespace {

/// UTF-8 validation that carries its state across pieces: a sequence may be
/// split anywhere. Overlong forms, surrogates and code points above
/// U+10FFFF are refused.
class Utf8Check {
public:
    bool feed(const unsigned char* p, unsigned n) {
        for (unsigned i = 0; i < n; ++i) {
            if (!mNeed) {
                // Runs of ASCII (the common case) go eight bytes at a time.
                for (uint64_t word; i + 8 <= n; i += 8) {
                    memcpy(&word, p + i, 8);
                    if (word & 0x8080808080808080ull)
                        break;
                }
                if (i == n)
                    break;
            }
            unsigned char c = p[i];
            if (mNeed) {
                if (c < mLow || c > mHigh)
                    return false;
                mLow = 0x80;
                mHigh = 0xBF;
                --mNeed;
            } else if (c >= 0x80) {
                if (c < 0xC2 || c > 0xF4)
                    return false;
                mNeed = c < 0xE0 ? 1 : c < 0xF0 ? 2 : 3;
                mLow = c == 0xE0 ? 0xA0 : c == 0xF0 ? 0x90 : 0x80;
                mHigh = c == 0xED ? 0x9F : c == 0xF4 ? 0x8F : 0xBF;
            }
        }
        return true;
    }
    bool complete() const { return mNeed == 0; }

private:
    unsigned mNeed = 0;
    unsigned char mLow = 0x80, mHigh = 0xBF;
};

} // namespace

/// Turns decoded frames into queued messages and control answers, and checks
/// the order of fragments and the UTF-8 of text messages.
class WebSocket::Dispatcher : public WebSocket::FrameReader::Handler {
public:
    explicit Dispatcher(WebSocket& socket) : mSocket(socket) {}

    void onData(const Frame& frame, const unsigned char* data, unsigned length, bool last) override {
        OpCode op = frame.getOpCode();
        if (op != OP_CONTINUATION && op != OP_TEXT && op != OP_BINARY)
            return; // reserved data opcodes: the payload is dropped, framing stays in step
        if (!mInFrame) {
            if (op != OP_CONTINUATION && mInMessage)
                throw IllegalStateException("Data frame inside a fragmented message");
            if (op == OP_CONTINUATION && !mInMessage)
                throw IllegalStateException("Continuation frame without a message");
            if (op != OP_CONTINUATION) {
                mText = op == OP_TEXT;
                mUtf8 = Utf8Check();
            }
            mInFrame = mInMessage = true;
        }
        bool fin = last && frame.isFIN();
        if (mText && (!mUtf8.feed(data, length) || (fin && !mUtf8.complete())))
            throw IllegalArgumentException("Invalid UTF-8 in a text message");
        mInFrame = !last;
        mInMessage = !fin;
        mSocket.queueIncoming(op, data, length, fin);
    }

    void onControl(const Frame& frame, const unsigned char* data, unsigned length) override {
        if (frame.getOpCode() == OP_PING) {
            mSocket.send(Message(OP_PONG, data, length, true));
        } else if (frame.getOpCode() == OP_CLOSE) {
            mSocket.mClosing = true;
            mSocket.send(Message(OP_CLOSE, data, length >= 2 ? 2 : 0, true));
        }
    }

private:
    WebSocket& mSocket;
    bool mInFrame = false, mInMessage = false, mText = false;
    Utf8Check mUtf8;
};

WebSocket::WebSocket(WebSocketServer* server, StreamSocket* socket, unsigned bufferSize)
    : core::Thread_Impl<WebSocket>("WebSocket"), mServer(server), mSocket(socket), mInput(nullptr),
      mOutput(nullptr), mBuffer(new unsigned char[bufferSize ? bufferSize : 1]),
      mBufferSize(bufferSize ? bufferSize : 1), mWake(new detail::WakeUpSignal()), mPendingStart(0),
      mPendingLength(0), mIncomingBytes(0), mMaxIncomingBytes(DEFAULT_MAX_INCOMING_BYTES), mOpen(false),
      mClosing(false) {
    if (mSocket) {
        mSocket->setNonBlocking(true);
        mInput = mSocket->getInputStream();
        mOutput = mSocket->getOutputStream();
    }
}

WebSocket::~WebSocket() {
    for (Message* m : mIncoming)
        delete m;
    for (Message* m : mOutgoing)
        delete m;
    delete mSocket;
}

void WebSocket::post(Message* message) {
    if (!message)
        return;
    {
        core::Lock lock(mOutgoingLock);
        mOutgoing.push_back(message);
    }
    // The connection thread sends its queue before every wait.
    if (std::this_thread::get_id() != mThreadId)
        mWake->raise();
}

unsigned WebSocket::getOutgoingMessageCount() {
    core::Lock lock(mOutgoingLock);
    return (unsigned)mOutgoing.size();
}

WebSocket::Message* WebSocket::getNextMessage() {
    core::Lock lock(mIncomingLock);
    if (mIncoming.empty())
        return nullptr;
    Message* m = mIncoming.front();
    mIncoming.pop_front();
    mIncomingBytes -= m->getLength() + MESSAGE_OVERHEAD;
    return m;
}

unsigned WebSocket::getIncomingMessageCount() {
    core::Lock lock(mIncomingLock);
    return (unsigned)mIncoming.size();
}

void WebSocket::terminate(unsigned timeoutMs) {
    core::Thread::terminate(0);
    mWake->raise();
    if (timeoutMs)
        join(timeoutMs);
}

void WebSocket::notifyOpen() {
    if (mServer)
        mServer->notifyOpen(this);
}
void WebSocket::notifyMessage(unsigned count, bool fin) {
    if (mServer)
        mServer->notifyMessage(this, count, fin);
}
void WebSocket::notifyError(const char* message, const core::Exception* cause) {
    logging::Logger::mROOT_LOGGER.debug("WebSocket: %s: %s", message, cause ? cause->getMessage() : "");
    if (mServer)
        mServer->notifyError(this, message, cause);
}
void WebSocket::notifyClose() {
    if (mServer)
        mServer->notifyClose(this);
}

void WebSocket::queueIncoming(OpCode opCode, const unsigned char* data, unsigned length, bool fin) {
    core::Lock lock(mIncomingLock);
    unsigned cap = mMaxIncomingBytes;
    if (cap && mIncomingBytes + length + MESSAGE_OVERHEAD > cap)
        throw UnsupportedOperationException("Incoming messages exceed %u bytes", cap);
    mIncoming.push_back(new Message(opCode, data, length, fin));
    mIncomingBytes += length + MESSAGE_OVERHEAD;
    notifyMessage((unsigned)mIncoming.size(), fin);
}

namespace {

/// Waits for the socket or a stop request; posts end the wait only to be
/// sent by the caller's loop. A negative timeout waits without limit.
WaitResult waitFor(detail::WakeUpSignal& wake, unsigned handle, bool forWrite, int timeoutMs,
                   const std::function<bool()>& stopped) {
    auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    for (;;) {
        int left = -1;
        if (timeoutMs >= 0) {
            auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                            std::chrono::steady_clock::now())
                          .count();
            left = ms > 0 ? (int)ms : 0;
        }
        int r = wake.wait(handle, forWrite, left);
        if (r < 0)
            throw IOException("WebSocket wait failed: %s", Socket::error2String(detail::lastError()));
        if (r & detail::WakeUpSignal::RAISED) {
            wake.clear();
            if (stopped())
                return W_STOP;
        }
        if (r & detail::WakeUpSignal::SOCKET_READY)
            return W_READY;
        if (r == 0 || (!forWrite && timeoutMs < 0 && (r & detail::WakeUpSignal::RAISED)))
            return W_TIMEOUT; // also: a post woke an unlimited read wait
    }
}

/// A socket timeout of 0 means no limit.
int limit(unsigned timeoutMs) {
    return timeoutMs ? (int)std::min(timeoutMs, 0x7FFFFFFFu) : -1;
}

} // namespace

void WebSocket::writeAll(const void* data, unsigned length) {
    const char* p = static_cast<const char*>(data);
    while (length) {
        if (!mSocket->isConnected())
            throw IOException("Socket disconnected");
        int n = detail::sendBytes(mSocket->getNativeSocket(), p, (int)std::min(length, 1u << 30));
        if (n > 0) {
            p += n;
            length -= (unsigned)n;
            continue;
        }
        int error = n < 0 ? detail::lastError() : Socket::SOCK_EWOULDBLOCK;
        if (error != Socket::SOCK_EWOULDBLOCK && error != Socket::SOCK_EINTR)
            throw IOException("WebSocket send failed: %s", Socket::error2String(error));
        WaitResult w = waitFor(*mWake, mSocket->getNativeSocket(), true, limit(mSocket->getWriteTimeout()),
                               [this] { return terminateRequest(); });
        if (w == W_TIMEOUT)
            throw tarso::stream::WriteTimeoutException("Socket write timeout (>%dms)",
                                                       (int)mSocket->getWriteTimeout());
        if (w == W_STOP)
            throw tarso::stream::StreamAbortedException("WebSocket closed by the server");
    }
}

void WebSocket::send(const Message& message) {
    const unsigned char* data = message.getData();
    unsigned left = message.getLength();
    OpCode op = message.getOpCode();
    do {
        unsigned chunk = std::min(left, MAX_FRAME_PAYLOAD);
        bool last = chunk == left;
        Frame frame;
        frame.header[0] = (unsigned char)(((last && message.isFIN()) ? 0x80 : 0) | (op & 0x0F));
        frame.header[1] = (unsigned char)(chunk < 126 ? chunk : 126);
        frame.length = chunk;
        mFrameOut.clear();
        writeFrame(frame, mFrameOut);
        mFrameOut.append(reinterpret_cast<const char*>(data), chunk);
        writeAll(mFrameOut.data(), (unsigned)mFrameOut.size());
        data += chunk;
        left -= chunk;
        op = OP_CONTINUATION;
    } while (left);
    if (mFrameOut.capacity() > 4 * MAX_FRAME_PAYLOAD)
        std::string().swap(mFrameOut);
}

void WebSocket::sendClose(int code) {
    unsigned char status[2] = {(unsigned char)(code >> 8), (unsigned char)code};
    try {
        send(Message(OP_CLOSE, status, 2, true));
    } catch (const core::Exception&) {
        // The connection ends anyway.
    }
}

bool WebSocket::sendOutgoingMessages() {
    for (;;) {
        std::unique_ptr<Message> message;
        {
            core::Lock lock(mOutgoingLock);
            if (mOutgoing.empty())
                return true;
            message.reset(mOutgoing.front());
            mOutgoing.pop_front();
        }
        try {
            send(*message);
        } catch (const core::Exception& e) {
            notifyError("Error sending outgoing message", &e);
            return false;
        }
    }
}

void WebSocket::handshake() {
    unsigned have = 0;
    size_t headLength = 0;
    for (;;) {
        if (have == mBufferSize)
            throw IllegalArgumentException("HTTP header too long (>%d)", (int)mBufferSize);
        WaitResult w = waitFor(*mWake, mSocket->getNativeSocket(), false, limit(mSocket->getReadTimeout()),
                               [this] { return terminateRequest(); });
        if (w == W_STOP)
            throw tarso::stream::StreamAbortedException("WebSocket closed by the server");
        if (w == W_TIMEOUT)
            throw tarso::stream::ReadTimeoutException("Socket read timeout (>%dms)",
                                                      (int)mSocket->getReadTimeout());
        unsigned n = mInput->read(mBuffer.get() + have, 1, mBufferSize - have);
        unsigned from = have > 3 ? have - 3 : 0;
        have += n;
        const char* base = reinterpret_cast<const char*>(mBuffer.get());
        const char* end = std::search(base + from, base + have, HEAD_END, HEAD_END + 4);
        if (end != base + have) {
            headLength = (size_t)(end - base) + 4;
            break;
        }
    }
    parseRequest(reinterpret_cast<const char*>(mBuffer.get()), (unsigned)headLength, mRequest);
    checkRequest(mRequest);
    std::string answer = HANDSHAKE_ANSWER;
    answer += computeAccept(mRequest.header("sec-websocket-key"));
    answer += "\r\n\r\n";
    writeAll(answer.data(), (unsigned)answer.size());
    mOutput->flush();
    // Bytes that followed the head are the first frames.
    mPendingStart = (unsigned)headLength;
    mPendingLength = have - (unsigned)headLength;
}

void WebSocket::doDialog() {
    Dispatcher dispatcher(*this);
    FrameReader reader;
    if (mPendingLength)
        reader.feed(mBuffer.get() + mPendingStart, mPendingLength, dispatcher);
    // A read that filled the buffer most likely left more behind: the next
    // read goes ahead without waiting (a stop request still waits, to be
    // seen), and one that finds nothing returns 0 and leads to the wait.
    bool full = false;
    while (!mClosing) {
        if (!sendOutgoingMessages())
            return;
        WaitResult w = W_READY;
        if (!full || terminateRequest())
            w = waitFor(*mWake, mSocket->getNativeSocket(), false, -1, [this] { return terminateRequest(); });
        if (w == W_STOP) {
            sendClose(1001);
            return;
        }
        full = false;
        if (w == W_READY) {
            unsigned n = mInput->read(mBuffer.get(), 1, mBufferSize);
            full = n == mBufferSize;
            if (n)
                reader.feed(mBuffer.get(), n, dispatcher);
        }
    }
}

void WebSocket::onRun() {
    mThreadId = std::this_thread::get_id();
    bool handshaking = true;
    try {
        if (!mSocket)
            throw IOException("Socket disconnected");
        handshake();
        handshaking = false;
        mOpen = true;
        notifyOpen();
        doDialog();
    } catch (const tarso::stream::StreamAbortedException&) {
        // A stop request: not a failure of the connection.
        if (!handshaking)
            sendClose(1001);
    } catch (const IOException& e) {
        notifyError(handshaking ? "I/O error" : "WebSocket I/O error", &e);
    } catch (const SocketClosedException& e) {
        notifyError(handshaking ? "I/O error" : "WebSocket I/O error", &e);
    } catch (const core::Exception& e) {
        if (handshaking) {
            try {
                writeAll(HANDSHAKE_REFUSAL, (unsigned)strlen(HANDSHAKE_REFUSAL));
            } catch (const core::Exception&) {
            }
            notifyError(e.getMessage(), &e);
        } else {
            notifyError("WebSocket protocol error", &e);
            sendClose(e.instanceOf(UnsupportedOperationException::TYPE) ? 1009
                      : e.instanceOf(IllegalArgumentException::TYPE)    ? 1007
                                                                        : 1002);
        }
    }
    mOpen = false;
    if (mSocket)
        mSocket->disconnect(true);
    notifyClose();
    if (mServer)
        mServer->terminated(this);
}

} // namespace net
