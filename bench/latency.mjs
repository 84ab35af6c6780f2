// Each tool of an example server on a large index, through the official MCP
// client: CALLS sequential calls per tool in a realistic mix (names of one
// to three characters, common words, misses, the largest files, the most
// used symbols, the longest wiki pages), and each tool's p50/p99 in ms.
//   node bench/latency.mjs SERVER DB ROOT [CALLS]
import { execFileSync } from "node:child_process";

import { connect, text } from "../tests/mcp/client.mjs";

const [server, db, root, calls = "200"] = process.argv.slice(2);
// The index's own facts, read with the sqlite3 shell: one value a line.
const rows = (sql) => execFileSync("sqlite3", [db, sql], { encoding: "utf8" }).trim().split("\n");
const largestFiles = rows("SELECT file_path FROM symbols GROUP BY file_path ORDER BY count(*) DESC LIMIT 20");
const mostUsed = rows("SELECT fqn FROM symbols ORDER BY uses DESC, fqn LIMIT 20");
const longestPages = rows("SELECT page_id FROM wiki_pages ORDER BY length(content) DESC LIMIT 10");
const someSymbols = rows("SELECT fqn FROM symbols WHERE id % 997 = 0 LIMIT 40");

const short = ["a", "e", "x", "os", "re", "io", "get", "set", "run", "len", "str", "map"];
const words = ["test", "error", "file", "data", "path", "open", "read", "write", "string", "list", "time", "parse"];
const names = ["json.decoder", "HTTPConnection", "urlsplit", "TextWrapper", "os::path::join", "xyzzy", ""];
const misses = ["json.decoder.JSONDecodr", "pkg.nothing.Here", "os.pth.join", "TextWraper"];
const at = (list, i) => list[i % list.length];
const mix = {
  status: () => ({}),
  search: (i) => ({ query: at([...short, ...words, ...names], i), offset: i % 7 === 0 ? 40 : 0 }),
  symbol: (i) => ({ fqn: i % 5 === 0 ? at(misses, i) : at([...mostUsed, ...someSymbols], i) }),
  file: (i) => ({ path: at(largestFiles, i), offset: (i % 4) * 30 }),
  references: (i) => ({ fqn: i % 9 === 0 ? at(misses, i) : at(mostUsed, i), offset: (i % 3) * 20 }),
  architecture: (i) => ({ offset: (i % 2) * 10 }),
  problems: () => ({}),
  "wiki list": (i) => ({ action: "list", offset: (i % 5) * 20 }),
  "wiki read": (i) => ({ action: "read", page_id: at(longestPages, i) }),
  "wiki ask": (i) => ({ action: "ask", query: at(["How do I read a zip file?", "What is the license?",
    "How do I install it?", "Which options are there?", "What does the test data hold?"], i) }),
};

const client = await connect(server, ["--db", db, "--root", root]);
const available = new Set((await client.listTools()).tools.map((t) => t.name));
console.log(`${calls} sequential calls per tool through the official client (ms):\n`);
console.log("| tool | p50 | p99 | max | largest answer bytes |\n|---|---:|---:|---:|---:|");
for (const [tool, args] of Object.entries(mix)) {
  const name = tool.split(" ")[0];
  if (!available.has(name)) continue;
  const times = [];
  let largest = 0;
  for (let i = 0; i < Number(calls); ++i) {
    const t = performance.now();
    const result = await client.callTool({ name, arguments: args(i) });
    times.push(performance.now() - t);
    largest = Math.max(largest, Buffer.byteLength(text(result)));
  }
  times.sort((a, b) => a - b);
  const q = (p) => times[Math.min(times.length - 1, Math.floor(p * times.length))].toFixed(2);
  console.log(`| ${tool} | ${q(0.5)} | ${q(0.99)} | ${times.at(-1).toFixed(2)} | ${largest} |`);
}
await client.close();
