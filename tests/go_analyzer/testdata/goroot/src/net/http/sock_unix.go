// +build unix,amd64 linux,arm

package http

// A file that builds on linux/amd64 by its constraint.
func isUnix() bool { return true }
