#include "updater/action.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "base/flags.h"
#include "fs/exception.h"

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

}  // namespace

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
    if (harbix::verbose) std::cerr << "Read line: " << line << '\n';
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
  if (harbix::verbose) std::cerr << "Attr: " << name << " value: " << value << '\n';
  response_[name] = value;
  if (name != LAST_ATTRIBUTE) return false;
  if (harbix::verbose) std::cerr << "Result received\n";
  return true;
}

std::string UpdaterAction::get_attribute(const std::string& name) const {
  const auto found = response_.find(name);
  if (found == response_.end()) throw std::runtime_error("Attribute " + name + " not found");
  return found->second;
}

}  // namespace updater
