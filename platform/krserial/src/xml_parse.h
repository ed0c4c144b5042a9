#ifndef KRSERIAL_XML_PARSE_H
#define KRSERIAL_XML_PARSE_H

// The one way text becomes a parsed document here, shared by the element tree and the
// reader so that both accept, refuse and explain exactly alike. Not installed.

#include <pugixml.hpp>

#include <string>
#include <string_view>

namespace KR {
namespace detail {

/// The deepest element nesting a document may have.
constexpr int kMaxDepth = 1024;

/// Sets error and errorContext, each when given.
void fail(std::string* error, std::string* errorContext, const std::string& message,
          const std::string& context);

/// Where a byte offset of xml lies, as an editor would show it, with the text around it.
std::string describeOffset(std::string_view xml, ptrdiff_t offset);

/// Parses xml into document; its one root element, or a null node with error and
/// errorContext set: text that is no XML, a stray NUL, no root or more than one, or
/// elements nested deeper than kMaxDepth.
pugi::xml_node parseDocument(std::string_view xml, pugi::xml_document& document, std::string* error,
                             std::string* errorContext);

}  // namespace detail
}  // namespace KR

#endif
