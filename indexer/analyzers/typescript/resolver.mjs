// What a name or a member stands for across the tree's files: imports
// followed through re-exports to the definition, members found through a
// class's or interface's bases. What a value or a type is (the entity its
// members are looked up on) is typing.mjs's part of the Resolver.
import ts from "./ts.mjs";

import { Alias, Import, Local, NS, Sym, TYPE, VALUE, memberName } from "./scopes.mjs";
import { Bound, Held, ModuleRef, kDeepest, unbound } from "./entities.mjs";
import { resolveSpecifier } from "./modules.mjs";
import { typing } from "./typing.mjs";

const K = ts.SyntaxKind;

const kSteps = 20_000;
const kFileSteps = 20_000_000;

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
    this.fuel = 0;
    this.budget = 0;
  }

  // What one resolution, and all of one file's, may spend (steps of member,
  // type and value lookups): bases and type arguments that refer to each
  // other can branch without end in a tree made to; beyond, nothing resolves.
  startFile() {
    this.budget = kFileSteps;
  }

  refuel() {
    this.budget -= kSteps - Math.max(this.fuel, 0);
    this.fuel = this.budget > 0 ? kSteps : 0;
  }

  spend() {
    return --this.fuel >= 0;
  }

  /**
   * augment: each `declare module "m"` of a module adds to m: what it
   * declares takes the fqn of the definition of m it merges with (an
   * interface, a namespace), which gains its members and bases.
   */
  augment() {
    for (const file of this.files.values()) {
      for (const { specifier, sym } of file.augmentations) {
        const target = this.module(file, specifier);
        if (!target) continue;
        sym.fqn = target instanceof Sym ? target.fqn : target.module;
        for (const [name, added] of sym.statics) {
          const merged = unbound(target instanceof Sym ? target.statics.get(name) : this.exported(target, name));
          const into = merged instanceof Sym && merged !== added ? merged : null;
          added.fqn = into?.fqn ?? `${sym.fqn}.${name}`;
          for (const [side, members] of [["instance", added.instance], ["statics", added.statics]]) {
            for (const [n, m] of members) {
              m.fqn = `${added.fqn}.${n}`;
              if (into && !into[side].has(n)) into[side].set(n, m);
            }
          }
          if (into) into.nodes.push(...added.nodes);
        }
      }
    }
  }

  // module: the tree's file (or ambient module) that `specifier` names from `file`, or null.
  module(file, specifier) {
    const path = resolveSpecifier(file.path, specifier, this.has);
    if (path) return this.files.get(path);
    return this.ambient.get(specifier) ?? null;
  }

  /** target: what a binding stands for: a Sym, a ModuleRef, a Local, or null. */
  target(t, depth = 0) {
    if (depth > kDeepest || !t) return null;
    if (t instanceof Import) return this.imported(t, depth + 1);
    if (t instanceof Alias) return this.entityName(t.entity, t.scope, VALUE, depth + 1);
    return t;
  }

  imported(t, depth) {
    const m = this.module(t.file, t.specifier);
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
      for (const specifier of file.stars) {
        const m = this.module(file, specifier);
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
    if (!t || depth > kDeepest) return null;
    if (t instanceof ModuleRef) return { module: t.file };
    if (t instanceof Local) return this.localType(t, depth + 1);
    if (t instanceof Held) return t.entity;
    const sym = unbound(t);
    if (!(sym instanceof Sym)) return null;
    if (sym.nodes.some((n) => ts.isClassLike(n) || ts.isEnumDeclaration(n) || ts.isModuleDeclaration(n) ||
                              ts.isFunctionDeclaration(n)))
      return { sym, side: "static" };
    return this.symType(sym, depth + 1, t instanceof Bound ? t.args : null);
  }

  /** member: the member `name` of an entity: a Sym (a Bound, of a generic's instance), a module's export, or null. */
  member(entity, name, depth = 0) {
    if (!entity || depth > kDeepest || !this.spend()) return null;
    if (entity.module) return this.exported(entity.module, name, depth + 1);
    if (entity.parts) {
      // A member declared once among the parts is that declaration's; one
      // that several declare is the union's or intersection's own. (Code
      // uses a member that only some parts of a union have where it has
      // narrowed the union to them.)
      const found = new Map();
      for (const p of entity.parts) {
        const m = this.member(p, name, depth + 1);
        if (m) found.set(unbound(m), m);
      }
      return found.size === 1 ? [...found.values()][0] : null;
    }
    if (entity.index) return new Held(entity.index);
    if (entity.literal) {
      const m = entity.literal.members.find((n) => memberName(n.name) === name);
      if (!m) return null;
      const local = new Local(m, this.scopeOf(this.fileOfNode(m), m), ts.isMethodSignature(m) ? null : m.type ?? null);
      local.args = entity.args;
      return local;
    }
    if (!entity.sym) return null;
    const sym = entity.sym;
    const own = (entity.side === "static" ? sym.statics : sym.instance).get(name);
    if (own) return entity.args ? new Bound(own, entity.args) : own;
    if (entity.side === "static") {
      for (const spread of sym.spreads ?? []) {
        const m = this.member(this.value(spread, this.scopeOf(sym.file, spread), sym.file, depth + 1), name, depth + 1);
        if (m) return m;
      }
    }
    for (const base of this.bases(sym, entity.side, depth + 1, entity.args)) {
      const m = this.member(base, name, depth + 1);
      if (m) return m;
    }
    return null;
  }

  // bases: what a class, interface or type alias takes members from: the
  // class it extends (both sides), what it implements or extends (its
  // instances), with the type arguments written there.
  bases(sym, side, depth, args = null) {
    const memo = args ? null : this.baseMemo.get(sym) ?? {};
    if (memo) this.baseMemo.set(sym, memo);
    if (memo?.[side]) return memo[side];
    if (memo) memo[side] = [];
    const found = [];
    for (const node of sym.nodes) {
      const file = this.fileOfNode(node);
      const scope = this.scopeOf(file, node, true);
      const clauses = ts.isClassLike(node) || (ts.isInterfaceDeclaration(node) && side === "instance")
        ? node.heritageClauses ?? [] : [];
      for (const clause of clauses) {
        for (const t of clause.types) {
          if (ts.isClassLike(node) && clause.token === K.ExtendsKeyword) {
            const base = this.value(t.expression, scope, file, depth + 1);
            const given = t.typeArguments?.map((a) => ({ node: a, scope, args, within: false }));
            if (base?.sym) found.push({ sym: base.sym, side, args: this.givenArguments(base.sym, given) });
          } else if (side === "instance") {
            const i = this.type(t, scope, depth + 1, false, args);
            if (i) found.push(i);
          }
        }
      }
    }
    if (memo) memo[side] = found;
    return found;
  }

  /** scopeOf: the scope a node's parts are read in: the scope it opens (`own`), or the nearest around it. */
  scopeOf(file, node, own = false) {
    for (let n = own ? node : node.parent; n; n = n.parent) {
      const s = file.scopes.get(n);
      if (s) return s;
    }
    return file.scope;
  }

  fileOfNode(node) {
    let n = node;
    while (n.parent) n = n.parent;
    return this.files.get(n.fileName) ?? null;
  }

  // classSym: the Sym of a class node, when the class is a definition of the tree.
  classSym(cls) {
    return this.fileOfNode(cls)?.recordOf.get(cls)?.sym ?? null;
  }
}

Object.assign(Resolver.prototype, typing);
