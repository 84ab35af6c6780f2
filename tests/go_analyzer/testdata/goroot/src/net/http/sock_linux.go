package http

type sockaddr struct {
	Port uint16
}
