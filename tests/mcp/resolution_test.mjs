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
    "/// Wraps a value.\ntemplate <typename T,\n          typename U = int>\nstruct Box {\n  static int make();\n};\n" +
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
      ["Box", "Wraps a value."],              // over a template header of two lines
      ["Crate", "A crate."],                  // a plain /* */ block
    ];
    for (const [fqn, doc] of docs) {
      const found = (await call("symbol", { fqn })).docstring;
      if (found !== doc) wrong.push({ fqn, found, doc });
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
