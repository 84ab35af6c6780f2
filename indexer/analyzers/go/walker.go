package main

import (
	"go/ast"
	"go/token"
	"strings"
)

// reference is one use of a definition of the tree, as answered.
type reference struct {
	FQN        string  `json:"fqn"`
	Line       int     `json:"line"`
	Caller     *string `json:"caller"`
	CallerKind *string `json:"caller_kind"`
	Usage      string  `json:"usage"`
}

type refKey struct {
	fqn  string
	line int
}

// scope is a block's local names: variables with their types (nil when not
// known) and local types as typeOf.
type scope struct {
	parent *scope
	names  map[string]typ
}

// walker types the expressions of one file and, when it records, collects
// the uses of the tree's definitions that it meets. Names resolve as Go
// resolves them: local blocks, then the package, the file's imports and the
// predeclared names.
type walker struct {
	prog       *program
	f          *srcFile
	sc         *scope
	record     bool
	calling    *ast.Ident // the name of the function being called
	litOwner   string     // what names the fields of struct types written here
	caller     *string
	callerKind *string
	refs       []reference
	seen       map[refKey]int
}

func newWalker(prog *program, f *srcFile, record bool) *walker {
	w := &walker{prog: prog, f: f, record: record}
	if record {
		w.seen = map[refKey]int{}
		w.refs = []reference{}
	}
	return w
}

func (w *walker) push() { w.sc = &scope{parent: w.sc, names: map[string]typ{}} }
func (w *walker) pop()  { w.sc = w.sc.parent }

func (w *walker) define(e ast.Expr, t typ) {
	if id, ok := e.(*ast.Ident); ok && id.Name != "_" && w.sc != nil {
		w.sc.names[id.Name] = t
	}
}

func (w *walker) setCaller(fqn, kind string) func() {
	prevCaller, prevKind := w.caller, w.callerKind
	w.caller, w.callerKind = &fqn, &kind
	return func() { w.caller, w.callerKind = prevCaller, prevKind }
}

// use records a use of fqn at pos: one entry per name and line, "call" when
// any use on the line calls it.
func (w *walker) use(pos token.Pos, fqn, usage string) {
	if !w.record || fqn == "" {
		return
	}
	k := refKey{fqn, w.f.line(pos)}
	if i, ok := w.seen[k]; ok {
		if usage == "call" {
			w.refs[i].Usage = usage
		}
		return
	}
	w.seen[k] = len(w.refs)
	w.refs = append(w.refs, reference{FQN: fqn, Line: k.line, Caller: w.caller, CallerKind: w.callerKind, Usage: usage})
}

func (w *walker) useIdent(id *ast.Ident, fqn string, callable bool) {
	usage := "reference"
	if callable && id == w.calling {
		usage = "call"
	}
	w.use(id.Pos(), fqn, usage)
}

// useObjects records a use of top-level definitions named by id and gives
// what the name denotes.
func (w *walker) useObjects(id *ast.Ident, objs []*object) typ {
	o := objs[0]
	if o.builtin != "" {
		return &builtinFn{o.builtin}
	}
	if o.fqn != "" {
		w.useIdent(id, o.fqn, !o.isType)
	}
	if o.isType {
		if o.typeSpec != nil && o.typeSpec.Assign.IsValid() {
			return &typeOf{w.prog.objType(o)}
		}
		if o.typ != nil && o.fqn == "" {
			return &typeOf{o.typ}
		}
		return &typeOf{o.named()}
	}
	return w.prog.objType(o)
}

func (w *walker) ident(id *ast.Ident) typ {
	name := id.Name
	if name == "_" {
		return nil
	}
	for s := w.sc; s != nil; s = s.parent {
		if t, ok := s.names[name]; ok {
			return t
		}
	}
	if w.f.pkg != nil {
		if objs := w.f.pkg.scope[name]; len(objs) > 0 {
			return w.useObjects(id, objs)
		}
	}
	if p := w.f.imports[name]; p != nil {
		return &pkgName{p}
	}
	if ast.IsExported(name) {
		for _, p := range w.f.dots {
			if objs := p.scope[name]; len(objs) > 0 {
				return w.useObjects(id, objs)
			}
		}
	}
	if o := w.prog.universe[name]; o != nil {
		return w.useObjects(id, []*object{o})
	}
	return nil
}

// typeExpr resolves a type expression (recording the names it uses).
func (w *walker) typeExpr(e ast.Expr) typ {
	if t, ok := w.expr(e, nil).(*typeOf); ok {
		return t.t
	}
	return nil
}

// declaredType resolves a declaration's type; a struct or interface written
// there has members named after the declaration (owner).
func (w *walker) declaredType(e ast.Expr, owner string) typ {
	switch t := e.(type) {
	case *ast.StructType:
		return w.structType(t, owner)
	case *ast.InterfaceType:
		return w.ifaceType(t, owner)
	}
	return w.typeExpr(e)
}

func (w *walker) structType(st *ast.StructType, owner string) *structT {
	s := &structT{}
	if st.Fields == nil {
		return s
	}
	for _, fld := range st.Fields.List {
		if len(fld.Names) == 0 {
			name := baseTypeName(fld.Type)
			fqn := ""
			if owner != "" {
				fqn = owner + "." + name
			}
			restore := w.fieldCaller(fqn)
			s.fields = append(s.fields, &field{name: name, fqn: fqn, t: w.typeExpr(fld.Type), embedded: true})
			restore()
			continue
		}
		var t typ
		for i, n := range fld.Names {
			fqn := ""
			if owner != "" {
				fqn = owner + "." + n.Name
			}
			if i == 0 || owner != "" {
				restore := w.fieldCaller(fqn)
				prevOwner := w.litOwner
				w.litOwner = fqn
				t = w.declaredType(fld.Type, fqn)
				w.litOwner = prevOwner
				restore()
			}
			s.fields = append(s.fields, &field{name: n.Name, fqn: fqn, t: t})
		}
	}
	return s
}

func (w *walker) fieldCaller(fqn string) func() {
	if fqn == "" || !w.record {
		return func() {}
	}
	return w.setCaller(fqn, "field")
}

func (w *walker) ifaceType(it *ast.InterfaceType, owner string) *ifaceT {
	t := &ifaceT{}
	if it.Methods == nil {
		return t
	}
	for _, fld := range it.Methods.List {
		ft, ok := fld.Type.(*ast.FuncType)
		if !ok || len(fld.Names) == 0 {
			t.embedded = append(t.embedded, w.typeExpr(fld.Type))
			continue
		}
		name := fld.Names[0].Name
		fqn := ""
		restore := func() {}
		if owner != "" {
			fqn = owner + "." + name
			if w.record {
				restore = w.setCaller(fqn, "method")
			}
		}
		t.methods = append(t.methods, &field{name: name, fqn: fqn, t: w.funcType(ft)})
		restore()
	}
	return t
}

// funcType resolves a signature; defineNames declares its parameters and
// results in the current scope.
func (w *walker) funcTypeNames(ft *ast.FuncType, defineNames bool) *sigT {
	s := &sigT{}
	list := func(fl *ast.FieldList, out *[]typ) {
		if fl == nil {
			return
		}
		for _, f := range fl.List {
			t := w.typeExpr(f.Type)
			if _, ok := f.Type.(*ast.Ellipsis); ok {
				s.variadic = true
			}
			if len(f.Names) == 0 {
				*out = append(*out, t)
			}
			for _, n := range f.Names {
				*out = append(*out, t)
				if defineNames {
					w.define(n, t)
				}
			}
		}
	}
	list(ft.Params, &s.params)
	list(ft.Results, &s.results)
	return s
}

func (w *walker) funcType(ft *ast.FuncType) *sigT { return w.funcTypeNames(ft, false) }

// typeParams declares type parameters (their types are not known) and
// resolves their constraints.
func (w *walker) typeParams(fl *ast.FieldList) {
	if fl == nil {
		return
	}
	for _, f := range fl.List {
		for _, n := range f.Names {
			w.define(n, &typeOf{nil})
		}
	}
	for _, f := range fl.List {
		w.typeExpr(f.Type)
	}
}

// funcSig declares a function's type parameters, receiver, parameters and
// results in the current scope and gives its signature.
func (w *walker) funcSig(d *ast.FuncDecl) *sigT {
	if d.Recv != nil && len(d.Recv.List) > 0 {
		recv := d.Recv.List[0]
		rt := recv.Type
		for {
			if s, ok := rt.(*ast.StarExpr); ok {
				rt = s.X
			} else if p, ok := rt.(*ast.ParenExpr); ok {
				rt = p.X
			} else {
				break
			}
		}
		var tparams []ast.Expr
		switch x := rt.(type) {
		case *ast.IndexExpr:
			tparams = []ast.Expr{x.Index}
		case *ast.IndexListExpr:
			tparams = x.Indices
		}
		for _, tp := range tparams {
			w.define(tp, &typeOf{nil})
		}
		t := w.typeExpr(recv.Type)
		for _, n := range recv.Names {
			w.define(n, t)
		}
	}
	w.typeParams(d.Type.TypeParams)
	return w.funcTypeNames(d.Type, true)
}

func unparen(e ast.Expr) ast.Expr {
	for {
		p, ok := e.(*ast.ParenExpr)
		if !ok {
			return e
		}
		e = p.X
	}
}

// calledName is the name a call expression calls: f, x.f, f[T].
func calledName(fun ast.Expr) *ast.Ident {
	for {
		switch f := unparen(fun).(type) {
		case *ast.Ident:
			return f
		case *ast.SelectorExpr:
			return f.Sel
		case *ast.IndexExpr:
			fun = f.X
		case *ast.IndexListExpr:
			fun = f.X
		default:
			return nil
		}
	}
}

func elemType(t typ) typ {
	switch u := t.(type) {
	case *sliceT:
		return u.elem
	case *mapT:
		return u.elem
	case *chanT:
		return u.elem
	case *pointerT:
		if s, ok := u.elem.(*sliceT); ok {
			return s.elem
		}
	case *basicT:
		if u.name == "string" {
			return byteType
		}
	}
	return nil
}

// expr walks an expression and gives its type, or what it denotes; hint is
// the type a composite literal without one of its own takes from where it
// stands.
func (w *walker) expr(e ast.Expr, hint typ) typ {
	switch x := e.(type) {
	case nil:
		return nil
	case *ast.Ident:
		return w.ident(x)
	case *ast.BasicLit:
		switch x.Kind {
		case token.STRING:
			return stringType
		case token.CHAR:
			return runeType
		case token.INT:
			return intType
		}
		return &basicT{"float64"}
	case *ast.ParenExpr:
		return w.expr(x.X, hint)
	case *ast.SelectorExpr:
		return w.selector(x)
	case *ast.CallExpr:
		return w.call(x)
	case *ast.StarExpr:
		switch t := w.expr(x.X, nil).(type) {
		case *typeOf:
			return &typeOf{&pointerT{t.t}}
		case *pointerT:
			return t.elem
		}
		return nil
	case *ast.UnaryExpr:
		t := w.expr(x.X, hint)
		switch x.Op {
		case token.AND:
			if p, ok := hint.(*pointerT); ok && t == nil {
				return p
			}
			return &pointerT{t}
		case token.ARROW:
			if c, ok := w.prog.underlying(t).(*chanT); ok {
				return c.elem
			}
			return nil
		case token.NOT:
			return boolType
		}
		return t
	case *ast.BinaryExpr:
		xt := w.expr(x.X, nil)
		yt := w.expr(x.Y, nil)
		switch x.Op {
		case token.EQL, token.NEQ, token.LSS, token.LEQ, token.GTR, token.GEQ, token.LAND, token.LOR:
			return boolType
		case token.SHL, token.SHR:
			return xt
		}
		if b, ok := xt.(*basicT); (ok && b == intType) || xt == nil {
			return yt
		}
		return xt
	case *ast.CompositeLit:
		t := hint
		if x.Type != nil {
			t = w.typeExpr(x.Type)
		}
		w.elements(x, t)
		return t
	case *ast.FuncLit:
		if !w.record {
			return w.funcType(x.Type)
		}
		w.push()
		s := w.funcTypeNames(x.Type, true)
		w.block(x.Body)
		w.pop()
		return s
	case *ast.IndexExpr:
		t := w.expr(x.X, nil)
		switch t.(type) {
		case *typeOf, *sigT:
			w.typeExpr(x.Index)
			return t
		}
		w.expr(x.Index, nil)
		return elemType(w.prog.underlying(t))
	case *ast.IndexListExpr:
		t := w.expr(x.X, nil)
		for _, i := range x.Indices {
			w.typeExpr(i)
		}
		return t
	case *ast.SliceExpr:
		t := w.expr(x.X, nil)
		w.expr(x.Low, nil)
		w.expr(x.High, nil)
		w.expr(x.Max, nil)
		if p, ok := t.(*pointerT); ok {
			return p.elem
		}
		return t
	case *ast.TypeAssertExpr:
		t := w.expr(x.X, nil)
		if x.Type == nil {
			return t
		}
		return w.typeExpr(x.Type)
	case *ast.KeyValueExpr:
		w.expr(x.Key, nil)
		return w.expr(x.Value, nil)
	case *ast.ArrayType:
		if _, ok := x.Len.(*ast.Ellipsis); !ok {
			w.expr(x.Len, nil)
		}
		return &typeOf{&sliceT{w.typeExpr(x.Elt)}}
	case *ast.Ellipsis:
		return &typeOf{&sliceT{w.typeExpr(x.Elt)}}
	case *ast.MapType:
		return &typeOf{&mapT{w.typeExpr(x.Key), w.typeExpr(x.Value)}}
	case *ast.ChanType:
		return &typeOf{&chanT{w.typeExpr(x.Value)}}
	case *ast.FuncType:
		return &typeOf{w.funcType(x)}
	case *ast.StructType:
		return &typeOf{w.structType(x, w.litOwner)}
	case *ast.InterfaceType:
		return &typeOf{w.ifaceType(x, "")}
	}
	return nil
}

func (w *walker) selector(x *ast.SelectorExpr) typ {
	name := x.Sel.Name
	switch t := w.expr(x.X, nil).(type) {
	case *pkgName:
		if objs := t.pkg.scope[name]; len(objs) > 0 && ast.IsExported(name) {
			return w.useObjects(x.Sel, objs)
		}
		return nil
	case *typeOf:
		// A method expression: T.M or (*T).M.
		if m := w.prog.member(t.t, name, w.f); m != nil {
			w.useIdent(x.Sel, m.fqn, true)
			return m.t
		}
		return nil
	case nil:
		return nil
	default:
		if m := w.prog.member(t, name, w.f); m != nil {
			w.useIdent(x.Sel, m.fqn, true)
			return m.t
		}
		return nil
	}
}

func (w *walker) call(x *ast.CallExpr) typ {
	prev := w.calling
	w.calling = calledName(x.Fun)
	ft := w.expr(x.Fun, nil)
	w.calling = prev
	switch f := ft.(type) {
	case *typeOf: // a conversion
		for _, a := range x.Args {
			w.expr(a, nil)
		}
		return f.t
	case *builtinFn:
		var first typ
		for i, a := range x.Args {
			t := w.expr(a, nil)
			if i == 0 {
				first = t
			}
		}
		switch f.name {
		case "new":
			if t, ok := first.(*typeOf); ok {
				return &pointerT{t.t}
			}
		case "make":
			if t, ok := first.(*typeOf); ok {
				return t.t
			}
		case "append", "min", "max":
			return first
		case "len", "cap", "copy":
			return intType
		case "complex":
			return &basicT{"complex128"}
		case "real", "imag":
			return &basicT{"float64"}
		}
		return nil
	}
	var params []typ
	s, _ := w.prog.underlying(ft).(*sigT)
	if s != nil {
		params = s.params
	}
	for i, a := range x.Args {
		var hint typ
		if i < len(params) {
			hint = params[i]
		}
		w.expr(a, hint)
	}
	if s == nil {
		return nil
	}
	switch len(s.results) {
	case 0:
		return nil
	case 1:
		return s.results[0]
	}
	return tupleT(s.results)
}

// elements walks a composite literal's elements: the keys of a struct
// literal name its fields; elements without a type of their own take the
// literal's element type.
func (w *walker) elements(x *ast.CompositeLit, t typ) {
	// A type declared once per GOOS may be a struct in some declarations only.
	var structs []*structT
	var u typ
	for _, v := range variants(deref(t), w.f) {
		vu := w.prog.underlying(v)
		if st, ok := vu.(*structT); ok {
			structs = append(structs, st)
		}
		if u == nil {
			u = vu
		}
	}
	if len(structs) > 0 {
		u = structs[0]
	}
	switch u := u.(type) {
	case *structT:
		for i, el := range x.Elts {
			if kv, ok := el.(*ast.KeyValueExpr); ok {
				var ft typ
				if id, ok := kv.Key.(*ast.Ident); ok {
				search:
					for _, st := range structs {
						for _, f := range st.fields {
							if f.name == id.Name {
								w.useIdent(id, f.fqn, false)
								ft = f.t
								break search
							}
						}
					}
				}
				w.expr(kv.Value, ft)
				continue
			}
			var ft typ
			if i < len(u.fields) {
				ft = u.fields[i].t
			}
			w.expr(el, ft)
		}
	case *sliceT:
		for _, el := range x.Elts {
			if kv, ok := el.(*ast.KeyValueExpr); ok {
				w.expr(kv.Key, nil)
				el = kv.Value
			}
			w.expr(el, u.elem)
		}
	case *mapT:
		for _, el := range x.Elts {
			if kv, ok := el.(*ast.KeyValueExpr); ok {
				w.expr(kv.Key, u.key)
				el = kv.Value
			}
			w.expr(el, u.elem)
		}
	default:
		// Not known: a key that is a bare name may be a field; only the values are walked.
		for _, el := range x.Elts {
			if kv, ok := el.(*ast.KeyValueExpr); ok {
				if _, isName := kv.Key.(*ast.Ident); !isName {
					w.expr(kv.Key, nil)
				}
				el = kv.Value
			}
			w.expr(el, nil)
		}
	}
}

func (w *walker) block(b *ast.BlockStmt) {
	if b == nil {
		return
	}
	w.push()
	for _, s := range b.List {
		w.stmt(s)
	}
	w.pop()
}

// assignTypes gives the types of n values from the right side of an
// assignment: one value each, or the results of one call, or a comma-ok pair.
func (w *walker) assignTypes(rhs []ast.Expr, n int, hint typ) []typ {
	ts := make([]typ, n)
	if len(rhs) == n {
		for i, e := range rhs {
			ts[i] = w.expr(e, hint)
		}
		return ts
	}
	for _, e := range rhs {
		t := w.expr(e, hint)
		if len(rhs) != 1 {
			continue
		}
		if tt, ok := t.(tupleT); ok {
			copy(ts, tt)
		} else if n > 0 {
			ts[0] = t
			if n > 1 {
				ts[1] = boolType
			}
		}
	}
	return ts
}

func (w *walker) valueSpec(s *ast.ValueSpec) {
	var t typ
	if s.Type != nil {
		t = w.typeExpr(s.Type)
	}
	ts := w.assignTypes(s.Values, len(s.Names), t)
	for i, n := range s.Names {
		if t != nil {
			w.define(n, t)
		} else {
			w.define(n, ts[i])
		}
	}
}

func (w *walker) stmt(s ast.Stmt) {
	switch x := s.(type) {
	case *ast.BlockStmt:
		w.block(x)
	case *ast.ExprStmt:
		w.expr(x.X, nil)
	case *ast.AssignStmt:
		if x.Tok == token.DEFINE {
			ts := w.assignTypes(x.Rhs, len(x.Lhs), nil)
			for i, l := range x.Lhs {
				w.define(l, ts[i])
			}
			return
		}
		for _, l := range x.Lhs {
			w.expr(l, nil)
		}
		for _, r := range x.Rhs {
			w.expr(r, nil)
		}
	case *ast.DeclStmt:
		d, ok := x.Decl.(*ast.GenDecl)
		if !ok {
			return
		}
		for _, item := range d.Specs {
			switch sp := item.(type) {
			case *ast.ValueSpec:
				w.valueSpec(sp)
			case *ast.TypeSpec:
				w.define(sp.Name, &typeOf{nil})
				w.push()
				w.typeParams(sp.TypeParams)
				t := w.typeExpr(sp.Type)
				w.pop()
				w.define(sp.Name, &typeOf{t})
			}
		}
	case *ast.IncDecStmt:
		w.expr(x.X, nil)
	case *ast.SendStmt:
		w.expr(x.Chan, nil)
		w.expr(x.Value, nil)
	case *ast.GoStmt:
		w.expr(x.Call, nil)
	case *ast.DeferStmt:
		w.expr(x.Call, nil)
	case *ast.ReturnStmt:
		for _, r := range x.Results {
			w.expr(r, nil)
		}
	case *ast.LabeledStmt:
		w.stmt(x.Stmt)
	case *ast.IfStmt:
		w.push()
		if x.Init != nil {
			w.stmt(x.Init)
		}
		w.expr(x.Cond, nil)
		w.block(x.Body)
		if x.Else != nil {
			w.stmt(x.Else)
		}
		w.pop()
	case *ast.ForStmt:
		w.push()
		if x.Init != nil {
			w.stmt(x.Init)
		}
		w.expr(x.Cond, nil)
		if x.Post != nil {
			w.stmt(x.Post)
		}
		w.block(x.Body)
		w.pop()
	case *ast.RangeStmt:
		t := w.expr(x.X, nil)
		w.push()
		if x.Tok == token.DEFINE {
			var k, v typ
			switch u := w.prog.underlying(t).(type) {
			case *sliceT:
				k, v = intType, u.elem
			case *pointerT:
				if s, ok := u.elem.(*sliceT); ok {
					k, v = intType, s.elem
				}
			case *mapT:
				k, v = u.key, u.elem
			case *chanT:
				k = u.elem
			case *basicT:
				k, v = intType, runeType
			}
			w.define(x.Key, k)
			if x.Value != nil {
				w.define(x.Value, v)
			}
		} else {
			w.expr(x.Key, nil)
			w.expr(x.Value, nil)
		}
		w.block(x.Body)
		w.pop()
	case *ast.SwitchStmt:
		w.push()
		if x.Init != nil {
			w.stmt(x.Init)
		}
		w.expr(x.Tag, nil)
		for _, c := range x.Body.List {
			if cc, ok := c.(*ast.CaseClause); ok {
				for _, e := range cc.List {
					w.expr(e, nil)
				}
				w.clause(cc.Body)
			}
		}
		w.pop()
	case *ast.TypeSwitchStmt:
		w.typeSwitch(x)
	case *ast.SelectStmt:
		for _, c := range x.Body.List {
			if cc, ok := c.(*ast.CommClause); ok {
				w.push()
				if cc.Comm != nil {
					w.stmt(cc.Comm)
				}
				for _, s := range cc.Body {
					w.stmt(s)
				}
				w.pop()
			}
		}
	}
}

func (w *walker) clause(body []ast.Stmt) {
	w.push()
	for _, s := range body {
		w.stmt(s)
	}
	w.pop()
}

func (w *walker) typeSwitch(x *ast.TypeSwitchStmt) {
	w.push()
	defer w.pop()
	if x.Init != nil {
		w.stmt(x.Init)
	}
	var bound *ast.Ident
	var xt typ
	switch a := x.Assign.(type) {
	case *ast.AssignStmt:
		if len(a.Lhs) == 1 && len(a.Rhs) == 1 {
			bound, _ = a.Lhs[0].(*ast.Ident)
			xt = w.expr(a.Rhs[0], nil)
		}
	case *ast.ExprStmt:
		xt = w.expr(a.X, nil)
	}
	for _, c := range x.Body.List {
		cc, ok := c.(*ast.CaseClause)
		if !ok {
			continue
		}
		w.push()
		var ct typ
		for _, e := range cc.List {
			ct = w.typeExpr(e)
		}
		if bound != nil {
			if len(cc.List) == 1 {
				w.define(bound, ct)
			} else {
				w.define(bound, xt)
			}
		}
		for _, s := range cc.Body {
			w.stmt(s)
		}
		w.pop()
	}
}

// fileRefs walks a whole file and gives the uses it makes of the tree's
// definitions, each with the innermost definition it is in.
func (prog *program) fileRefs(f *srcFile) []reference {
	w := newWalker(prog, f, true)
	if f.pkg == nil {
		return w.refs
	}
	p := f.pkg
	for _, decl := range f.ast.Decls {
		switch d := decl.(type) {
		case *ast.FuncDecl:
			if d.Name == nil {
				continue
			}
			restore := w.setCaller(funcName(p, d))
			w.push()
			w.funcSig(d)
			w.block(d.Body)
			w.pop()
			restore()
		case *ast.GenDecl:
			w.genDecl(d)
		}
	}
	return w.refs
}

func (w *walker) genDecl(d *ast.GenDecl) {
	p := w.f.pkg
	for _, item := range d.Specs {
		switch s := item.(type) {
		case *ast.ImportSpec:
			ip := strings.Trim(s.Path.Value, "\"`")
			if imp := w.prog.resolveImport(p.dir, ip); imp != nil {
				w.use(s.Path.Pos(), imp.path, "import")
			}
		case *ast.TypeSpec:
			fqn := p.path + "." + s.Name.Name
			restore := w.setCaller(fqn, typeKind(s))
			w.push()
			w.typeParams(s.TypeParams)
			w.declaredType(s.Type, fqn)
			w.pop()
			restore()
		case *ast.ValueSpec:
			kind := "variable"
			if d.Tok == token.CONST {
				kind = "constant"
			}
			callerAt := func(i int) func() {
				if i >= len(s.Names) {
					i = 0
				}
				fqn := p.path + "." + s.Names[i].Name
				restore := w.setCaller(fqn, kind)
				w.litOwner = fqn
				return func() {
					restore()
					w.litOwner = ""
				}
			}
			restore := callerAt(0)
			var t typ
			if s.Type != nil && len(s.Names) > 0 {
				t = w.declaredType(s.Type, p.path+"."+s.Names[0].Name)
			}
			restore()
			for i, v := range s.Values {
				restore := callerAt(i)
				w.expr(v, t)
				restore()
			}
		}
	}
}
