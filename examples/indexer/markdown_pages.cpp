#include "markdown_pages.hpp"

#include <cctype>
#include <optional>

namespace kestrune::indexer {

namespace {

std::string_view trim(std::string_view s) {
  const std::size_t first = s.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t\r\n") - first + 1);
}

// The text of an ATX heading line ("## Title ##"), with its level.
std::optional<std::string_view> heading_of(std::string_view line, int& level) {
  const std::size_t indent = line.find_first_not_of(' ');
  if (indent == std::string_view::npos || indent > 3) return std::nullopt;
  line.remove_prefix(indent);
  level = 0;
  while (level < static_cast<int>(line.size()) && line[static_cast<std::size_t>(level)] == '#') ++level;
  if (level == 0 || level > 6) return std::nullopt;
  line.remove_prefix(static_cast<std::size_t>(level));
  if (!line.empty() && line.front() != ' ' && line.front() != '\t') return std::nullopt;
  line = trim(line);
  // A closing run of "#" after a space is not part of the text.
  const std::size_t hashes = line.find_last_not_of('#');
  if (hashes == std::string_view::npos) return std::string_view();
  if (hashes + 1 < line.size() && (line[hashes] == ' ' || line[hashes] == '\t')) line = trim(line.substr(0, hashes));
  return line;
}

// The level of a setext heading's underline ("===" 1, "---" 2), or 0.
int setext_level(std::string_view line) {
  const std::size_t indent = line.find_first_not_of(' ');
  if (indent == std::string_view::npos || indent > 3) return 0;
  line = trim(line);
  if (line.empty() || (line.front() != '=' && line.front() != '-')) return 0;
  if (line.find_first_not_of(line.front()) != std::string_view::npos) return 0;
  return line.front() == '=' ? 1 : 2;
}

bool is_fence(std::string_view line) {
  const std::size_t indent = line.find_first_not_of(' ');
  if (indent == std::string_view::npos || indent > 3) return false;
  line.remove_prefix(indent);
  return line.starts_with("```") || line.starts_with("~~~");
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

std::vector<std::string> markdown_links(std::string_view path, std::string_view text) {
  std::vector<std::string> links;
  for (std::size_t at = text.find("]("); at != std::string_view::npos; at = text.find("](", at + 2)) {
    const std::size_t end = text.find_first_of(") \n", at + 2);
    if (end == std::string_view::npos) break;
    const std::string_view target = text.substr(at + 2, end - at - 2);
    if (!is_markdown(target.substr(0, target.find('#')))) continue;
    if (std::string resolved = resolve_link(path, target); !resolved.empty()) links.push_back(std::move(resolved));
  }
  return links;
}

}  // namespace

bool is_markdown(std::string_view path) noexcept { return path.ends_with(".md") || path.ends_with(".markdown"); }

MarkdownPage read_markdown_page(std::string_view path, std::string_view text) {
  MarkdownPage page;
  page.page_id = page_id_of(path);
  page.content = trim(text);
  page.links = markdown_links(path, text);
  const std::size_t slash = path.rfind('/');
  page.title = path.substr(slash == std::string_view::npos ? 0 : slash + 1);

  struct Draft {
    std::string heading;
    std::string body;
  };
  std::vector<Draft> drafts(1);
  bool titled = false;
  bool in_fence = false;
  bool after_text = false;  // the line before was a paragraph's text
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    int level = 0;
    std::optional<std::string_view> heading = in_fence ? std::nullopt : heading_of(line, level);
    // A line of text underlined with "=" or "-" (a setext heading), its
    // underline left out of the body.
    const std::string_view next = text.substr(0, text.find('\n'));
    if (!in_fence && !heading && !after_text && !trim(line).empty() && !is_fence(line) && setext_level(next) != 0 &&
        line.find_first_not_of(' ') <= 3) {
      level = setext_level(next);
      heading = trim(line);
      text = text.size() > next.size() ? text.substr(next.size() + 1) : std::string_view();
    }
    if (is_fence(line)) in_fence = !in_fence;
    after_text = !in_fence && !heading && !trim(line).empty();
    if (!heading) {
      drafts.back().body.append(line).push_back('\n');
      continue;
    }
    if (level == 1 && !titled) {
      page.title = *heading;
      titled = true;
    }
    drafts.push_back({std::string(*heading), {}});
  }
  for (Draft& d : drafts) {
    const std::string_view body = trim(d.body);
    if (body.empty()) continue;
    page.sections.push_back({d.heading.empty() ? page.title : std::move(d.heading), std::string(body)});
  }
  return page;
}

std::vector<std::string_view> code_spans(std::string_view text) {
  std::vector<std::string_view> spans;
  std::size_t i = 0;
  while ((i = text.find('`', i)) != std::string_view::npos) {
    std::size_t run = 0;
    while (i + run < text.size() && text[i + run] == '`') ++run;
    const std::string_view fence = text.substr(i, run);
    const std::size_t close = text.find(fence, i + run);
    if (close == std::string_view::npos) break;
    // The closing run must be as long as the opening one, no longer.
    if (close + run < text.size() && text[close + run] == '`') {
      i = close + run;
      continue;
    }
    spans.push_back(trim(text.substr(i + run, close - i - run)));
    i = close + run;
  }
  return spans;
}

}  // namespace kestrune::indexer
