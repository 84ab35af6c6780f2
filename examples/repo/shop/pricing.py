from decimal import Decimal


def apply_discounts(cart, subtotal: Decimal) -> Decimal:
    """Apply every active discount. Returns the reduced subtotal."""
    return subtotal
