package main

import (
	"go/ast"
	"path/filepath"
	"sort"
	"strings"
)

// docOf finds the doc comment of the definition named name on line of a
// file: the comment above it, and for a field or a value of a group without
// one, its line comment; a lone declaration's comment is the declaration's.
func (o *oracle) docOf(f *ast.File, line int, name string) *string {
	text := func(groups ...*ast.CommentGroup) *string {
		for _, g := range groups {
			if g != nil {
				if t := strings.TrimRight(g.Text(), "\n"); t != "" {
					return &t
				}
			}
		}
		return nil
	}
	at := func(id *ast.Ident) bool {
		return id != nil && id.Name == name && o.fset.PositionFor(id.Pos(), false).Line == line
	}
	var found *string
	var fields func(fl *ast.FieldList)
	fields = func(fl *ast.FieldList) {
		if fl == nil {
			return
		}
		for _, fld := range fl.List {
			for _, n := range fld.Names {
				if at(n) {
					found = text(fld.Doc, fld.Comment)
				}
			}
			if len(fld.Names) == 0 && o.fset.PositionFor(fld.Type.Pos(), false).Line == line {
				found = text(fld.Doc, fld.Comment)
			}
			switch t := fld.Type.(type) {
			case *ast.StructType:
				fields(t.Fields)
			}
		}
	}
	for _, d := range f.Decls {
		switch x := d.(type) {
		case *ast.FuncDecl:
			if at(x.Name) {
				return text(x.Doc)
			}
		case *ast.GenDecl:
			for _, s := range x.Specs {
				switch sp := s.(type) {
				case *ast.TypeSpec:
					if at(sp.Name) {
						if x.Lparen.IsValid() {
							return text(sp.Doc)
						}
						return text(sp.Doc, x.Doc)
					}
					switch t := sp.Type.(type) {
					case *ast.StructType:
						fields(t.Fields)
					case *ast.InterfaceType:
						fields(t.Methods)
					}
				case *ast.ValueSpec:
					for _, n := range sp.Names {
						if at(n) {
							return text(sp.Doc, x.Doc, sp.Comment)
						}
					}
				}
			}
		}
		if found != nil {
			return found
		}
	}
	return found
}

func (o *oracle) response() response {
	r := response{Answers: make([]answer, len(o.req.Queries)), Outlines: map[string][][2]interface{}{},
		Stats: map[string]int{"checks": o.checks, "files": len(o.parsed), "uncovered": 0}}
	for i, q := range o.req.Queries {
		a := answer{References: [][2]interface{}{}}
		abs := filepath.Join(o.root, filepath.FromSlash(q.File))
		f := o.parsed[abs]
		var refs map[location]bool
		switch {
		case f != nil && f.Name.Name == q.Name && o.fset.PositionFor(f.Package, false).Line == q.Line:
			// A package clause: the package is used by the lines importing it.
			a.Definition = &location{q.File, q.Line}
			a.Doc = o.docOfPackage(f)
			if !(strings.HasSuffix(q.File, "_test.go") && strings.HasSuffix(q.Name, "_test")) {
				refs = o.importsOf[filepath.Dir(abs)]
			}
		case o.defined[i]:
			a.Definition = &location{q.File, q.Line}
			a.Doc = o.docOf(f, q.Line, q.Name)
			// Two definitions of one name on one line (a method and its
			// parameter) are told apart by the query's column when it is one.
			refs = o.refs[i][q.Column]
			if refs == nil {
				refs = map[location]bool{}
				for _, set := range o.refs[i] {
					for l := range set {
						refs[l] = true
					}
				}
			}
		}
		for _, l := range sortedLocations(refs) {
			if l.File == q.File && l.Line == q.Line {
				continue
			}
			a.References = append(a.References, [2]interface{}{l.File, l.Line})
		}
		r.Answers[i] = a
	}
	for file, set := range o.outlines {
		list := [][2]interface{}{}
		if f := o.parsed[filepath.Join(o.root, filepath.FromSlash(file))]; f != nil {
			list = append(list, [2]interface{}{f.Name.Name, o.fset.PositionFor(f.Package, false).Line})
		}
		for e := range set {
			list = append(list, e)
		}
		sort.Slice(list, func(i, j int) bool { return list[i][1].(int) < list[j][1].(int) })
		r.Outlines[file] = list
	}
	for p, f := range o.parsed {
		if f != nil && !o.covered[p] {
			if _, ok := o.rel(p); ok {
				r.Stats["uncovered"]++
			}
		}
	}
	if o.uses != nil {
		lines := map[defKey]map[location]bool{}
		for u := range o.uses {
			if u.at.File != u.def.file || u.at.Line != u.def.line {
				if lines[u.def] == nil {
					lines[u.def] = map[location]bool{}
				}
				lines[u.def][u.at] = true
			}
		}
		keys := make([]defKey, 0, len(lines))
		for k := range lines {
			keys = append(keys, k)
		}
		sort.Slice(keys, func(i, j int) bool {
			a, b := keys[i], keys[j]
			if len(lines[a]) != len(lines[b]) {
				return len(lines[a]) > len(lines[b])
			}
			if a.file != b.file {
				return a.file < b.file
			}
			return a.line < b.line
		})
		if len(keys) > o.req.Top {
			keys = keys[:o.req.Top]
		}
		for _, k := range keys {
			e := topEntry{File: k.file, Line: k.line, Name: k.name, Uses: len(lines[k]), References: [][2]interface{}{}}
			for _, l := range sortedLocations(lines[k]) {
				e.References = append(e.References, [2]interface{}{l.File, l.Line})
			}
			r.Top = append(r.Top, e)
		}
	}
	return r
}

func (o *oracle) docOfPackage(f *ast.File) *string {
	if f.Doc == nil {
		return nil
	}
	if t := strings.TrimRight(f.Doc.Text(), "\n"); t != "" {
		return &t
	}
	return nil
}

func sortedLocations(set map[location]bool) []location {
	out := make([]location, 0, len(set))
	for l := range set {
		out = append(out, l)
	}
	sort.Slice(out, func(i, j int) bool {
		if out[i].File != out[j].File {
			return out[i].File < out[j].File
		}
		return out[i].Line < out[j].Line
	})
	return out
}
