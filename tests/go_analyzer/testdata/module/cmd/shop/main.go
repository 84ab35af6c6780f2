// Command shop fills a cart.
package main

import (
	"flag"

	c "example.com/shop/cart"  // uses: cart@import
	. "example.com/shop/money" // uses: money@import
)

// New is this command's own, not cart.New.
func New() {}

// Usage says what the command does.
var Usage = "fill a cart"

var round Rule = func(a Amount) Amount { return a } // uses: money.Rule money.Amount

func main() {
	k := c.New("ann")                       // uses: cart.New@call
	k.Add(c.Item{Name: "tea", Price: Zero}) // uses: cart.Cart.Add@call cart.Item cart.Item.Name cart.Item.Price money.Zero
	n := k.Len()                            // uses: cart.base.Len@call
	total := k.Total()                      // uses: cart.Cart.Total@call
	_ = total.Plus(Amount(n))               // uses: money.Amount.Plus@call money.Amount
	_ = round(total).Plus(1)                // uses: cmd/shop.round@call money.Amount.Plus@call
	New()                                   // uses: cmd/shop.New@call
	add := (*c.Cart).Add                    // uses: cart.Cart cart.Cart.Add
	add(k, c.Item{})                        // uses: cart.Item
	f := k.Total                            // uses: cart.Cart.Total
	_ = f
	_ = flag.Flag{Usage: "x"} // a key of a type not handed over is no use of Usage
}

func shadow(New int, Zero string) int {
	Amount := 3
	return New + Amount + len(Zero)
}

func describe(v interface{}) string {
	switch x := v.(type) {
	case *c.Cart: // uses: cart.Cart
		return x.Owner // uses: cart.Cart.Owner
	case Amount: // uses: money.Amount
		return describe(x.Plus(1)) // uses: cmd/shop.describe@call money.Amount.Plus@call
	}
	items := []c.Item{{Name: "a"}} // uses: cart.Item cart.Item.Name
	for _, it := range items {
		name := func(it c.Item) string { return it.Name } // uses: cart.Item cart.Item.Name
		return name(it)
	}
	return ""
}
