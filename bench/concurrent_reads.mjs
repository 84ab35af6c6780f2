// Servers reading the index while kestrune-index writes it. Generates a tree
// of FILES Python modules that import and call one another, indexes it,
// then runs the indexer -- `--full`, then ROUNDS plain runs, each after
// EDITED modules gained a function -- while SERVERS processes of each example server
// (C++ and Python) poll `search` and `references` over stdio JSON-RPC, one
// call at a time, until the run ends. Each answer is checked:
//   - a torn page: a search or references page whose rows, total_count,
//     offset, has_more, truncated and hint do not agree (rows must be
//     min(limit, total_count - offset), and a hint names the next offset);
//   - a missing reference: `references` of a function in a module that does
//     not change, used only by an edited module, answering fewer uses than
//     it had before the runs (none, mostly): no run changes what is used
//     where.
// Prints, per run and per server, the calls made and both counts per
// thousand calls. A benchmark: it is not part of the tests.
//   node bench/concurrent_reads.mjs INDEXER CPP_SERVER PYTHON_SERVER [--servers N] [--files N] [--edited N]
//                                   [--rounds N]
// The Python server finds the response layer's module through PYTHONPATH.
import { spawn } from "node:child_process";
import { appendFileSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { createInterface } from "node:readline";

const [indexer, cppServer, pythonServer, ...rest] = process.argv.slice(2);
const option = (name, fallback) => {
  const at = rest.indexOf(name);
  return at < 0 ? fallback : Number(rest[at + 1]);
};
const servers = option("--servers", 2);
const files = option("--files", 20000);
const edited = option("--edited", 400);
const rounds = option("--rounds", 3);
const perPackage = 100;
const limit = 20;

// The tree: module k (pkgP/mM.py, k = P * 100 + M) defines f<k>_0,
// f<k>_1 (which calls the next module's f<k+1>_0, imported) and class C<k>
// with a method run that calls f<k>_1. So f<k+1>_0 is used only by module k.
// Every 200th module also defines helper: a search for it gets a page whose
// rows come from modules all over the tree, which every batch of a run
// rewrites in part.
const modulePath = (k) => `pkg${Math.floor(k / perPackage)}/m${k % perPackage}.py`;
const moduleName = (k) => modulePath(k).slice(0, -3).replace("/", ".");
const helper = `

def helper(x):
    """One of many of this name."""
    return x
`;
function moduleText(k) {
  const next = (k + 1) % files;
  return `"""Module ${k} of a generated tree."""
from ${moduleName(next)} import f${next}_0


def f${k}_0(x):
    """One more than x."""
    return x + 1


def f${k}_1(x):
    """The next module's function, doubled."""
    return 2 * f${next}_0(x)


class C${k}:
    """Runs f${k}_1."""

    def run(self, x):
        return f${k}_1(x)
${k % 200 === 7 ? helper : ""}`;
}


const scratch = mkdtempSync(join(tmpdir(), "kestrune-concurrent-"));
const tree = join(scratch, "tree");
const db = join(scratch, "index.db");
for (let k = 0; k < files; ++k) {
  if (k % perPackage === 0) mkdirSync(join(tree, `pkg${k / perPackage}`), { recursive: true });
  writeFileSync(join(tree, modulePath(k)), moduleText(k));
}
// Every (files / edited)th module gains a function edited_<run> in each
// run; the module after each is left as it is, and its f<k>_0 is used by
// the edited one.
const step = Math.max(1, Math.floor(files / edited));
const editedModules = [];
for (let k = 0; k < files && editedModules.length < edited; k += step) editedModules.push(k);

// One server process: one JSON-RPC request at a time over its stdin/stdout.
class Server {
  constructor(kind, program) {
    this.kind = kind;
    this.process = spawn(program, ["--db", db, "--root", tree, "--budget", "10000000"], {
      stdio: ["pipe", "pipe", "ignore"],
    });
    this.pending = null;
    this.nextId = 1;
    createInterface({ input: this.process.stdout }).on("line", (line) => {
      const resolve = this.pending;
      this.pending = null;
      resolve(JSON.parse(line));
    });
  }
  request(method, params) {
    return new Promise((resolve) => {
      this.pending = resolve;
      this.process.stdin.write(`${JSON.stringify({ jsonrpc: "2.0", id: this.nextId++, method, params })}\n`);
    });
  }
  // call: the tool's answer as its parsed text, or {error} for a JSON-RPC error.
  async call(name, args) {
    const answer = await this.request("tools/call", { name, arguments: args });
    if (answer.error) return { error: `${answer.error.code} ${answer.error.message}` };
    return JSON.parse(answer.result.content[0].text);
  }
  close() {
    this.process.stdin.end();
  }
}

// Why a page is torn, or null when its parts agree.
function tornPage(page, rowsKey, offset) {
  const rows = page[rowsKey]?.length;
  const total = page.total_count;
  if (rows === undefined || !Number.isInteger(total)) return "no rows or total_count";
  if (page.offset !== offset) return `offset ${page.offset}, asked ${offset}`;
  if (rows !== Math.max(0, Math.min(limit, total - offset))) return `${rows} rows of ${total} at offset ${offset}`;
  const more = offset + rows < total;
  if (page.has_more !== more || page.truncated !== more) return `has_more ${page.has_more} with ${rows} of ${total}`;
  const hint = page.hint === undefined ? null : /Showing (\d+) of (\d+) .*offset=(\d+)/.exec(page.hint);
  if (more !== (hint !== null) || (hint && (+hint[1] !== rows || +hint[2] !== total || +hint[3] !== offset + rows))) {
    return `hint ${JSON.stringify(page.hint)} with ${rows} of ${total} at offset ${offset}`;
  }
  return null;
}

function runProcess(program, args) {
  return new Promise((resolve) => {
    const started = performance.now();
    const child = spawn(program, args, { stdio: ["ignore", "pipe", "pipe"] });
    let output = "";
    child.stdout.on("data", (d) => (output += d));
    child.stderr.on("data", (d) => (output += d));
    child.on("exit", (code) => resolve({ code, seconds: (performance.now() - started) / 1000, output }));
  });
}

// Searches of three characters or more (the trigram index: spread over the
// tree, sparse, and dense enough to walk the fqn order) and of two (a scan
// of every symbol).
const queries = ["helper", "edited", "f12", "run", "_1", "ed"];
const random = (n) => Math.floor(Math.random() * n);

// poll: calls from one server until `done` says stop; its counts.
async function poll(server, used, done) {
  const counts = { calls: 0, pages: 0, torn: 0, references: 0, missing: 0, errors: 0, examples: [] };
  const totals = new Map();  // the last total_count seen of each query
  const note = (what) => counts.examples.length < 3 && counts.examples.push(what);
  while (!done()) {
    const asReferences = counts.calls % 2 === 1;
    let name;
    let args;
    let rowsKey;
    let fqn;
    if (asReferences) {
      [fqn] = used[random(used.length)];
      name = "references";
      args = { fqn, offset: 0, limit };
      rowsKey = "references";
    } else {
      const query = queries[random(queries.length)];
      name = "search";
      args = { query, offset: random((totals.get(query) ?? 0) + 1), limit };
      rowsKey = "symbols";
    }
    const page = await server.call(name, args);
    ++counts.calls;
    if (page.error) {
      ++counts.errors;
      note(`${name} ${JSON.stringify(args)}: ${page.error}`);
      continue;
    }
    ++counts.pages;
    const torn = tornPage(page, rowsKey, args.offset);
    if (torn) {
      ++counts.torn;
      note(`${name} ${JSON.stringify(args)}: ${torn}`);
    }
    if (asReferences) {
      ++counts.references;
      const before = used.find(([f]) => f === fqn)[1];
      if (page.total_count < before) {
        ++counts.missing;
        note(`references of ${fqn}: ${page.total_count} uses (${before} before)`);
      }
    } else {
      totals.set(args.query, page.total_count);
    }
  }
  return counts;
}

// A run of the indexer while every server polls; each server's counts.
async function measuredRun(label, args, pool, used) {
  let running = true;
  const polls = pool.map((server) => poll(server, used, () => !running));
  const run = await runProcess(indexer, args);
  running = false;
  const counts = await Promise.all(polls);
  if (run.code !== 0) console.log(`${label}: kestrune-index exited ${run.code}:\n${run.output}`);
  return { label, run, counts };
}

const perThousand = (n, of) => (of === 0 ? "-" : ((1000 * n) / of).toFixed(2));

const index = await runProcess(indexer, [tree, "--db", db]);
if (index.code !== 0) throw new Error(`kestrune-index failed:\n${index.output}`);
const pool = [];
for (let i = 0; i < servers; ++i) pool.push(new Server("C++", cppServer), new Server("Python", pythonServer));
for (const server of pool) await server.request("initialize", { protocolVersion: "2025-11-25", capabilities: {} });

// The functions polled by `references`: f<k+1>_0 of each edited module k,
// in a module that is not edited, with how many uses each had before.
const used = [];
for (const k of editedModules) {
  const fqn = `${moduleName((k + 1) % files)}.f${(k + 1) % files}_0`;
  const before = (await pool[0].call("references", { fqn, limit: 1 })).total_count;
  if (before > 0) used.push([fqn, before]);
}
if (used.length === 0) throw new Error("no polled function has a use: the tree's imports were not resolved");

const runs = [await measuredRun("--full", [tree, "--db", db, "--full"], pool, used)];
const incremental = `${editedModules.length} modules edited, ${rounds} runs`;
for (let round = 1; round <= rounds; ++round) {
  const added = `\n\ndef edited_${round}(x):\n    """Added before run ${round}."""\n    return x\n`;
  for (const k of editedModules) appendFileSync(join(tree, modulePath(k)), added);
  runs.push(await measuredRun(incremental, [tree, "--db", db], pool, used));
}
for (const server of pool) server.close();

console.log(`${files} modules (${index.output.trim().replace(/^kestrune-index: /, "")}; ` +
  `first index ${index.seconds.toFixed(1)} s); ${servers} C++ and ${servers} Python servers polling; ` +
  `references of ${used.length} functions used by the edited modules\n`);
console.log("| run | indexer s | server | calls | torn pages | per 1000 pages | missing references | per 1000 references | errors |");
console.log("|---|---:|---|---:|---:|---:|---:|---:|---:|");
const examples = [];
for (const label of ["--full", incremental]) {
  const mine = runs.filter((r) => r.label === label);
  const seconds = mine.map((r) => r.run.seconds.toFixed(1)).join(", ");
  for (const kind of ["C++", "Python"]) {
    const counts = mine.flatMap((r) => r.counts.filter((_, i) => pool[i].kind === kind));
    const sum = (key) => counts.reduce((n, c) => n + c[key], 0);
    console.log(`| ${label} | ${seconds} | ${kind} | ${sum("calls")} | ${sum("torn")} | ` +
      `${perThousand(sum("torn"), sum("pages"))} | ${sum("missing")} | ${perThousand(sum("missing"), sum("references"))} | ` +
      `${sum("errors")} |`);
    for (const c of counts) examples.push(...c.examples.map((e) => `${label}, ${kind}: ${e}`));
  }
}
if (examples.length > 0) console.log(`\nexamples:\n${examples.slice(0, 12).join("\n")}`);
rmSync(scratch, { recursive: true, force: true });
