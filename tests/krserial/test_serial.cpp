#include "xml_test_helpers.h"

#include <krserial/serial.h>

#include <climits>

TEST(Serial, IntIsASignAndDecimalDigitsWithinRange) {
  const std::pair<std::string, int> good[] = {{"0", 0},
                                              {"-0", 0},
                                              {"+5", 5},
                                              {"-17", -17},
                                              {"2147483647", INT_MAX},
                                              {"-2147483648", INT_MIN},
                                              {"007", 7},
                                              {"+00000000002147483647", INT_MAX}};
  for (const auto& c : good) {
    int value = 42;
    EXPECT_TRUE(KR::Serial::load(c.first, value) && value == c.second) << c.first;
    EXPECT_EQ(c.second, KR::Serial::load(KR::Serial::save(c.second), value) ? value : 42);
  }
  for (const char* bad : {"", "+", "-", " 5", "5 ", "1e3", "0x10", "5.0", "+-5", "--5",
                          "2147483648", "-2147483649", "99999999999999999999"}) {
    int value = 42;
    EXPECT_FALSE(KR::Serial::load(std::string(bad), value)) << bad;
    EXPECT_EQ(42, value) << bad;
  }
}

TEST(Serial, BoolWritesWordsAndReadsExactlyFourSpellings) {
  EXPECT_EQ("true", KR::Serial::save(true));
  EXPECT_EQ("false", KR::Serial::save(false));
  for (const char* text : {"true", "1", "false", "0"}) {
    bool value = text[0] == 'f' || text[0] == '0';
    EXPECT_TRUE(KR::Serial::load(std::string(text), value)) << text;
    EXPECT_EQ(text[0] == 't' || text[0] == '1', value) << text;
  }
  for (const char* text : {"True", "FALSE", "yes", "", " true", "2", "01"}) {
    bool value = true;
    EXPECT_FALSE(KR::Serial::load(std::string(text), value) || !value) << text;
  }
  std::string value;
  EXPECT_TRUE(KR::Serial::load(std::string(" Ünïcødé <&> "), value));
  EXPECT_EQ(" Ünïcødé <&> ", KR::Serial::save(value));
}
