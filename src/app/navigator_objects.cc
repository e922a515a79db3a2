#include "app/navigator_objects.h"

#include "app/package_attributes.h"
#include "app/places.h"
#include "archive/package_writer.h"
#include "archive/pps_object.h"
#include "base/places.h"
#include "base/report.h"

namespace harbix {
namespace {

meta::Attribute record(const fs::File& object) { return path_record(object.path()); }

void announce(report::ProgressLines& /*progress*/, const fs::Path& path, const fs::Path& /*name*/) {
  report::progress("Entry: ", path);
}

constexpr PackageStyle STYLE{.record = record, .announce = announce, .write = write_pps_object};

}  // namespace

void archive_navigator_objects(ArchiveWriter& writer) {
  const fs::Path name = fs::Path(places::APPLICATION_PREFIX) / places::NAVIGATOR / places::OBJECT_KIND;
  fs::Folder objects(places::PPS);
  PackageWriter package(writer, objects, STYLE);
  for (const fs::Path path : places::NAVIGATOR_OBJECTS) {
    if (fs::exists(path)) package.add(fs::File(path));
  }
  package.store(name, "/",
                {{package_attributes::PACKAGE, places::NAVIGATOR},
                 {package_attributes::APP_DIRECTORY, places::NAVIGATOR},
                 {package_attributes::DATA_DIRECTORY, places::NAVIGATOR}});
}

}  // namespace harbix
