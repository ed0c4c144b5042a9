#ifndef KRSERIAL_XML_TEXT_H
#define KRSERIAL_XML_TEXT_H

#include <krserial/xml_node.h>

#include <string>

namespace KR {

/// A character node: plain text, a CDATA section or a comment, holding UTF-8 text.
class KRSERIAL_EXPORT XmlText : public XmlNode {
public:
  /// Shared handle of a text node.
  typedef boost::shared_ptr<XmlText> Ptr;

  /// Makes a node of the given type (Text, CData or Comment; Element is taken as Text).
  XmlText(Type type, const std::string& value);

  /// The text, unescaped.
  const std::string& value() const { return m_value; }
  /// Replaces the text.
  void setValue(const std::string& value) { m_value = value; }

private:
  std::string m_value;
};

}  // namespace KR

#endif
