#include <krserial/xml_document.h>

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <string>

namespace {

const char kXml[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<VantorelBox bxd_version=\"5\">\n"
    "  <Box name=\"Ünïcødé 日本語\" id=\"1\">\n"
    "    <!--note-->\n"
    "    <content><![CDATA[a < b]]></content>\n"
    "  </Box>\n"
    "</VantorelBox>\n";

}  // namespace

TEST(XmlFile, RealFilesAreWrittenAndReadFromTheCurrentPosition) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const std::string path = QFile::encodeName(dir.filePath("box.xml")).toStdString();
  KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(kXml, 0, 0);
  ASSERT_TRUE(document);
  EXPECT_EQ(kXml, document->saveToXmlString());

  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  std::fputs("skipped", out);
  std::string error;
  EXPECT_TRUE(document->saveToXmlFile(out, &error, nullptr)) << error;
  std::fclose(out);

  FILE* in = std::fopen(path.c_str(), "rb");
  ASSERT_TRUE(in);
  std::fseek(in, 7, SEEK_SET);
  KR::XmlDocument::Ptr back = KR::XmlDocument::loadFromXmlFile(in, &error, nullptr);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(kXml, back->saveToXmlString());

  // The same handle is read-only: writing to it must fail and say so.
  error.clear();
  EXPECT_FALSE(document->saveToXmlFile(in, &error, nullptr));
  EXPECT_NE(std::string::npos, error.find("cannot write")) << error;
  std::fclose(in);

  out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  error.clear();
  EXPECT_FALSE(KR::XmlDocument::loadFromXmlFile(out, &error, nullptr));
  EXPECT_FALSE(error.empty());
  error.clear();
  EXPECT_FALSE(KR::XmlDocument().saveToXmlFile(out, &error, nullptr));
  EXPECT_FALSE(error.empty());
  std::fclose(out);

  error.clear();
  EXPECT_FALSE(KR::XmlDocument::loadFromXmlFile(nullptr, &error, nullptr));
  EXPECT_FALSE(error.empty());
  error.clear();
  EXPECT_FALSE(document->saveToXmlFile(nullptr, &error, nullptr));
  EXPECT_FALSE(error.empty());
  if (FILE* full = std::fopen("/dev/full", "wb")) {
    error.clear();
    EXPECT_FALSE(document->saveToXmlFile(full, &error, nullptr));
    EXPECT_FALSE(error.empty());
    std::fclose(full);
  }
}
