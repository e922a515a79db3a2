#include "app/navigator_objects.h"

#include <iostream>
#include <vector>

#include "app/package_attributes.h"
#include "app/places.h"
#include "archive/file_record.h"
#include "archive/item_error.h"
#include "archive/metadata_entry.h"
#include "archive/pps_object.h"
#include "base/flags.h"

namespace harbix {

void archive_navigator_objects(ArchiveWriter& writer) {
  const fs::Path name = fs::Path(places::APPLICATION_PREFIX) / places::NAVIGATOR / places::OBJECT_KIND;
  meta::Manifest manifest{{package_attributes::PACKAGE, places::NAVIGATOR},
                          {package_attributes::APP_DIRECTORY, places::NAVIGATOR},
                          {package_attributes::DATA_DIRECTORY, places::NAVIGATOR}};
  std::vector<fs::File> objects;
  for (const char* path : places::NAVIGATOR_OBJECTS) {
    if (!fs::exists(fs::Path(path))) continue;
    objects.emplace_back(fs::Path(path));
    manifest.push_back(path_record(objects.back().path()));
  }
  store_manifest(writer, name, METADATA_NAME, manifest);
  for (const fs::File& object : objects) {
    if (verbose) std::cerr << "Entry: " << object.path() << '\n';
    tolerate_item_error([&] { store_pps_object(writer, object, name / object.path()); });
  }
}

}  // namespace harbix
