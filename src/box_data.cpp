#include <krboxlibrary/box_data.h>

#include <krserial/xml_element.h>

#include "box_values.h"
#include "refusal.h"
#include "text.h"
#include "tooltip_tags.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <vector>

namespace KR {

namespace {

using vocabulary::kBitmapElement;
using vocabulary::kBitmapExpandedAttribute;
using vocabulary::kBitmapsElement;
using vocabulary::kNameAttribute;
using vocabulary::kTooltipAttribute;

}  // namespace

BoxData::BoxData(BoxLibraryNode* node, boost::shared_ptr<const XmlElement> box)
    : QObject(node), m_node(node) {
  if (!box) {
    refusal::warn("BoxData", "Refused an empty box element: the box has no values");
    return;
  }
  take(boxfile::values(*box));
}

BoxData::BoxData(BoxLibraryNode* node, const BoxValues& values) : QObject(node), m_node(node) {
  take(values);
}

void BoxData::take(const BoxValues& values) {
  m_tooltip = values.tooltip;
  m_bitmaps = values.bitmaps;
  m_bitmapExpanded = values.bitmapExpanded;
  m_behavior = values.behavior;
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
  if (const XmlElement::Ptr box = load()) {
    box->setAttribute(kNameAttribute, name, false);
    save(box);
  }
}

std::string BoxData::writeChange(const std::function<void(XmlElement&)>& change) {
  // Without a node or a project there is nowhere to write, which is no failure.
  if (!m_node || !m_node->project())
    return std::string();
  const XmlElement::Ptr box = m_node->loadBox();
  if (!box)
    return "its box file is missing or cannot be read";
  change(*box);
  QString file;
  return m_node->writeBox(box, m_behavior, file);
}

std::string BoxData::writeTooltip(const QString& tooltip) {
  return writeChange(
      [&](XmlElement& box) { box.setAttribute(kTooltipAttribute, Serial::save(tooltip), false); });
}

std::string BoxData::writeBitmaps(const QList<QString>& bitmaps) {
  return writeChange([&](XmlElement& box) {
    box.removeChildren(kBitmapElement, kBitmapsElement);
    std::vector<XmlElement::Ptr> elements;
    elements.reserve(static_cast<size_t>(bitmaps.size()));
    for (const QString& bitmap : bitmaps) {
      auto element = boost::make_shared<XmlElement>(kBitmapElement);
      element->setText(text::toUtf8(bitmap), false);
      elements.push_back(element);
    }
    box.addChildren(elements, kBitmapsElement);
  });
}

std::string BoxData::writeBitmapExpanded(bool expanded) {
  return writeChange([&](XmlElement& box) {
    box.setAttribute(kBitmapExpandedAttribute, Serial::save(expanded), false);
  });
}

void BoxData::logFailure(const char* function, const std::string& error) const {
  if (!error.empty())
    refusal::writeFailed(function, text::toLatin1(m_node->path()), error);
}

// Each setter writes its single change straight into the box file, so the file never lags
// behind what the panel shows.
void BoxData::setTooltip(const QString& tooltip) {
  if (tooltip == m_tooltip)
    return;
  m_tooltip = tooltip;
  logFailure("setTooltip", writeTooltip(m_tooltip));
  emit tooltipChanged(m_tooltip);
}

void BoxData::setBitmaps(const QList<QString>& bitmaps) {
  if (bitmaps == m_bitmaps)
    return;
  m_bitmaps = bitmaps;
  logFailure("setBitmaps", writeBitmaps(m_bitmaps));
  emit bitmapsChanged(m_bitmaps);
}

void BoxData::setBitmapExpanded(bool expanded) {
  if (expanded == m_bitmapExpanded)
    return;
  m_bitmapExpanded = expanded;
  logFailure("setBitmapExpanded", writeBitmapExpanded(m_bitmapExpanded));
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
