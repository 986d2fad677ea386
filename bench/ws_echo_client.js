// Drives an echo server: node ws_echo_client.js PORT CONNECTIONS SIZE SECONDS.
// Each connection sends its next text message when the echo of the previous
// one arrives; after a one-second warm-up it counts round trips for SECONDS
// and prints the rate per second.
const WebSocket = require('ws');
const [port, connections, size, seconds] = process.argv.slice(2).map(Number);
const payload = 'x'.repeat(size);
let counting = false, count = 0, open = 0;
const sockets = [];
for (let i = 0; i < connections; ++i) {
  const ws = new WebSocket(`ws://127.0.0.1:${port}/`, { perMessageDeflate: false, maxPayload: 1 << 30 });
  sockets.push(ws);
  ws.on('message', (data) => {
    if (data.length !== size) { console.error('bad echo', data.length); process.exit(1); }
    if (counting) ++count;
    ws.send(payload);
  });
  ws.on('error', (e) => { console.error(e.message); process.exit(1); });
  ws.on('open', () => {
    if (++open < connections) return;
    for (const s of sockets) s.send(payload);
    setTimeout(() => {
      counting = true;
      const start = process.hrtime.bigint();
      setTimeout(() => {
        const elapsed = Number(process.hrtime.bigint() - start) / 1e9;
        console.log((count / elapsed).toFixed(0));
        process.exit(0);
      }, seconds * 1000);
    }, 1000);
  });
}
