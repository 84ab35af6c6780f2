package main

import (
	"go/build/constraint"
	"path"
	"strings"
)

// Where a name is declared once per GOOS or GOARCH, a Go user reads the
// declaration that builds on the common platform, as `go doc` on linux/amd64
// shows it: files that build there are answered first, and a lookup takes the
// first declaration of a name.
const commonGOOS, commonGOARCH = "linux", "amd64"

var knownGOOS = map[string]bool{"aix": true, "android": true, "darwin": true, "dragonfly": true, "freebsd": true,
	"hurd": true, "illumos": true, "ios": true, "js": true, "linux": true, "nacl": true, "netbsd": true,
	"openbsd": true, "plan9": true, "solaris": true, "windows": true, "zos": true}

var knownGOARCH = map[string]bool{"386": true, "amd64": true, "amd64p32": true, "arm": true, "armbe": true,
	"arm64": true, "arm64be": true, "loong64": true, "mips": true, "mipsle": true, "mips64": true, "mips64le": true,
	"mips64p32": true, "mips64p32le": true, "ppc": true, "ppc64": true, "ppc64le": true, "riscv": true,
	"riscv64": true, "s390": true, "s390x": true, "sparc": true, "sparc64": true, "wasm": true}

// nameParts are the parts of a file's name that may name a GOOS or GOARCH
// (x_linux.go, x_linux_arm64_test.go): the last two after the first.
func nameParts(p string) []string {
	name := strings.TrimSuffix(strings.TrimSuffix(path.Base(p), ".go"), "_test")
	parts := strings.Split(name, "_")
	if len(parts) > 3 {
		parts = parts[len(parts)-2:]
	} else {
		parts = parts[1:]
	}
	return parts
}

// fileGOOS is the GOOS a file's name is for, or "".
func fileGOOS(f *srcFile) string {
	if f == nil {
		return ""
	}
	parts := nameParts(f.path)
	for i := len(parts) - 1; i >= 0; i-- {
		if knownGOOS[parts[i]] {
			return parts[i]
		}
	}
	return ""
}

// buildsOnCommonPlatform tells whether the go command builds the file on
// linux/amd64 with cgo, by its name (x_GOOS, x_GOARCH, x_GOOS_GOARCH) and its
// build constraints (//go:build, else the // +build lines), read from the
// comments above its package clause.
func buildsOnCommonPlatform(f *srcFile) bool {
	parts := nameParts(f.path)
	switch n := len(parts); {
	case n == 2 && knownGOOS[parts[0]] && knownGOARCH[parts[1]]:
		if parts[0] != commonGOOS || parts[1] != commonGOARCH {
			return false
		}
	case n >= 1 && knownGOOS[parts[n-1]]:
		if parts[n-1] != commonGOOS {
			return false
		}
	case n >= 1 && knownGOARCH[parts[n-1]]:
		if parts[n-1] != commonGOARCH {
			return false
		}
	}
	var goBuild constraint.Expr
	var plusBuild []constraint.Expr
	for _, g := range f.ast.Comments {
		if g.Pos() >= f.ast.Package {
			break
		}
		for _, c := range g.List {
			switch {
			case constraint.IsGoBuild(c.Text):
				if x, err := constraint.Parse(c.Text); err == nil && goBuild == nil {
					goBuild = x
				}
			case constraint.IsPlusBuild(c.Text):
				if x, err := constraint.Parse(c.Text); err == nil {
					plusBuild = append(plusBuild, x)
				}
			}
		}
	}
	if goBuild != nil {
		return goBuild.Eval(commonTag)
	}
	for _, x := range plusBuild {
		if !x.Eval(commonTag) {
			return false
		}
	}
	return true
}

// commonTag tells whether a build tag holds on the common platform: its
// GOOS, GOARCH, unix, gc, cgo and every Go release; no custom tag.
func commonTag(tag string) bool {
	switch tag {
	case commonGOOS, commonGOARCH, "unix", "gc", "cgo":
		return true
	}
	return strings.HasPrefix(tag, "go1.")
}
