#pragma once

#include <cstdint>

#include "device/pps/node.h"
#include "device/pps/open_name.h"

namespace pps::server {

/// What a number that the kernel holds stands for.
struct NumberedNode {
  NodeId id;
  OpenOptions options;
};

/// The kernel opens by number and not by name, so that open options have to be part of the number: each
/// object has four of them, which all show the one inode number. Numbers of directories have no options. The
/// root's is 1.
[[nodiscard]] constexpr std::uint64_t kernel_number(NodeId id, OpenOptions options) {
  if (id == Node::ROOT_ID) return id;
  return id << 2U | (options.wait ? 1U : 0U) | (options.delta ? 2U : 0U);
}

[[nodiscard]] constexpr NumberedNode numbered_node(std::uint64_t number) {
  if (number == Node::ROOT_ID) return {.id = Node::ROOT_ID, .options = {}};
  return {.id = number >> 2U, .options = {.wait = (number & 1U) != 0, .delta = (number & 2U) != 0}};
}

}  // namespace pps::server
