#include <tmain/foundation/Logger.h>
#include <tmain/net/ServerSocket.h>
#include <tmain/net/WebSocketServer.h>
#include <tmain/net/detail/WakeUpSignal.h>
#include <tmain/stream/IOException.h>

namespace net {

namespace {
logging::Logger& log() {
    return logging::Logger::mROOT_LOGGER;
}
} // namespace

WebSocketServer::WebSocketServer(const char* host, int port, int backlog)
    : core::Thread_Impl<WebSocketServer>("ServerThread", 512), mHost(host ? host : ""), mPort(port),
      mBacklog(backlog), mBoundPort(0), mMaxIncomingBytes(WebSocket::DEFAULT_MAX_INCOMING_BYTES),
      mWake(new detail::WakeUpSignal()), mReady(true, false), mFailed(false),
      mListeners(std::make_shared<ListenerMap>()) {}

WebSocketServer::~WebSocketServer() {
    // A started server holds itself while its thread runs: by now it ended.
}

void WebSocketServer::terminate(unsigned timeoutMs) {
    core::Thread::terminate(0);
    mWake->raise();
    if (timeoutMs)
        join(timeoutMs);
}

void WebSocketServer::abort() {
    finish();
    join();
}

bool WebSocketServer::waitListening(unsigned timeoutMs) {
    return mReady.wait(timeoutMs) == core::Event::WAIT_SIGNALED && !mFailed.load();
}

unsigned WebSocketServer::getPendingCount() {
    core::Lock lock(mLock);
    return (unsigned)mPending.size();
}

void WebSocketServer::onRun() {
    try {
        mSocket.reset(new ServerSocket(true, true));
        mSocket->setTimeout(2000, 2000, 2000);
        mSocket->applyTimeout();
        mSocket->bind(mHost.c_str(), mPort);
        mSocket->listen(mBacklog);
        mBoundPort = (int)mSocket->getLocalPort();
        log().info("WebSocketServer listening at %s:%d...", mHost.c_str(), mBoundPort.load());
        mReady.set();
        int failures = 0;
        while (!terminateRequest()) {
            // After an accept failure (no descriptors left, say) wait a little
            // before trying again instead of spinning on the ready socket.
            int r = mWake->wait(failures ? detail::NO_HANDLE : mSocket->getNativeSocket(), false,
                                failures ? 100 : -1);
            if (r < 0 && !failures)
                throw tarso::stream::IOException("WebSocketServer: wait failed: %s",
                                                 Socket::error2String(detail::lastError()));
            if (r > 0 && (r & detail::WakeUpSignal::RAISED))
                mWake->clear();
            if (terminateRequest())
                break;
            if (failures) {
                failures = 0;
                continue;
            }
            if (!(r & detail::WakeUpSignal::SOCKET_READY))
                continue;
            StreamSocket* socket;
            try {
                socket = mSocket->accept();
            } catch (const tarso::stream::IOException& e) {
                log().warn("WebSocketServer: %s", &e, e.getMessage());
                failures = 1;
                continue;
            }
            if (!socket) {
                log().debug("Ignoring NULL socket");
                continue;
            }
            core::SmartPtr<WebSocket> connection(new WebSocket(this, socket, 2048));
            connection->setMaxIncomingBytes(mMaxIncomingBytes);
            {
                core::Lock lock(mLock);
                mPending.push_back(connection);
            }
            if (!connection->start()) {
                log().error("WebSocketServer: unable to start a connection thread");
                terminated(connection.get());
            }
        }
    } catch (const core::Exception& e) {
        mFailed = true;
        mReady.set();
        log().error("WebSocketServer terminated unexpectedly", &e);
    }
}

void WebSocketServer::onThreadEnd() {
    mSocket.reset(); // no new connections
    std::vector<core::SmartPtr<WebSocket>> pending;
    {
        core::Lock lock(mLock);
        pending = mPending;
    }
    log().info("WebSocketServer: closing %d pending connections", (int)pending.size());
    for (auto& connection : pending)
        connection->finish();
    for (auto& connection : pending)
        connection->join();
    {
        core::Lock lock(mLock);
        mPending.clear();
    }
    mReady.set();
    log().info("WebSocketServer closed successfuly");
}

void WebSocketServer::terminated(WebSocket* socket) {
    core::SmartPtr<WebSocket> keep; // released outside the lock
    core::Lock lock(mLock);
    for (auto it = mPending.begin(); it != mPending.end(); ++it) {
        if (it->get() == socket) {
            keep = *it;
            mPending.erase(it);
            break;
        }
    }
}

void WebSocketServer::addListener(const char* name, Listener* listener) {
    core::Lock lock(mListenerLock);
    auto next = std::make_shared<ListenerMap>(*mListeners);
    (*next)[name ? name : ""] = listener;
    mListeners = next;
}

WebSocketServer::Listener* WebSocketServer::getListener(const char* name) {
    auto listeners = snapshot();
    auto it = listeners->find(name ? name : "");
    return it == listeners->end() ? nullptr : it->second;
}

void WebSocketServer::removeListener(const char* name) {
    core::Lock lock(mListenerLock);
    auto next = std::make_shared<ListenerMap>(*mListeners);
    next->erase(name ? name : "");
    mListeners = next;
}

void WebSocketServer::removeListener(Listener* listener) {
    core::Lock lock(mListenerLock);
    auto next = std::make_shared<ListenerMap>(*mListeners);
    for (auto it = next->begin(); it != next->end();)
        it = it->second == listener ? next->erase(it) : std::next(it);
    mListeners = next;
}

std::shared_ptr<const WebSocketServer::ListenerMap> WebSocketServer::snapshot() {
    core::Lock lock(mListenerLock);
    return mListeners;
}

void WebSocketServer::notifyOpen(WebSocket* socket) {
    for (auto& l : *snapshot())
        l.second->onOpen(socket);
}

void WebSocketServer::notifyMessage(WebSocket* socket, unsigned count, bool fin) {
    for (auto& l : *snapshot())
        l.second->onMessage(socket, count, fin);
}

void WebSocketServer::notifyError(WebSocket* socket, const char* message, const core::Exception* cause) {
    for (auto& l : *snapshot())
        l.second->onError(socket, message, cause);
}

void WebSocketServer::notifyClose(WebSocket* socket) {
    for (auto& l : *snapshot())
        l.second->onClose(socket);
}

} // namespace net
