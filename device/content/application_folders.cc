#include "device/content/application_folders.h"

#include "device/content/random.h"

namespace device {
namespace {

constexpr mode_t FOLDER_MODE = 0750;
constexpr mode_t DATA_FOLDER_MODE = 0770;

}  // namespace

ApplicationFolders::ApplicationFolders(TreeWriter& tree, const installer::Application& application)
    : tree_(tree),
      application_(application),
      owner_{.user = APPS_USER, .group = application.gid},
      data_owner_{.user = application.gid * 10000 + ACCOUNT_USER, .group = application.gid} {}

std::string ApplicationFolders::in_binaries(std::string_view path) const {
  return "/apps/" + application_.id + "/" + std::string(path);
}

std::string ApplicationFolders::in_data(std::string_view path) const {
  return "/accounts/1000/appdata/" + application_.id + "/" + std::string(path);
}

void ApplicationFolders::make_binaries() {
  tree_.folder("/apps/" + application_.id, owner_, FOLDER_MODE);
  for (const char* name : {"META-INF", "native", "public"}) folder(name);
  text_file("META-INF/MANIFEST.MF", "Manifest-Version: 1.0\nPackage-Name: " + application_.package +
                                        "\nPackage-Version: " + application_.version + "\n");
}

void ApplicationFolders::folder(std::string_view path) {
  tree_.folder(in_binaries(path), owner_, FOLDER_MODE);
}

void ApplicationFolders::file(std::string_view path, std::uint64_t size, mode_t mode) {
  text_file(path, Random(in_binaries(path)).bytes(size), mode);
}

void ApplicationFolders::text_file(std::string_view path, std::string_view content, mode_t mode) {
  tree_.file(in_binaries(path), owner_, mode, content);
}

void ApplicationFolders::link(std::string_view path, std::string_view target) {
  tree_.link(in_binaries(path), owner_, target);
}

void ApplicationFolders::make_data() {
  // The folder itself is not the application's own: it only gets there by its group.
  tree_.folder("/accounts/1000/appdata/" + application_.id, owner_, DATA_FOLDER_MODE);
  for (const char* name : {"data", "logs", "tmp"}) data_folder(name);
}

void ApplicationFolders::data_folder(std::string_view path) {
  tree_.folder(in_data(path), data_owner_, DATA_FOLDER_MODE);
}

void ApplicationFolders::data_file(std::string_view path, std::uint64_t size, mode_t mode) {
  data_text_file(path, Random(in_data(path)).bytes(size), mode);
}

void ApplicationFolders::data_text_file(std::string_view path, std::string_view content, mode_t mode) {
  tree_.file(in_data(path), data_owner_, mode, content);
}

void ApplicationFolders::data_link(std::string_view path, std::string_view target) {
  tree_.link(in_data(path), data_owner_, target);
}

}  // namespace device
