#include "xml_test_helpers.h"

#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

namespace {

using namespace xmltest;

TEST(XmlFile, RealFilesAreWrittenAndReadFromTheCurrentPosition) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const std::string path = QFile::encodeName(dir.filePath("box.xml")).toStdString();
  const XmlDocument document(parse(kBoxDocument));
  const std::string text = document.saveToXmlString();
  std::string error;
  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  std::fputs("<junk/>", out);
  EXPECT_TRUE(document.saveToXmlFile(out, &error, nullptr)) << error;
  std::fclose(out);

  FILE* in = std::fopen(path.c_str(), "rb");
  ASSERT_TRUE(in);
  std::fseek(in, 7, SEEK_SET);
  XmlDocument::Ptr back = XmlDocument::loadFromXmlFile(in, &error, nullptr);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(text, back->saveToXmlString());
  // Every way a file cannot be read or written fails and says why.
  FILE* full = std::fopen("/dev/full", "wb");
  ASSERT_TRUE(full);
  out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  const std::function<bool()> failing[] = {
      [&] { return document.saveToXmlFile(in, &error, nullptr); },
      [&] { return bool(XmlDocument::loadFromXmlFile(out, &error, nullptr)); },
      [&] { return XmlDocument().saveToXmlFile(out, &error, nullptr); },
      [&] { return bool(XmlDocument::loadFromXmlFile(nullptr, &error, nullptr)); },
      [&] { return document.saveToXmlFile(nullptr, &error, nullptr); },
      [&] { return document.saveToXmlFile(full, &error, nullptr); }};
  for (const auto& attempt : failing) {
    error.clear();
    EXPECT_FALSE(attempt());
    EXPECT_FALSE(error.empty());
  }
  std::fclose(in);
  std::fclose(out);
  std::fclose(full);
}

}  // namespace
