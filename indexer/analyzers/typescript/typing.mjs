// What a value or a type is, where the source says so, as the entity its
// members are looked up on (see resolver.mjs): an annotation, `new C()`,
// `this`, what a function returns, what an object or a function is
// expected to be where it is written, with a generic's type arguments
// where they are written or follow from the expected type. No inference
// beyond: where only a type checker could tell, it is nothing.
import ts from "./ts.mjs";

import { Import, Local, Sym, TYPE, VALUE, hasModifier, isJs, kFunctionLike, memberName, requireOf } from "./scopes.mjs";
import { Bound, ModuleRef, kDeepest, unbound } from "./entities.mjs";
import { skipParens } from "./text.mjs";

const K = ts.SyntaxKind;

// What the standard library's one-type generics hold, when the tree does not define them.
const kHolders = {
  Promise: "promise", PromiseLike: "promise", Array: "element", ReadonlyArray: "element", Set: "element",
  Readonly: "same", Partial: "same", Required: "same", NonNullable: "same",
};

// What runs code or not: an assignment in one is not sure to have run after it.
const kBranches = new Set([
  K.IfStatement, K.ConditionalExpression, K.ForStatement, K.ForInStatement, K.ForOfStatement, K.WhileStatement,
  K.DoStatement, K.CaseClause, K.DefaultClause, K.TryStatement, K.CatchClause,
]);
const kLogical = new Set([K.AmpersandAmpersandToken, K.BarBarToken, K.QuestionQuestionToken]);

// Array methods that take elements: their arguments are expected to be elements.
const kAdds = new Set(["push", "unshift"]);

const isLiteral = (node) => ts.isStringLiteralLike(node) || ts.isNumericLiteral(node);
const isThisParameter = (p) => p.name && ts.isIdentifier(p.name) && p.name.text === "this";
const ownParameters = (fn) => fn.parameters.filter((p) => !isThisParameter(p));

// Bindings of type parameters (TypeParameterDeclaration -> binding), one of
//   { node, scope, args, within }  a type written in the code, read where it is written
//   { entity }                     what an argument of a call was found to be

export const typing = {
  /** symType: the type of a variable or property, from its annotation or its value. */
  symType(sym, depth, args = null) {
    if (!args && this.symTypeMemo.has(sym)) return this.symTypeMemo.get(sym);
    if (!args) this.symTypeMemo.set(sym, null);
    let found = null;
    for (const node of sym.nodes) {
      const file = this.fileOfNode(node);
      const scope = this.scopeOf(file, node);
      if (ts.isGetAccessor(node)) found = this.returned(new Bound({ nodes: [node] }, args), depth + 1);
      else if (kFunctionLike.has(node.kind)) continue;
      else if (ts.isShorthandPropertyAssignment(node)) found = this.value(node.name, scope, file, depth + 1);
      else if (ts.isBinaryExpression(node)) found = this.value(node.right, scope, file, depth + 1);
      else if (node.type) found = this.type(node.type, scope, depth + 1, false, args);
      else if (node.initializer) found = this.value(node.initializer, scope, file, depth + 1);
      if (found) break;
    }
    if (!args) this.symTypeMemo.set(sym, found);
    return found;
  },

  localType(local, depth) {
    const node = local.node;
    const file = this.fileOfNode(node);
    if (local.type) return this.type(local.type, this.scopeOf(file, node), depth + 1, !local.args, local.args ?? null);
    if (ts.isParameter(node)) return this.parameterType(node, depth + 1);
    if (ts.isBindingElement(node)) return this.elementType(node, depth + 1);
    if (ts.isVariableDeclaration(node) && ts.isForOfStatement(node.parent.parent)) {
      const loop = node.parent.parent;
      return this.value(loop.expression, this.scopeOf(file, loop, true), file, depth + 1)?.element ?? null;
    }
    if (local.init) return this.value(local.init, this.scopeOf(file, node), file, depth + 1);
    return null;
  },

  // assignedBefore: what a variable declared without a value (`let client;`,
  // `let client = null;`) holds where `use` reads it: the value of the last
  // assignment before it in its function, outside any branch that does not
  // hold the use too (after `if (c) x = v`, x may or may not be v).
  assignedBefore(use, target, file, depth) {
    let fn = use.parent;
    while (fn && !kFunctionLike.has(fn.kind) && !ts.isSourceFile(fn)) fn = fn.parent;
    const around = (n) => {
      for (let a = n.parent; a; a = a.parent) {
        if (a.pos <= use.pos && use.end <= a.end) return true;
        if (kBranches.has(a.kind) || (ts.isBinaryExpression(a) && kLogical.has(a.operatorToken.kind))) return false;
      }
      return false;
    };
    let last = null;
    const visit = (n) => {
      if (n.pos >= use.pos || (n !== fn && (kFunctionLike.has(n.kind) || ts.isClassLike(n)))) return;
      if (ts.isBinaryExpression(n) && n.operatorToken.kind === K.EqualsToken && ts.isIdentifier(n.left) &&
          n.left.text === use.text && n.end <= use.pos && around(n) &&
          this.scopeOf(file, n).lookup(use.text, VALUE) === target)
        last = n;
      n.forEachChild(visit);
    };
    if (fn) visit(fn);
    return last ? this.value(last.right, this.scopeOf(file, last), file, depth + 1) : null;
  },

  // parameterType: the type of a parameter without an annotation, from the
  // function type its function is expected to have. The function implements
  // that signature's own type parameters: in it they have their constraints.
  parameterType(param, depth) {
    const fn = param.parent;
    if (!kFunctionLike.has(fn.kind)) return null;
    const expected = this.contextual(fn, depth + 1);
    const signature = expected?.signature;
    const declared = signature && ownParameters(signature)[ownParameters(fn).indexOf(param)];
    if (!declared?.type) return null;
    const scope = this.scopeOf(this.fileOfNode(signature), signature, true);
    const args = new Map(expected.args ?? []);
    for (const p of signature.typeParameters ?? [])
      if (!args.has(p) && p.constraint) args.set(p, { node: p.constraint, scope, args, within: true });
    return this.type(declared.type, this.scopeOf(this.fileOfNode(declared), declared), depth + 1, false, args);
  },

  // elementType: what a name of an object pattern holds: the member of the value taken apart.
  elementType(element, depth) {
    if (!ts.isObjectBindingPattern(element.parent)) return null;
    const key = memberName(element.propertyName ?? element.name);
    const whole = this.patternSource(element.parent.parent, depth + 1);
    return key === null ? null : this.memberType(this.member(whole, key, depth + 1), depth + 1);
  },

  /** patternSource: the entity a declaration with a binding pattern takes apart. */
  patternSource(decl, depth = 0) {
    const file = this.fileOfNode(decl);
    const scope = this.scopeOf(file, decl);
    if (ts.isBindingElement(decl)) return this.elementType(decl, depth + 1);
    if (decl.type) {
      const at = ts.isParameter(decl) ? this.scopeOf(file, decl.parent, true) : scope;
      return this.type(decl.type, at, depth + 1, true);
    }
    if (ts.isParameter(decl)) return this.parameterType(decl, depth + 1);
    if (decl.initializer) return this.value(decl.initializer, scope, file, depth + 1);
    return null;
  },

  /** memberType: what a member holds: its type or value, or the signature of a method. */
  memberType(m, depth = 0) {
    const sym = unbound(m);
    const method = sym instanceof Sym && sym.nodes.find((n) => ts.isMethodSignature(n) || ts.isMethodDeclaration(n));
    if (method) return { signature: method, args: m instanceof Bound ? m.args : null };
    return this.entityOf(m, depth + 1);
  },

  /**
   * contextual: the entity an expression is expected to be where the code
   * says so: a variable's, property's or parameter's annotation, `satisfies`
   * or `as`, a function's return type, a called function's parameter, the
   * property of an object that is itself expected to be one.
   */
  contextual(expr, depth = 0) {
    if (depth > kDeepest || !this.spend()) return null;
    const expected = this.expected(expr, depth);
    return expected?.parts && ts.isObjectLiteralExpression(expr) ? this.discriminated(expected, expr, depth) : expected;
  },

  // discriminated: the parts of a union an object literal can be, by the
  // literal values it gives to members the parts declare with literal types
  // (`{ code: "too_small", ... }` of `A | B`), as TypeScript reads it.
  discriminated(union, object, depth) {
    const given = object.properties.filter((p) => ts.isPropertyAssignment(p) && isLiteral(p.initializer));
    const fits = (part) => given.every((p) => {
      const declared = unbound(this.member(part, memberName(p.name), depth + 1))?.nodes?.[0]?.type;
      const literals = declared && (ts.isUnionTypeNode(declared) ? declared.types : [declared]);
      return !literals?.every((t) => ts.isLiteralTypeNode(t)) ||
        literals.some((t) => t.literal.text === p.initializer.text);
    });
    const parts = union.parts.filter(fits);
    return parts.length === 1 ? parts[0] : parts.length ? { ...union, parts } : union;
  },

  expected(expr, depth) {
    const p = expr.parent;
    const file = this.fileOfNode(expr);
    const typeAt = (t, at) => this.type(t, this.scopeOf(file, at), depth + 1);
    const memberOf = (object, name) => name === null
      ? null : this.memberType(this.member(this.contextual(object, depth + 1), name, depth + 1), depth + 1);
    if (ts.isObjectLiteralExpression(p)) return memberOf(p, memberName(expr.name));  // a method of an object
    switch (p.kind) {
      case K.ParenthesizedExpression:
      case K.ConditionalExpression:
        return p.condition === expr ? null : this.contextual(p, depth + 1);
      case K.VariableDeclaration:
      case K.PropertyDeclaration:
      case K.Parameter:
        return p.initializer === expr && p.type ? typeAt(p.type, p) : null;
      case K.SatisfiesExpression:
      case K.AsExpression:
        return typeAt(p.type, p);
      case K.ReturnStatement:
      case K.ArrowFunction: {
        if (ts.isArrowFunction(p) && p.body !== expr) return null;
        let fn = p;
        while (fn && !kFunctionLike.has(fn.kind)) fn = fn.parent;
        if (!fn?.type) return null;
        const t = this.type(fn.type, this.scopeOf(file, fn, true), depth + 1);
        return hasModifier(fn, K.AsyncKeyword) ? t?.promise ?? null : t;
      }
      case K.PropertyAssignment:
        return p.initializer === expr ? memberOf(p.parent, memberName(p.name)) : null;
      case K.ArrayLiteralExpression:
        return this.contextual(p, depth + 1)?.element ?? null;
      case K.CallExpression:
      case K.NewExpression: {
        const i = p.arguments?.indexOf(expr) ?? -1;
        if (i >= 0 && ts.isPropertyAccessExpression(p.expression) && kAdds.has(p.expression.name.text)) {
          const array = this.value(p.expression.expression, this.scopeOf(file, p), file, depth + 1);
          if (array?.element) return array.element;
        }
        const called = i < 0 ? null : this.signatureCalled(p, i, depth + 1);
        const param = called && ownParameters(called.signature)[i];
        if (!param?.type || param.dotDotDotToken) return null;
        return this.type(param.type, this.scopeOf(this.fileOfNode(param), param), depth + 1, false, called.args);
      }
      case K.BinaryExpression: {
        if (p.right !== expr) return null;
        if (p.operatorToken.kind !== K.EqualsToken) return this.contextual(p, depth + 1);
        if (!ts.isPropertyAccessExpression(p.left)) return null;
        const object = this.value(p.left.expression, this.scopeOf(file, p), file, depth + 1);
        return this.memberType(this.member(object, p.left.name.text, depth + 1), depth + 1);
      }
      default:
        return null;
    }
  },

  // signatureCalled: the signature a call or `new` calls, with at least `i`
  // + 1 parameters, and its type parameters' bindings: { signature, args }.
  signatureCalled(call, i, depth) {
    const file = this.fileOfNode(call);
    const scope = this.scopeOf(file, call);
    const callee = this.callee(call.expression, scope, file, depth + 1);
    const sym = unbound(callee);
    const outer = callee instanceof Bound ? callee.args : null;
    const fits = (n) => kFunctionLike.has(n.kind) && ownParameters(n).length > i;
    let signature = null;
    let args = outer;
    if (sym instanceof Sym && ts.isNewExpression(call)) {
      // The class's constructor, or the one it inherits, with the type
      // arguments its heritage gives the base.
      const given = call.typeArguments?.map((a) => ({ node: a, scope, args: null, within: true }));
      const isClass = (b) => b.sym?.nodes.some((n) => ts.isClassLike(n));
      let cls = { sym, args: this.givenArguments(sym, given) };
      for (let up = 0; cls && !cls.sym.ctor && up < kDeepest; ++up)
        cls = this.bases(cls.sym, "instance", depth + 1, cls.args).find(isClass);
      signature = cls?.sym.ctor?.nodes.find(fits);
      args = cls?.args ?? null;
    } else if (sym instanceof Sym) {
      signature = sym.nodes.map((n) => (ts.isVariableDeclaration(n) && n.initializer ? skipParens(n.initializer) : n))
        .find(fits);
    } else {
      // A value whose type has a call (or construct) signature: `Class: new (def: D) => T`.
      const entity = this.entityOf(callee, depth + 1);
      const kind = ts.isNewExpression(call) ? K.ConstructSignature : K.CallSignature;
      const members = entity?.literal?.members ?? entity?.sym?.nodes.flatMap((n) => ts.isInterfaceDeclaration(n)
        ? n.members : ts.isTypeAliasDeclaration(n) && ts.isTypeLiteralNode(n.type) ? n.type.members : []);
      signature = entity?.signature ?? members?.find((m) => m.kind === kind) ?? null;
      if (entity?.signature && ts.isNewExpression(call) !== ts.isConstructorTypeNode(entity.signature))
        signature = null;
      args = entity?.args ?? null;
      if (signature && !fits(signature)) signature = null;
    }
    if (!signature) return null;
    return { signature, args: this.inferred(signature, call, depth + 1, args) };
  },

  // inferred: the bindings of a called signature's type parameters: as
  // written (`f<T>(...)`), from what the call is expected to give (the
  // declared return type `G<T>` against an expected `G<X>`), or from an
  // argument given for a parameter of type `T`.
  inferred(signature, call, depth, outer) {
    const params = signature.typeParameters ?? [];
    if (!params.length) return outer;
    const args = new Map(outer ?? []);
    const file = this.fileOfNode(call);
    const scope = this.scopeOf(file, call);
    params.forEach((p, i) => {
      if (call.typeArguments?.[i]) args.set(p, { node: call.typeArguments[i], scope, args: null, within: true });
    });
    const named = (t) => t && ts.isTypeReferenceNode(t) && ts.isIdentifier(t.typeName)
      ? params.find((p) => p.name.text === t.typeName.text) : undefined;
    const returns = signature.type;
    if (returns && ts.isTypeReferenceNode(returns) && returns.typeArguments && params.some((p) => !args.has(p))) {
      const expected = this.contextual(call, depth + 1);
      const generic = expected?.sym?.nodes.find((n) => n.typeParameters?.length);
      const returnsScope = this.scopeOf(this.fileOfNode(returns), returns);
      const returnsSym = generic && unbound(this.entityName(returns.typeName, returnsScope, TYPE, depth + 1));
      const same = returnsSym && returnsSym === expected.sym;
      if (same && expected.args) {
        returns.typeArguments.forEach((t, i) => {
          const p = named(t);
          const given = generic.typeParameters[i] && expected.args.get(generic.typeParameters[i]);
          if (p && given && !args.has(p)) args.set(p, given);
        });
      }
    }
    ownParameters(signature).forEach((param, i) => {
      const p = named(param.type);
      if (!p || args.has(p) || !call.arguments?.[i]) return;
      const entity = this.value(call.arguments[i], scope, file, depth + 1);
      if (entity) args.set(p, { entity });
    });
    const declared = this.scopeOf(this.fileOfNode(signature), signature, true);
    for (const p of params)
      if (!args.has(p) && p.default) args.set(p, { node: p.default, scope: declared, args, within: false });
    return args;
  },

  /**
   * type: the entity a type node stands for, or null. `within`: the type is
   * read where its type parameters are not given (of a local or a parameter,
   * used in the generic function itself), so that a type parameter has the
   * members of its constraint; elsewhere (a member of a generic's instance,
   * a parameter of a generic being called) it is what `args` binds it to.
   */
  type(node, scope, depth = 0, within = false, args = null) {
    if (!node || depth > kDeepest || !this.spend()) return null;
    const memo = args ? null : within ? this.typeWithinMemo : this.typeMemo;
    if (memo?.has(node)) return memo.get(node);
    memo?.set(node, null);
    const found = this.typeUncached(node, scope, depth, within, args);
    memo?.set(node, found);
    return found;
  },

  typeUncached(node, scope, depth, within, args) {
    const inner = (t) => this.type(t, scope, depth + 1, within, args);
    switch (node.kind) {
      case K.TypeReference:
      case K.ExpressionWithTypeArguments: {
        const name = ts.isTypeReferenceNode(node) ? node.typeName : node.expression;
        const t = unbound(this.entityName(name, scope, TYPE, depth + 1));
        if (t instanceof Sym) {
          const given = node.typeArguments?.map((a) => ({ node: a, scope, args, within }));
          return this.instanceOf(t, depth + 1, this.givenArguments(t, given));
        }
        if (t instanceof Local && ts.isTypeParameterDeclaration(t.node)) {
          const bound = args?.get(t.node);
          if (bound?.entity) return bound.entity;
          if (bound) return this.type(bound.node, bound.scope, depth + 1, bound.within, bound.args);
          // A type parameter of the code it is read in has the members of its constraint.
          if (within && t.node.constraint)
            return this.type(t.node.constraint, this.scopeOf(this.fileOfNode(t.node), t.node), depth + 1, within);
          return null;
        }
        if (!t && ts.isIdentifier(name) && name.text === "Record" && node.typeArguments?.length === 2) {
          const values = inner(node.typeArguments[1]);
          return values ? { index: values } : null;
        }
        // The standard library's generics that hold one type, when the tree does not define them.
        const held = !t && ts.isIdentifier(name) && node.typeArguments?.length === 1 ? kHolders[name.text] : undefined;
        const of = held && inner(node.typeArguments[0]);
        return of ? (held === "same" ? of : { [held]: of }) : null;
      }
      case K.ParenthesizedType:
        return inner(node.type);
      case K.ArrayType: {
        const element = inner(node.elementType);
        return element ? { element } : null;
      }
      case K.TypeOperator:
        return node.operator === K.ReadonlyKeyword ? inner(node.type) : null;
      case K.FunctionType:
      case K.ConstructorType:
        return { signature: node, args };
      case K.UnionType:
      case K.IntersectionType: {
        // The parts that are not of the tree (null, string) have none of its members.
        const parts = node.types.map(inner).filter(Boolean);
        return parts.length > 1 ? { parts, union: ts.isUnionTypeNode(node) } : parts[0] ?? null;
      }
      case K.TypeLiteral:
        return { literal: node, args };
      case K.IndexedAccessType: {
        const index = node.indexType;
        if (!ts.isLiteralTypeNode(index) || !ts.isStringLiteral(index.literal)) return null;
        return this.memberType(this.member(inner(node.objectType), index.literal.text, depth + 1), depth + 1);
      }
      case K.TypeQuery:
        return this.entityOf(this.entityName(node.exprName, scope, VALUE, depth + 1), depth + 1);
      case K.ImportType: {
        const file = this.fileOfNode(node);
        const specifier = ts.isLiteralTypeNode(node.argument) && ts.isStringLiteral(node.argument.literal)
          ? node.argument.literal.text : null;
        const m = specifier !== null && file ? this.module(file, specifier) : null;
        let t = m instanceof Sym ? m : m ? new ModuleRef(m) : null;
        const names = [];
        for (let q = node.qualifier; q; q = ts.isQualifiedName(q) ? q.left : null)
          names.unshift(ts.isQualifiedName(q) ? q.right.text : q.text);
        for (const n of names) t = this.member(this.entityOf(t, depth + 1), n, depth + 1);
        if (!t) return null;
        return node.isTypeOf ? this.entityOf(t, depth + 1) : t instanceof Sym ? this.instanceOf(t, depth + 1) : null;
      }
      default:
        return null;
    }
  },

  // givenArguments: the bindings of a generic's type parameters to the
  // arguments `given` ({ node, scope, args, within } each), or to their defaults.
  givenArguments(sym, given) {
    const generics = sym.nodes.filter((n) => n.typeParameters?.length);
    if (!generics.length) return null;
    const args = new Map();
    for (const node of generics) {
      const declared = this.scopeOf(this.fileOfNode(node), node, true);
      node.typeParameters.forEach((p, i) => {
        if (given?.[i]) args.set(p, given[i]);
        else if (p.default) args.set(p, { node: p.default, scope: declared, args, within: false });
      });
    }
    return args.size ? args : null;
  },

  // instanceOf: the entity of a value whose type is the definition `sym`.
  instanceOf(sym, depth, args = null) {
    if (sym.nodes.some((n) => ts.isClassLike(n) || ts.isInterfaceDeclaration(n)))
      return { sym, side: "instance", args };
    const alias = sym.nodes.find((n) => ts.isTypeAliasDeclaration(n));
    if (alias && ts.isTypeLiteralNode(alias.type)) return { sym, side: "instance", args };
    if (alias) return this.type(alias.type, this.scopeOf(this.fileOfNode(alias), alias, true), depth + 1, false, args);
    return null;
  },

  /** value: the entity an expression's value is, or null. */
  value(node, scope, file, depth = 0) {
    if (!node || depth > kDeepest || !this.spend()) return null;
    if (this.valueMemo.has(node)) return this.valueMemo.get(node);
    this.valueMemo.set(node, null);
    const found = this.valueUncached(node, scope, file, depth);
    this.valueMemo.set(node, found);
    return found;
  },

  valueUncached(node, scope, file, depth) {
    while (ts.isParenthesizedExpression(node) || ts.isNonNullExpression(node) || ts.isSatisfiesExpression(node))
      node = node.expression;
    switch (node.kind) {
      case K.Identifier: {
        const t = this.target(scope.lookup(node.text, VALUE), depth + 1);
        return declaredEmpty(t) ? this.assignedBefore(node, t, file, depth + 1) : this.entityOf(t, depth + 1);
      }
      case K.ThisKeyword:
      case K.SuperKeyword: {
        const declared = node.kind === K.ThisKeyword ? thisParameter(node) : null;
        if (declared)
          return this.type(declared.type, this.scopeOf(this.fileOfNode(declared), declared), depth + 1, true);
        const at = thisClass(node);
        const sym = at && this.classSym(at.cls);
        if (!sym) return null;
        if (node.kind === K.ThisKeyword) return { sym, side: at.side };
        return this.bases(sym, at.side, depth + 1).find((b) => b.sym?.nodes.some((n) => ts.isClassLike(n))) ?? null;
      }
      case K.ObjectLiteralExpression: {
        const sym = this.fileOfNode(node)?.literals.get(node);
        return sym ? { sym, side: "static" } : null;
      }
      case K.PropertyAccessExpression:
      case K.ElementAccessExpression: {
        const name = accessName(node);
        const base = this.value(node.expression, scope, file, depth + 1);
        if (name === null) return ts.isElementAccessExpression(node) ? base?.element ?? base?.index ?? null : null;
        return this.entityOf(this.member(base, name, depth + 1), depth + 1);
      }
      case K.NewExpression: {
        const callee = this.callee(node.expression, scope, file, depth);
        const t = unbound(callee);
        if (t instanceof Sym && t.nodes.some((n) => ts.isClassLike(n))) {
          const given = node.typeArguments?.map((a) => ({ node: a, scope, args: null, within: true }));
          return { sym: t, side: "instance", args: this.givenArguments(t, given) };
        }
        const called = this.signatureCalled(node, -1, depth + 1);
        const returns = called?.signature.type;
        if (!returns) return null;
        const at = this.scopeOf(this.fileOfNode(called.signature), called.signature);
        return this.type(returns, at, depth + 1, false, called.args);
      }
      case K.CallExpression: {
        const specifier = requireOf(node);
        if (specifier !== null && file && isJs(file.path))
          return this.entityOf(this.imported(new Import(file, specifier, "="), depth + 1), depth + 1);
        return this.returned(this.callee(node.expression, scope, file, depth), depth + 1, node);
      }
      case K.AwaitExpression:
        return this.value(node.expression, scope, file, depth + 1)?.promise ?? null;
      case K.AsExpression:
      case K.TypeAssertionExpression:
        return this.type(node.type, scope, depth + 1);
      default:
        return null;
    }
  },

  // returned: what calling a function or method gives: its declared return
  // type (its type parameters bound as the call gives them), or what its
  // return statements give when it declares none.
  returned(t, depth, call = null) {
    const sym = unbound(t);
    if (!sym?.nodes) return null;
    const fns = sym.nodes.map((n) => (ts.isVariableDeclaration(n) || ts.isPropertyDeclaration(n)) && n.initializer
      ? skipParens(n.initializer) : n).filter((n) => kFunctionLike.has(n.kind));
    const outer = t instanceof Bound ? t.args : null;
    const typed = fns.find((n) => n.type);
    if (typed) {
      const args = call ? this.inferred(typed, call, depth + 1, outer) : outer;
      return this.type(typed.type, this.scopeOf(this.fileOfNode(typed), typed, true), depth + 1, false, args);
    }
    const fn = fns.find((n) => n.body);
    if (!fn) return null;
    const file = this.fileOfNode(fn);
    if (!ts.isBlock(fn.body)) return this.value(fn.body, this.scopeOf(file, fn, true), file, depth + 1);
    for (const r of returns(fn.body)) {
      const v = this.value(r.expression, this.scopeOf(file, r), file, depth + 1);
      if (v) return v;
    }
    return null;
  },

  // callee: the definition a called or constructed expression names.
  callee(expr, scope, file, depth) {
    expr = skipParens(expr);
    if (ts.isIdentifier(expr)) return this.target(scope.lookup(expr.text, VALUE), depth + 1);
    if (ts.isPropertyAccessExpression(expr) || ts.isElementAccessExpression(expr)) {
      const name = accessName(expr);
      return name === null ? null : this.member(this.value(expr.expression, scope, file, depth + 1), name, depth + 1);
    }
    return null;
  },
};

/** declaredEmpty: whether a variable is declared without a type and a value (or with null): `let x;`. */
function declaredEmpty(t) {
  const node = t instanceof Local ? t.node : t instanceof Sym && t.nodes.length === 1 ? t.nodes[0] : null;
  return !!node && ts.isVariableDeclaration(node) && !node.type && ts.isIdentifier(node.name) &&
    (!node.initializer || node.initializer.kind === K.NullKeyword) &&
    !ts.isForOfStatement(node.parent.parent) && !ts.isForInStatement(node.parent.parent);
}

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

/**
 * thisClass: the class `this` (or `super`) refers to at `node`, and which
 * side of it (in a static member, the class itself); null outside a class
 * or inside a function that has its own `this`.
 */
export function thisClass(node) {
  for (let n = node.parent; n; n = n.parent) {
    if (ts.isClassLike(n)) return null;
    if (n.parent && ts.isClassLike(n.parent) && (ts.isMethodDeclaration(n) || ts.isConstructorDeclaration(n) ||
        ts.isAccessor(n) || ts.isPropertyDeclaration(n) || ts.isClassStaticBlockDeclaration(n))) {
      const isStatic = ts.isClassStaticBlockDeclaration(n) ||
        (ts.getCombinedModifierFlags(n) & ts.ModifierFlags.Static) !== 0;
      return { cls: n.parent, side: isStatic ? "static" : "instance" };
    }
    if (ts.isFunctionDeclaration(n) || ts.isFunctionExpression(n) || ts.isMethodDeclaration(n) ||
        ts.isAccessor(n) || ts.isConstructorDeclaration(n))
      return null;  // a function of its own `this`, or a member of an object literal
  }
  return null;
}
