#include "tests/pps/rules.h"

namespace pps {

OpenId Rules::open(std::string_view name) { return open_in(tree_.root(), name); }

OpenId Rules::open_in(Node& directory, std::string_view name) {
  const OpenName asked = split_open_name(name);
  Node* node = tree_.find(directory, asked.name);
  if (node == nullptr) node = &catalog_.make_object(directory, asked.name, new_metadata(0666, 0, 0));
  return publisher_.open(*node, asked.options);
}

std::string Rules::read(OpenId id, std::size_t size) {
  tokens_.push_back(0);
  const auto text = publisher_.read(id, size, Publisher::Patience::wait, &tokens_.back());
  return text ? std::string(*text) : WAITS;
}

void Rules::put_in(Node& directory, std::string_view name, std::string_view text) {
  const OpenId id = open_in(directory, name);
  publisher_.write(id, text);
  publisher_.close(id);
}

std::string Rules::cat_in(Node& directory, std::string_view name) {
  const OpenId id = open_in(directory, name);
  std::string all;
  for (std::string piece = read(id); !piece.empty(); piece = read(id)) all += piece;
  publisher_.close(id);
  return all;
}

Node& Rules::make_directory(std::string_view name) {
  return catalog_.make_directory(tree_.root(), name, new_metadata(0755, 0, 0));
}

}  // namespace pps
