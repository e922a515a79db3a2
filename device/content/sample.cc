#include "device/content/sample.h"

#include "device/content/contents.h"
#include "device/content/media_share.h"

namespace device {

void write_sample_content(TreeWriter& tree) {
  MediaShare share(tree);
  write_media_collection(share);
  write_odd_items(share);
  write_media_library(tree, share.records());
  write_dtm_share(tree);
  write_subscriber_scripts(tree);
  write_settings_objects(tree);
  write_settings_files(tree);
  write_settings_scripts(tree);
  write_applications(tree);
  write_home_screen(tree);
  write_live_state(tree);
}

}  // namespace device
