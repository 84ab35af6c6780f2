package main

import (
	"errors"
	"go/ast"
	"go/build"
	"go/token"
	"go/types"
	"os"
	"path/filepath"
	"strings"
)

// checker type-checks packages under one build configuration.
type checker struct {
	o     *oracle
	ctx   build.Context
	sizes types.Sizes
	pkgs  map[string]*types.Package // folder -> its package, nil while being checked
}

func newChecker(o *oracle, ctx build.Context) *checker {
	sizes := types.SizesFor("gc", ctx.GOARCH)
	if sizes == nil {
		sizes = types.SizesFor("gc", "amd64")
	}
	return &checker{o: o, ctx: ctx, sizes: sizes, pkgs: map[string]*types.Package{}}
}

type dirFiles struct {
	name              string
	base, test, xtest []*ast.File
	paths             []string // every file these hold
	others            []string // files this configuration builds but of another package
}

// files lists a folder's files this configuration builds: the package's,
// its internal tests and its external tests.
func (c *checker) files(dir string) dirFiles {
	var df dirFiles
	ents, _ := os.ReadDir(dir)
	type entry struct {
		path string
		f    *ast.File
		test bool
	}
	var list []entry
	counts := map[string]int{}
	for _, e := range ents {
		n := e.Name()
		if e.IsDir() || !strings.HasSuffix(n, ".go") {
			continue
		}
		if ok, err := c.ctx.MatchFile(dir, n); err != nil || !ok {
			continue
		}
		path := filepath.Join(dir, n)
		f := c.o.parse(path)
		if f == nil {
			continue
		}
		test := strings.HasSuffix(n, "_test.go")
		list = append(list, entry{path, f, test})
		if !(test && strings.HasSuffix(f.Name.Name, "_test")) {
			counts[f.Name.Name]++
		}
	}
	for name, n := range counts {
		if df.name == "" || n > counts[df.name] || (n == counts[df.name] && name < df.name) {
			df.name = name
		}
	}
	for _, e := range list {
		switch {
		case e.test && e.f.Name.Name == df.name+"_test":
			df.xtest = append(df.xtest, e.f)
		case e.f.Name.Name != df.name:
			df.others = append(df.others, e.path)
			continue
		case e.test:
			df.test = append(df.test, e.f)
		default:
			df.base = append(df.base, e.f)
		}
		df.paths = append(df.paths, e.path)
	}
	return df
}

func (c *checker) ImportFrom(path, srcDir string, _ types.ImportMode) (*types.Package, error) {
	if path == "unsafe" {
		return types.Unsafe, nil
	}
	dir := c.o.findDir(path, srcDir)
	if dir == "" {
		return nil, errors.New("not found: " + path)
	}
	return c.base(dir)
}

func (c *checker) Import(path string) (*types.Package, error) { return c.ImportFrom(path, "", 0) }

// base gives a folder's package without its tests.
func (c *checker) base(dir string) (*types.Package, error) {
	if p, ok := c.pkgs[dir]; ok {
		if p == nil {
			return nil, errors.New("import cycle through " + dir)
		}
		return p, nil
	}
	c.pkgs[dir] = nil
	df := c.files(dir)
	p := c.check(dir, dir, df.base, c)
	c.pkgs[dir] = p
	return p, nil
}

// check type-checks files as one package and records what the tree's
// files define and use.
func (c *checker) check(path, dir string, files []*ast.File, imp types.ImporterFrom) *types.Package {
	conf := types.Config{Importer: imp, FakeImportC: true, Sizes: c.sizes, Error: func(error) {}}
	_, inTree := c.o.rel(dir)
	var info *types.Info
	if inTree {
		info = &types.Info{Defs: map[*ast.Ident]types.Object{}, Uses: map[*ast.Ident]types.Object{}}
	}
	pkg, _ := conf.Check(path, c.o.fset, files, info)
	if inTree {
		c.o.checks++
		c.o.record(info)
		for _, f := range files {
			c.o.covered[c.o.pathOf[f]] = true
		}
	}
	return pkg
}

// testImporter gives an external test package the package under test with
// its internal test files.
type testImporter struct {
	*checker
	dir string
	pkg *types.Package
}

func (t testImporter) ImportFrom(path, srcDir string, mode types.ImportMode) (*types.Package, error) {
	if t.pkg != nil && path != "unsafe" && t.o.findDir(path, srcDir) == t.dir {
		return t.pkg, nil
	}
	return t.checker.ImportFrom(path, srcDir, mode)
}

// checkDir checks a folder's package, its internal tests and its external
// tests when some of their files were not yet checked.
func (c *checker) checkDir(dir string) {
	df := c.files(dir)
	need := false
	for _, p := range df.paths {
		if !c.o.covered[p] {
			need = true
		}
	}
	if !need {
		return
	}
	pkg, _ := c.base(dir)
	if len(df.test) > 0 {
		pkg = c.check(dir, dir, append(append([]*ast.File{}, df.base...), df.test...), c)
	}
	if len(df.xtest) > 0 {
		c.check(dir+"_test", dir, df.xtest, testImporter{c, dir, pkg})
	}
}

// checkLeftovers checks each file of a folder no configuration built: with
// the folder's package when it has the same name, else alone.
func (c *checker) checkLeftovers(dir string) {
	ents, _ := os.ReadDir(dir)
	var df *dirFiles
	for _, e := range ents {
		n := e.Name()
		path := filepath.Join(dir, n)
		if e.IsDir() || !strings.HasSuffix(n, ".go") || c.o.covered[path] {
			continue
		}
		f := c.o.parse(path)
		if f == nil {
			continue
		}
		if df == nil {
			d := c.files(dir)
			df = &d
		}
		files := []*ast.File{f}
		if f.Name.Name == df.name {
			files = append(append([]*ast.File{}, df.base...), f)
		}
		c.check(dir+"#"+n, dir, files, c)
		c.o.covered[path] = true
	}
}

// record notes the definitions asked about and the uses of the tree's
// definitions found in one check.
func (o *oracle) record(info *types.Info) {
	for id, obj := range info.Defs {
		p := o.fset.PositionFor(id.Pos(), false)
		rel, ok := o.rel(p.Filename)
		if !ok || obj == nil {
			continue
		}
		for _, q := range o.want[defKey{rel, p.Line, id.Name}] {
			o.defined[q] = true
		}
		if out := o.outlines[rel]; out != nil && o.outlined(obj, p.Filename) {
			out[[2]interface{}{id.Name, p.Line}] = true
		}
	}
	for id, obj := range info.Uses {
		if obj == nil || obj.Pkg() == nil || !obj.Pos().IsValid() {
			continue
		}
		p := o.fset.PositionFor(id.Pos(), false)
		rel, ok := o.rel(p.Filename)
		if !ok {
			continue
		}
		d := o.fset.PositionFor(obj.Pos(), false)
		drel, ok := o.rel(d.Filename)
		if !ok {
			continue
		}
		k := defKey{drel, d.Line, obj.Name()}
		at := location{rel, p.Line}
		for _, q := range o.want[k] {
			if o.refs[q][d.Column] == nil {
				o.refs[q][d.Column] = map[location]bool{}
			}
			o.refs[q][d.Column][at] = true
		}
		if o.uses != nil && o.topLevel(obj, d.Filename) {
			o.uses[useKey{k, at}] = true
		}
	}
}

// topLevel tells a definition outside function bodies: a package's name, a
// method, a field, an interface's method.
func (o *oracle) topLevel(obj types.Object, file string) bool {
	if obj.Name() == "_" {
		return false
	}
	if obj.Pkg() != nil && obj.Parent() == obj.Pkg().Scope() {
		return true
	}
	switch x := obj.(type) {
	case *types.Func:
		if x.Parent() != nil {
			return false
		}
	case *types.Var:
		if !x.IsField() {
			return false
		}
	default:
		return false
	}
	return !o.inBody(obj.Pos(), file)
}

func (o *oracle) outlined(obj types.Object, file string) bool {
	if f, ok := obj.(*types.Func); ok && f.Name() == "init" && f.Type().(*types.Signature).Recv() == nil {
		return true
	}
	return o.topLevel(obj, file)
}

func (o *oracle) inBody(pos token.Pos, file string) bool {
	ranges, ok := o.bodies[file]
	if !ok {
		if f := o.parsed[file]; f != nil {
			for _, d := range f.Decls {
				if fd, ok := d.(*ast.FuncDecl); ok && fd.Body != nil {
					ranges = append(ranges, [2]token.Pos{fd.Body.Pos(), fd.Body.End()})
				}
			}
		}
		o.bodies[file] = ranges
	}
	for _, r := range ranges {
		if pos >= r[0] && pos < r[1] {
			return true
		}
	}
	return false
}
