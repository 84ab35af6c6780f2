package http_test

import (
	"net/http" // uses: net/http@import
	"testing"
)

func TestDo(t *testing.T) {
	var c http.Client // uses: net/http.Client
	c.Do("x")         // uses: net/http.Client.Do@call
}
