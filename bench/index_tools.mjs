// Each tool of the example server at the size of a real index, through the
// official MCP client: CALLS sequential calls per tool, cycling through
// arguments drawn from the index itself, and each tool's p50/p99. The
// server runs under /usr/bin/time, which writes its peak RSS to RSS_FILE.
//   node bench/index_tools.mjs SERVER DB ROOT RSS_FILE [CALLS]
import { readFileSync } from "node:fs";

import { connect, text } from "../tests/mcp/client.mjs";

const [server, db, root, rssFile, calls = "1000"] = process.argv.slice(2);
const client = await connect("/usr/bin/time", ["-f", "%M", "-o", rssFile, server, "--db", db, "--root", root]);
await client.listTools();
const call = async (name, args) => JSON.parse(text(await client.callTool({ name, arguments: args })));

// Arguments from the index: symbols and files of a few pages of search,
// the most used names of the standard library for references. Search is
// timed apart for names that match a few symbols and for substrings that
// match thousands, whose count and sort read every match.
const narrow = ["json.decoder", "HTTPConnection", "urlsplit", "xyzzy", "TextWrapper", "Decoder"];
const broad = ["get", "assert", "__init__", "parse"];
const found = [];
for (const query of ["json", "parse", "Thread", "Path", "encode"]) found.push(...(await call("search", { query, limit: 20 })).symbols);
const fqns = found.map((s) => s.fqn);
const files = [...new Set(found.map((s) => s.file))];
const used = ["os", "re.compile", "unittest.case.TestCase.assertTrue", "json.loads", "socket.socket", "codecs.lookup"];
const asks = ["How do I read a zip file?", "What does the test data hold?", "Which encodings are supported?"];
const matches = async (queries) =>
  (await Promise.all(queries.map(async (query) => (await call("search", { query })).total_count))).join("/");

const tools = {
  [`search, narrow (${await matches(narrow)} matches)`]: ["search", (i) => ({ query: narrow[i % narrow.length] })],
  [`search, broad (${await matches(broad)} matches)`]: ["search", (i) => ({ query: broad[i % broad.length] })],
  symbol: ["symbol", (i) => ({ fqn: fqns[i % fqns.length] })],
  file: ["file", (i) => ({ path: files[i % files.length] })],
  "references with code": ["references", (i) => ({ fqn: used[i % used.length] })],
  architecture: ["architecture", () => ({})],
  "wiki ask, token_budget 500": ["wiki", (i) => ({ action: "ask", query: asks[i % asks.length], token_budget: 500 })],
};
const rows = [];
for (const [tool, [name, args]] of Object.entries(tools)) {
  const times = [];
  let bytes = 0;
  for (let i = 0; i < Number(calls); ++i) {
    const t = performance.now();
    const result = await client.callTool({ name, arguments: args(i) });
    times.push(performance.now() - t);
    bytes += Buffer.byteLength(text(result));
  }
  times.sort((a, b) => a - b);
  const at = (q) => times[Math.min(times.length - 1, Math.floor(q * times.length))].toFixed(2);
  rows.push(`| ${tool} | ${at(0.5)} | ${at(0.99)} | ${times.at(-1).toFixed(2)} | ${Math.round(bytes / times.length)} |`);
}
await client.close();
await new Promise((resolve) => setTimeout(resolve, 200));  // /usr/bin/time writes once the server exits
console.log(`${calls} sequential calls per tool through the official client (ms):\n`);
console.log("| tool | p50 | p99 | max | mean answer bytes |\n|---|---:|---:|---:|---:|");
for (const row of rows) console.log(row);
console.log(`\nserver peak RSS: ${(Number(readFileSync(rssFile, "utf8").trim().split("\n").at(-1)) / 1024).toFixed(1)} MiB`);
