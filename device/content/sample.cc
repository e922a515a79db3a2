#include "device/content/sample.h"

namespace device {

void write_sample_content(TreeWriter& /*tree*/) {}

}  // namespace device
