// kestrune-index on real work trees, answered through the official MCP
// client: examples/repo/ indexed gives the answers of indexed.jsonl; a
// server started before the indexer shows its progress and keeps
// answering; bad files are counted and the rest is indexed; a second run
// reads only what changed.
//   node indexer_test.mjs INDEXER SERVER REPO
import assert from "node:assert/strict";
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { chmodSync, cpSync, existsSync, mkdirSync, mkdtempSync, rmSync, symlinkSync, truncateSync, writeFileSync }
  from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import test from "node:test";

import { connect, text } from "./client.mjs";
import { makeTree, runIndexer, withServer as withServerOf } from "./trees.mjs";

const [indexer, server, exampleRepo] = process.argv.slice(2);
const here = (path) => new URL(path, import.meta.url).pathname;
const golden = (await import("node:fs")).readFileSync(here("indexed.jsonl"), "utf8").trim().split("\n")
  .map((line) => JSON.parse(line));
const scratch = mkdtempSync(join(tmpdir(), "kestrune-indexer-test-"));
test.after(() => rmSync(scratch, { recursive: true, force: true }));

const index = (repo, db, ...args) => runIndexer(indexer, repo, db, { args });
const withServer = (db, root, body) => withServerOf(server, db, root, body);
// A work tree of `files` (path: text or bytes), without git.
const tree = (name, files) => makeTree(join(scratch, name), files);

test("examples/repo indexed: symbols, docstrings, references with callers, wiki sections", async () => {
  const db = join(scratch, "example.db");
  index(exampleRepo, db);  // as a user indexes it: Python files read by the Python analyzer
  await withServer(db, exampleRepo, async (call) => {
    const status = await call("status");
    assert.equal(typeof status.last_updated, "string");
    assert.ok(status.branch === null || typeof status.branch === "string");
    assert.deepEqual({ ...status, branch: undefined, last_updated: undefined }, {
      status: "ready", health: "healthy", branch: undefined, progress: 100, files_indexed: 8, symbols_indexed: 22,
      last_updated: undefined, errors_count: 0 });
    for (const { name, arguments: args, text: want } of golden) {
      assert.deepEqual(await call(name, args), JSON.parse(want), `${name} ${JSON.stringify(args)}`);
    }
  });
});

test("a server started before the indexer shows its phase and progress, then the index", async () => {
  // This ctags waits for the test's word before it reads a batch.
  const waiting = join(scratch, "ctags-waiting");
  const go = join(scratch, "ctags-go");
  const ctags = join(scratch, "slow-ctags");
  writeFileSync(ctags, `#!/bin/sh\ncase "$1" in --version|--list-features) exec ctags "$@";; esac\n` +
    `touch '${waiting}'\nwhile [ ! -e '${go}' ]; do sleep 0.05; done\nexec ctags "$@"\n`);
  chmodSync(ctags, 0o755);
  const db = join(scratch, "progress.db");
  await withServer(db, exampleRepo, async (call) => {
    assert.equal((await call("status")).status, "not_initialized");
    const run = spawn(indexer, [exampleRepo, "--db", db, "--ctags", ctags, "--python", ""], { stdio: "ignore" });
    const exited = new Promise((resolve) => run.on("exit", resolve));
    while (!existsSync(waiting)) await new Promise((resolve) => setTimeout(resolve, 20));
    const status = await call("status");
    assert.deepEqual([status.status, status.progress, status.phase, status.phase_detail],
      ["indexing", 15, "extracting symbols", "0/8"]);
    assert.equal((await call("search", { query: "cart" })).total_count, 0);
    writeFileSync(go, "");
    assert.equal(await exited, 0);
    // The same connection reads what the indexer committed since.
    assert.deepEqual([(await call("status")).status, (await call("search", { query: "cart" })).total_count],
      ["ready", 7]);
  });
});

test("bad files are counted or reported, and the rest is indexed", async () => {
  const root = tree("bad", {
    "good.py": 'def kept():\n    """Still indexed."""\n',
    "latin1.py": Buffer.from('def caf():\n    """Caf\xe9 au lait."""\n', "latin1"),
    "crash.py": "def never(): pass\n",
    "blob.bin": Buffer.from([0x7f, 0x45, 0x4c, 0x46, 0, 0, 1]),
    "notes.md": "# Notes\n\nSee `kept` in `good.py`.\n",
    ".gitignore": "ignored.py\nbuild/\n",
    "ignored.py": "def ignored(): pass\n",
    "build/gen.py": "def generated(): pass\n",
  });
  writeFileSync(join(root, "huge.py"), "");
  truncateSync(join(root, "huge.py"), 100 * 1024 * 1024);  // 100 MB, sparse
  symlinkSync("loop2", join(root, "loop1"));
  symlinkSync("loop1", join(root, "loop2"));
  writeFileSync(join(scratch, "outside.py"), "def secret(): pass\n");
  symlinkSync(join(scratch, "outside.py"), join(root, "out.py"));
  // This ctags ends when it is handed crash.py.
  const ctags = join(scratch, "crashing-ctags");
  writeFileSync(ctags, `#!/usr/bin/env node
const { spawn, spawnSync } = require("node:child_process");
const args = process.argv.slice(2);
if (!args.some((a) => a.startsWith("--_interactive"))) process.exit(spawnSync("ctags", args, { stdio: "inherit" }).status);
const real = spawn("ctags", args, { stdio: ["pipe", "inherit", "inherit"] });
process.stdin.on("data", (chunk) => chunk.includes('"crash.py"') ? process.exit(3) : real.stdin.write(chunk));
process.stdin.on("end", () => real.stdin.end());
real.on("exit", (code) => process.exit(code));
`);
  chmodSync(ctags, 0o755);

  const db = join(scratch, "bad.db");
  const { stderr } = index(root, db, "--ctags", ctags, "--python", "");
  for (const [path, said] of [["latin1.py", "not UTF-8"], ["loop1", "does not resolve"], ["loop2", "does not resolve"],
    ["out.py", "out of the work tree"], ["crash.py", "ctags failed"], ["huge.py", "over the limit"]]) {
    assert.match(stderr, new RegExp(`${path.replace(".", "\\.")}: .*${said}`), stderr);
  }
  await withServer(db, root, async (call) => {
    const status = await call("status");
    assert.deepEqual([status.status, status.health, status.errors_count, status.files_indexed],
      ["ready", "degraded", 5, 5]);  // good, latin1, crash, notes and .gitignore
    assert.equal((await call("symbol", { fqn: "good.kept" })).docstring, "Still indexed.");
    assert.equal((await call("symbol", { fqn: "latin1.caf" })).docstring, "Caf\ufffd au lait.");
    for (const query of ["never", "ignored", "generated", "secret"]) {
      assert.equal((await call("search", { query })).total_count, 0, query);
    }
    assert.deepEqual((await call("wiki", { action: "read", page_id: "notes" })).citations,
      [{ path: "good.py", line_start: 1, line_end: 2 }, { path: "good.py", line_start: null, line_end: null }]);
  });

  // Without ctags: files and the wiki, no symbols, one error for ctags.
  const bare = join(scratch, "bare.db");
  assert.match(index(root, bare, "--ctags", join(scratch, "no-such-ctags"), "--python", "").stderr, /cannot run.*universal-ctags/);
  await withServer(bare, root, async (call) => {
    const status = await call("status");
    assert.deepEqual([status.errors_count, status.files_indexed, status.symbols_indexed], [5, 5, 0]);
    assert.equal((await call("wiki", { action: "list" })).total_count, 1);
  });
});

test("git: tracked files only, a tracked file gone is an error, a second run reads what changed", async () => {
  const root = tree("git", { "shop/cart.py": "def total():\n    return 0\n", "shop/gone.py": "X = 1\n",
    "loose.py": "def untracked(): pass\n" });
  const git = (...args) => execFileSync("git", ["-C", root, "-c", "user.name=t", "-c", "user.email=t@t", ...args]);
  git("init", "-q", "-b", "trunk");
  git("add", "shop");
  git("commit", "-qm", "shop");
  rmSync(join(root, "shop/gone.py"));
  const db = join(scratch, "git.db");
  assert.match(index(root, db).stderr, /shop\/gone\.py: is listed but cannot be read/);
  writeFileSync(join(root, "shop/checkout.py"), "from shop.cart import total\n\ndef pay():\n    return total()\n");
  git("add", "shop/checkout.py");
  const again = index(root, db);
  assert.match(again.stdout, /2 files \(1 read, 0 removed/);
  await withServer(db, root, async (call) => {
    const status = await call("status");
    assert.deepEqual([status.branch, status.files_indexed, status.errors_count], ["trunk", 2, 1]);
    assert.equal((await call("search", { query: "untracked" })).total_count, 0);
    assert.deepEqual((await call("references", { fqn: "shop.cart.total" })).references.map((r) => [r.line, r.caller ?? null, r.usage_type]),
      [[1, null, "import"], [4, "shop.checkout.pay", "call"]]);
  });
});

test("names as users write them, misses with close names, answers within the budget, the problems listed", async () => {
  const methods = Array.from({ length: 60 }, (_, i) => `    def method_${i}(self):\n        """Method ${i}."""\n`);
  const root = tree("lookups", {
    "src/pkg/module.py": '"""A module."""\n\nclass Widget:\n    """A widget."""\n\n' + methods.join("\n"),
    "src/pkg/long.py": `def wordy():\n    """${"Word ".repeat(4000)}"""\n\n` +
      `def wide(${Array.from({ length: 900 }, (_, i) => `argument_${i}`).join(", ")}):\n    pass\n`,
    "src/pkg/latin.py": Buffer.from('# -*- coding: latin-1 -*-\ndef caf():\n    """Caf\xe9 cr\xe8me."""\n', "latin1"),
    "lib/net.hpp": "namespace net {\nclass Client {};\n}\n",
    "bad.py": Buffer.from('def bad():\n    """Caf\xe9."""\n', "latin1"),
  });
  const db = join(scratch, "lookups.db");
  const { stderr } = index(root, db, "--python", "");
  assert.doesNotMatch(stderr, /latin\.py/);
  const budget = 2000;
  const client = await connect(server, ["--db", db, "--root", root, "--budget", String(budget)]);
  try {
    const raw = async (name, args = {}) => text(await client.callTool({ name, arguments: args }));
    const call = async (name, args = {}) => JSON.parse(await raw(name, args));
    const cases = [  // a name as written, and the fqn it finds
      ["pkg.module.Widget", "src.pkg.module.Widget"],
      ["pkg/module.Widget.method_3", "src.pkg.module.Widget.method_3"],
      ["net.Client", "net::Client"],
    ];
    for (const [written, fqn] of cases) assert.equal((await call("symbol", { fqn: written })).fqn, fqn, written);
    assert.equal((await call("references", { fqn: "pkg::module::Widget" })).total_count, 0);
    assert.equal(await raw("symbol", { fqn: "pkg.module.Widgte" }),
      '{"found":false,"message":"No symbol is named pkg.module.Widgte. Close names: src.pkg.module.Widget, src.pkg.long.wide."}');
    assert.equal((await call("file", { path: "pkg.module", limit: 1 })).file, "src/pkg/module.py");
    assert.equal((await call("file", { path: "pkg/long.py", limit: 1 })).file, "src/pkg/long.py");
    // A file that declares its encoding is read in it: no problem, its text decoded.
    assert.equal((await call("symbol", { fqn: "pkg.latin.caf" })).docstring, "Café crème.");
    assert.equal(await raw("problems", {}), '{"problems":[{"path":"bad.py","problem":"its text is not UTF-8 and ' +
      'declares no encoding it is in: ill-formed bytes are read as U+FFFD"}],"total_count":1,"truncated":false,' +
      '"has_more":false,"offset":0}');
    // A docstring over the budget is trimmed to it and said so.
    const wordy = await raw("symbol", { fqn: "pkg.long.wordy" });
    assert.ok(Buffer.byteLength(wordy) <= budget && Buffer.byteLength(wordy) > budget - 20, wordy);
    assert.deepEqual([JSON.parse(wordy).docstring_truncated, JSON.parse(wordy).docstring.endsWith("Word…")], [true, true]);
    // Pages, an outline larger than the budget and a row larger than it among them, chain to their end.
    for (const [name, args] of [["file", { path: "src/pkg/module.py" }], ["file", { path: "src/pkg/long.py" }],
      ["search", { query: "wide" }], ["search", { query: "" }]]) {
      const seen = [];
      for (let offset = 0, more = true, pages = 0; more; pages++) {
        assert.ok(pages < 200, "the pages end");
        const answer = await raw(name, { ...args, offset });
        assert.ok(Buffer.byteLength(answer) <= budget, answer);
        const page = JSON.parse(answer);
        assert.ok(page.symbols.length > 0, answer);
        seen.push(...page.symbols.map((s) => s.fqn ?? s.name));
        more = page.has_more;
        if (more) offset = Number(/offset=(\d+)/.exec(page.hint)[1]);
        else assert.equal(seen.length, page.total_count, answer);
      }
      assert.equal(new Set(seen).size, seen.length, name);
    }
    assert.ok((await call("search", { query: "wide" })).symbols[0].signature.endsWith("…"));
  } finally {
    await client.close();
  }
});
