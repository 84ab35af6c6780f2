package http

// Each GOOS has its own sockaddr; only this one has a Zone.
type sockaddr struct {
	Port uint16
	Zone string
}
