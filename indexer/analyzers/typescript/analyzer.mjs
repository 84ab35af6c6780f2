// The JavaScript and TypeScript analyzer of kestrune-index (see ../README.md):
// reads the files it is handed on standard input, parses each with the
// TypeScript compiler's parser (no type checker), and answers each file's
// symbols and the uses in it of the symbols of all of them.
import { realpathSync } from "node:fs";
import { pathToFileURL } from "node:url";

import ts from "./ts.mjs";

import { bindFile } from "./binder.mjs";
import { Scope } from "./scopes.mjs";
import { extensionOf, moduleName } from "./modules.mjs";
import { references } from "./references.mjs";
import { Resolver } from "./resolver.mjs";

const kScriptKinds = {
  ".tsx": ts.ScriptKind.TSX, ".js": ts.ScriptKind.JS, ".mjs": ts.ScriptKind.JS, ".cjs": ts.ScriptKind.JS,
  ".jsx": ts.ScriptKind.JSX,
};

// why: an exception as the one line an answer's error holds.
const why = (e) => (e instanceof RangeError ? "nested too deeply to read" : String(e?.message ?? e).split("\n")[0]);

/** parse: one handed file, parsed; `error` says why it does not parse, if it does not. */
function parse(path, bytes) {
  const text = new TextDecoder("utf-8").decode(bytes);
  const file = { path, module: moduleName(path), error: null, sf: null };
  try {
    const kind = kScriptKinds[extensionOf(path)] ?? ts.ScriptKind.TS;
    file.sf = ts.createSourceFile(path, text, ts.ScriptTarget.Latest, true, kind);
    const first = file.sf.parseDiagnostics?.[0];
    if (first) {
      const line = file.sf.getLineAndCharacterOfPosition(first.start).line + 1;
      file.error = `line ${line}: ${ts.flattenDiagnosticMessageText(first.messageText, " ")}`;
    }
  } catch (e) {
    file.error = why(e);
    file.sf = null;
  }
  return file;
}

// exported: whether a symbol is exported from its module: by itself (an
// export, a public member) and through each container around it.
function exported(record) {
  const own = record.own || (record.container === null && record.sym.listed);
  return own && (record.container === null || exported(record.container));
}

/** analyze: the answer for each handed file, in the order handed. */
export function analyze(handed) {
  const files = new Map();
  const parsed = handed.map(({ path, bytes }) => {
    const file = parse(path, bytes);
    if (file.sf) files.set(path, file);
    return file;
  });
  const global = new Scope(null, null);
  const ambient = new Map();
  for (const file of files.values()) {
    try {
      bindFile(file, global, ambient);
    } catch (e) {
      file.error ??= why(e);
      files.delete(file.path);
    }
  }
  const resolver = new Resolver(files, global, ambient);
  resolver.augment();
  return parsed.map((file) => {
    const answer = {
      _type: "file", path: file.path, module: file.module, error: file.error, symbols: [], references: [],
    };
    if (!files.has(file.path) || files.get(file.path) !== file) return answer;
    try {
      answer.references = references(file, resolver);
    } catch (e) {
      answer.error ??= why(e);
    }
    answer.symbols = file.records.map((r) => ({
      fqn: r.sym.fqn, name: r.sym.name, kind: r.kind, line: r.line, end: r.end, signature: r.signature, doc: r.doc,
      export: exported(r),
    }));
    return answer;
  });
}

// main: the conversation on standard input and output: the files, each a
// header line and its bytes, then "analyze"; a line that is not a command
// is passed over.
async function main() {
  const handed = [];
  let buffer = Buffer.alloc(0);
  let need = null;  // { path, size }: the file whose bytes come next
  for await (const chunk of process.stdin) {
    buffer = buffer.length ? Buffer.concat([buffer, chunk]) : chunk;
    for (;;) {
      if (need) {
        if (buffer.length < need.size) break;
        if (need.path !== "") handed.push({ path: need.path, bytes: buffer.subarray(0, need.size) });
        buffer = buffer.subarray(need.size);
        need = null;
        continue;
      }
      const newline = buffer.indexOf(10);
      if (newline < 0) break;
      const line = buffer.subarray(0, newline).toString("utf8");
      buffer = buffer.subarray(newline + 1);
      let command = null;
      try {
        command = JSON.parse(line);
      } catch {
        continue;
      }
      if (command?.command === "analyze") {
        for (const answer of analyze(handed)) process.stdout.write(JSON.stringify(answer) + "\n");
        process.stdout.write('{"_type":"completed"}\n');
        return;
      }
      if (command?.command === "file") {
        const size = Number.isSafeInteger(command.size) && command.size > 0 ? command.size : 0;
        need = { path: typeof command.path === "string" ? command.path : "", size };
      }
    }
  }
}

if (process.argv[1] && import.meta.url === pathToFileURL(realpathSync(process.argv[1])).href) await main();
