// parallelFor: one function for every number below a count, on a few threads.
#pragma once

#include <cstddef>
#include <functional>

namespace velta {

// Calls `work(0)` to `work(count - 1)`, each once, in no particular order, on as many threads as
// the machine has cores (at most 8, the calling one among them), and returns when all are done.
// `work` must not throw and must be safe to call from several threads at once.
void parallelFor(std::size_t count, const std::function<void(std::size_t)>& work);

}  // namespace velta
