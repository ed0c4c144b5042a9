#ifndef KRSERIAL_XML_DOCUMENT_H
#define KRSERIAL_XML_DOCUMENT_H

#include <krserial/xml_element.h>

#include <cstdio>
#include <string>

namespace KR {

/// An XML document: one root element, read from and written to UTF-8 text.
///
/// Reading never expands entities declared in a document type, and documents nested
/// deeper than maxDepth() are refused, so hostile input cannot exhaust memory or stack.
class KRSERIAL_EXPORT XmlDocument {
public:
  /// Shared handle of a document.
  typedef boost::shared_ptr<XmlDocument> Ptr;

  /// Makes a document with this root (none by default).
  explicit XmlDocument(XmlElement::Ptr root = XmlElement::Ptr());

  /// The root element; null if none.
  XmlElement::Ptr root() const { return m_root; }
  /// Replaces the root element.
  void setRoot(XmlElement::Ptr root) { m_root = root; }

  /// Parses a whole open file; null with error and errorContext set (when given) on failure.
  static Ptr loadFromXmlFile(FILE* file, std::string* error, std::string* errorContext);
  /// Parses a string; null with error and errorContext set (when given) on failure.
  static Ptr loadFromXmlString(const std::string& xml, std::string* error,
                               std::string* errorContext);
  /// Writes the document as UTF-8 with an XML declaration; false with error set on failure.
  bool saveToXmlFile(FILE* file, std::string* error, std::string* errorContext) const;
  /// The document as UTF-8 text with an XML declaration.
  std::string saveToXmlString() const;
  /// The document as saveToXmlFile() would write it, into text; false with error set (and
  /// text untouched) when it would refuse it: no root, or elements nested too deep to be
  /// read back.
  bool saveToXmlString(std::string& text, std::string* error) const;

  /// The deepest element nesting that loading accepts.
  static int maxDepth();

private:
  XmlElement::Ptr m_root;
};

}  // namespace KR

#endif
