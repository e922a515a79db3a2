#include "tests/support/crafted_package.h"

#include <sys/stat.h>

#include <algorithm>
#include <sstream>

namespace harbix::test {
namespace {

/// As an application's backup writes them: size, mode, owners, time and path.
std::string record_line(std::size_t size, unsigned mode, const std::string& path) {
  std::ostringstream line;
  line << "File: " << size << ' ' << std::oct << mode << std::dec << " 0 0 1000000000 " << path << '\n';
  return line.str();
}

CraftedPackage described(CraftedPackage package, const std::string& id) {
  return package.attribute("Package", id + ".pkg")
      .attribute("App-Directory", id)
      .attribute("Data-Directory", "/accounts/1000/appdata/" + id);
}

}  // namespace

CraftedPackage CraftedPackage::binary(const std::string& id) {
  return described({"/app/" + id + ".pkg/bin", "/apps/" + id}, id).attribute("Extras", "source::shopvale");
}

CraftedPackage CraftedPackage::data(const std::string& id) {
  return described({"/app/" + id + ".pkg/appdata", "/accounts/1000/appdata/" + id}, id);
}

CraftedPackage::CraftedPackage(std::string name, std::string base)
    : name_(std::move(name)), base_(std::move(base)) {}

CraftedPackage& CraftedPackage::attribute(const std::string& key, const std::string& value) {
  const auto found = std::ranges::find(attributes_, key, &std::pair<std::string, std::string>::first);
  if (found == attributes_.end()) {
    attributes_.emplace_back(key, value);
  } else {
    found->second = value;
  }
  return *this;
}

CraftedPackage& CraftedPackage::without(const std::string& key) {
  std::erase_if(attributes_, [&](const auto& attribute) { return attribute.first == key; });
  return *this;
}

CraftedPackage& CraftedPackage::file(const std::string& path, const std::string& content, unsigned mode) {
  record(S_IFREG | mode, base_ + "/" + path, content.size());
  return entry(TarBuilder::FILE, name_ + "/" + path, content, mode);
}

CraftedPackage& CraftedPackage::folder(const std::string& path, unsigned mode) {
  record(S_IFDIR | mode, base_ + "/" + path);
  return entry(TarBuilder::FOLDER, name_ + "/" + path + "/", "", mode);
}

CraftedPackage& CraftedPackage::link(const std::string& path, const std::string& target) {
  record(S_IFLNK | 0777U, base_ + "/" + path, target.size());
  return entry(TarBuilder::SYMBOLIC_LINK, name_ + "/" + path, "", 0777, target);
}

CraftedPackage& CraftedPackage::record(unsigned mode, const std::string& path, std::size_t size) {
  records_ += record_line(size, mode, path);
  return *this;
}

CraftedPackage& CraftedPackage::entry(char type, const std::string& name, const std::string& content,
                                      unsigned mode, const std::string& target) {
  entries_.add(type, name, content, mode, target);
  return *this;
}

std::string CraftedPackage::text() const {
  std::string manifest;
  for (const auto& [key, value] : attributes_) manifest.append(key).append(": ").append(value).append("\n");
  manifest += records_ + "\n";
  return TarBuilder().file(name_ + "/.backup.metadata", manifest, 0700).truncated_text() +
         entries_.truncated_text();
}

std::string archive_of(const std::vector<CraftedPackage>& packages) {
  return cut_archive_of(packages) + TarBuilder().text();
}

std::string cut_archive_of(const std::vector<CraftedPackage>& packages) {
  std::string text;
  for (const CraftedPackage& package : packages) text += package.text();
  return text;
}

}  // namespace harbix::test
