// The Go analyzer driven through its protocol over the trees of testdata/:
// each line's uses are written beside it as "uses: fqn fqn@call ...", and the
// analyzer must answer exactly those.
package goanalyzertest

import (
	"bufio"
	"bytes"
	"encoding/json"
	"os"
	"os/exec"
	"path/filepath"
	"reflect"
	"sort"
	"strings"
	"testing"
)

type symbol struct {
	FQN       string  `json:"fqn"`
	Name      string  `json:"name"`
	Kind      string  `json:"kind"`
	Line      int     `json:"line"`
	End       int     `json:"end"`
	Signature *string `json:"signature"`
	Doc       *string `json:"doc"`
	Export    bool    `json:"export"`
}

type reference struct {
	FQN        string  `json:"fqn"`
	Line       int     `json:"line"`
	Caller     *string `json:"caller"`
	CallerKind *string `json:"caller_kind"`
	Usage      string  `json:"usage"`
}

type answer struct {
	Type       string      `json:"_type"`
	Path       string      `json:"path"`
	Module     *string     `json:"module"`
	Error      *string     `json:"error"`
	Symbols    []symbol    `json:"symbols"`
	References []reference `json:"references"`
}

func program(t *testing.T) string {
	exe := os.Getenv("KESTRUNE_GO_ANALYZER")
	if exe == "" {
		t.Fatal("KESTRUNE_GO_ANALYZER names no analyzer program")
	}
	return exe
}

// treeFiles lists a tree's .go files and go.mod files, "/" between parts.
func treeFiles(t *testing.T, root string) []string {
	var files []string
	err := filepath.Walk(root, func(p string, info os.FileInfo, err error) error {
		if err == nil && !info.IsDir() && (strings.HasSuffix(p, ".go") || info.Name() == "go.mod") {
			rel, _ := filepath.Rel(root, p)
			files = append(files, filepath.ToSlash(rel))
		}
		return err
	})
	if err != nil {
		t.Fatal(err)
	}
	return files
}

func run(t *testing.T, input []byte) (stdout, stderr []byte, err error) {
	cmd := exec.Command(program(t))
	cmd.Dir = "/"
	cmd.Stdin = bytes.NewReader(input)
	var out, errOut bytes.Buffer
	cmd.Stdout, cmd.Stderr = &out, &errOut
	err = cmd.Run()
	return out.Bytes(), errOut.Bytes(), err
}

// analyze hands a tree's files to the analyzer and gives its answers by path.
func analyze(t *testing.T, root string) map[string]answer {
	var in bytes.Buffer
	files := treeFiles(t, root)
	for _, rel := range files {
		src, err := os.ReadFile(filepath.Join(root, rel))
		if err != nil {
			t.Fatal(err)
		}
		head, _ := json.Marshal(map[string]interface{}{"command": "file", "path": rel, "size": len(src)})
		in.Write(append(head, '\n'))
		in.Write(src)
	}
	in.WriteString(`{"command":"analyze"}` + "\n")
	out, stderr, err := run(t, in.Bytes())
	if err != nil {
		t.Fatalf("analyzer failed: %v: %s", err, stderr)
	}
	answers := map[string]answer{}
	sc := bufio.NewScanner(bytes.NewReader(out))
	sc.Buffer(nil, 1<<26)
	var order []string
	for sc.Scan() {
		var a answer
		if err := json.Unmarshal(sc.Bytes(), &a); err != nil {
			t.Fatalf("bad answer line %q: %v", sc.Text(), err)
		}
		if a.Type == "completed" {
			if want := commonFirst(files); !reflect.DeepEqual(order, want) {
				t.Fatalf("answers for %v, want one per file in order %v", order, want)
			}
			return answers
		}
		order = append(order, a.Path)
		answers[a.Path] = a
	}
	t.Fatal("no completed line")
	return nil
}

// otherPlatform are the files that linux/amd64 does not build, by their
// names or build constraints: they are answered after the others.
var otherPlatform = map[string]bool{"src/net/http/dial_windows.go": true, "src/net/http/sock_aix.go": true,
	"src/net/http/sock_stub.go": true, "src/net/http/sock_windows.go": true}

// commonFirst is the order of the answers: files in the order they came, those
// of otherPlatform last.
func commonFirst(files []string) []string {
	var first, last []string
	for _, f := range files {
		if otherPlatform[f] {
			last = append(last, f)
		} else {
			first = append(first, f)
		}
	}
	return append(first, last...)
}

var trees = []struct{ dir, prefix string }{
	{"testdata/module", "example.com/shop/"},
	{"testdata/goroot", ""},
}

// annotated reads the uses written beside each line of a file.
func annotated(t *testing.T, path, prefix string) map[int][]string {
	src, err := os.ReadFile(path)
	if err != nil {
		t.Fatal(err)
	}
	want := map[int][]string{}
	for i, line := range strings.Split(string(src), "\n") {
		k := strings.Index(line, "uses: ")
		if k < 0 || !strings.Contains(line[:k], "//") {
			continue
		}
		for _, u := range strings.Fields(line[k+len("uses: "):]) {
			want[i+1] = append(want[i+1], prefix+u)
		}
		sort.Strings(want[i+1])
	}
	return want
}

func TestUsesAsAnnotated(t *testing.T) {
	for _, tree := range trees {
		answers := analyze(t, tree.dir)
		for path, a := range answers {
			if !strings.HasSuffix(path, ".go") {
				continue
			}
			want := annotated(t, filepath.Join(tree.dir, path), tree.prefix)
			got := map[int][]string{}
			for _, r := range a.References {
				u := r.FQN
				if r.Usage != "reference" {
					u += "@" + r.Usage
				}
				got[r.Line] = append(got[r.Line], u)
				sort.Strings(got[r.Line])
			}
			for line := range union(want, got) {
				if !reflect.DeepEqual(want[line], got[line]) {
					t.Errorf("%s/%s:%d: uses %q, want %q", tree.dir, path, line, got[line], want[line])
				}
			}
		}
	}
}

func union(a, b map[int][]string) map[int]bool {
	u := map[int]bool{}
	for k := range a {
		u[k] = true
	}
	for k := range b {
		u[k] = true
	}
	return u
}

func TestModulesAndCallers(t *testing.T) {
	answers := map[string]map[string]answer{}
	for _, tree := range trees {
		answers[tree.dir] = analyze(t, tree.dir)
	}
	modules := []struct{ tree, path, module string }{
		{"testdata/module", "go.mod", "example.com/shop"},
		{"testdata/module", "cart/cart.go", "example.com/shop/cart"},
		{"testdata/module", "cart/cart_test.go", "example.com/shop/cart_test"},
		{"testdata/module", "cmd/shop/main.go", "example.com/shop/cmd/shop"},
		{"testdata/goroot", "src/net/http/client.go", "net/http"},
		{"testdata/goroot", "src/net/http/client_test.go", "net/http_test"},
		{"testdata/goroot", "src/vendor/golang.org/x/net/idna/idna.go", "golang.org/x/net/idna"},
	}
	for _, c := range modules {
		a := answers[c.tree][c.path]
		if a.Module == nil || *a.Module != c.module || a.Error != nil {
			t.Errorf("%s/%s: module %v, error %v; want %s", c.tree, c.path, deref(a.Module), deref(a.Error), c.module)
		}
	}
	callers := []struct {
		tree, path, fqn string
		line            int
		caller, kind    string
	}{
		{"testdata/module", "cart/cart.go", "example.com/shop/money", 7, "", ""},
		{"testdata/module", "cart/cart.go", "example.com/shop/money.Amount", 13, "example.com/shop/cart.Item.Price", "field"},
		{"testdata/module", "money/money.go", "example.com/shop/money.Amount", 11, "example.com/shop/money.Zero", "constant"},
		{"testdata/module", "cmd/shop/main.go", "example.com/shop/cart.Item.Name", 46, "example.com/shop/cmd/shop.describe", "function"},
		{"testdata/goroot", "src/net/http/client.go", "net/http.Client", 24, "net/http.DefaultClient", "variable"},
		{"testdata/goroot", "src/net/http/client.go", "net/http.Client.Do", 28, "net/http.Get", "function"},
	}
	for _, c := range callers {
		found := false
		for _, r := range answers[c.tree][c.path].References {
			if r.FQN == c.fqn && r.Line == c.line {
				found = true
				if deref(r.Caller) != c.caller || deref(r.CallerKind) != c.kind {
					t.Errorf("%s:%d %s: caller %q (%q), want %q (%q)", c.path, c.line, c.fqn, deref(r.Caller), deref(r.CallerKind), c.caller, c.kind)
				}
			}
		}
		if !found {
			t.Errorf("%s:%d: no use of %s", c.path, c.line, c.fqn)
		}
	}
}

func deref(s *string) string {
	if s == nil {
		return ""
	}
	return *s
}

func TestSymbols(t *testing.T) {
	cases := []struct {
		tree, path string
		want       symbol
	}{
		{"testdata/module", "cart/cart.go", symbol{FQN: "example.com/shop/cart", Name: "cart", Kind: "package", Line: 2, End: 54,
			Signature: str("package cart"), Doc: str("Package cart keeps what a customer buys."), Export: true}},
		{"testdata/module", "cart/cart.go", symbol{FQN: "example.com/shop/cart.Cart.Add", Name: "Add", Kind: "method", Line: 35, End: 37,
			Signature: str("func (c *Cart) Add(it Item)"), Doc: str("Add puts an item in the cart."), Export: true}},
		{"testdata/module", "cart/cart.go", symbol{FQN: "example.com/shop/cart.Item.Price", Name: "Price", Kind: "field", Line: 13, End: 13,
			Signature: str("Price money.Amount"), Doc: str("the price of one; uses: money.Amount"), Export: true}},
		{"testdata/module", "cart/cart.go", symbol{FQN: "example.com/shop/cart.Cart.base", Name: "base", Kind: "field", Line: 25, End: 25,
			Signature: str("base"), Doc: str("uses: cart.base")}},
		{"testdata/module", "cart/cart.go", symbol{FQN: "example.com/shop/cart.Cart", Name: "Cart", Kind: "struct", Line: 24, End: 27,
			Signature: str("type Cart struct"), Doc: str("Cart embeds base: its Len is Cart's too."), Export: true}},
		{"testdata/module", "money/money.go", symbol{FQN: "example.com/shop/money.Amount", Name: "Amount", Kind: "type", Line: 5, End: 5,
			Signature: str("type Amount int64"), Doc: str("Amount is a sum in cents."), Export: true}},
		{"testdata/module", "money/money.go", symbol{FQN: "example.com/shop/money.Zero", Name: "Zero", Kind: "constant", Line: 11, End: 11,
			Signature: str("const Zero Amount = 0"), Doc: str("Zero is no money."), Export: true}},
		{"testdata/goroot", "src/net/http/client.go", symbol{FQN: "net/http.Client.Do", Name: "Do", Kind: "method", Line: 15, End: 21,
			Signature: str("func (c *Client) Do(url string) (string, error)"), Doc: str("Do sends one request."), Export: true}},
		{"testdata/goroot", "src/net/http/client.go", symbol{FQN: "net/http.DefaultClient", Name: "DefaultClient", Kind: "variable", Line: 24, End: 24,
			Signature: str("var DefaultClient = &Client{}"), Doc: str("DefaultClient is the client Get uses."), Export: true}},
		{"testdata/goroot", "src/vendor/golang.org/x/net/idna/idna.go", symbol{FQN: "golang.org/x/net/idna.ToASCII", Name: "ToASCII", Kind: "function", Line: 4, End: 4,
			Signature: str("func ToASCII(s string) (string, error)"), Doc: str("ToASCII converts a host name."), Export: true}},
		{"testdata/goroot", "src/net/http/client.go", symbol{FQN: "net/http.schemes.Port", Name: "Port", Kind: "field", Line: 38, End: 38,
			Signature: str("Port int"), Export: true}},
		// A file that does not parse answers why, and what could be read.
		{"testdata/goroot", "src/broken/broken.go", symbol{FQN: "broken.Whole", Name: "Whole", Kind: "function", Line: 3, End: 3,
			Signature: str("func Whole()"), Export: true}},
	}
	answers := map[string]map[string]answer{}
	for _, c := range cases {
		if answers[c.tree] == nil {
			answers[c.tree] = analyze(t, c.tree)
		}
		var got *symbol
		for _, s := range answers[c.tree][c.path].Symbols {
			if s.FQN == c.want.FQN {
				s := s
				got = &s
			}
		}
		if got == nil || !reflect.DeepEqual(*got, c.want) {
			g, _ := json.Marshal(got)
			w, _ := json.Marshal(c.want)
			t.Errorf("%s: symbol\n %s\nwant\n %s", c.path, g, w)
		}
	}
	if broken := answers["testdata/goroot"]["src/broken/broken.go"]; broken.Error == nil {
		t.Errorf("broken.go: no error")
	}
}

func str(s string) *string { return &s }

func TestBadInput(t *testing.T) {
	for _, input := range []string{
		"not json\n",
		`{"command":"file","path":"a.go","size":100}` + "\npackage a\n",
		`{"command":"file","path":"a.go","size":-1}` + "\n",
		`{"command":"unknown"}` + "\n",
		`{"command":"file","path":"a.go","size":10}` + "\npackage a\n",
	} {
		out, stderr, err := run(t, []byte(input))
		if err == nil || len(out) != 0 || !strings.HasPrefix(string(stderr), "go_analyzer: ") {
			t.Errorf("input %q: error %v, output %q, message %q", input, err, out, stderr)
		}
	}
}
