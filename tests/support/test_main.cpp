#include <QCoreApplication>

#include <gtest/gtest.h>

// Every test runs inside a QCoreApplication, as the library does in the authoring tool.
int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
