// A wiki page's sections, title and links, and the code spans of a
// section, as the indexer reads them from Markdown.
#include "markdown_pages.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace ix = kestrune::indexer;

namespace {

using Sections = std::vector<std::pair<std::string, std::string>>;

struct PageCase {
  const char* what;
  const char* path;
  const char* text;
  const char* title;
  Sections sections;
  std::vector<std::string> links;
};

const PageCase kPages[] = {
    {"ATX headings, closing hashes, the title from the first level 1",
     "docs/guide.md",
     "Intro line.\n\n# Guide #\nText.\n\n## Install ##\nRun it.\n# Second\nMore.\n",
     "Guide",
     {{"Guide", "Intro line."}, {"Guide", "Text."}, {"Install", "Run it."}, {"Second", "More."}},
     {}},
    {"setext headings",
     "a.md",
     "Title\n=====\n\nBody one.\n\nPart\n----\nBody two.\n",
     "Title",
     {{"Title", "Body one."}, {"Part", "Body two."}},
     {}},
    {"a heading inside fenced or indented code is text",
     "a.md",
     "# A\n```sh\n# not a heading\n```\n\n    # nor this\n~~~\n## nor\n~~~\n",
     "A",
     {{"A", "```sh\n# not a heading\n```\n\n    # nor this\n~~~\n## nor\n~~~"}},
     {}},
    {"no heading: the file's name is the title",
     "notes/todo.markdown",
     "Just text.\n",
     "todo.markdown",
     {{"todo.markdown", "Just text."}},
     {}},
    {"a heading's code span and emphasis are its text",
     "a.md",
     "# The `run()` *call*\nx\n",
     "The run() call",
     {{"The run() call", "x"}},
     {}},
    {"links: inline, angle, reference; relative, rooted, outside the root, URLs and anchors",
     "docs/sub/p.md",
     "See [a](../a.md#top), [b](<b c.md>), [c][ref], [d](/d.md), [e](../../../e.md), [f](https://x/f.md), "
     "[g](#local), [h](img.png).\n\n[ref]: ./c.md\n",
     "p.md",
     {{"p.md",
       "See [a](../a.md#top), [b](<b c.md>), [c][ref], [d](/d.md), [e](../../../e.md), "
       "[f](https://x/f.md), [g](#local), [h](img.png).\n\n[ref]: ./c.md"}},
     {"docs/a.md", "docs/sub/b c.md", "docs/sub/c.md", "d.md"}},
    {"a link inside code is no link",
     "a.md",
     "`[x](y.md)`\n\n    [z](w.md)\n",
     "a.md",
     {{"a.md", "`[x](y.md)`\n\n    [z](w.md)"}},
     {}},
};

TEST(MarkdownPages, SectionsTitlesAndLinks) {
  for (const PageCase& c : kPages) {
    SCOPED_TRACE(c.what);
    const ix::MarkdownPage page = ix::read_markdown_page(c.path, c.text);
    EXPECT_EQ(page.title, c.title);
    Sections got;
    for (const ix::MarkdownSection& s : page.sections) got.emplace_back(s.heading, s.body);
    EXPECT_EQ(got, c.sections);
    EXPECT_EQ(page.links, c.links);
  }
}

TEST(MarkdownPages, CodeSpans) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"Call `run()` then ``a ` b`` and `` `x` ``.", {"run()", "a ` b", "`x`"}},
      {"An unclosed `tick and ```three``", {}},
      {"```\nfenced `not a span`\n```\n", {}},
      {"Escaped \\`no\\` and `yes`", {"yes"}},
      {"An escaped tick opens no span: \\`a` b `c`", {"b"}},
  };
  for (const auto& [text, spans] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ix::code_spans(text), spans);
  }
}

TEST(MarkdownPages, PageIdsFromPaths) {
  EXPECT_EQ(ix::read_markdown_page("docs/Cart flow.md", "x").page_id, "docs-cart-flow");
  EXPECT_EQ(ix::read_markdown_page("__.md", "x").page_id, "page");
}

}  // namespace
