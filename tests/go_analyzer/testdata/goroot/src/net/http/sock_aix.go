package http

// On this GOOS a sockaddr is raw bytes, not a struct.
type sockaddr [16]byte
