#include "updater/installer_client.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <utility>

#include "base/flags.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/file.h"
#include "fs/working_directory.h"

namespace updater {
namespace {

constexpr std::string_view LAST_ATTRIBUTE = "result";

struct StreamCloser {
  // What was only read has nothing left to report.
  void operator()(std::FILE* stream) const noexcept { static_cast<void>(std::fclose(stream)); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// A stream of its own over the same opening, so that the descriptor stays its owner's.
Stream open_stream(const RequestObject& object) {
  base::FileDescriptor descriptor(::dup(object.descriptor()));
  Stream stream(descriptor ? ::fdopen(descriptor.get(), "r") : nullptr);
  if (!stream) throw fs::Exception(errno, "Failed to read file '" + object.path().text() + "' ");
  static_cast<void>(descriptor.release());  // closed with the stream
  return stream;
}

/// The lines of a stream, each without its newline.
class LineReader {
 public:
  explicit LineReader(const RequestObject& object) : stream_(open_stream(object)) {}
  ~LineReader() { std::free(buffer_); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  LineReader(LineReader&&) = delete;
  LineReader& operator=(LineReader&&) = delete;

  /// @return false at the end of the stream; one that cannot be read any further has ended as well.
  bool next(std::string& line) {
    const ::ssize_t length = ::getline(&buffer_, &capacity_, stream_.get());
    if (length < 0) return false;
    line.assign(buffer_, static_cast<std::size_t>(length));
    if (line.ends_with('\n')) line.pop_back();
    return true;
  }

 private:
  Stream stream_;
  char* buffer_ = nullptr;  ///< getline's own
  std::size_t capacity_ = 0;
};

std::string attribute_line(const std::string& name, const std::string& value) {
  return name + "::" + value + '\n';
}

std::string package_path_line(const fs::Path& package) {
  return attribute_line("package_path", package.text());
}

/// The installer can be asked about what does not exist (any more) as well, by the text of its path alone.
fs::Path canonical(const std::string& text) {
  const fs::Path path(text);
  if (fs::exists(path)) return path.realpath();
  const bool is_absolute = text.starts_with(fs::Path::SEPARATOR);
  return (is_absolute ? path : fs::current_directory() / path).lexically_normal();
}

}  // namespace

std::string attribute_of(const Attributes& attributes, const std::string& name) {
  const auto found = attributes.find(name);
  if (found == attributes.end()) throw std::runtime_error("Attribute " + name + " not found");
  return found->second;
}

void UpdaterAction::exchange() {
  write_request();
  read_response();
}

void UpdaterAction::send(std::string_view lines) const {
  const ::ssize_t written = ::write(object_.descriptor(), lines.data(), lines.size());
  if (written == -1 || static_cast<std::size_t>(written) != lines.size()) {
    // A write that stops half way sets no error number.
    throw fs::Exception(written == -1 ? errno : EIO, "Failed to write file '" + object_.path().text() + "' ");
  }
  // An object is published when it is written; where there is nothing to synchronize, nothing is lost.
  static_cast<void>(::fsync(object_.descriptor()));
}

void UpdaterAction::read_response() {
  LineReader lines(object_);
  for (std::string line; lines.next(line);) {
    harbix::report::progress("Read line: ", line);
    if (take_line(line)) break;
  }
  if (!harbix::verbose) return;
  for (const auto& [name, value] : response_) std::cerr << name << " => " << value << '\n';
}

bool UpdaterAction::take_line(const std::string& line) {
  if (line.empty() || line.starts_with('@')) return false;
  const std::size_t name_end = line.find(':');
  const std::size_t type_end = name_end == std::string::npos ? name_end : line.find(':', name_end + 1);
  const std::string name = line.substr(0, name_end);
  const std::string value = type_end == std::string::npos ? "" : line.substr(type_end + 1);
  harbix::report::progress("Attr: ", name, " value: ", value);
  response_[name] = value;
  if (name != LAST_ATTRIBUTE) return false;
  harbix::report::progress("Result received");
  return true;
}

std::string UpdaterAction::get_attribute(const std::string& name) const {
  return attribute_of(response_, name);
}

ActionRegister::ActionRegister(fs::Path package, std::string extras, std::string gid)
    : package_(std::move(package)), extras_(std::move(extras)), gid_(std::move(gid)) {}

void ActionRegister::write_request() {
  send(attribute_line("action", "register") + package_path_line(package_) +
       attribute_line("extras", extras_) + attribute_line("gid", gid_));
}

ActionUnregister::ActionUnregister(const std::string& package_path) : package_(package_path) {}

void ActionUnregister::write_request() {
  send(attribute_line("action", "unregister") + package_path_line(package_));
}

ActionQuery::ActionQuery(const std::string& package_path) : package_(canonical(package_path)) {}

void ActionQuery::write_request() { send(attribute_line("action", "query") + package_path_line(package_)); }

ActionUninstall::ActionUninstall(std::string package_id) : package_id_(std::move(package_id)) {}

void ActionUninstall::write_request() {
  send(attribute_line("action", "uninstall") + attribute_line("package_id", package_id_));
}

}  // namespace updater
