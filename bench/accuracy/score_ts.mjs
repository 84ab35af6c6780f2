#!/usr/bin/env node
// The JavaScript/TypeScript analyzer's answers on a tree against the
// TypeScript language service (oracle_ts.mjs): precision and recall of
// references over distinct (file, line) pairs, the definition and docs that
// `symbol` answers (the first definition of the fqn), and outline coverage,
// for a sample of symbols.
//   node score_ts.mjs --tree PATH [--analyzer PATH] [--sample 50] [--top 20] [--seed 1] [--show N]
// (the analyzer: as the build installs it, by default the release preset's)
// The most used symbols are those the analyzer finds most references to.
// The uses of an fqn are those of every definition with it (a .js file and
// its .d.ts declare one module): the oracle is asked about each.
import { spawnSync } from "node:child_process";
import { readdirSync, readFileSync } from "node:fs";
import { dirname, join, relative, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
const args = {
  analyzer: join(here, "../../build/release/examples/indexer/typescript_analyzer/analyzer.mjs"),
  sample: 50, top: 20, seed: 1, show: 0,
};
for (let i = 2; i < process.argv.length; i += 2) args[process.argv[i].replace(/^--/, "")] = process.argv[i + 1];
const root = resolve(args.tree);
const kSources = /\.(d\.[cm]?ts|[cm]?tsx?|[cm]?jsx?)$/;

function sources(dir, found = []) {
  for (const e of readdirSync(dir, { withFileTypes: true })) {
    if (e.name.startsWith(".") || e.name === "node_modules") continue;
    const p = join(dir, e.name);
    if (e.isDirectory()) sources(p, found);
    else if (e.isFile() && kSources.test(e.name)) found.push(relative(root, p));
  }
  return found.sort();
}

// timed: a program run with `input` on standard input, its output and seconds.
function timed(argv, input, cwd) {
  const started = process.hrtime.bigint();
  const run = spawnSync(process.execPath, argv, { input, cwd, maxBuffer: 1 << 30 });
  if (run.status !== 0) throw new Error(`${argv[0]} failed: ${run.stderr}`);
  return { output: run.stdout.toString(), seconds: Number(process.hrtime.bigint() - started) / 1e9 };
}

// analyzed: the analyzer's answers, run as the indexer runs it.
function analyzed(paths) {
  const parts = [];
  for (const p of paths) {
    const bytes = readFileSync(join(root, p));
    parts.push(Buffer.from(JSON.stringify({ command: "file", path: p, size: bytes.length }) + "\n"), bytes);
  }
  parts.push(Buffer.from('{"command":"analyze"}\n'));
  const { output, seconds } = timed([resolve(args.analyzer)], Buffer.concat(parts), "/");
  const answers = output.split("\n").filter(Boolean).map((l) => JSON.parse(l)).filter((a) => a._type === "file");
  return { answers, seconds };
}

// A seeded shuffle, so that a sample can be drawn again.
function shuffled(items, seed) {
  let s = seed >>> 0 || 1;
  const next = () => (s = (Math.imul(s, 1103515245) + 12345) >>> 0) / 2 ** 32;
  const out = [...items];
  for (let i = out.length - 1; i > 0; --i) {
    const j = Math.floor(next() * (i + 1));
    [out[i], out[j]] = [out[j], out[i]];
  }
  return out;
}

// located: the query for a definition: its name's line and column, on the
// first of its lines that has the name as a word.
function located(sym, texts) {
  const lines = texts.get(sym.file);
  const word = new RegExp(`(?<![\\w$#])${sym.name.replace(/[$.*+?^(){}|[\]\\]/g, "\\$&")}(?![\\w$])`);
  for (let l = sym.line; l <= Math.max(sym.line, sym.end) && l <= lines.length; ++l) {
    const m = word.exec(lines[l - 1]);
    if (m) return { file: sym.file, line: l, column: m.index, name: sym.name };
  }
  return { file: sym.file, line: sym.line, column: 0, name: sym.name };
}

const norm = (text) => (text ?? "").replace(/\s+/g, " ").trim();
const few = (keys) => keys.slice(0, 6).join(" ") + (keys.length > 6 ? ` ...${keys.length}` : "");

// Score: one group of sampled symbols against the oracle's answers.
function score(label, group, index) {
  let hit = 0, found = 0, expected = 0, defs = 0, docs = 0, documented = 0;
  const notes = [];
  for (const { sym, query, answer } of group) {
    const own = `${query.file}:${query.line}`;
    const got = new Set([...(index.refsOf.get(sym.fqn) ?? [])].filter((k) => k !== own));
    const want = new Set(answer.references.map(([f, l]) => `${f}:${l}`).filter((k) => k !== own));
    const right = [...got].filter((k) => want.has(k));
    hit += right.length;
    found += got.size;
    expected += want.size;
    const first = index.firstOf.get(sym.fqn);
    const at = answer.definition;
    if (at && at.file === first.file && at.line === first.line) ++defs;
    else notes.push(`  definition ${sym.fqn}: index ${first.file}:${first.line}, oracle ${at?.file}:${at?.line}`);
    if (answer.doc) {
      ++documented;
      if (norm(first.doc).startsWith(norm(answer.doc))) ++docs;
      else notes.push(`  doc ${sym.fqn}: index ${JSON.stringify(first.doc)}, oracle ${JSON.stringify(answer.doc)}`);
    }
    const extra = [...got].filter((k) => !want.has(k));
    const missed = [...want].filter((k) => !got.has(k));
    if (extra.length || missed.length)
      notes.push(`  refs ${sym.fqn} (${own}): ${right.length} right, extra ${few(extra)}; missed ${few(missed)}`);
  }
  const ratio = (a, b) => (b ? (a / b).toFixed(3) : "-");
  console.log(`${label}: ${group.length} symbols, references precision ${ratio(hit, found)} (${hit}/${found}), ` +
              `recall ${ratio(hit, expected)} (${hit}/${expected}); definition ${defs}/${group.length}; ` +
              `docs ${docs}/${documented}`);
  return notes;
}

function main() {
  const paths = sources(root);
  const { answers, seconds } = analyzed(paths);
  const symbols = answers.flatMap((a) => a.symbols.map((s) => ({ ...s, file: a.path })));
  const index = { refsOf: new Map(), firstOf: new Map() };
  for (const a of answers) {
    for (const r of a.references) {
      if (!index.refsOf.has(r.fqn)) index.refsOf.set(r.fqn, new Set());
      index.refsOf.get(r.fqn).add(`${a.path}:${r.line}`);
    }
  }
  for (const s of symbols) if (!index.firstOf.has(s.fqn)) index.firstOf.set(s.fqn, s);
  const distinct = [...index.firstOf.values()];
  const random = shuffled(distinct, Number(args.seed)).slice(0, Number(args.sample));
  const uses = (s) => index.refsOf.get(s.fqn)?.size ?? 0;
  const top = distinct.filter((s) => !random.includes(s)).sort((a, b) => uses(b) - uses(a)).slice(0, Number(args.top));
  const sample = [...random, ...top];

  const texts = new Map(paths.map((p) => [p, readFileSync(join(root, p), "utf8").split(/\r\n|\r|\n/)]));
  const queries = sample.map((s) => located(s, texts));
  const others = sample.flatMap((s, i) =>
    symbols.filter((o) => o.fqn === s.fqn && o.file !== s.file).map((o) => ({ of: i, query: located(o, texts) })));
  const files = [...new Set(sample.map((s) => s.file))];
  const request = { root, queries: [...queries, ...others.map((o) => o.query)], outline_files: files };
  const oracle = timed([join(here, "oracle_ts.mjs")], JSON.stringify(request));
  const told = JSON.parse(oracle.output);
  others.forEach((o, k) => {
    const own = `${o.query.file}:${o.query.line}`;
    const more = told.answers[queries.length + k].references.filter(([f, l]) => `${f}:${l}` !== own);
    told.answers[o.of].references.push(...more);
  });

  console.log(`${root}: ${paths.length} files, ${symbols.length} symbols; ` +
              `analyzer ${seconds.toFixed(2)} s, oracle ${oracle.seconds.toFixed(1)} s`);
  const scored = sample.map((sym, i) => ({ sym, query: queries[i], answer: told.answers[i] }));
  const notes = score("all", scored, index);
  score("random", scored.slice(0, random.length), index);
  score("most used", scored.slice(random.length), index);

  let listed = 0, shown = 0;
  for (const [file, entries] of Object.entries(told.outlines)) {
    const rows = symbols.filter((s) => s.file === file);
    for (const [name, line] of entries) {
      ++listed;
      if (rows.some((r) => r.name === name && r.line <= line && line <= Math.max(r.line, r.end))) ++shown;
      else notes.push(`  outline ${file}:${line} ${name}`);
    }
  }
  console.log(`outlines: ${shown}/${listed} of the oracle's definitions in ${files.length} files`);
  for (const note of notes.slice(0, Number(args.show))) console.log(note);
}

main();
