// What a name, a member or an expression stands for across the tree's
// files: imports followed through re-exports to the definition, members
// found through a class's bases, and the class or interface a value is an
// instance of where the source says so (an annotation, `new C()`, `this`).
import ts from "./ts.mjs";

import { Alias, Import, Local, NS, Sym, TYPE, VALUE, kFunctionLike, memberName, requireOf } from "./binder.mjs";
import { resolveSpecifier } from "./modules.mjs";
import { skipParens } from "./text.mjs";

const K = ts.SyntaxKind;

// How deep one resolution may go (chains of aliases, bases, types): beyond,
// it resolves to nothing rather than run long on a tree made to loop.
const kDeepest = 40;

/** A module as a value: `import * as m`, `require("m")`. */
export class ModuleRef {
  constructor(file) {
    this.file = file;
  }
}

// Entities: what members are looked up on.
//   { sym, side: "static" }    the definition as a value: a class, an enum, a namespace, a function
//   { sym, side: "instance" }  an instance of a class, interface or object type
//   { module }                 a module's exports
//   { parts: [entity], union } a union or intersection of entities
//   { literal: node }          an object type written in place, `{ a: A }`
//   { promise: entity }        a Promise of an entity, until awaited
//   { element: entity }        an array of an entity
//   { signature: node }        a function, by the declaration of its parameters
const kNone = null;

export class Resolver {
  constructor(files, global, ambient) {
    this.files = files;  // path -> file
    this.global = global;
    this.ambient = ambient;  // "m" -> the Sym of `declare module "m"`
    this.has = (p) => this.files.has(p);
    this.exportMemo = new Map();
    this.valueMemo = new Map();
    this.typeMemo = new Map();
    this.typeWithinMemo = new Map();
    this.symTypeMemo = new Map();
    this.baseMemo = new Map();
  }

  // module: the tree's file (or ambient module) that `spec` names from `file`, or null.
  module(file, spec) {
    const path = resolveSpecifier(file.path, spec, this.has);
    if (path) return this.files.get(path);
    return this.ambient.get(spec) ?? null;
  }

  /** target: what a binding stands for: a Sym, a ModuleRef, a Local, or null. */
  target(t, depth = 0) {
    if (depth > kDeepest || !t) return null;
    if (t instanceof Import) return this.imported(t, depth + 1);
    if (t instanceof Alias) return this.entityName(t.entity, t.scope, VALUE, depth + 1);
    return t;
  }

  imported(t, depth) {
    const m = this.module(t.file, t.spec);
    if (!m) return null;
    if (m instanceof Sym) return t.name === "*" || t.name === "=" ? m : m.statics.get(t.name) ?? null;
    if (t.name === "*") return new ModuleRef(m);
    if (t.name === "=") return m.exportEquals ? this.local(m, m.exportEquals.local, depth) : new ModuleRef(m);
    return this.exported(m, t.name, depth);
  }

  local(file, name, depth) {
    const binding = file.scope.names.get(name);
    if (!binding) return null;
    return this.target(binding[VALUE] ?? binding[TYPE] ?? binding[NS], depth + 1);
  }

  /** exported: what the module `file` exports as `name`, followed to its definition; null when nothing. */
  exported(file, name, depth = 0) {
    const key = `${file.path}\0${name}`;
    if (this.exportMemo.has(key)) return this.exportMemo.get(key);
    if (depth > kDeepest) return null;
    this.exportMemo.set(key, null);  // a cycle of re-exports resolves to nothing
    let found = null;
    const own = file.exports.get(name);
    if (own) {
      found = own.target ?? this.local(file, own.local, depth);
    } else if (file.reexports.has(name)) {
      found = this.imported(file.reexports.get(name), depth + 1);
    } else if (name === "default" && file.commonJs) {
      found = file.exportEquals ? this.local(file, file.exportEquals.local, depth) : new ModuleRef(file);
    } else if (name !== "default") {
      for (const spec of file.stars) {
        const m = this.module(file, spec);
        found = m instanceof Sym ? m.statics.get(name) ?? null : m ? this.exported(m, name, depth + 1) : null;
        if (found) break;
      }
    }
    this.exportMemo.set(key, found);
    return found;
  }

  /** entityName: what `A.B.C` (or `A`) means in a type, or as a value, with `meaning` for its last part. */
  entityName(node, scope, meaning, depth = 0) {
    if (ts.isIdentifier(node)) return this.target(scope.lookup(node.text, meaning), depth + 1);
    const left = ts.isQualifiedName(node) ? node.left : node.expression;
    const right = ts.isQualifiedName(node) ? node.right : node.name;
    const base = this.entityName(left, scope, meaning === VALUE ? VALUE : NS, depth + 1);
    return this.member(this.entityOf(base, depth + 1), right.text, depth + 1);
  }

  /** entityOf: what members of a target are looked up on. */
  entityOf(t, depth = 0) {
    if (!t || depth > kDeepest) return kNone;
    if (t instanceof ModuleRef) return { module: t.file };
    if (t instanceof Local) return this.localType(t, depth + 1);
    if (!(t instanceof Sym)) return kNone;
    const kinds = t.nodes.map((n) => n.kind);
    if (kinds.some((k) => k === K.ClassDeclaration || k === K.EnumDeclaration || k === K.ModuleDeclaration ||
                         k === K.FunctionDeclaration || k === K.ClassExpression))
      return { sym: t, side: "static" };
    if (t.exportedValue) return kNone;
    return this.symType(t, depth + 1);
  }

  // symType: the type of a variable or property, from its annotation or initializer.
  symType(sym, depth) {
    if (this.symTypeMemo.has(sym)) return this.symTypeMemo.get(sym);
    this.symTypeMemo.set(sym, kNone);
    let found = kNone;
    for (const node of sym.nodes) {
      const scope = this.scopeOf(sym.file, node);
      if (kFunctionLike.has(node.kind) && !ts.isGetAccessor(node)) continue;
      if (ts.isGetAccessor(node)) found = this.returned({ nodes: [node], file: sym.file }, depth + 1);
      else if (ts.isShorthandPropertyAssignment(node)) found = this.value(node.name, scope, sym.file, depth + 1);
      else if (node.type) found = this.type(node.type, scope, depth + 1);
      else if (node.initializer) found = this.value(node.initializer, scope, sym.file, depth + 1);
      if (found) break;
    }
    this.symTypeMemo.set(sym, found);
    return found;
  }

  localType(local, depth) {
    const node = local.node;
    if (local.type) return this.type(local.type, this.scopeOf(this.fileOfNode(node), node), depth + 1, true);
    if (ts.isParameter(node)) return this.parameterType(node, depth + 1);
    if (ts.isBindingElement(node)) return this.elementType(node, depth + 1);
    const file = this.fileOfNode(node);
    if (ts.isVariableDeclaration(node) && ts.isForOfStatement(node.parent.parent))
      return this.value(node.parent.parent.expression, this.scopeOf(file, node.parent.parent, true), file, depth + 1)?.element ?? kNone;
    if (local.init) return this.value(local.init, this.scopeOf(file, node), file, depth + 1);
    return kNone;
  }

  // parameterType: the type of a parameter without an annotation, from the
  // function type its function is expected to have.
  parameterType(param, depth) {
    const fn = param.parent;
    if (!kFunctionLike.has(fn.kind)) return kNone;
    const own = fn.parameters.filter((p) => !isThisParameter(p));
    const i = own.indexOf(param);
    const signature = this.contextual(fn, depth + 1)?.signature;
    const expected = signature?.parameters.filter((p) => !isThisParameter(p))[i];
    return expected?.type ? this.type(expected.type, this.scopeOf(this.fileOfNode(expected), expected), depth + 1) : kNone;
  }

  // elementType: what a name of an object pattern holds: the member of the value taken apart.
  elementType(element, depth) {
    const pattern = element.parent;
    if (!ts.isObjectBindingPattern(pattern)) return kNone;
    const key = memberName(element.propertyName ?? element.name);
    const whole = this.patternSource(pattern.parent, depth + 1);
    return key === null ? kNone : this.memberType(this.member(whole, key, depth + 1), depth + 1);
  }

  /** patternSource: the entity a declaration with a binding pattern takes apart. */
  patternSource(decl, depth = 0) {
    const file = this.fileOfNode(decl);
    const scope = this.scopeOf(file, decl);
    if (ts.isBindingElement(decl)) return this.elementType(decl, depth + 1);
    if (decl.type) return this.type(decl.type, ts.isParameter(decl) ? this.scopeOf(file, decl.parent, true) : scope, depth + 1, true);
    if (ts.isParameter(decl)) return this.parameterType(decl, depth + 1);
    if (decl.initializer) return this.value(decl.initializer, scope, file, depth + 1);
    return kNone;
  }

  /** memberType: what a member holds: its annotated type, its value, or the signature of a method. */
  memberType(m, depth = 0) {
    if (!(m instanceof Sym)) return this.entityOf(m, depth + 1);
    const method = m.nodes.find((n) => ts.isMethodSignature(n) || ts.isMethodDeclaration(n));
    if (method) return { signature: method };
    return this.entityOf(m, depth + 1);
  }

  /**
   * contextual: the entity an expression is expected to be where the code
   * says so: a variable's, property's or parameter's annotation, `satisfies`
   * or `as`, a function's return type, a called function's parameter, the
   * property of an object that is itself expected to be one.
   */
  contextual(expr, depth = 0) {
    if (depth > kDeepest) return kNone;
    const p = expr.parent;
    const file = this.fileOfNode(expr);
    const typeAt = (t, at) => this.type(t, this.scopeOf(file, at), depth + 1);
    if (ts.isObjectLiteralExpression(p)) {  // a method of an object: the member it is expected to be
      const name = memberName(expr.name);
      return name === null ? kNone : this.memberType(this.member(this.contextual(p, depth + 1), name, depth + 1), depth + 1);
    }
    switch (p.kind) {
      case K.ParenthesizedExpression:
      case K.ConditionalExpression:
        return p.condition === expr ? kNone : this.contextual(p, depth + 1);
      case K.VariableDeclaration:
      case K.PropertyDeclaration:
      case K.Parameter:
        return p.initializer === expr && p.type ? typeAt(p.type, p) : kNone;
      case K.SatisfiesExpression:
      case K.AsExpression:
        return typeAt(p.type, p);
      case K.ReturnStatement:
      case K.ArrowFunction: {
        if (ts.isArrowFunction(p) && p.body !== expr) return kNone;
        let fn = p;
        while (fn && !kFunctionLike.has(fn.kind)) fn = fn.parent;
        if (!fn?.type) return kNone;
        const t = this.type(fn.type, this.scopeOf(file, fn, true), depth + 1);
        return hasModifier(fn, K.AsyncKeyword) ? t?.promise ?? kNone : t;
      }
      case K.PropertyAssignment: {
        if (p.initializer !== expr) return kNone;
        const name = memberName(p.name);
        return name === null ? kNone : this.memberType(this.member(this.contextual(p.parent, depth + 1), name, depth + 1), depth + 1);
      }
      case K.ArrayLiteralExpression:
        return this.contextual(p, depth + 1)?.element ?? kNone;
      case K.CallExpression:
      case K.NewExpression: {
        const i = p.arguments?.indexOf(expr) ?? -1;
        if (i < 0) return kNone;
        const scope = this.scopeOf(file, p);
        const callee = this.callee(p.expression, scope, file, depth + 1);
        const target = ts.isNewExpression(p) && callee instanceof Sym ? callee.ctor : callee;
        const signature = target instanceof Sym ? target.nodes.find((n) => kFunctionLike.has(n.kind) && n.parameters.length > i) : null;
        const param = signature?.parameters.filter((q) => !isThisParameter(q))[i];
        return param?.type && !param.dotDotDotToken ? typeAt(param.type, param) : kNone;
      }
      case K.BinaryExpression: {
        if (p.right !== expr) return kNone;
        if (p.operatorToken.kind !== K.EqualsToken) return this.contextual(p, depth + 1);
        const left = p.left;
        if (ts.isPropertyAccessExpression(left))
          return this.memberType(this.member(this.value(left.expression, this.scopeOf(file, p), file, depth + 1), left.name.text, depth + 1), depth + 1);
        return kNone;
      }
      default:
        return kNone;
    }
  }

  /** scopeOf: the scope a node's parts are read in: the scope it opens, or the nearest around it. */
  scopeOf(file, node, own = false) {
    for (let n = own ? node : node.parent; n; n = n.parent) {
      const s = file.scopes.get(n);
      if (s) return s;
    }
    return file.scope;
  }

  /** member: the member `name` of an entity, a Sym (or a module), or null. */
  member(entity, name, depth = 0) {
    if (!entity || depth > kDeepest) return null;
    if (entity.module) return this.exported(entity.module, name, depth + 1);
    if (entity.parts) {
      // A member declared once among the parts is that declaration's; one
      // that several declare is the union's or intersection's own.
      const found = new Set();
      for (const p of entity.parts) {
        const m = this.member(p, name, depth + 1);
        if (m) found.add(m);
        else if (entity.union) return null;
      }
      return found.size === 1 ? [...found][0] : null;
    }
    if (entity.literal) {
      const m = entity.literal.members.find((n) => memberName(n.name) === name);
      if (!m) return null;
      return new Local(m, this.scopeOf(this.fileOfNode(m), m), ts.isMethodSignature(m) ? null : m.type ?? null);
    }
    if (!entity.sym) return null;
    const sym = entity.sym;
    const own = (entity.side === "static" ? sym.statics : sym.instance).get(name);
    if (own) return own;
    if (entity.side === "static") {
      for (const spread of sym.spreads ?? []) {
        const m = this.member(this.value(spread, this.scopeOf(sym.file, spread), sym.file, depth + 1), name, depth + 1);
        if (m) return m;
      }
    }
    for (const base of this.bases(sym, entity.side, depth + 1)) {
      const m = this.member(base, name, depth + 1);
      if (m) return m;
    }
    return null;
  }

  // bases: what a class, interface or type alias takes members from: the
  // class it extends (both sides), what it implements or extends (its
  // instances), the type an alias names.
  bases(sym, side, depth) {
    const key = sym;
    let memo = this.baseMemo.get(key);
    if (!memo) this.baseMemo.set(key, (memo = {}));
    if (memo[side]) return memo[side];
    memo[side] = [];
    const found = [];
    for (const node of sym.nodes) {
      const scope = this.scopeOf(sym.file, node, true);
      if (ts.isClassLike(node)) {
        for (const clause of node.heritageClauses ?? []) {
          for (const t of clause.types) {
            if (clause.token === K.ExtendsKeyword) {
              const base = this.value(t.expression, scope, sym.file, depth + 1);
              if (base?.sym) found.push({ sym: base.sym, side });
            } else if (side === "instance") {
              const i = this.type(t, scope, depth + 1);
              if (i) found.push(i);
            }
          }
        }
      } else if (ts.isInterfaceDeclaration(node) && side === "instance") {
        for (const clause of node.heritageClauses ?? []) {
          for (const t of clause.types) {
            const i = this.type(t, scope, depth + 1);
            if (i) found.push(i);
          }
        }
      } else if (ts.isTypeAliasDeclaration(node) && side === "instance" && !ts.isTypeLiteralNode(node.type)) {
        const t = this.type(node.type, scope, depth + 1);
        if (t) found.push(t);
      }
    }
    memo[side] = found;
    return found;
  }

  /** type: the entity a type node stands for, or null. */
  /**
   * type: the entity a type node stands for, or null. `within`: the type is
   * read where its type parameters are not yet given (of a local or a
   * parameter, used in the generic function itself), so that a type
   * parameter has the members of its constraint; elsewhere (a member of a
   * generic class, a parameter of a generic function being called) it is
   * instantiated to what the code cannot tell without a type checker.
   */
  type(node, scope, depth = 0, within = false) {
    if (!node || depth > kDeepest) return kNone;
    const memo = within ? this.typeWithinMemo : this.typeMemo;
    if (memo.has(node)) return memo.get(node);
    memo.set(node, kNone);
    const found = this.typeUncached(node, scope, depth, within);
    memo.set(node, found);
    return found;
  }

  typeUncached(node, scope, depth, within) {
    switch (node.kind) {
      case K.TypeReference:
      case K.ExpressionWithTypeArguments: {
        const name = ts.isTypeReferenceNode(node) ? node.typeName : node.expression;
        const t = this.entityName(name, scope, TYPE, depth + 1);
        if (t instanceof Sym) return this.instanceOf(t, depth + 1);
        // A type parameter has the members of its constraint.
        if (within && t instanceof Local && ts.isTypeParameterDeclaration(t.node) && t.node.constraint)
          return this.type(t.node.constraint, this.scopeOf(this.fileOfNode(t.node), t.node), depth + 1, within);
        // The standard library's generics that hold one type, when the tree does not define them.
        const held = !t && ts.isIdentifier(name) && node.typeArguments?.length === 1
          ? kHolders[name.text] : undefined;
        const inner = held && this.type(node.typeArguments[0], scope, depth + 1, within);
        return inner ? (held === "same" ? inner : { [held]: inner }) : kNone;
      }
      case K.ParenthesizedType:
        return this.type(node.type, scope, depth + 1, within);
      case K.ArrayType: {
        const element = this.type(node.elementType, scope, depth + 1, within);
        return element ? { element } : kNone;
      }
      case K.TypeOperator:
        return node.operator === K.ReadonlyKeyword ? this.type(node.type, scope, depth + 1, within) : kNone;
      case K.FunctionType:
        return { signature: node };
      case K.UnionType:
      case K.IntersectionType: {
        // The parts that are not of the tree (null, string) have none of its members.
        const parts = node.types.map((t) => this.type(t, scope, depth + 1, within)).filter(Boolean);
        return parts.length > 1 ? { parts, union: ts.isUnionTypeNode(node) } : parts[0] ?? kNone;
      }
      case K.TypeLiteral:
        return { literal: node };
      case K.TypeQuery:
        return this.entityOf(this.entityName(node.exprName, scope, VALUE, depth + 1), depth + 1);
      case K.ImportType: {
        if (!ts.isLiteralTypeNode(node.argument) || !ts.isStringLiteral(node.argument.literal)) return kNone;
        const file = this.fileOfNode(node);
        const m = file && this.module(file, node.argument.literal.text);
        if (!m) return kNone;
        let t = m instanceof Sym ? m : new ModuleRef(m);
        const names = [];
        for (let q = node.qualifier; q; q = ts.isQualifiedName(q) ? q.left : null) names.unshift(ts.isQualifiedName(q) ? q.right.text : q.text);
        for (const name of names) t = this.member(this.entityOf(t, depth + 1), name, depth + 1);
        if (!t) return kNone;
        return node.isTypeOf ? this.entityOf(t, depth + 1) : t instanceof Sym ? this.instanceOf(t, depth + 1) : kNone;
      }
      default:
        return kNone;
    }
  }

  fileOfNode(node) {
    let n = node;
    while (n.parent) n = n.parent;
    return this.files.get(n.fileName) ?? null;
  }

  // instanceOf: the entity of a value whose type is the definition `sym`.
  instanceOf(sym, depth) {
    if (sym.nodes.some((n) => ts.isClassLike(n) || ts.isInterfaceDeclaration(n))) return { sym, side: "instance" };
    const alias = sym.nodes.find((n) => ts.isTypeAliasDeclaration(n));
    if (alias && ts.isTypeLiteralNode(alias.type)) return { sym, side: "instance" };
    if (alias) return this.type(alias.type, this.scopeOf(sym.file, alias, true), depth + 1);
    return kNone;
  }

  /** value: the entity an expression's value is, or null. */
  value(node, scope, file, depth = 0) {
    if (!node || depth > kDeepest) return kNone;
    if (this.valueMemo.has(node)) return this.valueMemo.get(node);
    this.valueMemo.set(node, kNone);
    const found = this.valueUncached(node, scope, file, depth);
    this.valueMemo.set(node, found);
    return found;
  }

  valueUncached(node, scope, file, depth) {
    node = skipParensKeepingType(node);
    switch (node.kind) {
      case K.Identifier:
        return this.entityOf(this.target(scope.lookup(node.text, VALUE), depth + 1), depth + 1);
      case K.ThisKeyword:
      case K.SuperKeyword: {
        const declared = node.kind === K.ThisKeyword ? thisParameter(node) : null;
        if (declared) return this.type(declared.type, this.scopeOf(this.fileOfNode(declared), declared), depth + 1, true);
        const at = thisClass(node);
        if (!at) return kNone;
        const sym = this.classSym(at.cls);
        if (!sym) return kNone;
        if (node.kind === K.ThisKeyword) return { sym, side: at.side };
        return this.bases(sym, at.side, depth + 1).find((b) => b.sym && b.sym.nodes.some((n) => ts.isClassLike(n))) ?? kNone;
      }
      case K.ObjectLiteralExpression: {
        const sym = this.fileOfNode(node)?.literals.get(node);
        return sym ? { sym, side: "static" } : kNone;
      }
      case K.PropertyAccessExpression:
      case K.ElementAccessExpression: {
        const name = accessName(node);
        if (name === null && ts.isElementAccessExpression(node))
          return this.value(node.expression, scope, file, depth + 1)?.element ?? kNone;
        if (name === null) return kNone;
        const base = this.value(node.expression, scope, file, depth + 1);
        return this.entityOf(this.member(base, name, depth + 1), depth + 1);
      }
      case K.NewExpression: {
        const t = this.callee(node.expression, scope, file, depth);
        return t instanceof Sym && t.nodes.some((n) => ts.isClassLike(n)) ? { sym: t, side: "instance" } : kNone;
      }
      case K.CallExpression: {
        const spec = requireOf(node);
        if (spec !== null && file && /\.[cm]?jsx?$/.test(file.path)) {
          return this.entityOf(this.imported(new Import(file, spec, "="), depth + 1), depth + 1);
        }
        const t = this.callee(node.expression, scope, file, depth);
        return t instanceof Sym ? this.returned(t, depth + 1) : kNone;
      }
      case K.AwaitExpression: {
        const inner = this.value(node.expression, scope, file, depth + 1);
        return inner?.promise ?? kNone;
      }
      case K.AsExpression:
      case K.TypeAssertionExpression:
        return this.type(node.type, scope, depth + 1);
      default:
        return kNone;
    }
  }

  // returned: what calling a function or method gives: its return type, or
  // what its return statements give when it has none.
  returned(sym, depth) {
    const fns = sym.nodes.map((n) => (ts.isVariableDeclaration(n) || ts.isPropertyDeclaration(n)) && n.initializer
      ? skipParens(n.initializer) : n).filter((n) => kFunctionLike.has(n.kind));
    const typed = fns.find((n) => n.type);
    if (typed) return this.type(typed.type, this.scopeOf(sym.file, typed, true), depth + 1);
    const fn = fns.find((n) => n.body);
    if (!fn) return kNone;
    const scope = this.scopeOf(sym.file, fn, true);
    if (!ts.isBlock(fn.body)) return this.value(fn.body, scope, sym.file, depth + 1);
    for (const r of returns(fn.body)) {
      const v = this.value(r.expression, this.scopeOf(sym.file, r), sym.file, depth + 1);
      if (v) return v;
    }
    return kNone;
  }

  // callee: the definition a called or constructed expression names.
  callee(expr, scope, file, depth) {
    expr = skipParens(expr);
    if (ts.isIdentifier(expr)) return this.target(scope.lookup(expr.text, VALUE), depth + 1);
    if (ts.isPropertyAccessExpression(expr) || ts.isElementAccessExpression(expr)) {
      const name = accessName(expr);
      return name === null ? null : this.member(this.value(expr.expression, scope, file, depth + 1), name, depth + 1);
    }
    return null;
  }

  // classSym: the Sym of a class node, when the class is a definition of the tree.
  classSym(cls) {
    let n = cls;
    while (n.parent) n = n.parent;
    const file = this.files.get(n.fileName);
    return file?.recordOf.get(cls)?.sym ?? null;
  }
}

// What the standard library's one-type generics hold, when the tree does not define them.
const kHolders = {
  Promise: "promise", PromiseLike: "promise", Array: "element", ReadonlyArray: "element", Set: "element",
  Readonly: "same", Partial: "same", Required: "same", NonNullable: "same",
};

const hasModifier = (node, kind) => !!node.modifiers?.some((m) => m.kind === kind);
const isThisParameter = (p) => ts.isIdentifier(p.name) && p.name.text === "this";

/** thisParameter: the `this: T` parameter of the function `this` is in, if it declares one. */
function thisParameter(node) {
  for (let n = node.parent; n; n = n.parent) {
    if (ts.isArrowFunction(n)) continue;
    if (kFunctionLike.has(n.kind)) {
      const first = n.parameters?.[0];
      return first && isThisParameter(first) && first.type ? first : null;
    }
    if (ts.isClassLike(n) || ts.isSourceFile(n)) return null;
  }
  return null;
}

/** returns: the return statements of a function's body, not those of the functions in it. */
function returns(body) {
  const found = [];
  const visit = (node) => {
    if (ts.isReturnStatement(node) && node.expression) found.push(node);
    else if (!ts.isFunctionLike(node) && !ts.isClassLike(node)) node.forEachChild(visit);
  };
  visit(body);
  return found;
}

/** accessName: the member `a.b` or `a["b"]` names, or null. */
export function accessName(node) {
  if (ts.isPropertyAccessExpression(node)) return memberName(node.name);
  const arg = node.argumentExpression;
  return arg && (ts.isStringLiteralLike(arg) || ts.isNumericLiteral(arg)) ? arg.text : null;
}

function skipParensKeepingType(node) {
  while (ts.isParenthesizedExpression(node) || ts.isNonNullExpression(node) || ts.isSatisfiesExpression(node))
    node = node.expression;
  return node;
}

/**
 * thisClass: the class `this` (or `super`) refers to at `node`, and which
 * side of it (in a static member, the class itself); null outside a class
 * or inside a function that has its own `this`.
 */
export function thisClass(node) {
  for (let n = node.parent; n; n = n.parent) {
    if (ts.isClassLike(n)) return null;
    const member = n.parent && ts.isClassLike(n.parent) ? n : null;
    if (member && (ts.isMethodDeclaration(member) || ts.isConstructorDeclaration(member) ||
                   ts.isGetAccessor(member) || ts.isSetAccessor(member) || ts.isPropertyDeclaration(member) ||
                   ts.isClassStaticBlockDeclaration(member))) {
      const isStatic = ts.isClassStaticBlockDeclaration(member) ||
        (ts.getCombinedModifierFlags(member) & ts.ModifierFlags.Static) !== 0;
      return { cls: n.parent, side: isStatic ? "static" : "instance" };
    }
    if (ts.isFunctionDeclaration(n) || ts.isFunctionExpression(n) || ts.isMethodDeclaration(n) ||
        ts.isAccessor(n) || ts.isConstructorDeclaration(n))
      return null;  // a function of its own `this`, or a member of an object literal
  }
  return null;
}
