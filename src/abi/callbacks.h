// What vlm_wrap_callback made.
#pragma once

namespace vlm {

/// The Windows function behind a stub of vlm_wrap_callback; any other pointer as it is. The pointer is not followed.
void* function_of_callback_stub(void* pointer);

}  // namespace vlm
