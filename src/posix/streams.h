// C streams: a game's FILE* is the host C runtime's.
#pragma once

namespace vlm {

/// Fills the variables behind ___stdinp, ___stdoutp and ___stderrp. Part of static start-up.
void set_up_standard_streams();

}  // namespace vlm
