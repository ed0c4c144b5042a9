#ifndef KRSERIAL_XML_NODE_H
#define KRSERIAL_XML_NODE_H

#include <krserial/krserial_export.h>

#include <boost/shared_ptr.hpp>

namespace KR {

/// A child node of an element: an element, a text, a CDATA section or a comment.
class KRSERIAL_EXPORT XmlNode {
public:
  /// The kind of node.
  enum Type { Element, Text, CData, Comment };

  virtual ~XmlNode();

  /// The kind of this node.
  Type type() const { return m_type; }

protected:
  /// A node of the given kind; only the concrete node classes make one.
  explicit XmlNode(Type type) : m_type(type) {}
  /// Copies the kind; the concrete classes copy the rest.
  XmlNode(const XmlNode&) = default;
  /// Copies the kind; the concrete classes copy the rest.
  XmlNode& operator=(const XmlNode&) = default;

private:
  Type m_type;
};

/// Shared handle of any child node.
typedef boost::shared_ptr<XmlNode> XmlNodePtr;

}  // namespace KR

#endif
