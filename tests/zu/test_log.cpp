#include <zu/log.h>

#include "test_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(Log, RecordCarriesEveryFieldToEveryHandler) {
  testutil::LogCapture first;
  std::vector<zu::log::Record> second;
  const unsigned id = zu::log::addHandler([&](const zu::log::Record& r) { second.push_back(r); });
  zu::log::log(zu::log::LogLevel_Warning, "krboxlibrary", "Could not load", "", "BoxLibrary", 0);
  zu::log::removeHandler(id);
  zu::log::log(zu::log::LogLevel_Error, "other", "after removal", "f.cpp", "g", 12);

  ASSERT_EQ(first.records().size(), 2u);
  ASSERT_EQ(second.size(), 1u);
  const zu::log::Record& r = second.front();
  EXPECT_EQ(r.level, zu::log::LogLevel_Warning);
  EXPECT_EQ(r.category, "krboxlibrary");
  EXPECT_EQ(r.message, "Could not load");
  EXPECT_EQ(r.file, "");
  EXPECT_EQ(r.function, "BoxLibrary");
  EXPECT_EQ(r.line, 0);
  EXPECT_EQ(first.records()[1].file, "f.cpp");
  EXPECT_EQ(first.records()[1].line, 12);
}

TEST(Log, NullArgumentsBecomeEmptyStrings) {
  testutil::LogCapture capture;
  zu::log::log(zu::log::LogLevel_Info, nullptr, nullptr, nullptr, nullptr, 3);
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].category, "");
  EXPECT_EQ(capture.records()[0].message, "");
  EXPECT_EQ(capture.records()[0].function, "");
}

TEST(Log, StreamSendsOneRecordWhenDestroyed) {
  testutil::LogCapture capture;
  {
    zu::log::LogStream stream(zu::log::LogLevel_Error, "krboxlibrary", "", "saveAll", 0);
    stream << "Could not save node " << std::string("Tools/Walk") << ", reason: " << 42;
    EXPECT_TRUE(capture.records().empty()) << "nothing is sent before the stream ends";
  }
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].message, "Could not save node Tools/Walk, reason: 42");
  EXPECT_EQ(capture.records()[0].level, zu::log::LogLevel_Error);
  EXPECT_EQ(capture.records()[0].function, "saveAll");
}

TEST(Log, HandlerMayRemoveItselfWhileBeingCalled) {
  testutil::LogCapture capture;
  int calls = 0;
  unsigned id = 0;
  id = zu::log::addHandler([&](const zu::log::Record&) {
    ++calls;
    zu::log::removeHandler(id);
  });
  zu::log::log(zu::log::LogLevel_Info, "c", "one", "", "", 0);
  zu::log::log(zu::log::LogLevel_Info, "c", "two", "", "", 0);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(capture.records().size(), 2u);
}

TEST(Log, DefaultHandlerWritesOneLineToStderrUnlessDisabled) {
  const bool wasEnabled = zu::log::isDefaultHandlerEnabled();
  zu::log::setDefaultHandlerEnabled(true);
  testing::internal::CaptureStderr();
  zu::log::log(zu::log::LogLevel_Warning, "krboxlibrary", "shown", "", "BoxLibrary", 0);
  zu::log::log(zu::log::LogLevel_Debug, "krboxlibrary", "too verbose", "", "f", 0);
  zu::log::setDefaultHandlerEnabled(false);
  zu::log::log(zu::log::LogLevel_Error, "krboxlibrary", "hidden", "", "f", 0);
  const std::string out = testing::internal::GetCapturedStderr();
  zu::log::setDefaultHandlerEnabled(wasEnabled);

  EXPECT_EQ(out, "[warning] krboxlibrary: shown (in BoxLibrary)\n");
}

}  // namespace
