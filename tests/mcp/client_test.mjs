// The official MCP client against the example server: it connects, lists
// the tools, and accepts every answer, whose text blocks are the golden
// ones; pages cut to the byte budget chain by their hints; an index that is
// not initialized answers the canned responses; --budget is read strictly;
// the official inspector's CLI lists the tools too, when it is installed.
//   node client_test.mjs SERVER DB ROOT
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { existsSync, readFileSync } from "node:fs";
import test from "node:test";

import { connect, McpError, text } from "./client.mjs";

const [server, db, root] = process.argv.slice(2);
const here = (path) => new URL(path, import.meta.url).pathname;
const golden = readFileSync(here("golden.jsonl"), "utf8").trim().split("\n").map((line) => JSON.parse(line));
const tools = ["status", "search", "symbol", "file", "references", "architecture", "wiki"];

async function session(args, body) {
  const client = await connect(server, args);
  try {
    await body(client);
  } finally {
    await client.close();
  }
}

test("every tool answers the golden text, and the client accepts it", () =>
  session(["--db", db, "--root", root], async (client) => {
    const listed = (await client.listTools()).tools;
    assert.deepEqual(listed.map((t) => t.name), tools);
    for (const { name, arguments: args, isError, text: want } of golden) {
      const result = await client.callTool({ name, arguments: args });
      assert.equal(text(result), want, `${name} ${JSON.stringify(args)}`);
      assert.equal(result.isError ?? false, isError, `${name} ${JSON.stringify(args)}`);
      // The status tool declares its output: the client checked it against the schema.
      assert.deepEqual(result.structuredContent, name === "status" ? JSON.parse(want) : undefined);
    }
    await assert.rejects(client.callTool({ name: "nope", arguments: {} }), (e) => e instanceof McpError && e.code === -32602);
  }));

test("pages cut to the byte budget follow their hints to the end", () =>
  session(["--db", db, "--root", root, "--budget", "700"], async (client) => {
    const seen = [];
    for (let offset = 0, more = true; more; ) {
      const page = text(await client.callTool({ name: "search", arguments: { query: "", offset } }));
      assert.ok(Buffer.byteLength(page) <= 700, page);
      const { symbols, total_count: total, has_more: hasMore, hint } = JSON.parse(page);
      assert.ok(symbols.length > 0 && symbols.length < total, page);
      seen.push(...symbols.map((s) => s.fqn));
      more = hasMore;
      if (more) offset = Number(/offset=(\d+)/.exec(hint)[1]);
      if (!more) assert.equal(seen.length, total);
    }
    assert.equal(new Set(seen).size, seen.length);
  }));

test("an index that is not initialized answers the canned responses", () =>
  session(["--root", root], async (client) => {
    await client.listTools();
    const status = await client.callTool({ name: "status", arguments: {} });
    assert.equal(text(status), '{"status":"not_initialized","health":"unknown","branch":null,"progress":0,' +
      '"files_indexed":0,"symbols_indexed":0,"errors_count":0}');
    const search = await client.callTool({ name: "search", arguments: { query: "x" } });
    assert.equal(text(search), '{"symbols":[],"total_count":0,"truncated":false,"has_more":false,"offset":0}');
    const refs = await client.callTool({ name: "references", arguments: { fqn: "x" } });
    assert.equal(text(refs), '{"error":"Repository not initialized"}');
  }));

test("--budget takes decimal digits only, up to a size_t", () => {
  const run = (budget) => spawnSync(server, ["--db", db, "--budget", budget], { input: "", encoding: "utf8" });
  for (const bad of ["", "+5", " 5", "5 ", "-1", "0x10", "1e3", "18446744073709551616", "9".repeat(5000)]) {
    const { status, stderr } = run(bad);
    assert.equal(status, 2, bad);
    assert.match(stderr, /--budget needs a number of bytes/, bad);
  }
  assert.equal(run("18446744073709551615").status, 0);
});

test("the official inspector's CLI lists the tools", (t) => {
  const inspector = here("inspector/node_modules/.bin/mcp-inspector");
  if (!existsSync(inspector)) return t.skip("the inspector did not install (tests/mcp/install.sh)");
  const env = process.env.PYTHONPATH === undefined ? [] : ["-e", `PYTHONPATH=${process.env.PYTHONPATH}`];
  const run = spawnSync(inspector, ["--cli", ...env, "--format", "json", server, "--db", db, "--method", "tools/list"],
    { encoding: "utf8", timeout: 120000 });
  assert.equal(run.status, 0, run.stderr);
  assert.deepEqual(JSON.parse(run.stdout).result.tools.map((t) => t.name), tools);
});
