#include "tests/app/app_device.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <sstream>

#include "tests/support/tree.h"

namespace harbix::test {

void AppDevice::set_up_root() const {
  put("/etc/passwd", "root:x:0:0::/:/bin/sh\napps:x:" + std::to_string(APPS_USER) + ":0::/:/bin/sh\n");
  for (const char* folder : {"/apps", APPLICATION_DATA}) {
    std::filesystem::create_directories(folder);
    ASSERT_EQ(::chmod(folder, 0777), 0) << errno;
  }
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

}  // namespace harbix::test
