// Package cart keeps what a customer buys.
package cart

import (
	"strings"

	"example.com/shop/money" // uses: money@import
)

// Item is one line of a cart.
type Item struct {
	Name  string
	Price money.Amount // the price of one; uses: money.Amount
}

type base struct {
	items []Item // uses: cart.Item
}

// Len counts the items.
func (b *base) Len() int { return len(b.items) } // uses: cart.base cart.base.items

// Cart embeds base: its Len is Cart's too.
type Cart struct {
	base  // uses: cart.base
	Owner string
}

// New makes an empty cart.
func New(owner string) *Cart { // uses: cart.Cart
	return &Cart{Owner: strings.TrimSpace(owner)} // uses: cart.Cart cart.Cart.Owner
}

// Add puts an item in the cart.
func (c *Cart) Add(it Item) { // uses: cart.Cart cart.Item
	c.items = append(c.items, it) // uses: cart.base.items
}

// Total sums the prices.
func (c *Cart) Total() money.Amount { // uses: cart.Cart money.Amount
	var sum money.Amount         // uses: money.Amount
	for _, it := range c.items { // uses: cart.base.items
		sum = sum.Plus(it.Price) // uses: money.Amount.Plus@call cart.Item.Price
	}
	if c.base.Len() == 0 { // uses: cart.Cart.base cart.base.Len@call
		return money.Zero // uses: money.Zero
	}
	return sum
}

func count(items []Item) int { // uses: cart.Item
	New := len(items)
	return New
}
