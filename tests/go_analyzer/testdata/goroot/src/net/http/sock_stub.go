//go:build !linux && !windows && !aix

package http

// A GOOS without sockets of its own: its build constraint leaves linux out.
type sockaddr struct{}
