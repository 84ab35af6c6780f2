// What resolution answers: the targets a name or member stands for, and
// the entities members are looked up on.

// How deep one resolution may go (chains of aliases, bases, types): beyond,
// it resolves to nothing rather than run long on a tree made to loop.
export const kDeepest = 40;

/** A module as a value: `import * as m`, `require("m")`. */
export class ModuleRef {
  constructor(file) {
    this.file = file;
  }
}

/**
 * A member of an instance of a generic: the Sym, and the types its
 * owner's type parameters were given (TypeParameterDeclaration -> binding),
 * which its own type may name.
 */
export class Bound {
  constructor(sym, args) {
    this.sym = sym;
    this.args = args;
  }
}

/** A value known only by what it is: a member of a Record or of an index signature. */
export class Held {
  constructor(entity) {
    this.entity = entity;
  }
}

/** unbound: the Sym (or other target) a resolution stands for, without type arguments. */
export const unbound = (t) => (t instanceof Bound ? t.sym : t);

// Entities, what members are looked up on (`args`: the type arguments of
// a generic, as in Bound):
//   { sym, side: "static" }          the definition as a value: a class, an enum, a namespace, a function
//   { sym, side: "instance", args }  an instance of a class, interface or object type
//   { module }                       a module's exports
//   { parts: [entity], union }       a union or intersection of entities
//   { index: entity }                an object of any keys, each holding an entity (Record<K, V>)
//   { literal: node, args }          an object type written in place, `{ a: A }`
//   { promise: entity }              a Promise of an entity, until awaited
//   { element: entity }              an array of an entity
//   { signature: node, args }        a function, by the declaration of its parameters
