from shop.cart import Cart
from shop.checkout import checkout
from shop.inventory import Inventory, Item


def test_checkout_reserves_stock():
    inventory = Inventory()
    pen = Item("pen", 3)
    inventory.restock(pen, 2)
    cart = Cart()
    cart.add(pen, 2)
    assert checkout(cart, inventory) == 6
    assert inventory.stock["pen"] == 0
