// npm ws client for the WebSocket tests: node node_client.js PORT SCENARIO.
// Prints one line per result.
const WebSocket = require('ws');
const url = `ws://127.0.0.1:${process.argv[2]}/`;
// Messages are queued from the start: one may come in the same read as the
// handshake answer and be emitted before an 'open' continuation runs.
const open = () => new Promise((resolve, reject) => {
  const ws = new WebSocket(url, { perMessageDeflate: false });
  ws.inbox = [];
  ws.waiting = [];
  ws.on('message', (data, binary) => {
    const waiter = ws.waiting.shift();
    if (waiter) waiter({ data, binary }); else ws.inbox.push({ data, binary });
  });
  ws.once('open', () => resolve(ws));
  ws.once('error', reject);
});
const next = (ws) => ws.inbox.length ? Promise.resolve(ws.inbox.shift())
                                      : new Promise((resolve) => ws.waiting.push(resolve));
const closed = (ws) => new Promise((resolve) => ws.once('close', (code) => resolve(code)));

const scenarios = {
  async echo() {
    const ws = await open();
    ws.send('hello');
    let m = await next(ws);
    console.log('text', m.binary, m.data.toString());
    ws.send('');
    m = await next(ws);
    console.log('empty', m.binary, m.data.length);
    const bin = Buffer.from([...Array(256).keys()]);
    ws.send(bin);
    m = await next(ws);
    console.log('binary', m.binary, m.data.equals(bin));
    const big = Buffer.alloc(1 << 20);
    for (let i = 0; i < big.length; ++i) big[i] = (i * 7 + (i >> 10)) & 0xff;
    for (let i = 0; i < big.length; i += 16384)
      ws.send(big.subarray(i, i + 16384), { binary: true, fin: i + 16384 >= big.length });
    m = await next(ws);
    console.log('fragmented', m.data.length, m.data.equals(big));
    ws.ping('abc');
    const pong = await new Promise((resolve) => ws.once('pong', resolve));
    console.log('pong', pong.toString());
    const c = closed(ws);
    ws.close(1000);
    console.log('close', await c);
  },
  async many() {
    const one = async (i) => {
      const ws = await open();
      for (let j = 0; j < 40; ++j) {
        const text = `client ${i} message ${j} ` + 'y'.repeat(j * 50);
        ws.send(text);
        if ((await next(ws)).data.toString() !== text) return false;
      }
      const c = closed(ws);
      ws.close(1000);
      return (await c) === 1000;
    };
    const results = await Promise.all([...Array(64).keys()].map(one));
    console.log('many', results.length, results.every((r) => r));
  },
  async idle() {
    const ws = await open();
    console.log('posted', (await next(ws)).data.toString());
    const c = closed(ws);
    ws.close(1000);
    console.log('close', await c);
  },
  async toolarge() {
    let ws = await open();
    const c = closed(ws);
    ws.send('x'.repeat(70000));
    console.log('refused', await c);
    ws = await open();
    ws.send('after');
    console.log('after', (await next(ws)).data.toString());
    ws.close(1000);
  },
};
scenarios[process.argv[3]]().catch((e) => { console.log('failed', e.message); process.exit(1); });
