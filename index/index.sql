-- The index of examples/repo/ as the example MCP server reads it, written by
-- hand: the indexer's state, symbols, references, components and the wiki.
-- The build runs index/schema.sql and then this file into index.db
-- (servers/cpp/make_index_db.cpp).

INSERT INTO index_status VALUES
  (1, 'ready', 'healthy', 'main', 100, 7, 16, '2026-11-23T09:20:45Z', 0, NULL, NULL);

INSERT INTO symbols (fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export,
                     docstring_truncated) VALUES
  ('shop.cart.Cart', 'Cart', 'class', 'shop/cart.py', 7, 22, 'class Cart',
   'A customer''s cart. Holds items until checkout.', 1, 0),
  ('shop.cart.Cart.__init__', '__init__', 'method', 'shop/cart.py', 10, 11, 'def __init__(self)', NULL, 0, 0),
  ('shop.cart.Cart.add', 'add', 'method', 'shop/cart.py', 13, 15, 'def add(self, item, qty=1)',
   'Add `qty` of `item` to the cart.', 1, 0),
  ('shop.cart.Cart.total', 'total', 'method', 'shop/cart.py', 17, 22, 'def total(self) -> Decimal',
   'Sum of the line prices, discounts applied.

        Prices are looked up at call time.', 1, 0),
  ('shop.pricing.apply_discounts', 'apply_discounts', 'function', 'shop/pricing.py', 4, 6,
   'def apply_discounts(cart, subtotal: Decimal) -> Decimal',
   'Apply every active discount. Returns the reduced subtotal.', 1, 0),
  ('shop.inventory.Item', 'Item', 'class', 'shop/inventory.py', 5, 10, 'class Item',
   'An item for sale. Prices are in the shop''s currency.', 1, 0),
  ('shop.inventory.Inventory', 'Inventory', 'class', 'shop/inventory.py', 13, 28, 'class Inventory',
   'Stock of every item, by SKU.', 1, 0),
  ('shop.inventory.Inventory.__init__', '__init__', 'method', 'shop/inventory.py', 16, 17, 'def __init__(self)',
   NULL, 0, 0),
  ('shop.inventory.Inventory.restock', 'restock', 'method', 'shop/inventory.py', 19, 21,
   'def restock(self, item: Item, qty: int) -> None', 'Add `qty` units of `item` to the stock.', 1, 0),
  ('shop.inventory.Inventory.reserve', 'reserve', 'method', 'shop/inventory.py', 23, 28,
   'def reserve(self, item: Item, qty: int) -> bool',
   'Take `qty` units out of stock. False when there are not enough.', 1, 0),
  ('shop.checkout.OutOfStock', 'OutOfStock', 'class', 'shop/checkout.py', 6, 7, 'class OutOfStock(Exception)',
   'Raised when an item of the cart cannot be reserved.', 1, 0),
  ('shop.checkout.checkout', 'checkout', 'function', 'shop/checkout.py', 10, 17,
   'def checkout(cart: Cart, inventory: Inventory) -> int',
   'Reserve every item of `cart` and return the total to charge.

    Nothing is reserved when one item is out of stock.', 1, 0),
  ('tests.test_cart.test_total_of_empty_cart_is_zero', 'test_total_of_empty_cart_is_zero', 'function',
   'tests/test_cart.py', 4, 5, 'def test_total_of_empty_cart_is_zero()', NULL, 0, 0),
  ('tests.test_checkout.test_checkout_reserves_stock', 'test_checkout_reserves_stock', 'function',
   'tests/test_checkout.py', 6, 13, 'def test_checkout_reserves_stock()', NULL, 0, 0),
  -- Indexed before the file was deleted: its place can no longer be read.
  ('shop.legacy.old_total', 'old_total', 'function', 'shop/legacy.py', 3, 9, 'def old_total(cart)',
   'Totals a cart the old way. Kept for the reports.', 0, 0),
  ('shop.cart', 'cart', 'module', 'shop/cart.py', 1, 22, NULL, 'Shopping cart.', 1, 0);

INSERT INTO symbol_refs (symbol_fqn, file_path, line, caller_fqn, caller_kind, usage_type) VALUES
  ('shop.pricing.apply_discounts', 'shop/cart.py', 22, 'shop.cart.Cart.total', 'method', 'call'),
  ('shop.pricing.apply_discounts', 'shop/cart.py', 4, NULL, NULL, 'import'),
  ('shop.pricing.apply_discounts', 'shop/legacy.py', 7, 'shop.legacy.old_total', 'function', 'call'),
  ('shop.cart.Cart.total', 'shop/checkout.py', 17, 'shop.checkout.checkout', 'function', 'call'),
  ('shop.cart.Cart.total', 'tests/test_cart.py', 5, 'tests.test_cart.test_total_of_empty_cart_is_zero', 'function',
   'call'),
  ('shop.cart.Cart', 'shop/checkout.py', 2, NULL, NULL, 'import'),
  ('shop.cart.Cart', 'tests/test_cart.py', 5, 'tests.test_cart.test_total_of_empty_cart_is_zero', 'function',
   'call'),
  ('shop.cart.Cart', 'tests/test_checkout.py', 10, 'tests.test_checkout.test_checkout_reserves_stock', 'function',
   'call'),
  ('shop.cart.Cart.add', 'tests/test_checkout.py', 11, 'tests.test_checkout.test_checkout_reserves_stock',
   'function', 'call'),
  ('shop.inventory.Inventory.reserve', 'shop/checkout.py', 15, 'shop.checkout.checkout', 'function', 'call'),
  ('shop.inventory.Inventory.restock', 'tests/test_checkout.py', 9,
   'tests.test_checkout.test_checkout_reserves_stock', 'function', 'call'),
  -- An edge from before references kept their line.
  ('shop.checkout.checkout', 'tests/test_checkout.py', NULL, NULL, NULL, NULL),
  ('shop.checkout.OutOfStock', 'shop/checkout.py', 16, 'shop.checkout.checkout', 'function', 'raise');

INSERT INTO components VALUES
  ('shop', 'domain', 'shop/*.py', 4, 12),
  ('tests', 'test', 'tests/*.py', 2, 2);

INSERT INTO wiki_state VALUES (1, 1, 'main', 1, 1, 6, '2026-11-23T09:31:10Z', 'wiki-writer-small');

INSERT INTO wiki_pages (page_id, title, content, stale, position) VALUES
  ('overview', 'Shop overview',
   'The shop keeps carts, prices and stock apart: a cart holds items, pricing applies discounts, and checkout '
   || 'reserves stock before it charges the total.', 0, 1),
  ('cart', 'Carts and totals',
   'A Cart collects (item, quantity) pairs. Its total sums the line prices and hands the subtotal to '
   || 'apply_discounts, so the discounts are the pricing module''s alone.', 0, 2),
  ('checkout', 'Checkout and stock',
   'checkout reserves every item of a cart in the inventory and returns the cart''s total. One item out of '
   || 'stock raises OutOfStock.', 1, 3);

INSERT INTO wiki_sections (id, page_id, heading, body) VALUES
  (1, 'overview', 'Modules',
   'shop.cart holds the Cart; shop.pricing applies discounts to a subtotal; shop.inventory keeps the stock of '
   || 'every item by SKU; shop.checkout turns a cart into an order.'),
  (2, 'cart', 'How the total is computed',
   'Cart.total multiplies each item''s price by its quantity, sums the lines and passes the subtotal to '
   || 'apply_discounts. Prices are read when total is called, not when an item is added, so a price change '
   || 'shows in every open cart at once. The discounts are applied to the whole subtotal, never per line.'),
  (3, 'cart', 'Adding items',
   'Cart.add appends an (item, quantity) pair; the same item added twice gives two lines, both counted in '
   || 'the total.'),
  (4, 'checkout', 'Reserving stock',
   'checkout walks the cart and asks the inventory to reserve each line. Inventory.reserve refuses when '
   || 'the stock is short, and checkout then raises OutOfStock with the item''s SKU. Lines reserved before '
   || 'the short one stay reserved: the docstring''s promise that nothing is reserved is not kept.'),
  (5, 'checkout', 'What checkout returns',
   'After every line is reserved, checkout returns the cart''s total, discounts applied, as the amount to '
   || 'charge.');

INSERT INTO wiki_citations (section_id, path, line_start, line_end) VALUES
  (1, 'shop/cart.py', 7, 22),
  (1, 'shop/pricing.py', 4, 6),
  (1, 'shop/inventory.py', 13, 28),
  (1, 'shop/checkout.py', 10, 17),
  (2, 'shop/cart.py', 17, 22),
  (2, 'shop/pricing.py', 4, 6),
  (3, 'shop/cart.py', 13, 15),
  (4, 'shop/checkout.py', 14, 16),
  (4, 'shop/inventory.py', 23, 28),
  (5, 'shop/checkout.py', 17, 17),
  (5, 'shop/cart.py', 17, 22);

INSERT INTO wiki_links VALUES
  ('overview', 'cart'),
  ('overview', 'checkout'),
  ('cart', 'checkout'),
  ('checkout', 'cart');

-- The files the index was made from, as an indexer lists them.
INSERT INTO files (path, size, mtime_ns, content_hash, language, lines) VALUES
  ('shop/cart.py', 0, 0, '', 'Python', 22),
  ('shop/checkout.py', 0, 0, '', 'Python', 17),
  ('shop/inventory.py', 0, 0, '', 'Python', 20),
  ('shop/legacy.py', 0, 0, '', 'Python', 10),
  ('shop/pricing.py', 0, 0, '', 'Python', 20),
  ('tests/test_cart.py', 0, 0, '', 'Python', 10),
  ('tests/test_checkout.py', 0, 0, '', 'Python', 10);

UPDATE symbols SET uses = (SELECT count(*) FROM symbol_refs WHERE symbol_fqn = symbols.fqn);
