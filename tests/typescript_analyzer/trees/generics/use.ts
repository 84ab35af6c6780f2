import {
  make, wrap, Store, ItemHolder, //> box.make box.wrap box.Store box.ItemHolder
  type Box, type Item, type Labeled, type Named, //> box.Box box.Item box.Labeled box.Named
} from "./box";

const box: Box<Item> = wrap({ name: "a" }); //> box.Box box.Item box.wrap box.Item.name
export const first = box.value.name; //> use.box box.Box.value box.Item.name
const store = new Store<Item>({ name: "b" }); //> box.Store box.Store.constructor box.Item box.Item.name
store.get().name; //> use.store box.Store.get box.Item.name
export const named: Named = make((item) => item.name); //> box.Named box.make box.Item.name
export function label(l: Labeled<Item>) { //> box.Labeled box.Item
  return l.value.name + l.label; //> box.Box.value box.Item.name box.Labeled.label
}
new ItemHolder({ name: "c" }); //> box.ItemHolder box.Item.name
