#include "fuzz_support.h"

#include <krserial/xml_document.h>

// Any text: a document read from it must write out as text that reads back. Text of
// blanks only between elements is not read, so the written form is stable from its
// second writing on.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string error, context;
  const KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(text, &error, &context);
  if (!document) {
    FUZZ_CHECK(!error.empty());
    return 0;
  }
  const std::string saved = document->saveToXmlString();
  const KR::XmlDocument::Ptr again = KR::XmlDocument::loadFromXmlString(saved, &error, &context);
  FUZZ_CHECK(again);
  const std::string stable = again->saveToXmlString();
  const KR::XmlDocument::Ptr third = KR::XmlDocument::loadFromXmlString(stable, &error, &context);
  FUZZ_CHECK(third && third->saveToXmlString() == stable);
  if (const KR::XmlElement::Ptr root = document->root())
    FUZZ_CHECK(KR::XmlDocument(root->clone()).saveToXmlString() == saved);
  return 0;
}
