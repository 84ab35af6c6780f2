#!/usr/bin/env node
// The oracle for JavaScript and TypeScript: the TypeScript compiler's
// language service (type checker included) over every JS/TS file of a tree.
// Reads {"root", "queries": [{file, line, column, name}], "outline_files"}
// on stdin; writes {"answers": [{definition, doc, references}], "outlines"}.
// Run `npm ci --ignore-scripts` in this folder first.
import { readdirSync, readFileSync, statSync } from "node:fs";
import { createRequire } from "node:module";
import { dirname, join, relative, sep } from "node:path";

const ts = (() => {
  try {
    return createRequire(import.meta.url)("typescript");
  } catch {
    const here = dirname(new URL(import.meta.url).pathname);
    process.stderr.write(`oracle_ts.mjs: no typescript: run npm ci --ignore-scripts in ${here}\n`);
    process.exit(2);
  }
})();

const kSources = /\.(d\.[cm]?ts|[cm]?tsx?|[cm]?jsx?)$/;

// sources: every JS/TS file under `root`, outside node_modules and dot folders.
function sources(root) {
  const found = [];
  const walk = (dir) => {
    for (const entry of readdirSync(dir, { withFileTypes: true })) {
      if (entry.name.startsWith(".") || entry.name === "node_modules") continue;
      const path = join(dir, entry.name);
      if (entry.isDirectory()) walk(path);
      else if (entry.isFile() && kSources.test(entry.name)) found.push(path);
    }
  };
  walk(root);
  return found.sort();
}

// The tree's files and TypeScript's own lib files are all it may read:
// bare package names resolve to nothing, as no node_modules is seen.
function languageService(root, files) {
  const libDir = dirname(ts.getDefaultLibFilePath({}));
  const inside = (p) => (p.startsWith(root + sep) && !p.slice(root.length).split(sep).includes("node_modules")) ||
    p.startsWith(libDir + sep);
  const isDir = (p) => {
    try {
      return inside(p + sep) && statSync(p).isDirectory();
    } catch {
      return false;
    }
  };
  const isFile = (p) => {
    try {
      return inside(p) && statSync(p).isFile();
    } catch {
      return false;
    }
  };
  const options = {
    allowJs: true,
    strict: true,
    checkJs: false,
    jsx: ts.JsxEmit.Preserve,
    module: ts.ModuleKind.ESNext,
    moduleResolution: ts.ModuleResolutionKind.Bundler,
    target: ts.ScriptTarget.ESNext,
    allowImportingTsExtensions: true,
    noEmit: true,
    types: [],
  };
  const texts = new Map();
  const read = (p) => {
    if (!texts.has(p)) texts.set(p, isFile(p) ? readFileSync(p, "utf8") : undefined);
    return texts.get(p);
  };
  const host = {
    getScriptFileNames: () => files,
    getScriptVersion: () => "1",
    getScriptSnapshot: (p) => {
      const text = read(p);
      return text === undefined ? undefined : ts.ScriptSnapshot.fromString(text);
    },
    getCurrentDirectory: () => root,
    getCompilationSettings: () => options,
    getDefaultLibFileName: (o) => ts.getDefaultLibFilePath(o),
    fileExists: isFile,
    readFile: read,
    directoryExists: isDir,
    getDirectories: (p) =>
      isDir(p) ? readdirSync(p, { withFileTypes: true }).filter((e) => e.isDirectory()).map((e) => e.name) : [],
    realpath: (p) => p,
  };
  return ts.createLanguageService(host, ts.createDocumentRegistry());
}

function main() {
  const request = JSON.parse(readFileSync(0, "utf8"));
  const root = request.root.replace(/\/+$/, "");
  const files = sources(root);
  const service = languageService(root, files);
  const program = service.getProgram();
  const rel = (p) => relative(root, p).split(sep).join("/");
  const lineOf = (file, pos) => program.getSourceFile(file).getLineAndCharacterOfPosition(pos).line + 1;

  // position: where the query's name is on its line: at its column, else
  // its first whole-word occurrence on the line.
  const position = (sf, q) => {
    const starts = sf.getLineStarts();
    if (q.line < 1 || q.line > starts.length) return -1;
    const start = starts[q.line - 1];
    const end = q.line < starts.length ? starts[q.line] : sf.text.length;
    const text = sf.text.slice(start, end);
    if (text.startsWith(q.name, q.column)) return start + q.column;
    const word = new RegExp(`(?<![\\w$])${q.name.replace(/[$.*+?^(){}|[\]\\]/g, "\\$&")}(?![\\w$])`);
    const m = word.exec(text);
    return m ? start + m.index : -1;
  };

  const answer = (q) => {
    const file = join(root, q.file);
    const sf = program.getSourceFile(file);
    const none = { definition: null, doc: null, references: [] };
    if (!sf) return none;
    const pos = position(sf, q);
    if (pos < 0) return none;
    const definitions = service.getDefinitionAtPosition(file, pos) ?? [];
    // A property written `{ x }` is also a use of the variable x; its own uses are asked for.
    const shorthand = ts.isShorthandPropertyAssignment(ts.getTokenAtPosition(sf, pos).parent);
    // The implementation among overloads, else the first declaration; a
    // `{ x }` property is defined where it is written (the service goes to
    // the variable x).
    const main = shorthand ? { fileName: file, textSpan: { start: pos } }
      : definitions.find((d) => isImplementation(program, d)) ?? definitions[0];
    const span = (d) => d.contextSpan ?? d.textSpan;
    // Its docs: the documentation the service shows, when the declaration
    // itself has a doc comment (not one it inherits).
    const info = main && ownDoc(program, main)
      ? service.getQuickInfoAtPosition(main.fileName, main.textSpan.start) : null;
    const doc = info?.documentation?.length ? ts.displayPartsToString(info.documentation) : null;
    // The uses of the name: from each of its declarations, as the service
    // finds only the uses of the declaration's meaning (a type or a value)
    // where an interface and a const share a name.
    const references = new Set();
    const from = [{ fileName: file, textSpan: { start: pos } }, ...definitions];
    for (const d of from) {
      for (const group of service.findReferences(d.fileName, d.textSpan.start) ?? []) {
        if (!related(group, d.fileName, d.textSpan.start, shorthand)) continue;
        for (const r of group.references) {
          if (r.isDefinition || !r.fileName.startsWith(root + sep)) continue;
          references.add(`${rel(r.fileName)}\n${lineOf(r.fileName, r.textSpan.start)}`);
        }
      }
    }
    return {
      definition: main ? { file: rel(main.fileName), line: lineOf(main.fileName, span(main).start) } : null,
      doc,
      references: [...references].map((k) => k.split("\n")).map(([f, l]) => [f, Number(l)]),
    };
  };

  const outlines = {};
  for (const f of request.outline_files ?? []) {
    const file = join(root, f);
    if (!program.getSourceFile(file)) continue;
    outlines[f] = outline(service.getNavigationTree(file), program.getSourceFile(file), program.getTypeChecker());
  }
  process.stdout.write(JSON.stringify({ answers: request.queries.map(answer), outlines }) + "\n");
}

// declarationAt: the declaration whose name a definition's span starts at.
function declarationAt(program, d) {
  const token = ts.getTokenAtPosition(program.getSourceFile(d.fileName), d.textSpan.start);
  return token.parent ?? token;
}

// ownDoc: whether a definition's declaration has a doc comment of its own.
function ownDoc(program, d) {
  return ts.getJSDocCommentsAndTags(declarationAt(program, d)).some((c) => ts.isJSDoc(c));
}

// isImplementation: a function-like declaration with a body.
function isImplementation(program, d) {
  const sf = program.getSourceFile(d.fileName);
  let node = ts.getTokenAtPosition(sf, d.textSpan.start);
  while (node && !ts.isFunctionLike(node) && !ts.isSourceFile(node)) node = node.parent;
  return !!node && ts.isFunctionLike(node) && "body" in node && !!node.body;
}

// related: whether a group of findReferences is the queried symbol's own
// (it holds the queried declaration) or an alias of it (an import or export
// under another name; not for a `{ x }` property: the service answers x's
// uses there, and an x that is imported is an alias), rather than a member that the queried one overrides
// or implements, or is overridden by.
function related(group, file, pos, shorthand) {
  if (group.definition.kind === ts.ScriptElementKind.alias) return !shorthand;
  return group.references.some((r) => r.isDefinition && r.fileName === file && r.textSpan.start <= pos &&
                                      pos <= r.textSpan.start + r.textSpan.length);
}

// outline: the definitions of a file's navigation tree, as [name, line]:
// those that a name reaches. Left out: what has no name (callbacks),
// imports, locals (in a function's body), call, construct and index signatures, `export =`, `declare
// global`, and the keys of an object that is not the value of a variable,
// a property or a default export, or that has an expected type (its keys
// are then uses of that type's members: the language service goes from
// them to the type's declarations).
const kLeftOut = new Set([ts.ScriptElementKind.alias, "call", "construct", "index"]);
function outline(tree, sf, checker) {
  const found = [];
  const visit = (item) => {
    for (const child of item.childItems ?? []) {
      if (kLeftOut.has(child.kind) || child.text === "export=" || (child.kind === "module" && child.text === "global"))
        continue;
      const line = sf.getLineAndCharacterOfPosition(child.spans[0].start).line + 1;
      if (child.nameSpan && reached(ts.getTokenAtPosition(sf, child.nameSpan.start), checker)) {
        // A quoted name is read without its quotes; `namespace A.B` defines A and B.
        const quoted = /^(["']).*\1$/.test(child.text);
        const names = quoted ? [child.text.slice(1, -1)]
          : child.kind === "module" ? child.text.split(".") : [child.text];
        for (const name of names) found.push([name, line, child.kind]);
      }
      visit(child);
    }
  };
  visit(tree);
  return found;
}

// reached: whether the declaration named by `token` is one a name reaches.
function reached(token, checker) {
  const decl = token.parent;
  if (!decl || decl.name !== token) return false;
  if (ts.isParameter(decl)) return ts.isParameterPropertyDeclaration(decl, decl.parent);
  for (let n = decl; n && !ts.isSourceFile(n); n = n.parent) {
    const up = n.parent;
    if (n !== decl && (ts.isFunctionLike(n) || ts.isClassStaticBlockDeclaration(n))) return false;
    if (ts.isObjectLiteralExpression(up) && !ts.isObjectLiteralExpression(n)) {
      if (checker.getContextualType(up)) return false;
      let holder = up.parent;
      while (ts.isParenthesizedExpression(holder) || ts.isAsExpression(holder)) holder = holder.parent;
      if (!(ts.isVariableDeclaration(holder) || ts.isPropertyDeclaration(holder) || ts.isExportAssignment(holder) ||
            ts.isPropertyAssignment(holder)))
        return false;
    }
  }
  return true;
}

main();
