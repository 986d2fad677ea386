// WebSocket echo round trips per second against the npm ws echo server, in the
// same run and driven by the same ws client script (bench/ws_echo_client.js):
// 8 connections, each sending its next message when the echo arrives, 1 KiB
// and 65535-byte text messages (the largest a client sends with a 16-bit
// length: 64 KiB would need the 64-bit length the server refuses). Runs
// alternate (ours, ws, ours, ws, ...); medians are compared. Usage: bench_websocket [seconds-per-run]
// (default 3)
#include "BenchTiming.h"
#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tmain/foundation/Logger.h>
#include <tmain/net/WebSocketServer.h>

namespace {

const std::string BENCH_DIR = std::string(__FILE__).substr(0, std::string(__FILE__).rfind('/'));
const std::string NODE = "NODE_PATH=" + BENCH_DIR + "/../build/npm/node_modules node " + BENCH_DIR + "/";

/// Echoes each complete message back to its sender.
class Echo : public net::WebSocketServer::Listener {
public:
    void onMessage(net::WebSocket* ws, unsigned, bool) override {
        std::unique_ptr<net::WebSocket::Message> m(ws->getNextMessage());
        std::string& partial = partialOf(ws);
        partial.append(reinterpret_cast<const char*>(m->getData()), m->getLength());
        if (!m->isFIN())
            return;
        ws->post(new net::WebSocket::Message(net::WebSocket::OP_TEXT, partial.data(),
                                             (unsigned)partial.size(), true));
        partial.clear();
    }
    void onClose(net::WebSocket* ws) override {
        std::lock_guard<std::mutex> g(mMutex);
        mPartial.erase(ws);
    }

private:
    std::string& partialOf(net::WebSocket* ws) {
        std::lock_guard<std::mutex> g(mMutex);
        return mPartial[ws];
    }
    std::mutex mMutex;
    std::map<net::WebSocket*, std::string> mPartial;
};

double rate(int port, unsigned size, int seconds) {
    std::string cmd = NODE + "ws_echo_client.js " + std::to_string(port) + " 8 " + std::to_string(size) +
                      " " + std::to_string(seconds);
    FILE* p = popen(cmd.c_str(), "r");
    double r = 0;
    if (!p || fscanf(p, "%lf", &r) != 1 || pclose(p) != 0) {
        fprintf(stderr, "failed: %s\n", cmd.c_str());
        exit(1);
    }
    return r;
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? atoi(argv[1]) : 3;
    const int reps = 5;
    if (logging::ConsoleAppender* console = logging::Logger::getRootLogger().getConsoleAppender())
        console->setThreshold(logging::LEVEL_WARN);
    Echo echo;
    core::SmartPtr<net::WebSocketServer> ours(new net::WebSocketServer("127.0.0.1", 0, 64));
    ours->addListener("echo", &echo);
    ours->start();
    if (!ours->waitListening(10000))
        return 1;
    FILE* ws = popen(("exec env " + NODE + "ws_echo_server.js").c_str(), "r");
    int wsPort = 0, wsPid = 0;
    if (!ws || fscanf(ws, "%d %d", &wsPort, &wsPid) != 2)
        return 1;
    for (unsigned size : {1024u, 65535u}) {
        std::vector<double> a, b;
        for (int i = 0; i < reps; ++i) {
            a.push_back(rate(ours->getPort(), size, seconds));
            b.push_back(rate(wsPort, size, seconds));
        }
        printf("echo %6u B, 8 connections: ours %8.0f/s  ws %8.0f/s  ratio ours/ws %.2f\n", size, median(a),
               median(b), median(a) / median(b));
    }
    kill(wsPid, SIGTERM);
    pclose(ws);
    ours->abort();
    return 0;
}
