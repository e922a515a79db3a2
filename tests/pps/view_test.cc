#include <cerrno>
#include <string>
#include <vector>

#include "tests/pps/rules.h"

namespace pps {
namespace {

using Answers = std::vector<std::string>;

class View : public Rules {
 protected:
  Node& apps_ = make_directory("apps");
};

TEST_F(View, ShowsTheObjectsOfItsDirectoryAndNotThoseBelow) {
  Node& below = catalog_.make_directory(apps_, "below", new_metadata(0755, 0, 0));
  put_in(below, "deep", "x::1\n");
  put_in(apps_, "two", "b::2\n[n]c::3\n");
  put_in(apps_, "one", "a::1\n");
  EXPECT_EQ(cat_in(apps_, ".all"), "@one\na::1\n@two\nb::2\n[n]c::3\n");
  EXPECT_EQ(cat_in(below, ".all"), "@deep\nx::1\n");
  EXPECT_EQ(cat(".all"), "");
  EXPECT_EQ(text_size(*tree_.find(apps_, ".all")), cat_in(apps_, ".all").size());
}

TEST_F(View, TakesRightsAndOwnerFromItsDirectory) {
  catalog_.change_metadata(apps_, new_metadata(02751, 7, 8));
  const Metadata shown = shown_metadata(*tree_.find(apps_, ".all"));
  EXPECT_EQ(shown.mode, 0640U);
  EXPECT_EQ(shown.uid, 7U);
  EXPECT_EQ(shown.gid, 8U);
}

TEST_F(View, WakesForChangesNewObjectsAndRemovedOnes) {
  put_in(apps_, "one", "a::1\nb::2\n");
  put_in(apps_, "two", "c::3\n");
  const OpenId whole = open_in(apps_, ".all?wait");
  const OpenId delta = open_in(apps_, ".all?wait,delta");
  const auto read_both = [&] { return read(whole) + read(delta); };
  const std::string both_wait = std::string(WAITS) + WAITS;

  ASSERT_EQ(read_both(), both_wait);
  put_in(apps_, "one", "-a\nb::5\n");
  EXPECT_EQ(answers(), (Answers{"@one\nb::5\n@two\nc::3\n", "@one\n-a\nb::5\n"}));

  ASSERT_EQ(read_both(), both_wait);
  const OpenId made = open_in(apps_, "three");
  EXPECT_EQ(answers(), (Answers{"@one\nb::5\n@three\n@two\nc::3\n", "@three\n"}));

  ASSERT_EQ(read_both(), both_wait);
  publisher_.write(made, "d::1\n");
  EXPECT_EQ(answers(), (Answers{"@one\nb::5\n@three\nd::1\n@two\nc::3\n", "@three\nd::1\n"}));

  ASSERT_EQ(read_both(), both_wait);
  catalog_.remove_object(apps_, "one");
  EXPECT_EQ(answers(), (Answers{"@three\nd::1\n@two\nc::3\n", "-@one\n"}));

  ASSERT_EQ(read_both(), both_wait);
  put_in(apps_, "two", "c::3\n");
  put("elsewhere", "e::1\n");
  EXPECT_EQ(answers(), Answers{});
}

TEST_F(View, GoesOnWaitingWhenItsLastObjectWent) {
  put_in(apps_, "one", "a::1\n");
  const OpenId whole = open_in(apps_, ".all?wait");
  ASSERT_EQ(read(whole), WAITS);
  catalog_.remove_object(apps_, "one");
  EXPECT_EQ(answers(), Answers{}) << "an empty text would be taken for the end";
  put_in(apps_, "two", "b::2\n");
  EXPECT_EQ(answers(), Answers{"@two\n"}) << "it was made before it was written";
}

TEST_F(View, EndsWithItsDirectory) {
  const OpenId whole = open_in(apps_, ".all?wait");
  ASSERT_EQ(read(whole), WAITS);
  catalog_.remove_directory(tree_.root(), "apps");
  EXPECT_EQ(answers(), Answers{""});
  EXPECT_EQ(error_of([&] { publisher_.write(whole, "a::1\n"); }), ENOENT);
  publisher_.close(whole);
  EXPECT_EQ(tree_.size(), 1U);
}

TEST_F(View, ForgetsRemovedObjectsThatNobodyWillAskFor) {
  for (int i = 0; i < 10; ++i) {
    put_in(apps_, "one", "a::1\n");
    catalog_.remove_object(apps_, "one");
  }
  EXPECT_TRUE(apps_.removed.empty());
  const OpenId delta = open_in(apps_, ".all?wait,delta");
  for (int i = 0; i < 10; ++i) {
    put_in(apps_, "n" + std::to_string(i), "a::1\n");
    catalog_.remove_object(apps_, "n" + std::to_string(i));
  }
  EXPECT_EQ(apps_.removed.size(), 10U);
  EXPECT_EQ(read(delta).substr(0, 10), "-@n0\n-@n1\n");
  EXPECT_TRUE(apps_.removed.empty());
}

TEST_F(View, BecomesAnObjectWhenAnAttributeIsWritten) {
  put_in(apps_, "one", "a::1\n");
  put_in(apps_, ".all", "-x\n");
  EXPECT_EQ(cat_in(apps_, ".all"), "@one\na::1\n");
  const OpenId reader = open_in(apps_, ".all?wait,delta");
  ASSERT_EQ(read(reader), WAITS);
  put_in(apps_, ".all", "app1::/apps/app1,1.0,\n");
  EXPECT_EQ(answers(), Answers{"@.all\napp1::/apps/app1,1.0,\n"});
  EXPECT_EQ(cat_in(apps_, ".all"), "@.all\napp1::/apps/app1,1.0,\n");
  EXPECT_TRUE(apps_.children.contains(".all"));

  ASSERT_EQ(read(reader), WAITS);
  put_in(apps_, "one", "a::2\n");
  EXPECT_EQ(answers(), Answers{}) << "it shows its own attributes now";

  catalog_.remove_object(apps_, ".all");
  EXPECT_EQ(answers(), Answers{""});
  EXPECT_EQ(cat_in(apps_, ".all"), "@one\na::2\n");
}

TEST_F(View, CannotBeMadeRemovedOrChanged) {
  const Metadata any = new_metadata(0644, 0, 0);
  EXPECT_EQ(error_of([&] { catalog_.make_object(apps_, ".all", any); }), EEXIST);
  EXPECT_EQ(error_of([&] { catalog_.make_directory(apps_, ".all", any); }), EEXIST);
  EXPECT_EQ(error_of([&] { catalog_.remove_object(apps_, ".all"); }), EPERM);
  EXPECT_EQ(error_of([&] { catalog_.change_metadata(*tree_.find(apps_, ".all"), any); }), EPERM);
  EXPECT_EQ(error_of([&] { catalog_.remove_directory(tree_.root(), "apps"); }), 0)
      << "it does not fill a directory";
}

}  // namespace
}  // namespace pps
