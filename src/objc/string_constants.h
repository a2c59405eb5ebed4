#pragma once

namespace vlm {

/// Makes the strings that global constants hold. Part of static start-up, once the classes are built.
void create_string_constants();

}  // namespace vlm
