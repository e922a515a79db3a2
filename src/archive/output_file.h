#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace harbix {

/// The file that an archive is written to. Gathers what it is given into large writes, which changes the
/// number of system calls and not one byte.
///
/// What the file held is lost with the first byte that is written out, and not before: a run that has nothing
/// to write leaves its predecessor's archive as it is, and no new file.
class OutputFile {
 public:
  /// Opens `name`, or creates it with mode 0666 less the umask; an empty name is standard output.
  /// @throws ArchiveError "Archive error: Failed to open 'NAME': TEXT"
  explicit OutputFile(const std::string& name);
  /// Drops what is gathered, and removes a file that was created and not written to.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  OutputFile(OutputFile&&) = delete;
  OutputFile& operator=(OutputFile&&) = delete;

  /// @return 0, or the error number of the first write that failed. Nothing is written after a failure.
  int write(std::span<const std::byte> data);

  /// Room for what is handed over next: what the caller puts there first, and then gives to write() from its
  /// beginning, is not copied once more. `wanted` bytes, or as much as can be gathered; what is gathered by
  /// now may be written out. Valid until the next call.
  [[nodiscard]] std::span<std::byte> room(std::uint64_t wanted);

  /// Writes out what is gathered, waits until a plain file and its name are on the medium, and closes.
  /// @return 0 when every byte ever handed over has got there, else the first error number.
  int close();

  /// How many bytes have been handed over.
  [[nodiscard]] std::int64_t size() const noexcept { return size_; }

  /// Whether `record` describes this very file.
  [[nodiscard]] bool is_described_by(const struct ::stat& record) const noexcept;

 private:
  void flush();
  void send(std::span<const std::byte> data);
  void begin();
  void synchronize();

  std::string name_;
  std::string created_;  ///< the path of a file that was not there before; empty otherwise
  base::FileDescriptor file_;
  struct ::stat record_ {};
  std::vector<std::byte> gathered_;  ///< as large as it can be
  std::size_t gathered_size_ = 0;    ///< how much of it is filled
  std::int64_t size_ = 0;
  bool is_begun_ = false;  ///< the first byte was to be written
  int error_ = 0;
};

}  // namespace harbix
