// The Go analyzer: reads the files the indexer hands over on standard input,
// parses them with go/parser and answers, per file, its definitions and the
// uses of definitions of any file handed over (see ../README.md).
//
// A package is the files of one folder with one package clause; its import
// path comes from the nearest go.mod (Go's own "std" module adds no prefix),
// from below a vendor folder, or else from below a "src" folder as in GOROOT
// and GOPATH. Every file counts whatever its build constraints, so a name
// declared once per GOOS is several symbols of one fqn. Each file's package
// clause is a symbol (kind "package", fqn the import path), used by the
// import lines that name it.
//
// Names resolve as the compiler resolves them: blocks, parameters and
// results, then the package, the file's imports (aliases and dot imports),
// then the predeclared names, which are never symbols. Selectors resolve
// through the type of their operand when the source declares it: receivers,
// parameters, variables, fields, composite literals, conversions, the results
// of functions and methods, index and range expressions, type assertions and
// switches, promoted fields and methods of embedded types, methods of
// interfaces. Type parameters and values whose type comes from outside the
// files handed over have no known type: their selectors are not resolved.
// "unsafe" is the compiler's own and not a package of the tree.
package main

import (
	"bufio"
	"encoding/json"
	"errors"
	"fmt"
	"io"
	"os"
)

// The largest file and the most bytes in all that the analyzer accepts: more
// is a broken or hostile stream, refused whole rather than read into memory.
const (
	maxFileSize  = 64 << 20
	maxTotalSize = 4 << 30
)

type request struct {
	Command string `json:"command"`
	Path    string `json:"path"`
	Size    int64  `json:"size"`
}

type handedFile struct {
	path string
	src  []byte
}

// readRequests reads "file" commands up to "analyze".
func readRequests(r *bufio.Reader) ([]handedFile, error) {
	var files []handedFile
	var total int64
	for {
		line, err := r.ReadBytes('\n')
		if err != nil {
			if errors.Is(err, io.EOF) {
				return nil, errors.New("input ended before the analyze command")
			}
			return nil, err
		}
		var req request
		if err := json.Unmarshal(line, &req); err != nil {
			return nil, fmt.Errorf("bad command line %q: %v", truncate(string(line), 80), err)
		}
		switch req.Command {
		case "analyze":
			return files, nil
		case "file":
			total += req.Size
			if req.Path == "" || req.Size < 0 || req.Size > maxFileSize || total > maxTotalSize {
				return nil, fmt.Errorf("bad file command for %q (size %d)", req.Path, req.Size)
			}
			src := make([]byte, req.Size)
			if _, err := io.ReadFull(r, src); err != nil {
				return nil, fmt.Errorf("%s: expected %d bytes: %v", req.Path, req.Size, err)
			}
			files = append(files, handedFile{req.Path, src})
		default:
			return nil, fmt.Errorf("unknown command %q", req.Command)
		}
	}
}

func truncate(s string, n int) string {
	if len(s) > n {
		return s[:n] + "..."
	}
	return s
}

func main() {
	files, err := readRequests(bufio.NewReaderSize(os.Stdin, 1<<20))
	if err != nil {
		fmt.Fprintln(os.Stderr, "go_analyzer:", err)
		os.Exit(2)
	}
	out := bufio.NewWriterSize(os.Stdout, 1<<20)
	enc := json.NewEncoder(out)
	enc.SetEscapeHTML(false)
	if err := analyze(files, func(a *fileAnswer) error { return enc.Encode(a) }); err != nil {
		fmt.Fprintln(os.Stderr, "go_analyzer:", err)
		os.Exit(1)
	}
	fmt.Fprintln(out, `{"_type":"completed"}`)
	if err := out.Flush(); err != nil {
		fmt.Fprintln(os.Stderr, "go_analyzer:", err)
		os.Exit(1)
	}
}
