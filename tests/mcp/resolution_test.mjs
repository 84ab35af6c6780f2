// References as the language resolves them, on small trees through the
// official MCP client: each case is one rule of the indexer's resolution.
//   node resolution_test.mjs INDEXER SERVER
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import test from "node:test";

import { makeTree, runIndexer, withServer } from "./trees.mjs";

const [indexer, server] = process.argv.slice(2);
const scratch = mkdtempSync(join(tmpdir(), "kestrune-resolution-test-"));
test.after(() => rmSync(scratch, { recursive: true, force: true }));

// indexed: the tree of `files` indexed, and a caller of the server's tools on it.
async function indexed(name, files, body) {
  const root = makeTree(join(scratch, name), files);
  const db = join(scratch, `${name}.db`);
  runIndexer(indexer, root, db);
  await withServer(server, db, root, body);
}

const uses = async (call, fqn) =>
  (await call("references", { fqn, limit: 100 })).references.map((r) => `${r.file}:${r.line}`).sort();

test("C++: names qualified with ::, scopes around a name, using namespace, overloads, what a file includes", () =>
  indexed("cpp", {
    "include/fmt/core.h": "namespace fmt {\n/// Formats.\nint format(const char* s);\nint format(const char* s, int x);\n" +
      "namespace detail {\nint write(int v);\n}\n}\n",
    "src/format.cc": '#include "fmt/core.h"\nnamespace fmt {\nint format(const char* s) { return detail::write(1); }\n' +
      "int format(const char* s, int x) {\n  return format(s) + x;\n}\nnamespace detail {\nint write(int v) { return v; }\n}\n}\n",
    "app/main.cc": "#include <fmt/core.h>\nusing namespace fmt;\nint main() {\n  fmt::format(\"a\");\n" +
      "  return format(\"b\", 1);\n}\n",
    "test/types.h": "typedef unsigned long size_t;\n",
    "app/other.c": "size_t n(size_t x) { return x; }\n",
  }, async (call) => {
    assert.deepEqual(await uses(call, "fmt::detail::write"), ["src/format.cc:3"]);
    assert.deepEqual(await uses(call, "fmt::format"), ["app/main.cc:4", "app/main.cc:5", "src/format.cc:5"]);
    assert.deepEqual(await uses(call, "size_t"), []);  // a typedef no file includes is no use
    const symbol = await call("symbol", { fqn: "fmt::format" });
    assert.equal(symbol.docstring, "Formats.");
  }));

test("any language: a unique name is a use only in the file's language and where the file sees it", () =>
  indexed("mixed", {
    "Makefile": "fmt:\n\techo fmt\n",
    "tool/main.go": "package main\n\nimport \"fmt\"\n\nfunc main() {\n\tfmt.Println(\"x\")\n}\n",
    "lib/a.rb": "def helper\n  1\nend\n",
    "lib/b.rb": "def run\n  helper\nend\n",
    "other/c.rb": "def go\n  helper\nend\n",
  }, async (call) => {
    assert.deepEqual(await uses(call, "fmt"), []);
    assert.deepEqual(await uses(call, "lib.a.helper"), ["lib/b.rb:2"]);
  }));

// The JavaScript/TypeScript analyzer is installed beside the indexer when the build had node and npm.
const typescript = existsSync(join(dirname(indexer), "typescript_analyzer", "node_modules", "typescript"));

test("TypeScript: a re-export through an index file, a method through a base class, a shadowing parameter",
     { skip: !typescript }, () => indexed("ts", {
    "src/lib/base.ts": "export class Base {\n  run(): void {}\n}\n",
    "src/lib/index.ts": 'export * from "./base.js";\n',
    "src/app.ts": 'import { Base } from "./lib";\nclass App extends Base {\n  go() {\n    this.run();\n  }\n}\n' +
      "function other(Base: number) {\n  return Base;\n}\n",
  }, async (call) => {
    assert.deepEqual(await uses(call, "src.lib.base.Base"), ["src/app.ts:1", "src/app.ts:2"]);
    assert.deepEqual(await uses(call, "src.lib.base.Base.run"), ["src/app.ts:4"]);
    assert.equal((await call("symbol", { fqn: "src.lib.base.Base.run" })).signature, "run(): void");
  }));
