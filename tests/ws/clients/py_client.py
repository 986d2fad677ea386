"""python-websockets client of the WebSocket tests: py_client.py PORT SCENARIO.
Prints the same lines as node_client.js."""
import asyncio, random, sys
import websockets

def connect():
    return websockets.connect("ws://127.0.0.1:%s/" % sys.argv[1], max_size=None, compression=None, ping_interval=None)

async def echo():
    async with connect() as ws:
        for sent in ["hello", "", bytes(range(256))]:
            await ws.send(sent)
            r = await ws.recv()
            print(type(r).__name__, len(r), r == sent)
        big = random.Random(7).randbytes(1 << 20)
        await ws.send([big[i:i + 16384] for i in range(0, len(big), 16384)])
        r = await ws.recv()
        print("fragmented", len(r), r == big)
        await (await ws.ping(b"abc"))
        await ws.close()
        print("pong, close", ws.close_code)

async def many():
    async def one(i):
        async with connect() as ws:
            for j in range(40):
                await ws.send("client %d message %d " % (i, j) + "x" * (j * 50))
                if await ws.recv() != "client %d message %d " % (i, j) + "x" * (j * 50):
                    return False
        return ws.close_code == 1000
    print("many", sum(await asyncio.gather(*(one(i) for i in range(64)))))

async def idle():
    async with connect() as ws:
        print("posted", await ws.recv())
    print("close", ws.close_code)

async def toolarge():
    async with connect() as ws:
        await ws.send("x" * 70000)
        try:
            await ws.recv()
        except websockets.ConnectionClosed as e:
            print("refused", e.code)
    async with connect() as ws:
        await ws.send("after")
        print("then", await ws.recv())

asyncio.run(globals()[sys.argv[2]]())
