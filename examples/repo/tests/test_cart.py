from shop.cart import Cart


def test_total_of_empty_cart_is_zero():
    assert Cart().total() == 0
