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

}  // namespace
}  // namespace brimble
