#ifndef KRSERIAL_XML_READER_H
#define KRSERIAL_XML_READER_H

#include <krserial/krserial_export.h>
#include <krserial/serial.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KR {

/// A parsed XML document read where it lies, without building an element tree: for taking a
/// few values out of many documents. It accepts and refuses exactly the documents that
/// XmlDocument::loadFromXmlString() does, with the same errors, and its elements answer as
/// the XmlElement of the same document would. Not copyable; one thread at a time.
class KRSERIAL_EXPORT XmlReader {
public:
  /// One element of a reader's document, valid while the reader lives and reads the same
  /// document; a default-made one is null.
  class KRSERIAL_EXPORT Element {
  public:
    Element() = default;
    /// Whether this is an element at all.
    explicit operator bool() const { return m_node != nullptr; }
    /// The element's name.
    std::string_view name() const;
    /// Whether it has an attribute of that name.
    bool hasAttribute(const std::string& name) const;
    /// An attribute's value, or defaultValue; of a name given twice, the last value.
    std::string attribute(const std::string& name, const std::string& defaultValue) const;
    /// Reads an attribute with Serial::load; false, leaving value, when absent or unreadable.
    template <class T>
    bool getAttribute(const std::string& name, T& value) const {
      return hasAttribute(name) && Serial::load(attribute(name, std::string()), value);
    }
    /// Whether it holds text or CDATA directly.
    bool hasText() const;
    /// Its direct text and CDATA, joined.
    std::string text() const;
    /// The first child element with that name (any name when empty); null when none.
    Element firstChild(const std::string& name) const;
    /// The child elements with that name (all when empty), in order; with a container, those
    /// inside the first child element of that name.
    std::vector<Element> children(const std::string& name = std::string(),
                                  const std::string& container = std::string()) const;

  private:
    friend class XmlReader;
    explicit Element(void* node) : m_node(node) {}
    void* m_node = nullptr;  // the parser's own node
  };

  /// A reader that holds no document.
  XmlReader();
  ~XmlReader();
  XmlReader(const XmlReader&) = delete;
  XmlReader& operator=(const XmlReader&) = delete;

  /// Parses xml, replacing the document held; false with error and errorContext set (when
  /// given) on failure, as XmlDocument::loadFromXmlString() sets them.
  bool parse(std::string_view xml, std::string* error, std::string* errorContext);
  /// The root element of the document parsed last; null when none.
  Element root() const;

private:
  struct Private;
  std::unique_ptr<Private> d;
};

}  // namespace KR

#endif
