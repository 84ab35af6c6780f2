-- The schema of a repository index as the example MCP server reads it. Both
-- indexes are made on it: the hand-written one of examples/repo/
-- (index/index.sql, run after this file) and those that kestrune-index
-- builds from a work tree (indexer/). The version changes with the
-- schema: kestrune-index builds an index of another version anew.

PRAGMA user_version = 5;

-- The indexer's state: one row, rewritten as a run goes on.
CREATE TABLE index_status (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  status TEXT NOT NULL,
  health TEXT NOT NULL,
  branch TEXT,
  progress INTEGER NOT NULL,
  files_indexed INTEGER NOT NULL,
  symbols_indexed INTEGER NOT NULL,
  last_updated TEXT,
  errors_count INTEGER NOT NULL,
  phase TEXT,
  phase_detail TEXT
);

-- The files an indexer read, with what tells a changed file from the one it
-- read last time: size and modification time first, the content's hash when
-- those differ. `problem` says what was wrong with a file that is indexed
-- all the same (its text is not UTF-8, ctags failed on it).
CREATE TABLE files (
  path TEXT PRIMARY KEY,
  size INTEGER NOT NULL,
  mtime_ns INTEGER NOT NULL,
  content_hash TEXT NOT NULL,
  language TEXT,
  lines INTEGER NOT NULL,
  problem TEXT
) WITHOUT ROWID;

-- What the last run could not index, or not whole, a row a problem, in the
-- order standard error showed them: the path (or the program, for ctags or
-- an analyzer) and what was wrong.
CREATE TABLE index_problems (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,
  problem TEXT NOT NULL
);

CREATE TABLE symbols (
  id INTEGER PRIMARY KEY,
  fqn TEXT NOT NULL,
  name TEXT,
  kind TEXT,
  file_path TEXT,
  start_line INTEGER,
  end_line INTEGER,
  signature TEXT,
  docstring TEXT,
  is_export INTEGER,
  docstring_truncated INTEGER,
  uses INTEGER NOT NULL DEFAULT 0  -- the references to its fqn, counted at the end of a run
);
-- An fqn may name several definitions (overloads, a getter and a setter,
-- two files of one module path): each is its own row.
CREATE INDEX symbols_by_fqn ON symbols (fqn);
-- Names in any case, with what search ranks them by, so that the names
-- that begin with a query are counted and ranked from the index alone.
CREATE INDEX symbols_by_name ON symbols (name COLLATE NOCASE, uses, fqn);
CREATE INDEX symbols_by_file ON symbols (file_path, start_line, fqn, kind);
-- Search's order after exact names and prefixes: the most used first.
CREATE INDEX symbols_by_uses ON symbols (uses DESC, fqn, name);

-- Trigrams of every symbol's fqn and name, ASCII letters in lower case as
-- LIKE compares them, so that a search for a substring of three characters
-- or more counts and finds its matches in an index instead of reading every
-- symbol. Contentless: the symbols table holds the text.
CREATE VIRTUAL TABLE symbol_names USING fts5 (fqn, name, content = '', tokenize = 'trigram case_sensitive 1');
CREATE TRIGGER symbols_insert AFTER INSERT ON symbols BEGIN
  INSERT INTO symbol_names (rowid, fqn, name) VALUES (new.id, lower(new.fqn), lower(new.name));
END;
CREATE TRIGGER symbols_delete AFTER DELETE ON symbols BEGIN
  INSERT INTO symbol_names (symbol_names, rowid, fqn, name) VALUES ('delete', old.id, lower(old.fqn), lower(old.name));
END;

-- A use of the symbol `symbol_fqn` at a place, inside the caller symbol.
CREATE TABLE symbol_refs (
  id INTEGER PRIMARY KEY,
  symbol_fqn TEXT NOT NULL,
  file_path TEXT,
  line INTEGER,
  caller_fqn TEXT,
  caller_kind TEXT,
  usage_type TEXT
);
CREATE INDEX refs_by_symbol ON symbol_refs (symbol_fqn, file_path, line);
CREATE INDEX refs_by_file ON symbol_refs (file_path);

CREATE TABLE components (
  name TEXT PRIMARY KEY,
  layer TEXT,
  path_pattern TEXT,
  file_count INTEGER,
  symbol_count INTEGER
);

CREATE TABLE wiki_state (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  built INTEGER NOT NULL,
  branch TEXT NOT NULL,
  enabled INTEGER NOT NULL,
  configured INTEGER NOT NULL,
  total_sources INTEGER NOT NULL,
  last_built TEXT,
  model TEXT
);

-- A page of the wiki; `source_path` is the Markdown file it was made from,
-- when an indexer made it.
CREATE TABLE wiki_pages (
  page_id TEXT PRIMARY KEY,
  title TEXT NOT NULL,
  content TEXT NOT NULL,
  stale INTEGER NOT NULL DEFAULT 0,
  position INTEGER NOT NULL,
  source_path TEXT
);
CREATE INDEX pages_by_source ON wiki_pages (source_path);
-- The list of pages in their order, without reading their text (which is
-- stored before `position`, so a scan of the table reads every page whole).
CREATE INDEX pages_by_position ON wiki_pages (position, page_id, title, stale);

CREATE TABLE wiki_sections (
  id INTEGER PRIMARY KEY,
  page_id TEXT NOT NULL REFERENCES wiki_pages (page_id),
  heading TEXT NOT NULL,
  body TEXT NOT NULL
);
CREATE INDEX sections_by_page ON wiki_sections (page_id);

CREATE TABLE wiki_citations (
  id INTEGER PRIMARY KEY,
  section_id INTEGER NOT NULL REFERENCES wiki_sections (id),
  path TEXT NOT NULL,
  line_start INTEGER,
  line_end INTEGER
);
CREATE INDEX citations_by_section ON wiki_citations (section_id);

CREATE TABLE wiki_links (
  page_id TEXT NOT NULL REFERENCES wiki_pages (page_id),
  related_page_id TEXT NOT NULL REFERENCES wiki_pages (page_id),
  PRIMARY KEY (page_id, related_page_id)
);

-- Full-text search over the sections, for the wiki's ask: each section
-- with its page's title, so that the ask can weigh titles, headings and
-- bodies apart. A section is written after its page and removed before it.
CREATE VIEW wiki_section_text AS
  SELECT s.id, p.title, s.heading, s.body FROM wiki_sections AS s JOIN wiki_pages AS p ON p.page_id = s.page_id;
CREATE VIRTUAL TABLE wiki_search USING fts5 (title, heading, body, content = 'wiki_section_text',
                                          content_rowid = 'id', tokenize = 'porter unicode61');
CREATE TRIGGER wiki_sections_insert AFTER INSERT ON wiki_sections BEGIN
  INSERT INTO wiki_search (rowid, title, heading, body)
  VALUES (new.id, (SELECT title FROM wiki_pages WHERE page_id = new.page_id), new.heading, new.body);
END;
CREATE TRIGGER wiki_sections_delete AFTER DELETE ON wiki_sections BEGIN
  INSERT INTO wiki_search (wiki_search, rowid, title, heading, body)
  VALUES ('delete', old.id, (SELECT title FROM wiki_pages WHERE page_id = old.page_id), old.heading, old.body);
END;
