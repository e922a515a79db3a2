#pragma once

#include <string>

namespace harbix::test {

/// The beginning of a shell line for a device: what follows runs while `call` fails with `error`, the `nth`
/// time or, with a '+' behind the number, from then on; see failing_calls.cc. `more` are further variables
/// for it.
inline std::string while_failing(const std::string& call, const std::string& nth, int error,
                                 const std::string& more = "") {
  return "env ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=" + call + " HARBIX_FAIL_NTH=" + nth +
         " HARBIX_FAIL_ERRNO=" + std::to_string(error) + " " + more +
         " LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so ";
}

/// As `more` above: runs `command` when an object of this path comes to a moment.
inline std::string with_act(const std::string& moment, const std::string& path, const std::string& command) {
  return "HARBIX_ACT_AT=" + moment + " HARBIX_ACT_NTH=1 HARBIX_ACT_PATH='" + path + "' HARBIX_ACT_COMMAND='" +
         command + "'";
}

/// The beginning of a command that is to run with `count` descriptors. The sanitizers' look for leaks needs
/// some of its own.
inline std::string with_descriptors(int count) {
  return "export ASAN_OPTIONS=detect_leaks=0; ulimit -n " + std::to_string(count) + "; ";
}

}  // namespace harbix::test
