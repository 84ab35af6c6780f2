export const limit = 10;
export interface Item { name: string }
export function item(name: string): Item { //> names.Item
  return { name }; //> names.Item.name
}

export function count(limit: number, items: Item[]): number { //> names.Item
  let total = limit;
  for (const item of items) {
    const name = item.name; //> names.Item.name
    total += name.length;
  }
  try {
    item("x"); //> names.item
  } catch (limit) {
    total += limit;
  }
  {
    const limit = 3;
    total += limit;
  }
  return total + limit;
}

export function outer(): number {
  const Item = 1;
  const typed: Item = item("y"); //> names.Item names.item
  function limit() { return Item; }
  try {
    item("z"); //> names.item
  } catch (item) {
    void item;
  }
  return limit() + typed.name.length; //> names.Item.name
}

export function blocks(): number {
  if (limit > 1) { //> names.limit
    const count = 2;
    return count;
  }
  return count(limit, []); //> names.count names.limit
}

export const fromTop = limit + count(limit, []); //> names.limit names.count
