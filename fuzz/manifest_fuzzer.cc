// What has been parsed must survive being written and read again, and its file records must be readable, with
// any content.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "archive/file_record.h"
#include "archive/manifest.h"

namespace {

constexpr std::size_t MAX_INPUT_BYTES = 65536;

meta::Manifest parse(const std::string& text) {
  std::istringstream stream(text);
  return meta::parse(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > MAX_INPUT_BYTES) return 0;
  const meta::Manifest first = parse(std::string(reinterpret_cast<const char*>(data), size));
  if (parse(meta::to_text(first)) != first) std::abort();
  if (harbix::read_file_records(first).size() > first.size()) std::abort();
  return 0;
}
