// The Go oracle of the accuracy benchmark: it type-checks every package of a
// tree with go/types, for every GOOS/GOARCH the toolchain knows (so that each
// file is checked under a configuration that builds it), and answers where
// the queried definitions are used, their docs, and the definitions of the
// files asked for. It reads the tree's sources and the packages they import
// from GOROOT and GOPATH (/usr/share/gocode, where Debian installs Go
// source packages); it runs nothing and needs no network.
//
// A query names a definition by file, line and name; its column (1-based,
// in bytes, as go/token counts) tells apart two definitions of one name on
// one line, and is not needed otherwise.
//
//	oracle_go < request.json > answer.json
package main

import (
	"encoding/json"
	"fmt"
	"go/ast"
	"go/build"
	"go/parser"
	"go/token"
	"os"
	"path/filepath"
	"sort"
	"strings"
)

type query struct {
	File   string `json:"file"`
	Line   int    `json:"line"`
	Column int    `json:"column"`
	Name   string `json:"name"`
}

type request struct {
	Root         string   `json:"root"`
	Queries      []query  `json:"queries"`
	OutlineFiles []string `json:"outline_files"`
	// Top, when above 0, also asks for the definitions of the tree used on
	// the most distinct lines.
	Top int `json:"top"`
}

type location struct {
	File string `json:"file"`
	Line int    `json:"line"`
}

type answer struct {
	Definition *location        `json:"definition"`
	Doc        *string          `json:"doc"`
	References [][2]interface{} `json:"references"`
}

type topEntry struct {
	File string `json:"file"`
	Line int    `json:"line"`
	Name string `json:"name"`
	Uses int    `json:"uses"`
	// References as in answers.
	References [][2]interface{} `json:"references"`
}

type response struct {
	Answers  []answer                    `json:"answers"`
	Outlines map[string][][2]interface{} `json:"outlines"`
	Top      []topEntry                  `json:"top,omitempty"`
	Stats    map[string]int              `json:"stats"`
}

// defKey names a definition by where its name is written.
type defKey struct {
	file string
	line int
	name string
}

type useKey struct {
	def defKey
	at  location
}

func main() {
	var req request
	if err := json.NewDecoder(os.Stdin).Decode(&req); err != nil {
		fmt.Fprintln(os.Stderr, "oracle_go: bad request:", err)
		os.Exit(2)
	}
	o := newOracle(req)
	o.run()
	enc := json.NewEncoder(os.Stdout)
	enc.SetEscapeHTML(false)
	if err := enc.Encode(o.response()); err != nil {
		fmt.Fprintln(os.Stderr, "oracle_go:", err)
		os.Exit(1)
	}
}

// The configurations `go tool dist list` gives for Go 1.19.
var platforms = strings.Fields(`aix/ppc64 android/386 android/amd64 android/arm android/arm64 darwin/amd64
darwin/arm64 dragonfly/amd64 freebsd/386 freebsd/amd64 freebsd/arm freebsd/arm64 illumos/amd64 ios/amd64
ios/arm64 js/wasm linux/386 linux/amd64 linux/arm linux/arm64 linux/loong64 linux/mips linux/mips64
linux/mips64le linux/mipsle linux/ppc64 linux/ppc64le linux/riscv64 linux/s390x netbsd/386 netbsd/amd64
netbsd/arm netbsd/arm64 openbsd/386 openbsd/amd64 openbsd/arm openbsd/arm64 openbsd/mips64 plan9/386
plan9/amd64 plan9/arm solaris/amd64 windows/386 windows/amd64 windows/arm windows/arm64`)

type oracle struct {
	req     request
	root    string
	sources []string          // GOROOT's and GOPATH's src folders, symbolic links resolved
	modules map[string]string // module path -> folder, for the tree's go.mod files
	fset    *token.FileSet
	parsed  map[string]*ast.File
	pathOf  map[*ast.File]string
	dirs    []string
	goDirs  map[string]bool
	covered map[string]bool
	checks  int

	want      map[defKey][]int
	defined   []bool
	refs      []map[int]map[location]bool // per query, by the column of the definition used
	outlines  map[string]map[[2]interface{}]bool
	bodies    map[string][][2]token.Pos
	importsOf map[string]map[location]bool // package folder -> import lines naming it
	uses      map[useKey]bool
}

func newOracle(req request) *oracle {
	root, _ := filepath.Abs(req.Root)
	if r, err := filepath.EvalSymlinks(root); err == nil {
		root = r
	}
	var sources []string
	for _, dir := range []string{filepath.Join(build.Default.GOROOT, "src"), "/usr/share/gocode/src"} {
		if r, err := filepath.EvalSymlinks(dir); err == nil {
			dir = r
		}
		sources = append(sources, dir)
	}
	o := &oracle{req: req, root: filepath.Clean(root), sources: sources,
		modules: map[string]string{}, fset: token.NewFileSet(), parsed: map[string]*ast.File{}, pathOf: map[*ast.File]string{},
		goDirs: map[string]bool{}, covered: map[string]bool{}, want: map[defKey][]int{},
		outlines: map[string]map[[2]interface{}]bool{}, bodies: map[string][][2]token.Pos{},
		importsOf: map[string]map[location]bool{}}
	o.defined = make([]bool, len(req.Queries))
	o.refs = make([]map[int]map[location]bool, len(req.Queries))
	for i, q := range req.Queries {
		k := defKey{q.File, q.Line, q.Name}
		o.want[k] = append(o.want[k], i)
		o.refs[i] = map[int]map[location]bool{}
	}
	for _, f := range req.OutlineFiles {
		o.outlines[f] = map[[2]interface{}]bool{}
	}
	if req.Top > 0 {
		o.uses = map[useKey]bool{}
	}
	return o
}

func (o *oracle) rel(abs string) (string, bool) {
	r, err := filepath.Rel(o.root, abs)
	if err != nil || r == ".." || strings.HasPrefix(r, "../") {
		return "", false
	}
	return filepath.ToSlash(r), true
}

func (o *oracle) parse(path string) *ast.File {
	if f, ok := o.parsed[path]; ok {
		return f
	}
	f, _ := parser.ParseFile(o.fset, path, nil, parser.ParseComments)
	if f != nil && f.Name == nil {
		f = nil
	}
	o.parsed[path] = f
	if f != nil {
		o.pathOf[f] = path
	}
	return f
}

func (o *oracle) hasGo(dir string) bool {
	if v, ok := o.goDirs[dir]; ok {
		return v
	}
	has := false
	if ents, err := os.ReadDir(dir); err == nil {
		for _, e := range ents {
			if !e.IsDir() && strings.HasSuffix(e.Name(), ".go") {
				has = true
				break
			}
		}
	}
	o.goDirs[dir] = has
	return has
}

// findDir resolves an import path from a folder: vendor folders from the
// folder up, the tree's modules, GOROOT, then GOPATH.
func (o *oracle) findDir(path, srcDir string) string {
	tops := map[string]bool{o.root: true, "/": true}
	for _, s := range o.sources {
		tops[s] = true
	}
	for d := srcDir; ; d = filepath.Dir(d) {
		if c := filepath.Join(d, "vendor", path); o.hasGo(c) {
			return c
		}
		if tops[d] || d == filepath.Dir(d) {
			break
		}
	}
	best := ""
	for mod, dir := range o.modules {
		if (path == mod || strings.HasPrefix(path, mod+"/")) && len(dir) > len(best) {
			if c := filepath.Join(dir, strings.TrimPrefix(path, mod)); o.hasGo(c) {
				best = c
			}
		}
	}
	if best != "" {
		return best
	}
	for _, base := range o.sources {
		if c := filepath.Join(base, path); o.hasGo(c) {
			return c
		}
	}
	return ""
}

func (o *oracle) walkTree() {
	filepath.WalkDir(o.root, func(p string, d os.DirEntry, err error) error {
		if err != nil {
			return nil
		}
		if d.IsDir() {
			if d.Name() == ".git" {
				return filepath.SkipDir
			}
			if o.hasGo(p) {
				o.dirs = append(o.dirs, p)
			}
			return nil
		}
		if d.Name() == "go.mod" {
			if src, err := os.ReadFile(p); err == nil {
				for _, line := range strings.Split(string(src), "\n") {
					if f := strings.Fields(line); len(f) >= 2 && f[0] == "module" {
						o.modules[strings.Trim(f[1], "\"")] = filepath.Dir(p)
					}
				}
			}
		}
		return nil
	})
	sort.Strings(o.dirs)
}

func (o *oracle) run() {
	o.walkTree()
	o.recordImports()
	for i, pl := range append([]string{"linux/amd64"}, platforms...) {
		parts := strings.Split(pl, "/")
		ctx := build.Default
		ctx.GOOS, ctx.GOARCH = parts[0], parts[1]
		// The first pass builds without cgo, the ones after with it.
		ctx.CgoEnabled = i > 0
		c := newChecker(o, ctx)
		for _, dir := range o.dirs {
			c.checkDir(dir)
		}
	}
	// Files no configuration builds (ignore tags, generators, test data):
	// each checked with its folder's package, or alone.
	c := newChecker(o, build.Default)
	for _, dir := range o.dirs {
		c.checkLeftovers(dir)
	}
}

// recordImports notes each import line of the tree by the folder it names.
func (o *oracle) recordImports() {
	for _, dir := range o.dirs {
		ents, _ := os.ReadDir(dir)
		for _, e := range ents {
			if e.IsDir() || !strings.HasSuffix(e.Name(), ".go") {
				continue
			}
			path := filepath.Join(dir, e.Name())
			f := o.parse(path)
			rel, _ := o.rel(path)
			if f == nil {
				continue
			}
			for _, imp := range f.Imports {
				ip := strings.Trim(imp.Path.Value, "\"`")
				if ip == "C" || ip == "unsafe" {
					continue
				}
				target := o.findDir(ip, dir)
				if target == "" {
					continue
				}
				if o.importsOf[target] == nil {
					o.importsOf[target] = map[location]bool{}
				}
				o.importsOf[target][location{rel, o.fset.PositionFor(imp.Path.Pos(), false).Line}] = true
			}
		}
	}
}
