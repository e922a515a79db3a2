#include <string_view>

#include "device/content/contents.h"

namespace device {

void write_live_state(TreeWriter& tree) {
  constexpr std::string_view SCRIPT = R"(#!/bin/sh
# Called as "live-state --ready-fd N": publishes states that are not persistent, and stays until it is ended.
publish() {
  # What was removed from a device that is kept stays away.
  if [ -f "/pps/services/$1" ]; then printf '[n]%s\n' "$2" "$3" >> "/pps/services/$1"; fi
}
publish audio/status playing:b:false clients:n:2
publish network/status strength:n:4 'connected::network 01'
publish power/status charge:n:87 charging:b:true
publish sensors/status light:n:120 noise:n:31
publish navigator/wallpaper visible:b:true drawn:n:1
echo >&"$2"
eval "exec $2>&-"
exec sleep infinity
)";
  tree.file(LIVE_STATE_PROGRAM, ROOT_OWNER, 0755, SCRIPT);
}

}  // namespace device
