// Runs many pieces of work in a few worker processes. A piece that ends its process costs only
// itself: the worker is replaced and the rest goes on.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace calcut::tools {

/// The work on one item, in a worker process. What it returns is handed to ItemDone in the calling
/// process; nothing else comes back.
using ItemWork = std::function<std::string(std::size_t item)>;

/// Called in the calling process for each item, in the order in which they end. death is empty when
/// the work returned, else it says how its process ended ("std::terminate was called", "killed by
/// signal 9", ...).
using ItemDone =
    std::function<void(std::size_t item, const std::string& result, const std::string& death)>;

/// Works on the items 0 to count - 1 with at most workers processes at a time. The calling process
/// must have a single thread. An interrupt or termination signal lets the items in work finish and
/// starts no more.
/// @return false when interrupted
/// Throws std::system_error when not a single worker can be started.
bool runInWorkers(std::size_t count, unsigned workers, const ItemWork& work, const ItemDone& done);

}  // namespace calcut::tools
