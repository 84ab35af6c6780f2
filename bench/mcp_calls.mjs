// Sequential tools/call of `search` through the official MCP client against
// the example server: the whole round trip a host sees (JSON-RPC over a
// pipe, the SDK's checks, the server's query and the response layer).
//   node bench/mcp_calls.mjs SERVER DB ROOT [CALLS]
import { connect, text } from "../tests/mcp/client.mjs";

const [server, db, root, calls = "1000"] = process.argv.slice(2);
const queries = ["cart", "reserve", "", "total", "shop.inventory", "nothing"];
const client = await connect(server, ["--db", db, "--root", root]);
await client.listTools();
const times = [];
const start = performance.now();
for (let i = 0; i < Number(calls); ++i) {
  const t = performance.now();
  text(await client.callTool({ name: "search", arguments: { query: queries[i % queries.length] } }));
  times.push(performance.now() - t);
}
const total = performance.now() - start;
await client.close();
times.sort((a, b) => a - b);
const at = (q) => times[Math.min(times.length - 1, Math.floor(q * times.length))].toFixed(3);
console.log(`${calls} sequential search calls: ${(total / 1000).toFixed(3)} s; per call p50 ${at(0.5)} ms, ` +
  `p90 ${at(0.9)} ms, p99 ${at(0.99)} ms`);
