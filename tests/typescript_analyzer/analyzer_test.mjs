// The JavaScript/TypeScript analyzer on small trees (trees/*): the uses it
// finds in each file against those marked on each line ("//> fqn ..."), a
// table of the symbols it reports, and bad input.
//   node analyzer_test.mjs ANALYZER   (analyzer.mjs, installed with typescript)
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { existsSync, readdirSync, readFileSync } from "node:fs";
import { dirname, join, relative, resolve } from "node:path";
import test from "node:test";

const analyzer = resolve(process.argv[2]);
const trees = join(dirname(new URL(import.meta.url).pathname), "trees");
const installed = existsSync(join(dirname(analyzer), "node_modules", "typescript", "package.json"));
const skip = installed ? false : "typescript is not installed beside the analyzer (npm ci failed at build time)";

// run: the analyzer's answer lines for `input`, sent as the indexer sends it.
function run(input) {
  const done = spawnSync(process.execPath, [analyzer], { input, cwd: "/", timeout: 60_000, maxBuffer: 1 << 28 });
  assert.equal(done.status, 0, String(done.stderr));
  const lines = done.stdout.toString().split("\n").filter(Boolean).map((l) => JSON.parse(l));
  assert.deepEqual(lines.at(-1), { _type: "completed" });
  return lines.slice(0, -1);
}

const header = (path, bytes) => Buffer.from(JSON.stringify({ command: "file", path, size: bytes.length }) + "\n");
const message = (files) => Buffer.concat([
  ...files.flatMap(([path, bytes]) => [header(path, bytes), bytes]),
  Buffer.from('{"command":"analyze"}\n'),
]);

function files(dir, root = dir) {
  return readdirSync(dir, { withFileTypes: true }).sort((a, b) => a.name.localeCompare(b.name)).flatMap((e) => {
    const path = join(dir, e.name);
    return e.isDirectory() ? files(path, root) : [[relative(root, path), readFileSync(path)]];
  });
}

const answers = new Map();  // tree -> path -> answer
function analyzed(tree) {
  if (!answers.has(tree)) answers.set(tree, new Map(run(message(files(join(trees, tree)))).map((a) => [a.path, a])));
  return answers.get(tree);
}

// marked: "fqn:line" of each use written beside its line.
function marked(text) {
  const uses = [];
  text.split("\n").forEach((line, i) => {
    const m = /(?:\/\/|\/\*)> ([^*]+)/.exec(line);
    if (m) for (const fqn of m[1].trim().split(/\s+/)) uses.push(`${fqn}:${i + 1}`);
  });
  return uses.sort();
}

for (const tree of ["modules", "scopes", "generics", "commonjs", "jsx", "globals"]) {
  test(`${tree}: the uses in each file are those marked`, { skip }, () => {
    for (const [path, bytes] of files(join(trees, tree))) {
      const answer = analyzed(tree).get(path);
      assert.equal(answer.error, null, path);
      const found = answer.references.map((r) => `${r.fqn}:${r.line}`).sort();
      assert.deepEqual(found, marked(bytes.toString()), path);
    }
  });
}

// [tree, fqn, what its symbols say, in source order]
const kSymbols = [
  ["modules", "src.lib.base.Base", [{ kind: "class", line: 6, end: 13, signature: "class Base", export: true,
                                      doc: "A server.\n\n  Indented example." }]],
  ["modules", "src.lib.base.Base.start", [{ kind: "method", line: 8, end: 10, signature: "start(port: number): void",
                                            doc: "Starts it.", export: true }]],
  ["modules", "src.lib.base.Base.secret", [{ kind: "property", export: false }]],
  ["modules", "src.lib.base.helper", [{ kind: "prototype", line: 15, signature: "helper(x: number): number" },
                                      { kind: "prototype", line: 16, signature: "helper(x: string): string" },
                                      { kind: "function", line: 17, end: 19, signature: "helper(x: any): any" }]],
  ["modules", "src.lib.base.main", [{ kind: "function", export: true }]],
  ["modules", "src.lib.base.Options", [{ kind: "interface", line: 2 }, { kind: "interface", line: 25 },
                                       { kind: "constant", line: 29 }]],
  ["modules", "src.lib.base.Options.verbose", [{ kind: "property", line: 3, export: true }]],
  ["modules", "src.lib.base.Options.port", [{ kind: "property", line: 26, signature: "port: number" },
                                            { kind: "property", line: 29 }]],
  ["modules", "src.lib.server.Server.options", [{ kind: "property", export: false, signature: "options: Options" }]],
  ["modules", "src.lib.server.Server.constructor", [{ kind: "constructor", line: 4, end: 6 }]],
  ["modules", "src.app.main.settings", [{ kind: "constant", export: false }]],
  ["scopes", "names.count", [{ signature: "count(limit: number, items: Item[]): number" }]],
  ["commonjs", "lib.util.VERSION", [{ kind: "variable", export: true }]],
  ["commonjs", "lib.util.format", [{ kind: "function", export: true }]],
  ["jsx", "components.Button.Theme.dark", [{ kind: "property", export: true }]],
  ["globals", "env.Config.mode", [{ kind: "constant", export: true }]],
];

test("symbols: kinds, lines, signatures, docs and exports", { skip }, () => {
  for (const [tree, fqn, expected] of kSymbols) {
    const found = [...analyzed(tree).values()].flatMap((a) => a.symbols).filter((s) => s.fqn === fqn);
    assert.equal(found.length, expected.length, fqn);
    expected.forEach((e, i) => assert.deepEqual({ ...found[i], ...e }, found[i], fqn));
  }
});

// [tree, path, line, fqn, usage, caller, caller kind]
const kUses = [
  ["modules", "src/app/main.ts", 1, "src.lib.server.Server", "import", null, null],
  ["modules", "src/app/main.ts", 6, "src.lib.server.Server", "call", "src.app.main.serve", "function"],
  ["modules", "src/app/main.ts", 5, "src.lib.base.Options", "reference", "src.app.main.serve", "function"],
  ["modules", "src/lib/server.ts", 8, "src.lib.base.Base.start", "call", "src.lib.server.Server.connect", "method"],
  ["commonjs", "main.js", 1, "lib.util.Logger", "import", null, null],
];

test("uses: how each is used, and in which definition", { skip }, () => {
  for (const [tree, path, line, fqn, usage, caller, callerKind] of kUses) {
    const use = analyzed(tree).get(path).references.find((r) => r.line === line && r.fqn === fqn);
    assert.deepEqual(use, { fqn, line, usage, caller, caller_kind: callerKind });
  }
});

test("packages: one the tree holds is found in node_modules around the file or in @types; others are nothing",
     { skip }, () => {
  const tree = [
    ["node_modules/greeter/index.d.ts", "export declare function greet(): string;\n"],
    ["node_modules/@types/scope__pkg/index.d.ts", "export interface Options { port: number }\n"],
    ["src/app.ts", 'import { greet } from "greeter";\nimport type { Options } from "@scope/pkg";\n' +
                   'import { other } from "absent";\nexport const o: Options = { port: greet().length };\nother();\n'],
  ];
  const app = run(message(tree.map(([path, text]) => [path, Buffer.from(text)]))).at(-1);
  const greet = "node_modules.greeter.index.greet";
  const options = "node_modules.@types.scope__pkg.index.Options";
  assert.deepEqual(app.references.map((r) => `${r.fqn}:${r.line}`).sort(),
                   [`${options}.port:4`, `${options}:2`, `${options}:4`, `${greet}:1`, `${greet}:4`]);
});

test("overloads: a signature that another of its family follows is a prototype; the last takes the first doc",
     { skip }, () => {
  const tree = [
    ["api.d.ts", "export declare class Api {\n  /** Gets. */\n  get(k: string): string;\n  get(): string[];\n" +
                 "  static get(): Api;\n  get size(): number;\n  set size(v: number);\n  /** One. */\n  put(): void;\n" +
                 "  /** Two. */\n  put(k: string): void;\n}\n"],
    ["twice.js", "/** First. */\nfunction f() {}\nfunction f() {}\n"],
  ];
  const rows = run(message(tree.map(([path, text]) => [path, Buffer.from(text)])))
    .flatMap((a) => a.symbols).map((s) => `${s.fqn} ${s.kind}:${s.line} ${s.doc}`);
  assert.deepEqual(rows, [
    "api.Api class:1 null", "api.Api.get prototype:3 Gets.", "api.Api.get method:4 Gets.",
    "api.Api.get method:5 null",  // a static of one name is no overload of the instance's
    "api.Api.size getter:6 null", "api.Api.size setter:7 null",  // accessors are no overloads
    "api.Api.put prototype:9 One.", "api.Api.put method:11 Two.",
    "twice.f function:2 First.", "twice.f function:3 null",  // bodies both: a redefinition
  ]);
});

test("modules: named by path, a declaration file as the module it declares", { skip }, () => {
  assert.equal(analyzed("modules").get("src/lib/index.ts").module, "src.lib.index");
  assert.equal(analyzed("globals").get("env.d.ts").module, "env");
});

test("bad input: a file that does not parse costs only itself; lines that are no command pass", { skip }, () => {
  const input = Buffer.concat([Buffer.from("not a command\n{}\n"), message(files(join(trees, "broken")))]);
  const [broken, fine] = run(input);
  assert.equal(broken.path, "broken.ts");
  assert.match(broken.error, /^line 1: /);
  assert.equal(fine.error, null);
  assert.deepEqual(fine.references.map((r) => `${r.fqn}:${r.line}`), ["broken.ok:1", "broken.ok:2"]);
  // Bases that refer to each other and branch, and nesting deeper than the
  // analyzer's stack: answered (the run's time is bounded by run's timeout).
  const bases = [0, 1, 2, 3, 4, 5].map((i) => `B${i}<T>`).join(", ");
  const cyclic = [0, 1, 2, 3, 4, 5].map((i) => `export interface B${i}<T> extends ${bases} { m${i}: T }\n`).join("") +
    "declare const v: B0<number>;\nexport const z = v.m1 + v.none;\n";
  const deep = `export const x = ${"(".repeat(20_000)}1${")".repeat(20_000)};\n`;
  const [cycle, nested] = run(message([["cycle.ts", Buffer.from(cyclic)], ["deep.ts", Buffer.from(deep)]]));
  assert.deepEqual(cycle.references.filter((r) => r.line === 8).map((r) => r.fqn), ["cycle.v", "cycle.B1.m1"]);
  assert.equal(nested.error, "nested too deeply to read");
  // Bytes that are not UTF-8 are read as U+FFFD, not refused.
  const odd = Buffer.concat([Buffer.from('const x="'), Buffer.from([0xff]), Buffer.from('";')]);
  const [read] = run(message([["odd.ts", odd]]));
  assert.equal(read.error, null);
  assert.deepEqual(read.symbols.map((s) => s.fqn), ["odd.x"]);
});
