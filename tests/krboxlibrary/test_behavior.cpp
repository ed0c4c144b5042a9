#include "library_fixtures.h"

namespace {

const std::string kOnLoad =
    R"(<Input name="onLoad" type="1" type_size="1" nature="0" inner="1" tooltip="Loaded." id="1"/>)";
const std::string kOnStart =
    R"(<Input name="onStart" type="1" type_size="1" nature="2" inner="0" tooltip="Starts." id="2"/>)";
const std::string kOnStop =
    R"(<Input name="onStop" type="1" type_size="1" nature="3" inner="0" tooltip="Stops." id="3"/>)";
const std::string kDone = R"(<Output name="done" type="1" type_size="1" nature="1" id="4"/>)";
const std::string kTimeline =
    R"(<Timeline enable="0" fps="25"><BehaviorLayer name="layer1"><BehaviorKeyframe name="k" index="1"><Diagram/></BehaviorKeyframe></BehaviorLayer></Timeline>)";
const std::string kDecoration =
    R"(<Bitmaps><bitmap>media/stand.png</bitmap></Bitmaps>)"
    R"(<Parameter name="Speed" content_type="1" value="80" id="5"/><Resource name="Legs" type="Lock"/>)";

bool isBehavior(const std::string& children) {
  const KR::XmlElement::Ptr box =
      testutil::parseElement(R"(<Box name="Stand Up" tooltip="Stands up.">)" + children + "</Box>");
  EXPECT_TRUE(box) << children;
  return KR::BoxData::isBehavior(box);
}

TEST(BehaviorTest, StandardInterfaceWithTimelineIsBehavior) {
  EXPECT_TRUE(isBehavior(kDecoration + kOnLoad + kOnStart + kOnStop + kDone + kTimeline));
  // Child order, attribute order, the output's name and repeated inputs do not matter, nor
  // do further outputs beside a standard one.
  EXPECT_TRUE(isBehavior(kTimeline + kDone + kOnStop + kOnLoad +
                         R"(<Input id="9" nature="2" type_size="1" type="1" name="onStart"/>)"));
  EXPECT_TRUE(isBehavior(kOnLoad + kOnLoad + kOnStart + kOnStop + kDone + kTimeline));
  EXPECT_TRUE(isBehavior(kOnLoad + kOnStart + kOnStop + kTimeline + kDone +
                         R"(<Output name="failed" type="0" type_size="1" nature="2"/>)"));
}

TEST(BehaviorTest, NearMissesAreNotBehaviors) {
  const std::string inputs = kOnLoad + kOnStart + kOnStop;
  const struct {
    const char* why;
    std::string children;
  } cases[] = {
      {"no children", ""},
      {"no timeline", kDecoration + inputs + kDone},
      {"timeline only below a child", inputs + kDone + "<Diagram>" + kTimeline + "</Diagram>"},
      {"a fourth input", inputs + kDone + kTimeline + R"(<Input name="color" type="2"/>)"},
      {"a fourth input without a name", inputs + kDone + kTimeline + "<Input/>"},
      {"onStop missing", kOnLoad + kOnStart + kDone + kTimeline},
      {"only output has nature 2",
       inputs + kTimeline + R"(<Output name="done" type="1" type_size="1" nature="2"/>)"},
      {"no output", inputs + kTimeline},
      {"input without nature",
       kOnLoad + kOnStart + R"(<Input name="onStop" type="1" type_size="1"/>)" + kDone + kTimeline},
      {"number with a leading zero",
       kOnLoad + kOnStart + R"(<Input name="onStop" type="01" type_size="1" nature="3"/>)" + kDone +
           kTimeline},
      {"input in other letter case",
       kOnLoad + kOnStop + R"(<input name="onStart" type="1" type_size="1" nature="2"/>)" + kDone +
           kTimeline},
      {"interface nested in a diagram", "<Diagram>" + inputs + kDone + "</Diagram>" + kTimeline},
  };
  for (const auto& c : cases)
    EXPECT_FALSE(isBehavior(c.children)) << c.why;
  EXPECT_FALSE(KR::BoxData::isBehavior(KR::XmlElement::ConstPtr()));
}

}  // namespace
