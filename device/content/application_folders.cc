#include "device/content/application_folders.h"

#include <utility>

#include "device/content/random.h"

namespace device {
namespace {

constexpr ApplicationFolder::Modes BINARY_MODES = {.folder = 0750, .file = 0640};
constexpr ApplicationFolder::Modes DATA_MODES = {.folder = 0770, .file = 0660};

}  // namespace

ApplicationFolder::ApplicationFolder(TreeWriter& tree, std::string path, Owner owner, Modes modes)
    : tree_(tree), path_(std::move(path)), owner_(owner), modes_(modes) {}

void ApplicationFolder::folder(std::string_view path) { tree_.folder(inside(path), owner_, modes_.folder); }

void ApplicationFolder::file(std::string_view path, std::uint64_t size, std::optional<mode_t> mode) {
  text_file(path, Random(inside(path)).bytes(size), mode);
}

void ApplicationFolder::text_file(std::string_view path, std::string_view content,
                                  std::optional<mode_t> mode) {
  tree_.file(inside(path), owner_, mode.value_or(modes_.file), content);
}

void ApplicationFolder::link(std::string_view path, std::string_view target) {
  tree_.link(inside(path), owner_, target);
}

std::string ApplicationFolder::inside(std::string_view path) const { return path_ + "/" + std::string(path); }

ApplicationFolder make_binaries(TreeWriter& tree, const installer::Application& application) {
  const std::string path = "/apps/" + application.id;
  const Owner owner{.user = APPS_USER, .group = application.gid};
  tree.folder(path, owner, BINARY_MODES.folder);
  ApplicationFolder binaries(tree, path, owner, BINARY_MODES);
  for (const char* name : {"META-INF", "native", "public"}) binaries.folder(name);
  binaries.text_file("META-INF/MANIFEST.MF", "Manifest-Version: 1.0\nPackage-Name: " + application.package +
                                                 "\nPackage-Version: " + application.version + "\n");
  return binaries;
}

ApplicationFolder make_data(TreeWriter& tree, const installer::Application& application) {
  const std::string path = "/accounts/1000/appdata/" + application.id;
  // The folder itself is not the application's own: it only gets there by its group.
  tree.folder(path, {.user = APPS_USER, .group = application.gid}, DATA_MODES.folder);
  const Owner owner{.user = application.gid * 10000 + ACCOUNT_USER, .group = application.gid};
  ApplicationFolder data(tree, path, owner, DATA_MODES);
  for (const char* name : {"data", "logs", "tmp"}) data.folder(name);
  return data;
}

}  // namespace device
