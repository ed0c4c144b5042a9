#include <krserial/xml_node.h>
#include <krserial/xml_text.h>

namespace KR {

XmlNode::~XmlNode() = default;

XmlText::XmlText(Type type, const std::string& value)
    : XmlNode(type == Element ? Text : type), m_value(value) {}

}  // namespace KR
