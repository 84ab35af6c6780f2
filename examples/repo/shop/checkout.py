"""Turning a cart into an order."""
from shop.cart import Cart
from shop.inventory import Inventory


class OutOfStock(Exception):
    """Raised when an item of the cart cannot be reserved."""


def checkout(cart: Cart, inventory: Inventory) -> int:
    """Reserve every item of `cart` and return the total to charge.

    Nothing is reserved when one item is out of stock."""
    for item, qty in cart.items:
        if not inventory.reserve(item, qty):
            raise OutOfStock(item.sku)
    return cart.total()
