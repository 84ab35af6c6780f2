package main

// The types an expression may have, as far as names written in the source
// tell them without a type checker: enough to find the field or method a
// selector names. nil stands for a type not known.
type typ interface{}

type (
	namedT   struct{ obj *object } // a defined type of the tree
	pointerT struct{ elem typ }
	sliceT   struct{ elem typ } // slices and arrays
	mapT     struct{ key, elem typ }
	chanT    struct{ elem typ }
	basicT   struct{ name string } // predeclared types and untyped constants
	tupleT   []typ                 // the results of a call
	sigT     struct {
		params   []typ
		results  []typ
		variadic bool
	}
	structT struct{ fields []*field }
	ifaceT  struct {
		methods  []*field
		embedded []typ
	}
	// What an expression denotes when it is not a value.
	typeOf    struct{ t typ }          // a type
	pkgName   struct{ pkg *goPackage } // an imported package
	builtinFn struct{ name string }    // len, new, append...
)

// field is a struct's field or an interface's method: fqn is "" for the
// members of types that have no name of their own to prefix them.
type field struct {
	name     string
	fqn      string
	t        typ
	embedded bool
}

var (
	boolType   = &basicT{"bool"}
	intType    = &basicT{"int"}
	stringType = &basicT{"string"}
	runeType   = &basicT{"rune"}
	byteType   = &basicT{"byte"}
)

func (o *object) named() *namedT {
	return &namedT{o}
}

func deref(t typ) typ {
	if p, ok := t.(*pointerT); ok {
		return p.elem
	}
	return t
}

// underlying is the structure of a defined type: the type its declaration
// names, followed through other defined types.
func (prog *program) underlying(t typ) typ {
	for i := 0; i < 32; i++ {
		n, ok := t.(*namedT)
		if !ok {
			return t
		}
		t = prog.objType(n.obj)
	}
	return nil
}

// member finds what x.name selects when x has type t: a method of t, a
// field, or a field or method promoted from an embedded field at the
// shallowest depth, as Go selects.
func (prog *program) member(t typ, name string, from *srcFile) *field {
	level := variants(deref(t), from)
	seen := map[*object]bool{}
	for depth := 0; len(level) > 0 && depth < 16; depth++ {
		var next []typ
		for _, t := range level {
			if n, ok := t.(*namedT); ok {
				if seen[n.obj] {
					continue
				}
				seen[n.obj] = true
				if ms := n.obj.methods[name]; len(ms) > 0 {
					return &field{name: name, fqn: ms[0].fqn, t: prog.objType(ms[0])}
				}
			}
			switch u := prog.underlying(t).(type) {
			case *structT:
				for _, f := range u.fields {
					if f.name == name {
						return f
					}
					if f.embedded {
						next = append(next, variants(deref(f.t), from)...)
					}
				}
			case *ifaceT:
				if m := prog.ifaceMethod(u, name, 0); m != nil {
					return m
				}
			}
		}
		level = next
	}
	return nil
}

// variants gives a defined type with each of its declarations: a type
// declared once per GOOS or GOARCH may hold different fields and methods in
// each. The one declared in the file from which it is used comes first, then
// those of files for the same GOOS.
func variants(t typ, from *srcFile) []typ {
	n, ok := t.(*namedT)
	if !ok || len(n.obj.variants) < 2 {
		return []typ{t}
	}
	goos := fileGOOS(from)
	rank := func(o *object) int {
		switch {
		case o.file == from:
			return 0
		case goos != "" && fileGOOS(o.file) == goos:
			return 1
		}
		return 2
	}
	out := make([]typ, 0, len(n.obj.variants))
	for r := 0; r < 3; r++ {
		for _, o := range n.obj.variants {
			if rank(o) == r {
				out = append(out, o.named())
			}
		}
	}
	return out
}

// ifaceMethod finds a method of an interface, its embedded ones included.
func (prog *program) ifaceMethod(it *ifaceT, name string, depth int) *field {
	if depth > 16 {
		return nil
	}
	for _, m := range it.methods {
		if m.name == name {
			return m
		}
	}
	for _, e := range it.embedded {
		if sub, ok := prog.underlying(e).(*ifaceT); ok {
			if m := prog.ifaceMethod(sub, name, depth+1); m != nil {
				return m
			}
		}
	}
	return nil
}

// objType gives a top-level definition's type once: a function's signature,
// a variable's or constant's type, a defined type's structure or the type an
// alias stands for. A definition that depends on itself has no known type.
func (prog *program) objType(o *object) typ {
	switch o.state {
	case 2:
		return o.typ
	case 1:
		return nil
	}
	o.state = 1
	w := newWalker(prog, o.file, false)
	w.push()
	switch {
	case o.funcDecl != nil:
		o.typ = w.funcSig(o.funcDecl)
	case o.typeSpec != nil:
		s := o.typeSpec
		w.typeParams(s.TypeParams)
		if s.Assign.IsValid() {
			o.typ = w.typeExpr(s.Type)
		} else {
			o.typ = prog.underlying(w.declaredType(s.Type, o.fqn))
		}
	case o.valueType != nil:
		w.litOwner = o.fqn
		o.typ = w.declaredType(o.valueType, o.fqn)
	case o.value != nil:
		w.litOwner = o.fqn
		t := w.expr(o.value, nil)
		if o.tupleAt >= 0 {
			if tt, ok := t.(tupleT); ok && o.tupleAt < len(tt) {
				t = tt[o.tupleAt]
			} else if o.tupleAt == 1 {
				t = boolType
			} else if o.tupleAt > 1 {
				t = nil
			}
		}
		o.typ = t
	}
	o.state = 2
	return o.typ
}
