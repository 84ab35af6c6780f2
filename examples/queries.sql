-- The queries of the example MCP servers, each under its name: the C++
-- server (examples/mcp-server) builds this file in, the Python one
-- (examples/python-server) reads it. Every value from a request is a bound
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
-- name: file_symbols
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE file_path = ?1 ORDER BY start_line, fqn;

-- Search by a scan of every symbol, for queries too short to have a
-- trigram: ?1 a LIKE pattern, ?2 the query, ?3 and ?4 the limit and offset.
-- name: scan_count
SELECT count(*) FROM symbols WHERE fqn LIKE ?1 ESCAPE '\' OR name LIKE ?1 ESCAPE '\';
-- name: scan_page
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE fqn LIKE ?1 ESCAPE '\' OR name LIKE ?1 ESCAPE '\'
ORDER BY name = ?2 COLLATE NOCASE DESC, fqn LIMIT ?3 OFFSET ?4;
-- The same for a query that holds a NUL, which LIKE and FTS5 read a
-- pattern up to: ?1 the query with ASCII letters in lower case, found whole
-- by instr in the fqn and name in lower case, as LIKE compares.
-- name: scan_nul_count
SELECT count(*) FROM symbols WHERE instr(lower(fqn), ?1) OR instr(lower(name), ?1);
-- name: scan_nul_page
SELECT fqn, name, kind, file_path, start_line, end_line, signature, docstring, is_export, docstring_truncated
FROM symbols WHERE instr(lower(fqn), ?1) OR instr(lower(name), ?1)
ORDER BY name = ?2 COLLATE NOCASE DESC, fqn LIMIT ?3 OFFSET ?4;

-- Search through the trigram index: ?1 an FTS5 phrase of the query in
-- lower case. Every matching id, and so the count.
-- name: trigram_matches
SELECT rowid FROM symbol_names WHERE symbol_names MATCH ?1 ORDER BY rowid;
-- name: named_exactly
SELECT id FROM symbols WHERE name = ?1 COLLATE NOCASE ORDER BY fqn;
-- name: unnamed
SELECT id FROM symbols WHERE name IS NULL ORDER BY fqn;
-- name: last_symbol_id
SELECT max(id) FROM symbols;
-- name: ids_by_fqn
SELECT id FROM symbols INDEXED BY symbols_by_fqn ORDER BY fqn;
-- name: fqn_of_id
SELECT fqn FROM symbols WHERE id = ?1;

-- name: references_count
SELECT count(*) FROM symbol_refs WHERE symbol_fqn = ?1;
-- name: references_page
SELECT file_path, line, caller_fqn, caller_kind, usage_type FROM symbol_refs WHERE symbol_fqn = ?1
ORDER BY file_path, line LIMIT ?2 OFFSET ?3;

-- name: components
SELECT name, layer, path_pattern, file_count, symbol_count FROM components ORDER BY name;

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
