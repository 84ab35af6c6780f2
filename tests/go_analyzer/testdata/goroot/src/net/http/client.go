// Package http sends requests.
package http

import (
	"fmt"                   // uses: fmt@import
	"golang.org/x/net/idna" // uses: golang.org/x/net/idna@import
)

// Client sends requests.
type Client struct {
	Timeout int // seconds
}

// Do sends one request.
func (c *Client) Do(url string) (string, error) { // uses: net/http.Client
	host, err := idna.ToASCII(url) // uses: golang.org/x/net/idna.ToASCII@call
	if err != nil {
		return "", err
	}
	return fmt.Sprintf("%s %d", host, c.Timeout), nil // uses: fmt.Sprintf@call net/http.Client.Timeout
}

// DefaultClient is the client Get uses.
var DefaultClient = &Client{} // uses: net/http.Client

// Get sends a request with DefaultClient.
func Get(url string) (string, error) {
	return DefaultClient.Do(url) // uses: net/http.DefaultClient net/http.Client.Do@call
}

func zone(s *sockaddr) string { // uses: net/http.sockaddr
	return s.Zone // uses: net/http.sockaddr.Zone
}

// schemes are the known schemes and their ports.
var schemes = []struct {
	Name string
	Port int
}{{Name: "http", Port: 80}} // uses: net/http.schemes.Name net/http.schemes.Port

func port() int {
	return schemes[0].Port // uses: net/http.schemes net/http.schemes.Port
}

var local = sockaddr{Port: 80} // uses: net/http.sockaddr net/http.sockaddr.Port
