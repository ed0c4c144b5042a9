#ifndef KRSERIAL_XML_ELEMENT_H
#define KRSERIAL_XML_ELEMENT_H

#include <krserial/serial.h>
#include <krserial/xml_node.h>

#include <string>
#include <utility>
#include <vector>

namespace KR {

/// An XML element: a name, attributes in order and child nodes in order, all UTF-8.
class KRSERIAL_EXPORT XmlElement : public XmlNode {
public:
  /// Shared handle of an element.
  typedef boost::shared_ptr<XmlElement> Ptr;
  /// Shared handle of an element that is only read.
  typedef boost::shared_ptr<const XmlElement> ConstPtr;

  /// Makes an element with this name, no attributes and no children.
  explicit XmlElement(const std::string& name);
  ~XmlElement() override;

  /// The element name.
  const std::string& name() const { return m_name; }

  /// Whether the attribute is present.
  bool hasAttribute(const std::string& name) const;
  /// The attribute's value, or defaultValue when it is absent.
  std::string attribute(const std::string& name, const std::string& defaultValue) const;
  /// Reads the attribute through Serial::load; false when absent or unreadable.
  template <class T>
  bool getAttribute(const std::string& name, T& value) const {
    const std::string* text = findAttribute(name);
    return text && Serial::load(*text, value);
  }
  /// Sets an attribute. With append true it goes last (an old one of that name is dropped);
  /// with append false an existing attribute keeps its place and takes the value.
  void setAttribute(const std::string& name, const std::string& value, bool append);
  /// Removes the attribute if present.
  void removeAttribute(const std::string& name);
  /// All attributes as (name, value) pairs, in order.
  const std::vector<std::pair<std::string, std::string>>& attributes() const {
    return m_attributes;
  }

  /// Whether the element has a direct text or CDATA child.
  bool hasText() const;
  /// The concatenated direct text and CDATA children.
  std::string text() const;
  /// Replaces the direct text and CDATA children by one node, a CDATA section if cdata.
  void setText(const std::string& text, bool cdata);

  /// The first direct child element with this name; null if none.
  Ptr firstChild(const std::string& name) const;
  /// Direct child elements with this name (all when name is empty); with a container,
  /// those inside the first direct child element named container.
  std::vector<Ptr> children(const std::string& name = "", const std::string& container = "") const;
  /// Every direct child: elements, texts, CDATA sections and comments, in order.
  std::vector<XmlNodePtr> mixedChildren() const { return m_children; }
  /// Appends any node (an element, a text, a CDATA section or a comment).
  void addNode(XmlNodePtr node);
  /// Appends the element itself, not a copy.
  void addChild(Ptr child);
  /// Appends the elements, inside the child named container (created when missing) if given.
  void addChildren(const std::vector<Ptr>& list, const std::string& container = "");
  /// Removes the direct child elements with this name (all when empty), inside container if given.
  void removeChildren(const std::string& name, const std::string& container = "");

  /// A deep copy of this element and everything below it.
  Ptr clone() const;

private:
  const std::string* findAttribute(const std::string& name) const;

  std::string m_name;
  std::vector<std::pair<std::string, std::string>> m_attributes;
  std::vector<XmlNodePtr> m_children;
};

}  // namespace KR

#endif
