export interface Item { name: string }
export interface Box<T> { value: T }
export interface Named<T extends Item = Item> { first: T } //> box.Item
export interface Labeled<T> extends Box<T> { label: string } //> box.Box

export function wrap<T>(value: T): Box<T> { //> box.Box
  return { value }; //> box.Box.value
}
export function make<T extends Item>(init: (item: T) => void): Named<T> { //> box.Item box.Named
  return null!;
}
export class Store<T> {
  constructor(public data: T) {}
  get(): T {
    return this.data; //> box.Store.data
  }
}
export class Holder<D> {
  constructor(public def: D) {}
}
export class ItemHolder extends Holder<Item> {} //> box.Holder box.Item
