#include "xml_test_helpers.h"

namespace {

using namespace xmltest;

TEST(XmlHostile, MalformedDocumentsAreRejectedWithWhereAndWhy) {
  const struct {
    std::string xml;
    const char* where;
  } cases[] = {
      {"<a>\n  <b>\n</a>", "line 3"},
      {"<a>\n<b></c></a>", "line 2, column 6"},
      {"<a><b>text", "line 1, column 10"},
      {"", "line 1, column 1"},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", "line 2"},
      {"<a/>\n<b/>", "line 2, column 1"},
      {std::string("<a/>\n\0junk", 10), "line 2, column 1"},
      {std::string("<a>x\0y</a>", 10), "column 5"},
      {"<ünï>\n  <日本>x</本日>", "line 2, column 10"},
  };
  for (const auto& c : cases) {
    std::string error, context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(c.xml, &error, &context)) << c.xml;
    EXPECT_FALSE(error.empty()) << c.xml;
    EXPECT_NE(std::string::npos, context.find(c.where)) << c.xml << " -> " << context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(c.xml, nullptr, nullptr)) << c.xml;
  }
  // Not malformed: UTF-16 with its byte order mark is read as such.
  XmlElement::Ptr utf16 = parse(std::string("\xff\xfe<\0a\0/\0>\0", 10));
  ASSERT_TRUE(utf16);
  EXPECT_EQ("a", utf16->name());
}

TEST(XmlHostile, NestingIsAcceptedUpToTheLimitAndRefusedBeyond) {
  const int limit = XmlDocument::maxDepth();
  ASSERT_EQ(1024, limit);
  XmlElement::Ptr atLimit = parse(nested(limit));
  ASSERT_TRUE(atLimit);
  int depth = 0;
  for (XmlElement::Ptr e = atLimit; e; e = e->firstChild("e"))
    ++depth;
  EXPECT_EQ(limit, depth);
  // Written back, it must still be readable.
  EXPECT_TRUE(parse(XmlDocument(atLimit).saveToXmlString()));

  for (int tooDeep : {limit + 1, 100000}) {
    std::string error, context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(nested(tooDeep), &error, &context));
    EXPECT_NE(std::string::npos, error.find("1024")) << error;
    EXPECT_NE(std::string::npos, context.find("column " + std::to_string(3 * limit + 1)))
        << context;
  }
}

TEST(XmlHostile, DeclaredEntitiesAreNeverExpanded) {
  std::string xml = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol \"lol\">\n";
  for (int i = 1; i <= 9; ++i) {
    xml += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j)
      xml += "&lol" + (i > 1 ? std::to_string(i - 1) : std::string()) + ";";
    xml += "\">\n";
  }
  xml += "]>\n<lolz a=\"&lol9;\">&lol9;</lolz>";
  std::string error;
  XmlDocument::Ptr document = XmlDocument::loadFromXmlString(xml, &error, nullptr);
  if (document) {
    EXPECT_EQ("&lol9;", document->root()->text());
    EXPECT_EQ("&lol9;", document->root()->attribute("a", ""));
    EXPECT_LT(document->saveToXmlString().size(), 200u);
  } else {
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
