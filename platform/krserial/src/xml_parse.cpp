#include "xml_parse.h"

#include <algorithm>
#include <vector>

namespace KR {
namespace detail {

namespace {

// Comments are kept so that a document read and written again still carries them. The
// document type is skipped rather than parsed, so entities declared there are never
// expanded, and whitespace-only text is dropped, so indentation never becomes content.
const unsigned kParseOptions = pugi::parse_default | pugi::parse_comments;

const size_t kExcerptRadius = 30;

bool isContinuationByte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// A NUL byte ends pugixml's scan early, so anything after it would be silently ignored.
// UTF-16 and UTF-32 documents, which pugixml converts, always have one among their first
// four bytes; a NUL anywhere in a byte-oriented document makes it malformed.
size_t findStrayNul(std::string_view xml) {
  const size_t first = xml.find('\0');
  if (first == std::string_view::npos || first < 4)
    return std::string_view::npos;
  return first;
}

// The first element nested deeper than kMaxDepth, met in the order the element tree is
// built; null when there is none.
pugi::xml_node findTooDeep(const pugi::xml_node& root) {
  std::vector<std::pair<pugi::xml_node, int>> pending{{root, 1}};
  while (!pending.empty()) {
    const auto [node, depth] = pending.back();
    pending.pop_back();
    for (const pugi::xml_node& child : node.children()) {
      if (child.type() != pugi::node_element)
        continue;
      if (depth >= kMaxDepth)
        return child;
      pending.emplace_back(child, depth + 1);
    }
  }
  return pugi::xml_node();
}

}  // namespace

void fail(std::string* error, std::string* errorContext, const std::string& message,
          const std::string& context) {
  if (error)
    *error = message;
  if (errorContext)
    *errorContext = context;
}

std::string describeOffset(std::string_view xml, ptrdiff_t offset) {
  const size_t at = std::min(static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)), xml.size());
  const size_t lineStart = at == 0 ? 0 : xml.rfind('\n', at - 1) + 1;  // npos + 1 == 0
  size_t lineEnd = xml.find('\n', at);
  if (lineEnd == std::string_view::npos)
    lineEnd = xml.size();

  const size_t line = 1 + std::count(xml.begin(), xml.begin() + lineStart, '\n');
  const size_t column = 1 + std::count_if(xml.begin() + lineStart, xml.begin() + at,
                                          [](char c) { return !isContinuationByte(c); });
  std::string result = "line " + std::to_string(line) + ", column " + std::to_string(column);
  if (at == xml.size())
    return result + ", at the end of the document";

  size_t begin = std::max(lineStart, at >= kExcerptRadius ? at - kExcerptRadius : 0);
  size_t end = std::min(lineEnd, at + kExcerptRadius);
  // Cutting inside a multi-byte character would put invalid UTF-8 into the message.
  while (begin < at && isContinuationByte(xml[begin]))
    ++begin;
  while (end > at && end < xml.size() && isContinuationByte(xml[end]))
    --end;
  std::string excerpt(xml.substr(begin, end - begin));
  for (char& c : excerpt) {
    if (static_cast<unsigned char>(c) < 0x20)
      c = ' ';
  }
  return result + ", near \"" + excerpt + "\"";
}

pugi::xml_node parseDocument(std::string_view xml, pugi::xml_document& document, std::string* error,
                             std::string* errorContext) {
  const size_t nul = findStrayNul(xml);
  if (nul != std::string_view::npos) {
    fail(error, errorContext, "NUL character in the document", describeOffset(xml, nul));
    return pugi::xml_node();
  }

  const pugi::xml_parse_result result =
      document.load_buffer(xml.data(), xml.size(), kParseOptions, pugi::encoding_auto);
  if (!result) {
    fail(error, errorContext, result.description(), describeOffset(xml, result.offset));
    return pugi::xml_node();
  }

  // pugixml reads a forest of top-level elements without complaint; a document has one.
  pugi::xml_node rootNode;
  for (const pugi::xml_node& node : document.children()) {
    if (node.type() != pugi::node_element)
      continue;
    if (rootNode) {
      fail(error, errorContext, "more than one root element",
           describeOffset(xml, node.offset_debug() - 1));
      return pugi::xml_node();
    }
    rootNode = node;
  }
  if (!rootNode) {
    fail(error, errorContext, "no root element", describeOffset(xml, xml.size()));
    return pugi::xml_node();
  }

  const pugi::xml_node tooDeep = findTooDeep(rootNode);
  if (tooDeep) {
    fail(error, errorContext,
         "elements are nested deeper than " + std::to_string(kMaxDepth) + " levels",
         describeOffset(xml, tooDeep.offset_debug() - 1));
    return pugi::xml_node();
  }
  return rootNode;
}

}  // namespace detail
}  // namespace KR
