#include "device/pps/publisher.h"

#include <cerrno>
#include <string>
#include <vector>

#include "tests/pps/rules.h"

namespace pps {
namespace {

using Answers = std::vector<std::string>;

class Reading : public Rules {};
class Waiting : public Rules {};
class Writing : public Rules {};

TEST_F(Reading, GivesTheNameLineAndTheAttributesThenTheEnd) {
  put("obj", "a::1\n[n]b::2\n");
  const OpenId reader = open("obj");
  EXPECT_EQ(read(reader), "@obj\na::1\n[n]b::2\n");
  EXPECT_EQ(read(reader), "");
  EXPECT_EQ(read(reader), "");
}

TEST_F(Reading, GivesOneStateInPieces) {
  put("obj", "a::1\n");
  const OpenId reader = open("obj");
  EXPECT_EQ(read(reader, 3), "@ob");
  put("obj", "a::2\nb::3\n");
  EXPECT_EQ(read(reader, 3), "j\na");
  EXPECT_EQ(read(reader), "::1\n");
  EXPECT_EQ(read(reader), "") << "the end of the text that was begun";
  EXPECT_EQ(read(reader), "@obj\na::2\nb::3\n");
  EXPECT_EQ(read(reader), "");
}

TEST_F(Reading, StartsAnewOnlyForNews) {
  put("obj", "a::1\n");
  const OpenId reader = open("obj");
  EXPECT_EQ(read(reader), "@obj\na::1\n");
  EXPECT_EQ(read(reader), "");
  put("obj", "a::1\n");
  EXPECT_EQ(read(reader), "");
  put("obj", "a::2\n");
  EXPECT_EQ(read(reader), "@obj\na::2\n");
}

TEST_F(Reading, DeltaStartsWholeAndGoesOnWithNews) {
  put("obj", "a::1\nb::2\nc::3\n");
  const OpenId reader = open("obj?delta");
  EXPECT_EQ(read(reader), "@obj\na::1\nb::2\nc::3\n");
  EXPECT_EQ(read(reader), "");
  put("obj", "b::5\n-c\n");
  EXPECT_EQ(read(reader), "@obj\n-c\nb::5\n");
  EXPECT_EQ(read(reader), "");
  EXPECT_EQ(read(reader), "");
}

TEST_F(Waiting, ReadsNothingUntilOthersChangeTheObject) {
  put("obj", "a::1\n");
  const OpenId reader = open("obj?wait");
  EXPECT_EQ(read(reader), WAITS);
  EXPECT_EQ(answers(), Answers{});
  put("obj", "b::2\n");
  EXPECT_EQ(answers(), Answers{"@obj\na::1\nb::2\n"});
  EXPECT_EQ(read(reader), WAITS);
  put("obj", "-a\n");
  EXPECT_EQ(answers(), Answers{"@obj\nb::2\n"});
}

TEST_F(Waiting, TakesAChangeMadeBeforeTheFirstReadAtOnce) {
  put("obj", "a::1\n");
  const OpenId reader = open("obj?wait,delta");
  put("obj", "b::2\n");
  EXPECT_EQ(read(reader), "@obj\nb::2\n");
  EXPECT_EQ(read(reader), WAITS);
}

TEST_F(Waiting, IsNotAnsweredWithItsOwnWords) {
  const OpenId client = open("request?wait,delta");
  publisher_.write(client, "action::query\npackage_path::/apps/x\n");
  EXPECT_EQ(read(client), WAITS);
  put("request", "actual_gid::1001\n");
  EXPECT_EQ(answers(), Answers{"@request\nactual_gid::1001\n"});
  publisher_.write(client, "more::1\n");
  EXPECT_EQ(read(client), WAITS);
  put("request", "more::2\nresult::0\n");
  EXPECT_EQ(answers(), Answers{"@request\nmore::2\nresult::0\n"});
}

TEST_F(Waiting, IsNotHandedItsOwnWordsBesideThoseOfOthers) {
  const OpenId client = open("request?wait,delta");
  publisher_.write(client, "first::1\n");
  put("request", "state::busy\n");
  publisher_.write(client, "second::2\n");
  EXPECT_EQ(read(client), "@request\nstate::busy\n");
}

TEST_F(Waiting, HearsTheLastOfSeveralChangesOnce) {
  const OpenId reader = open("obj?wait,delta");
  put("obj", "a::1\n");
  put("obj", "a::2\n");
  put("obj", "a::3\nb::1\n");
  put("obj", "-b\n");
  EXPECT_EQ(read(reader), "@obj\n-b\na::3\n");
  EXPECT_EQ(read(reader), WAITS);
}

TEST_F(Waiting, GoesOnWithTheRestOfATextThatDidNotFit) {
  const OpenId reader = open("obj?wait,delta");
  EXPECT_EQ(read(reader, 6), WAITS);
  put("obj", "a::1\n");
  EXPECT_EQ(answers(), Answers{"@obj\na"});
  put("obj", "b::2\n");
  EXPECT_EQ(read(reader, 100), "::1\n");
  EXPECT_EQ(read(reader, 100), "@obj\nb::2\n");
}

TEST_F(Waiting, IsNotWokenByAWriteThatChangesNothing) {
  put("obj", "a::1\n");
  const OpenId reader = open("obj?wait");
  EXPECT_EQ(read(reader), WAITS);
  for (const char* text : {"a::1\n", "-b\n", "@obj\n", "\n\n", ""}) put("obj", text);
  EXPECT_EQ(answers(), Answers{});
}

TEST_F(Waiting, WakesEveryReader) {
  const OpenId first = open("obj?wait");
  const OpenId second = open("obj?wait,delta");
  const OpenId other = open("other?wait");
  EXPECT_EQ(read(first), WAITS);
  EXPECT_EQ(read(second), WAITS);
  EXPECT_EQ(read(other), WAITS);
  put("obj", "a::1\n");
  EXPECT_EQ(answers(), (Answers{"@obj\na::1\n", "@obj\na::1\n"}));
}

TEST_F(Waiting, AnswersTwoReadsOfOneOpeningOneAfterTheOther) {
  const OpenId reader = open("obj?wait,delta");
  EXPECT_EQ(read(reader), WAITS);
  EXPECT_EQ(read(reader), WAITS);
  put("obj", "a::1\n");
  EXPECT_EQ(answers(), Answers{"@obj\na::1\n"});
  put("obj", "a::2\n");
  EXPECT_EQ(answers(), Answers{"@obj\na::2\n"});
}

TEST_F(Waiting, EndsWhenTheObjectIsRemoved) {
  const OpenId reader = open("obj?wait");
  EXPECT_EQ(read(reader), WAITS);
  catalog_.remove_object(tree_.root(), "obj");
  EXPECT_EQ(answers(), Answers{""});
  EXPECT_EQ(read(reader), "");
}

TEST_F(Waiting, HearsTheLastNewsBeforeTheEnd) {
  const OpenId reader = open("obj?wait,delta");
  put("obj", "a::1\n");
  catalog_.remove_object(tree_.root(), "obj");
  EXPECT_EQ(read(reader), "@obj\na::1\n");
  EXPECT_EQ(read(reader), "");
}

TEST_F(Waiting, IsRefusedWhereItMayNotWait) {
  const OpenId reader = open("obj?wait");
  int token = 0;
  const auto try_read = [&] {
    return std::string(publisher_.read(reader, 100, Publisher::Patience::refuse, &token).value_or(WAITS));
  };
  EXPECT_EQ(error_of(try_read), EAGAIN);
  put("obj", "a::1\n");
  EXPECT_EQ(try_read(), "@obj\na::1\n");
  EXPECT_EQ(error_of(try_read), EAGAIN);
  EXPECT_FALSE(publisher_.cancel(&token)) << "a refused read is not parked";
}

TEST_F(Waiting, IsTakenBackOnce) {
  const OpenId reader = open("obj?wait");
  EXPECT_EQ(read(reader), WAITS);
  EXPECT_TRUE(publisher_.cancel(&tokens_.back()));
  EXPECT_FALSE(publisher_.cancel(&tokens_.back()));
  put("obj", "a::1\n");
  EXPECT_EQ(answers(), Answers{});
  EXPECT_EQ(read(reader), "@obj\na::1\n") << "what a killed read did not get is still news";
  EXPECT_EQ(read(reader), WAITS);
  EXPECT_EQ(publisher_.cancel_all(), std::vector<ReaderToken>{&tokens_.back()});
}

TEST_F(Writing, MergesLinesThatAreSplitOverWrites) {
  const OpenId writer = open("obj");
  for (const char* piece : {"a:", ":1\nb::", "2", "\n", "c::3"}) publisher_.write(writer, piece);
  EXPECT_EQ(cat("obj"), "@obj\na::1\nb::2\n");
  publisher_.flush(writer);
  EXPECT_EQ(cat("obj"), "@obj\na::1\nb::2\nc::3\n");
  publisher_.write(writer, "d::4");
  EXPECT_EQ(read(writer), "@obj\na::1\nb::2\nc::3\nd::4\n") << "who reads has finished its line";
  publisher_.write(writer, "e::5");
  publisher_.close(writer);
  EXPECT_EQ(cat("obj"), "@obj\na::1\nb::2\nc::3\nd::4\ne::5\n");
}

TEST_F(Writing, KeepsUnfinishedLinesOfTwoWritersApart) {
  const OpenId one = open("obj");
  const OpenId two = open("obj");
  publisher_.write(one, "a::");
  publisher_.write(two, "b::");
  publisher_.write(one, "1\n");
  publisher_.write(two, "2\n");
  EXPECT_EQ(cat("obj"), "@obj\na::1\nb::2\n");
}

TEST_F(Writing, RefusesAMalformedLineWithItsWholeWrite) {
  put("obj", "a::1\n");
  const OpenId writer = open("obj");
  EXPECT_EQ(error_of([&] { publisher_.write(writer, "a::2\nnonsense\nb::3\n"); }), EINVAL);
  EXPECT_EQ(cat("obj"), "@obj\na::1\n");
  publisher_.write(writer, "b::3\n");
  EXPECT_EQ(cat("obj"), "@obj\na::1\nb::3\n");
}

TEST_F(Writing, ReportsAMalformedLastLineAtTheFlushOnce) {
  const OpenId writer = open("obj");
  publisher_.write(writer, "a::1\nnonsense");
  EXPECT_EQ(error_of([&] { publisher_.flush(writer); }), EINVAL);
  EXPECT_EQ(error_of([&] { publisher_.flush(writer); }), 0);
  EXPECT_EQ(error_of([&] { publisher_.close(writer); }), 0);
  EXPECT_EQ(cat("obj"), "@obj\na::1\n");
}

TEST_F(Writing, RefusesALineThatNeverEnds) {
  const OpenId writer = open("obj");
  publisher_.write(writer, "a::" + std::string(Publisher::MAX_LINE - 3, 'x'));
  EXPECT_EQ(error_of([&] { publisher_.write(writer, "x"); }), EFBIG);
  publisher_.write(writer, "b::2\n");
  EXPECT_EQ(cat("obj"), "@obj\nb::2\n");
}

TEST_F(Writing, GoesOnInARemovedObjectForThoseWhoHaveItOpen) {
  const OpenId writer = open("obj");
  const OpenId reader = open("obj");
  catalog_.remove_object(tree_.root(), "obj");
  publisher_.write(writer, "a::1\n");
  EXPECT_EQ(read(reader), "@obj\na::1\n");
  put("obj", "b::2\n");
  EXPECT_EQ(cat("obj"), "@obj\nb::2\n") << "the name belongs to a new object";
}

TEST_F(Writing, ForgetsRemovedAttributesThatNobodyWillAskFor) {
  Node& node = catalog_.make_object(tree_.root(), "obj", new_metadata(0666, 0, 0));
  put("obj", "a::1\nb::1\n");
  put("obj", "-a\n");
  EXPECT_FALSE(node.attributes.remembers_removals());
  const OpenId reader = open("obj?wait,delta");
  put("obj", "-b\n");
  EXPECT_TRUE(node.attributes.remembers_removals());
  EXPECT_EQ(read(reader), "@obj\n-b\n");
  EXPECT_FALSE(node.attributes.remembers_removals());
  put("obj", "c::1\n");
  put("obj", "-c\n");
  EXPECT_TRUE(node.attributes.remembers_removals());
  publisher_.close(reader);
  EXPECT_FALSE(node.attributes.remembers_removals());
}

}  // namespace
}  // namespace pps
