#include "markdown_pages.hpp"

#include <cmark.h>

#include <cctype>
#include <climits>
#include <memory>
#include <optional>

namespace kestrune::indexer {

namespace {

std::string_view trim(std::string_view s) {
  const std::size_t first = s.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t\r\n") - first + 1);
}

// A Markdown document as cmark parses it (CommonMark: ATX and setext
// headings, fenced and indented code, inline and reference links).
struct NodeFree {
  void operator()(cmark_node* n) const noexcept { cmark_node_free(n); }
};
struct IterFree {
  void operator()(cmark_iter* i) const noexcept { cmark_iter_free(i); }
};
using Document = std::unique_ptr<cmark_node, NodeFree>;

Document parse(std::string_view text) {
  return Document(cmark_parse_document(text.data(), text.size(), CMARK_OPT_DEFAULT));
}

// Calls `visit` with each node under `root` (root included), on entering it.
template <class Visit>
void each_node(cmark_node* root, Visit visit) {
  const std::unique_ptr<cmark_iter, IterFree> it(cmark_iter_new(root));
  for (cmark_event_type e = cmark_iter_next(it.get()); e != CMARK_EVENT_DONE; e = cmark_iter_next(it.get())) {
    if (e == CMARK_EVENT_ENTER) visit(cmark_iter_get_node(it.get()));
  }
}

std::string_view literal(cmark_node* n) {
  const char* s = cmark_node_get_literal(n);
  return s == nullptr ? std::string_view() : std::string_view(s);
}

// The plain text of a heading: its text and code spans, breaks as spaces.
std::string heading_text(cmark_node* heading) {
  std::string out;
  each_node(heading, [&](cmark_node* n) {
    const cmark_node_type t = cmark_node_get_type(n);
    if (t == CMARK_NODE_TEXT || t == CMARK_NODE_CODE || t == CMARK_NODE_HTML_INLINE) out += literal(n);
    if (t == CMARK_NODE_SOFTBREAK || t == CMARK_NODE_LINEBREAK) out += ' ';
  });
  return std::string(trim(out));
}

std::string page_id_of(std::string_view path) {
  std::string_view stem = path.substr(0, path.rfind('.'));
  std::string id;
  for (const char c : stem) {
    const auto u = static_cast<unsigned char>(c);
    if (std::isalnum(u) != 0) {
      id += static_cast<char>(std::tolower(u));
    } else if (!id.empty() && id.back() != '-') {
      id += '-';
    }
  }
  while (!id.empty() && id.back() == '-') id.pop_back();
  return id.empty() ? "page" : id;
}

// `target` (a link in the page at `path`) as a root-relative path: "."
// and ".." applied; empty when it leaves the root or is a URL.
std::string resolve_link(std::string_view path, std::string_view target) {
  if (target.find("://") != std::string_view::npos || target.starts_with('#')) return {};
  target = target.substr(0, target.find('#'));
  std::vector<std::string_view> parts;
  const auto push_parts = [&](std::string_view s) {
    while (!s.empty()) {
      const std::size_t slash = s.find('/');
      const std::string_view part = s.substr(0, slash);
      if (part == "..") {
        if (parts.empty()) return false;
        parts.pop_back();
      } else if (!part.empty() && part != ".") {
        parts.push_back(part);
      }
      s = slash == std::string_view::npos ? std::string_view() : s.substr(slash + 1);
    }
    return true;
  };
  const std::size_t dir = path.rfind('/');
  if (!target.starts_with('/') && dir != std::string_view::npos && !push_parts(path.substr(0, dir))) return {};
  if (!push_parts(target)) return {};
  std::string joined;
  for (const std::string_view part : parts) {
    if (!joined.empty()) joined += '/';
    joined += part;
  }
  return joined;
}

std::vector<std::string> markdown_links(std::string_view path, cmark_node* document) {
  std::vector<std::string> links;
  each_node(document, [&](cmark_node* n) {
    if (cmark_node_get_type(n) != CMARK_NODE_LINK) return;
    const char* url = cmark_node_get_url(n);
    const std::string_view target = url == nullptr ? std::string_view() : std::string_view(url);
    if (!is_markdown(target.substr(0, target.find('#')))) return;
    if (std::string resolved = resolve_link(path, target); !resolved.empty()) links.push_back(std::move(resolved));
  });
  return links;
}

// Lines [first, last] of `text` (1-based, inclusive), empty when last < first.
std::string_view lines_of(const std::vector<std::string_view>& lines, int first, int last) {
  if (last < first || first < 1 || static_cast<std::size_t>(first) > lines.size()) return {};
  last = std::min(last, static_cast<int>(lines.size()));
  const char* begin = lines[static_cast<std::size_t>(first) - 1].data();
  const std::string_view end_line = lines[static_cast<std::size_t>(last) - 1];
  return {begin, static_cast<std::size_t>(end_line.data() + end_line.size() - begin)};
}

}  // namespace

bool is_markdown(std::string_view path) noexcept { return path.ends_with(".md") || path.ends_with(".markdown"); }

MarkdownPage read_markdown_page(std::string_view path, std::string_view text) {
  MarkdownPage page;
  page.page_id = page_id_of(path);
  page.content = trim(text);
  const Document document = parse(text);
  page.links = markdown_links(path, document.get());
  const std::size_t slash = path.rfind('/');
  page.title = path.substr(slash == std::string_view::npos ? 0 : slash + 1);

  std::vector<std::string_view> lines;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  // Sections: the top-level headings split the text; each body is the
  // source text between a heading and the next, as written.
  struct Draft {
    std::string heading;
    int first_line;
  };
  std::vector<Draft> drafts{{"", 1}};
  std::vector<int> ends;
  bool titled = false;
  for (cmark_node* n = cmark_node_first_child(document.get()); n != nullptr; n = cmark_node_next(n)) {
    if (cmark_node_get_type(n) != CMARK_NODE_HEADING) continue;
    std::string heading = heading_text(n);
    if (cmark_node_get_heading_level(n) == 1 && !titled) {
      page.title = heading;
      titled = true;
    }
    ends.push_back(cmark_node_get_start_line(n) - 1);
    // The body starts at the next block (cmark's end line of a setext
    // heading counts the line after its underline).
    cmark_node* next = cmark_node_next(n);
    drafts.push_back({std::move(heading), next != nullptr ? cmark_node_get_start_line(next) : INT_MAX});
  }
  ends.push_back(static_cast<int>(lines.size()));
  for (std::size_t i = 0; i < drafts.size(); ++i) {
    const std::string_view body = trim(lines_of(lines, drafts[i].first_line, ends[i]));
    if (body.empty()) continue;
    page.sections.push_back({drafts[i].heading.empty() ? page.title : std::move(drafts[i].heading), std::string(body)});
  }
  return page;
}

std::vector<std::string> code_spans(std::string_view text) {
  std::vector<std::string> spans;
  const Document document = parse(text);
  each_node(document.get(), [&](cmark_node* n) {
    if (cmark_node_get_type(n) == CMARK_NODE_CODE) spans.emplace_back(trim(literal(n)));
  });
  return spans;
}

}  // namespace kestrune::indexer
