// Module names and module specifiers: which file of the tree an import
// names, as TypeScript resolves a relative specifier.
import { posix } from "node:path";

// The extensions taken, declaration files first so that "a.d.ts" is not read as "a.d".
const kExtensions = [".d.ts", ".d.mts", ".d.cts", ".ts", ".tsx", ".mts", ".cts", ".js", ".jsx", ".mjs", ".cjs"];

/** extensionOf: the file's JavaScript or TypeScript extension, or null. */
export function extensionOf(path) {
  return kExtensions.find((e) => path.endsWith(e) && path.length > e.length && !path.endsWith("/" + e)) ?? null;
}

/**
 * moduleName: the dotted module path symbols of the file are named under:
 * the path without its extension, "/" read as ".". An index file keeps its
 * name ("src/server/index.ts" is "src.server.index"): the path names one
 * file, where "src.server" would name both it and a sibling "src/server.ts".
 * A declaration file is named as the module it declares ("a.d.ts" as "a").
 */
export function moduleName(path) {
  const ext = extensionOf(path);
  return (ext ? path.slice(0, -ext.length) : path).split("/").join(".");
}

// What a specifier with each extension may name, in TypeScript's order:
// the TypeScript source first, then declarations, then the file itself.
const kForJs = {
  ".js": [".ts", ".tsx", ".d.ts", ".js", ".jsx"],
  ".jsx": [".tsx", ".ts", ".d.ts", ".jsx", ".js"],
  ".mjs": [".mts", ".d.mts", ".mjs"],
  ".cjs": [".cts", ".d.cts", ".cjs"],
};
const kBare = [".ts", ".tsx", ".d.ts", ".js", ".jsx"];

/**
 * resolveSpecifier: the path of the tree's file that `specifier`, written
 * in the file at `from`, names, or null (no such file in the tree). `has`
 * tells whether a path is one of the tree's files. A package name names a
 * package of the tree: in a node_modules folder around the file, or its
 * declarations in node_modules/@types, by its index file when it is a
 * folder (what its package.json says is not handed over).
 */
export function resolveSpecifier(from, specifier, has) {
  const relative = specifier.startsWith("./") || specifier.startsWith("../") || specifier === "." || specifier === "..";
  if (relative) {
    const target = posix.normalize(posix.join(posix.dirname(from), specifier));
    return target.startsWith("../") || target === ".." ? null : fileAt(target === "." ? "" : target, has);
  }
  if (!/^(@[\w.-]+\/)?[\w.-]+(\/[\w.-]+)*$/.test(specifier)) return null;  // node:fs, /abs, a URL
  const types = specifier.replace(/^@([\w.-]+)\/([\w.-]+)/, "$1__$2");
  for (let dir = posix.dirname(from); ; dir = posix.dirname(dir)) {
    const at = dir === "." ? "" : `${dir}/`;
    const found = fileAt(`${at}node_modules/${specifier}`, has) ?? fileAt(`${at}node_modules/@types/${types}`, has);
    if (found || dir === "." || dir === "/") return found;
  }
}

// fileAt: the file a specifier's path names: itself, with an extension, or its folder's index file.
function fileAt(base, has) {
  for (const [ext, tries] of Object.entries(kForJs)) {
    if (!base.endsWith(ext)) continue;
    const stem = base.slice(0, -ext.length);
    for (const e of tries) if (has(stem + e)) return stem + e;
  }
  if (extensionOf(base) && has(base)) return base;
  for (const e of kBare) if (has(base + e)) return base + e;
  const index = base === "" ? "index" : `${base}/index`;
  for (const e of kBare) if (has(index + e)) return index + e;
  return null;
}
