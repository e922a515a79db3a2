#include "device/pps/catalog.h"

#include <cerrno>
#include <string>

#include "tests/pps/rules.h"

namespace pps {
namespace {

class CatalogRules : public Rules {
 protected:
  const Metadata any_ = new_metadata(0640, 5, 6);
};

TEST_F(CatalogRules, RefusesNamesThatAreTakenOrImpossible) {
  make_directory("dir");
  put("obj", "a::1\n");
  struct Row {
    const char* name;
    int error;
  };
  for (const Row& row :
       {Row{"obj", EEXIST}, Row{"dir", EEXIST}, Row{"a@b", EINVAL}, Row{"a?b", EINVAL}, Row{"", EINVAL}}) {
    EXPECT_EQ(error_of([&] { catalog_.make_object(tree_.root(), row.name, any_); }), row.error) << row.name;
    EXPECT_EQ(error_of([&] { catalog_.make_directory(tree_.root(), row.name, any_); }), row.error)
        << row.name;
  }
}

TEST_F(CatalogRules, RemovesOnlyWhatTheCallIsFor) {
  Node& dir = make_directory("dir");
  put_in(dir, "obj", "a::1\n");
  EXPECT_EQ(error_of([&] { catalog_.remove_object(tree_.root(), "none"); }), ENOENT);
  EXPECT_EQ(error_of([&] { catalog_.remove_object(tree_.root(), "dir"); }), EISDIR);
  EXPECT_EQ(error_of([&] { catalog_.remove_directory(tree_.root(), "none"); }), ENOENT);
  EXPECT_EQ(error_of([&] { catalog_.remove_directory(dir, "obj"); }), ENOTDIR);
  EXPECT_EQ(error_of([&] { catalog_.remove_directory(tree_.root(), "dir"); }), ENOTEMPTY);
  catalog_.remove_object(dir, "obj");
  catalog_.remove_directory(tree_.root(), "dir");
  EXPECT_EQ(tree_.find(tree_.root(), "dir"), nullptr);
}

TEST_F(CatalogRules, EndsNodesWhenNobodyRefersToThem) {
  const OpenId open_one = open("obj");
  Node& node = *tree_.find(tree_.root(), "obj");
  const NodeId id = node.id;
  Tree::hold(node);
  Tree::hold(node);
  catalog_.remove_object(tree_.root(), "obj");
  EXPECT_EQ(tree_.node(id), &node);
  publisher_.close(open_one);
  EXPECT_EQ(tree_.node(id), &node) << "the kernel still knows it";
  tree_.drop(node, 2);
  EXPECT_EQ(tree_.node(id), nullptr);
  EXPECT_EQ(tree_.size(), 1U);
}

TEST_F(CatalogRules, NeverUsesANumberTwice) {
  const NodeId first = catalog_.make_object(tree_.root(), "obj", any_).id;
  catalog_.remove_object(tree_.root(), "obj");
  EXPECT_NE(catalog_.make_object(tree_.root(), "obj", any_).id, first);
}

TEST_F(CatalogRules, MakesNothingInARemovedDirectory) {
  Node& dir = make_directory("dir");
  Tree::hold(dir);
  catalog_.remove_directory(tree_.root(), "dir");
  EXPECT_EQ(error_of([&] { catalog_.make_object(dir, "obj", any_); }), ENOENT);
  EXPECT_EQ(tree_.find(dir, ".all"), nullptr);
  tree_.drop(dir, 1);
}

TEST_F(CatalogRules, HandsTheGroupOfASetGroupIdDirectoryOn) {
  Node& dir = make_directory("dir");
  catalog_.change_metadata(dir, new_metadata(02770, 1, 77));
  EXPECT_EQ(catalog_.make_object(dir, "obj", any_).metadata.gid, 77U);
  const Metadata below = catalog_.make_directory(dir, "below", any_).metadata;
  EXPECT_EQ(below.gid, 77U);
  EXPECT_EQ(below.mode, 02640U);
}

}  // namespace
}  // namespace pps
