#pragma once
#include <map>
#include <memory>
#include <string>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/net/WebSocket.h>
#include <vector>

namespace net {

class ServerSocket;

/// Accepts TCP connections on one address and port on its thread
/// ("ServerThread") and runs a WebSocket thread for each. Start it with
/// start(); abort() (or the end of the thread) ends every connection, each
/// with onClose, and joins all threads. The accepting wait also watches a
/// wake-up signal, so abort() is prompt. Hold it in a core::SmartPtr; a
/// started server also holds itself until its thread ends, so call abort()
/// before letting it go.
class TMAIN_API WebSocketServer : public core::Thread_Impl<WebSocketServer> {
public:
    /// Receives the events of every connection of a server, on the
    /// connection's thread. onMessage runs with the connection's incoming lock
    /// held: it must not wait for anything that connection does.
    class TMAIN_API Listener {
    public:
        virtual ~Listener() {}
        /// The handshake was answered.
        virtual void onOpen(WebSocket*) {}
        /// A message was queued; count is the queue's length, fin its FIN.
        virtual void onMessage(WebSocket*, unsigned count, bool fin) {
            (void)count;
            (void)fin;
        }
        /// A failure that ends the connection; the message names it, the cause
        /// (when given) carries the failed check's own message.
        virtual void onError(WebSocket*, const char* message, const core::Exception* cause) {
            (void)message;
            (void)cause;
        }
        /// The connection ended (after the handshake failed, too).
        virtual void onClose(WebSocket*) {}
    };

    /// `host` null or empty listens on every interface; port 0 lets the
    /// system choose (see getPort()).
    WebSocketServer(const char* host, int port, int backlog);
    ~WebSocketServer() override;

    /// Stops accepting, ends every connection and joins all threads. Not from
    /// a callback (it would wait for its own thread).
    void abort();
    /// Waits until the server listens or failed; true when it listens.
    bool waitListening(unsigned timeoutMs);
    /// The port listened on (the chosen one when 0 was asked), 0 before.
    int getPort() const { return mBoundPort.load(); }
    const std::string& getHost() const { return mHost; }
    /// The connections handshaking or running.
    unsigned getPendingCount();
    /// Every connection made from now on gets this cap (see WebSocket).
    void setMaxIncomingBytes(unsigned bytes) { mMaxIncomingBytes = bytes; }

    /// Registers a listener under a name, replacing one of the same name.
    /// The server does not own listeners. Callbacks run on the listeners
    /// registered when the event began, without a lock: a listener removed
    /// may still finish a callback already under way, and the calls are
    /// allowed from callbacks.
    void addListener(const char* name, Listener* listener);
    Listener* getListener(const char* name);
    void removeListener(const char* name);
    void removeListener(Listener* listener);

    void onRun();

    /// Called by the connections' threads.
    void notifyOpen(WebSocket* socket);
    void notifyMessage(WebSocket* socket, unsigned count, bool fin);
    void notifyError(WebSocket* socket, const char* message, const core::Exception* cause);
    void notifyClose(WebSocket* socket);
    /// A connection thread ended: removes it from the pending list.
    void terminated(WebSocket* socket);

protected:
    void onThreadEnd() override;
    void terminate(unsigned timeoutMs) override;

private:
    std::string mHost;
    int mPort;
    int mBacklog;
    std::atomic<int> mBoundPort;
    std::atomic<unsigned> mMaxIncomingBytes;
    std::unique_ptr<ServerSocket> mSocket;
    std::unique_ptr<detail::WakeUpSignal> mWake;
    core::Event mReady;
    std::atomic<bool> mFailed;
    core::CriticalSection mLock;
    std::vector<core::SmartPtr<WebSocket>> mPending;
    typedef std::map<std::string, Listener*> ListenerMap;
    /// The callbacks run on a snapshot, without a lock held.
    std::shared_ptr<const ListenerMap> snapshot();
    core::CriticalSection mListenerLock;
    std::shared_ptr<const ListenerMap> mListeners;
};

} // namespace net
