// npm ws client of the WebSocket tests: node node_client.js PORT SCENARIO.
// Prints the same lines as py_client.py.
const WebSocket = require('ws');
// Messages are queued from the start: one may come in the same read as the
// handshake answer and be emitted before an 'open' continuation runs.
const open = () => new Promise((resolve, reject) => {
  const ws = new WebSocket(`ws://127.0.0.1:${process.argv[2]}/`, { perMessageDeflate: false });
  ws.inbox = [];
  ws.waiting = [];
  ws.on('message', (data, binary) => {
    const m = binary ? data : data.toString();
    ws.waiting.length ? ws.waiting.shift()(m) : ws.inbox.push(m);
  });
  ws.once('open', () => resolve(ws));
  ws.once('error', reject);
});
const next = (ws) => ws.inbox.length ? Promise.resolve(ws.inbox.shift()) : new Promise((r) => ws.waiting.push(r));
const close = (ws) => { const c = new Promise((r) => ws.once('close', r)); ws.close(1000); return c; };
const same = (a, b) => typeof a === 'string' ? a === b : Buffer.compare(a, b) === 0;

const scenarios = {
  async echo() {
    const ws = await open();
    for (const sent of ['hello', '', Buffer.from([...Array(256).keys()])]) {
      ws.send(sent);
      const r = await next(ws);
      console.log(typeof r === 'string' ? 'str' : 'bytes', r.length, same(r, sent) ? 'True' : 'False');
    }
    const big = Buffer.alloc(1 << 20, 0).map((_, i) => (i * 7 + (i >> 10)) & 0xff);
    for (let i = 0; i < big.length; i += 16384)
      ws.send(big.subarray(i, i + 16384), { binary: true, fin: i + 16384 >= big.length });
    const r = await next(ws);
    console.log('fragmented', r.length, same(r, big) ? 'True' : 'False');
    ws.ping('abc');
    if ((await new Promise((r) => ws.once('pong', r))).toString() === 'abc') console.log('pong, close', await close(ws));
  },
  async many() {
    const one = async (i) => {
      const ws = await open();
      for (let j = 0; j < 40; ++j) {
        ws.send(`client ${i} message ${j} ` + 'x'.repeat(j * 50));
        if ((await next(ws)) !== `client ${i} message ${j} ` + 'x'.repeat(j * 50)) return false;
      }
      return (await close(ws)) === 1000;
    };
    console.log('many', (await Promise.all([...Array(64).keys()].map(one))).filter((r) => r).length);
  },
  async idle() {
    const ws = await open();
    console.log('posted', await next(ws));
    console.log('close', await close(ws));
  },
  async toolarge() {
    let ws = await open();
    const refused = new Promise((r) => ws.once('close', r));
    ws.send('x'.repeat(70000));
    console.log('refused', await refused);
    ws = await open();
    ws.send('after');
    console.log('then', await next(ws));
    await close(ws);
  },
};
scenarios[process.argv[3]]().catch((e) => { console.log('failed', e.message); process.exit(1); });
