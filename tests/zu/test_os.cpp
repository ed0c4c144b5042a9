#include <zu/os.h>

#include "test_files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(Os, FopenTakesUtf8PathsAndFailsCleanly) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const QString path = dir.filePath(QString::fromUtf8("d\xC3\xA9j\xC3\xA0 vu \xE6\x97\xA5.bxd"));
  FILE* file = zu::os::fopen(path.toUtf8().constData(), "wb");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(std::fputs("<x/>", file), 1);
  ASSERT_EQ(std::fclose(file), 0);
  EXPECT_EQ(testutil::readDiskFile(path), QByteArray("<x/>"));

  EXPECT_EQ(zu::os::fopen(dir.filePath("missing").toUtf8().constData(), "rb"), nullptr);
  EXPECT_EQ(zu::os::fopen(nullptr, "rb"), nullptr);
  EXPECT_EQ(zu::os::fopen("", "rb"), nullptr);
}

}  // namespace
