#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <fuse_lowlevel.h>

#include "device/pps/catalog.h"
#include "device/pps/publisher.h"
#include "device/pps/store.h"
#include "device/pps/tree.h"

namespace pps::server {

/// What a directory held when a client began to list it.
struct ListedName {
  std::string name;
  NodeId id;
  bool is_directory;
};

/// The objects behind one mount, shared by the operations. One thread at a time.
struct Server {
  /// @param folder the store, or empty to keep nothing.
  /// @param passing a directory that it does not keep; empty for none.
  /// @throws std::system_error when the store cannot be read.
  Server(const std::string& folder, const std::string& passing);

  /// Ends every read that still waits, with `error`: a request without an answer would never be freed.
  void refuse_waiting_reads(int error);

  /// The directory, object or view behind a number of the kernel's.
  /// @throws std::system_error (ESTALE) when there is none; the kernel only asks for what it holds.
  [[nodiscard]] Node& node(fuse_ino_t number) const;

  /// Whether readers of the object are to wait for ever.
  [[nodiscard]] bool is_hanging(const Node& node) const;

  std::set<std::string>
      hanging_objects;  ///< paths relative to the mount, of objects whose readers get no answer
  std::set<fuse_req_t> hanging_reads;  ///< those that wait for it
  Store store;
  Tree tree;
  Publisher publisher;
  Catalog catalog;
  std::uint64_t last_listing = 0;
  std::unordered_map<std::uint64_t, std::vector<ListedName>> listings;  ///< of the open directories
};

/// What the kernel may ask; the session's user data is a Server.
[[nodiscard]] const fuse_lowlevel_ops& operations();

}  // namespace pps::server
