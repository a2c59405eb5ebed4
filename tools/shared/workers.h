// One piece of work on several processors.
#pragma once

#include <cstddef>
#include <functional>

namespace vlm::tools {

/// Runs `work` on the calling thread and on so many more that each processor has one, but no more than `portions` in
/// all; comes back when all are done. What one of them throws is thrown here, too.
///   work  is told whether the calling thread runs it
void on_all_processors(std::size_t portions, const std::function<void(bool is_caller)>& work);

}  // namespace vlm::tools
