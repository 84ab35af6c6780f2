// Package money counts in cents.
package money

// Amount is a sum in cents.
type Amount int64

// Plus adds two amounts.
func (a Amount) Plus(b Amount) Amount { return a + b } // uses: money.Amount

// Zero is no money.
const Zero Amount = 0 // uses: money.Amount

// Rule changes an amount.
type Rule func(Amount) Amount // uses: money.Amount
