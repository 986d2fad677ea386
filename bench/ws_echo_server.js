// The npm ws echo server the WebSocket benchmark compares with: port 0 on
// 127.0.0.1, no compression, echo in 'message'. Prints its port, then serves
// until stdin closes.
const { WebSocketServer } = require('ws');
const wss = new WebSocketServer({ host: '127.0.0.1', port: 0, perMessageDeflate: false, maxPayload: 1 << 30 });
wss.on('connection', (ws) => ws.on('message', (data, isBinary) => ws.send(data, { binary: isBinary })));
wss.on('listening', () => console.log(wss.address().port, process.pid));
