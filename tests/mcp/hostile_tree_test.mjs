// kestrune-index on work trees made to attack it, answered through the
// official MCP client: a repository whose git config and ctags option files
// name commands, file names that look like options, files that change while
// the index is built, module paths that meet, a page of 100,000 links, and
// two indexers at once.
//   node hostile_tree_test.mjs INDEXER SERVER
import assert from "node:assert/strict";
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { chmodSync, cpSync, existsSync, mkdirSync, mkdtempSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import test from "node:test";

import { makeTree, runIndexer, withServer as withServerOf } from "./trees.mjs";

const [indexer, server] = process.argv.slice(2);
const scratch = mkdtempSync(join(tmpdir(), "kestrune-hostile-test-"));
test.after(() => rmSync(scratch, { recursive: true, force: true }));

const index = (repo, db, options) => runIndexer(indexer, repo, db, options);
const withServer = (db, root, body) => withServerOf(server, db, root, body);
const tree = (name, files) => makeTree(join(scratch, name), files);

function gitInit(root) {
  const git = (...args) => execFileSync("git", ["-C", root, "-c", "user.name=t", "-c", "user.email=t@t",
    "-c", "core.hooksPath=/dev/null", ...args]);
  git("init", "-q", "-b", "main");
  git("add", "-A");
  git("commit", "-qm", "tree");
}

// Every symbol the index holds, and the uses of one, as the tools show them.
async function contents(db, root, fqn) {
  return withServer(db, root, async (call) => ({
    symbols: (await call("search", { query: "", limit: 100 })).symbols.map((s) => [s.fqn, s.file, s.line]),
    references: (await call("references", { fqn })).references.map((r) => [r.file, r.line, r.usage_type]),
  }));
}

test("a repository's git config, hooks, attributes and ctags option files run and configure nothing", async () => {
  const files = {
    "app/main.py": "from app.util import helper\n\ndef main():\n    return helper()\n",
    "app/util.py": "def helper():\n    return 1\n",
    "secret.py": "def secret():\n    pass\n",
    ".gitattributes": "* filter=evil diff=evil\n",
  };
  const clean = tree("clean", files);
  gitInit(clean);
  const root = tree("hostile", files);
  gitInit(root);
  const marker = join(scratch, "marker");
  const evil = join(scratch, "evil.sh");
  writeFileSync(evil, `#!/bin/sh\necho "$0 $*" >> '${marker}'\ncat\n`);
  chmodSync(evil, 0o755);
  const fifo = join(scratch, "config-fifo");
  execFileSync("mkfifo", [fifo]);
  const commands = `[core]\n\tfsmonitor = ${evil}\n\thooksPath = ${join(root, ".git", "evil-hooks")}\n` +
    `\tpager = ${evil}\n\tsshCommand = ${evil}\n\taskPass = ${evil}\n\teditor = ${evil}\n` +
    `[filter "evil"]\n\tclean = ${evil}\n\tsmudge = ${evil}\n\tprocess = ${evil}\n\trequired = true\n` +
    `[diff]\n\texternal = ${evil}\n[diff "evil"]\n\ttextconv = ${evil}\n` +
    `[alias]\n\tls-files = !${evil}\n\tstatus = !${evil}\n[pager]\n\tls-files = ${evil}\n` +
    `[credential]\n\thelper = ${evil}\n`;
  writeFileSync(join(root, ".git", "evil.config"), commands);
  writeFileSync(join(root, ".git", "config"), commands + "[include]\n\tpath = evil.config\n" +
    `\tpath = ${fifo}\n[includeIf "gitdir:/"]\n\tpath = evil.config\n`, { flag: "a" });
  mkdirSync(join(root, ".git", "evil-hooks"));
  for (const hook of ["pre-commit", "post-checkout", "post-index-change", "fsmonitor-watchman", "reference-transaction"]) {
    cpSync(evil, join(root, ".git", "evil-hooks", hook));
    cpSync(evil, join(root, ".git", "hooks", hook));
  }
  mkdirSync(join(root, ".ctags.d"));
  writeFileSync(join(root, ".ctags.d", "evil.ctags"), "--exclude=secret.py\n--languages=-Python\n");

  const db = join(scratch, "hostile.db");
  index(".", db, { cwd: root });  // started from inside the tree, as most people run it
  const cleanDb = join(scratch, "clean.db");
  index(clean, cleanDb);
  assert.equal(existsSync(marker), false, "a command named by the repository ran");
  const got = await contents(db, root, "app.util.helper");
  assert.deepEqual(got, await contents(cleanDb, clean, "app.util.helper"));
  assert.ok(got.symbols.some(([fqn]) => fqn === "secret.secret"), JSON.stringify(got));
  assert.equal(got.references.length, 2);
});

test("file names that look like options, or that a list would mangle, are indexed as data", async () => {
  const names = ["--languages=-all.py", "--exclude=*.py", "--options=/dev/zero.py", "-L.py", "#hash.py", " lead.py",
    "trail.py ", "cr\r.py", "tab\t.py", "esc\x1b[2J.py", "new\nline.py"];
  const files = Object.fromEntries(names.map((name, i) => [name, `def f_${i}_end():\n    pass\n`]));
  const root = tree("names", { ...files, "good.py": "def good():\n    pass\n" });
  gitInit(root);
  const db = join(scratch, "names.db");
  const { stdout, stderr } = index(".", db, { cwd: root });
  assert.match(stdout, /12 files \(12 read.*; 0 errors/, stderr);
  assert.doesNotMatch(stderr, /[\x00-\x08\x0b-\x1f\x7f]/);
  await withServer(db, root, async (call) => {
    // "trail.py " is indexed too, as a file of no language: its name has no known extension.
    assert.deepEqual(await call("file", { path: "trail.py " }), {
      file: "trail.py ", module: "", symbols: [], total_count: 0, truncated: false, has_more: false, offset: 0 });
    for (const [i, name] of names.entries()) {
      if (!name.endsWith(".py")) continue;
      const found = (await call("search", { query: `f_${i}_end` })).symbols.map((s) => [s.name, s.file]);
      assert.deepEqual(found, [[`f_${i}_end`, name]], JSON.stringify(name));
      assert.deepEqual((await call("file", { path: name })).symbols.map((s) => s.kind), ["module", "function"]);
    }
  });
});

test("files that change kind, grow, or vanish while the index is built are counted and left out", async () => {
  const root = tree("changing", {
    "keep.py": "def kept_fn():\n    pass\n", "swap.py": "def swapped_fn():\n    pass\n",
    "grow.py": "def grown_fn():\n    pass\n", "gone.py": "def gone_fn():\n    pass\n",
    "change.py": "def changed_fn():\n    pass\n",
  });
  // ctags is first asked for its version after the listing: then the tree changes.
  const ctags = join(scratch, "changing-ctags");
  const step = join(scratch, "changing-step");
  writeFileSync(ctags, `#!/bin/sh\ncase "$*" in *--version*)
  cd '${root}'
  if [ ! -e '${step}1' ]; then touch '${step}1'; rm swap.py; mkfifo swap.py; yes | head -c 2000000 >> grow.py; rm gone.py
  elif [ ! -e '${step}2' ]; then touch '${step}2'; rm keep.py; fi;; esac\nexec ctags "$@"\n`);
  chmodSync(ctags, 0o755);
  const db = join(scratch, "changing.db");
  const first = index(root, db, { args: ["--ctags", ctags, "--python", ""] });
  assert.match(first.stderr, /swap\.py: cannot be read \(it is not a regular file\)/);
  assert.match(first.stderr, /grow\.py: grew over the limit of 1048576 bytes after it was listed/);
  assert.match(first.stderr, /gone\.py: was removed during the run/);
  writeFileSync(join(root, "change.py"), "def changed_again():\n    pass\n");
  const second = index(root, db, { args: ["--ctags", ctags, "--python", ""] });
  assert.match(second.stderr, /keep\.py: was removed during the run: removed from the index/);
  await withServer(db, root, async (call) => {
    for (const query of ["kept_fn", "swapped_fn", "grown_fn", "gone_fn", "changed_fn"]) {
      assert.equal((await call("search", { query })).total_count, 0, query);
    }
    assert.equal((await call("search", { query: "changed_again" })).total_count, 1);
    const status = await call("status");
    assert.deepEqual([status.files_indexed, status.health], [1, "degraded"]);
  });
});

test("--max-file-bytes is read strictly: decimal digits, within its type", () => {
  const root = tree("flags", { "a.py": "x = 1\n" });
  for (const value of ["-1", " 5", "5x", "0x10", "99999999999999999999999", ""]) {
    const run = spawnSync(indexer, [root, "--db", join(scratch, "flags.db"), "--max-file-bytes", value], { encoding: "utf8" });
    assert.equal(run.status, 2, JSON.stringify(value));
    assert.match(run.stderr, /--max-file-bytes needs a number/);
  }
});

test("a walk stops 256 folders deep and says where", async () => {
  const deep = Array.from({ length: 300 }, () => "d").join("/");
  const root = tree("deep", { "top.py": "def top():\n    pass\n", [`${deep}/bottom.py`]: "def bottom():\n    pass\n" });
  const db = join(scratch, "deep.db");
  const { stdout, stderr } = index(root, db);
  assert.match(stderr, /d\/d: is more than 256 folders deep: not walked/);
  assert.match(stdout, /1 files .*; 1 errors/);
});

test("files whose module paths meet keep all their symbols", async () => {
  const root = tree("collide", { "a.py": "def run():\n    pass\n", "a.js": "function run() {}\n",
    "b/c.py": "def inner():\n    pass\n", "b.c.py": "def inner():\n    pass\n" });
  const db = join(scratch, "collide.db");
  index(root, db);
  await withServer(db, root, async (call) => {
    for (const [query, files] of [["run", ["a.js", "a.py"]], ["inner", ["b.c.py", "b/c.py"]]]) {
      assert.deepEqual((await call("search", { query })).symbols.map((s) => s.file).sort(), files);
    }
    for (const path of ["b/c.py", "b.c.py"]) {
      assert.deepEqual((await call("file", { path })).symbols.map((s) => s.name), ["b.c", "inner"]);
    }
  });
});

test("a page of 100,000 links is linked in time that grows with its size", async () => {
  const links = Array.from({ length: 100_000 }, () => "[x](o.md)").join(" ");  // 1 MB, within the size limit
  const root = tree("links", { "README.md": `# Many links\n\n${links}\n`, "o.md": "# Other\n\nText.\n" });
  const db = join(scratch, "links.db");
  // Its processor time, which a busy machine does not stretch as it does the wall clock's.
  const timed = spawnSync("/usr/bin/time", ["-f", "%U %S", indexer, root, "--db", db], { encoding: "utf8", timeout: 60_000 });
  assert.equal(timed.status, 0, timed.stderr);
  const [user, system] = timed.stderr.trim().split("\n").at(-1).split(" ").map(Number);
  assert.ok(user + system < 5, `${user + system} s`);
  await withServer(db, root, async (call) => {
    assert.deepEqual((await call("wiki", { action: "read", page_id: "readme" })).related_pages, ["o"]);
  });
});

test("a run killed midway leaves a status that says so, and the next run repairs the index", async () => {
  const root = tree("killed", { "a.py": "def f():\n    pass\n", "b.py": "from a import f\n\nf()\n" });
  // ctags that never answers: the run is killed while it waits.
  const ctags = join(scratch, "stuck-ctags");
  writeFileSync(ctags, `#!/bin/sh\ncase "$*" in *--version*|*--list-features*) exec ctags "$@";; esac\nexec sleep 600\n`);
  chmodSync(ctags, 0o755);
  const db = join(scratch, "killed.db");
  const temp = join(scratch, "killed-tmp");
  mkdirSync(temp);
  const run = spawn(indexer, [root, "--db", db, "--ctags", ctags, "--python", ""],
    { stdio: "ignore", env: { ...process.env, TMPDIR: temp } });
  const exited = new Promise((resolve) => run.on("exit", resolve));
  const indexing = async () => withServer(db, root, async (call) => (await call("status")).status);
  while (!existsSync(db) || (await indexing().catch(() => "")) !== "indexing") {
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  run.kill("SIGKILL");
  await exited;
  await withServer(db, root, async (call) => {
    const status = await call("status");
    assert.deepEqual([status.status, status.health], ["stopped", "unhealthy"]);
    assert.match(status.phase_detail, /stopped before it finished/);
  });
  assert.deepEqual(readdirSync(temp), []);  // no temporary file left behind
  index(root, db);
  await withServer(db, root, async (call) => {
    assert.equal((await call("status")).status, "ready");
    assert.equal((await call("references", { fqn: "a.f" })).total_count, 2);
  });
});

test("two indexers at once: one waits for the other, and the index is as one run makes it", async () => {
  const files = {};
  for (let i = 0; i < 300; i++) files[`m${i}.py`] = `from m0 import f0\n\ndef f${i}():\n    return f0()\n`;
  const root = tree("twice", files);
  const run = () => new Promise((resolve) => {
    const child = spawn(indexer, [root, "--db", join(scratch, "twice.db")], { stdio: ["ignore", "pipe", "pipe"] });
    child.on("exit", resolve);
  });
  assert.deepEqual(await Promise.all([run(), run()]), [0, 0]);
  const once = join(scratch, "once.db");
  index(root, once);
  const count = (db) => withServer(db, root, async (call) => (await call("references", { fqn: "m0.f0" })).total_count);
  assert.equal(await count(join(scratch, "twice.db")), await count(once));
  assert.equal(await count(once), 600);
});
