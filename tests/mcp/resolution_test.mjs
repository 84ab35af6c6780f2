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

// C++ as the language looks names up: each row is [fqn, its uses] and
// names the rule it checks.
const cppRules = {
  "include/shop/core.h": "#pragma once\nnamespace shop {\n/*! Base of every item. */\nclass Item {\n public:\n" +
    "  virtual int price() const;\n  int weight;  ///< in grams\n};\n" +
    "#define SHOP_API\n/// A book.\nSHOP_API\nclass Book : public Item {\n public:\n  Book(const char* title);\n" +
    "  int price() const override;\n  int pages() const;\n};\n" +
    "class Magazine {\n public:\n  int pages() const;\n};\nenum Color { red, green };\n" +
    "namespace detail {\nint helper(int x);\n}\n}\n" +
    "/// \\brief Wraps a value.\ntemplate <typename T,\n          typename U = int>\nstruct Box {\n  static int make();\n};\n" +
    "int weight;\nint total(int n);\n#define SHOP_TWICE(weight) ((weight) + (weight))\n" +
    "namespace shop {\ntemplate <typename Book>\nint count(Book b) { return b.pages(); }\n" +
    "class Shelf {\n public:\n  Shelf();\n  friend class Book;\n};\n" +
    "class Rack : public Shelf {\n  int size() const { return sizeof(Shelf); }\n};\n}\n" +
    "#define INNER_BEGIN namespace inner {\nnamespace inner { int z; }\n#define CASE(a, b) void a##_##b()\n" +
    "/* A crate. */\nstruct Crate {\n  int weight;\n};\nint Args(int n);\ntemplate <typename... Args>\n" +
    "using first_t = decltype(pick(static_cast<Args>(0)...));\n" +
    "template <typename T, typename std::enable_if<true>::type = 0>\nint pick(T x);\n",
  "include/other/assert.h": "#define SHOP_ASSERT(x) 0\n",
  "include/shop/assert.h": "#define SHOP_ASSERT(x) (x)\n",
  "app/check.cc": '#include "shop/assert.h"\nint check() {\n  return SHOP_ASSERT(1);\n}\n',
  "include/shop/lexer.h": "struct LexerBase {\n  enum class token_type { end };\n};\n" +
    "struct Lexer : LexerBase {\n  using token_type = LexerBase::token_type;\n  token_type scan();\n};\n" +
    "inline Lexer::token_type Lexer::scan() {\n  return token_type::end;\n}\n",
  "include/library/book.h": "namespace library {\nclass Book {};\n}\n",
  "include/geometry.h": "struct Rect {\n  int width;\n};\n",
  "include/shop/sizes.h": "#pragma once\n/// Counts every item.\nint count_all(int n);\n" +
    "struct Gap {\n  int width;  // in pixels\n};\n",
  "app/sizes.cc": '#include "shop/sizes.h"\n// Stock at hand.\n\nint stock = 0;\nint count_all(int n) { return n + stock; }\n',
  "app/licence.cc": "// Licence text.\n\nint licensed = 1;\n",
  "include/std_hash.h": "namespace std {\ntemplate <class T> struct hash;\n}\n",
  "src/book.cc": '#include "shop/core.h"\nnamespace shop {\nint Book::price() const {\n  return pages() + weight;\n}\n' +
    "int Book::pages() const {\n  return this->weight;\n}\n}\n",
  "app/main.cc": '#include "shop/core.h"\n#include "library/book.h"\n#include "geometry.h"\n#include <vector>\n' +
    "namespace sd = shop::detail;\nusing shop::Book;\nSHOP_API ::shop::Item* pick();\n" +
    "int total(int n) {\n  Book b(\"t\");\n  shop::Magazine m;\n  shop::Item* item = pick();\n" +
    "  int weight = b.pages() + m.pages() + item->price();\n  std::vector<int> v;\n" +
    "  return weight + pick()->price() + sd::helper(n) + shop::red + Box<int>::make() + SHOP_TWICE(n) + total(n - 1);\n" +
    "}\nint area() {\n  return width * 2 + Book(\"u\").pages();\n}\nint grams() {\n  return weight;\n}\n",
  "app/cases.cc": '#include "shop/core.h"\nCASE(Suite, Name) {\n  shop::Magazine m;\n  int weight = m.pages();\n' +
    "#ifdef SHOP_API\n  SHOP_TWICE(weight);\n#endif\n}\n",
};

test("C++: scopes and their bases, locals, member types, aliases, using, enums, templates, constructors", () =>
  indexed("cpp-rules", cppRules, async (call) => {
    const rows = [
      ["std", ["app/main.cc:13", "include/shop/core.h:58"]],        // a namespace: every file means the one
      ["Lexer::token_type", ["include/shop/lexer.h:6", "include/shop/lexer.h:8", "include/shop/lexer.h:9"]],  // scopes first
      ["LexerBase::token_type", ["include/shop/lexer.h:5"]],
      ["LexerBase::token_type::end", ["include/shop/lexer.h:9"]],   // through the typedef
      ["Rect::width", []],                                          // a member is no bare name outside its class
      ["weight", ["app/main.cc:20"]],                               // a local of that name shadows it
      ["shop::Item::weight", ["src/book.cc:4", "src/book.cc:7"]],   // a base's member, bare and through this->
      ["shop::Book::pages", ["app/main.cc:12", "src/book.cc:4"]],  // the class of the local
      ["shop::Magazine::pages", ["app/cases.cc:4", "app/main.cc:12"]],  // in a macro's body, as in a function's
      ["shop::Item::price", ["app/main.cc:12", "app/main.cc:14"]],  // a virtual, of an object of no known type
      ["shop::detail::helper", ["app/main.cc:14"]],                 // a namespace alias
      ["shop::Book", ["app/main.cc:17", "app/main.cc:6", "app/main.cc:9", "include/shop/core.h:42", "src/book.cc:3",
        "src/book.cc:6"]],                                          // using; a friend; not a template's parameter
      ["shop::Item", ["app/main.cc:11", "app/main.cc:7", "include/shop/core.h:12"]],  // a macro apart from ::
      ["shop::Shelf", ["include/shop/core.h:44", "include/shop/core.h:45"]],  // a base's own name in a derived class
      ["shop::Shelf::Shelf", []],
      ["inner", []],                                                // `namespace inner` declares it
      ["CASE", ["app/cases.cc:2"]],                                 // a macro's use, not a function
      ["SHOP_ASSERT", ["app/check.cc:3"]],                          // a macro defined in two files, one seen
      ["Args", []],                                                 // a template's parameter pack shadows it
      ["library::Book", []],
      ["shop::Book::Book", ["app/main.cc:17"]],                     // Class(...) constructs
      ["shop::Color::red", ["app/main.cc:14"]],                     // an unscoped enum's constant in its scope
      ["Box::make", ["app/main.cc:14"]],                            // template arguments before ::
      ["total", ["app/main.cc:14"]],                                // a function's own name is no local of it
      ["SHOP_TWICE", ["app/cases.cc:6", "app/main.cc:14"]],         // after a directive's word
    ];
    const wrong = [];
    for (const [fqn, expected] of rows) {
      const found = await uses(call, fqn);
      if (JSON.stringify(found) !== JSON.stringify(expected)) wrong.push({ fqn, found, expected });
    }
    assert.deepEqual(wrong, []);
    const docs = [
      ["shop::Item", "Base of every item."],  // a /*! block
      ["shop::Item::weight", "in grams"],     // a ///< doc after the member
      ["shop::Book", "A book."],              // over a line of a macro alone
      ["Box", "Wraps a value."],              // over a template header of two lines, \brief left out
      ["Crate", "A crate."],                  // a plain /* */ block
      ["count_all", "Counts every item.", "app/sizes.cc"],  // the definition, with its prototype's doc
      ["Gap::width", "in pixels"],            // a plain // after a member
      ["stock", "Stock at hand."],            // a blank line between
      ["licensed", null],                     // but not the comment that opens the file
    ];
    for (const [fqn, doc, file] of docs) {
      const symbol = await call("symbol", { fqn });
      const found = symbol.docstring || null;
      if (found !== doc || (file && symbol.file !== file)) wrong.push({ fqn, found, doc, at: symbol.file });
    }
    const signatures = [
      ["shop::Book", "class Book : public Item"],  // a class's head with its bases
      ["Lexer::token_type", "using token_type = LexerBase::token_type"],
    ];
    for (const [fqn, signature] of signatures) {
      const found = (await call("symbol", { fqn })).signature;
      if (found !== signature) wrong.push({ fqn, found, signature });
    }
    assert.deepEqual(wrong, []);
  }));

test("Python: self. to a base's method, a re-export, a src/ layout, import pkg then pkg.mod.X, import *, " +
     "a shadowing parameter, @overload", () => indexed("python", {
    "src/shop/__init__.py": "from .cart import Cart\n",
    "src/shop/cart.py": "from typing import overload\nclass Base:\n    def helper(self): ...\nclass Cart(Base):\n" +
      "    def total(self):\n        return self.helper()\n@overload\ndef price(x: int) -> int: ...\n" +
      "@overload\ndef price(x: str) -> str: ...\ndef price(x):\n    \"\"\"The price.\"\"\"\n    return x\n" +
      "@overload\ndef size(x: int) -> int: ...\n@overload\ndef size(x: str) -> str: ...\ndef size(x):\n    return x\n",
    "src/shop/util/__init__.py": "",
    "src/shop/util/money.py": "class Money: ...\ndef rate(): ...\n",
    "app/main.py": "import shop.util.money\nfrom shop import Cart\nfrom shop.util.money import *\n" +
      "def run(Cart):\n    return Cart.total()\nshop.util.money.Money()\nrate()\nCart().total()\n",
  }, async (call) => {
    const rows = [
      ["shop.cart.Base.helper", ["src/shop/cart.py:6"]],                    // self. through the class's bases
      ["shop.cart.Cart", ["app/main.py:2", "app/main.py:8", "src/shop/__init__.py:1"]],  // not the parameter's use
      ["shop.cart.Cart.total", ["app/main.py:8"]],
      ["shop.util.money.Money", ["app/main.py:6"]],                         // import pkg.mod, then pkg.mod.X
      ["shop.util.money.rate", ["app/main.py:7"]],                          // from m import *
    ];
    const wrong = [];
    for (const [fqn, expected] of rows) {
      const found = await uses(call, fqn);
      if (JSON.stringify(found) !== JSON.stringify(expected)) wrong.push({ fqn, found, expected });
    }
    assert.deepEqual(wrong, []);
    // @overload: the implementation, not a stub, documented or not
    const price = await call("symbol", { fqn: "shop.cart.price" });
    assert.deepEqual([price.file, price.start_line, price.docstring], ["src/shop/cart.py", 11, "The price."]);
    assert.equal((await call("symbol", { fqn: "shop.cart.size" })).start_line, 18);
  }));

test("any language: a unique name is a use only in the file's language and where the file sees it", () =>
  indexed("mixed", {
    "Makefile": "fmt:\n\techo fmt\n",
    "tool/main.go": "package main\n\nimport \"fmt\"\n\nfunc main() {\n\tfmt.Println(\"x\")\n}\n",
    "lib/a.rb": "def helper\n  1\nend\n",
    "lib/b.rb": "def run\n  helper\nend\n",
    "other/c.rb": "def go\n  helper\nend\n",
  }, async (call) => {
    assert.deepEqual(await uses(call, "Makefile.fmt"), ["Makefile:2"]);  // not Go's fmt.Println
    assert.deepEqual(await uses(call, "lib.a.helper"), ["lib/b.rb:2"]);
  }));

// The Go analyzer is built beside the indexer when the build had go.
const go = existsSync(join(dirname(indexer), "go_analyzer"));

test("docs of the languages read by comments: /** */ and /// where the language marks docs, not a plain block", () =>
  indexed("docs", {
    "src/A.java": "/* Not a doc. */\nclass Plain {}\n/** A documented class. */\nclass Documented {}\n",
    "src/lib.rs": "fn add(x: i32) -> i32 { x + 1 }\n///Counts.\nfn count() {}\n",
  }, async (call) => {
    const docs = [["src.A.Plain", true, null], ["src.A.Documented", true, "A documented class."],
      ["src.lib.count", true, "Counts."]];
    const found = [];
    for (const [fqn] of docs) {
      const symbol = await call("symbol", { fqn });
      found.push([fqn, symbol.found, symbol.docstring || null]);
    }
    assert.deepEqual(found, docs);
  }));

test("Go: a module's import paths, pkg.Name across packages, a method on a pointer receiver, a shadowing " +
     "parameter, a type declared once per GOOS", { skip: !go }, async () => {
  const root = makeTree(join(scratch, "go"), {
    "go.mod": "module example.com/shop\n\ngo 1.19\n",
    "money/money.go": "package money\n\n// Amount is a sum in cents.\ntype Amount int\n\n" +
      "// Add adds b.\nfunc (a *Amount) Add(b Amount) {\n\t*a += b\n}\n\n" +
      "func Double(Amount int) int {\n\treturn Amount + Amount\n}\n",
    // Clock is declared once per GOOS: the file that builds on linux answers, though it comes later.
    "money/clock_aix.go": "package money\n\n// Clock is AIX's.\ntype Clock struct{}\n",
    "money/clock_linux.go": "//go:build linux\n\npackage money\n\nimport \"time\"\n\n// Clock reads the time.\n" +
      "type Clock struct{ at time.Time }\n",
    "cart/cart.go": "package cart\n\nimport \"example.com/shop/money\"\n\n" +
      "type Cart struct {\n\ttotal money.Amount\n}\n\n" +
      "func (c *Cart) Put(x money.Amount) {\n\tc.total.Add(x)\n}\n",
    "web/app.ts": "export function app(): number {\n  return 1;\n}\n",
  });
  const db = join(scratch, "go.db");
  // Nothing of the user's shell changes how an analyzer runs or what it answers.
  const shell = { ...process.env, GOGC: "off", GOMAXPROCS: "1", GOFLAGS: "-mod=vendor", GOROOT: "/nonexistent",
                  GOPATH: "/nonexistent", GODEBUG: "gctrace=1", NODE_OPTIONS: "--require=/nonexistent/hook.js" };
  const run = runIndexer(indexer, root, db, { env: shell });
  assert.doesNotMatch(run.stderr, /analyzer failed/);
  await withServer(server, db, root, async (call) => {
    assert.deepEqual(await uses(call, "example.com/shop/money"), ["cart/cart.go:3"]);
    assert.deepEqual(await uses(call, "example.com/shop/money.Amount"),
                     ["cart/cart.go:6", "cart/cart.go:9", "money/money.go:7"]);  // not Double's parameter
    assert.deepEqual(await uses(call, "example.com/shop/money.Amount.Add"), ["cart/cart.go:10"]);
    const add = await call("symbol", { fqn: "example.com/shop/money.Amount.Add" });
    assert.deepEqual([add.signature, add.docstring], ["func (a *Amount) Add(b Amount)", "Add adds b."]);
    const clock = await call("symbol", { fqn: "example.com/shop/money.Clock" });
    assert.deepEqual([clock.file, clock.start_line], ["money/clock_linux.go", 8]);
  });
});

// The JavaScript/TypeScript analyzer is installed beside the indexer when the build had node and npm.
const typescript = existsSync(join(dirname(indexer), "typescript_analyzer", "node_modules", "typescript"));

test("TypeScript: a re-export through an index file, ES imports and exports, require, a method through a base " +
     "class, a shadowing parameter, overloads", { skip: !typescript }, () => indexed("ts", {
    "src/lib/base.ts": "export class Base {\n  run(): void {}\n}\n",
    "src/lib/index.ts": 'export * from "./base.js";\nexport { fmt as format } from "./over.js";\n',
    "src/lib/over.ts": "/** Formats a value. */\nexport function fmt(x: number): string;\nexport function fmt(x: string): string;\n" +
      "export function fmt(x: any): string {\n  return String(x);\n}\n",
    "src/app.ts": 'import { Base, format as show } from "./lib";\nclass App extends Base {\n  go() {\n    this.run();\n  }\n}\n' +
      "function other(Base: number) {\n  return Base;\n}\nshow(1);\n",
    "src/cjs/util.js": "function pad(s) {\n  return s;\n}\nmodule.exports = { pad };\n",
    "src/cjs/main.js": 'const { pad } = require("./util");\nconst util = require("./util.js");\npad("a");\nutil.pad("b");\n',
    "types/api.d.ts": "export declare class Api {\n  /** Gets by key. */\n  get(key: string): string;\n  get(): string[];\n}\n",
  }, async (call) => {
    assert.deepEqual(await uses(call, "src.lib.base.Base"), ["src/app.ts:1", "src/app.ts:2"]);
    assert.deepEqual(await uses(call, "src.lib.base.Base.run"), ["src/app.ts:4"]);
    assert.equal((await call("symbol", { fqn: "src.lib.base.Base.run" })).signature, "run(): void");
    assert.deepEqual(await uses(call, "src.lib.over.fmt"), ["src/app.ts:1", "src/app.ts:10", "src/lib/index.ts:2"]);
    assert.deepEqual(await uses(call, "src.cjs.util.pad"), [
      "src/cjs/main.js:1", "src/cjs/main.js:3", "src/cjs/main.js:4", "src/cjs/util.js:4"]);
    // Overloads: `symbol` answers the implementation, else the last
    // signature, with the family's doc; the file lists every one.
    const pick = ({ kind, start_line, docstring }) => ({ kind, start_line, docstring });
    assert.deepEqual(pick(await call("symbol", { fqn: "src.lib.over.fmt" })),
                     { kind: "function", start_line: 4, docstring: "Formats a value." });
    assert.deepEqual(pick(await call("symbol", { fqn: "types.api.Api.get" })),
                     { kind: "method", start_line: 4, docstring: "Gets by key." });
    assert.deepEqual((await call("file", { path: "src/lib/over.ts" })).symbols.map((s) => `${s.kind}:${s.line}`),
                     ["prototype:2", "prototype:3", "function:4"]);
  }));
