package http

// Each GOOS has its own sockaddr; only this one has a Zone.
type sockaddr struct {
	Port uint16
	Zone string
}

// Each GOOS's raw has its own result: a use in this file takes this one's.
func (s *sockaddr) raw() *sockaddr { return s } // uses: net/http.sockaddr

func zoneOf(s *sockaddr) string { // uses: net/http.sockaddr
	return s.raw().Zone // uses: net/http.sockaddr.raw@call net/http.sockaddr.Zone
}
