package main

import (
	"bytes"
	"go/ast"
	"go/printer"
	"go/token"
	"strings"
)

// object is a definition of a package's top level (function, type, variable,
// constant) or a method; fields are reached through their struct types.
type object struct {
	kind string // function, method, type, struct, interface, variable, constant
	name string
	fqn  string
	file *srcFile

	funcDecl  *ast.FuncDecl
	typeSpec  *ast.TypeSpec
	valueType ast.Expr // a variable's or constant's declared type, or nil
	value     ast.Expr // its initial value, or nil
	tupleAt   int      // which result of value it takes (var a, b = f()), or -1

	methods  map[string][]*object // a type's methods by name
	variants []*object            // a type's declarations, when it has several

	state   int // of typ: 0 not computed, 1 in progress, 2 done
	typ     typ
	builtin string // a builtin function of the universe: its name
	isType  bool
}

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

func (f *srcFile) line(p token.Pos) int {
	if f.tok == nil || !p.IsValid() {
		return 0
	}
	if max := token.Pos(f.tok.Base() + f.tok.Size()); p > max {
		p = max
	}
	return f.tok.PositionFor(p, false).Line
}

// docText is a comment group's text without markers, or nil when it holds none.
func docText(groups ...*ast.CommentGroup) *string {
	for _, g := range groups {
		if g == nil {
			continue
		}
		if t := strings.TrimRight(g.Text(), "\n"); t != "" {
			return &t
		}
	}
	return nil
}

func strp(s string) *string { return &s }

// exprString prints a type or value expression on one line.
func exprString(fset *token.FileSet, e ast.Expr) string {
	// A literal type spanning many lines is shown by its kind only.
	if e.End()-e.Pos() > 400 {
		switch e.(type) {
		case *ast.StructType:
			return "struct{...}"
		case *ast.InterfaceType:
			return "interface{...}"
		}
	}
	var b bytes.Buffer
	if err := printer.Fprint(&b, fset, e); err != nil {
		return ""
	}
	s := b.String()
	if !strings.Contains(s, "\n") {
		return s
	}
	var out strings.Builder
	for i, part := range strings.Split(s, "\n") {
		part = strings.TrimSpace(part)
		if part == "" {
			continue
		}
		if i > 0 && out.Len() > 0 {
			prev := out.String()[out.Len()-1]
			if prev == '{' || prev == '(' || prev == ',' || part[0] == '}' || part[0] == ')' {
				out.WriteByte(' ')
			} else {
				out.WriteString("; ")
			}
		}
		out.WriteString(part)
	}
	return out.String()
}

// fieldList prints parameters, results or type parameters as declared:
// names that share a type stay together.
func fieldList(fset *token.FileSet, fl *ast.FieldList) string {
	if fl == nil {
		return ""
	}
	parts := make([]string, 0, len(fl.List))
	for _, f := range fl.List {
		t := exprString(fset, f.Type)
		if len(f.Names) == 0 {
			parts = append(parts, t)
			continue
		}
		names := make([]string, len(f.Names))
		for i, n := range f.Names {
			names[i] = n.Name
		}
		parts = append(parts, strings.Join(names, ", ")+" "+t)
	}
	return strings.Join(parts, ", ")
}

func funcSignature(fset *token.FileSet, recv *ast.FieldList, name string, ft *ast.FuncType) string {
	var b strings.Builder
	if name != "" && recv == nil && ft.Func.IsValid() {
		b.WriteString("func ")
	} else if recv != nil {
		b.WriteString("func (" + fieldList(fset, recv) + ") ")
	}
	b.WriteString(name)
	if ft.TypeParams != nil {
		b.WriteString("[" + fieldList(fset, ft.TypeParams) + "]")
	}
	b.WriteString("(" + fieldList(fset, ft.Params) + ")")
	if res := ft.Results; res != nil && len(res.List) > 0 {
		if len(res.List) == 1 && len(res.List[0].Names) == 0 {
			b.WriteString(" " + exprString(fset, res.List[0].Type))
		} else {
			b.WriteString(" (" + fieldList(fset, res) + ")")
		}
	}
	return b.String()
}

// funcName gives a function's or method's fqn and kind.
func funcName(p *goPackage, d *ast.FuncDecl) (fqn, kind string) {
	if d.Recv != nil && len(d.Recv.List) > 0 {
		return p.path + "." + baseTypeName(d.Recv.List[0].Type) + "." + d.Name.Name, "method"
	}
	return p.path + "." + d.Name.Name, "function"
}

// typeKind is a type declaration's kind: struct, interface or type.
func typeKind(s *ast.TypeSpec) string {
	switch s.Type.(type) {
	case *ast.StructType:
		return "struct"
	case *ast.InterfaceType:
		return "interface"
	}
	return "type"
}

// baseTypeName is the type a method's receiver names: T of T, *T, T[P].
func baseTypeName(e ast.Expr) string {
	for {
		switch x := e.(type) {
		case *ast.StarExpr:
			e = x.X
		case *ast.ParenExpr:
			e = x.X
		case *ast.IndexExpr:
			e = x.X
		case *ast.IndexListExpr:
			e = x.X
		case *ast.SelectorExpr:
			return x.Sel.Name
		case *ast.Ident:
			return x.Name
		default:
			return ""
		}
	}
}

// declare adds a package's top-level definitions to its scope and methods
// to their types.
func (prog *program) declare() {
	type pending struct {
		recv string
		obj  *object
	}
	byPkg := map[*goPackage][]pending{}
	for _, f := range prog.files {
		p := f.pkg
		if p == nil {
			continue
		}
		add := func(o *object) {
			if o.name != "_" {
				p.scope[o.name] = append(p.scope[o.name], o)
			}
		}
		for _, decl := range f.ast.Decls {
			switch d := decl.(type) {
			case *ast.FuncDecl:
				if d.Name == nil {
					continue
				}
				o := &object{name: d.Name.Name, file: f, funcDecl: d}
				o.fqn, o.kind = funcName(p, d)
				if o.kind == "method" {
					byPkg[p] = append(byPkg[p], pending{baseTypeName(d.Recv.List[0].Type), o})
					continue
				}
				add(o)
			case *ast.GenDecl:
				var lastType ast.Expr
				var lastValues []ast.Expr
				for _, item := range d.Specs {
					switch s := item.(type) {
					case *ast.TypeSpec:
						add(&object{kind: typeKind(s), name: s.Name.Name, fqn: p.path + "." + s.Name.Name, file: f, typeSpec: s, isType: true})
					case *ast.ValueSpec:
						kind := "variable"
						if d.Tok == token.CONST {
							kind = "constant"
							// A constant without type and values repeats the ones before it.
							if s.Type == nil && len(s.Values) == 0 {
								s2 := *s
								s2.Type, s2.Values = lastType, lastValues
								s = &s2
							} else {
								lastType, lastValues = s.Type, s.Values
							}
						}
						for i, n := range s.Names {
							o := &object{kind: kind, name: n.Name, fqn: p.path + "." + n.Name, file: f, valueType: s.Type, tupleAt: -1}
							if len(s.Values) == len(s.Names) {
								o.value = s.Values[i]
							} else if len(s.Values) == 1 {
								o.value, o.tupleAt = s.Values[0], i
							}
							add(o)
						}
					}
				}
			}
		}
	}
	for _, f := range prog.files {
		if f.pkg == nil {
			continue
		}
		for _, objs := range f.pkg.scope {
			if len(objs) < 2 || objs[0].variants != nil {
				continue
			}
			var types []*object
			for _, o := range objs {
				if o.isType {
					types = append(types, o)
				}
			}
			for _, o := range types {
				o.variants = types
			}
		}
	}
	// A method belongs to its type's declaration in the same file when the
	// type is declared once per GOOS or GOARCH, else to every declaration.
	for p, list := range byPkg {
		for _, m := range list {
			var types, sameFile []*object
			for _, t := range p.scope[m.recv] {
				if t.isType {
					types = append(types, t)
					if t.file == m.obj.file {
						sameFile = append(sameFile, t)
					}
				}
			}
			if len(sameFile) > 0 {
				types = sameFile
			}
			for _, t := range types {
				if t.methods == nil {
					t.methods = map[string][]*object{}
				}
				t.methods[m.obj.name] = append(t.methods[m.obj.name], m.obj)
			}
		}
	}
}

// fileSymbols lists the definitions of a file in source order: its package
// clause, then each declaration with its fields and interface methods.
func (prog *program) fileSymbols(f *srcFile) []symbol {
	fset := prog.fset
	p := f.pkg
	syms := []symbol{}
	if p == nil {
		return syms
	}
	end := f.line(f.ast.End())
	syms = append(syms, symbol{FQN: p.path, Name: p.name, Kind: "package", Line: f.line(f.ast.Package), End: end,
		Signature: strp("package " + p.name), Doc: docText(f.ast.Doc), Export: true})
	emit := func(fqn string, id *ast.Ident, kind string, end token.Pos, sig string, doc *string) {
		if id == nil || id.Name == "_" {
			return
		}
		syms = append(syms, symbol{FQN: fqn, Name: id.Name, Kind: kind, Line: f.line(id.Pos()), End: f.line(end),
			Signature: strp(sig), Doc: doc, Export: ast.IsExported(id.Name)})
	}
	// The fields of a struct type written in a declaration, even inside a
	// slice, map, pointer or channel type, are named after the declaration.
	var members func(owner string, e ast.Expr)
	members = func(owner string, e ast.Expr) {
		switch t := e.(type) {
		case *ast.ArrayType:
			members(owner, t.Elt)
		case *ast.StarExpr:
			members(owner, t.X)
		case *ast.ChanType:
			members(owner, t.Value)
		case *ast.MapType:
			members(owner, t.Key)
			members(owner, t.Value)
		case *ast.StructType:
			for _, fld := range t.Fields.List {
				doc := docText(fld.Doc, fld.Comment)
				typeStr := exprString(fset, fld.Type)
				if len(fld.Names) == 0 {
					name := baseTypeName(fld.Type)
					if name != "" {
						emit(owner+"."+name, &ast.Ident{NamePos: fld.Type.Pos(), Name: name}, "field", fld.End(), typeStr, doc)
					}
					continue
				}
				for _, n := range fld.Names {
					emit(owner+"."+n.Name, n, "field", fld.End(), n.Name+" "+typeStr, doc)
					members(owner+"."+n.Name, fld.Type)
				}
			}
		case *ast.InterfaceType:
			for _, fld := range t.Methods.List {
				if ft, ok := fld.Type.(*ast.FuncType); ok && len(fld.Names) == 1 {
					n := fld.Names[0]
					emit(owner+"."+n.Name, n, "method", fld.End(), funcSignature(fset, nil, n.Name, ft), docText(fld.Doc, fld.Comment))
				}
			}
		}
	}
	for _, decl := range f.ast.Decls {
		switch d := decl.(type) {
		case *ast.FuncDecl:
			if d.Name == nil {
				continue
			}
			fqn, kind := funcName(p, d)
			emit(fqn, d.Name, kind, d.End(), funcSignature(fset, d.Recv, d.Name.Name, d.Type), docText(d.Doc))
		case *ast.GenDecl:
			single := !d.Lparen.IsValid()
			var lastType ast.Expr
			for _, item := range d.Specs {
				switch s := item.(type) {
				case *ast.TypeSpec:
					end := s.End()
					doc := docText(s.Doc)
					if single {
						end, doc = d.End(), docText(s.Doc, d.Doc)
					}
					sig := "type " + s.Name.Name
					if s.TypeParams != nil {
						sig += "[" + fieldList(fset, s.TypeParams) + "]"
					}
					kind := typeKind(s)
					switch kind {
					case "struct", "interface":
						sig += " " + kind
					default:
						if s.Assign.IsValid() {
							sig += " ="
						}
						sig += " " + exprString(fset, s.Type)
					}
					fqn := p.path + "." + s.Name.Name
					emit(fqn, s.Name, kind, end, sig, doc)
					members(fqn, s.Type)
				case *ast.ValueSpec:
					end := s.End()
					if single {
						end = d.End()
					}
					word, kind := "var", "variable"
					typ := s.Type
					if d.Tok == token.CONST {
						word, kind = "const", "constant"
						if typ == nil && len(s.Values) == 0 {
							typ = lastType
						} else {
							lastType = typ
						}
					}
					doc := docText(s.Doc, d.Doc, s.Comment)
					for i, n := range s.Names {
						sig := word + " " + n.Name
						if typ != nil {
							sig += " " + exprString(fset, typ)
						}
						if len(s.Values) == len(s.Names) && s.Values[i].End()-s.Values[i].Pos() <= 80 {
							sig += " = " + exprString(fset, s.Values[i])
						}
						emit(p.path+"."+n.Name, n, kind, end, sig, doc)
						if s.Type != nil {
							members(p.path+"."+n.Name, s.Type)
						}
						if len(s.Values) == len(s.Names) {
							ast.Inspect(s.Values[i], func(x ast.Node) bool {
								if st, ok := x.(*ast.StructType); ok {
									members(p.path+"."+n.Name, st)
									return false
								}
								return true
							})
						}
					}
				}
			}
		}
	}
	return syms
}
