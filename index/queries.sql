-- The queries of the example MCP servers, each under its name: the C++
-- server (servers/cpp) builds this file in, the Python one
-- (servers/python) reads it. Every value from a request is a bound
-- parameter.
--
-- The format: a query begins at a line "-- name: NAME" and runs to the next
-- such line or the end; its other comment lines and blank lines are left
-- out, its lines are joined with "\n" and its final ";" dropped.

-- A tool call reads one snapshot: a deferred read transaction, taken by
-- the first read and ended when the call is answered.
-- name: begin_snapshot
BEGIN;
-- name: end_snapshot
ROLLBACK;

-- A reader maps the file rather than copying each page it reads: a wiki
-- page or a large file's rows are read without a copy per call.
-- name: reader_settings
PRAGMA mmap_size = 1073741824;
-- Whether the database holds the indexer's state.
-- name: has_state_table
SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'index_status';
-- name: has_state
SELECT count(*) FROM index_status;

-- name: state
SELECT status, health, branch, progress, files_indexed, symbols_indexed, last_updated, errors_count,
       phase, phase_detail
FROM index_status;
-- The state of an index whose status says "indexing" while no indexer holds
-- its lock: the run died before it finished.
-- name: state_of_stopped_run
SELECT 'stopped', 'unhealthy', branch, progress, files_indexed, symbols_indexed, last_updated, errors_count,
       phase, 'the last kestrune-index run stopped before it finished: run it again'
FROM index_status;

-- A symbol's row: every query that reads symbols whole reads these columns
-- in this order.
-- Where several definitions share the fqn (overloads, a declaration and
-- its definition, a getter and a setter), the one to answer: a documented
-- one, then one that is more than a declaration, then in Python the last
-- (the implementation follows its @overload stubs), in Go the first the
-- analyzer gave (it gives the files that build on the common platform
-- first), elsewhere the first. A definition without docs of its own takes
-- its declaration's (a C function documented at its prototype in a
-- header), as editors show it.
-- name: symbol_by_fqn
SELECT s.fqn, s.name, s.kind, s.file_path, s.start_line, s.end_line, s.signature,
       CASE WHEN s.docstring IS NULL OR s.docstring = '' THEN coalesce(d.docstring, s.docstring) ELSE s.docstring END,
       s.is_export,
       CASE WHEN (s.docstring IS NULL OR s.docstring = '') AND d.docstring IS NOT NULL THEN d.docstring_truncated
            ELSE s.docstring_truncated END
FROM symbols AS s
LEFT JOIN (SELECT docstring, docstring_truncated FROM symbols
           WHERE fqn = ?1 AND kind = 'prototype' AND docstring <> '' ORDER BY id LIMIT 1) AS d
WHERE s.fqn = ?1
ORDER BY (s.docstring IS NULL OR s.docstring = '') AND d.docstring IS NULL, s.kind = 'prototype',
         CASE WHEN s.file_path LIKE '%.py' THEN -s.start_line WHEN s.file_path LIKE '%.go' THEN s.id
              ELSE s.start_line END, s.id
LIMIT 1;
-- name: symbol_by_id
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE id = ?1;
-- name: file_indexed
SELECT count(*) FROM files WHERE path = ?1;
-- A file's outline: the fqn and kind of each of its symbols (from the file
-- index alone), and a page of them whole (?2 the limit, ?3 the offset).
-- name: file_names
SELECT fqn, kind FROM symbols WHERE file_path = ?1 ORDER BY start_line, fqn;
-- name: file_symbols
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE file_path = ?1 ORDER BY start_line, fqn LIMIT ?2 OFFSET ?3;

-- Search ranks exact names first, then names that begin with the query,
-- then the rest; within each, the most used symbols (the references to
-- their fqn) first, then by fqn and id, so that pages are stable.
-- A query of one or two characters is in nearly every fqn: it finds the
-- names that are it or begin with it, from the name index: ?1 the query,
-- ?2 the query followed by the highest code point, ?3 and ?4 the limit and
-- offset.
-- name: short_count
SELECT count(*) FROM symbols WHERE name >= ?1 COLLATE NOCASE AND name < ?2 COLLATE NOCASE;
-- name: short_page
SELECT id FROM symbols WHERE name >= ?1 COLLATE NOCASE AND name < ?2 COLLATE NOCASE
ORDER BY ifnull(name = ?1 COLLATE NOCASE, 0) DESC, uses DESC, fqn, id LIMIT ?3 OFFSET ?4;
-- A query that holds a NUL, which LIKE and FTS5 read a pattern up to, is
-- found by a scan: ?1 the query with ASCII letters in lower case, found
-- whole by instr in the fqn and name in lower case, as LIKE compares; ?2
-- the query; ?3 and ?4 the limit and offset.
-- name: scan_nul_count
SELECT count(*) FROM symbols WHERE instr(lower(fqn), ?1) OR instr(lower(name), ?1);
-- name: scan_nul_page
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE instr(lower(fqn), ?1) OR instr(lower(name), ?1)
ORDER BY ifnull(name = ?2 COLLATE NOCASE, 0) DESC, ifnull(instr(lower(name), ?1) = 1, 0) DESC, uses DESC, fqn, id
LIMIT ?3 OFFSET ?4;
-- The empty query matches every symbol and begins every name: the named
-- ones by a walk of the ranking's index, then those without a name.
-- name: symbols_count
SELECT count(*) FROM symbols;
-- name: unnamed_count
SELECT count(*) FROM symbols WHERE name IS NULL;
-- name: ranked_named_page
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols INDEXED BY symbols_by_uses WHERE name IS NOT NULL ORDER BY uses DESC, fqn, id LIMIT ?1 OFFSET ?2;
-- name: ranked_unnamed_page
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE name IS NULL ORDER BY uses DESC, fqn, id LIMIT ?1 OFFSET ?2;

-- Search through the trigram index: ?1 an FTS5 phrase of the query in
-- lower case (or of it and of its dotted form, for a C++ name). The count
-- of matches, and every matching id, read only for a page that reaches
-- past the exact names and prefixes.
-- name: trigram_count
SELECT count(*) FROM symbol_names WHERE symbol_names MATCH ?1;
-- name: trigram_matches
SELECT rowid FROM symbol_names WHERE symbol_names MATCH ?1 ORDER BY rowid;
-- The symbols named ?1, and those whose name begins with it (after ?1 up
-- to ?2, the query followed by the highest code point): their count, and a
-- page of each in rank order (?3 the limit, ?4 the offset).
-- name: named_exactly_count
SELECT count(*) FROM symbols WHERE name = ?1 COLLATE NOCASE;
-- name: named_exactly
SELECT id FROM symbols WHERE name = ?1 COLLATE NOCASE ORDER BY uses DESC, fqn, id LIMIT ?2 OFFSET ?3;
-- name: named_with_prefix_count
SELECT count(*) FROM symbols WHERE name > ?1 COLLATE NOCASE AND name < ?2 COLLATE NOCASE;
-- name: named_with_prefix
SELECT id FROM symbols WHERE name > ?1 COLLATE NOCASE AND name < ?2 COLLATE NOCASE
ORDER BY uses DESC, fqn, id LIMIT ?3 OFFSET ?4;
-- The other matches in rank order: a walk of the ranking's index, or the
-- rank of one match, each with its name, which tells the groups apart.
-- name: last_symbol_id
SELECT max(id) FROM symbols;
-- name: ids_by_rank
SELECT id, name FROM symbols INDEXED BY symbols_by_uses ORDER BY uses DESC, fqn, id;
-- name: rank_of_id
SELECT uses, fqn, name FROM symbols WHERE id = ?1;

-- A name as users write it: ?1 its last part, ?2 the whole in dotted form.
-- The symbol whose fqn, read dotted ("::" and "/" as "."), is it or ends
-- with it after a dot (a module path without its src/ folder, a C++ name
-- written with dots), the shortest first.
-- name: fqn_ending_with
SELECT fqn FROM symbols
WHERE name = ?1 COLLATE NOCASE AND name = ?1
  AND (replace(replace(fqn, '::', '.'), '/', '.') = ?2
       OR (length(fqn) > length(?2)
           AND substr(replace(replace(fqn, '::', '.'), '/', '.'), -length(?2) - 1) = '.' || ?2))
ORDER BY length(fqn), fqn LIMIT 1;
-- Names close to a missed one, for the model to retry with: the symbols
-- named ?1 in any case, and the names that begin as it does (?2 up to ?3,
-- its first three characters and them followed by the highest code point),
-- at most ?4 each, in the index's order.
-- name: named_alike
SELECT fqn, name FROM symbols WHERE name = ?1 COLLATE NOCASE ORDER BY name COLLATE NOCASE, uses, fqn LIMIT ?4;
-- name: names_beginning_alike
SELECT fqn, name FROM symbols WHERE name >= ?2 COLLATE NOCASE AND name < ?3 COLLATE NOCASE
ORDER BY name COLLATE NOCASE, uses, fqn LIMIT ?4;
-- The files whose path ends with ?1 after a slash (a path without its
-- src/ folder), the shortest first.
-- name: file_ending_with
SELECT path FROM files WHERE substr(path, -length(?1) - 1) = '/' || ?1 ORDER BY length(path), path LIMIT 1;
-- The file of a module named as users write it: ?1 and ?2 as for
-- fqn_ending_with; of a package of several files, the first by path.
-- name: module_file
SELECT file_path FROM symbols
WHERE name = ?1 COLLATE NOCASE AND name = ?1 AND kind IN ('module', 'package', 'file') AND file_path IS NOT NULL
  AND (replace(replace(fqn, '::', '.'), '/', '.') = ?2
       OR (length(fqn) > length(?2)
           AND substr(replace(replace(fqn, '::', '.'), '/', '.'), -length(?2) - 1) = '.' || ?2))
ORDER BY length(fqn), fqn, file_path LIMIT 1;
-- Paths close to a missed one: those that match ?1, a LIKE pattern of the
-- first characters of its file name, at most ?2, the shortest first.
-- name: files_alike
SELECT path FROM files WHERE path LIKE ?1 ESCAPE '\' ORDER BY length(path), path LIMIT ?2;

-- name: references_count
SELECT count(*) FROM symbol_refs WHERE symbol_fqn = ?1;
-- name: references_page
SELECT file_path, line, caller_fqn, caller_kind, usage_type FROM symbol_refs WHERE symbol_fqn = ?1
ORDER BY file_path, line LIMIT ?2 OFFSET ?3;

-- name: components
SELECT name, layer, path_pattern, file_count, symbol_count FROM components ORDER BY name;

-- What the last run could not index, or not whole, in the order it met it.
-- name: problems_count
SELECT count(*) FROM index_problems;
-- name: problems_page
SELECT path, problem FROM index_problems ORDER BY id LIMIT ?1 OFFSET ?2;

-- name: wiki_state
SELECT built, branch, enabled, configured, total_sources, last_built, model,
       (SELECT count(*) FROM wiki_pages),
       (SELECT count(DISTINCT path) FROM wiki_citations)
FROM wiki_state;
-- name: stale_pages
SELECT page_id FROM wiki_pages WHERE stale ORDER BY position;
-- name: wiki_pages_count
SELECT count(*) FROM wiki_pages;
-- name: wiki_pages_page
SELECT page_id, title, stale, (SELECT count(*) FROM wiki_sections WHERE page_id = p.page_id)
FROM wiki_pages AS p ORDER BY position LIMIT ?1 OFFSET ?2;
-- name: wiki_page
SELECT page_id, title, content FROM wiki_pages WHERE page_id = ?1;
-- A page's citations, each once, in the order its sections first cite them,
-- with the section that cites it first.
-- name: page_citations
WITH cited AS (SELECT c.path, c.line_start, c.line_end, s.id AS section_id,
                      row_number() OVER (ORDER BY s.id, c.id) AS n
               FROM wiki_citations AS c JOIN wiki_sections AS s ON s.id = c.section_id WHERE s.page_id = ?1)
SELECT path, line_start, line_end, section_id, min(n) FROM cited GROUP BY path, line_start, line_end ORDER BY min(n);
-- A page's sections in their order: where each starts in the page's text
-- is found from its body.
-- name: page_sections
SELECT id, heading, body FROM wiki_sections WHERE page_id = ?1 ORDER BY id;
-- name: section_citations
SELECT path, line_start, line_end FROM wiki_citations WHERE section_id = ?1 ORDER BY id;
-- name: page_source_files
SELECT DISTINCT c.path FROM wiki_citations AS c JOIN wiki_sections AS s ON s.id = c.section_id
WHERE s.page_id = ?1 ORDER BY c.path;
-- name: related_pages
SELECT related_page_id FROM wiki_links WHERE page_id = ?1 ORDER BY related_page_id;
-- The words of a question that carry no meaning, which the ask leaves out:
-- the common English stop list.
-- name: stop_words
SELECT value FROM json_each('["a","about","above","after","again","against","ain","all","am","an","and","any",
"are","aren","as","at","be","because","been","before","being","below","between","both","but","by","can",
"couldn","d","did","didn","do","does","doesn","doing","don","down","during","each","few","for","from",
"further","had","hadn","has","hasn","have","haven","having","he","her","here","hers","herself","him",
"himself","his","how","i","if","in","into","is","isn","it","its","itself","just","ll","m","ma","me",
"mightn","more","most","mustn","my","myself","needn","no","nor","not","now","o","of","off","on","once",
"only","or","other","our","ours","ourselves","out","over","own","re","s","same","shan","she","should",
"shouldn","so","some","such","t","than","that","the","their","theirs","them","themselves","then","there",
"these","they","this","those","through","to","too","under","until","up","ve","very","was","wasn","we",
"were","weren","what","when","where","which","while","who","whom","why","will","with","won","wouldn","y",
"you","your","yours","yourself","yourselves"]');
-- The sections that hold words of the question (?1, an FTS5 query), best
-- first, at most ?2. bm25 weighs a page's title twice and a heading four
-- times as much as a body; it is negative, best lowest: the best section's
-- similarity is 1.0.
-- name: ask_sections
WITH hits AS (SELECT rowid AS id, bm25(wiki_search, 2.0, 4.0, 1.0) AS score FROM wiki_search
              WHERE wiki_search MATCH ?1 ORDER BY score LIMIT ?2)
SELECT h.id, p.page_id, p.title, s.heading, round(h.score / min(h.score) OVER (), 3), p.stale, s.body
FROM hits AS h JOIN wiki_sections AS s ON s.id = h.id JOIN wiki_pages AS p ON p.page_id = s.page_id
ORDER BY h.score, h.id;
