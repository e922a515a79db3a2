#include "archive/manifest_text.h"

#include <algorithm>
#include <cstdint>

#include "archive/manifest.h"

namespace harbix {

ManifestText::int_type ManifestText::underflow() {
  const std::int64_t count = reader_.read_data(chunk_.data(), chunk_.size());
  if (count <= 0) return traits_type::eof();  // the end, or damage, which the reader then knows of
  const std::string_view text(chunk_.data(), static_cast<std::size_t>(count));
  judge(text);
  listener_(text);
  setg(chunk_.data(), chunk_.data(), chunk_.data() + count);
  return traits_type::to_int_type(chunk_.front());
}

void ManifestText::judge(std::string_view text) {
  size_ += text.size();
  if (size_ > meta::LARGEST_TEXT) throw meta::malformed_manifest("Manifest of more than 256 MiB");
  // No name has one, and what is behind it would be judged here and not be seen by the system.
  if (text.find('\0') != std::string_view::npos) throw meta::malformed_manifest("Manifest with a null byte");
  attributes_ += static_cast<std::size_t>(std::ranges::count(text, ':'));
  // A small file must not take the memory of a large one: no list of names shrinks that far.
  constexpr std::size_t SMALL = std::size_t{32} << 20;
  constexpr std::size_t FARTHEST = 128;
  const std::size_t memory = size_ + attributes_ * sizeof(meta::Attribute);
  if (memory > SMALL && memory / FARTHEST > reader_.input_bytes())
    throw meta::malformed_manifest("Manifest that is compressed too far");
}

}  // namespace harbix
