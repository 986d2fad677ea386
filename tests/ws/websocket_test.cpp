#include "../support/TestSupport.h"
#include "RawSocket.h"
#include <condition_variable>
#include <map>
#include <tmain/net/WebSocketServer.h>

using namespace net;
using tmaintest::outputOf;
typedef WebSocket::Message Message;

namespace {

/// Records the events of every connection and echoes each complete message.
class Recorder : public WebSocketServer::Listener {
public:
    std::atomic<bool> consume{true}, logPieces{false};

    void onOpen(WebSocket* ws) override { add("open", ws); }
    void onMessage(WebSocket* ws, unsigned count, bool fin) override {
        if (logPieces)
            add("piece " + std::to_string(count) + (fin ? " fin" : ""));
        if (!consume)
            return;
        std::unique_ptr<Message> m(ws->getNextMessage());
        std::unique_lock<std::mutex> g(mMutex);
        std::pair<int, std::string>& partial = mPartial[ws]; // used by this connection's thread only
        g.unlock();
        if (partial.second.empty() && m->getOpCode() != WebSocket::OP_CONTINUATION)
            partial.first = m->getOpCode();
        partial.second.append(reinterpret_cast<const char*>(m->getData()), m->getLength());
        if (m->isFIN()) {
            ws->post(new Message((WebSocket::OpCode)partial.first, partial.second.data(),
                                 (unsigned)partial.second.size(), true));
            partial = {};
        }
    }
    void onError(WebSocket*, const char* message, const core::Exception* cause) override {
        add(std::string("error ") + message + " / " + (cause ? cause->getMessage() : "null"));
    }
    void onClose(WebSocket* ws) override { add("close", ws); }

    /// Waits until the event was seen n times (the 30 s guard only fires on a fault).
    bool waitFor(const std::string& event, size_t n = 1) {
        std::unique_lock<std::mutex> g(mMutex);
        return mChanged.wait_for(g, std::chrono::seconds(30), [&] { return countLocked(event) >= n; });
    }
    size_t count(const std::string& event) {
        std::lock_guard<std::mutex> g(mMutex);
        return countLocked(event);
    }
    /// The error events, one a line.
    std::string failures() {
        std::lock_guard<std::mutex> g(mMutex);
        std::string out;
        for (const std::string& e : mEvents)
            out += e.compare(0, 5, "error") == 0 ? e + "\n" : "";
        return out;
    }
    std::string lastEvent(int back = 1) {
        std::lock_guard<std::mutex> g(mMutex);
        return mEvents.end()[-back];
    }
    void clear() {
        std::lock_guard<std::mutex> g(mMutex);
        mEvents.clear();
    }
    /// The connection opened last (the caller keeps it open).
    core::SmartPtr<WebSocket> last() {
        std::lock_guard<std::mutex> g(mMutex);
        return core::SmartPtr<WebSocket>(mLast);
    }

private:
    size_t countLocked(const std::string& e) const {
        return (size_t)std::count(mEvents.begin(), mEvents.end(), e);
    }
    void add(const std::string& event, WebSocket* ws = nullptr) {
        std::lock_guard<std::mutex> g(mMutex);
        if (ws && event == "open")
            mLast = ws;
        else if (ws)
            mPartial.erase(ws);
        mEvents.push_back(event);
        mChanged.notify_all();
    }
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<std::string> mEvents;
    std::map<WebSocket*, std::pair<int, std::string>> mPartial;
    WebSocket* mLast = nullptr;
};

struct Server {
    Recorder recorder;
    tmaintest::ScopedLogCapture log;
    core::SmartPtr<WebSocketServer> server;

    explicit Server(unsigned maxIncoming = 0) : server(new WebSocketServer("127.0.0.1", 0, 128)) {
        server->addListener("recorder", &recorder);
        if (maxIncoming)
            server->setMaxIncomingBytes(maxIncoming);
        server->start();
        EXPECT_TRUE(server->waitListening(30000));
    }
    ~Server() { server->abort(); }
    std::string port() const { return std::to_string(server->getPort()); }
};

#define REQUIRE_PEER(check)                                                                                  \
    if (tmaintest::run(std::string(check) + " >/dev/null 2>&1") != 0) {                                      \
        if (tmaintest::underCI())                                                                            \
            FAIL() << "required peer missing under CI: " << check;                                           \
        GTEST_SKIP() << "peer not installed: " << check;                                                     \
    }

const std::string CLIENTS = TMAIN_SOURCE_DIR "/tests/ws/clients/";
const std::string NODE = "NODE_PATH=" TMAIN_NODE_MODULES " node ";

/// A plain TCP client for what real clients never send.
struct Raw {
    RawSocket socket;
    explicit Raw(const Server& s) : socket((unsigned)s.server->getPort()) { EXPECT_TRUE(socket.connected()); }
    void send(const std::string& b) { EXPECT_TRUE(socket.send(b)); }
    std::string read(size_t n = 1 << 20) { // to the end by default
        std::string out(n, '\0');
        size_t got = 0;
        for (int r; got < n && (r = socket.recv(&out[got], (int)(n - got))) > 0;)
            got += (size_t)r;
        return out.substr(0, got);
    }
    /// Opens with the RFC's sample key; returns the answer.
    std::string open() {
        send(request("GET", "HTTP/1.1", "Upgrade", "websocket", "13"));
        return read(ANSWER.size());
    }
    static std::string request(const char* method, const char* protocol, const char* connection,
                               const char* upgrade, const char* version, bool key = true) {
        return std::string(method) + " /chat " + protocol + "\r\nHost: 127.0.0.1\r\nUpgrade: " + upgrade +
               "\r\nConnection: " + connection + "\r\n" +
               (key ? "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" : "") +
               "Sec-WebSocket-Version: " + version + "\r\n\r\n";
    }
    static const std::string ANSWER;
};
const std::string Raw::ANSWER =
    "HTTP/1.1 101 Web Socket Protocol Handshake\r\nConnection: Upgrade\r\n"
    "Upgrade: WebSocket\r\nSec-WebSocket-Accept:s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n";

/// A client frame, masked with a fixed key unless told otherwise.
std::string frame(int first, std::string payload, bool masked = true) {
    const char key[4] = {0x12, 0x34, 0x56, 0x78};
    size_t n = payload.size();
    std::string out{(char)first, (char)((masked ? 0x80 : 0) | (n < 126 ? n : 126))};
    if (n >= 126)
        out += {(char)(n >> 8), (char)(n & 0xFF)};
    if (masked)
        out.append(key, 4);
    for (size_t i = 0; masked && i < n; ++i)
        payload[i] ^= key[i % 4];
    return out + payload;
}
const std::string CLOSE_1009("\x88\x02\x03\xf1", 4);

} // namespace

TEST(WebSocketFormats, AcceptValueAndFrameWriter) {
    EXPECT_EQ("s3pPLMBiTxaQ9kYGzzhZRbK+xOo=", WebSocket::computeAccept("dGhlIHNhbXBsZSBub25jZQ=="));
    std::string out;
    WebSocket::Frame f{{0x82, 0x80 | 126}, 300, {1, 2, 3, 4}};
    WebSocket::writeFrame(f, out);
    EXPECT_EQ(std::string("\x82\xfe\x01\x2c\x01\x02\x03\x04", 8), out);
    f.header[1] = 127;
    EXPECT_MESSAGE(core::UnsupportedOperationException, "64-bit length payload",
                   WebSocket::writeFrame(f, out));
}

TEST(WebSocketServer, RawHandshakesAnsweredOrRefusedWithTheirMessages) {
    Server s;
    {
        Raw raw(s);
        EXPECT_EQ(Raw::ANSWER, raw.open()) << "no space after Sec-WebSocket-Accept:";
        raw.send(frame(0x89, "hi"));
        EXPECT_EQ(std::string("\x8a\x02hi", 4), raw.read(4)) << "ping answered";
        raw.send(frame(0x88, std::string("\x03\xe8", 2) + "bye"));
        EXPECT_EQ(std::string("\x88\x02\x03\xe8", 4), raw.read()) << "close echoed with its code only";
    }
    ASSERT_TRUE(s.recorder.waitFor("close"));
    const std::string refusal =
        "HTTP/1.1 400 Bad Request\r\nConnection: close\r\nSec-WebSocket-Version: 13\r\n"
        "Content-Length: 0\r\n\r\n";
    struct Case {
        std::string request, error;
    } cases[] = {
        {Raw::request("GET", "HTTP/1.1", "Upgrade", "websocket", "8"),
         "Wrong WebSocket version: 8 (13 expected)"},
        {Raw::request("GET", "HTTP/1.1", "Upgrade", "websocket", "13", false), "Missing WebSocket key"},
        {Raw::request("GET", "HTTP/1.1", "Upgrade", "WebSocket", "13"),
         "Invalid upgrade header: WebSocket (expecting WebSocket)"},
        {Raw::request("GET", "HTTP/1.1", "keep-alive", "websocket", "13"),
         "Invalid connection header: keep-alive (expecting Upgrade)"},
        {Raw::request("POST", "HTTP/1.1", "Upgrade", "websocket", "13"), "Wrong method: POST"},
        {Raw::request("GET", "HTTP/1.0", "Upgrade", "websocket", "13"), "Wrong protocol: HTTP/1.0"},
        {"GET / HTTP/1.1\r\nX-Pad: " + std::string(3000, 'p') + "\r\n\r\n", "HTTP header too long (>2048)"},
        {"GET\r\n\r\n", "Malformed request line: GET"},
        {"GET / HTTP/1.1\r\nno colon\r\n\r\n", "Malformed header line: no colon"},
    };
    size_t n = 0;
    for (const Case& c : cases) {
        Raw raw(s);
        raw.send(c.request);
        EXPECT_EQ(refusal, raw.read()) << c.error;
        ASSERT_TRUE(s.recorder.waitFor("close", ++n + 1));
        EXPECT_EQ("error " + c.error + " / " + c.error, s.recorder.lastEvent(2)) << s.recorder.failures();
    }
    EXPECT_EQ(1u, s.recorder.count("open"));
}

TEST(WebSocketServer, HostileFramesEndOnlyTheirConnection) {
    Server s;
    s.recorder.logPieces = true;
    {
        Raw raw(s);
        raw.open();
        raw.send(frame(0x81, "plain", false));
        EXPECT_EQ("\x81\x05plain", raw.read(7)) << "unmasked frame accepted";
        // A masked frame whose first 3 payload bytes arrive alone: the key
        // index must run on into the second piece.
        std::string split = frame(0x81, "0123456789");
        raw.send(split.substr(0, 9));
        ASSERT_TRUE(s.recorder.waitFor("piece 1"));
        raw.send(split.substr(9));
        EXPECT_EQ("\x81\x0a"
                  "0123456789",
                  raw.read(12));
        raw.send(frame(0x83, "reserved opcode payload") + frame(0x81, "") + frame(0x02, "ab") +
                 frame(0x89, "mid") + frame(0x80, "c"));
        EXPECT_EQ(std::string("\x8a\x03mid\x81\x00\x82\x03"
                              "abc",
                              12),
                  raw.read(12))
            << "reserved opcode skipped, empty FIN message, ping between fragments answered at once";
        raw.send(frame(0x01, "\xe2\x82") + frame(0x80, "\xac"));
        EXPECT_EQ("\x81\x03\xe2\x82\xac", raw.read(5)) << "UTF-8 split between frames";
    }
    ASSERT_TRUE(s.recorder.waitFor("close"));
    struct Case {
        std::string bytes, close, error;
    } cases[] = {
        {std::string("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xff", 10), CLOSE_1009, "64-bit length payload"},
        {frame(0x89, std::string(126, 'p')), "\x88\x02\x03\xea",
         "Invalid control frame: opcode 9, length 126, FIN 1"},
        {frame(0x80, "x"), "\x88\x02\x03\xea", "Continuation frame without a message"},
        {frame(0x01, "a") + frame(0x82, "b"), "\x88\x02\x03\xea", "Data frame inside a fragmented message"},
        {frame(0x81, "\xed\xa0\x80"), "\x88\x02\x03\xef", "Invalid UTF-8 in a text message"},
        {frame(0x81, "ok\xe2\x82"), "\x88\x02\x03\xef", "Invalid UTF-8 in a text message"},
        {frame(0x82, std::string(100, 'x')).substr(0, 30), "", ""}, // truncated, then the end
    };
    size_t n = 1;
    for (const Case& c : cases) {
        Raw raw(s);
        raw.open();
        raw.send(c.bytes);
        if (c.close.empty())
            raw.socket.shutdownSend();
        EXPECT_EQ(c.close, raw.read()) << c.error;
        ASSERT_TRUE(s.recorder.waitFor("close", ++n));
        EXPECT_EQ(c.close.empty() ? "error WebSocket I/O error / "
                                  : "error WebSocket protocol error / " + c.error,
                  s.recorder.lastEvent(2));
    }
    for (unsigned seed = 1; seed <= 20; ++seed) {
        Raw raw(s);
        raw.open();
        raw.send(tmaintest::randomBytes(4096, seed));
        raw.socket.shutdownSend();
        raw.read();
    }
    ASSERT_TRUE(s.recorder.waitFor("close", n + 20));
    Raw raw(s);
    raw.open();
    raw.send(frame(0x81, "still here"));
    EXPECT_EQ("\x81\x0astill here", raw.read(12));
}

TEST(WebSocketServer, UnfetchedBytesCappedAndAbortClosesEveryConnection) {
    Server s(1000);
    s.recorder.consume = false;
    {
        Raw raw(s);
        raw.open();
        raw.send(frame(0x82, std::string(600, 'a')) + frame(0x82, std::string(600, 'b')));
        EXPECT_EQ(CLOSE_1009, raw.read());
    }
    ASSERT_TRUE(s.recorder.waitFor("close"));
    EXPECT_EQ("error WebSocket protocol error / Incoming messages exceed 1000 bytes\n",
              s.recorder.failures());

    std::vector<std::unique_ptr<Raw>> idle;
    for (int i = 0; i < 5; ++i) {
        idle.emplace_back(new Raw(s));
        EXPECT_EQ(Raw::ANSWER, idle.back()->open());
    }
    ASSERT_TRUE(s.recorder.waitFor("open", 6));
    s.server->abort();
    EXPECT_EQ(0u, s.server->getPendingCount());
    EXPECT_TRUE(s.recorder.waitFor("close", 6));
    for (auto& raw : idle)
        EXPECT_EQ(std::string("\x88\x02\x03\xe9", 4), raw->read()) << "going away";
    EXPECT_TRUE(s.log->contains("WebSocketServer listening at 127.0.0.1:" + s.port() + "..."));
    EXPECT_TRUE(s.log->contains("WebSocketServer: closing 5 pending connections"));
    EXPECT_TRUE(s.log->contains("WebSocketServer closed successfuly"));

    Server other;
    core::SmartPtr<WebSocketServer> taken(new WebSocketServer("127.0.0.1", other.server->getPort(), 1));
    taken->start();
    EXPECT_FALSE(taken->waitListening(30000)) << "port in use";
    taken->abort();
    EXPECT_TRUE(other.log->contains("WebSocketServer terminated unexpectedly"));
}

TEST(WebSocketClients, PythonWebsocketsAndNodeWs) {
    Server s;
    const std::pair<std::string, std::string> clients[] = {
        {"/usr/bin/python3 -c 'import websockets'", "/usr/bin/python3 " + CLIENTS + "py_client.py "},
        {NODE + "-e 'require(\"ws\")'", NODE + CLIENTS + "node_client.js "}};
    for (const auto& peer : clients) {
        REQUIRE_PEER(peer.first);
        std::string client = peer.second + s.port();
        EXPECT_EQ("str 5 True\nstr 0 True\nbytes 256 True\nfragmented 1048576 True\npong, close 1000\n",
                  outputOf(client + " echo"));
        EXPECT_EQ("many 64\n", outputOf(client + " many"));
        EXPECT_EQ("refused 1009\nthen after\n", outputOf(client + " toolarge"))
            << "only that connection ends";
        // A message posted from this thread while the client waits.
        s.recorder.consume = false;
        std::string output;
        size_t opened = s.recorder.count("open");
        std::thread idle([&] { output = outputOf(client + " idle"); });
        ASSERT_TRUE(s.recorder.waitFor("open", opened + 1));
        s.recorder.last()->post(new Message("from the application"));
        idle.join();
        s.recorder.consume = true;
        EXPECT_EQ("posted from the application\nclose 1000\n", output);
        EXPECT_EQ("error WebSocket protocol error / 64-bit length payload\n", s.recorder.failures());
        s.recorder.clear();
    }
}

TEST(WebSocketClients, AutobahnStrictClient) {
    REQUIRE_PEER("/usr/bin/python3 -c 'import autobahn, txaio'");
    Server s;
    const std::string client = "/usr/bin/python3 " + CLIENTS + "autobahn_client.py " + s.port();
    EXPECT_EQ("message 1 False 5 b'hello'\nmessage 2 True 256 b'\\x00\\x01\\x02\\x03\\x04'\n"
              "message 3 True 200000 b'zzzzz'\nclose True 1000\n",
              outputOf(client + " lowercase"));
    EXPECT_EQ("", s.recorder.failures());
    EXPECT_NE(std::string::npos, outputOf(client + " asis").find("close False")) << "refused";
    EXPECT_EQ("error Invalid upgrade header: WebSocket (expecting WebSocket) / "
              "Invalid upgrade header: WebSocket (expecting WebSocket)\n",
              s.recorder.failures());
}
