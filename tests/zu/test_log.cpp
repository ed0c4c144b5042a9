#include <zu/log.h>

#include "test_files.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

TEST(Log, RecordsCarryEveryFieldToEveryHandlerAndStreamsSendOneWhenDestroyed) {
  testutil::LogCapture first;
  std::vector<zu::log::Record> second;
  const unsigned id = zu::log::addHandler([&](const zu::log::Record& r) { second.push_back(r); });
  zu::log::log(zu::log::LogLevel_Warning, "krboxlibrary", "Could not load", "f.cpp", "Open", 12);
  zu::log::removeHandler(id);
  zu::log::log(zu::log::LogLevel_Info, nullptr, nullptr, nullptr, nullptr, 3);
  {
    zu::log::LogStream stream(zu::log::LogLevel_Error, "krboxlibrary", "", "saveAll", 0);
    stream << "Could not save node " << std::string("Tools/Walk") << ", reason: " << 42;
    EXPECT_EQ(first.records().size(), 2u) << "nothing is sent before the stream ends";
  }
  ASSERT_EQ(second.size(), 1u);
  ASSERT_EQ(first.records().size(), 3u);
  auto fields = [](const zu::log::Record& r) {
    return std::make_tuple(r.level, r.category, r.message, r.file, r.function, r.line);
  };
  EXPECT_EQ(fields(second[0]), fields(first.records()[0]));
  EXPECT_EQ(fields(second[0]), std::make_tuple(zu::log::LogLevel_Warning, "krboxlibrary",
                                               "Could not load", "f.cpp", "Open", 12));
  // Null arguments become empty strings.
  EXPECT_EQ(fields(first.records()[1]), std::make_tuple(zu::log::LogLevel_Info, "", "", "", "", 3));
  EXPECT_EQ(fields(first.records()[2]),
            std::make_tuple(zu::log::LogLevel_Error, "krboxlibrary",
                            "Could not save node Tools/Walk, reason: 42", "", "saveAll", 0));
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
