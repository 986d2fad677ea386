"""autobahn (asyncio) client for the WebSocket tests: autobahn_client.py PORT
MODE. autobahn writes "Upgrade: WebSocket", which the server's exact check
refuses; MODE "asis" shows that, MODE "lowercase" sends "websocket" instead so
that autobahn's strict checks of the server's frames run."""
import asyncio, sys
import txaio
txaio.use_asyncio()
from autobahn.asyncio.websocket import WebSocketClientProtocol, WebSocketClientFactory

PORT, MODE = int(sys.argv[1]), sys.argv[2]


class Client(WebSocketClientProtocol):
    patched = False

    def sendData(self, data, sync=False, chopsize=None):
        if MODE == "lowercase" and not self.patched:  # the opening request
            self.patched = True
            data = data.replace(b"Upgrade: WebSocket\r\n", b"Upgrade: websocket\r\n")
        super().sendData(data, sync, chopsize)

    def onOpen(self):
        self.step = 0
        self.sendMessage("hello".encode())
        self.sendMessage(bytes(range(256)), isBinary=True)
        self.sendMessage(b"z" * 200000, isBinary=True, fragmentSize=16384)

    def onMessage(self, payload, isBinary):
        self.step += 1
        print("message", self.step, isBinary, len(payload), payload[:5])
        if self.step == 3:
            self.sendClose(1000)

    def onClose(self, wasClean, code, reason):
        print("close", wasClean, code)
        self.factory.loop.stop()


loop = asyncio.new_event_loop()
asyncio.set_event_loop(loop)
factory = WebSocketClientFactory("ws://127.0.0.1:%d/" % PORT)
factory.protocol = Client
factory.loop = loop
loop.run_until_complete(loop.create_connection(factory, "127.0.0.1", PORT))
loop.call_later(20, loop.stop)
loop.run_forever()
