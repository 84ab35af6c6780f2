// A Markdown file read as a wiki page: its title, its text, its sections
// (split at headings) and the other Markdown files it links to.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune::indexer {

struct MarkdownSection {
  std::string heading{};  ///< the heading's text; the page's title for text before any heading
  std::string body{};     ///< the text up to the next heading, without blank lines at its ends
};

struct MarkdownPage {
  std::string page_id{};                    ///< from the path: "docs/Cart flow.md" is "docs-cart-flow"
  std::string title{};                      ///< the first level-1 heading, or the file's name
  std::string content{};                    ///< the whole text
  std::vector<MarkdownSection> sections{};  ///< those with a body
  std::vector<std::string> links{};         ///< root-relative paths of the Markdown files it links to
};

/// is_markdown: whether the path names a Markdown file (.md, .markdown).
[[nodiscard]] bool is_markdown(std::string_view path) noexcept;

/// read_markdown_page: the page of the Markdown file at `path` (relative to
/// the root) whose text is `text`, well-formed UTF-8, read as CommonMark:
/// ATX and setext headings split it; a heading inside code is text.
[[nodiscard]] MarkdownPage read_markdown_page(std::string_view path, std::string_view text);

/// code_spans: the text of each inline code span (`like this`) of `text`.
[[nodiscard]] std::vector<std::string> code_spans(std::string_view text);

}  // namespace kestrune::indexer
