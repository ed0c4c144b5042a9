#include <krserial/xml_reader.h>

#include "xml_parse.h"

#include <cstring>
#include <exception>

namespace KR {

namespace {

pugi::xml_node nodeOf(void* node) {
  return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node));
}

bool isCharacterData(const pugi::xml_node& node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

bool isElementNamed(const pugi::xml_node& node, const std::string& name) {
  return node.type() == pugi::node_element &&
         (name.empty() || std::strcmp(name.c_str(), node.name()) == 0);
}

// The element tree keeps the last of two attributes of one name, so the reader does too.
pugi::xml_attribute lastAttribute(const pugi::xml_node& node, const std::string& name) {
  pugi::xml_attribute found;
  for (const pugi::xml_attribute& attribute : node.attributes()) {
    if (std::strcmp(name.c_str(), attribute.name()) == 0)
      found = attribute;
  }
  return found;
}

}  // namespace

struct XmlReader::Private {
  pugi::xml_document document;
  pugi::xml_node root;
};

std::string_view XmlReader::Element::name() const {
  return m_node ? nodeOf(m_node).name() : "";
}

bool XmlReader::Element::hasAttribute(const std::string& name) const {
  return m_node && lastAttribute(nodeOf(m_node), name);
}

std::string XmlReader::Element::attribute(const std::string& name,
                                          const std::string& defaultValue) const {
  const pugi::xml_attribute found =
      m_node ? lastAttribute(nodeOf(m_node), name) : pugi::xml_attribute();
  return found ? std::string(found.value()) : defaultValue;
}

bool XmlReader::Element::hasText() const {
  if (!m_node)
    return false;
  for (const pugi::xml_node& child : nodeOf(m_node).children()) {
    if (isCharacterData(child))
      return true;
  }
  return false;
}

std::string XmlReader::Element::text() const {
  std::string result;
  if (!m_node)
    return result;
  for (const pugi::xml_node& child : nodeOf(m_node).children()) {
    if (isCharacterData(child))
      result += child.value();
  }
  return result;
}

XmlReader::Element XmlReader::Element::firstChild(const std::string& name) const {
  if (!m_node)
    return Element();
  for (const pugi::xml_node& child : nodeOf(m_node).children()) {
    if (isElementNamed(child, name))
      return Element(child.internal_object());
  }
  return Element();
}

std::vector<XmlReader::Element> XmlReader::Element::children(const std::string& name,
                                                             const std::string& container) const {
  if (!container.empty())
    return firstChild(container).children(name);
  std::vector<Element> result;
  if (!m_node)
    return result;
  for (const pugi::xml_node& child : nodeOf(m_node).children()) {
    if (isElementNamed(child, name))
      result.push_back(Element(child.internal_object()));
  }
  return result;
}

XmlReader::XmlReader() : d(std::make_unique<Private>()) {}

XmlReader::~XmlReader() = default;

bool XmlReader::parse(std::string_view xml, std::string* error, std::string* errorContext) {
  d->document.reset();
  try {
    d->root = detail::parseDocument(xml, d->document, error, errorContext);
  } catch (const std::exception& e) {
    d->root = pugi::xml_node();
    detail::fail(error, errorContext, std::string("cannot read the XML document: ") + e.what(), "");
  }
  return !d->root.empty();
}

XmlReader::Element XmlReader::root() const {
  return Element(d->root.internal_object());
}

}  // namespace KR
