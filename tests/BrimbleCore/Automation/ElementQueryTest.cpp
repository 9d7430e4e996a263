#include "BrimbleCore/Automation/ElementQuery.h"

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "tests/Support/ErrorText.h"

namespace brimble {
namespace {

TEST(ElementQuery, ParsesTheThreeKindsAndRefusesEmptyOnes) {
  const ElementQuery role = ElementQuery::parse("role:AXButton/ OK ");
  EXPECT_EQ(role.kind, ElementQuery::Kind::role);
  EXPECT_EQ(role.value, "push button");
  EXPECT_EQ(role.title, "OK");
  EXPECT_EQ(ElementQuery::parse("role:Entry").value, "entry");
  EXPECT_EQ(ElementQuery::parse("role:AXTextField").value, "entry");
  EXPECT_EQ(ElementQuery::parse("css:#go").kind, ElementQuery::Kind::css);
  const ElementQuery bare = ElementQuery::parse("Save as…");
  EXPECT_EQ(bare.kind, ElementQuery::Kind::text);
  EXPECT_EQ(bare.value, "Save as…");

  EXPECT_EQ(testing::errorText<DemoDriverError>([] { ElementQuery::parse("text:"); }),
            "Invalid target: text: requires a value");
  EXPECT_EQ(testing::errorText<DemoDriverError>([] { ElementQuery::parse("css: "); }),
            "Invalid target: css: requires a value");
  EXPECT_EQ(testing::errorText<DemoDriverError>([] { ElementQuery::parse("role:/OK"); }),
            "Invalid target: role: requires a non-empty AX role name");
}

TEST(ElementQuery, MatchesTextAnywhereAndRolesWithTheirTitleIgnoringCaseAndMnemonics) {
  const ElementQuery text = ElementQuery::parse("text:ok");
  EXPECT_TRUE(text.matches("push button", "_OK", ""));
  EXPECT_TRUE(text.matches("label", "", "Look here"));
  EXPECT_FALSE(text.matches("push button", "Cancel", ""));
  const ElementQuery button = ElementQuery::parse("role:AXButton/Cancel");
  EXPECT_TRUE(button.matches("push button", "_Cancel", ""));
  EXPECT_FALSE(button.matches("push button", "Cancel all", ""));
  EXPECT_FALSE(button.matches("toggle button", "Cancel", ""));
  EXPECT_TRUE(ElementQuery::parse("role:entry").matches("Entry", "", "anything"));
  // Toolkits' own name for a one-line field still finds it; an entry is no multi-line text.
  EXPECT_TRUE(ElementQuery::parse("role:text/Name").matches("entry", "Name", ""));
  EXPECT_FALSE(ElementQuery::parse("role:entry").matches("text", "Notes", ""));
  EXPECT_FALSE(ElementQuery::parse("css:#a").matches("push button", "#a", "#a"));
}

TEST(ElementQuery, ANumberInBracketsAtTheEndPicksOneOfTheMatches) {
  const ElementQuery second = ElementQuery::parse("role:check box/Bold[2]");
  EXPECT_EQ(second.title, "Bold");
  EXPECT_EQ(second.index, 2);
  EXPECT_EQ(ElementQuery::parse("text:Save[10]").value, "Save");
  EXPECT_EQ(ElementQuery::parse("role:entry[3]").value, "entry");
  // Brackets that hold no number are part of the text, and CSS keeps its own.
  EXPECT_EQ(ElementQuery::parse("text:Page [two]").value, "Page [two]");
  EXPECT_FALSE(ElementQuery::parse("text:Page [two]").index);
  EXPECT_FALSE(ElementQuery::parse("css:li[2]").index);
  EXPECT_EQ(ElementQuery::parse("css:li[2]").value, "li[2]");
  EXPECT_EQ(testing::errorText<DemoDriverError>([] { ElementQuery::parse("text:OK[0]"); }),
            "Invalid target: text:OK[0]: elements are counted from 1, as [1]");
  // A number in brackets alone leaves no text to look for.
  EXPECT_EQ(testing::errorText<DemoDriverError>([] { ElementQuery::parse("text:[2]"); }),
            "Invalid target: text: requires a value");
}

}  // namespace
}  // namespace brimble
