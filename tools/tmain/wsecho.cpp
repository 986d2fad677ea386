// tmain ws-echo: a WebSocket echo server on loopback, for trying clients.
#include "Tool.h"
#include <tmain/foundation/Thread.h>
#include <tmain/net/WebSocketServer.h>

namespace tmaintool {

namespace {

struct WsOptions {
    int port = 0;
};

/// Sends every message back on the connection it came from, as it came.
class Echo : public net::WebSocketServer::Listener {
public:
    void onMessage(net::WebSocket* socket, unsigned, bool) override {
        while (net::WebSocket::Message* m = socket->getNextMessage())
            socket->post(m);
    }
};

int runWsEcho(const WsOptions& o) {
    Echo echo;
    core::SmartPtr<net::WebSocketServer> server(new net::WebSocketServer("127.0.0.1", o.port, 16));
    server->addListener("echo", &echo);
    server->start();
    if (!server->waitListening(5000)) {
        server->abort();
        throw Failure{"127.0.0.1:" + std::to_string(o.port), "cannot listen"};
    }
    // The address is the data: a script reads it to find the chosen port.
    printf("ws://127.0.0.1:%d/\n", server->getPort());
    fflush(stdout);
    while (!interrupted())
        core::Thread::sleep(100); // wakes to look at the Ctrl-C flag
    server->abort();
    return EXIT_OK;
}

} // namespace

void addWsEcho(CLI::App& app, int& status) {
    auto o = std::make_shared<WsOptions>();
    CLI::App* cmd = app.add_subcommand("ws-echo", "Run a WebSocket echo server on 127.0.0.1 until Ctrl-C");
    cmd->add_option("-p,--port", o->port, "Port (default: one the system picks, printed on standard output)")
        ->check(CLI::Range(0, 65535));
    cmd->callback([o, &status] {
        installInterruptHandler();
        status = guarded("ws-echo", [o] { return runWsEcho(*o); });
    });
}

} // namespace tmaintool
