#include "device/content/media_share.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "device/content/random.h"

namespace device {
namespace {

struct Extension {
  std::string_view text;
  MediaType type;
};

constexpr std::array EXTENSIONS = {
    Extension{".mp3", MediaType::audio}, Extension{".ogg", MediaType::audio},
    Extension{".mp4", MediaType::video}, Extension{".jpg", MediaType::photo},
    Extension{".png", MediaType::photo}, Extension{".amr", MediaType::recording},
};

std::string on_device(std::string_view path) { return "/accounts/1000/shared/" + std::string(path); }

}  // namespace

MediaType media_type(std::string_view name) {
  const auto* const found = std::ranges::find_if(
      EXTENSIONS, [&](const Extension& extension) { return name.ends_with(extension.text); });
  return found == EXTENSIONS.end() ? MediaType::other : found->type;
}

void MediaShare::folder(std::string_view path, mode_t mode) {
  tree_.folder(on_device(path), SHARED_OWNER, mode);
}

void MediaShare::file(std::string_view path, std::uint64_t size, mode_t mode) {
  text_file(path, Random(path).bytes(size), mode);
}

void MediaShare::text_file(std::string_view path, std::string_view content, mode_t mode) {
  tree_.file(on_device(path), SHARED_OWNER, mode, content);
  note(path, content.size(), mode);
}

void MediaShare::sparse_file(std::string_view path, std::uint64_t size) {
  constexpr mode_t MODE = 0660;
  tree_.sparse_file(on_device(path), SHARED_OWNER, MODE, size);
  note(path, size, MODE);
}

void MediaShare::link(std::string_view path, std::string_view target) {
  tree_.link(on_device(path), SHARED_OWNER, target);
}

void MediaShare::protected_folder(std::string_view path) {
  tree_.folder(on_device(path), PROTECTED_OWNER, 0770);
}

void MediaShare::protected_file(std::string_view path, std::uint64_t size) {
  tree_.file(on_device(path), PROTECTED_OWNER, 0660, Random(path).bytes(size));
}

void MediaShare::hidden_file(std::string_view path, std::uint64_t size) {
  tree_.file(on_device(path), SHARED_OWNER, 0660, Random(path).bytes(size));
}

void MediaShare::note(std::string_view path, std::uint64_t size, mode_t mode) {
  if ((mode & S_IRUSR) == 0) return;
  records_.push_back({.path = std::string(path), .size = size, .type = media_type(path)});
}

}  // namespace device
