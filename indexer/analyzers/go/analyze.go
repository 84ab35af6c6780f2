package main

import (
	"fmt"
	"path"
)

type fileAnswer struct {
	Type       string      `json:"_type"`
	Path       string      `json:"path"`
	Module     *string     `json:"module"`
	Error      *string     `json:"error"`
	Symbols    []symbol    `json:"symbols"`
	References []reference `json:"references"`
}

var universeTypes = []string{"bool", "byte", "complex64", "complex128", "float32", "float64", "int", "int8",
	"int16", "int32", "int64", "rune", "string", "uint", "uint8", "uint16", "uint32", "uint64", "uintptr"}

var universeFuncs = []string{"append", "cap", "clear", "close", "complex", "copy", "delete", "imag", "len",
	"make", "max", "min", "new", "panic", "print", "println", "real", "recover"}

// newUniverse gives Go's predeclared names: they are never the tree's.
func newUniverse() map[string]*object {
	u := map[string]*object{}
	for _, name := range universeTypes {
		u[name] = &object{name: name, isType: true, state: 2, typ: &basicT{name}}
	}
	u["byte"].typ, u["rune"].typ = byteType, runeType
	u["int"].typ, u["string"].typ, u["bool"].typ = intType, stringType, boolType
	errorMethod := &field{name: "Error", t: &sigT{results: []typ{stringType}}}
	u["error"] = &object{name: "error", isType: true, state: 2, typ: &ifaceT{methods: []*field{errorMethod}}}
	u["any"] = &object{name: "any", isType: true, state: 2, typ: &ifaceT{}}
	u["comparable"] = &object{name: "comparable", isType: true, state: 2, typ: &ifaceT{}}
	for _, name := range universeFuncs {
		u[name] = &object{name: name, builtin: name, state: 2}
	}
	u["true"] = &object{name: "true", state: 2, typ: boolType}
	u["false"] = &object{name: "false", state: 2, typ: boolType}
	u["iota"] = &object{name: "iota", state: 2, typ: intType}
	u["nil"] = &object{name: "nil", state: 2}
	return u
}

// analyze answers every file handed over: those the common platform builds
// first, then the others, each in the order they came (see platform.go). The
// types of all top-level definitions are settled first; the files are then
// walked two at a time, reading only.
func analyze(handed []handedFile, emit func(*fileAnswer) error) error {
	prog := parseAll(handed)
	prog.universe = newUniverse()
	prog.declare()
	prog.bindImports()
	prog.settleTypes()
	answers := make([]chan *fileAnswer, len(prog.files))
	for i := range answers {
		answers[i] = make(chan *fileAnswer, 1)
	}
	work := make(chan int)
	for w := 0; w < 2; w++ {
		go func() {
			for i := range work {
				answers[i] <- prog.answer(prog.files[i])
			}
		}()
	}
	order := make([]int, 0, len(prog.files))
	for _, common := range []bool{true, false} {
		for i, f := range prog.files {
			// go.mod files and files that do not parse have no platform: first.
			if (f.common || f.ast == nil) == common {
				order = append(order, i)
			}
		}
	}
	go func() {
		for _, i := range order {
			work <- i
		}
		close(work)
	}()
	for _, i := range order {
		if err := emit(<-answers[i]); err != nil {
			return err
		}
	}
	return nil
}

func (prog *program) answer(f *srcFile) *fileAnswer {
	a := &fileAnswer{Type: "file", Path: f.path, Symbols: []symbol{}, References: []reference{}}
	switch {
	case path.Base(f.path) == "go.mod":
		a.Module = strp(f.module)
	case f.ast == nil || f.ast.Name == nil:
		msg := "not a Go file"
		if f.err != nil {
			msg = f.err.Error()
		}
		a.Error = &msg
	default:
		if f.err != nil {
			a.Error = strp(f.err.Error())
		}
		if f.pkg != nil {
			a.Module = strp(f.pkg.path)
			prog.answerFile(f, a)
		}
	}
	return a
}

// settleTypes computes the type of every top-level definition and method.
func (prog *program) settleTypes() {
	done := map[*goPackage]bool{}
	for _, f := range prog.files {
		if f.pkg == nil || done[f.pkg] {
			continue
		}
		done[f.pkg] = true
		for _, objs := range f.pkg.scope {
			for _, o := range objs {
				prog.objType(o)
				for _, ms := range o.methods {
					for _, m := range ms {
						prog.objType(m)
					}
				}
			}
		}
	}
}

// answerFile fills a file's symbols and references; a file that breaks the
// analyzer costs only its own answer.
func (prog *program) answerFile(f *srcFile, a *fileAnswer) {
	defer func() {
		if r := recover(); r != nil {
			a.Error = strp(fmt.Sprintf("internal error: %v", r))
			a.Symbols, a.References = []symbol{}, []reference{}
		}
	}()
	a.Symbols = prog.fileSymbols(f)
	a.References = prog.fileRefs(f)
}
