#include <krboxlibrary/box_data.h>

#include <krserial/xml_element.h>

#include "refusal.h"
#include "text.h"
#include "tooltip_tags.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <vector>

namespace KR {

namespace {

using vocabulary::kNameAttribute;
using vocabulary::kTooltipAttribute;

const char kBitmapExpandedAttribute[] = "bitmap_expanded";
const char kBitmapsElement[] = "Bitmaps";
const char kBitmapElement[] = "bitmap";

// One attribute changed by a read-modify-write of the box file; nothing without a file.
// A failed write is logged below and leaves the file as it was.
void writeAttribute(BoxData& data, const char* name, const std::string& value) {
  if (const XmlElement::Ptr box = data.load()) {
    box->setAttribute(name, value, false);
    data.save(box);
  }
}

}  // namespace

BoxData::BoxData(BoxLibraryNode* node, boost::shared_ptr<const XmlElement> box)
    : QObject(node), m_node(node) {
  if (!box) {
    refusal::warn("BoxData", "Refused an empty box element: the box has no values");
    return;
  }
  if (box->hasAttribute(kTooltipAttribute))
    Serial::load(box->attribute(kTooltipAttribute, std::string()), m_tooltip);
  for (const XmlElement::Ptr& bitmap : box->children(kBitmapElement, kBitmapsElement)) {
    if (bitmap->hasText())
      m_bitmaps.append(text::fromUtf8(bitmap->text()));
  }
  // A missing or unreadable value leaves the default, expanded.
  box->getAttribute(kBitmapExpandedAttribute, m_bitmapExpanded);
  m_behavior = isBehavior(box);
}

QStringList BoxData::tags() const {
  QStringList result;
  for (const std::string& tag : tooltipTags(Serial::save(m_tooltip)))
    result.append(text::fromUtf8(tag));
  return result;
}

QByteArray BoxData::xmlData() const {
  return m_node ? m_node->loadBoxData() : QByteArray();
}

boost::shared_ptr<XmlElement> BoxData::load() const {
  return m_node ? m_node->loadBox() : XmlElement::Ptr();
}

bool BoxData::save(boost::shared_ptr<XmlElement> box) {
  return m_node && m_node->saveBox(box, m_behavior);
}

boost::shared_ptr<BoxData> BoxData::clone(BoxLibraryNode* node) const {
  boost::shared_ptr<BoxData> copy(new BoxData());
  copy->m_node = node;
  copy->m_tooltip = m_tooltip;
  copy->m_bitmaps = m_bitmaps;
  copy->m_bitmapExpanded = m_bitmapExpanded;
  copy->m_behavior = m_behavior;
  return copy;
}

void BoxData::saveName(const std::string& name) {
  writeAttribute(*this, kNameAttribute, name);
}

// Each setter writes its single change straight into the box file, so the file never lags
// behind what the panel shows.
void BoxData::setTooltip(const QString& tooltip) {
  if (tooltip == m_tooltip)
    return;
  m_tooltip = tooltip;
  writeAttribute(*this, kTooltipAttribute, Serial::save(m_tooltip));
  emit tooltipChanged(m_tooltip);
}

void BoxData::setBitmaps(const QList<QString>& bitmaps) {
  if (bitmaps == m_bitmaps)
    return;
  m_bitmaps = bitmaps;
  if (const XmlElement::Ptr box = load()) {
    box->removeChildren(kBitmapElement, kBitmapsElement);
    std::vector<XmlElement::Ptr> elements;
    elements.reserve(static_cast<size_t>(m_bitmaps.size()));
    for (const QString& bitmap : m_bitmaps) {
      auto element = boost::make_shared<XmlElement>(kBitmapElement);
      element->setText(text::toUtf8(bitmap), false);
      elements.push_back(element);
    }
    box->addChildren(elements, kBitmapsElement);
    save(box);
  }
  emit bitmapsChanged(m_bitmaps);
}

void BoxData::setBitmapExpanded(bool expanded) {
  if (expanded == m_bitmapExpanded)
    return;
  m_bitmapExpanded = expanded;
  writeAttribute(*this, kBitmapExpandedAttribute, Serial::save(m_bitmapExpanded));
  emit bitmapExpandedChanged(m_bitmapExpanded);
}

void BoxData::updateData(const QString& name, const QString& tooltip, const QList<QString>& bitmaps,
                         bool bitmapExpanded) {
  if (!m_node) {
    refusal::warn("updateData", "Refused to update a box whose node is gone");
    return;
  }
  m_node->setName(text::toUtf8(name));
  setTooltip(tooltip);
  setBitmaps(bitmaps);
  setBitmapExpanded(bitmapExpanded);
}

namespace Serial {

template <>
bool load<QString>(const std::string& text, QString& value) {
  value = text::fromUtf8(text);
  return true;
}

template <>
std::string save<QString>(const QString& value) {
  return text::toUtf8(value);
}

}  // namespace Serial

}  // namespace KR
