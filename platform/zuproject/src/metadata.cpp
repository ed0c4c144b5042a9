#include <zu/project/metadata.h>

#include <zu/project/exceptions.h>

#include "metadata_file.h"
#include "paths.h"

#include <krserial/xml_document.h>

#include <cstdio>

namespace zu {
namespace project {

namespace detail {

namespace {
const char* const kRoot = "Metadata";
const char* const kEntry = "Entry";
}  // namespace

KR::XmlElement::Ptr parseMetadataRoot(const std::string& text) {
  KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(text, nullptr, nullptr);
  if (document && document->root() && document->root()->name() == kRoot)
    return document->root();
  return KR::XmlElement::Ptr(new KR::XmlElement(kRoot));
}

KR::XmlElement::Ptr readMetadataFile(const std::string& path) {
  std::string text;
  if (FILE* file = std::fopen(path.c_str(), "rb")) {
    char buffer[16 * 1024];
    size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0)
      text.append(buffer, count);
    std::fclose(file);
  }
  return parseMetadataRoot(text);
}

void editMetadataFile(const Project& project,
                      const std::function<bool(const KR::XmlElement::Ptr& root)>& edit) {
  std::error_code error;
  if (project.directory().empty() || !fs::is_directory(project.directory(), error))
    throw PathNotFound(project.directory());
  const KR::XmlElement::Ptr root = readMetadataFile(project.metadataPath());
  if (edit(root))
    writeFileAtomically(fs::path(project.metadataPath()), KR::XmlDocument(root).saveToXmlString());
}

KR::XmlElement::Ptr findEntry(const KR::XmlElement::Ptr& root, const std::string& key) {
  for (const KR::XmlElement::Ptr& entry : root->children(kEntry)) {
    if (entry->hasAttribute("key") && entry->attribute("key", "") == key)
      return entry;
  }
  return KR::XmlElement::Ptr();
}

QString entryValue(const KR::XmlElement::Ptr& root, const QString& key) {
  const KR::XmlElement::Ptr entry = findEntry(root, toUtf8(key));
  return entry ? QString::fromStdString(entry->attribute("value", "")) : QString("");
}

bool setEntry(const KR::XmlElement::Ptr& root, const QString& key, const QString& value) {
  const std::string keyText = toUtf8(key);
  KR::XmlElement::Ptr entry = findEntry(root, keyText);
  const std::string valueText = toUtf8(value);
  // Rewriting a value it already has would only cost a write.
  if (entry && entry->hasAttribute("value") && entry->attribute("value", "") == valueText)
    return false;
  if (!entry) {
    entry.reset(new KR::XmlElement(kEntry));
    entry->setAttribute("key", keyText, true);
    root->addChild(entry);
  }
  entry->setAttribute("value", valueText, false);
  return true;
}

}  // namespace detail

std::string serializeMetadata(const std::map<std::string, std::string>& entries) {
  KR::XmlElement::Ptr root(new KR::XmlElement(detail::kRoot));
  for (const auto& item : entries) {
    KR::XmlElement::Ptr entry(new KR::XmlElement(detail::kEntry));
    entry->setAttribute("key", item.first, true);
    entry->setAttribute("value", item.second, true);
    root->addChild(entry);
  }
  return KR::XmlDocument(root).saveToXmlString();
}

std::map<std::string, std::string> parseMetadata(const std::string& text) {
  std::map<std::string, std::string> entries;
  const KR::XmlElement::Ptr root = detail::parseMetadataRoot(text);
  for (const KR::XmlElement::Ptr& entry : root->children(detail::kEntry)) {
    if (entry->hasAttribute("key"))
      entries[entry->attribute("key", "")] = entry->attribute("value", "");
  }
  return entries;
}

}  // namespace project
}  // namespace zu
