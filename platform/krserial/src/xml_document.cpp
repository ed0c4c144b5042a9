#include <krserial/xml_document.h>
#include <krserial/xml_text.h>

#include "xml_parse.h"

#include <boost/make_shared.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <vector>

namespace KR {

namespace {

using detail::describeOffset;
using detail::fail;
using detail::kMaxDepth;

void copyAttributes(const pugi::xml_node& source, XmlElement& target) {
  for (const pugi::xml_attribute& attribute : source.attributes()) {
    target.setAttribute(attribute.name(), attribute.value(), true);
  }
}

// The element tree of a parsed document, whose depth parseDocument() already checked.
XmlElement::Ptr convertTree(const pugi::xml_node& rootNode) {
  struct Pending {
    pugi::xml_node source;
    XmlElement* target;
  };
  XmlElement::Ptr root = boost::make_shared<XmlElement>(rootNode.name());
  copyAttributes(rootNode, *root);
  std::vector<Pending> pending{{rootNode, root.get()}};
  while (!pending.empty()) {
    const Pending current = pending.back();
    pending.pop_back();
    for (const pugi::xml_node& child : current.source.children()) {
      switch (child.type()) {
        case pugi::node_element: {
          auto element = boost::make_shared<XmlElement>(child.name());
          copyAttributes(child, *element);
          current.target->addChild(element);
          pending.push_back({child, element.get()});
          break;
        }
        case pugi::node_pcdata:
          current.target->addNode(boost::make_shared<XmlText>(XmlNode::Text, child.value()));
          break;
        case pugi::node_cdata:
          current.target->addNode(boost::make_shared<XmlText>(XmlNode::CData, child.value()));
          break;
        case pugi::node_comment:
          current.target->addNode(boost::make_shared<XmlText>(XmlNode::Comment, child.value()));
          break;
        default: break;
      }
    }
  }
  return root;
}

XmlDocument::Ptr parse(const std::string& xml, std::string* error, std::string* errorContext) {
  pugi::xml_document document;
  const pugi::xml_node rootNode = detail::parseDocument(xml, document, error, errorContext);
  if (!rootNode)
    return XmlDocument::Ptr();
  return boost::make_shared<XmlDocument>(convertTree(rootNode));
}

class StringWriter : public pugi::xml_writer {
public:
  explicit StringWriter(std::string& out) : m_out(out) {}
  void write(const void* data, size_t size) override {
    m_out.append(static_cast<const char*>(data), size);
  }

private:
  std::string& m_out;
};

pugi::xml_node appendElement(pugi::xml_node parent, const XmlElement& element) {
  pugi::xml_node node = parent.append_child(element.name().c_str());
  for (const auto& attribute : element.attributes()) {
    node.append_attribute(attribute.first.c_str()).set_value(attribute.second.c_str());
  }
  return node;
}

struct Rendered {
  std::string text;
  int depth = 0;
};

Rendered render(const XmlElement* root) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version").set_value("1.0");
  declaration.append_attribute("encoding").set_value("UTF-8");

  Rendered rendered;
  if (root) {
    // Each element node is created, with its attributes, as its parent's children are
    // walked, so sibling order is kept; its own children are filled in when it is popped.
    struct Pending {
      const XmlElement* source;
      pugi::xml_node target;
      int depth;
    };
    std::vector<Pending> pending{{root, appendElement(document, *root), 1}};
    while (!pending.empty()) {
      Pending current = pending.back();
      pending.pop_back();
      rendered.depth = std::max(rendered.depth, current.depth);
      for (const XmlNodePtr& node : current.source->mixedChildren()) {
        if (node->type() == XmlNode::Element) {
          const XmlElement& element = static_cast<const XmlElement&>(*node);
          pending.push_back({&element, appendElement(current.target, element), current.depth + 1});
          continue;
        }
        const pugi::xml_node_type type = node->type() == XmlNode::CData     ? pugi::node_cdata
                                         : node->type() == XmlNode::Comment ? pugi::node_comment
                                                                            : pugi::node_pcdata;
        current.target.append_child(type).set_value(
            static_cast<const XmlText&>(*node).value().c_str());
      }
    }
  }

  // pugixml's indentation leaves elements holding text inline, so indenting never alters
  // content. Past the depth a reader accepts, indentation would grow with the square of
  // the depth, so such trees are written on one line.
  const unsigned format = rendered.depth > kMaxDepth ? pugi::format_raw : pugi::format_indent;
  StringWriter writer(rendered.text);
  document.save(writer, "  ", format, pugi::encoding_utf8);
  return rendered;
}

}  // namespace

XmlDocument::XmlDocument(XmlElement::Ptr root) : m_root(root) {}

int XmlDocument::maxDepth() {
  return kMaxDepth;
}

XmlDocument::Ptr XmlDocument::loadFromXmlString(const std::string& xml, std::string* error,
                                                std::string* errorContext) {
  try {
    return parse(xml, error, errorContext);
  } catch (const std::exception& e) {
    fail(error, errorContext, std::string("cannot read the XML document: ") + e.what(), "");
    return Ptr();
  }
}

XmlDocument::Ptr XmlDocument::loadFromXmlFile(FILE* file, std::string* error,
                                              std::string* errorContext) {
  if (!file) {
    fail(error, errorContext, "no file to read the XML document from", "");
    return Ptr();
  }
  try {
    std::string xml;
    char buffer[65536];
    size_t count;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0)
      xml.append(buffer, count);
    if (std::ferror(file)) {
      const int code = errno;
      fail(error, errorContext,
           std::string("cannot read the XML document: ") +
               (code ? std::strerror(code) : "read error"),
           "after " + std::to_string(xml.size()) + " bytes");
      return Ptr();
    }
    return loadFromXmlString(xml, error, errorContext);
  } catch (const std::exception& e) {
    fail(error, errorContext, std::string("cannot read the XML document: ") + e.what(), "");
    return Ptr();
  }
}

std::string XmlDocument::saveToXmlString() const {
  return render(m_root.get()).text;
}

namespace {

// The text of a document with root, refused (false, error set) when there is no root, the
// writer fails, or the nesting is deeper than a reader would accept.
bool renderChecked(const XmlElement* root, std::string& text, std::string* error,
                   std::string* errorContext) {
  if (!root) {
    fail(error, errorContext, "the document has no root element", "");
    return false;
  }
  Rendered rendered;
  try {
    rendered = render(root);
  } catch (const std::exception& e) {
    fail(error, errorContext, std::string("cannot write the XML document: ") + e.what(), "");
    return false;
  }
  // Such a file would be refused when read back; better to say so now than lose the data.
  if (rendered.depth > kMaxDepth) {
    fail(error, errorContext,
         "elements are nested deeper than " + std::to_string(kMaxDepth) + " levels",
         "depth " + std::to_string(rendered.depth));
    return false;
  }
  text = std::move(rendered.text);
  return true;
}

}  // namespace

bool XmlDocument::saveToXmlString(std::string& text, std::string* error) const {
  return renderChecked(m_root.get(), text, error, nullptr);
}

bool XmlDocument::saveToXmlFile(FILE* file, std::string* error, std::string* errorContext) const {
  if (!file) {
    fail(error, errorContext, "no file to write the XML document to", "");
    return false;
  }
  std::string text;
  if (!renderChecked(m_root.get(), text, error, errorContext))
    return false;
  errno = 0;
  const size_t written = std::fwrite(text.data(), 1, text.size(), file);
  if (written != text.size() || std::fflush(file) != 0) {
    const int code = errno;
    fail(error, errorContext,
         std::string("cannot write the XML document: ") +
             (code ? std::strerror(code) : "write error"),
         "after " + std::to_string(written) + " of " + std::to_string(text.size()) + " bytes");
    return false;
  }
  return true;
}

}  // namespace KR
