"""Shopping cart."""
from decimal import Decimal

from shop.pricing import apply_discounts


class Cart:
    """A customer's cart. Holds items until checkout."""

    def __init__(self):
        self.items = []

    def add(self, item, qty=1):
        """Add `qty` of `item` to the cart."""
        self.items.append((item, qty))

    def total(self) -> Decimal:
        """Sum of the line prices, discounts applied.

        Prices are looked up at call time."""
        subtotal = sum(item.price * qty for item, qty in self.items)
        return apply_discounts(self, subtotal)
