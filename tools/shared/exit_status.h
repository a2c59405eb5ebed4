// What the tools tell the program that started them: one table for all of them.
#pragma once

namespace vlm::tools {

enum ExitStatus {
  EXIT_STATUS_DONE = 0,        // done, or: the image would start, and everything is there
  EXIT_STATUS_INCOMPLETE = 1,  // done, but something is missing or could not be looked at; it is named
  EXIT_STATUS_REFUSED = 2,     // not done, or: the image would not start; the reason is named
  EXIT_STATUS_USAGE = 64,      // the arguments make no sense, or name a file that cannot be read
};

}  // namespace vlm::tools
