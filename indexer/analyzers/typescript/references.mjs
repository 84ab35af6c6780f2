// The second reading of a file: each name in it resolved by what it means
// where it is written, and the uses of the tree's definitions reported.
import ts from "./ts.mjs";

import { Import, NS, Sym, TYPE, VALUE, isJs, memberName, requireOf, specifierOf } from "./scopes.mjs";
import { ModuleRef, unbound } from "./entities.mjs";
import { accessName, thisClass } from "./typing.mjs";
import { skipParens } from "./text.mjs";

const K = ts.SyntaxKind;

// Declarations whose `name` is the name they define, not a use.
const kDeclarations = new Set([
  K.VariableDeclaration, K.Parameter, K.FunctionDeclaration, K.FunctionExpression, K.ClassDeclaration,
  K.ClassExpression, K.InterfaceDeclaration, K.TypeAliasDeclaration, K.EnumDeclaration, K.EnumMember,
  K.ModuleDeclaration, K.MethodDeclaration, K.MethodSignature, K.PropertyDeclaration, K.PropertySignature,
  K.GetAccessor, K.SetAccessor, K.PropertyAssignment, K.TypeParameter, K.ImportEqualsDeclaration,
  K.NamespaceImport, K.JsxAttribute, K.NamespaceExport, K.NamespaceExportDeclaration, K.LabeledStatement,
  K.BreakStatement, K.ContinueStatement, K.MetaProperty, K.TypePredicate, K.NamedTupleMember,
  K.JSDocParameterTag, K.JSDocPropertyTag, K.JSDocTypedefTag, K.JSDocCallbackTag,
]);

/** references: the uses, in `file`, of the definitions `resolver` knows, one per (symbol, line). */
export function references(file, resolver) {
  const sf = file.sf;
  const js = isJs(file.path);
  const found = new Map();  // fqn \0 line -> reference
  const emit = (bound, at, usage, caller) => {
    const target = unbound(bound);
    if (!(target instanceof Sym)) return;
    const line = sf.getLineAndCharacterOfPosition(at.getStart(sf)).line + 1;
    const key = `${target.fqn}\0${line}`;
    const known = found.get(key);
    if (known) {
      if (known.usage === "reference" && usage === "call") known.usage = usage;
      return;
    }
    found.set(key, {
      fqn: target.fqn, line, caller: caller?.sym.fqn ?? null, caller_kind: caller?.kind ?? null, usage,
    });
  };

  const walk = (node, scope, caller) => {
    resolver.refuel();
    scope = file.scopes.get(node) ?? scope;
    caller = file.recordOf.get(node) ?? caller;
    // The types and links of its doc comment are uses too.
    if (node.jsDoc) for (const doc of node.jsDoc) walk(doc, scope, caller);
    if (ts.isIdentifier(node) || ts.isPrivateIdentifier(node)) {
      identifier(node, scope, caller);
      return;
    }
    switch (node.kind) {
      case K.ElementAccessExpression: {
        const name = accessName(node);
        if (name !== null && ts.isStringLiteralLike(node.argumentExpression)) {
          const base = resolver.value(node.expression, scope, file);
          emit(resolver.member(base, name), node.argumentExpression, usageOf(node), caller);
        }
        break;
      }
      case K.IndexedAccessType: {
        const index = node.indexType;
        if (ts.isLiteralTypeNode(index) && ts.isStringLiteral(index.literal)) {
          const base = resolver.type(node.objectType, scope, 0, true);  // a type parameter here has its constraint
          emit(resolver.member(base, index.literal.text), index, "reference", caller);
        }
        break;
      }
      case K.ImportType:
        importType(node, scope, caller);
        return;
      case K.ImportDeclaration:
        importDeclaration(node, scope, caller);
        return;
      case K.ExportDeclaration:
        exportDeclaration(node, scope, caller);
        return;
      case K.VariableDeclaration:
      case K.Parameter:
      case K.BindingElement:
        destructured(node, caller);
        break;
      case K.ObjectLiteralExpression: {
        // The keys of an object expected to be of a known type are its members.
        const expected = resolver.contextual(node);
        if (!expected) break;
        for (const p of node.properties) {
          const name = memberName(p.name);
          if (name !== null) emit(resolver.member(expected, name), p.name, "reference", caller);
        }
        break;
      }
      case K.NewExpression:
      case K.CallExpression: {
        // `new C()` and `super()` call the constructor of a declared class
        // (that of `var C = class {}` is the anonymous class's).
        const callee = node.expression;
        const cls = ts.isNewExpression(node)
          ? unbound(resolver.callee(callee, scope, file, 0))
          : callee.kind === K.SuperKeyword ? resolver.value(callee, scope, file)?.sym : null;
        if (cls instanceof Sym && cls.ctor && cls.nodes.some((n) => ts.isClassDeclaration(n)))
          emit(cls.ctor, ts.isPropertyAccessExpression(callee) ? callee.name : callee, "call", caller);
        break;
      }
      default:
    }
    node.forEachChild((child) => walk(child, scope, caller));
  };

  // identifier: a name in the code, resolved by where it stands.
  const identifier = (id, scope, caller) => {
    const parent = id.parent;
    if (ts.isPropertyAccessExpression(parent) && parent.name === id) {
      if (declares(parent, js)) return;
      const base = resolver.value(parent.expression, scope, file);
      emit(resolver.member(base, id.text), id, usageOf(parent), caller);
      return;
    }
    if (ts.isQualifiedName(parent)) {
      // The left of `A.B` is a namespace (a value in `typeof A.B` and `import X = A.B`).
      const top = qualifiedTop(parent);
      if (kDeclarations.has(top.parent.kind) && top.parent.name === top) return;  // `@param {T} options.app`
      const left = ts.isTypeQueryNode(top.parent) || ts.isImportEqualsDeclaration(top.parent) ? VALUE : NS;
      const target = parent.right === id
        ? resolver.member(resolver.entityOf(resolver.entityName(parent.left, scope, left)), id.text)
        : resolver.target(scope.lookup(id.text, left));
      emit(target, id, "reference", caller);
      return;
    }
    if (kDeclarations.has(parent.kind) && parent.name === id) return;
    if (ts.isLabeledStatement(parent) || ts.isBreakOrContinueStatement(parent)) return;
    if (ts.isJSDocMemberName(parent) && parent.right === id) return;
    if (ts.isBindingElement(parent)) return;  // its key is resolved with its declaration
    if (ts.isJsxAttribute(parent) || ts.isMetaProperty(parent)) return;
    if (isJsxTag(id) && /^[a-z]/.test(id.text)) return;  // an intrinsic element, <div>
    if (ts.isTypeReferenceNode(parent) || (ts.isExpressionWithTypeArguments(parent) && !isClassExtends(parent))) {
      emit(resolver.target(scope.lookup(id.text, TYPE)), id, "reference", caller);
      return;
    }
    if (ts.isExportAssignment(parent) || ts.isJSDocLinkLike(parent)) {
      emit(resolver.target(anyMeaning(scope, id.text)), id, "reference", caller);
      return;
    }
    if (ts.isTypeQueryNode(parent)) {
      emit(resolver.target(scope.lookup(id.text, VALUE)), id, "reference", caller);
      return;
    }
    emit(resolver.target(scope.lookup(id.text, VALUE)), id, usageOf(id), caller);
  };

  // destructured: the keys of an object pattern, members of the value it
  // takes apart (`const { a } = require("./m")`, `({ a }: Props) => ...`).
  const destructured = (node, caller) => {
    if (!node.name || !ts.isObjectBindingPattern(node.name)) return;
    const init = ts.isVariableDeclaration(node) && node.initializer && skipParens(node.initializer);
    const usage = init && requireOf(init) !== null ? "import" : "reference";
    const base = resolver.patternSource(node);
    if (!base) return;
    for (const e of node.name.elements) {
      const key = e.propertyName ?? e.name;
      const name = memberName(key);
      if (name !== null) emit(resolver.member(base, name), key, usage, caller);
    }
  };

  const importDeclaration = (node, scope, caller) => {
    const clause = node.importClause;
    if (clause && ts.isStringLiteralLike(node.moduleSpecifier)) {
      const specifier = node.moduleSpecifier.text;
      if (clause.name) emit(resolver.target(new Import(file, specifier, "default")), clause.name, "import", caller);
      const named = clause.namedBindings;
      if (named && ts.isNamedImports(named)) {
        for (const e of named.elements) {
          const key = e.propertyName ?? e.name;
          emit(resolver.target(new Import(file, specifier, key.text)), key, "import", caller);
        }
      }
    }
    node.attributes?.forEachChild((child) => walk(child, scope, caller));
  };

  const exportDeclaration = (node, scope, caller) => {
    const clause = node.exportClause;
    if (!clause || !ts.isNamedExports(clause)) return;
    const specifier = specifierOf(node);
    for (const e of clause.elements) {
      const key = e.propertyName ?? e.name;
      if (!ts.isIdentifier(key) && !ts.isStringLiteral(key)) continue;
      if (specifier !== null) emit(resolver.target(new Import(file, specifier, key.text)), key, "import", caller);
      else emit(resolver.target(anyMeaning(scope, key.text)), key, "reference", caller);
    }
  };

  // importType: `import("./m").A.B`, each part a use.
  const importType = (node, scope, caller) => {
    node.typeArguments?.forEach((t) => walk(t, scope, caller));
    if (!ts.isLiteralTypeNode(node.argument) || !ts.isStringLiteral(node.argument.literal)) return;
    const m = resolver.module(file, node.argument.literal.text);
    let t = m instanceof Sym ? m : m ? new ModuleRef(m) : null;
    const names = [];
    for (let q = node.qualifier; q; q = ts.isQualifiedName(q) ? q.left : null)
      names.unshift(ts.isQualifiedName(q) ? q.right : q);
    for (const name of names) {
      t = resolver.member(resolver.entityOf(t), name.text);
      emit(t, name, "reference", caller);
    }
  };

  resolver.startFile();
  walk(sf, file.scope, null);
  return [...found.values()];
}

const anyMeaning = (scope, name) => scope.lookup(name, VALUE) ?? scope.lookup(name, TYPE) ?? scope.lookup(name, NS);

// declares: whether `this.x` is assigned where JavaScript declares x by it
// (`this.x = v` in a class's members), which is no use of x.
function declares(access, js) {
  const assignment = access.parent;
  return js && access.expression.kind === K.ThisKeyword && ts.isBinaryExpression(assignment) &&
    assignment.left === access && assignment.operatorToken.kind === K.EqualsToken && thisClass(access) !== null;
}

function qualifiedTop(node) {
  while (ts.isQualifiedName(node.parent)) node = node.parent;
  return node;
}

function isClassExtends(node) {
  const clause = node.parent;
  return ts.isHeritageClause(clause) && clause.token === K.ExtendsKeyword && ts.isClassLike(clause.parent);
}

function isJsxTag(id) {
  const p = id.parent;
  return (ts.isJsxOpeningElement(p) || ts.isJsxSelfClosingElement(p) || ts.isJsxClosingElement(p)) && p.tagName === id;
}

// usageOf: "call" for the callee of a call, `new`, a tagged template or a decorator; "reference" else.
function usageOf(node) {
  let n = node;
  while (ts.isParenthesizedExpression(n.parent) || ts.isNonNullExpression(n.parent)) n = n.parent;
  const p = n.parent;
  if ((ts.isCallExpression(p) || ts.isNewExpression(p) || ts.isDecorator(p)) && p.expression === n) return "call";
  if (ts.isTaggedTemplateExpression(p) && p.tag === n) return "call";
  return "reference";
}
