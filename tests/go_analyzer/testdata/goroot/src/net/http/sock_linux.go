package http

type sockaddr struct {
	Port uint16
}

func (s *sockaddr) raw() int { return int(s.Port) } // uses: net/http.sockaddr net/http.sockaddr.Port
