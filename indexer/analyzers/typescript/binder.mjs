// The first reading of a file: its scopes and the names each binds, its
// definitions (the symbols it reports) with their members, and what the
// module imports and exports. Nothing is resolved across files here.
import ts from "./ts.mjs";

import { ALL, Alias, Import, Local, NS, Scope, Sym, TYPE, VALUE, hasModifier, isJs, kFunctionLike, memberName,
         requireOf, specifierOf } from "./scopes.mjs";
import { callSignature, docOf, signatureOf, skipParens } from "./text.mjs";

const K = ts.SyntaxKind;

const kMemberKinds = {
  [K.MethodDeclaration]: "method", [K.PropertyDeclaration]: "property", [K.GetAccessor]: "getter",
  [K.SetAccessor]: "setter", [K.Constructor]: "constructor", [K.PropertySignature]: "property",
  [K.MethodSignature]: "method",
};

const isExported = (node) => hasModifier(node, K.ExportKeyword);
const isDefault = (node) => hasModifier(node, K.DefaultKeyword);

// skipConst: the expression inside parentheses and `as const`.
function skipConst(node) {
  while (ts.isParenthesizedExpression(node) ||
         (ts.isAsExpression(node) && ts.isTypeReferenceNode(node.type) && node.type.typeName.getText() === "const"))
    node = node.expression;
  return node;
}

const isModuleExports = (e) =>
  ts.isPropertyAccessExpression(e) && ts.isIdentifier(e.expression) && e.expression.text === "module" &&
  e.name.text === "exports";
const isExportsObject = (e) => (ts.isIdentifier(e) && e.text === "exports") || isModuleExports(e);

/** isCommonJs: whether a JavaScript file assigns module.exports or exports.x, or requires, at its top. */
function isCommonJs(sf) {
  return sf.statements.some((s) => {
    if (ts.isExpressionStatement(s) && ts.isBinaryExpression(s.expression) &&
        s.expression.operatorToken.kind === K.EqualsToken) {
      const left = s.expression.left;
      return isModuleExports(left) || (ts.isPropertyAccessExpression(left) && isExportsObject(left.expression));
    }
    return ts.isVariableStatement(s) &&
      s.declarationList.declarations.some((d) => d.initializer && requireOf(skipParens(d.initializer)) !== null);
  });
}

/**
 * bindFile: the file's scopes, symbols, imports and exports; its symbols
 * also listed in `file.records` in source order. The names a script (a
 * file that neither imports nor exports) declares at its top, and those of
 * `declare global`, are bound in `global`: every file sees them.
 * `ambient` receives the modules `declare module "m"` declares.
 */
export function bindFile(file, global, ambient) {
  const sf = file.sf;
  file.isModule = ts.isExternalModule(sf) || (isJs(file.path) && isCommonJs(sf));
  file.commonJs = file.isModule && !ts.isExternalModule(sf);
  file.scope = file.isModule ? new Scope(global, sf) : global;
  file.scopes = new Map();  // node -> the scope it opens
  file.exports = new Map();  // exported name -> { local: a name of the file's scope } or { target: Sym }
  file.reexports = new Map();  // exported name -> Import
  file.stars = [];  // the specifiers of `export * from`
  file.exportEquals = null;  // what `export =` or `module.exports =` names: { local }
  file.records = [];  // the symbols, in source order
  file.recordOf = new Map();  // declaration node -> its record
  file.literals = new Map();  // object literal -> the Sym it is the value of
  file.augmentations = [];  // { specifier, sym }: each `declare module "specifier"` of a module
  const binder = new Binder(file, global, ambient);
  const top = { prefix: file.module, record: null, top: file.isModule, global: !file.isModule };
  binder.statements(sf.statements, file.scope, top);
  for (const [, e] of file.exports) {
    const binding = e.local === undefined ? null : file.scope.names.get(e.local);
    for (const m of ALL) if (binding?.[m] instanceof Sym) binding[m].listed = true;
  }
  overloads(file.records);
}

/**
 * overloads: in each family of overloads (the function, method or
 * constructor declarations of one symbol), a signature without a
 * body that another declaration of the family follows is reported as a
 * prototype: `symbol` then answers the family's last declaration, which is
 * the implementation when there is one, as TypeScript's go to definition
 * does. That last one, when it has no doc comment of its own, takes the
 * family's first, as the language service shows it there.
 */
function overloads(records) {
  const families = new Map();  // Sym -> its records, in source order
  for (const r of records) {
    if (!kOverloaded.has(r.node.kind)) continue;
    if (!families.has(r.sym)) families.set(r.sym, []);
    families.get(r.sym).push(r);
  }
  for (const family of families.values()) {
    const last = family.at(-1);
    const signatures = family.filter((r) => r !== last && !r.node.body);
    for (const r of signatures) r.kind = "prototype";
    if (signatures.length) last.doc ??= signatures.find((r) => r.doc)?.doc ?? null;
  }
}
const kOverloaded = new Set([K.FunctionDeclaration, K.MethodDeclaration, K.MethodSignature, K.Constructor]);

// A container of definitions (ctx below; null inside a function, where
// names are locals): the module, a namespace, a class, an interface, an enum.
//   prefix: the fqn of what it defines; record: its own record;
//   top: a module's top level; namespace: the namespace's Sym;
//   global: its names are seen by every file; ambient: in `declare module
//   "m"`, where every declaration is exported.
class Binder {
  constructor(file, global, ambient) {
    this.file = file;
    this.sf = file.sf;
    this.global = global;
    this.ambient = ambient;
    this.js = isJs(file.path);
  }

  line(pos) {
    return this.sf.getLineAndCharacterOfPosition(pos).line + 1;
  }

  open(node, parent) {
    const scope = new Scope(parent, node);
    this.file.scopes.set(node, scope);
    return scope;
  }

  // record: one declaration of `sym`, reported as a symbol; `own`: whether
  // it is exported from its container (a module's export, a public member).
  record(sym, node, kind, ctx, own, span = node) {
    sym.nodes.push(node);
    const record = {
      sym, node, kind, own, container: ctx?.record ?? null,
      line: this.line(span.getStart(this.sf)), end: this.line(span.end),
      signature: signatureOf(node, sym.name, this.sf), doc: docOf(node, this.sf),
    };
    this.file.records.push(record);
    this.file.recordOf.set(node, record);
    return record;
  }

  // define: `name` declared by `node`: in a container, a symbol of it bound
  // in `scope`; elsewhere a local. `holder` is the node whose modifiers say whether it is exported.
  define(node, name, meanings, kind, scope, ctx, { span = node, holder = node } = {}) {
    if (!ctx) {
      scope.bind(name, meanings, new Local(node, scope, node.type ?? null, node.initializer ?? null));
      return null;
    }
    let sym = scope.syms.get(name);
    if (!sym) scope.syms.set(name, (sym = new Sym(`${ctx.prefix}.${name}`, name, this.file)));
    scope.bind(name, meanings, sym);
    const nested = (holder.flags & ts.NodeFlags.NestedNamespace) !== 0;
    const own = ctx.global || ctx.ambient || nested || isExported(holder);
    const record = this.record(sym, node, kind, ctx, own, span);
    if (ctx.namespace && own) ctx.namespace.statics.set(name, sym);
    if (ctx.top && isExported(holder)) this.file.exports.set(isDefault(holder) ? "default" : name, { target: sym });
    return record;
  }

  memberSym(owner, name, map) {
    let sym = map.get(name);
    if (!sym) map.set(name, (sym = new Sym(`${owner.fqn}.${name}`, name, this.file)));
    return sym;
  }

  statements(list, scope, ctx) {
    for (const s of list) this.statement(s, scope, ctx);
    if (ctx) for (const s of list) this.expando(s, scope, ctx);
  }

  // expando: `f.x = value` beside a function `f` of the container declares
  // a property of the function.
  expando(node, scope, ctx) {
    if (!ts.isExpressionStatement(node) || !ts.isBinaryExpression(node.expression) ||
        node.expression.operatorToken.kind !== K.EqualsToken)
      return;
    const left = node.expression.left;
    if (!ts.isPropertyAccessExpression(left) || !ts.isIdentifier(left.expression)) return;
    const owner = scope.syms.get(left.expression.text);
    const fn = owner?.nodes.find((n) => ts.isFunctionDeclaration(n) ||
      (ts.isVariableDeclaration(n) && n.initializer && ts.isFunctionLike(skipParens(n.initializer))));
    if (!fn || fn.getSourceFile() !== this.sf) return;
    const record = this.file.recordOf.get(fn);
    const sym = this.memberSym(owner, left.name.text, owner.statics);
    if (!sym.nodes.length) this.record(sym, left, "property", { ...ctx, record }, true, node);
  }

  statement(node, scope, ctx) {
    switch (node.kind) {
      case K.FunctionDeclaration: {
        const name = node.name?.text ?? (isDefault(node) ? "default" : null);
        if (name) this.define(node, name, [VALUE], "function", scope, ctx);
        this.functionLike(node, scope);
        return;
      }
      case K.ClassDeclaration: {
        const name = node.name?.text ?? (isDefault(node) ? "default" : null);
        const record = name ? this.define(node, name, [VALUE, TYPE], "class", scope, ctx) : null;
        this.classLike(node, scope, record);
        return;
      }
      case K.InterfaceDeclaration: {
        const record = this.define(node, node.name.text, [TYPE], "interface", scope, ctx);
        const inner = this.open(node, scope);
        this.typeParameters(node, inner);
        this.typeMembers(node.members, inner, record);
        this.children(node, inner, [node.name, ...node.members]);
        return;
      }
      case K.TypeAliasDeclaration: {
        const record = this.define(node, node.name.text, [TYPE], "type", scope, ctx);
        const inner = this.open(node, scope);
        this.typeParameters(node, inner);
        if (ts.isTypeLiteralNode(node.type)) {
          this.typeMembers(node.type.members, inner, record);
          this.children(node, inner, [node.name, node.type]);
        } else {
          this.children(node, inner, [node.name]);
        }
        return;
      }
      case K.EnumDeclaration: {
        const record = this.define(node, node.name.text, [VALUE, TYPE, NS], "enum", scope, ctx);
        const inner = this.open(node, scope);
        for (const member of node.members) {
          const name = memberName(member.name);
          if (record && name !== null) {
            const sym = this.memberSym(record.sym, name, record.sym.statics);
            inner.bind(name, [VALUE], sym);
            this.record(sym, member, "enum member", { record }, true);
          }
          if (member.initializer) this.expression(member.initializer, inner);
        }
        return;
      }
      case K.ModuleDeclaration:
        this.namespace(node, scope, ctx);
        return;
      case K.VariableStatement:
        this.variables(node.declarationList, node, scope, ctx);
        this.children(node, scope, [node.declarationList]);
        return;
      case K.ImportDeclaration:
        this.importDeclaration(node, scope);
        return;
      case K.ImportEqualsDeclaration: {
        const ref = node.moduleReference;
        const target = !ts.isExternalModuleReference(ref)
          ? new Alias(ref, scope)
          : ts.isStringLiteralLike(ref.expression) ? new Import(this.file, ref.expression.text, "=") : null;
        if (target) scope.bind(node.name.text, ALL, target);
        if (ctx?.top && isExported(node)) this.file.exports.set(node.name.text, { local: node.name.text });
        return;
      }
      case K.ExportDeclaration:
        if (ctx?.top) this.exportDeclaration(node);
        return;
      case K.ExportAssignment: {
        const e = skipParens(node.expression);
        if (ctx?.top && ts.isIdentifier(e)) {
          if (node.isExportEquals) this.file.exportEquals = { local: e.text };
          else this.file.exports.set("default", { local: e.text });
        } else if (ctx?.top && !node.isExportEquals) {
          // `export default <expression>` defines the module's default.
          const sym = new Sym(`${ctx.prefix}.default`, "default", this.file);
          const record = this.record(sym, node, "constant", ctx, true);
          this.file.exports.set("default", { target: sym });
          this.objectMembers(node.expression, record);
        }
        this.expression(node.expression, scope);
        return;
      }
      case K.ExpressionStatement:
        if (!(ctx?.top && this.file.commonJs && this.commonJsExport(node.expression, ctx)))
          this.expression(node.expression, scope);
        return;
      case K.Block:
        this.statements(node.statements, this.open(node, scope), null);
        return;
      case K.ForStatement:
      case K.ForInStatement:
      case K.ForOfStatement:
        this.children(node, this.open(node, scope));
        return;
      case K.CaseBlock:
        this.children(node, this.open(node, scope));
        return;
      case K.CatchClause: {
        const inner = this.open(node, scope);
        const v = node.variableDeclaration;
        if (v) {
          this.bindingNames(v.name, inner, v);
          if (v.type) this.expression(v.type, inner);
        }
        this.file.scopes.set(node.block, inner);
        this.statements(node.block.statements, inner, null);
        return;
      }
      default:
        this.children(node, scope);
    }
  }

  // children: the node's children bound in `scope` (as locals), but those in `skip`.
  children(node, scope, skip = []) {
    node.forEachChild((child) => {
      if (skip.includes(child)) return;
      if (ts.isVariableDeclarationList(child)) this.variables(child, null, scope, null);
      else if (ts.isStatement(child) || ts.isCaseBlock(child) || ts.isCatchClause(child))
        this.statement(child, scope, null);
      else this.expression(child, scope);
    });
  }

  // expression: the scopes opened inside an expression or a type: functions,
  // classes, mapped and conditional types.
  expression(node, scope) {
    if (kFunctionLike.has(node.kind)) {
      this.functionLike(node, scope);
    } else if (ts.isClassExpression(node)) {
      this.classLike(node, scope, this.file.recordOf.get(node) ?? null);
    } else if (ts.isMappedTypeNode(node)) {
      const inner = this.open(node, scope);
      inner.bind(node.typeParameter.name.text, [TYPE], new Local(node.typeParameter, inner));
      this.children(node, inner);
    } else if (ts.isConditionalTypeNode(node)) {
      this.children(node, this.open(node, scope));
    } else if (ts.isInferTypeNode(node)) {
      // `infer U` binds U for the whole conditional type it is in.
      let s = scope;
      while (s.parent && !(s.node && ts.isConditionalTypeNode(s.node))) s = s.parent;
      const at = s.node && ts.isConditionalTypeNode(s.node) ? s : scope;
      at.bind(node.typeParameter.name.text, [TYPE], new Local(node.typeParameter, at));
      this.children(node, scope);
    } else if (ts.isStatement(node)) {
      this.statement(node, scope, null);
    } else {
      this.children(node, scope);
    }
  }

  // varScope: where a `var` is bound: its function, namespace or file.
  varScope(scope) {
    let s = scope;
    while (s.parent && s.node && !kFunctionLike.has(s.node.kind) && !ts.isSourceFile(s.node) &&
           !ts.isModuleDeclaration(s.node) && !ts.isClassStaticBlockDeclaration(s.node))
      s = s.parent;
    return s;
  }

  typeParameters(node, scope) {
    for (const t of node.typeParameters ?? []) scope.bind(t.name.text, [TYPE], new Local(t, scope));
  }

  // functionLike: a function's scope: its own name (a function expression's),
  // type parameters, parameters and body.
  functionLike(node, scope) {
    for (const m of node.modifiers ?? []) this.expression(m, scope);
    if (node.name && ts.isComputedPropertyName(node.name)) this.expression(node.name, scope);
    const inner = this.open(node, scope);
    if (ts.isFunctionExpression(node) && node.name) inner.bind(node.name.text, [VALUE], new Local(node, inner));
    this.typeParameters(node, inner);
    for (const p of node.parameters) this.bindingNames(p.name, inner, p);
    for (const t of node.typeParameters ?? []) this.children(t, inner, [t.name]);
    for (const p of node.parameters) {
      this.children(p, inner, [p.name]);
      this.pattern(p.name, inner);
    }
    if (node.type) this.expression(node.type, inner);
    if (!node.body) return;
    if (ts.isBlock(node.body)) {
      this.file.scopes.set(node.body, inner);
      this.statements(node.body.statements, inner, null);
    } else {
      this.expression(node.body, inner);
    }
  }

  // bindingNames: each name a parameter or variable binds (a pattern binds several), as locals.
  bindingNames(name, scope, decl) {
    if (!name) return;
    if (ts.isIdentifier(name)) {
      scope.bind(name.text, [VALUE], new Local(decl, scope, decl.type ?? null, decl.initializer ?? null));
      return;
    }
    for (const e of name.elements) if (!ts.isOmittedExpression(e)) this.bindingNames(e.name, scope, e);
  }

  // pattern: the scopes inside a binding pattern's defaults and computed names.
  pattern(name, scope) {
    if (!name || ts.isIdentifier(name)) return;
    for (const e of name.elements) {
      if (ts.isOmittedExpression(e)) continue;
      if (e.propertyName && ts.isComputedPropertyName(e.propertyName)) this.expression(e.propertyName, scope);
      if (e.initializer) this.expression(e.initializer, scope);
      this.pattern(e.name, scope);
    }
  }

  // variables: a declaration list (`statement` null in a for loop's head):
  // symbols in a container, locals elsewhere (a `var` in its function's
  // scope); in JavaScript, `require` and its destructuring bind imports.
  variables(list, statement, scope, ctx) {
    const constant = (list.flags & ts.NodeFlags.Const) !== 0;
    const blockScoped = (list.flags & ts.NodeFlags.BlockScoped) !== 0;
    const at = blockScoped || ctx ? scope : this.varScope(scope);
    for (const d of list.declarations) {
      const specifier = this.js && d.initializer ? requireOf(skipParens(d.initializer)) : null;
      if (specifier !== null) {
        this.requireBinding(d.name, specifier, at);
        continue;
      }
      if (ctx && statement) {
        const span = list.declarations.length === 1 ? statement : d;
        const each = (name, decl) => {
          if (ts.isIdentifier(name)) {
            const record = this.define(decl, name.text, [VALUE], constant ? "constant" : "variable", at, ctx,
                                       { span: decl === d ? span : decl, holder: statement });
            if (decl === d) this.objectMembers(d.initializer, record);
            const cls = decl === d && d.initializer && skipParens(d.initializer);
            if (cls && ts.isClassExpression(cls)) {  // `var C = class {...}`: a class
              record.kind = "class";
              record.signature = signatureOf(cls, name.text, this.sf);
              record.sym.nodes.push(cls);
              this.file.recordOf.set(cls, record);
            }
          } else {
            for (const e of name.elements) if (!ts.isOmittedExpression(e)) each(e.name, e);
          }
        };
        each(d.name, d);
      } else {
        this.bindingNames(d.name, at, d);
      }
      if (d.type) this.expression(d.type, scope);
      this.pattern(d.name, scope);
      if (d.initializer) this.expression(d.initializer, scope);
    }
  }

  requireBinding(name, specifier, scope) {
    if (ts.isIdentifier(name)) {
      scope.bind(name.text, ALL, new Import(this.file, specifier, "="));
    } else if (ts.isObjectBindingPattern(name)) {
      for (const e of name.elements) {
        const from = memberName(e.propertyName ?? e.name);
        if (ts.isIdentifier(e.name) && from !== null) scope.bind(e.name.text, ALL, new Import(this.file, specifier, from));
      }
    }
  }

  // classLike: a class's scope (its type parameters; a class expression's
  // own name) and, for a class that is a symbol, its members as symbols.
  classLike(node, scope, record) {
    for (const m of node.modifiers ?? []) this.expression(m, scope);
    const inner = this.open(node, scope);
    if (ts.isClassExpression(node) && node.name) inner.bind(node.name.text, [VALUE, TYPE], new Local(node, inner));
    this.typeParameters(node, inner);
    for (const t of node.typeParameters ?? []) this.children(t, inner, [t.name]);
    for (const h of node.heritageClauses ?? []) this.children(h, inner);
    for (const member of node.members) {
      if (record) this.classMember(member, record);
      if (member.name && ts.isComputedPropertyName(member.name) && !kFunctionLike.has(member.kind))
        this.expression(member.name, inner);
      if (kFunctionLike.has(member.kind)) {
        this.functionLike(member, inner);
      } else if (ts.isClassStaticBlockDeclaration(member)) {
        const block = this.open(member, inner);
        this.file.scopes.set(member.body, block);
        this.statements(member.body.statements, block, null);
      } else {
        this.children(member, inner, [member.name]);
      }
    }
    if (record && this.js) this.assignedMembers(node, record);
  }

  // assignedMembers: in JavaScript, `this.x = value` in a class's
  // constructor declares its property x (when the class does not).
  assignedMembers(node, record) {
    const ctor = node.members.find((m) => ts.isConstructorDeclaration(m) && m.body);
    for (const statement of ctor?.body.statements ?? []) {
      const e = ts.isExpressionStatement(statement) ? statement.expression : null;
      if (!e || !ts.isBinaryExpression(e) || e.operatorToken.kind !== K.EqualsToken) continue;
      const left = e.left;
      if (!ts.isPropertyAccessExpression(left) || left.expression.kind !== K.ThisKeyword) continue;
      const name = memberName(left.name);
      if (record.sym.instance.has(name)) continue;
      this.record(this.memberSym(record.sym, name, record.sym.instance), e, "property", { record },
                  !ts.isPrivateIdentifier(left.name), statement);
    }
  }

  // objectMembers: the properties and methods of an object literal that
  // defines a symbol (a module's or a class's value), symbols of it in turn.
  // An object of a declared type (`x: T = {...}`, `{...} satisfies T`) has
  // none: its keys are uses of the type's members.
  objectMembers(value, record) {
    const literal = value && skipConst(value);
    if (!record || !literal || !ts.isObjectLiteralExpression(literal)) return;
    if (record.node.type) return;
    this.file.literals.set(literal, record.sym);
    for (const p of literal.properties) {
      if (ts.isSpreadAssignment(p)) (record.sym.spreads ??= []).push(p.expression);
      const kind = ts.isMethodDeclaration(p) ? "method"
        : ts.isGetAccessor(p) ? "getter"
        : ts.isSetAccessor(p) ? "setter"
        : ts.isPropertyAssignment(p) || ts.isShorthandPropertyAssignment(p) ? "property" : null;
      const name = kind && memberName(p.name);
      if (name === null || !kind) continue;
      const inner = this.record(this.memberSym(record.sym, name, record.sym.statics), p, kind, { record }, true);
      if (ts.isPropertyAssignment(p)) this.objectMembers(p.initializer, inner);
    }
  }

  classMember(member, record) {
    const kind = kMemberKinds[member.kind];
    if (!kind) return;
    const owner = record.sym;
    const visible = (m) =>
      !(ts.getCombinedModifierFlags(m) & (ts.ModifierFlags.Private | ts.ModifierFlags.Protected)) &&
      !(m.name && ts.isPrivateIdentifier(m.name));
    const ctx = { record };
    if (kind === "constructor") {
      owner.ctor ??= new Sym(`${owner.fqn}.constructor`, "constructor", this.file);
      this.record(owner.ctor, member, kind, ctx, visible(member));
      for (const p of member.parameters) {
        if (!ts.isParameterPropertyDeclaration(p, member) || !ts.isIdentifier(p.name)) continue;
        this.record(this.memberSym(owner, p.name.text, owner.instance), p, "property", ctx, visible(p));
      }
      return;
    }
    const name = memberName(member.name);
    const isStatic = (ts.getCombinedModifierFlags(member) & ts.ModifierFlags.Static) !== 0;
    const sym = name !== null
      ? this.memberSym(owner, name, isStatic ? owner.statics : owner.instance)
      : new Sym(`${owner.fqn}.${member.name.getText(this.sf)}`, member.name.getText(this.sf), this.file);
    const memberRecord = this.record(sym, member, kind, ctx, visible(member));
    if (ts.isPropertyDeclaration(member)) this.objectMembers(member.initializer, memberRecord);
  }

  // typeMembers: the properties and methods of an interface or object type.
  typeMembers(members, scope, record) {
    for (const member of members) {
      const kind = kMemberKinds[member.kind];
      const name = memberName(member.name);
      if (record && kind && name !== null)
        this.record(this.memberSym(record.sym, name, record.sym.instance), member, kind, { record }, true);
      if (member.name && ts.isComputedPropertyName(member.name)) this.expression(member.name, scope);
      if (kFunctionLike.has(member.kind)) this.functionLike(member, scope);
      else this.children(member, scope, [member.name]);
    }
  }

  // namespace: `namespace A.B {}`, `declare module "m" {}`, `declare global {}`.
  namespace(node, scope, ctx) {
    if (node.flags & ts.NodeFlags.GlobalAugmentation) {
      const global = { prefix: this.file.module, record: null, global: true };
      if (node.body) this.statements(node.body.statements, this.global, global);
      return;
    }
    const ambient = ts.isStringLiteral(node.name);
    if (ambient && !ctx) return;
    const name = node.name.text;
    // `declare module "m"` binds no name. In a script it declares the
    // module m; in a module it adds to m (resolved once every file is read).
    const record = ambient
      ? this.record(new Sym(`${ctx.prefix}.${name}`, name, this.file), node, "namespace", ctx, true)
      : this.define(node, name, [VALUE, NS], "namespace", scope, ctx);
    if (!record) return;
    const sym = record.sym;
    if (ambient && this.file.isModule) this.file.augmentations.push({ specifier: name, sym });
    else if (ambient && !name.startsWith(".")) this.ambient.set(name, sym);
    const inner = this.open(node, scope);
    // In a declaration (`declare namespace`, a .d.ts file) every member is exported.
    const declared = ambient || hasModifier(node, K.DeclareKeyword) || /\.d\.[cm]?ts$/.test(this.file.path);
    const innerCtx = { prefix: sym.fqn, record, namespace: sym, ambient: ctx.ambient || declared };
    if (node.body && ts.isModuleDeclaration(node.body)) this.namespace(node.body, inner, innerCtx);
    else if (node.body) this.statements(node.body.statements, inner, innerCtx);
  }

  importDeclaration(node, scope) {
    const clause = node.importClause;
    if (!clause || !ts.isStringLiteralLike(node.moduleSpecifier)) return;
    const specifier = node.moduleSpecifier.text;
    if (clause.name) scope.bind(clause.name.text, ALL, new Import(this.file, specifier, "default"));
    const named = clause.namedBindings;
    if (named && ts.isNamespaceImport(named)) {
      scope.bind(named.name.text, ALL, new Import(this.file, specifier, "*"));
    } else if (named) {
      for (const e of named.elements)
        scope.bind(e.name.text, ALL, new Import(this.file, specifier, (e.propertyName ?? e.name).text));
    }
  }

  exportDeclaration(node) {
    const specifier = specifierOf(node);
    const clause = node.exportClause;
    if (specifier !== null && !clause) {
      this.file.stars.push(specifier);
    } else if (specifier !== null && ts.isNamespaceExport(clause)) {
      this.file.reexports.set(clause.name.text, new Import(this.file, specifier, "*"));
    } else if (clause && ts.isNamedExports(clause)) {
      for (const e of clause.elements) {
        const from = (e.propertyName ?? e.name).text;
        if (specifier !== null) this.file.reexports.set(e.name.text, new Import(this.file, specifier, from));
        else this.file.exports.set(e.name.text, { local: from });
      }
    }
  }

  // commonJsExport: `module.exports = ...`, `exports.x = ...` or
  // `module.exports.x = ...` at a CommonJS file's top; false for any other.
  commonJsExport(expression, ctx) {
    if (!ts.isBinaryExpression(expression) || expression.operatorToken.kind !== K.EqualsToken) return false;
    const left = expression.left;
    const value = skipParens(expression.right);
    if (isModuleExports(left) && ts.isIdentifier(value)) {
      this.file.exportEquals = { local: value.text };
    } else if (isModuleExports(left) && ts.isObjectLiteralExpression(value)) {
      for (const p of value.properties) {
        const name = memberName(p.name);
        const init = ts.isPropertyAssignment(p) ? skipParens(p.initializer) : null;
        if (name === null) continue;
        if (ts.isShorthandPropertyAssignment(p)) this.file.exports.set(name, { local: name });
        else if (init && ts.isIdentifier(init)) this.file.exports.set(name, { local: init.text });
        else this.commonJsValue(p, init ?? p, name, ctx);
      }
    } else if (ts.isPropertyAccessExpression(left) && isExportsObject(left.expression)) {
      if (ts.isIdentifier(value)) this.file.exports.set(left.name.text, { local: value.text });
      else this.commonJsValue(expression, value, left.name.text, ctx);
    } else {
      return false;
    }
    this.expression(expression.right, this.file.scope);
    return true;
  }

  // commonJsValue: a value exported by assignment: a symbol of the module.
  commonJsValue(node, value, name, ctx) {
    const kind = ts.isClassExpression(value) ? "class" : ts.isFunctionLike(value) ? "function" : "variable";
    this.file.commonJsSyms ??= new Map();
    let sym = this.file.commonJsSyms.get(name);
    if (!sym) this.file.commonJsSyms.set(name, (sym = new Sym(`${ctx.prefix}.${name}`, name, this.file)));
    const record = this.record(sym, node, kind, ctx, true);
    if (ts.isFunctionLike(value)) record.signature = callSignature(name, value, this.sf);
    this.file.exports.set(name, { target: sym });
  }
}
