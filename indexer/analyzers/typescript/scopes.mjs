// The names a file binds and what they stand for: scopes, definitions
// (Sym), locals, imports; shared by the binder, which makes them, and the
// resolver, which follows them.
import ts from "./ts.mjs";

const K = ts.SyntaxKind;

// What a name means where it is bound: a value, a type, a namespace (the
// left side of `A.B` in a type). A name may mean several, each bound to its
// own target (an interface and a const of one name).
export const VALUE = "value";
export const TYPE = "type";
export const NS = "ns";
export const ALL = [VALUE, TYPE, NS];

/** Scope: the names bound in a file, a block, a function, a class or a namespace. */
export class Scope {
  constructor(parent, node) {
    this.parent = parent;
    this.node = node;
    this.names = new Map();  // name -> { value, type, ns }: the target of each meaning
    this.syms = new Map();  // name -> Sym: the definitions made here, merged by name
  }

  bind(name, meanings, target) {
    let binding = this.names.get(name);
    if (!binding) this.names.set(name, (binding = {}));
    for (const m of meanings) binding[m] ??= target;
  }

  /** lookup: what `name` means here: its binding in the innermost scope that binds it with this meaning. */
  lookup(name, meaning) {
    for (let s = this; s; s = s.parent) {
      const target = s.names.get(name)?.[meaning];
      if (target) return target;
    }
    return null;
  }
}

/**
 * Sym: a definition of the tree, reported as a symbol: every declaration of
 * one name in one place (overloads, an interface and a const, a class and a
 * namespace) with the members they declare.
 */
export class Sym {
  constructor(fqn, name, file) {
    this.fqn = fqn;
    this.name = name;
    this.file = file;
    this.nodes = [];
    this.instance = new Map();  // name -> Sym: members of its instances (class, interface, object type)
    this.statics = new Map();  // name -> Sym: members of the value itself (static, enum member, namespace export)
    this.listed = false;  // exported by name (`export { X }`)
  }
}

/** A binding that is no definition of the tree: a parameter, a local, a type parameter. */
export class Local {
  constructor(node, scope, type = null, init = null) {
    this.node = node;
    this.scope = scope;
    this.type = type;  // its annotation
    this.init = init;  // its initializer
  }
}

/** An imported name: `name` exported by the module `specifier` ("*": the module; "=": what `require` returns). */
export class Import {
  constructor(file, specifier, name) {
    this.file = file;
    this.specifier = specifier;
    this.name = name;
  }
}

/** A name for a qualified name (`import X = A.B`). */
export class Alias {
  constructor(entity, scope) {
    this.entity = entity;
    this.scope = scope;
  }
}

export const kFunctionLike = new Set([
  K.FunctionDeclaration, K.FunctionExpression, K.ArrowFunction, K.MethodDeclaration, K.Constructor,
  K.GetAccessor, K.SetAccessor, K.MethodSignature, K.CallSignature, K.ConstructSignature, K.FunctionType,
  K.ConstructorType, K.IndexSignature,
]);

export const hasModifier = (node, kind) => !!node.modifiers?.some((m) => m.kind === kind);
export const isJs = (path) => /\.[cm]?jsx?$/.test(path);

/** memberName: the name a member is written with; null for a computed name. */
export function memberName(name) {
  if (!name) return null;
  if (ts.isIdentifier(name) || ts.isPrivateIdentifier(name) || ts.isStringLiteral(name) || ts.isNumericLiteral(name) ||
      ts.isNoSubstitutionTemplateLiteral(name))
    return name.text;
  return null;
}

/** requireOf: the module `require("m")` names, or null for any other expression. */
export function requireOf(node) {
  return ts.isCallExpression(node) && ts.isIdentifier(node.expression) && node.expression.text === "require" &&
    node.arguments.length === 1 && ts.isStringLiteralLike(node.arguments[0])
    ? node.arguments[0].text
    : null;
}

/** specifierOf: the module an import or export declaration names, or null. */
export function specifierOf(node) {
  return node.moduleSpecifier && ts.isStringLiteralLike(node.moduleSpecifier) ? node.moduleSpecifier.text : null;
}
