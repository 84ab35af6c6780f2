package http

// Built with sock_windows.go: its sockaddr's raw is the one used here.
func dialZone(s *sockaddr) string { // uses: net/http.sockaddr
	return s.raw().Zone // uses: net/http.sockaddr.raw@call net/http.sockaddr.Zone
}
