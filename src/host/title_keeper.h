// The thread that keeps the game window's title and ends the process once the window is gone.
#pragma once

namespace vlm {

void start_title_keeper();

}  // namespace vlm
