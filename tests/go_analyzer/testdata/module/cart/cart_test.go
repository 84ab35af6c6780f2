package cart_test

import (
	"testing"

	"example.com/shop/cart" // uses: cart@import
)

func TestTotal(t *testing.T) {
	k := cart.New("ann") // uses: cart.New@call
	if k.Total() != 0 {  // uses: cart.Cart.Total@call
		t.Fatal(k.Owner) // uses: cart.Cart.Owner
	}
}
