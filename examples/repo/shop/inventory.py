"""Stock levels per item."""
from dataclasses import dataclass


@dataclass
class Item:
    """An item for sale. Prices are in the shop's currency."""

    sku: str
    price: int


class Inventory:
    """Stock of every item, by SKU."""

    def __init__(self):
        self.stock = {}

    def restock(self, item: Item, qty: int) -> None:
        """Add `qty` units of `item` to the stock."""
        self.stock[item.sku] = self.stock.get(item.sku, 0) + qty

    def reserve(self, item: Item, qty: int) -> bool:
        """Take `qty` units out of stock. False when there are not enough."""
        if self.stock.get(item.sku, 0) < qty:
            return False
        self.stock[item.sku] -= qty
        return True
