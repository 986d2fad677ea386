"""autobahn (asyncio) client of the WebSocket tests: autobahn_client.py PORT
MODE. autobahn writes "Upgrade: WebSocket", which the server's exact check
refuses; MODE "asis" shows that, "lowercase" sends "websocket" instead so that
autobahn's strict checks of the server's frames run."""
import asyncio, sys, txaio
txaio.use_asyncio()
from autobahn.asyncio.websocket import WebSocketClientProtocol, WebSocketClientFactory

class Client(WebSocketClientProtocol):
    patched = False

    def sendData(self, data, sync=False, chopsize=None):
        if sys.argv[2] == "lowercase" and not self.patched:  # the opening request
            self.patched = True
            data = data.replace(b"Upgrade: WebSocket\r\n", b"Upgrade: websocket\r\n")
        super().sendData(data, sync, chopsize)

    def onOpen(self):
        self.got = 0
        self.sendMessage(b"hello")
        self.sendMessage(bytes(range(256)), isBinary=True)
        self.sendMessage(b"z" * 200000, isBinary=True, fragmentSize=16384)

    def onMessage(self, payload, isBinary):
        self.got += 1
        print("message", self.got, isBinary, len(payload), payload[:5])
        if self.got == 3:
            self.sendClose(1000)

    def onClose(self, wasClean, code, reason):
        print("close", wasClean, code)
        loop.stop()

loop = asyncio.new_event_loop()
asyncio.set_event_loop(loop)
factory = WebSocketClientFactory("ws://127.0.0.1:%s/" % sys.argv[1])
factory.protocol = Client
loop.run_until_complete(loop.create_connection(factory, "127.0.0.1", int(sys.argv[1])))
loop.call_later(30, loop.stop)  # only a fault waits this long
loop.run_forever()
