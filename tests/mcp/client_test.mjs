// The official MCP client against the example server: it connects, lists
// the tools, and accepts every answer, whose text blocks are the golden
// ones; pages cut to the byte budget chain to the end, wiki pages in
// parts; an index that is not initialized answers the canned responses;
// --budget is read strictly; the official inspector's CLI lists the tools
// too, when it is installed.
//   node client_test.mjs SERVER DB ROOT
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { existsSync, readFileSync } from "node:fs";
import test from "node:test";

import { connect, McpError, text } from "./client.mjs";

const [server, db, root] = process.argv.slice(2);
const here = (path) => new URL(path, import.meta.url).pathname;
const golden = readFileSync(here("golden.jsonl"), "utf8").trim().split("\n").map((line) => JSON.parse(line));
const tools = ["status", "search", "symbol", "file", "references", "architecture", "problems", "wiki"];

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

// Each listing, a budget that its rows need several pages for, its rows'
// key and how a page names the next offset: the hint of a paginated page,
// or offset plus rows while a wiki list has more.
const listings = [
  { name: "search", args: { query: "" }, budget: 400, key: "symbols", id: (r) => r.fqn },
  { name: "file", args: { path: "shop/cart.py" }, budget: 400, key: "symbols", id: (r) => r.name },
  { name: "architecture", args: {}, budget: 250, key: "components", id: (r) => r.name },
  { name: "wiki", args: { action: "list" }, budget: 250, key: "pages", id: (r) => r.page_id },
];
const nextOffset = (page, rows) =>
  page.hint === undefined ? page.offset + rows.length : Number(/offset=(\d+)/.exec(page.hint)[1]);

test("pages cut to the byte budget follow their way on to the end", async () => {
  for (const { name, args, budget, key, id } of listings) {
    await session(["--db", db, "--root", root, "--budget", String(budget)], async (client) => {
      const seen = [];
      let pages = 0;
      for (let offset = 0, more = true; more; pages++) {
        const answer = text(await client.callTool({ name, arguments: { ...args, offset } }));
        assert.ok(Buffer.byteLength(answer) <= budget, answer);
        const page = JSON.parse(answer);
        const rows = page[key];
        assert.ok(rows.length > 0, answer);
        seen.push(...rows.map(id));
        more = page.has_more;
        assert.equal(page.truncated, more, answer);
        if (more) offset = nextOffset(page, rows);
        else assert.equal(seen.length, page.total_count, answer);
      }
      assert.ok(pages > 1, name);
      assert.equal(new Set(seen).size, seen.length, name);
    });
  }
});

test("a status or a miss longer than the budget is cut to it, its keys kept", async () => {
  for (const [name, args, budget, keys] of [["status", {}, 150, 8], ["symbol", { fqn: "shop.cart.Cart.totl" }, 90, 2]]) {
    await session(["--db", db, "--root", root, "--budget", String(budget)], async (client) => {
      const answer = text(await client.callTool({ name, arguments: args }));
      assert.ok(Buffer.byteLength(answer) <= budget, answer);
      assert.equal(Object.keys(JSON.parse(answer)).length, keys, answer);
      assert.match(answer, /…/, answer);
    });
  }
});

test("a wiki page too long for one answer is read in parts to its end", async () => {
  const read = (client, args) =>
    client.callTool({ name: "wiki", arguments: { action: "read", page_id: "checkout", ...args } });
  let whole;
  await session(["--db", db, "--root", root], async (client) => {
    whole = JSON.parse(text(await read(client, {})));
  });
  const cited = whole.citations.map((c) => JSON.stringify(c));
  assert.ok(cited.length > 1 && new Set(cited).size === cited.length, "each citation once");
  await session(["--db", db, "--root", root, "--budget", "240"], async (client) => {
    const parts = [];
    for (let args = {}; args !== undefined; ) {
      assert.ok(parts.length < 200, "the parts end");
      const answer = text(await read(client, args));
      assert.ok(Buffer.byteLength(answer) <= 240, answer);
      const part = JSON.parse(answer);
      // The page's sections are not in its text: their citations go with
      // the first part, as many as half the budget holds.
      if (parts.length > 0) assert.deepEqual(part.citations, [], answer);
      else assert.deepEqual(part.citations, whole.citations.slice(0, part.citations.length), answer);
      const way = /\n\n\((?:The section goes on: call again with offset=(\d+)|The page's end)\.\)$/.exec(part.content);
      assert.ok(way, part.content);
      parts.push(part.content.slice(0, way.index));
      args = way[1] === undefined ? undefined : { offset: Number(way[1]) };
    }
    assert.ok(parts.length > 1);
    assert.equal(parts.join(""), whole.content);
  });
});

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
