// The wiki of an indexed work tree through the official MCP client, under a
// small --budget: a page longer than the budget comes in parts that end
// where sections start and chain to its end, each citation once; the ask
// leaves stop words out, ranks a heading over a body that only mentions
// the words, and under a budget too small for any section names the best.
//   node wiki_test.mjs INDEXER SERVER
import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import test from "node:test";

import { connect, text } from "./client.mjs";
import { makeTree, runIndexer } from "./trees.mjs";

const [indexer, server] = process.argv.slice(2);
const scratch = mkdtempSync(join(tmpdir(), "kestrune-wiki-test-"));
test.after(() => rmSync(scratch, { recursive: true, force: true }));

const budget = 900;
const words = (n, seed) => Array.from({ length: n }, (_, i) => `${seed}${i % 7} word${(i * 13) % 31}`).join(" ");
// A guide whose sections cite code, one of them longer than the budget, and
// a second page with a setext heading.
const guide = [
  "# Guide", "", "The guide of `shop/cart.py`.", "",
  "## Installing", "", words(40, "setup"), "", "See `shop/cart.py` and `shop/pricing.py`.", "",
  "## Registering a command", "", "Call register with the command's name.", "", "`shop/pricing.py`", "",
  "## Everything else", "", ...Array.from({ length: 12 }, (_, i) => words(25, `line${i}x`)), "",
  "## Last words", "", "The end of the guide, citing `shop/stock.py`.", "",
].join("\n");
const files = {
  "shop/cart.py": "def total():\n    return 1\n",
  "shop/pricing.py": "def price():\n    return 2\n",
  "shop/stock.py": "def reserve():\n    return 3\n",
  "docs/guide.md": guide,
  "docs/faq.md": "FAQ\n===\n\nHow do I do it? Ask how, and how again: how do I get help with a command?\n",
};

async function session(body) {
  const repo = makeTree(join(scratch, "repo"), files);
  const db = join(scratch, "wiki.db");
  runIndexer(indexer, repo, db, { args: ["--python", ""] });
  const client = await connect(server, ["--db", db, "--root", repo, "--budget", String(budget)]);
  try {
    await body(async (args) => {
      const answer = text(await client.callTool({ name: "wiki", arguments: args }));
      assert.ok(Buffer.byteLength(answer) <= budget, answer);
      return JSON.parse(answer);
    });
  } finally {
    await client.close();
  }
}

test("a page longer than the budget is read in parts that chain to its end", () =>
  session(async (wiki) => {
    const parts = [];
    const cited = [];
    const offsets = new Set();
    for (let args = {}; args !== undefined; ) {
      assert.ok(parts.length < 100, "the parts end");
      const part = await wiki({ action: "read", page_id: "docs-guide", ...args });
      assert.deepEqual(Object.keys(part), ["page_id", "title", "content", "citations", "source_files", "related_pages"]);
      const way = /\n\n\((?:The page goes on with "([^"]*)": call again with offset=(\d+)|The section goes on: call again with offset=(\d+)|The page's end)\.\)$/
        .exec(part.content);
      assert.ok(way, part.content);
      const content = part.content.slice(0, way.index);
      parts.push({ content, next: way[1] });
      cited.push(...part.citations.map((c) => c.path));
      const offset = way[2] ?? way[3];
      assert.ok(offset === undefined || !offsets.has(offset), `offset ${offset} again`);
      offsets.add(offset);
      args = offset === undefined ? undefined : { offset: Number(offset) };
    }
    assert.equal(parts.map((p) => p.content).join(""), guide.trim());
    // A part that names the next section ends where it starts.
    parts.forEach((p, i) => {
      if (p.next !== undefined) assert.ok(parts[i + 1].content.startsWith(`## ${p.next}\n`), parts[i + 1].content);
    });
    assert.ok(parts.filter((p) => p.next === undefined).length > 2, "the long section is cut in parts");
    assert.deepEqual(cited, ["shop/cart.py", "shop/pricing.py", "shop/stock.py"]);
  }));

test("the ask: stop words, headings, and a budget too small for any section", () =>
  session(async (wiki) => {
    const noWord = await wiki({ action: "ask", query: "How do I do it?" });
    assert.deepEqual(noWord.sections, []);
    assert.match(noWord.note, /^The question has no word to search for/);
    // "how", "do" and "I" fill the FAQ; the heading holds the words asked for.
    const best = await wiki({ action: "ask", query: "How do I register a command?" });
    assert.equal(best.sections[0].heading, "Registering a command");
    assert.equal(best.note, "No answer model is configured: these are the wiki sections that match, best first.");
    const small = await wiki({ action: "ask", query: "How do I register a command?", token_budget: 60 });
    assert.deepEqual(small.sections, []);
    assert.equal(small.note, "No answer model is configured, and the token budget is too small for any section " +
      'that matches. The best: "Registering a command" (page "docs-guide"), "FAQ" (page "docs-faq"). Read one ' +
      'with the action "read", or ask again with a larger token_budget.');
    // A question longer than the budget: its echo and the note are cut, and
    // the answer fits (session() checks every answer's size).
    const long = await wiki({ action: "ask", query: "register a command " + "and more ".repeat(200) });
    assert.ok(long.query.startsWith("register a command and more") && long.query.endsWith("…"), long.query);
    assert.match(long.note, /^No answer model is configured/);
    const some = await wiki({ action: "ask", query: "How do I register a command?", token_budget: 200 });
    assert.equal(some.sections.length, 1);
    assert.match(some.note, /^No answer model is configured: the token budget holds the best 1 of the 2 sections/);
  }));
