// The trace of imports that VLM_TRACE asks for: "_open,_rename,threads,-_pthread_self" or "all". An import that is
// traced is bound to a stub that records each call (reports/trace_ring.h) and goes on to the implementation; all others
// are bound as without a trace.
#pragma once

namespace vlm {

/// Reads VLM_TRACE. Part of the start-up driver, before the game's image is bound.
void start_import_trace();

}  // namespace vlm
