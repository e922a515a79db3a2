#include "device/factory_state.h"

#include "device/content/sample.h"
#include "device/tree_writer.h"
#include "device/well_known_folders.h"

namespace device {

void write_factory_state(const std::string& root, bool bare) {
  TreeWriter tree(root);
  write_well_known_folders(tree);
  if (!bare) write_sample_content(tree);
  tree.finish();
}

}  // namespace device
