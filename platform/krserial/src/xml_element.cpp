#include <krserial/xml_element.h>
#include <krserial/xml_text.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <utility>

namespace KR {

namespace {

bool isCharacterData(const XmlNodePtr& node) {
  return node->type() == XmlNode::Text || node->type() == XmlNode::CData;
}

bool isElementNamed(const XmlNodePtr& node, const std::string& name) {
  return node->type() == XmlNode::Element &&
         (name.empty() || static_cast<const XmlElement&>(*node).name() == name);
}

}  // namespace

XmlElement::XmlElement(const std::string& name) : XmlNode(Element), m_name(name) {}

XmlElement::~XmlElement() {
  // Letting each element destroy its own children would recurse once per level, and a
  // tree built or read deep enough would overflow the stack. Instead, the grandchildren
  // of every element about to die are moved up into one flat list first, so each
  // destructor below runs on an element that no longer has children.
  std::vector<XmlNodePtr> pending;
  pending.swap(m_children);
  while (!pending.empty()) {
    XmlNodePtr node = std::move(pending.back());
    pending.pop_back();
    // An element still shared elsewhere survives this release, so its subtree stays.
    if (node->type() == Element && node.use_count() == 1) {
      std::vector<XmlNodePtr>& grandchildren = static_cast<XmlElement&>(*node).m_children;
      for (XmlNodePtr& child : grandchildren)
        pending.push_back(std::move(child));
      grandchildren.clear();
    }
  }
}

const std::string* XmlElement::findAttribute(const std::string& name) const {
  for (const auto& attribute : m_attributes) {
    if (attribute.first == name)
      return &attribute.second;
  }
  return nullptr;
}

bool XmlElement::hasAttribute(const std::string& name) const {
  return findAttribute(name) != nullptr;
}

std::string XmlElement::attribute(const std::string& name, const std::string& defaultValue) const {
  const std::string* value = findAttribute(name);
  return value ? *value : defaultValue;
}

void XmlElement::setAttribute(const std::string& name, const std::string& value, bool append) {
  auto sameName = [&name](const std::pair<std::string, std::string>& attribute) {
    return attribute.first == name;
  };
  auto first = std::find_if(m_attributes.begin(), m_attributes.end(), sameName);
  if (append || first == m_attributes.end()) {
    m_attributes.erase(std::remove_if(first, m_attributes.end(), sameName), m_attributes.end());
    m_attributes.emplace_back(name, value);
    return;
  }
  first->second = value;
  // A document read from elsewhere may repeat a name; once set, the value is unambiguous.
  m_attributes.erase(std::remove_if(first + 1, m_attributes.end(), sameName), m_attributes.end());
}

void XmlElement::removeAttribute(const std::string& name) {
  m_attributes.erase(std::remove_if(m_attributes.begin(), m_attributes.end(),
                                    [&name](const std::pair<std::string, std::string>& a) {
                                      return a.first == name;
                                    }),
                     m_attributes.end());
}

bool XmlElement::hasText() const {
  return std::any_of(m_children.begin(), m_children.end(), isCharacterData);
}

std::string XmlElement::text() const {
  std::string result;
  for (const XmlNodePtr& node : m_children) {
    if (isCharacterData(node))
      result += static_cast<const XmlText&>(*node).value();
  }
  return result;
}

void XmlElement::setText(const std::string& text, bool cdata) {
  auto firstText = std::find_if(m_children.begin(), m_children.end(), isCharacterData);
  const size_t position = firstText - m_children.begin();
  m_children.erase(std::remove_if(firstText, m_children.end(), isCharacterData), m_children.end());
  // Every node before the first text was kept, so the position is still the right one.
  m_children.insert(m_children.begin() + std::min(position, m_children.size()),
                    boost::make_shared<XmlText>(cdata ? CData : Text, text));
}

XmlElement::Ptr XmlElement::firstChild(const std::string& name) const {
  for (const XmlNodePtr& node : m_children) {
    if (isElementNamed(node, name))
      return boost::static_pointer_cast<XmlElement>(node);
  }
  return Ptr();
}

std::vector<XmlElement::Ptr> XmlElement::children(const std::string& name,
                                                  const std::string& container) const {
  std::vector<Ptr> result;
  if (!container.empty()) {
    Ptr holder = firstChild(container);
    if (holder)
      result = holder->children(name);
    return result;
  }
  for (const XmlNodePtr& node : m_children) {
    if (isElementNamed(node, name))
      result.push_back(boost::static_pointer_cast<XmlElement>(node));
  }
  return result;
}

void XmlElement::addNode(XmlNodePtr node) {
  if (node)
    m_children.push_back(std::move(node));
}

void XmlElement::addChild(Ptr child) {
  addNode(std::move(child));
}

void XmlElement::addChildren(const std::vector<Ptr>& list, const std::string& container) {
  XmlElement* target = this;
  if (!container.empty()) {
    Ptr holder = firstChild(container);
    if (!holder) {
      holder = boost::make_shared<XmlElement>(container);
      addChild(holder);
    }
    target = holder.get();
  }
  for (const Ptr& child : list)
    target->addChild(child);
}

void XmlElement::removeChildren(const std::string& name, const std::string& container) {
  XmlElement* target = this;
  if (!container.empty()) {
    target = firstChild(container).get();
    if (!target)
      return;
  }
  std::vector<XmlNodePtr>& nodes = target->m_children;
  nodes.erase(
      std::remove_if(nodes.begin(), nodes.end(),
                     [&name](const XmlNodePtr& node) { return isElementNamed(node, name); }),
      nodes.end());
}

XmlElement::Ptr XmlElement::clone() const {
  // Copied level by level from an explicit work list: a recursive copy would overflow the
  // stack on trees as deep as the ones the destructor is built to cope with.
  Ptr copy = boost::make_shared<XmlElement>(m_name);
  copy->m_attributes = m_attributes;
  std::vector<std::pair<const XmlElement*, XmlElement*>> pending{{this, copy.get()}};
  while (!pending.empty()) {
    const XmlElement* source = pending.back().first;
    XmlElement* target = pending.back().second;
    pending.pop_back();
    target->m_children.reserve(source->m_children.size());
    for (const XmlNodePtr& node : source->m_children) {
      if (node->type() == Element) {
        const XmlElement& element = static_cast<const XmlElement&>(*node);
        Ptr child = boost::make_shared<XmlElement>(element.m_name);
        child->m_attributes = element.m_attributes;
        target->m_children.push_back(child);
        pending.emplace_back(&element, child.get());
      } else {
        const XmlText& text = static_cast<const XmlText&>(*node);
        target->m_children.push_back(boost::make_shared<XmlText>(text.type(), text.value()));
      }
    }
  }
  return copy;
}

}  // namespace KR
