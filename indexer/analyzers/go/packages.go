package main

import (
	"go/ast"
	"go/parser"
	"go/token"
	"path"
	"strings"
	"sync"
)

// srcFile is one Go file handed over, parsed, with its package and imports.
type srcFile struct {
	path    string
	src     []byte
	module  string // of a go.mod file: its module path
	ast     *ast.File
	tok     *token.File
	err     error
	common  bool // whether the common platform's build takes it (see platform.go)
	pkg     *goPackage
	imports map[string]*goPackage // local name -> package of the tree
	dots    []*goPackage          // dot-imported packages of the tree
}

// goPackage is the files of one folder that share a package clause. path is
// the import path that prefixes its names (with "_test" for an external test
// package).
type goPackage struct {
	path  string
	name  string
	dir   string
	files []*srcFile
	scope map[string][]*object
}

// modulePath reads the module path of a go.mod file: its module directive.
func modulePath(src []byte) string {
	for _, line := range strings.Split(string(src), "\n") {
		line = strings.TrimSpace(line)
		if i := strings.Index(line, "//"); i >= 0 {
			line = strings.TrimSpace(line[:i])
		}
		if rest := strings.TrimPrefix(line, "module"); rest != line && (rest == "" || rest[0] == ' ' || rest[0] == '\t' || rest[0] == '"') {
			return strings.Trim(strings.TrimSpace(rest), "\"`")
		}
	}
	return ""
}

// importPath gives the import path of the package in folder dir (relative to
// the tree's root, "" for the root): inside a vendor folder, the path below
// it; under a go.mod, the module path and the folder below it (Go's own
// "std" module has no prefix); otherwise, below a "src" folder as GOPATH and
// GOROOT lay packages out, else the folder itself.
func importPath(dir string, modules map[string]string) string {
	parts := strings.Split(dir, "/")
	if dir == "" || dir == "." {
		parts = nil
	}
	for i := len(parts) - 1; i >= 0; i-- {
		if parts[i] == "vendor" {
			return strings.Join(parts[i+1:], "/")
		}
	}
	for i := len(parts); i >= 0; i-- {
		mod, ok := modules[strings.Join(parts[:i], "/")]
		if !ok || mod == "" {
			continue
		}
		rel := strings.Join(parts[i:], "/")
		switch {
		case mod == "std":
			return rel
		case rel == "":
			return mod
		default:
			return mod + "/" + rel
		}
	}
	for i, p := range parts {
		if p == "src" {
			return strings.Join(parts[i+1:], "/")
		}
	}
	return dir
}

func parentDir(p string) string {
	d := path.Dir(p)
	if d == "." || d == "/" {
		return ""
	}
	return d
}

// program is every file handed over and the packages they make.
type program struct {
	fset     *token.FileSet
	files    []*srcFile
	byDir    map[string]*goPackage // folder -> its package (not the external test package)
	byPath   map[string][]*goPackage
	universe map[string]*object
}

func parseAll(handed []handedFile) *program {
	prog := &program{fset: token.NewFileSet(), byDir: map[string]*goPackage{}, byPath: map[string][]*goPackage{}}
	modules := map[string]string{}
	prog.files = make([]*srcFile, len(handed))
	for i, h := range handed {
		prog.files[i] = &srcFile{path: h.path, src: h.src}
		if path.Base(h.path) == "go.mod" {
			prog.files[i].module = modulePath(h.src)
			modules[parentDir(h.path)] = prog.files[i].module
		}
	}
	// Parsing is most of the work on large trees: two at a time.
	var wg sync.WaitGroup
	next := make(chan *srcFile)
	for w := 0; w < 2; w++ {
		wg.Add(1)
		go func() {
			defer wg.Done()
			for f := range next {
				f.ast, f.err = parser.ParseFile(prog.fset, f.path, f.src, parser.ParseComments|parser.SkipObjectResolution)
				// Declarations keep their doc comments; the rest is not needed.
				if f.ast != nil {
					f.common = buildsOnCommonPlatform(f)
					f.ast.Comments = nil
				}
				f.src = nil
			}
		}()
	}
	for i, f := range prog.files {
		handed[i].src = nil
		if path.Base(f.path) != "go.mod" {
			next <- f
		}
	}
	close(next)
	wg.Wait()

	groups := map[string]*goPackage{}
	for _, f := range prog.files {
		if f.ast == nil || f.ast.Name == nil || f.ast.Name.Name == "_" {
			continue
		}
		f.tok = prog.fset.File(f.ast.Package)
		dir := parentDir(f.path)
		name := f.ast.Name.Name
		key := dir + "\x00" + name
		p := groups[key]
		if p == nil {
			ip := importPath(dir, modules)
			if ip == "" {
				ip = name
			}
			if strings.HasSuffix(name, "_test") && strings.HasSuffix(f.path, "_test.go") {
				ip += "_test"
			}
			p = &goPackage{path: ip, name: name, dir: dir, scope: map[string][]*object{}}
			groups[key] = p
		}
		p.files = append(p.files, f)
		f.pkg = p
	}
	// The package a folder offers to importers: the one of most files, a
	// main package or a test package only when there is no other.
	for _, f := range prog.files {
		p := f.pkg
		if p == nil || groups[p.dir+"\x00"+p.name] != p {
			continue
		}
		if cur := prog.byDir[p.dir]; cur == nil || importRank(p) > importRank(cur) {
			prog.byDir[p.dir] = p
		}
	}
	for _, p := range prog.byDir {
		prog.byPath[p.path] = append(prog.byPath[p.path], p)
	}
	return prog
}

func importRank(p *goPackage) int {
	rank := len(p.files)
	if strings.HasSuffix(p.path, "_test") {
		rank -= 1 << 30
	}
	if p.name == "main" || p.name == "documentation" {
		rank -= 1 << 20
	}
	return rank
}

// resolveImport finds the package an import path names from folder dir:
// a vendored copy in dir or a folder above it first, as the go command does.
// "unsafe" is the compiler's own, not a package of the tree.
func (prog *program) resolveImport(dir, ip string) *goPackage {
	if ip == "unsafe" || ip == "C" {
		return nil
	}
	for d := dir; ; d = parentDir(d) {
		v := "vendor/" + ip
		if d != "" {
			v = d + "/" + v
		}
		if p := prog.byDir[v]; p != nil {
			return p
		}
		if d == "" {
			break
		}
	}
	var best *goPackage
	for _, p := range prog.byPath[ip] {
		if best == nil || (strings.Contains("/"+best.dir+"/", "/vendor/") && !strings.Contains("/"+p.dir+"/", "/vendor/")) {
			best = p
		}
	}
	return best
}

// bindImports gives each file the packages of the tree its imports name.
func (prog *program) bindImports() {
	for _, f := range prog.files {
		if f.pkg == nil {
			continue
		}
		f.imports = map[string]*goPackage{}
		for _, imp := range f.ast.Imports {
			ip := strings.Trim(imp.Path.Value, "\"`")
			p := prog.resolveImport(f.pkg.dir, ip)
			if p == nil {
				continue
			}
			switch {
			case imp.Name == nil:
				f.imports[p.name] = p
			case imp.Name.Name == ".":
				f.dots = append(f.dots, p)
			case imp.Name.Name != "_":
				f.imports[imp.Name.Name] = p
			}
		}
	}
}
