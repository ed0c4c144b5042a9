#ifndef KRSERIAL_XML_TEST_HELPERS_H
#define KRSERIAL_XML_TEST_HELPERS_H

#include <gtest/gtest.h>
#include <krserial/xml_document.h>
#include <krserial/xml_text.h>

#include <boost/make_shared.hpp>
#include <string>

namespace xmltest {

using KR::XmlDocument;
using KR::XmlElement;

/// A realistic box file: comments, CDATA script, escapes, non-ASCII text, mixed content.
extern const char kBoxDocument[];

/// An element and everything below it on one line, kinds marked (Text, Cdata, coMment),
/// so that any difference in content or order shows.
std::string dump(const KR::XmlElement& element);
/// The root of a document that must parse (a test failure otherwise).
KR::XmlElement::Ptr parse(const std::string& xml);
/// part, count times.
std::string repeated(const std::string& part, int count);
/// Elements nested depth levels deep.
std::string nested(int depth);

}  // namespace xmltest

#endif
