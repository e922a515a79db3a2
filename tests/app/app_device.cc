#include "tests/app/app_device.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <sstream>

#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {

::testing::AssertionResult AppDevice::on_the_device(const std::function<void()>& body) const {
  return passes_in_root(root_.path(), [&body] {
    put("/etc/passwd", "root:x:0:0::/:/bin/sh\napps:x:" + std::to_string(APPS_USER) + ":0::/:/bin/sh\n");
    for (const char* folder : {"/apps", APPLICATION_DATA}) {
      std::filesystem::create_directories(folder);
      ASSERT_EQ(::chmod(folder, 0777), 0) << errno;
    }
    body();
  });
}

void put(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  write_file(path, content);
}

void put_registered_applications(const std::string& lines) {
  put("/pps/system/installer/registeredapps/.all", "@.all\n" + lines);
}

meta::Attribute record(mode_t mode, const std::string& path) {
  std::ostringstream value;
  value << "1 " << std::oct << mode << " 0 0 5 " << path;
  return {"File", value.str()};
}

meta::Manifest described(const std::string& package, const std::string& directory) {
  return {{"Package", package},
          {"App-Directory", directory},
          {"Data-Directory", std::string(APPLICATION_DATA) + "/" + directory}};
}

void add_metadata(TarBuilder& archive, const std::string& name, const meta::Manifest& manifest) {
  archive.file(name + "/.backup.metadata", meta::to_text(manifest), 0700);
}

std::size_t count_of(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace harbix::test
