#include "../support/TestSupport.h"
#include <arpa/inet.h>
#include <condition_variable>
#include <map>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <tmain/foundation/Exception.h>
#include <tmain/net/WebSocketServer.h>
#include <unistd.h>

using namespace net;
using tmaintest::outputOf;
typedef WebSocket::Message Message;

namespace {

/// Records the events of every connection and echoes each complete message.
class Recorder : public WebSocketServer::Listener {
public:
    std::atomic<bool> consume{true};
    std::atomic<bool> logPieces{false};

    void onOpen(WebSocket* ws) override {
        {
            std::lock_guard<std::mutex> g(mMutex);
            mLast = ws;
        }
        add("open");
    }
    void onMessage(WebSocket* ws, unsigned, bool fin) override {
        if (logPieces)
            add("piece " + std::to_string(ws->getIncomingMessageCount()) + (fin ? " fin" : ""));
        if (!consume)
            return;
        std::unique_ptr<Message> m(ws->getNextMessage());
        std::pair<int, std::string>& partial = mPartial[ws]; // this connection's thread only
        if (partial.second.empty() && m->getOpCode() != WebSocket::OP_CONTINUATION)
            partial.first = m->getOpCode();
        partial.second.append(reinterpret_cast<const char*>(m->getData()), m->getLength());
        if (!m->isFIN())
            return;
        add("echo " + std::to_string(partial.first) + " " + std::to_string(partial.second.size()));
        ws->post(new Message((WebSocket::OpCode)partial.first, partial.second.data(),
                             (unsigned)partial.second.size(), true));
        partial = {};
    }
    void onError(WebSocket*, const char* message, const core::Exception* cause) override {
        add(std::string("error ") + message + (cause ? std::string(" / ") + cause->getMessage() : ""));
    }
    void onClose(WebSocket* ws) override {
        {
            std::lock_guard<std::mutex> g(mMutex);
            mPartial.erase(ws);
            if (mLast == ws)
                mLast = nullptr;
        }
        add("close");
    }

    /// Waits (with a guard of 30 s that only a fault reaches) until the event
    /// was seen n times.
    bool waitFor(const std::string& event, size_t n = 1) {
        std::unique_lock<std::mutex> g(mMutex);
        return mChanged.wait_for(g, std::chrono::seconds(30), [&] { return count(event) >= n; });
    }
    std::vector<std::string> events() {
        std::lock_guard<std::mutex> g(mMutex);
        return mEvents;
    }
    /// Events other than open, echo and close, in order.
    std::string failures() {
        std::string out;
        for (const std::string& e : events())
            if (e.compare(0, 5, "error") == 0)
                out += e + "\n";
        return out;
    }
    /// The connection opened last, still open.
    core::SmartPtr<WebSocket> last() {
        std::lock_guard<std::mutex> g(mMutex);
        return core::SmartPtr<WebSocket>(mLast);
    }

private:
    size_t count(const std::string& event) const {
        return (size_t)std::count(mEvents.begin(), mEvents.end(), event);
    }
    void add(const std::string& event) {
        std::lock_guard<std::mutex> g(mMutex);
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

bool havePeer(const std::string& check) {
    return tmaintest::run(check + " >/dev/null 2>&1") == 0;
}
#define REQUIRE_PEER(check)                                                                                  \
    do {                                                                                                     \
        if (!havePeer(check)) {                                                                              \
            if (tmaintest::underCI())                                                                        \
                FAIL() << "required peer missing under CI: " << check;                                       \
            GTEST_SKIP() << "peer not installed: " << check;                                                 \
        }                                                                                                    \
    } while (0)

const std::string CLIENTS = TMAIN_SOURCE_DIR "/tests/ws/clients/";
const std::string PY = "/usr/bin/python3 " + CLIENTS;
const std::string NODE = "NODE_PATH=" TMAIN_NODE_MODULES " node " + CLIENTS + "node_client.js ";

/// A plain TCP client for what real clients never send.
struct Raw {
    int fd;
    explicit Raw(const Server& s) : fd(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons((unsigned short)s.server->getPort());
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        timeval guard{30, 0}; // only a fault waits this long
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof(guard));
        EXPECT_EQ(0, connect(fd, (sockaddr*)&a, sizeof(a)));
    }
    ~Raw() { close(fd); }
    void send(const std::string& bytes) {
        EXPECT_EQ((ssize_t)bytes.size(), ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    std::string read(size_t n) {
        std::string out(n, '\0');
        size_t got = 0;
        for (ssize_t r; got < n && (r = ::recv(fd, &out[got], n - got, 0)) > 0;)
            got += (size_t)r;
        out.resize(got);
        return out;
    }
    std::string readToEnd() { return read(1 << 20); }
    /// Opens with the RFC sample key and returns the answer.
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

/// A client frame: masked with a fixed key unless told otherwise.
std::string frame(int first, const std::string& payload, bool masked = true) {
    std::string out(1, (char)first);
    size_t n = payload.size();
    char m = masked ? (char)0x80 : 0;
    if (n < 126)
        out += (char)(m | (char)n);
    else
        out += std::string(1, (char)(m | 126)) + (char)(n >> 8) + (char)(n & 0xFF);
    std::string body = payload;
    if (masked) {
        const char key[4] = {0x12, 0x34, 0x56, 0x78};
        out.append(key, 4);
        for (size_t i = 0; i < n; ++i)
            body[i] ^= key[i % 4];
    }
    return out + body;
}

} // namespace

TEST(WebSocketFormats, AcceptValueParserAndFrameWriter) {
    EXPECT_EQ("s3pPLMBiTxaQ9kYGzzhZRbK+xOo=", WebSocket::computeAccept("dGhlIHNhbXBsZSBub25jZQ=="));
    WebSocket::Request r;
    std::string head =
        "GET /a b HTTP/1.1\r\nUpgrade:  websocket \r\nX-Empty:\r\nSEC-WebSocket-Key: k:v\r\n\r\n";
    WebSocket::parseRequest(head.data(), (unsigned)head.size(), r);
    EXPECT_JOINED("GET|/a b|HTTP/1.1|websocket||k:v|3|", r.method, r.uri, r.protocol, r.header("upgrade"),
                  r.header("x-empty"), r.header("sec-websocket-key"), r.headers.size());
    for (const char* bad : {"GET\r\n\r\n", "GET /\r\n\r\n", "GET / HTTP/1.1\r\nno colon\r\n\r\n"})
        EXPECT_NE("<no exception>", tmaintest::messageOf<core::IllegalArgumentException>(
                                        [&] { WebSocket::parseRequest(bad, (unsigned)strlen(bad), r); }))
            << bad;
    WebSocket::Frame f{{0x82, 126}, 300, {1, 2, 3, 4}};
    std::string out;
    WebSocket::writeFrame(f, out);
    EXPECT_EQ(std::string("\x82\x7e\x01\x2c", 4), out);
    f.header[1] = 0x80 | 5;
    out.clear();
    WebSocket::writeFrame(f, out);
    EXPECT_EQ(std::string("\x82\x85\x01\x02\x03\x04", 6), out);
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
        EXPECT_EQ(std::string("\x88\x02\x03\xe8", 4), raw.readToEnd()) << "close echoed with its code only";
    }
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
    };
    size_t n = 0;
    for (const Case& c : cases) {
        Raw raw(s);
        raw.send(c.request);
        EXPECT_EQ(refusal, raw.readToEnd()) << c.error;
        ASSERT_TRUE(s.recorder.waitFor("close", ++n + 1));
        EXPECT_EQ("error " + c.error + " / " + c.error, s.recorder.events().end()[-2]);
    }
    std::vector<std::string> events = s.recorder.events();
    EXPECT_EQ(1, std::count(events.begin(), events.end(), "open"));
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
        raw.send(std::string("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xff", 10));
        EXPECT_EQ(std::string("\x88\x02\x03\xf1", 4), raw.readToEnd()) << "2^63 length closed with 1009";
    }
    ASSERT_TRUE(s.recorder.waitFor("close"));
    const std::string expected = "error WebSocket protocol error / 64-bit length payload\n";
    EXPECT_EQ(expected, s.recorder.failures());
    {
        Raw raw(s);
        raw.open();
        raw.send(frame(0x82, std::string(100, 'x')).substr(0, 30));
        shutdown(raw.fd, SHUT_WR);
        EXPECT_EQ("", raw.readToEnd()) << "truncated frame";
    }
    ASSERT_TRUE(s.recorder.waitFor("close", 2));
    EXPECT_EQ(expected + "error WebSocket I/O error / \n", s.recorder.failures());
    {
        Raw raw(s);
        raw.open();
        raw.send(frame(0x89, std::string(126, 'p')));
        EXPECT_EQ(std::string("\x88\x02\x03\xea", 4), raw.readToEnd())
            << "control frame over 125 bytes: 1002";
    }
    for (unsigned seed = 1; seed <= 20; ++seed) {
        Raw raw(s);
        raw.open();
        raw.send(tmaintest::randomBytes(4096, seed));
        shutdown(raw.fd, SHUT_WR);
        raw.readToEnd();
    }
    ASSERT_TRUE(s.recorder.waitFor("close", 23));
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
        EXPECT_EQ(std::string("\x88\x02\x03\xf1", 4), raw.readToEnd());
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
        EXPECT_EQ(std::string("\x88\x02\x03\xe9", 4), raw->readToEnd()) << "going away";
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

TEST(WebSocketClients, PythonWebsockets) {
    REQUIRE_PEER("/usr/bin/python3 -c 'import websockets'");
    Server s;
    EXPECT_EQ("text hello\nempty ''\nbinary 256 True\nfragmented 1048576 True\npong\nclose 1000\n",
              outputOf(PY + "py_client.py " + s.port() + " echo"));
    EXPECT_EQ("many 64 True\n", outputOf(PY + "py_client.py " + s.port() + " many"));
    EXPECT_EQ("refused 1009\nafter after\n", outputOf(PY + "py_client.py " + s.port() + " toolarge"));
    EXPECT_EQ("error WebSocket protocol error / 64-bit length payload\n", s.recorder.failures());
}

TEST(WebSocketClients, NodeWs) {
    REQUIRE_PEER("NODE_PATH=" TMAIN_NODE_MODULES " node -e 'require(\"ws\")'");
    Server s;
    EXPECT_EQ(
        "text false hello\nempty false 0\nbinary true true\nfragmented 1048576 true\npong abc\nclose 1000\n",
        outputOf(NODE + s.port() + " echo"));
    EXPECT_EQ("many 64 true\n", outputOf(NODE + s.port() + " many"));
    EXPECT_EQ("refused 1009\nafter after\n", outputOf(NODE + s.port() + " toolarge"));
    EXPECT_EQ("error WebSocket protocol error / 64-bit length payload\n", s.recorder.failures());
}

TEST(WebSocketClients, MessagePostedFromAnotherThreadReachesIdleClients) {
    REQUIRE_PEER("/usr/bin/python3 -c 'import websockets'");
    REQUIRE_PEER("NODE_PATH=" TMAIN_NODE_MODULES " node -e 'require(\"ws\")'");
    Server s;
    s.recorder.consume = false;
    size_t opened = 0;
    for (const std::string& client : {PY + "py_client.py " + s.port() + " idle", NODE + s.port() + " idle"}) {
        std::string output;
        std::thread peer([&] { output = outputOf(client); });
        ASSERT_TRUE(s.recorder.waitFor("open", ++opened));
        s.recorder.last()->post(new Message("from the application"));
        peer.join();
        EXPECT_EQ("posted from the application\nclose 1000\n", output) << client;
    }
}

TEST(WebSocketClients, AutobahnStrictClient) {
    REQUIRE_PEER("/usr/bin/python3 -c 'import autobahn, txaio'");
    Server s;
    EXPECT_EQ("message 1 False 5 b'hello'\nmessage 2 True 256 b'\\x00\\x01\\x02\\x03\\x04'\n"
              "message 3 True 200000 b'zzzzz'\nclose True 1000\n",
              outputOf(PY + "autobahn_client.py " + s.port() + " lowercase"));
    EXPECT_EQ("", s.recorder.failures());
    std::string refused = outputOf(PY + "autobahn_client.py " + s.port() + " asis");
    EXPECT_NE(std::string::npos, refused.find("close False")) << refused;
    EXPECT_EQ("error Invalid upgrade header: WebSocket (expecting WebSocket) / "
              "Invalid upgrade header: WebSocket (expecting WebSocket)\n",
              s.recorder.failures());
}
