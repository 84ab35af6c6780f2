// What a definition says of itself: its JSDoc, cleaned, and its signature
// in TypeScript's own form, both taken from the source as written.
import ts from "./ts.mjs";

/**
 * docOf: the JSDoc comment right before the declaration (before its
 * statement, for a variable), without the comment's markers and common
 * indentation; null when it has none or it is empty.
 */
export function docOf(node, sf) {
  const holder = ts.isVariableDeclaration(node) && node.parent.declarations.length === 1 ? node.parent.parent : node;
  const docs = holder.jsDoc;
  if (!docs?.length) return null;
  const last = docs[docs.length - 1];
  return cleanComment(sf.text.slice(last.pos, last.end));
}

/** cleanComment: a `/** ... *\/` comment's text, as Python's inspect.cleandoc leaves a docstring. */
export function cleanComment(comment) {
  const body = comment.replace(/^\/\*\*/, "").replace(/\*\/$/, "");
  const lines = body.split(/\r\n|\r|\n/).map((line, i) => (i === 0 ? line : line.replace(/^\s*\*(?!\/)/, "")));
  lines[0] = lines[0].trim();
  const indents = lines.slice(1).filter((l) => l.trim()).map((l) => l.length - l.trimStart().length);
  const common = indents.length ? Math.min(...indents) : 0;
  const cleaned = [lines[0], ...lines.slice(1).map((l) => l.slice(common).trimEnd())];
  while (cleaned.length && !cleaned[0].trim()) cleaned.shift();
  while (cleaned.length && !cleaned[cleaned.length - 1].trim()) cleaned.pop();
  return cleaned.length ? cleaned.join("\n") : null;
}

// The source of a node with each run of white space read as one space.
const flat = (node, sf) => (node ? node.getText(sf).replace(/\s+/g, " ") : "");
const typeParameters = (node, sf) =>
  node.typeParameters?.length ? `<${node.typeParameters.map((t) => flat(t, sf)).join(", ")}>` : "";
const heritage = (node, sf) => (node.heritageClauses ?? []).map((h) => " " + flat(h, sf)).join("");

// Type aliases and initializers are cut at this length.
const kLongest = 200;
const cut = (text) => (text.length > kLongest ? text.slice(0, kLongest - 3) + "..." : text);

/** callSignature: "name<T>(a: A, b?: B): R" as written, for a function-like node. */
export function callSignature(name, node, sf) {
  const params = node.parameters.map((p) => flat(p, sf)).join(", ");
  return `${name}${typeParameters(node, sf)}(${params})${node.type ? ": " + flat(node.type, sf) : ""}`;
}

/** signatureOf: the declaration as TypeScript writes it, without its body; null for a plain value without a type. */
export function signatureOf(node, name, sf) {
  switch (node.kind) {
    case ts.SyntaxKind.FunctionDeclaration:
    case ts.SyntaxKind.MethodDeclaration:
    case ts.SyntaxKind.MethodSignature:
      return callSignature(name, node, sf);
    case ts.SyntaxKind.Constructor:
      return callSignature("constructor", node, sf);
    case ts.SyntaxKind.GetAccessor:
      return "get " + callSignature(name, node, sf);
    case ts.SyntaxKind.SetAccessor:
      return "set " + callSignature(name, node, sf);
    case ts.SyntaxKind.ClassDeclaration:
    case ts.SyntaxKind.ClassExpression:
      return `class ${name}${typeParameters(node, sf)}${heritage(node, sf)}`;
    case ts.SyntaxKind.InterfaceDeclaration:
      return `interface ${name}${typeParameters(node, sf)}${heritage(node, sf)}`;
    case ts.SyntaxKind.TypeAliasDeclaration:
      return cut(`type ${name}${typeParameters(node, sf)} = ${flat(node.type, sf)}`);
    case ts.SyntaxKind.EnumDeclaration:
      return `${ts.getCombinedModifierFlags(node) & ts.ModifierFlags.Const ? "const " : ""}enum ${name}`;
    case ts.SyntaxKind.ModuleDeclaration:
      return `namespace ${name}`;
    case ts.SyntaxKind.VariableDeclaration:
    case ts.SyntaxKind.PropertyDeclaration:
    case ts.SyntaxKind.PropertySignature:
    case ts.SyntaxKind.Parameter: {
      const init = node.initializer && skipParens(node.initializer);
      if (!node.type && init && (ts.isArrowFunction(init) || ts.isFunctionExpression(init)))
        return callSignature(name, init, sf);
      const optional = node.questionToken ? "?" : "";
      return node.type ? `${name}${optional}: ${cut(flat(node.type, sf))}` : null;
    }
    default:
      return null;
  }
}

/** skipParens: the expression inside any parentheses and type assertions. */
export function skipParens(node) {
  while (
    ts.isParenthesizedExpression(node) ||
    ts.isAsExpression(node) ||
    ts.isSatisfiesExpression(node) ||
    ts.isNonNullExpression(node) ||
    ts.isTypeAssertionExpression(node)
  )
    node = node.expression;
  return node;
}
