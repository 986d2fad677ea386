"""python-websockets client for the WebSocket tests: py_client.py PORT SCENARIO.
Prints one line per result."""
import asyncio, random, sys
import websockets

URI = "ws://127.0.0.1:%s/" % sys.argv[1]


def connect():
    return websockets.connect(URI, max_size=None, compression=None, ping_interval=None)


async def echo():
    async with connect() as ws:
        await ws.send("hello")
        print("text", await ws.recv())
        await ws.send("")
        print("empty", repr(await ws.recv()))
        await ws.send(bytes(range(256)))
        r = await ws.recv()
        print("binary", len(r), r == bytes(range(256)))
        big = random.Random(7).randbytes(1 << 20)
        await ws.send([big[i:i + 16384] for i in range(0, len(big), 16384)])
        r = await ws.recv()
        print("fragmented", len(r), r == big)
        await (await ws.ping(b"abc"))
        print("pong")
        await ws.close()
        print("close", ws.close_code)


async def many():
    async def one(i):
        async with connect() as ws:
            for j in range(40):
                text = "client %d message %d " % (i, j) + "x" * (j * 50)
                await ws.send(text)
                if await ws.recv() != text:
                    return False
            await ws.close()
            return ws.close_code == 1000
    results = await asyncio.gather(*(one(i) for i in range(64)))
    print("many", len(results), all(results))


async def idle():
    async with connect() as ws:
        print("posted", await ws.recv())
        await ws.close()
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
        print("after", await ws.recv())


async def aborted():
    async with connect() as ws:
        print("open", flush=True)
        try:
            await ws.recv()
        except websockets.ConnectionClosed as e:
            print("closed", e.code)


asyncio.run(globals()[sys.argv[2]]())
