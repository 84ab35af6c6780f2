package idna

// ToASCII converts a host name.
func ToASCII(s string) (string, error) { return s, nil }
