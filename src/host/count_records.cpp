#include "support/record_counts.h"
#include "vlm.h"

VLM_API void vlm_count_records(vlm_record_counts* counts) {
  const auto& made = vlm::record_counts;
  *counts = {made.frames, made.methods, made.callbacks, made.calls, made.threads};
}
